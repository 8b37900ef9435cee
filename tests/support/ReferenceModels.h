// Plain models of what the library computes, written the obvious way, for
// the tests, the fuzz targets and the benchmarks to compare against.
#ifndef DBG_REFERENCE_MODELS_H
#define DBG_REFERENCE_MODELS_H

#include <cstddef>
#include <string>
#include <vector>

// What the logger hands on: every "%" doubled, nothing else changed.
std::string percentDoubled(std::string const& text);

// The hexadecimal dump: " %02X" per byte, a line feed after every 16th byte
// and one more blank after every other 8th.
std::string hexDumpModel(unsigned char const* data, std::size_t length);

// The configuration request as the manager must receive it: 2060 bytes,
// zero but for the identifier byte at offset 2 and the code 600 at offset 8,
// in this processor's byte order.
std::vector<unsigned char> configurationRequestModel(unsigned char identifier);

#endif
