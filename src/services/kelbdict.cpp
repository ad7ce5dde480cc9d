// The engine of dictionaries: which slot an entry gets, and when the table changes its size.
#include <kelstdmt/xdictionary.h>

#include <cstring>
#include <limits>
#include <stdexcept>

#include <kelstdmt/xexception.h>

namespace {

constexpr unsigned smallest_table = 32, largest_table = 1U << 31;
constexpr unsigned default_low = 70, default_high = 90;

// Marks a slot whose entry was removed: the way of other keys leads across it.
char *removed_key() noexcept {
    return reinterpret_cast<char *>(std::uintptr_t{1});
}

// The way of a key through a table: its first slot and the odd step to the next one. Bytes count as signed.
struct probe_chain {
    unsigned first = 0, step = 1;

    probe_chain(const char *key, std::size_t length) noexcept {
        if (length == 0) return;
        auto byte = [&](std::size_t at) { return static_cast<unsigned>(static_cast<signed char>(key[at])); };
        first = byte(length / 2) * byte(length - 1) * byte(0);
        step = (length < 3 ? byte(0) : byte(length / 2 + 1) ^ byte(length - 2) ^ byte(1)) * 2 + 1;
    }
};

struct block_delete {
    void operator()(char *block) const noexcept { operator delete(block, pDefMemMgr); }
};
using owned_key = std::unique_ptr<char, block_delete>;

}  // namespace

struct xbasedictionary::memory {};

xbasedictionary::xbasedictionary(const xdictcontrol *control) noexcept
    : m_low(control ? control->low : default_low), m_high(control ? control->high : default_high) {}

xbasedictionary::~xbasedictionary() = default;

bool xbasedictionary::FindIndex(const char *key, unsigned slotsize, unsigned &at) const {
    if (!is_live(key)) return false;
    probe_chain way(key, std::strlen(key));
    unsigned number = way.first;
    for (unsigned i = 0; i < m_slots; ++i, number += way.step) {
        const char *there = key_of(slot(number & (m_slots - 1), slotsize));
        if (there == nullptr) return false;
        if (is_live(there) && (there == key || std::strcmp(there, key) == 0)) {
            at = number & (m_slots - 1);
            return true;
        }
    }
    return false;
}

void xbasedictionary::AddEntry(char *ownedkey, void *value, bool move, unsigned slotsize, unsigned offset) {
    probe_chain way(ownedkey, std::strlen(ownedkey));
    unsigned number = way.first;
    for (unsigned i = 0; i < m_slots; ++i, number += way.step) {
        char *place = slot(number & (m_slots - 1), slotsize);
        if (is_live(key_of(place))) continue;
        if (move)
            OnMoveEntry(place + offset, value);
        else
            OnCopyEntry(place + offset, value);
        key_of(place) = ownedkey;
        ++m_count;
        return;
    }
}

void xbasedictionary::AdjustTableSize(unsigned slotsize, unsigned offset) {
    auto load = [this](unsigned slots) { return std::uint64_t{m_count} * 100 / slots; };
    unsigned wanted = m_slots;
    if (m_slots == 0) {
        wanted = smallest_table;
    } else if (load(m_slots) > m_high) {
        if (m_slots == largest_table) throw std::length_error("kelstdmt: a dictionary of this size");
        wanted = m_slots * 2;
    } else if (m_slots > smallest_table && load(m_slots / 2) < m_low && m_count <= m_slots / 2) {
        wanted = m_slots / 2;
    }
    if (wanted == m_slots) return;
    char *table = static_cast<char *>(OnAllocate(wanted));
    for (unsigned i = 0; i < wanted; ++i)
        key_of(table + std::size_t{i} * slotsize) = nullptr;
    char *old = std::exchange(m_table, table);
    unsigned oldslots = std::exchange(m_slots, wanted), oldcount = std::exchange(m_count, 0);
    try {
        for (unsigned i = 0; i < oldslots; ++i) {
            char *place = old + std::size_t{i} * slotsize;
            if (is_live(key_of(place))) AddEntry(key_of(place), place + offset, true, slotsize, offset);
        }
    } catch (...) {
        // The old table still has all keys.
        OnDestroy(std::exchange(m_table, old), std::exchange(m_slots, oldslots));
        m_count = oldcount;
        throw;
    }
    if (old) OnDestroy(old, oldslots);
}

xbool xbasedictionary::BaseFind(const char *key, void *out, unsigned slotsize, unsigned offset) {
    unsigned at;
    if (!FindIndex(key, slotsize, at)) return 0;
    if (out) OnCopyEntry(out, slot(at, slotsize) + offset);
    return 1;
}

void xbasedictionary::BaseSet(const char *key, const void *value, unsigned slotsize, unsigned offset) {
    if (!is_live(key)) return _Abort("A dictionary's key must be a text.", "services/kelbdict", __LINE__);
    unsigned at;
    if (FindIndex(key, slotsize, at)) return OnCopyEntry(slot(at, slotsize) + offset, value);
    AdjustTableSize(slotsize, offset);
    if (m_count == m_slots) return _Abort("Hash table overflow.", "services/kelbdict", __LINE__);
    owned_key copy(Strnew__(key));
    AddEntry(copy.get(), const_cast<void *>(value), false, slotsize, offset);
    copy.release();
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
    unsigned at;
    return FindIndex(key, slotsize, at) ? BaseRemoveByIndex(at, slotsize, offset) : xbool{0};
}

xbool xbasedictionary::BaseRemoveByIndex(unsigned number, unsigned slotsize, unsigned offset) {
    if (number >= m_slots || !is_live(key_of(slot(number, slotsize)))) return 0;
    char *place = slot(number, slotsize);
    owned_key key(std::exchange(key_of(place), removed_key()));
    --m_count;
    OnRemoveEntry(place + offset);
    try {
        AdjustTableSize(slotsize, offset);
    } catch (const std::bad_alloc &) {  // the larger table serves as well; the next removal tries again
    }
    return 1;
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
