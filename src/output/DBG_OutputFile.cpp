#include "DBG_OutputFile.h"

#include <locale>

// Numbers go out in plain decimal, whatever locale a module made global.
DBG_OutputFile::DBG_OutputFile(std::string name) : m_file(), m_name(std::move(name))
{
    m_file.imbue(std::locale::classic());
    m_file.open(m_name, std::ios::out | std::ios::trunc);
}

DBG_OutputFile::~DBG_OutputFile() = default;

DBG_OutputFile::operator std::string const() const
{
    return "file " + m_name;
}

// A plain write of the bytes into the stream's buffer. What << and write()
// add has nothing to do on m_file: nothing sets a width on it (padding), it
// has no tie and no unitbuf (the sentry). A failed stream still discards all.
DBG_Output& DBG_OutputFile::operator<<(std::string const& text)
{
    auto const size = static_cast<std::streamsize>(text.size());
    if (m_file.good() && m_file.rdbuf()->sputn(text.data(), size) != size)
        m_file.setstate(std::ios::badbit);
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
