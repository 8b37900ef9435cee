// Sink that gathers one trace in a buffer and hands it, at flush, to the IMC
// manager's trace or error operation. The buffer is rewound, never emptied:
// a short trace is followed, behind its NUL, by the tail of longer ones.
#ifndef DBG_OUTPUTIMC_H
#define DBG_OUTPUTIMC_H

#include <sstream>
#include <string>

#include "DBG_Output.h"

class DBG_EXPORT DBG_OutputImc : public DBG_Output {
public:
    DBG_OutputImc();
    ~DBG_OutputImc() override;
    operator std::string const() const override;  // "IMC"
    DBG_Output& operator<<(std::string const& text) override;
    DBG_Output& operator<<(int number) override;
    DBG_Output& operator<<(unsigned char character) override;
    DBG_Output& operator<<(VCOM_Codec value) override;
    DBG_Output& operator<<(VCOM_Direction value) override;
    DBG_Output& operator<<(VCOM_Sin value) override;
    DBG_Output& operator<<(VCOM_Ulaw value) override;
    DBG_Output& operator<<(VCOM_HangUpSource value) override;
    DBG_Output& operator<<(VCOM_Cause value) override;
    DBG_Output& operator<<(VCOM_OpeTyp value) override;
    DBG_Output& operator<<(VCOM_Reason value) override;
    DBG_Output& operator<<(VCOM_Address_Plan value) override;
    DBG_Output& operator<<(VCOM_Address_Type value) override;
    DBG_Output& operator<<(VCOM_Address_Presentation value) override;
    DBG_Output& operator<<(VCOM_UAgent value) override;
    void flush(bool isError, std::string origin, int line) override;

private:
    std::ostringstream m_buffer;
};

#endif
