// Counts calls of the global operator new made while counting is on, and
// the bytes they ask for. The
// program that links AllocationCounter.cpp replaces operator new and delete,
// so allocations inside libdbg.so and libstdc++ are counted as well.
#ifndef DBG_BENCH_ALLOCATIONCOUNTER_H
#define DBG_BENCH_ALLOCATIONCOUNTER_H

#include <cstdint>

namespace bench {

extern bool countingAllocations;
extern std::uint64_t allocationCount;
extern std::uint64_t allocatedBytes;

// Counts from construction until the end of the loop; pause() and resume()
// leave out the work a benchmark does with its clock stopped.
class AllocationScope {
public:
    AllocationScope() : m_start(allocationCount), m_startBytes(allocatedBytes) { countingAllocations = true; }
    ~AllocationScope() { countingAllocations = false; }
    void pause() { countingAllocations = false; }
    void resume() { countingAllocations = true; }
    double perOperation(std::int64_t operations) const
    {
        return operations > 0 ? double(allocationCount - m_start) / double(operations) : 0.0;
    }
    std::uint64_t count() const { return allocationCount - m_start; }
    std::uint64_t bytes() const { return allocatedBytes - m_startBytes; }

private:
    std::uint64_t m_start;
    std::uint64_t m_startBytes;
};

}  // namespace bench

#endif
