// The values that a print remembers: the set that callers may use too, and the table for many.
#include "iolibsrc/print_memory.h"

#include <algorithm>
#include <bit>
#include <climits>

// Entries and their references -----------------------------------------------------------------

namespace {

// A counted object; null for all else, which is nobody's to hold here.
xobject *counted(const printLoopCheckEntry &entry) {
    if (entry.plain || !kel::is_object(entry.pointer)) return nullptr;
    auto *object = static_cast<xobject *>(entry.pointer);
    return object->isrefcountable() ? object : nullptr;
}

}  // namespace

void printLoopCheckEntryLock(const printLoopCheckEntry &entry) {
    xrcattach(counted(entry));
}
void printLoopCheckEntryUnlock(const printLoopCheckEntry &entry) {
    xrcrelease(counted(entry));
}

// The set --------------------------------------------------------------------------------------

printLoopCheckSet::~printLoopCheckSet() {
    Clear();
}

int printLoopCheckSet::Compare(printLoopCheckEntry a, printLoopCheckEntry b) const {
    auto left = reinterpret_cast<std::uintptr_t>(a.pointer),
         right = reinterpret_cast<std::uintptr_t>(b.pointer);
    constexpr std::uintptr_t farthest = INT_MAX;
    return left < right ? -static_cast<int>(std::min(right - left, farthest))
                        : static_cast<int>(std::min(left - right, farthest));
}
printLoopCheckEntry printLoopCheckSet::CopyKey(printLoopCheckEntry entry) {
    printLoopCheckEntryLock(entry);
    return entry;
}
void printLoopCheckSet::FreeKey(printLoopCheckEntry entry) {
    printLoopCheckEntryUnlock(entry);
}

// The table ------------------------------------------------------------------------------------

namespace kel::detail {

print_memory::~print_memory() {
    for (const printLoopCheckEntry &entry : m_entries)
        printLoopCheckEntryUnlock(entry);
}

// The slot that holds the pointer, or the vacant one where it would go. At most half the slots are taken.
std::size_t print_memory::slot_of(const void *pointer) const noexcept {
    // The top bits of this product spread addresses evenly, be they near each other or in steps.
    std::uint64_t mixed = reinterpret_cast<std::uintptr_t>(pointer) * std::uint64_t{0x9E3779B97F4A7C15};
    std::size_t mask = m_table.size() - 1, slot = static_cast<std::size_t>(mixed >> m_shift);
    while (m_table[slot] != vacant && m_entries[m_table[slot]].pointer != pointer)
        slot = (slot + 1) & mask;
    return slot;
}

bool print_memory::contains(const void *pointer) const noexcept {
    return !m_table.empty() && m_table[slot_of(pointer)] != vacant;
}

void print_memory::add(const printLoopCheckEntry &entry) {
    if (m_entries.size() * 2 >= m_table.size()) grow();
    printLoopCheckEntryLock(entry);
    m_table[slot_of(entry.pointer)] = static_cast<std::uint32_t>(m_entries.size());
    m_entries.push_back(entry);
}

void print_memory::grow() {
    std::vector<std::uint32_t> larger(std::max<std::size_t>(m_table.size() * 2, 1024), vacant);
    m_entries.reserve(larger.size() / 2);  // so that no addition until then fails halfway
    m_table.swap(larger);
    m_shift = std::countl_zero(std::uint64_t{m_table.size()}) + 1;
    for (std::size_t i = 0; i < m_entries.size(); ++i)
        m_table[slot_of(m_entries[i].pointer)] = static_cast<std::uint32_t>(i);
}

}  // namespace kel::detail
