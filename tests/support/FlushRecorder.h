// Stands in for std::cout's buffer while it lives and records the text in
// pieces, one per flush: every std::flush or std::endl closes a piece. Shows
// what was on its way to the terminal at a given moment, not merely what was
// written in the end.
#ifndef DBG_FLUSH_RECORDER_H
#define DBG_FLUSH_RECORDER_H

#include <iostream>
#include <streambuf>
#include <string>
#include <vector>

class FlushRecorder : public std::streambuf {
public:
    FlushRecorder() : m_previous(std::cout.rdbuf(this)) {}
    ~FlushRecorder() override { std::cout.rdbuf(m_previous); }
    FlushRecorder(FlushRecorder const&) = delete;
    FlushRecorder& operator=(FlushRecorder const&) = delete;

    std::vector<std::string> const& flushed() const { return m_flushed; }
    std::string const& unflushed() const { return m_unflushed; }

protected:
    // No put area: every character comes here at once.
    int_type overflow(int_type character) override
    {
        if (!traits_type::eq_int_type(character, traits_type::eof()))
            m_unflushed += traits_type::to_char_type(character);
        return traits_type::not_eof(character);
    }

    std::streamsize xsputn(char const* text, std::streamsize count) override
    {
        m_unflushed.append(text, std::size_t(count));
        return count;
    }

    int sync() override
    {
        m_flushed.push_back(m_unflushed);
        m_unflushed.clear();
        return 0;
    }

private:
    std::streambuf* m_previous;
    std::vector<std::string> m_flushed;
    std::string m_unflushed;
};

#endif
