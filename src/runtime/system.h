// The system calls that the rest of the runtime needs, without their headers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kel::system {

// To standard error in one piece as far as the system allows; failures have nobody to hear them.
void write_error(const char *bytes, std::size_t count) noexcept;

std::uint64_t random_bits() noexcept;

// Whether the locale of this thread encodes its texts in UTF-8.
bool locale_is_utf8() noexcept;

// The tables behind std::toupper and std::tolower: what each byte is in the locale of this thread. They hold
// until that changes.
const std::int32_t *upper_case() noexcept;
const std::int32_t *lower_case() noexcept;

}  // namespace kel::system
