// One finished trace taken out of an IMC sink for the IMC manager. Taking
// it writes the NUL that ends it and rewinds the buffer; handing it over
// needs nothing of the sink, so the output manager does that with its lock
// released (the IMC manager may deliver a command that switches the
// output, on this thread or on another). Should the hand-over fail, putBack
// leaves the buffer as a failed flush would: the text kept for the next
// flush, with its NUL once the IMC manager had been found.
#ifndef DBG_IMC_TRACE_H
#define DBG_IMC_TRACE_H

#include <ios>
#include <string>

class DBG_OutputImc;

namespace dbg_output {

class ImcTrace {
public:
    explicit ImcTrace(DBG_OutputImc& sink);
    void handOver(bool isError, std::string const& origin, int line);
    // Nothing was written into the sink since the trace was taken.
    bool untouched(DBG_OutputImc& sink) const;
    void putBack(DBG_OutputImc& sink) const;

private:
    std::string m_text;
    std::ios::iostate m_state;  // the buffer's state before the trace was taken
    std::streamoff m_end;       // where the trace's own text ends: its NUL
    bool m_managerFound;
};

}  // namespace dbg_output

#endif
