#include "DBG_Log.h"

#include <cstring>
#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"
#include "DBG_WholeTrace.h"

namespace {

// Every "%" becomes "%%" (sinks downstream may treat the text as a format).
// The copy is made once with room for the worst case (every byte from the
// first sign, `sign`, a "%") and cut to the escaped length: one allocation.
std::string escapePercent(std::string const& text, char const* sign)
{
    char const* in = text.data();
    char const* const end = in + text.size();
    std::string escaped(text.size() + std::size_t(end - sign), '\0');
    char* out = &escaped[0];
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
    escaped.erase(std::size_t(out - escaped.data()));
    return escaped;
}

// The text as the sink gets it: most texts hold no "%" and go in as they
// are, without a copy; otherwise escaped into `storage`.
std::string const& escaped(std::string const& text, std::string& storage)
{
    char const* const sign = static_cast<char const*>(std::memchr(text.data(), '%', text.size()));
    if (!sign)
        return text;
    storage = escapePercent(text, sign);
    return storage;
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
    std::string storage;
    dbg_output::writeTrace(*m_out, {&escaped(text, storage)}, false, origin, line);
}

void DBG_Log::error(std::string const& text, std::string const& detail,
                    std::string const& origin, int line) const
{
    // Made once and never destroyed: a module may still report an error
    // from its static destructors at exit.
    static std::string const& open = *new std::string("(");
    static std::string const& close = *new std::string(")");
    std::string storage;
    dbg_output::writeTrace(*m_out, {&escaped(text, storage), &open, &detail, &close}, true, origin, line);
}

std::string DBG_Log::date() const
{
    std::time_t const now = std::time(nullptr);
    return std::ctime(&now);
}
