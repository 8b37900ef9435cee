#include "DBG_OutputImc.h"

#include <locale>

#include "DBG_ImcTrace.h"

// Numbers go out in plain decimal, whatever locale a module made global.
DBG_OutputImc::DBG_OutputImc() : m_buffer(std::ios::out)
{
    m_buffer.imbue(std::locale::classic());
}

DBG_OutputImc::~DBG_OutputImc() = default;

DBG_OutputImc::operator std::string const() const
{
    return "IMC";
}

// A plain write of the bytes: nothing ever sets a width on m_buffer.
DBG_Output& DBG_OutputImc::operator<<(std::string const& text)
{
    m_buffer.write(text.data(), static_cast<std::streamsize>(text.size()));
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(int number)
{
    m_buffer << number;
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(unsigned char character)
{
    m_buffer << character;
    return *this;
}

void DBG_OutputImc::flush(bool isError, std::string origin, int line)
{
    dbg_output::ImcTrace trace(*this);
    try {
        trace.handOver(isError, origin, line);
    } catch (...) {
        trace.putBack(*this);
        throw;
    }
}
