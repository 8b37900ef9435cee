// Sink that writes traces into a named file, truncated when the sink is
// made. Bytes reach the file when the stream's buffer fills or the sink is
// destroyed; a file that cannot be opened silently discards everything.
#ifndef DBG_OUTPUTFILE_H
#define DBG_OUTPUTFILE_H

#include <fstream>
#include <string>

#include "DBG_Output.h"

class DBG_EXPORT DBG_OutputFile : public DBG_Output {
public:
    explicit DBG_OutputFile(std::string name);
    virtual ~DBG_OutputFile();
    virtual operator std::string const() const;  // "file " + name
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

private:
    std::ofstream m_file;
    std::string m_name;
};

#endif
