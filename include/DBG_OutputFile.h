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
    ~DBG_OutputFile() override;
    operator std::string const() const override;  // "file " + name
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

private:
    std::ofstream m_file;
    std::string m_name;
};

#endif
