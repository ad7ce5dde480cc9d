// The basic scalar types and their reserved values.
//
// Every scalar type sets two of its values aside: the uninit marker (never set) and the nil marker
// (explicitly empty). The markers cross every interface of the system in place of flags, so they are
// exact to the bit; reals are told apart by their bits, never by a floating comparison.
#pragma once

#include <bit>
#include <cstdint>

using xint = int;
using xbool = unsigned char;  // 0 false, 1 true
using xreal = double;
using xrstring = const char *;  // a read-only view of a text; 1 is the null string, 2 is unset

class xobject;
class brtti;

// A foreign value: where it lies and what describes it. Owns neither.
struct xextern {
    void *value;
    brtti *rtti;
};

namespace kel {

inline constexpr xint uninit_int = std::bit_cast<xint>(0x80000001U);
inline constexpr xint nil_int = std::bit_cast<xint>(0x80000000U);
inline constexpr xbool uninit_bool = 0x81;
inline constexpr xbool nil_bool = 0x80;
inline constexpr xreal uninit_real = std::bit_cast<xreal>(std::uint64_t{0x5A1545D516DF5D06U});
inline constexpr xreal nil_real = std::bit_cast<xreal>(std::uint64_t{0x5A17A2ECC414A040U});

inline xrstring uninit_text() noexcept {
    return reinterpret_cast<xrstring>(std::uintptr_t{2});
}
inline xrstring nil_text() noexcept {
    return reinterpret_cast<xrstring>(std::uintptr_t{1});
}
inline void *uninit_pointer() noexcept {
    return reinterpret_cast<void *>(std::uintptr_t{22});
}
inline xobject *uninit_object() noexcept {
    return reinterpret_cast<xobject *>(std::uintptr_t{22});
}

constexpr bool is_uninit(xint v) noexcept {
    return v == uninit_int;
}
constexpr bool is_nil(xint v) noexcept {
    return v == nil_int;
}
constexpr bool is_uninit(xbool v) noexcept {
    return v == uninit_bool;
}
constexpr bool is_nil(xbool v) noexcept {
    return v == nil_bool;
}
constexpr bool is_uninit(xreal v) noexcept {
    return std::bit_cast<std::uint64_t>(v) == std::bit_cast<std::uint64_t>(uninit_real);
}
constexpr bool is_nil(xreal v) noexcept {
    return std::bit_cast<std::uint64_t>(v) == std::bit_cast<std::uint64_t>(nil_real);
}
inline bool is_uninit(xrstring v) noexcept {
    return v == uninit_text();
}
inline bool is_nil(xrstring v) noexcept {
    return v == nil_text();
}
// True for a pointer to characters: not null, not a marker.
inline bool is_text(xrstring v) noexcept {
    return reinterpret_cast<std::uintptr_t>(v) > 2;
}
// True for a pointer to an object: neither null nor the uninit marker, below which nothing can lie.
inline bool is_object(const void *v) noexcept {
    return reinterpret_cast<std::uintptr_t>(v) > 22;
}

}  // namespace kel

// The null string, wherever a text pointer passes.
inline const xrstring xstrNullStr = kel::nil_text();

// "Unset" in position arguments, "not found" in positions that come back.
inline constexpr int strUnsetPos = kel::nil_int;

// The time-out without limit, in seconds. Compared by its bits.
inline constexpr double INFINITE = kel::nil_real;
