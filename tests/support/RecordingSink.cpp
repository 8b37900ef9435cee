#include "RecordingSink.h"

RecordingSink::~RecordingSink()
{
    m_events->push_back("destroyed");
}

DBG_Output& RecordingSink::operator<<(std::string const& text)
{
    m_events->push_back("text:" + text);
    return *this;
}

DBG_Output& RecordingSink::operator<<(int number)
{
    m_events->push_back("int:" + std::to_string(number));
    return *this;
}

DBG_Output& RecordingSink::operator<<(unsigned char character)
{
    m_events->push_back(std::string("char:") + char(character));
    return *this;
}

void RecordingSink::flush(bool isError, std::string origin, int line)
{
    m_events->push_back("flush:" + std::to_string(isError) + ":" + origin + ":" + std::to_string(line));
}
