#include "DBG_Output.h"

#include <iostream>

#include "DBG_DumpSize.h"

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
    dump.resize(std::string::size_type(dbg_output::dumpSize(length, dump.max_size())));
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
