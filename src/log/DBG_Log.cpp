#include "DBG_Log.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "DBG_ImcAccess.h"
#include "DBG_OutManager.h"

namespace {

// Every "%" becomes "%%": sinks downstream may treat the text as a format.
// Built in one pass into a string sized once.
std::string escapePercent(std::string const& text)
{
    std::string escaped;
    escaped.reserve(text.size() + std::count(text.begin(), text.end(), '%'));
    std::string::size_type start = 0;
    std::string::size_type position;
    while ((position = text.find('%', start)) != std::string::npos) {
        escaped.append(text, start, position + 1 - start);
        escaped += '%';
        start = position + 1;
    }
    escaped.append(text, start, std::string::npos);
    return escaped;
}

// Most texts hold no "%": they go in as they are, without a copy.
DBG_OutManager& insertEscaped(DBG_OutManager& out, std::string const& text)
{
    if (!std::memchr(text.data(), '%', text.size()))
        return out << text;
    return out << escapePercent(text);
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
    insertEscaped(*m_out, text) << "(" << detail << ")";
    m_out->flush(true, origin, line);
}

std::string DBG_Log::date() const
{
    std::time_t const now = std::time(nullptr);
    return std::ctime(&now);
}
