// Console sink: names checked against the bound members, written to std::cout.
#include "DBG_Output.h"

#include <iostream>

#include "DBG_Names.h"

using namespace dbg_names;

DBG_Output& DBG_Output::operator<<(VCOM_Codec value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Direction value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Sin value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Ulaw value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_HangUpSource value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Cause value)
{
    std::cout << causeName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_OpeTyp value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Reason value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Address_Plan value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Address_Type value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_Address_Presentation value)
{
    std::cout << liveName(value);
    return *this;
}

DBG_Output& DBG_Output::operator<<(VCOM_UAgent value)
{
    std::cout << liveName(value);
    return *this;
}
