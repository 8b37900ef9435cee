// What the library itself does on the output manager under the manager's
// lock, beyond its public operations: a trace written as one piece, and
// the current sink's name read while no switch runs.
#ifndef DBG_WHOLE_TRACE_H
#define DBG_WHOLE_TRACE_H

#include <initializer_list>
#include <string>

class DBG_OutManager;

namespace dbg_output {

// The texts in order, then the flush: no other thread's insertion, flush
// or switch falls in between.
void writeTrace(DBG_OutManager& manager, std::initializer_list<std::string const*> texts,
                bool isError, std::string const& origin, int line);
std::string outputName(DBG_OutManager const& manager);

}  // namespace dbg_output

#endif
