#include "ReferenceModels.h"

#include <cstdio>

std::string percentDoubled(std::string const& text)
{
    std::string result;
    for (char c : text) {
        result += c;
        if (c == '%')
            result += '%';
    }
    return result;
}

std::string hexDumpModel(unsigned char const* data, std::size_t length)
{
    std::string dump;
    dump.reserve(3 * length + length / 8);
    char group[4];
    for (std::size_t i = 1; i <= length; ++i) {
        std::snprintf(group, sizeof group, " %02X", unsigned(data[i - 1]));
        dump += group;
        if (i % 16 == 0)
            dump += '\n';
        else if (i % 8 == 0)
            dump += ' ';
    }
    return dump;
}
