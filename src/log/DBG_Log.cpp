#include "DBG_Log.h"

#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"

namespace {

// Every "%" becomes "%%": sinks downstream may treat the text as a format.
std::string escapePercent(std::string const& text)
{
    std::string escaped(text);
    std::string::size_type position = 0;
    while ((position = escaped.find('%', position)) != std::string::npos) {
        escaped.replace(position, 1, "%%");
        position += 2;
    }
    return escaped;
}

}  // namespace

DBG_Log::DBG_Log() : m_out(nullptr), m_imcValue(nullptr), m_imcFallback(-1)
{
    try {
        m_imcValue = &requireImcManager(255).traceLevel;
    } catch (std::runtime_error const&) {
        m_imcValue = &m_imcFallback;
    }
    m_out = DBG_OutManager::instance();
}

DBG_Log::~DBG_Log() = default;

void DBG_Log::trace(std::string const& text, std::string const& origin, int line) const
{
    *m_out << escapePercent(text);
    m_out->flush(false, origin, line);
}

void DBG_Log::error(std::string const& text, std::string const& detail,
                    std::string const& origin, int line) const
{
    *m_out << escapePercent(text) << "(" << detail << ")";
    m_out->flush(true, origin, line);
}

std::string DBG_Log::date() const
{
    std::time_t const now = std::time(nullptr);
    return std::ctime(&now);
}
