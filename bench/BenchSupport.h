// What the benchmark programs share: the trace texts, the origins and the
// references that stand beside the library's own operations.
#ifndef DBG_BENCH_BENCHSUPPORT_H
#define DBG_BENCH_BENCHSUPPORT_H

#include <dlfcn.h>

#include <cstddef>
#include <string>

namespace bench {

// A realistic short module name, and a long one that does not fit in a
// std::string's own small buffer.
inline std::string const shortOrigin = "callctl.cpp";
inline std::string const longOrigin = "src/callcontrol/CallControl.cpp";
inline std::string const errorDetail = "ENOENT";
constexpr int traceLine = 412;

// A trace text of exactly `size` bytes ending in a line feed, as modules
// write them. With `percent`, max(2, size / 16) of its bytes are "%",
// spread over the text.
inline std::string message(std::size_t size, bool percent)
{
    static char const words[] = "INVITE sip:+33123456789@trunk.example call 0x2a state ALERTING ";
    std::string text;
    text.reserve(size);
    for (std::size_t i = 0; i + 1 < size; ++i)
        text += words[i % (sizeof words - 1)];
    text += '\n';
    if (percent) {
        std::size_t const count = size / 16 > 2 ? size / 16 : 2;
        for (std::size_t k = 0; k < count; ++k)
            text[k * (size - 1) / count] = '%';
    }
    return text;
}

// True when no library loaded from `path` is left in the process.
inline bool unloaded(char const* path)
{
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
    if (!handle)
        return true;
    dlclose(handle);
    return false;
}

}  // namespace bench

#endif
