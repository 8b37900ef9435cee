// Captures std::cout as CoutCapture does, in the state another module may
// have left it: a width and a fill character set at the start and again
// after every flush (the first formatted insertion of each flushed piece is
// padded, an unformatted write is not), and format flags (hexadecimal, say)
// set at the start. At the end the fill and the flags are put back and the
// width cleared.
#ifndef DBG_PADDED_COUT_CAPTURE_H
#define DBG_PADDED_COUT_CAPTURE_H

#include <cstddef>
#include <ios>
#include <string>

#include "CoutCapture.h"

// std::cout's flags as a module may leave them: the default, and
// hexadecimal with a base prefix in capitals.
constexpr std::ios::fmtflags moduleDecimal = std::ios::dec | std::ios::skipws;
constexpr std::ios::fmtflags moduleHexadecimal = std::ios::hex | std::ios::showbase | std::ios::uppercase;

class PaddedCoutCapture : public CoutCapture {
public:
    PaddedCoutCapture(std::streamsize width, char fill, std::ios::fmtflags flags = moduleDecimal);
    ~PaddedCoutCapture() override;

protected:
    int sync() override;

private:
    std::streamsize m_width;
    char m_previousFill;
    std::ios::fmtflags m_previousFlags;
};

// text as a formatted insertion pads it to width with fill, on the left.
std::string paddedText(std::string const& text, std::size_t width, char fill);

#endif
