// Loading and unloading libdbg.so, which builds and destroys its name
// tables. This program does not link the library (a linked library can never
// be unloaded); it links what the library needs (IMC, Tcl), as the gateway
// host does, so that only libdbg.so itself comes and goes.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <string>

#include "AllocationCounter.h"
#include "BenchSupport.h"
#include "IMC_StandIn.h"

namespace {

char const libraryPath[] = DBG_LIBRARY_PATH;

void loadUnloadBench(benchmark::State& state)
{
    // Once by hand first: the library must load, and really leave again.
    void* handle = dlopen(libraryPath, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        state.SkipWithError((std::string("dlopen: ") + dlerror()).c_str());
        return;
    }
    dlclose(handle);
    if (!bench::unloaded(libraryPath)) {
        state.SkipWithError("libdbg.so stays loaded after dlclose");
        return;
    }
    bench::AllocationScope allocations;
    for (auto _ : state) {
        handle = dlopen(libraryPath, RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            state.SkipWithError((std::string("dlopen: ") + dlerror()).c_str());
            break;
        }
        dlclose(handle);
    }
    allocations.pause();
    state.counters["allocs/op"] = allocations.perOperation(state.iterations());
    if (!bench::unloaded(libraryPath))
        state.SkipWithError("libdbg.so stays loaded after dlclose");
}

}  // namespace

BENCHMARK(loadUnloadBench)->Name("load_unload/libdbg")->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    // Keeps the IMC library in the process, whatever the linker's defaults.
    benchmark::DoNotOptimize(imc_standin::manager());
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
