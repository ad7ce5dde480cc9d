// The engine of dictionaries: which slot an entry gets, and when the table changes its size.
#include <kelstdmt/xdictionary.h>

#include <cstring>
#include <iterator>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>

#include <kelstdmt/xexception.h>

#include "runtime/large_memory.h"
#include "services/key_index.h"
#include "services/key_store.h"
#include "services/slot_chains.h"

using kel::detail::key_digest;
using kel::detail::key_store;
using kel::detail::probe_chain;

namespace {

constexpr unsigned smallest_table = 32, largest_table = 1U << 31;
constexpr unsigned absent = kel::detail::key_index::none;
constexpr unsigned default_low = 70, default_high = 90;

// Marks a slot whose entry was removed: the way of other keys leads across it.
char *removed_key() noexcept {
    return reinterpret_cast<char *>(std::uintptr_t{1});
}

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
    struct beside_large_table {
        kel::detail::key_index index;
        kel::detail::slot_chains chains;
    };

    key_store keys;
    std::unique_ptr<beside_large_table> large;

    explicit memory(unsigned slots)
        : large(slots < smallest_large ? nullptr
                                       : new beside_large_table{kel::detail::key_index(slots),
                                                                kel::detail::slot_chains(slots)}) {}
};

xbasedictionary::xbasedictionary(const xdictcontrol *control) noexcept
    : m_low(control ? control->low : default_low), m_high(control ? control->high : default_high) {}

xbasedictionary::~xbasedictionary() = default;

unsigned xbasedictionary::FindIndex(const known_key &key, unsigned slotsize) const noexcept {
    auto is_it = [&](unsigned number) {
        const char *there = key_of(slot(number, slotsize));
        return there == key.text || std::strcmp(there, key.text) == 0;
    };
    if (is_large()) return m_memory->large->index.find(key.hash, is_it);
    const probe_chain way(key.text, key.length);
    unsigned number = way.first();
    for (unsigned i = 0; i < m_slots; ++i, number += way.step()) {
        const char *there = key_of(slot(number & (m_slots - 1), slotsize));
        if (there == nullptr) break;
        if (is_live(there) && is_it(number & (m_slots - 1))) return number & (m_slots - 1);
    }
    return absent;
}

// The first free slot on a way; there is one.
unsigned xbasedictionary::TakeIndex(probe_chain way, unsigned slotsize) noexcept {
    if (is_large()) return m_memory->large->chains.take(way);
    unsigned number = way.first();
    while (is_live(key_of(slot(number & (m_slots - 1), slotsize))))
        number += way.step();
    return number & (m_slots - 1);
}

// Changes the size where the load asks for it. What comes back keeps the texts of keys that have moved.
key_store xbasedictionary::AdjustTableSize(unsigned slotsize, unsigned offset) {
    auto load = [this](unsigned slots) { return std::uint64_t{m_count} * 100 / slots; };
    if (m_slots == 0) return Rebuild(smallest_table, slotsize, offset);
    if (!m_memory) m_memory = std::make_unique<memory>(m_slots);  // all keys were freed
    if (load(m_slots) > m_high) {
        if (m_slots == largest_table) throw std::length_error("kelstdmt: a dictionary of this size");
        return Rebuild(m_slots * 2, slotsize, offset);
    }
    if (m_slots > smallest_table && load(m_slots / 2) < m_low && m_count <= m_slots / 2)
        return Rebuild(m_slots / 2, slotsize, offset);
    return {};
}

// The table that is being left. Until all has moved it still owns every key.
struct xbasedictionary::former {
    char *table;
    unsigned slots, count;
    std::unique_ptr<memory> beside;
};

key_store xbasedictionary::Rebuild(unsigned slots, unsigned slotsize, unsigned offset) {
    auto beside = std::make_unique<memory>(slots);
    const bool packs = slots < m_slots;
    if (packs) beside->keys = key_store(m_memory->keys.live_bytes());
    char *table = static_cast<char *>(OnAllocate(slots));
    for (unsigned i = 0; i < slots; ++i)
        key_of(table + std::size_t{i} * slotsize) = nullptr;
    former old{std::exchange(m_table, table), std::exchange(m_slots, slots), std::exchange(m_count, 0),
               std::exchange(m_memory, std::move(beside))};
    try {
        MoveEntries(old, packs, slotsize, offset);
    } catch (...) {
        OnDestroy(std::exchange(m_table, old.table), std::exchange(m_slots, old.slots));
        m_count = old.count;
        m_memory = std::move(old.beside);
        throw;
    }
    if (!old.table) return {};
    if (!packs) std::swap(m_memory->keys, old.beside->keys);
    OnDestroy(old.table, old.slots);
    return std::move(old.beside->keys);
}

