#include "PaddedCoutCapture.h"

#include <iostream>

PaddedCoutCapture::PaddedCoutCapture(std::streamsize width, char fill, std::ios::fmtflags flags)
    : m_width(width), m_previousFill(std::cout.fill(fill)), m_previousFlags(std::cout.flags(flags))
{
    std::cout.width(m_width);
}

PaddedCoutCapture::~PaddedCoutCapture()
{
    std::cout.flags(m_previousFlags);
    std::cout.fill(m_previousFill);
    std::cout.width(0);
}

int PaddedCoutCapture::sync()
{
    int const result = CoutCapture::sync();
    std::cout.width(m_width);
    return result;
}

std::string paddedText(std::string const& text, std::size_t width, char fill)
{
    return text.size() >= width ? text : std::string(width - text.size(), fill) + text;
}
