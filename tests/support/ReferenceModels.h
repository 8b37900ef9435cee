// Plain models of what the library computes, written the obvious way, for
// the tests, the fuzz targets and the benchmarks to compare against.
#ifndef DBG_REFERENCE_MODELS_H
#define DBG_REFERENCE_MODELS_H

#include <cstddef>
#include <string>

// What the logger hands on: every "%" doubled, nothing else changed.
std::string percentDoubled(std::string const& text);

// The hexadecimal dump: " %02X" per byte, a line feed after every 16th byte
// and one more blank after every other 8th.
std::string hexDumpModel(unsigned char const* data, std::size_t length);

#endif
