// Captures std::cout as CoutCapture does, with a width and a fill character
// set on std::cout at the start and again after every flush: the first
// formatted insertion of each flushed piece is padded, an unformatted write
// is not. At the end the fill is put back and the width cleared.
#ifndef DBG_PADDED_COUT_CAPTURE_H
#define DBG_PADDED_COUT_CAPTURE_H

#include <cstddef>
#include <ios>
#include <string>

#include "CoutCapture.h"

class PaddedCoutCapture : public CoutCapture {
public:
    PaddedCoutCapture(std::streamsize width, char fill);
    ~PaddedCoutCapture() override;

protected:
    int sync() override;

private:
    std::streamsize m_width;
    char m_previousFill;
};

// text as a formatted insertion pads it to width with fill, on the left.
std::string paddedText(std::string const& text, std::size_t width, char fill);

#endif
