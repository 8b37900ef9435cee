#include "DBG_Log.h"

#include <cstring>
#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"

namespace {

// Every "%" becomes "%%": sinks downstream may treat the text as a format.
// The escaped text goes into a buffer of the calling thread, kept from one
// trace to the next, so that only a thread's first traces allocate. Loggers
// take no lock, so the buffer is the thread's own; it is in use only while
// the manager's insertion runs, and no sink traces from there. `sign` is the
// text's first "%".
std::string const& escapePercent(std::string const& text, char const* sign)
{
    // initial-exec: reached without a call into the dynamic loader; a
    // library opened with dlopen takes these few bytes from the static
    // thread-local reserve.
    static thread_local std::string escaped __attribute__((tls_model("initial-exec")));
    char const* in = text.data();
    char const* const end = in + text.size();
    // Room for the worst case (every byte from the first sign on a "%"),
    // cut to the escaped length at the end.
    escaped.clear();
    escaped.append(text.size() + std::size_t(end - sign), '\0');
    char* out = &escaped[0];
#if defined(__x86_64__)
    // Here the C library's memchr and memcpy are vector loops: the
    // stretches between signs go through them.
    while (sign) {
        std::size_t const length = std::size_t(sign + 1 - in);
        std::memcpy(out, in, length);
        out += length;
        *out++ = '%';
        in = sign + 1;
        sign = static_cast<char const*>(std::memchr(in, '%', std::size_t(end - in)));
    }
    std::memcpy(out, in, std::size_t(end - in));
    out += end - in;
#else
    // Elsewhere, the board's 32-bit PowerPC among them, each call of memchr
    // or memcpy costs more than one pass over the bytes.
    std::size_t const before = std::size_t(sign - in);
    std::memcpy(out, in, before);
    out += before;
    for (in = sign; in != end; ++in) {
        char const byte = *in;
        *out++ = byte;
        if (byte == '%')
            *out++ = '%';
    }
#endif
    escaped.erase(std::size_t(out - escaped.data()));
    return escaped;
}

// Most texts hold no "%": they go in as they are, without a copy.
DBG_OutManager& insertEscaped(DBG_OutManager& out, std::string const& text)
{
    char const* const sign = static_cast<char const*>(std::memchr(text.data(), '%', text.size()));
    if (!sign)
        return out << text;
    return out << escapePercent(text, sign);
}

}  // namespace

DBG_Log::DBG_Log() : m_out(nullptr), m_imcValue(nullptr), m_imcFallback(-1)
{
    try {
        m_imcValue = &requireImcManager(imcLibraryModule).traceLevel;
    } catch (std::runtime_error const&) {
        m_imcValue = &m_imcFallback;
    }
    m_out = DBG_OutManager::instance();
}

DBG_Log::~DBG_Log() = default;

void DBG_Log::trace(std::string const& text, std::string const& origin, int line) const
{
    insertEscaped(*m_out, text);
    m_out->flush(false, origin, line);
}

void DBG_Log::error(std::string const& text, std::string const& detail,
                    std::string const& origin, int line) const
{
    // Built once: the parentheses go to the manager as strings.
    static std::string const open("(");
    static std::string const close(")");
    insertEscaped(*m_out, text) << open << detail << close;
    m_out->flush(true, origin, line);
}

std::string DBG_Log::date() const
{
    std::time_t const now = std::time(nullptr);
    return std::ctime(&now);
}
