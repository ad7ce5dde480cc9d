// The first occurrence of some bytes among others, without a terminator and without preparation.
#pragma once

#include <string_view>

namespace kel::detail {

// In [at, end); `at` for no bytes at all, null for no occurrence. The work is in proportion to the bytes that
// are passed, whatever they are, as far as the C library's memmem holds that.
const char *find_bytes(const char *at, const char *end, std::string_view wanted) noexcept;

}  // namespace kel::detail
