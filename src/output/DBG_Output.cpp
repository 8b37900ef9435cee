#include "DBG_Output.h"

#include <iostream>
#include <stdexcept>

DBG_Output::~DBG_Output() = default;

DBG_Output::operator std::string const() const
{
    return "console";
}

DBG_Output& DBG_Output::operator<<(std::string const& text)
{
    std::cout << text;
    return *this;
}

DBG_Output& DBG_Output::operator<<(int number)
{
    std::cout << number;
    return *this;
}

DBG_Output& DBG_Output::operator<<(unsigned char character)
{
    std::cout << character;
    return *this;
}

void DBG_Output::flush(bool, std::string, int)
{
}

std::string DBG_Output::hexaDump(unsigned char const* data, unsigned int length)
{
    static char const digits[] = "0123456789ABCDEF";
    std::string dump;
    if (length == 0)
        return dump;
    // Counted in 64 bits, where it cannot wrap: a size_t of 32 bits can
    // neither hold every dump nor let one be written past its end.
    unsigned long long const size = 3ULL * length + length / 8;
    if (size > dump.max_size())
        throw std::length_error(std::string("DBG_Output::hexaDump: length too large"));
    dump.resize(std::string::size_type(size));
    char* out = &dump[0];
    for (unsigned int i = 1; i <= length; ++i) {
        unsigned char const byte = data[i - 1];
        *out++ = ' ';
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 0x0F];
        if (i % 16 == 0)
            *out++ = '\n';
        else if (i % 8 == 0)
            *out++ = ' ';
    }
    return dump;
}
