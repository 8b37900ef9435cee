// Output manager: it names the value itself, as the console does, and hands
// the current sink plain text through its own (locked) text insertion.
#include "DBG_OutManager.h"

#include "DBG_Names.h"

using namespace dbg_names;

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Codec value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Direction value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Sin value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Ulaw value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_HangUpSource value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Cause value)
{
    return *this << std::string(causeName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Address_Plan value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Address_Type value)
{
    return *this << std::string(liveName(value));
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Address_Presentation value)
{
    return *this << std::string(liveName(value));
}
