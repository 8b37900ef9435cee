// What the benchmark programs share: the trace texts, the origins and the
// references that stand beside the library's own operations.
#ifndef DBG_BENCH_BENCHSUPPORT_H
#define DBG_BENCH_BENCHSUPPORT_H

#include <cstddef>
#include <cstdio>
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

// What the logger hands on: every "%" doubled.
inline std::string escaped(std::string const& text)
{
    std::string result;
    for (char c : text) {
        result += c;
        if (c == '%')
            result += '%';
    }
    return result;
}

// The obvious way to write the dump: snprintf(" %02X") per byte, with the
// same line feed after every 16th byte and blank after every other 8th.
inline std::string snprintfHexDump(unsigned char const* data, unsigned int length)
{
    std::string dump;
    dump.reserve(3 * std::size_t(length) + length / 8);
    char group[4];
    for (unsigned int i = 1; i <= length; ++i) {
        std::snprintf(group, sizeof group, " %02X", data[i - 1]);
        dump += group;
        if (i % 16 == 0)
            dump += '\n';
        else if (i % 8 == 0)
            dump += ' ';
    }
    return dump;
}

}  // namespace bench

#endif
