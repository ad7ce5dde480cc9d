// The engine of dictionaries: which slot an entry gets, and when the table changes its size.
#include <kelstdmt/xdictionary.h>

#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>

#include <kelstdmt/xexception.h>

#include "services/key_index.h"
#include "services/slot_chains.h"

using kel::detail::probe_chain;

namespace {

constexpr unsigned smallest_table = 32, largest_table = 1U << 31;
constexpr unsigned smallest_remembered = 64;  // slots from which a table has memories beside it
constexpr unsigned absent = kel::detail::key_index::none;
constexpr unsigned default_low = 70, default_high = 90;

// Marks a slot whose entry was removed: the way of other keys leads across it.
char *removed_key() noexcept {
    return reinterpret_cast<char *>(std::uintptr_t{1});
}

struct block_delete {
    void operator()(char *block) const noexcept { operator delete(block, pDefMemMgr); }
};
using owned_key = std::unique_ptr<char, block_delete>;

}  // namespace

// A key, and what is computed from all its bytes.
struct xbasedictionary::known_key {
    const char *text;
    std::size_t length;
    std::uint32_t hash;

    known_key(const char *key, bool hashed) noexcept
        : text(key), length(std::strlen(key)), hash(hashed ? kel::detail::key_hash(key, length) : 0) {}
};

struct xbasedictionary::memory {
    kel::detail::key_index index;
    kel::detail::slot_chains chains;

    explicit memory(unsigned slots) : index(slots), chains(slots) {}
    static std::unique_ptr<memory> for_table(unsigned slots) {
        return slots < smallest_remembered ? nullptr : std::make_unique<memory>(slots);
    }
};

xbasedictionary::xbasedictionary(const xdictcontrol *control) noexcept
    : m_low(control ? control->low : default_low), m_high(control ? control->high : default_high) {}

xbasedictionary::~xbasedictionary() = default;

unsigned xbasedictionary::FindIndex(const known_key &key, unsigned slotsize) const noexcept {
    auto is_it = [&](unsigned number) {
        const char *there = key_of(slot(number, slotsize));
        return there == key.text || std::strcmp(there, key.text) == 0;
    };
    if (m_memory) return m_memory->index.find(key.hash, is_it);
    const probe_chain way(key.text, key.length);
    unsigned number = way.first;
    for (unsigned i = 0; i < m_slots; ++i, number += way.step()) {
        const char *there = key_of(slot(number & (m_slots - 1), slotsize));
        if (there == nullptr) break;
        if (is_live(there) && is_it(number & (m_slots - 1))) return number & (m_slots - 1);
    }
    return absent;
}

// There is a free slot.
unsigned xbasedictionary::TakeIndex(const known_key &key, unsigned slotsize) noexcept {
    const probe_chain way(key.text, key.length);
    if (m_memory) return m_memory->chains.take(way);
    unsigned number = way.first;
    while (is_live(key_of(slot(number & (m_slots - 1), slotsize))))
        number += way.step();
    return number & (m_slots - 1);
}

void xbasedictionary::AdjustTableSize(unsigned slotsize, unsigned offset) {
    auto load = [this](unsigned slots) { return std::uint64_t{m_count} * 100 / slots; };
    if (m_slots == 0) {
        Rebuild(smallest_table, slotsize, offset);
    } else if (load(m_slots) > m_high) {
        if (m_slots == largest_table) throw std::length_error("kelstdmt: a dictionary of this size");
        Rebuild(m_slots * 2, slotsize, offset);
    } else if (m_slots > smallest_table && load(m_slots / 2) < m_low && m_count <= m_slots / 2) {
        Rebuild(m_slots / 2, slotsize, offset);
    }
}

// The table that is being left. Until all has moved it still owns every key.
struct xbasedictionary::former {
    char *table;
    unsigned slots, count;
    std::unique_ptr<memory> beside;
};

void xbasedictionary::Rebuild(unsigned slots, unsigned slotsize, unsigned offset) {
    auto beside = memory::for_table(slots);
    char *table = static_cast<char *>(OnAllocate(slots));
    for (unsigned i = 0; i < slots; ++i)
        key_of(table + std::size_t{i} * slotsize) = nullptr;
    former old{std::exchange(m_table, table), std::exchange(m_slots, slots), std::exchange(m_count, 0),
               std::exchange(m_memory, std::move(beside))};
    try {
        MoveEntries(old.table, old.slots, slotsize, offset);
    } catch (...) {
        OnDestroy(std::exchange(m_table, old.table), std::exchange(m_slots, old.slots));
        m_count = old.count;
        m_memory = std::move(old.beside);
        throw;
    }
    if (old.table) OnDestroy(old.table, old.slots);
}

// In portions, so that the processor fetches the keys of a whole portion side by side, and then the places
// where they go.
void xbasedictionary::MoveEntries(char *table, unsigned slots, unsigned slotsize, unsigned offset) {
    struct entry {
        char *from, *to;
        std::uint32_t hash;
        unsigned number;
    } portion[32];
    for (unsigned next = 0; next < slots;) {
        unsigned count = 0;
        for (; next < slots && count < std::size(portion); ++next) {
            char *from = table + std::size_t{next} * slotsize;
            if (!is_live(key_of(from))) continue;
            portion[count++].from = from;
            __builtin_prefetch(key_of(from));
        }
        for (entry &e : std::span(portion, count)) {
            const known_key key(key_of(e.from), m_memory != nullptr);
            e.hash = key.hash;
            e.number = TakeIndex(key, slotsize);
            e.to = slot(e.number, slotsize);
            if (m_memory) {
                __builtin_prefetch(e.to, 1);
                m_memory->index.prefetch(key.hash);
            } else {
                key_of(e.to) = key_of(e.from);  // marks the slot as taken
            }
        }
        for (entry &e : std::span(portion, count)) {
            OnMoveEntry(e.to + offset, e.from + offset);
            key_of(e.to) = key_of(e.from);
            if (m_memory) m_memory->index.add(e.hash, e.number);
            ++m_count;
        }
    }
}

