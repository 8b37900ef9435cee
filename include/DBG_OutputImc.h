// Sink that gathers one trace in a buffer and hands it, at flush, to the IMC
// manager's trace or error operation. The buffer is rewound, never emptied:
// a short trace is followed, behind its NUL, by the tail of longer ones.
#ifndef DBG_OUTPUTIMC_H
#define DBG_OUTPUTIMC_H

#include <sstream>
#include <string>

#include "DBG_Output.h"

namespace dbg_output {
class ImcTrace;
}

class DBG_EXPORT DBG_OutputImc : public DBG_Output {
public:
    DBG_OutputImc();
    virtual ~DBG_OutputImc();
    virtual operator std::string const() const;  // "IMC"
    virtual DBG_Output& operator<<(std::string const& text);
    virtual DBG_Output& operator<<(int number);
    virtual DBG_Output& operator<<(unsigned char character);
    virtual DBG_Output& operator<<(VCOM_Codec value);
    virtual DBG_Output& operator<<(VCOM_Direction value);
    virtual DBG_Output& operator<<(VCOM_Sin value);
    virtual DBG_Output& operator<<(VCOM_Ulaw value);
    virtual DBG_Output& operator<<(VCOM_HangUpSource value);
    virtual DBG_Output& operator<<(VCOM_Cause value);
    virtual DBG_Output& operator<<(VCOM_OpeTyp value);
    virtual DBG_Output& operator<<(VCOM_Reason value);
    virtual DBG_Output& operator<<(VCOM_Address_Plan value);
    virtual DBG_Output& operator<<(VCOM_Address_Type value);
    virtual DBG_Output& operator<<(VCOM_Address_Presentation value);
    virtual DBG_Output& operator<<(VCOM_UAgent value);
    virtual void flush(bool isError, std::string origin, int line);

private:
    friend class dbg_output::ImcTrace;  // takes a finished trace out of the buffer
    std::ostringstream m_buffer;
};

#endif
