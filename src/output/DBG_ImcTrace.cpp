#include "DBG_ImcTrace.h"

#include "DBG_ImcAccess.h"
#include "DBG_OutputImc.h"

namespace dbg_output {

// The buffer is rewound, not emptied: the NUL marks where this trace ends
// within what earlier, longer traces left behind it.
ImcTrace::ImcTrace(DBG_OutputImc& sink)
    : m_state(sink.m_buffer.rdstate()), m_end(sink.m_buffer.tellp()), m_managerFound(false)
{
    sink.m_buffer << '\0';
    m_text = sink.m_buffer.str();
    sink.m_buffer.clear();
    sink.m_buffer.seekp(0);
}

// Asked anew at every trace: without a manager the text goes back into the
// buffer and out with the next successful flush.
void ImcTrace::handOver(bool isError, std::string const& origin, int line)
{
    IMC_Manager& manager = requireImcManager(imcLibraryModule);
    m_managerFound = true;
    if (isError)
        manager.error(m_text, origin, line);
    else
        manager.trace(m_text, origin, line);
}

bool ImcTrace::untouched(DBG_OutputImc& sink) const
{
    return sink.m_buffer.tellp() == std::streampos(0);
}

// The bytes are still in the buffer: only the write position goes back,
// to the NUL (overwritten by what comes next, as an unwritten NUL would
// be) or past it. A failed buffer stays failed, discarding all, as it was.
void ImcTrace::putBack(DBG_OutputImc& sink) const
{
    if (m_state == std::ios::goodbit)
        sink.m_buffer.seekp(m_managerFound ? m_end + 1 : m_end);
    sink.m_buffer.setstate(m_state);
}

}  // namespace dbg_output
