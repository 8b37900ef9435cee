// A sink that records every call made on it, one event per call, for
// checking what the output manager and the logger forward:
// "text:<bytes>", "int:<n>", "char:<c>", "flush:<0|1>:<origin>:<line>",
// and "destroyed" when it goes.
#ifndef DBG_RECORDING_SINK_H
#define DBG_RECORDING_SINK_H

#include <string>
#include <vector>

#include "DBG_Output.h"

class RecordingSink : public DBG_Output {
public:
    explicit RecordingSink(std::vector<std::string>* events) : m_events(events) {}
    ~RecordingSink() override;
    operator std::string const() const override { return "recording"; }
    DBG_Output& operator<<(std::string const& text) override;
    DBG_Output& operator<<(int number) override;
    DBG_Output& operator<<(unsigned char character) override;
    void flush(bool isError, std::string origin, int line) override;

private:
    std::vector<std::string>* m_events;
};

#endif
