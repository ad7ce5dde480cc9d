// What a printData has printed, when it is much: in the order of printing, found by address through a table
// of positions. Each entry holds its reference (printLoopCheckEntryLock).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <kelstdmt/printlib.h>

namespace kel::detail {

class print_memory {
public:
    print_memory() = default;
    ~print_memory();
    print_memory(const print_memory &) = delete;
    print_memory &operator=(const print_memory &) = delete;

    bool empty() const noexcept { return m_entries.empty(); }
    bool contains(const void *pointer) const noexcept;
    // An entry that is not there yet.
    void add(const printLoopCheckEntry &entry);

private:
    static constexpr std::uint32_t vacant = UINT32_MAX;

    std::size_t slot_of(const void *pointer) const noexcept;
    void grow();

    std::vector<printLoopCheckEntry> m_entries;
    std::vector<std::uint32_t> m_table;  // positions; its size is a power of two
    int m_shift = 0;
};

}  // namespace kel::detail
