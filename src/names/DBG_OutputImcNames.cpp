// IMC sink: names checked against the built-in table sizes, gathered in the buffer.
#include "DBG_OutputImc.h"

#include "DBG_Names.h"

using namespace dbg_names;

DBG_Output& DBG_OutputImc::operator<<(VCOM_Codec value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Direction value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Sin value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Ulaw value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_HangUpSource value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Cause value)
{
    m_buffer << causeName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_OpeTyp value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Reason value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Address_Plan value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Address_Type value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_Address_Presentation value)
{
    m_buffer << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputImc::operator<<(VCOM_UAgent value)
{
    m_buffer << fixedName(value);
    return *this;
}
