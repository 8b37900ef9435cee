// Counting driver for loading and unloading libdbg.so (CountMarkers.h):
// `dlopen` builds the name tables, `dlclose` destroys them. Like
// dbg_bench_load, this program does not link the library but what it needs
// (IMC, Tcl), so that only libdbg.so comes and goes. One load and unload
// first, uncounted; then one of each, counted. The cases file (the
// argument) gets each case's name, its allocations and the bytes they ask
// for: what the load allocates is what the tables hold.
#include <dlfcn.h>

#include <cinttypes>
#include <cstdio>

#include "AllocationCounter.h"
#include "BenchSupport.h"
#include "CountMarkers.h"
#include "IMC_StandIn.h"

namespace {

char const libraryPath[] = DBG_LIBRARY_PATH;

bool loadAndUnload()
{
    void* handle = dlopen(libraryPath, RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return false;
    dlclose(handle);
    return bench::unloaded(libraryPath);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CASES_FILE\n", argv[0]);
        return 2;
    }
    // Keeps the IMC library in the process, whatever the linker's defaults.
    static_cast<void>(imc_standin::manager());
    if (!loadAndUnload()) {
        std::fprintf(stderr, "load_count: %s does not load and unload: %s\n", libraryPath, dlerror());
        return 1;
    }
    std::FILE* cases = std::fopen(argv[1], "w");
    if (!cases) {
        std::perror(argv[1]);
        return 1;
    }

    void* handle;
    {
        bench::AllocationScope allocations;
        bench::startCount();
        handle = dlopen(libraryPath, RTLD_NOW | RTLD_LOCAL);
        bench::stopCount("load/libdbg");
        std::fprintf(cases, "load/libdbg %" PRIu64 " %" PRIu64 "\n", allocations.count(), allocations.bytes());
    }
    {
        bench::AllocationScope allocations;
        bench::startCount();
        dlclose(handle);
        bench::stopCount("unload/libdbg");
        std::fprintf(cases, "unload/libdbg %" PRIu64 " %" PRIu64 "\n", allocations.count(), allocations.bytes());
    }
    bool const gone = bench::unloaded(libraryPath);
    if (!gone)
        std::fprintf(stderr, "load_count: libdbg.so stays loaded after dlclose\n");
    return std::fclose(cases) == 0 && gone ? 0 : 1;
}
