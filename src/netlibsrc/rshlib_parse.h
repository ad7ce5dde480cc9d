// What travels between the two relays of a remote shell, taken apart as it arrives.
//
// Bytes come in pieces of any size: each reader takes off the front of a piece what it can use, and keeps
// what it has begun. No count of the peer's is believed: counted bytes are handed on as they come, and a text
// may not be longer than its reader was told.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kel::detail {

enum relay_tag : int {
    tag_error = 2,   // bytes of the command's error output
    tag_output = 3,  // and of its output
    tag_input = 4,   // and for its input
    tag_input_end = 5,
    tag_exit_code = 6,  // an int follows
    tag_end = 7,        // all is sent; the answer is the same tag
    tag_terminate = 8,
    tag_interrupt = 9,
    // With the tag of a channel added: the receiver asks to hold back that channel, and to go on.
    tag_hold = 32,
    tag_go_on = 48
};
constexpr int answer_launched = 0, answer_refused = 10;

constexpr const char *channel_name(int tag) noexcept {
    return tag == tag_error ? "error" : tag == tag_output ? "output" : "input";
}

// Ints as the encoding of the connection's stream has them: in network order, or in that of this machine.
class int_coding {
public:
    static constexpr std::size_t size = 4;

    explicit int_coding(bool of_this_machine = false) noexcept
        : m_swap(!of_this_machine && std::endian::native == std::endian::little) {}

    void put(char *to, int value) const noexcept {
        const std::uint32_t bits = turned(static_cast<std::uint32_t>(value));
        std::memcpy(to, &bits, size);
    }
    int get(const char *from) const noexcept {
        std::uint32_t bits;
        std::memcpy(&bits, from, size);
        return static_cast<int>(turned(bits));
    }

private:
    std::uint32_t turned(std::uint32_t bits) const noexcept {
        return m_swap ? __builtin_bswap32(bits) : bits;
    }

    bool m_swap;
};

class int_reader {
public:
    explicit int_reader(int_coding coding) noexcept : m_coding(coding) {}

    // False when more is needed.
    bool take(std::string_view &from, int &value) noexcept {
        const std::size_t count = std::min(int_coding::size - m_have, from.size());
        std::copy_n(from.data(), count, m_bytes + m_have);
        from.remove_prefix(count);
        m_have += count;
        if (m_have < int_coding::size) return false;
        m_have = 0;
        value = m_coding.get(m_bytes);
        return true;
    }

private:
    int_coding m_coding;
    char m_bytes[int_coding::size] = {};
    std::size_t m_have = 0;
};

// Ints and texts one behind the other.
class field_reader {
public:
    explicit field_reader(int_coding coding) noexcept : m_ints(coding) {}

    bool take(std::string_view &from, int &value) noexcept { return !m_broken && m_ints.take(from, value); }
    // Collects the text in `text`, which is empty at first; the bytes from a NUL on are cut off in the end.
    bool take(std::string_view &from, std::string &text, std::size_t longest) {
        if (m_left < 0) {
            int length;
            if (!take(from, length)) return false;
            m_broken = length < 0 || static_cast<std::size_t>(length) > longest;
            if (m_broken) return false;
            m_left = length;
        }
        const std::size_t count = std::min(static_cast<std::size_t>(m_left), from.size());
        text.append(from.substr(0, count));
        from.remove_prefix(count);
        m_left -= static_cast<int>(count);
        if (m_left > 0) return false;
        m_left = -1;
        text.resize(std::min(text.find('\0'), text.size()));
        return true;
    }
    // A length that cannot be. Nothing is taken any more.
    bool is_broken() const noexcept { return m_broken; }

private:
    int_reader m_ints;
    int m_left = -1;  // of a text that has been begun
    bool m_broken = false;
};

// What a client asks for.
struct launch_request {
    std::string command, working_directory;
    int use_shell = 0;
};

class request_reader {
public:
    explicit request_reader(int_coding coding) noexcept : m_fields(coding) {}

    static constexpr std::size_t longest_text = std::size_t{2} << 20;

