// One libFuzzer target; DBG_FUZZ_TARGET names which property it checks
// (fuzz/CMakeLists.txt builds one executable per target). A violated
// property is reported on standard error and aborts, so libFuzzer keeps the
// input as a crash artifact.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzProperties.h"

#ifndef DBG_FUZZ_TARGET
#error "DBG_FUZZ_TARGET must name the target"
#endif

namespace {

char const target[] = DBG_FUZZ_TARGET;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string const name = target;
    if (name == "command")
        dbg_fuzz::CommandBench::instance();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const failure = dbg_fuzz::checkTarget(target, data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "fuzz_%s: property violated: %s\n", target, failure.c_str());
        std::abort();
    }
    return 0;
}
