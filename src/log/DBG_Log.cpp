#include "DBG_Log.h"

#include <cstring>
#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"

namespace {

// Set when the calling thread's escape buffer is destroyed: at the thread's
// end, or at exit for the main thread, before the static objects'
// destructors, which may still trace. Plain and never destroyed itself.
thread_local bool escapeBufferGone __attribute__((tls_model("initial-exec"))) = false;

// The thread's buffer for escaped texts, kept from one trace to the next, so
// that only a thread's first traces allocate. Loggers take no lock, so the
// buffer is the thread's own; it is in use only while the manager's
// insertion runs, and no sink traces from there.
struct EscapeBuffer {
    ~EscapeBuffer() { escapeBufferGone = true; }
    std::string text;
};

// Every "%" becomes "%%" (sinks downstream may treat the text as a format),
// written into `escaped`. `sign` is the text's first "%". Inlined in both
// callers: as a call of its own it cost a "%" trace about 20 instructions.
inline __attribute__((always_inline)) std::string const& escapePercent(std::string const& text, char const* sign,
                                                                       std::string& escaped)
{
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
    // Elsewhere, the board's 32-bit PowerPC among them, a call of memchr or
    // memcpy per stretch costs more than the bytes: what comes before the
    // first sign is copied at once, the rest in one pass.
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

// For the traces made once the thread's buffer is gone.
__attribute__((cold, noinline)) DBG_OutManager& insertEscapedAlone(DBG_OutManager& out, std::string const& text,
                                                                    char const* sign)
{
    std::string escaped;
    return out << escapePercent(text, sign, escaped);
}

// Most texts hold no "%": they go in as they are, without a copy.
DBG_OutManager& insertEscaped(DBG_OutManager& out, std::string const& text)
{
    char const* const sign = static_cast<char const*>(std::memchr(text.data(), '%', text.size()));
    if (!sign)
        return out << text;
    if (escapeBufferGone)
        return insertEscapedAlone(out, text, sign);
    // initial-exec: reached without a call into the dynamic loader; a
    // library opened with dlopen takes these few bytes from the static
    // thread-local reserve.
    static thread_local EscapeBuffer buffer __attribute__((tls_model("initial-exec")));
    return out << escapePercent(text, sign, buffer.text);
}

}  // namespace

DBG_Log::DBG_Log() : m_out(nullptr), m_imcValue(nullptr), m_imcFallback(-1)
{
    try {
        m_imcValue = imcDesignatedValue(requireImcManager(imcLibraryModule));
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
    // Made once and never destroyed: a module may still report an error
    // from its static destructors at exit.
    static std::string const& open = *new std::string("(");
    static std::string const& close = *new std::string(")");
    insertEscaped(*m_out, text) << open << detail << close;
    m_out->flush(true, origin, line);
}

std::string DBG_Log::date() const
{
    std::time_t const now = std::time(nullptr);
    return std::ctime(&now);
}
