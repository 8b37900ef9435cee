#include "CountMarkers.h"

#ifdef DBG_COUNT_WITH_QEMU_PLUGIN

// The plugin knows these two by their symbols: they must stay out of line,
// and calls to them must not be dropped.
extern "C" __attribute__((noinline)) void dbg_count_begin() { asm volatile("" ::: "memory"); }
extern "C" __attribute__((noinline)) void dbg_count_end() { asm volatile("" ::: "memory"); }

namespace bench {

void startCount() { dbg_count_begin(); }
void stopCount(char const*) { dbg_count_end(); }

}  // namespace bench

#else

#include <valgrind/callgrind.h>

namespace bench {

void startCount() { CALLGRIND_TOGGLE_COLLECT; }

void stopCount(char const* name)
{
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name);
}

}  // namespace bench

#endif
