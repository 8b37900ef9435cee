#include "DBG_Log.h"

#include <cstring>
#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"

namespace {

// Every "%" becomes "%%": sinks downstream may treat the text as a format.
// The escaped text goes into a buffer of the calling thread, kept from one
// trace to the next, so that only the first traces of a thread allocate.
// Loggers take no lock, so the buffer is the thread's own; it is in use only
// while the manager's insertion runs, and no sink traces from there.
// `sign` is the text's first "%".
std::string const& escapePercent(std::string const& text, char const* sign)
{
    thread_local std::string escaped;
    escaped.clear();
    char const* start = text.data();
    char const* const end = start + text.size();
    while (sign) {
        escaped.append(start, std::size_t(sign + 1 - start));
        escaped += '%';
        start = sign + 1;
        sign = static_cast<char const*>(std::memchr(start, '%', std::size_t(end - start)));
    }
    escaped.append(start, std::size_t(end - start));
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
