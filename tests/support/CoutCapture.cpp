#include "CoutCapture.h"

#include <iostream>

CoutCapture::CoutCapture() : m_previous(std::cout.rdbuf(this))
{
}

CoutCapture::~CoutCapture()
{
    std::cout.rdbuf(m_previous);
}

std::string CoutCapture::text() const
{
    std::string all;
    for (std::string const& piece : m_flushed)
        all += piece;
    return all + m_unflushed;
}

CoutCapture::int_type CoutCapture::overflow(int_type character)
{
    if (!traits_type::eq_int_type(character, traits_type::eof()))
        m_unflushed += traits_type::to_char_type(character);
    return traits_type::not_eof(character);
}

std::streamsize CoutCapture::xsputn(char const* text, std::streamsize count)
{
    m_unflushed.append(text, std::size_t(count));
    return count;
}

int CoutCapture::sync()
{
    m_flushed.push_back(m_unflushed);
    m_unflushed.clear();
    return 0;
}
