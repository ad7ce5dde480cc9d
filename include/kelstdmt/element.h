// How a container gives its elements new values. Most are assigned; but an xany that holds an object is never
// assigned again, so what it held is moved out first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>

class xany;

namespace kel::detail {

template <class T>
inline constexpr bool empties_before_assignment = false;
template <>
inline constexpr bool empties_before_assignment<xany> = true;

// The value may be the element itself, and nothing has changed when copying it throws.
template <class T, class Value>
void replace_element(T &element, Value &&value) {
    if constexpr (empties_before_assignment<T>) {
        T fresh(std::forward<Value>(value));
        [[maybe_unused]] T old(std::move(element));
        element = std::move(fresh);
    } else {
        element = std::forward<Value>(value);
    }
}

// n elements; the ranges may overlap.
template <class T>
void copy_elements(const T *from, T *to, std::size_t n) {
    const bool forward = to <= from || from + n <= to;
    if constexpr (empties_before_assignment<T>) {
        for (std::size_t i = 0; i < n; ++i)
            replace_element(to[forward ? i : n - 1 - i], from[forward ? i : n - 1 - i]);
    } else if (forward) {
        std::copy_n(from, n, to);
    } else {
        std::copy_backward(from, from + n, to + n);
    }
}

// The same from elements that are given up.
template <class T>
void move_elements(T *from, T *to, std::size_t n) {
    const bool forward = to <= from || from + n <= to;
    if constexpr (empties_before_assignment<T>) {
        for (std::size_t i = 0; i < n; ++i)
            replace_element(to[forward ? i : n - 1 - i], std::move(from[forward ? i : n - 1 - i]));
    } else if (forward) {
        std::move(from, from + n, to);
    } else {
        std::move_backward(from, from + n, to + n);
    }
}

}  // namespace kel::detail
