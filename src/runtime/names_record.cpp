// The record of the name service as it travels. The reader is a small machine that awaits one int, name or
// value after the other; what comes in one piece is used where it lies.
#include <kelstdmt/vumrt_names.h>

#include <algorithm>

namespace kel {

namespace {

constexpr std::size_t int_size = 4;
constexpr std::size_t least_text = 2 * int_size;  // of a name or value without characters
constexpr std::size_t least_field = 2 * least_text;

bool fits(std::string_view text, int limit) {
    return text.size() < static_cast<std::size_t>(std::max(limit, 0)) &&
           text.find('\0') == std::string_view::npos;
}

void append_text(std::string &to, std::string_view text) {
    const int length = static_cast<int>(text.size());
    append_int(to, length + 1);
    append_int(to, length);
    to += text;
}

}  // namespace

const std::string *name_record::find(std::string_view name) const noexcept {
    for (const auto &[known, value] : fields)
        if (known == name) return &value;
    return nullptr;
}

void name_record::set(std::string_view name, std::string_view value) {
    for (auto &[known, old] : fields)
        if (known == name) {
            old = value;
            return;
        }
    fields.emplace_back(name, value);
}

void append_int(std::string &to, int value) {
    const auto bits = static_cast<unsigned>(value);
    const char bytes[int_size] = {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16),
                                  static_cast<char>(bits >> 8), static_cast<char>(bits)};
    to.append(bytes, int_size);
}

int int_at(const char *bytes) noexcept {
    unsigned bits = 0;
    for (std::size_t at = 0; at < int_size; ++at)
        bits = bits << 8 | static_cast<unsigned char>(bytes[at]);
    return static_cast<int>(bits);
}

bool append_record(std::string &to, const name_record &record, const name_record_limits &limits) {
    if (record.fields.size() > static_cast<std::size_t>(std::max(limits.fields, 0))) return false;
    for (const auto &[name, value] : record.fields)
        if (!fits(name, limits.name) || !fits(value, limits.value)) return false;
    append_int(to, static_cast<int>(record.process));
    append_int(to, static_cast<int>(record.fields.size()));
    for (const auto &[name, value] : record.fields) {
        append_text(to, name);
        append_text(to, value);
    }
    return true;
}

// Reading --------------------------------------------------------------------------------------

std::size_t name_record_reader::feed(const char *bytes, std::size_t count) {
    std::string_view left(bytes, count);
    while (!is_whole() && !is_malformed()) {
        const std::string_view come = left.substr(0, m_wanted - m_piece.size());
        left.remove_prefix(come.size());
        const bool in_one = come.size() == m_wanted;
        if (!in_one) m_piece += come;
        if (!in_one && m_piece.size() < m_wanted) break;
        take_piece(in_one ? come : m_piece);
        m_piece.clear();
    }
    return count - left.size();
}

void name_record_reader::take_piece(std::string_view piece) {
    switch (m_step) {
        case step::process:
            m_record.process = static_cast<unsigned>(int_at(piece.data()));
            return await(step::count, int_size);
        case step::count:
            m_fields_left = int_at(piece.data());
            if (m_fields_left < 0 || m_fields_left > m_limits.fields) return await(step::malformed, 0);
            return await_field();
        case step::name_size:
            return take_size(int_at(piece.data()), m_limits.name);
        case step::value_size:
            return take_size(int_at(piece.data()), m_limits.value);
        case step::name_length:
        case step::value_length:
            return take_length(int_at(piece.data()));
        case step::name:
            if (!fits(piece, m_limits.name)) return await(step::malformed, 0);
            m_name = piece;
            return await(step::value_size, int_size);
        case step::value:
            if (!fits(piece, m_limits.value)) return await(step::malformed, 0);
            m_record.set(m_name, piece);
            --m_fields_left;
            return await_field();
        case step::whole:
        case step::malformed:
            return;
    }
}

void name_record_reader::take_size(int size, int limit) {
    m_size = size;
    if (size <= 0 || size > limit) return await(step::malformed, 0);
    await(m_step == step::name_size ? step::name_length : step::value_length, int_size);
}

void name_record_reader::take_length(int length) {
    if (length < 0 || length >= m_size) return await(step::malformed, 0);
    await(m_step == step::name_length ? step::name : step::value, static_cast<std::size_t>(length));
}

void name_record_reader::await(step next, std::size_t bytes) noexcept {
    m_step = next;
    m_wanted = bytes;
}

void name_record_reader::await_field() noexcept {
    if (m_fields_left > 0)
        await(step::name_size, int_size);
    else
        await(step::whole, 0);
}

std::size_t name_record_reader::missing() const noexcept {
    // What follows the awaited piece for certain, in its own field: by the step.
    static constexpr std::size_t after[] = {
        int_size, 0, least_field - int_size, least_text, least_text, int_size, 0, 0, 0, 0};
    constexpr int counted = 256;  // fields at most: a count is no reason to make room for more
    const int later = std::min(m_fields_left, counted) - 1;
    std::size_t bytes = m_wanted - m_piece.size() + after[static_cast<std::size_t>(m_step)];
    if (m_step >= step::name_size && m_step <= step::value && later > 0)
        bytes += static_cast<std::size_t>(later) * least_field;
    return bytes;
}

name_record name_record_reader::take() {
    name_record taken = std::move(m_record);
    *this = name_record_reader(m_limits);
    return taken;
}

}  // namespace kel
