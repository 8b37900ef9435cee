#include "DBG_OutputFile.h"

DBG_OutputFile::DBG_OutputFile(std::string name)
    : m_file(name, std::ios::out | std::ios::trunc), m_name(std::move(name))
{
}

DBG_OutputFile::~DBG_OutputFile() = default;

DBG_OutputFile::operator std::string const() const
{
    return "file " + m_name;
}

DBG_Output& DBG_OutputFile::operator<<(std::string const& text)
{
    m_file << text;
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(int number)
{
    m_file << number;
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(unsigned char character)
{
    m_file << character;
    return *this;
}
