// Stands in for std::cout's buffer while it lives and keeps what is written,
// in pieces, one per flush: every std::flush or std::endl closes a piece. So
// a test sees both the whole text and what was on its way to the terminal
// at a given moment.
#ifndef DBG_COUT_CAPTURE_H
#define DBG_COUT_CAPTURE_H

#include <streambuf>
#include <string>
#include <vector>

class CoutCapture : public std::streambuf {
public:
    CoutCapture();
    ~CoutCapture() override;
    CoutCapture(CoutCapture const&) = delete;
    CoutCapture& operator=(CoutCapture const&) = delete;

    // Everything written, flushed or not.
    std::string text() const;
    std::vector<std::string> const& flushed() const { return m_flushed; }
    std::string const& unflushed() const { return m_unflushed; }

protected:
    // No put area: every character comes here at once.
    int_type overflow(int_type character) override;
    std::streamsize xsputn(char const* text, std::streamsize count) override;
    int sync() override;

private:
    std::streambuf* m_previous;
    std::vector<std::string> m_flushed;
    std::string m_unflushed;
};

#endif
