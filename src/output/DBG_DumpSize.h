// The size of a hexadecimal dump, checked against the largest string the
// caller can make. Counted in 64 bits, where it cannot wrap: a 32-bit size_t
// can neither hold every dump nor let one be written past its end. The host
// runs this check with a 32-bit bound as the board does with its own.
#ifndef DBG_DUMP_SIZE_H
#define DBG_DUMP_SIZE_H

#include <stdexcept>
#include <string>

namespace dbg_output {

// 3 * length + length / 8 characters, or std::length_error past largest.
inline unsigned long long dumpSize(unsigned int length, unsigned long long largest)
{
    unsigned long long const size = 3ULL * length + length / 8;
    if (size > largest)
        throw std::length_error(std::string("DBG_Output::hexaDump: length too large"));
    return size;
}

}  // namespace dbg_output

#endif
