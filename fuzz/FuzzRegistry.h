// The fuzz targets' property checks, found by name. Each fuzz_<name>.cpp
// registers its one check; a libFuzzer program links its own target's file,
// the corpus replay test (tests/test_fuzz_corpus.cpp) links them all. The
// names are listed once, in fuzz/targets.txt.
#ifndef DBG_FUZZ_REGISTRY_H
#define DBG_FUZZ_REGISTRY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace dbg_fuzz {

// Takes the raw input bytes; returns an empty string when the library
// behaved as the target's model says, or a description of the first
// difference.
using Check = std::string (*)(std::uint8_t const* data, std::size_t size);

// Registers a check at static initialisation: one object per target file.
struct Registration {
    Registration(char const* target, Check check);
};

// The registered names, sorted.
std::vector<std::string> registeredTargets();

// Runs the named target's check.
std::string check(std::string const& target, std::uint8_t const* data, std::size_t size);

}  // namespace dbg_fuzz

#endif
