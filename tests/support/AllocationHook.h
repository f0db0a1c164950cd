#ifndef ALLOCATIONHOOK_H
#define ALLOCATIONHOOK_H

// The global allocation functions of a test binary that watches its allocations (counts them, bounds
// them, or makes the Nth one fail). They replace the standard ones, so exactly one source file of such a
// binary includes this header.

#include <cstddef>
#include <cstdlib>
#include <new>

/// Defined by the file that includes this header: called with the size of every global allocation before
/// it is made; answering false makes that allocation throw std::bad_alloc.
bool OnAllocate(std::size_t size);

// The replacements pair malloc with free; inlined into a caller, g++ would take them for a mismatch.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    if (!OnAllocate(size))
        throw std::bad_alloc();
    if (void* block = std::malloc(size ? size : 1))
        return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
#pragma GCC diagnostic pop

#endif
