// Memory that runs out at a chosen allocation. It replaces the operator new of the whole program: for a test
// program of one source file.
#pragma once

#include <cstdlib>
#include <new>

namespace failing_memory {

inline long allocations_left = -1;  // before one fails; -1: none does
inline bool all_after = false;      // whether those behind it fail too
inline bool has_failed = false;

inline bool fails() {
    if (allocations_left < 0) return false;
    if (allocations_left > 0) return --allocations_left, false;
    if (!all_after) allocations_left = -1;
    return has_failed = true;
}

}  // namespace failing_memory

// Not inlined: a compiler that sees through one of them takes the pair for a mismatch.
[[gnu::noinline]] void *operator new(std::size_t bytes) {
    void *block = failing_memory::fails() ? nullptr : std::malloc(bytes);
    if (!block) throw std::bad_alloc();
    return block;
}
[[gnu::noinline]] void operator delete(void *block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept {
    std::free(block);
}
