// The trace of decisions on the network's side: lines for whoever asks with the environment variable
// KELSTDMT_LOG (doc/looking-inside.md), which is read once, when the library is loaded.
//
// While nobody has asked, a call costs one load and a branch. Its parts become text behind that, so they are
// to be cheap by themselves; what is not goes in as a function that gives it.
#pragma once

#include <atomic>
#include <concepts>
#include <initializer_list>
#include <string_view>

namespace kel::system {

// What is asked for is a set of them.
enum class trace_area : unsigned { server = 1, handshake = 2, names = 4, relay = 8 };

class trace_part {
public:
    trace_part(const char *text) noexcept : m_text(text ? text : "") {}
    trace_part(std::string_view text) noexcept : m_text(text) {}
    template <std::integral Number>
    trace_part(Number number) noexcept : m_number(static_cast<long long>(number)), m_is_number(true) {}
    template <std::invocable Late>
    trace_part(const Late &late) noexcept : trace_part(late()) {}

    bool is_number() const noexcept { return m_is_number; }
    long long number() const noexcept { return m_number; }
    std::string_view text() const noexcept { return m_text; }

private:
    std::string_view m_text;
    long long m_number = 0;
    bool m_is_number = false;
};

[[gnu::visibility("hidden")]] extern std::atomic<unsigned> traced_areas;

inline bool is_traced(trace_area area) noexcept {
    return (traced_areas.load(std::memory_order_relaxed) & static_cast<unsigned>(area)) != 0;
}

// One line, without its end. Neither takes memory nor a lock, and leaves the last error alone.
void write_trace(trace_area area, std::initializer_list<trace_part> parts) noexcept;

template <class... Parts>
void trace(trace_area area, const Parts &...parts) noexcept {
    if (is_traced(area)) [[unlikely]]
        write_trace(area, {trace_part(parts)...});
}

}  // namespace kel::system