// In portions, so that the processor fetches the keys of a whole portion side by side, and then the places
// where they go.
void xbasedictionary::MoveEntries(const former &old, bool packs, unsigned slotsize, unsigned offset) {
    struct entry {
        char *from, *key;
        unsigned slot;
        std::uint32_t hash;
    } portion[32];
    auto *large = m_memory->large.get();
    const bool grows_large = large && old.slots < smallest_large;
    for (unsigned next = 0; next < old.slots;) {
        unsigned count = 0;
        for (; next < old.slots && count < std::size(portion); ++next) {
            char *from = old.table + std::size_t{next} * slotsize;
            if (!is_live(key_of(from))) continue;
            portion[count++] = {from, key_of(from), 0, 0};
            __builtin_prefetch(key_of(from));
        }
        for (entry &e : std::span(portion, count)) {
            key_digest digest = key_store::digest(e.key);
            if (grows_large) {
                digest.hash = known_key(e.key, true).hash;
                key_store::set_digest(e.key, digest);
            }
            e.hash = digest.hash;
            e.slot = TakeIndex(digest.way, slotsize);
            if (packs) e.key = m_memory->keys.add(e.key, std::strlen(e.key), digest);
            if (large) {
                __builtin_prefetch(slot(e.slot, slotsize), 1);
                large->index.prefetch(e.hash);
            } else {
                key_of(slot(e.slot, slotsize)) = e.key;  // marks it as taken
            }
        }
        for (const entry &e : std::span(portion, count)) {
            char *to = slot(e.slot, slotsize);
            OnMoveEntry(to + offset, e.from + offset);
            key_of(to) = e.key;
            if (large) large->index.add(e.hash, e.slot);
        }
        m_count += count;
    }
}

void xbasedictionary::PackKeys(unsigned slotsize) {
    key_store packed(m_memory->keys.live_bytes());
    for (unsigned i = 0; i < m_slots; ++i) {
        char *&key = key_of(slot(i, slotsize));
        if (is_live(key)) key = packed.add(key, std::strlen(key), key_store::digest(key));
    }
    m_memory->keys = std::move(packed);
}

xbool xbasedictionary::BaseFind(const char *key, void *out, unsigned slotsize, unsigned offset) {
    if (m_count == 0 || !is_live(key)) return 0;
    const unsigned at = FindIndex(known_key(key, is_large()), slotsize);
    if (at == absent) return 0;
    if (out) OnCopyEntry(out, slot(at, slotsize) + offset);
    return 1;
}

void xbasedictionary::BaseSet(const char *key, const void *value, unsigned slotsize, unsigned offset) {
    if (!is_live(key)) return _Abort("A dictionary's key must be a text.", "services/kelbdict", __LINE__);
    const bool hashed = is_large();
    known_key known(key, hashed);
    const unsigned at = m_count ? FindIndex(known, slotsize) : absent;
    if (at != absent) return OnCopyEntry(slot(at, slotsize) + offset, value);
    // The key may lie in one that the table holds.
    const key_store former_keys = AdjustTableSize(slotsize, offset);
    if (m_count == m_slots) return _Abort("Hash table overflow.", "services/kelbdict", __LINE__);
    if (is_large() && !hashed) known = known_key(key, true);
    const probe_chain way(known.text, known.length);
    char *copy = m_memory->keys.add(known.text, known.length, {way, known.hash});
    const unsigned number = TakeIndex(way, slotsize);
    try {
        OnCopyEntry(slot(number, slotsize) + offset, value);
    } catch (...) {
        if (is_large()) m_memory->large->chains.freed(number);
        m_memory->keys.drop(known.length);
        throw;
    }
    key_of(slot(number, slotsize)) = copy;
    if (is_large()) m_memory->large->index.add(known.hash, number);
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
    const known_key known(key, is_large());
    const unsigned at = FindIndex(known, slotsize);
    if (at == absent) return 0;
    RemoveEntry(at, slotsize, offset);
    return 1;
}

xbool xbasedictionary::BaseRemoveByIndex(unsigned number, unsigned slotsize, unsigned offset) {
    if (number >= m_slots || !is_live(key_of(slot(number, slotsize)))) return 0;
    RemoveEntry(number, slotsize, offset);
    return 1;
}

void xbasedictionary::RemoveEntry(unsigned number, unsigned slotsize, unsigned offset) {
    char *place = slot(number, slotsize);
    const char *key = std::exchange(key_of(place), removed_key());
    --m_count;
    m_memory->keys.drop(std::strlen(key));
    if (is_large()) {
        m_memory->large->index.remove(key_store::digest(key).hash, number);
        m_memory->large->chains.freed(number);
    }
    OnRemoveEntry(place + offset);
    try {
        AdjustTableSize(slotsize, offset);
        if (m_memory->keys.wasteful()) PackKeys(slotsize);
    } catch (const std::bad_alloc &) {  // what is there serves as well; the next removal tries again
    }
}

void xbasedictionary::BaseFreeAllKeys(unsigned slotsize) noexcept {
    for (unsigned i = 0; i < m_slots; ++i)
        key_of(slot(i, slotsize)) = nullptr;
    m_count = 0;
    m_memory.reset();
}

void xbasedictionary::BaseClearAll(unsigned, unsigned) {
    if (!m_table) return;
    m_count = 0;
    m_memory.reset();
    OnDestroy(std::exchange(m_table, nullptr), std::exchange(m_slots, 0));
}

void *xbasedictionary::AllocateBlock(unsigned slots, std::size_t slotsize) {
    if (slots > std::numeric_limits<std::size_t>::max() / slotsize) throw std::bad_array_new_length();
    const std::size_t bytes = slots * slotsize;
    void *block = operator new(bytes, pDefMemMgr);
    kel::system::prefer_large_pages(block, bytes);
    return block;
}

namespace kel::detail {

void throw_dictionary_index(xobject *dictionary, int index) {
    if (index < 0) kelhThrowNegativeIndex(index);
    kelhThrowInvalidDictIndex(dictionary, index);
}

}  // namespace kel::detail
