#include "DBG_Log.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"

namespace {

// Every "%" becomes "%%" (sinks downstream may treat the text as a format),
// in a copy sized once. `sign` is the text's first "%".
std::string escapePercent(std::string const& text, char const* sign)
{
    char const* in = text.data();
    char const* const end = in + text.size();
    std::string escaped;
    escaped.reserve(text.size() + std::size_t(std::count(sign, end, '%')));
    while (sign) {
        escaped.append(in, std::size_t(sign + 1 - in));
        escaped += '%';
        in = sign + 1;
        sign = static_cast<char const*>(std::memchr(in, '%', std::size_t(end - in)));
    }
    escaped.append(in, std::size_t(end - in));
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
