// Counting replacements of the global allocation functions. Benchmarks run
// on one thread, so plain globals are enough.
#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace bench {

bool countingAllocations = false;
std::uint64_t allocationCount = 0;
std::uint64_t allocatedBytes = 0;

}  // namespace bench

namespace {

void* allocate(std::size_t size)
{
    if (bench::countingAllocations) {
        ++bench::allocationCount;
        bench::allocatedBytes += size;
    }
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t alignment)
{
    if (bench::countingAllocations) {
        ++bench::allocationCount;
        bench::allocatedBytes += size;
    }
    std::size_t const align = static_cast<std::size_t>(alignment);
    std::size_t const rounded = (size + align - 1) / align * align;
    if (void* memory = std::aligned_alloc(align, rounded ? rounded : align))
        return memory;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, std::nothrow_t const& tag) noexcept { return operator new(size, tag); }
void* operator new(std::size_t size, std::align_val_t alignment) { return allocateAligned(size, alignment); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return allocateAligned(size, alignment); }

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::nothrow_t const&) noexcept { std::free(memory); }
void operator delete[](void* memory, std::nothrow_t const&) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
