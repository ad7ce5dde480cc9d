// Records of monitor files as bytes. A record is a head (type, reserved word, name and, for a string, its
// size) and a slot of fixed length for the value, which another process may be rewriting: so what a record
// is, and how long, is told by its head alone.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kel::monitor {

enum record_type : int { boolean_record, integer_record, real_record, string_record };

constexpr int longest_name = 1023;  // bytes, without a terminator
constexpr int largest_size = 0x7FFFFFFF - 4;
constexpr unsigned longest_head = 4 + 4 + 4 + longest_name + 4;

// Numbers, the most significant byte first.
void put_int(char *to, int value) noexcept;
void put_real(char *to, double value) noexcept;
template <class Unsigned>
inline Unsigned get_bytes(const char *from) noexcept {
    Unsigned value;
    std::memcpy(&value, from, sizeof value);
    if constexpr (std::endian::native == std::endian::big) return value;
    if constexpr (sizeof value == 4) return __builtin_bswap32(value);
    return static_cast<Unsigned>(__builtin_bswap64(value));
}
inline int get_int(const char *from) noexcept {
    return static_cast<int>(get_bytes<std::uint32_t>(from));
}
inline double get_real(const char *from) noexcept {
    return std::bit_cast<double>(get_bytes<std::uint64_t>(from));
}

struct record_head {
    int type = 0;
    std::string_view name;  // into the bytes that were read
    int size = 0;           // of a string
    std::size_t bytes = 0;  // of the head; of a damaged one, those that were looked at
};

long long slot_bytes(int type, int size) noexcept;

enum class reading { whole, more, unknown_type, bad_length };

// The head that the bytes begin with; more when they end too soon.
reading read_head(std::string_view bytes, record_head &head) noexcept;
std::string write_head(int type, std::string_view name, int size);

}  // namespace kel::monitor
