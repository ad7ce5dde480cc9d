// Sizes of results; std::bad_alloc for what no memory can hold.
#pragma once

#include <cstddef>
#include <new>

namespace kel::detail {

inline std::size_t add_sizes(std::size_t a, std::size_t b) {
    std::size_t sum;
    if (__builtin_add_overflow(a, b, &sum)) throw std::bad_alloc();
    return sum;
}
inline std::size_t multiply_sizes(std::size_t a, std::size_t b) {
    std::size_t product;
    if (__builtin_mul_overflow(a, b, &product)) throw std::bad_alloc();
    return product;
}

}  // namespace kel::detail
