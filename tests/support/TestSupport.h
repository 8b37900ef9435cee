// Shared helpers of the test programs.
#ifndef DBG_TEST_SUPPORT_H
#define DBG_TEST_SUPPORT_H

#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "DBG_Output.h"

// Collects everything written to std::cout while it lives.
class CoutCapture {
public:
    CoutCapture();
    ~CoutCapture();
    std::string text() const;

private:
    std::ostringstream m_captured;
    std::streambuf* m_previous;
};

// A private directory below $TMPDIR (or /tmp), removed with all it holds.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    std::string const& path() const { return m_path; }
    std::string file(std::string const& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// The whole content of a file, byte for byte; fails the test if unreadable.
std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& content);
bool fileExists(std::string const& path);

// A sink that records every call made on it, one event per call, for
// checking what the output manager and the logger forward:
// "text:<bytes>", "int:<n>", "char:<c>", "flush:<0|1>:<origin>:<line>".
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

// Starts the IMC stand-in with call recording on and traces discarded; at
// the end destroys the output manager and stops the stand-in.
class ImcSession {
public:
    explicit ImcSession(unsigned char identifier = 0x5A);
    ~ImcSession();
};

#endif
