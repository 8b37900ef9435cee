#include "ReferenceModels.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

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

std::vector<unsigned char> configurationRequestModel(unsigned char identifier)
{
    std::vector<unsigned char> bytes(2060, 0);
    bytes[2] = identifier;
    std::uint32_t const code = 600;
    std::memcpy(&bytes[8], &code, sizeof code);
    return bytes;
}
