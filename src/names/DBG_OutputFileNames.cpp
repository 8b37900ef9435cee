// File sink: names checked against the built-in table sizes, written to the file.
#include "DBG_OutputFile.h"

#include "DBG_Names.h"

using namespace dbg_names;

DBG_Output& DBG_OutputFile::operator<<(VCOM_Codec value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Direction value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Sin value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Ulaw value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_HangUpSource value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Cause value)
{
    m_file << causeName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_OpeTyp value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Reason value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Address_Plan value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Address_Type value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_Address_Presentation value)
{
    m_file << fixedName(value);
    return *this;
}

DBG_Output& DBG_OutputFile::operator<<(VCOM_UAgent value)
{
    m_file << fixedName(value);
    return *this;
}
