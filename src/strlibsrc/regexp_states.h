// The states of an automaton that is built while it runs: each is known by its content, a list of numbers,
// and has a row of steps, one for each symbol, that are found out when they are first taken. The memory is
// limited: a full table is emptied by its owner, who goes on with the state at hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kel::detail {

class state_table {
public:
    using number = std::uint32_t;
    static constexpr std::uint32_t unknown = 0xFFFFFFFF;
    static constexpr number full = 0xFFFFFFFF;

    explicit state_table(std::size_t symbols) : m_symbols(symbols) {}

    // The state with this content, which is new when there was none; `full` when there is no more room.
    number intern(const std::vector<std::uint32_t> &content);

    const std::uint32_t *content(number state) const noexcept {
        return m_contents.data() + m_states[state].begin;
    }
    std::size_t content_size(number state) const noexcept { return m_states[state].size; }

    // All rows, one behind the other. They move when a state is added.
    std::uint32_t *steps() noexcept { return m_steps.data(); }
    std::uint32_t row(number state) const noexcept { return static_cast<std::uint32_t>(state * m_symbols); }
    number state_of_row(std::uint32_t row) const noexcept { return static_cast<number>(row / m_symbols); }

    std::size_t memory() const noexcept;
    void clear() noexcept;

private:
    struct entry {
        std::uint32_t begin, size;
        std::uint32_t hash;
    };
    static constexpr std::size_t memory_limit = 1 << 20;

    void grow();
    std::size_t used() const noexcept;

    std::size_t m_symbols;
    std::vector<entry> m_states;
    std::vector<std::uint32_t> m_contents;
    std::vector<std::uint32_t> m_steps;
    std::vector<number> m_places;  // hashed, a power of two, at most half full
};

}  // namespace kel::detail
