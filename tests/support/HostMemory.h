// Watching a host program's memory from outside while hostile input flows
// in: its resident size, and distinct words to feed it.
#ifndef DBG_HOST_MEMORY_H
#define DBG_HOST_MEMORY_H

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>

// VmRSS of /proc/<pid>/status in KiB; -1 when it cannot be read.
inline long residentKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, 6, "VmRSS:") == 0)
            return std::stol(line.substr(6));
    }
    return -1;
}

// For a host whose resident memory is measured: under AddressSanitizer its
// quarantine would otherwise keep freed blocks resident.
char const unquarantinedAllocator[] = "ASAN_OPTIONS=quarantine_size_mb=0";

// How many distinct words a test feeds a host: 10,000, fewer under
// emulation (said in the output).
inline int hostileWordCount()
{
#if defined(__powerpc__)
    std::printf("[ NOTE     ] 2000 words instead of 10000 under emulation (qemu-ppc is about 15 times slower)\n");
    return 2000;
#else
    return 10000;
#endif
}

// `length` bytes that differ from every other number's word in their first
// bytes, and are no command key.
inline std::string distinctWord(int number, std::size_t length)
{
    std::string word = "word" + std::to_string(number) + "-";
    word.resize(length, 'x');
    return word;
}

#endif