    // True once the request is whole. What follows it stays where it is.
    bool take(std::string_view &from) {
        switch (m_next) {
            case 0:
                if (!m_fields.take(from, m_request.command, longest_text)) return false;
                ++m_next;
                [[fallthrough]];
            case 1:
                if (!m_fields.take(from, m_request.working_directory, longest_text)) return false;
                ++m_next;
                [[fallthrough]];
            default:
                return m_fields.take(from, m_request.use_shell);
        }
    }
    bool is_broken() const noexcept { return m_fields.is_broken(); }
    const launch_request &request() const noexcept { return m_request; }

private:
    field_reader m_fields;
    launch_request m_request;
    int m_next = 0;
};

// A server's answer to a request.
class answer_reader {
public:
    explicit answer_reader(int_coding coding) noexcept : m_fields(coding) {}

    static constexpr std::size_t longest_text = 65536;

    bool take(std::string_view &from) {
        switch (m_next) {
            case 0:
                if (!m_fields.take(from, m_answer)) return false;
                if (m_answer == answer_launched) return true;
                ++m_next;
                [[fallthrough]];
            case 1:
                if (!m_fields.take(from, m_error)) return false;
                ++m_next;
                [[fallthrough]];
            default:
                return m_fields.take(from, m_text, longest_text);
        }
    }
    bool is_broken() const noexcept { return m_fields.is_broken(); }
    bool is_launched() const noexcept { return m_answer == answer_launched; }
    int error() const noexcept { return m_error; }
    const std::string &text() const noexcept { return m_text; }

private:
    field_reader m_fields;
    int m_answer = -1, m_error = 0;
    std::string m_text;
    int m_next = 0;
};

// The tagged messages that follow the launch. A tag that is not known is a message with nothing behind it.
class tag_reader {
public:
    struct piece {
        int tag = 0;
        int value = 0;           // of a numbered tag
        std::string_view bytes;  // of a counted tag: those that have come, never none
    };

    // Of each tag whether a count and bytes follow, and whether an int does.
    using kind = bool (*)(int tag);
    tag_reader(int_coding coding, kind is_counted, kind is_numbered) noexcept
        : m_ints(coding), m_is_counted(is_counted), m_is_numbered(is_numbered) {}

    // The next message, or the next bytes of a counted one; false when more is needed. A piece's bytes lie
    // where they came from.
    bool take(std::string_view &from, piece &next) noexcept {
        while (!m_broken) {
            next = {m_tag, 0, {}};
            if (m_bytes_left > 0) {
                next.bytes = from.substr(0, std::min(m_bytes_left, from.size()));
                from.remove_prefix(next.bytes.size());
                m_bytes_left -= next.bytes.size();
                return !next.bytes.empty();
            }
            int value;
            if (!m_ints.take(from, value)) return false;
            if (m_expected == number) {
                m_expected = tag;
                next.value = value;
                return true;
            }
            if (m_expected == count) {
                m_expected = tag;
                m_broken = value < 0;
                m_bytes_left = m_broken ? 0 : static_cast<std::size_t>(value);
                continue;
            }
            next.tag = m_tag = value;
            m_expected = m_is_counted(value) ? count : m_is_numbered(value) ? number : tag;
            if (m_expected == tag) return true;
        }
        return false;
    }
    // A negative count. Nothing is taken any more.
    bool is_broken() const noexcept { return m_broken; }

private:
    enum expectation { tag, count, number };

    int_reader m_ints;
    kind m_is_counted, m_is_numbered;
    expectation m_expected = tag;
    int m_tag = 0;
    std::size_t m_bytes_left = 0;
    bool m_broken = false;
};

// As the client and the server receive them.
inline tag_reader client_tags(int_coding coding) noexcept {
    return {coding, [](int tag) { return tag == tag_error || tag == tag_output; },
            [](int tag) { return tag == tag_exit_code; }};
}
inline tag_reader server_tags(int_coding coding) noexcept {
    return {coding, [](int tag) { return tag == tag_input; }, [](int) { return false; }};
}

}  // namespace kel::detail
