// Marks the stretches of the counting drivers whose instructions are
// counted: on the host under Callgrind (run with --collect-atstart=no), each
// stretch dumped under its name; for the board under qemu-ppc with the
// counting plugin (bench/qemu/count_plugin.c), which writes one count per
// stretch, in order: the drivers list the names beside it.
#ifndef DBG_BENCH_COUNTMARKERS_H
#define DBG_BENCH_COUNTMARKERS_H

namespace bench {

void startCount();
void stopCount(char const* name);

}  // namespace bench

#endif
