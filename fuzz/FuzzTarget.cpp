// The libFuzzer entry of one target; DBG_FUZZ_TARGET names it and
// fuzz/CMakeLists.txt links its fuzz_<name>.cpp. A violated property is
// reported on standard error and aborts, so libFuzzer keeps the input as a
// crash artifact.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "FuzzRegistry.h"

#ifndef DBG_FUZZ_TARGET
#error "DBG_FUZZ_TARGET must name the target"
#endif

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const failure = dbg_fuzz::check(DBG_FUZZ_TARGET, data, size);
    if (!failure.empty()) {
        std::fprintf(stderr, "fuzz_%s: property violated: %s\n", DBG_FUZZ_TARGET, failure.c_str());
        std::abort();
    }
    return 0;
}
