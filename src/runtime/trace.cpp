#include "runtime/trace.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>

#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_process.h>

#include "runtime/trace_sink.h"

namespace kel::system {

constinit std::atomic<unsigned> traced_areas{0};

namespace {

struct known_area {
    std::string_view name;
    unsigned bits;
};
constexpr known_area areas[] = {{"server", static_cast<unsigned>(trace_area::server)},
                                {"handshake", static_cast<unsigned>(trace_area::handshake)},
                                {"names", static_cast<unsigned>(trace_area::names)},
                                {"relay", static_cast<unsigned>(trace_area::relay)},
                                {"all", 0xf}};

// Where the lines go: empty for standard error. Static objects that die late may still be traced.
constinit char path[4096] = "";
constinit std::atomic<bool> has_complained{false};

// Short enough for a pipe to take it in one piece.
class line {
public:
    void add(std::string_view bytes) noexcept {
        for (const char byte : bytes)
            add(byte);
    }
    void add(long long number, std::ptrdiff_t digits = 1) noexcept {
        char text[24];
        const char *end = std::to_chars(text, std::end(text), number).ptr;
        for (std::ptrdiff_t missing = digits - (end - text); missing > 0; --missing)
            add('0');
        add({text, static_cast<std::size_t>(end - text)});
    }
    // Texts of others begin no line of their own, and give a terminal no orders.
    void add(char byte) noexcept {
        constexpr char digits[] = "0123456789abcdef";
        const auto code = static_cast<unsigned char>(byte);
        const bool is_shown = code >= 0x20 && code != 0x7f;
        const char escaped[] = {'\\', 'x', digits[code >> 4], digits[code & 15]};
        put(is_shown ? std::string_view(&byte, 1) : std::string_view(escaped, sizeof escaped));
    }
    std::string_view ended() noexcept {
        if (m_is_cut) std::memcpy(m_bytes + m_size, "...", 3), m_size += 3;
        m_bytes[m_size++] = '\n';
        return {m_bytes, m_size};
    }

private:
    void put(std::string_view bytes) noexcept {
        m_is_cut |= m_size + bytes.size() > most;
        if (m_is_cut) return;
        std::memcpy(m_bytes + m_size, bytes.data(), bytes.size());
        m_size += bytes.size();
    }

    static constexpr std::size_t most = 1024;
    char m_bytes[most + 4];
    std::size_t m_size = 0;
    bool m_is_cut = false;
};

// In universal time, which needs no tables of the system's.
void add_time(line &to) noexcept {
    using namespace std::chrono;
    const auto now = floor<microseconds>(system_clock::now());
    const auto today = floor<days>(now);
    const year_month_day date(today);
    const hh_mm_ss time(now - today);
    to.add(int{date.year()}, 4);
    to.add('-');
    to.add(unsigned{date.month()}, 2);
    to.add('-');
    to.add(unsigned{date.day()}, 2);
    to.add('T');
    to.add(time.hours().count(), 2);
    to.add(':');
    to.add(time.minutes().count(), 2);
    to.add(':');
    to.add(time.seconds().count(), 2);
    to.add('.');
    to.add(time.subseconds().count(), 6);
    to.add('Z');
}

void complain(std::initializer_list<std::string_view> parts) noexcept {
    line whole;
    whole.add("kelstdmt: KELSTDMT_LOG: ");
    for (const std::string_view part : parts)
        whole.add(part);
    append_line("", whole.ended());
}

unsigned areas_in(std::string_view names) noexcept {
    unsigned found = 0;
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        const std::string_view name = names.substr(0, end);
        names.remove_prefix(std::min(end + 1, names.size()));
        const auto *known = std::find_if(std::begin(areas), std::end(areas),
                                         [&](const known_area &area) { return area.name == name; });
        if (known == std::end(areas))
            complain({"no area is called '", name, "': server, handshake, names, relay, all"});
        else
            found |= known->bits;
    }
    return found;
}

// A program that becomes a daemon leaves its folder, and lines still belong into the one file.
void set_path(std::string_view told) {
    std::error_code error;
    std::string whole = std::filesystem::absolute(told, error).string();
    if (error) whole = told;
    if (whole.size() >= sizeof path) return complain({"the path is too long, so lines go to standard error"});
    whole.copy(path, whole.size());
}

// Before main, and before other threads.
const struct beginning {
    beginning() noexcept {
        const char *value = trusted_environment("KELSTDMT_LOG");
        if (!value) return;
        const std::string_view whole(value);
        const std::size_t colon = std::min(whole.find(':'), whole.size());
        const unsigned asked = areas_in(whole.substr(0, colon));
        try {
            if (colon + 1 < whole.size()) set_path(whole.substr(colon + 1));
            traced_areas = asked;
        } catch (const std::exception &) {
            complain({"no memory"});
        }
    }
} begun;

}  // namespace

void write_trace(trace_area area, std::initializer_list<trace_part> parts) noexcept {
    const int error_before = Error_GetLast(), system_error_before = errno;
    line whole;
    add_time(whole);
    whole.add(' ');
    whole.add(static_cast<long long>(Process_GetCurrentId()));
    whole.add(' ');
    whole.add(static_cast<long long>(thread_number()));
    whole.add(' ');
    for (const known_area &known : areas)
        if (known.bits == static_cast<unsigned>(area)) whole.add(known.name);
    whole.add(": ");
    for (const trace_part &part : parts)
        part.is_number() ? whole.add(part.number()) : whole.add(part.text());
    if (!append_line(path, whole.ended()) && *path && !has_complained.exchange(true))
        complain({"cannot write to ", path, ": ", Error_GetText(Error_GetLast())});
    Error_SetLast(error_before);
    errno = system_error_before;
}

}  // namespace kel::system
