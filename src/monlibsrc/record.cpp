// Heads of records, to and from bytes.
#include "monlibsrc/record.h"

#include <bit>
#include <cstdint>

namespace kel::monitor {

namespace {

template <class Unsigned>
void put(char *to, Unsigned value) noexcept {
    for (std::size_t i = sizeof value; i-- > 0; value = static_cast<Unsigned>(value >> 8))
        to[i] = static_cast<char>(value & 0xFF);
}

}  // namespace

void put_int(char *to, int value) noexcept {
    put(to, static_cast<std::uint32_t>(value));
}
void put_real(char *to, double value) noexcept {
    put(to, std::bit_cast<std::uint64_t>(value));
}
long long slot_bytes(int type, int size) noexcept {
    constexpr int fixed[] = {4, 4, 8, 4};
    return fixed[type] + (type == string_record ? static_cast<long long>(size) : 0);
}

reading read_head(std::string_view bytes, record_head &head) noexcept {
    head.bytes = 4;
    if (bytes.size() < head.bytes) return reading::more;
    head.type = get_int(bytes.data());
    if (head.type < boolean_record || head.type > string_record) return reading::unknown_type;
    head.bytes = 12;
    if (bytes.size() < head.bytes) return reading::more;
    int length = get_int(bytes.data() + 8);
    if (length < 0 || length > longest_name) return reading::bad_length;
    head.bytes += static_cast<unsigned>(length) + (head.type == string_record ? 4 : 0);
    if (bytes.size() < head.bytes) return reading::more;
    head.name = bytes.substr(12, static_cast<unsigned>(length));
    head.size = head.type == string_record ? get_int(bytes.data() + head.bytes - 4) : 0;
    return head.size < 0 || head.size > largest_size ? reading::bad_length : reading::whole;
}

std::string write_head(int type, std::string_view name, int size) {
    std::string bytes(12, '\0');
    put_int(bytes.data(), type);
    put_int(bytes.data() + 8, static_cast<int>(name.size()));
    bytes += name;
    if (type == string_record) {
        bytes.append(4, '\0');
        put_int(bytes.data() + bytes.size() - 4, size);
    }
    return bytes;
}

}  // namespace kel::monitor
