// Output manager: it names the value itself, as the console does, and hands
// the current sink plain text.
#include "DBG_OutManager.h"

#include "DBG_Names.h"
#include "DBG_Output.h"

using namespace dbg_names;

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Codec value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Direction value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Sin value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Ulaw value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_HangUpSource value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Cause value)
{
    *pOutput << std::string(causeName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Address_Plan value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Address_Type value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}

DBG_OutManager& DBG_OutManager::operator<<(VCOM_Address_Presentation value)
{
    *pOutput << std::string(liveName(value));
    return *this;
}