xbool xbasedictionary::BaseFind(const char *key, void *out, unsigned slotsize, unsigned offset) {
    if (m_count == 0 || !is_live(key)) return 0;
    const unsigned at = FindIndex(known_key(key, m_memory != nullptr), slotsize);
    if (at == absent) return 0;
    if (out) OnCopyEntry(out, slot(at, slotsize) + offset);
    return 1;
}

void xbasedictionary::BaseSet(const char *key, const void *value, unsigned slotsize, unsigned offset) {
    if (!is_live(key)) return _Abort("A dictionary's key must be a text.", "services/kelbdict", __LINE__);
    known_key known(key, m_memory != nullptr);
    const unsigned at = FindIndex(known, slotsize);
    if (at != absent) return OnCopyEntry(slot(at, slotsize) + offset, value);
    const bool hashed = m_memory != nullptr;
    AdjustTableSize(slotsize, offset);
    if (m_count == m_slots) return _Abort("Hash table overflow.", "services/kelbdict", __LINE__);
    if (m_memory && !hashed) known = known_key(key, true);
    owned_key copy(Strnew__(key));
    const unsigned number = TakeIndex(known, slotsize);
    try {
        OnCopyEntry(slot(number, slotsize) + offset, value);
    } catch (...) {
        if (m_memory) m_memory->chains.freed(number);
        throw;
    }
    key_of(slot(number, slotsize)) = copy.release();
    if (m_memory) m_memory->index.add(known.hash, number);
    ++m_count;
}

xbool xbasedictionary::BaseGetKeyByIndex(unsigned number, xstring *key, unsigned slotsize, unsigned) {
    if (number >= m_slots || !is_live(key_of(slot(number, slotsize)))) return 0;
    if (key) *key = key_of(slot(number, slotsize));
    return 1;
}

xbool xbasedictionary::BaseGetByIndex(unsigned number, void *out, unsigned slotsize, unsigned offset) {
    if (number >= m_slots || !is_live(key_of(slot(number, slotsize)))) return 0;
    if (out) OnCopyEntry(out, slot(number, slotsize) + offset);
    return 1;
}

xbool xbasedictionary::BaseSetByIndex(unsigned number, const void *value, unsigned slotsize,
                                      unsigned offset) {
    if (number >= m_slots || !is_live(key_of(slot(number, slotsize)))) return 0;
    OnCopyEntry(slot(number, slotsize) + offset, value);
    return 1;
}

xbool xbasedictionary::BaseRemove(const char *key, unsigned slotsize, unsigned offset) {
    if (m_count == 0 || !is_live(key)) return 0;
    const known_key known(key, m_memory != nullptr);
    const unsigned at = FindIndex(known, slotsize);
    if (at == absent) return 0;
    RemoveEntry(at, known.hash, slotsize, offset);
    return 1;
}

xbool xbasedictionary::BaseRemoveByIndex(unsigned number, unsigned slotsize, unsigned offset) {
    if (number >= m_slots || !is_live(key_of(slot(number, slotsize)))) return 0;
    const known_key known(key_of(slot(number, slotsize)), m_memory != nullptr);
    RemoveEntry(number, known.hash, slotsize, offset);
    return 1;
}

void xbasedictionary::RemoveEntry(unsigned number, std::uint32_t hash, unsigned slotsize, unsigned offset) {
    char *place = slot(number, slotsize);
    owned_key key(std::exchange(key_of(place), removed_key()));
    --m_count;
    if (m_memory) {
        m_memory->index.remove(hash, number);
        m_memory->chains.freed(number);
    }
    OnRemoveEntry(place + offset);
    try {
        AdjustTableSize(slotsize, offset);
    } catch (const std::bad_alloc &) {  // the larger table serves as well; the next removal tries again
    }
}

void xbasedictionary::BaseFreeAllKeys(unsigned slotsize) noexcept {
    for (unsigned i = 0; i < m_slots; ++i) {
        char *&key = key_of(slot(i, slotsize));
        if (is_live(key)) operator delete(key, pDefMemMgr);
        key = nullptr;
    }
    m_count = 0;
}

void xbasedictionary::BaseClearAll(unsigned slotsize, unsigned) {
    if (!m_table) return;
    BaseFreeAllKeys(slotsize);
    m_memory.reset();
    OnDestroy(std::exchange(m_table, nullptr), std::exchange(m_slots, 0));
}

void *xbasedictionary::AllocateBlock(unsigned slots, std::size_t slotsize) {
    if (slots > std::numeric_limits<std::size_t>::max() / slotsize) throw std::bad_array_new_length();
    return operator new(slots *slotsize, pDefMemMgr);
}

namespace kel::detail {

void throw_dictionary_index(xobject *dictionary, int index) {
    if (index < 0) kelhThrowNegativeIndex(index);
    kelhThrowInvalidDictIndex(dictionary, index);
}

}  // namespace kel::detail
