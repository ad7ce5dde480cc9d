// Dictionaries: an untyped hash table keyed by texts, and thin templates that put a value type on it.
//
// Which slot an entry gets is fixed, because callers address entries by slot number: three sampled bytes
// of the key give the first slot and the step from slot to slot, and a new entry takes the first slot on
// that way that is empty or was removed. Many ordinary keys share one way, so a table that has grown
// keeps two memories beside itself: an index from keys to slots, and how far each crowded way is full.
// They change what an operation costs and nothing else.
//
// The number of slots is 0 or a power of two from 32 up; the table doubles above the high-water load and
// halves below the low-water load. A dictionary takes no locks; one thread at a time.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include <kelstdmt/element.h>
#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>
#include <kelstdmt/xtypes.h>

// Loads in percent.
struct xdictcontrol {
    unsigned low = 70;
    unsigned high = 90;
};

// A slot. The key is null for an empty slot, 1 for one whose entry was removed, else a copy of the key that
// the dictionary owns and may move with every change. The destructor destroys the value only.
template <class T>
struct xdictentry {
    char *key;
    // Doubles lie at a multiple of eight on every platform.
    static constexpr std::size_t alignment = std::is_same_v<T, double> ? 8 : alignof(T);
    static constexpr std::size_t offset = (sizeof(char *) + alignment - 1) / alignment * alignment;
    alignas(alignment) T value;
};
static_assert(sizeof(void *) != 4 || (sizeof(xdictentry<int>) == 8 && sizeof(xdictentry<double>) == 16 &&
                                      sizeof(xdictentry<xstring>) == 12));

namespace kel::detail {
class key_store;
class probe_chain;
}  // namespace kel::detail

class KELSTDMT_API xbasedictionary {
public:
    explicit xbasedictionary(const xdictcontrol *control = nullptr) noexcept;
    xbasedictionary(const xbasedictionary &) = delete;
    xbasedictionary &operator=(const xbasedictionary &) = delete;

    // Every operation takes the slot size and the value's offset in it. Answers are 1 when a live entry was
    // found. A key that is no text (null or a marker) is never found, and an internal error to set. The
    // key may be one that this table holds.
    xbool BaseFind(const char *key, void *out, unsigned slotsize, unsigned offset);  // out may be null
    void BaseSet(const char *key, const void *value, unsigned slotsize, unsigned offset);
    xbool BaseGetKeyByIndex(unsigned slot, xstring *key, unsigned slotsize, unsigned offset);
    xbool BaseGetByIndex(unsigned slot, void *out, unsigned slotsize, unsigned offset);
    xbool BaseSetByIndex(unsigned slot, const void *value, unsigned slotsize, unsigned offset);
    xbool BaseRemove(const char *key, unsigned slotsize, unsigned offset);
    xbool BaseRemoveByIndex(unsigned slot, unsigned slotsize, unsigned offset);
    void BaseClearAll(unsigned slotsize, unsigned offset);

    unsigned GetSlots() const noexcept { return m_slots; }
    unsigned GetCount() const noexcept { return m_count; }  // live entries

protected:
    // A table of slots whose values are constructed; the engine sets the keys.
    virtual void *OnAllocate(unsigned slots) = 0;
    virtual void OnDestroy(void *table, unsigned slots) = 0;
    virtual void OnCopyEntry(void *to, const void *from) = 0;
    virtual void OnRemoveEntry(void *value) = 0;  // gives up what the value holds; it can be assigned again

public:
    virtual ~xbasedictionary();

protected:
    // Assigns from a value that is given up; the table's own values move in this way when it is rebuilt.
    virtual void OnMoveEntry(void *to, void *from) = 0;

    void BaseFreeAllKeys(unsigned slotsize) noexcept;
    // From the default memory manager, freed with operator delete.
    static void *AllocateBlock(unsigned bytes) { return AllocateBlock(bytes, 1); }
    static void *AllocateBlock(unsigned slots, std::size_t slotsize);

    char *slot(unsigned number, unsigned slotsize) const noexcept {
        return m_table + std::size_t{number} * slotsize;
    }
    static char *&key_of(char *slot) noexcept { return *reinterpret_cast<char **>(slot); }
    static bool is_live(const char *key) noexcept { return kel::is_text(key); }

    char *m_table = nullptr;
    unsigned m_slots = 0;
    unsigned m_count = 0;
    unsigned m_low = 70;
    unsigned m_high = 90;

private:
    static constexpr unsigned smallest_large = 64;

    struct memory;  // what is kept beside the table
    struct known_key;
    struct former;

    bool is_large() const noexcept { return m_slots >= smallest_large; }
    unsigned FindIndex(const known_key &key, unsigned slotsize) const noexcept;
    unsigned TakeIndex(kel::detail::probe_chain way, unsigned slotsize) noexcept;
    void RemoveEntry(unsigned number, unsigned slotsize, unsigned offset);
    kel::detail::key_store AdjustTableSize(unsigned slotsize, unsigned offset);
    kel::detail::key_store Rebuild(unsigned slots, unsigned slotsize, unsigned offset);
    void MoveEntries(const former &old, bool packs, unsigned slotsize, unsigned offset);
    void PackKeys(unsigned slotsize);

    std::unique_ptr<memory> m_memory;
};

namespace kel::detail {
// kelXNegativeIndex or kelXInvalidDictIndex.
[[noreturn]] KELSTDMT_API void throw_dictionary_index(xobject *dictionary, int index);
}  // namespace kel::detail

// The typed interface. Entries are addressed by key or by slot number; a slot may be empty.
template <class T>
class xtbdictionary : public xobject, public xbasedictionary {
protected:
    using entry = xdictentry<T>;
    static constexpr unsigned slot_size = static_cast<unsigned>(sizeof(entry));
    static constexpr unsigned value_offset = static_cast<unsigned>(entry::offset);

public:
    using value_type = T;

    explicit xtbdictionary(const xdictcontrol *control = nullptr) noexcept : xbasedictionary(control) {}

    int getsize() const noexcept { return static_cast<int>(m_slots); }  // slots, not entries
    int getcount() const noexcept { return static_cast<int>(m_count); }

    void set(const char *key, T value) { BaseSet(key, &value, slot_size, value_offset); }
    bool find(const char *key, T &value) { return BaseFind(key, &value, slot_size, value_offset) != 0; }
    bool haskey(const char *key) { return BaseFind(key, nullptr, slot_size, value_offset) != 0; }
    bool remove(const char *key) { return BaseRemove(key, slot_size, value_offset) != 0; }
    void clear() { BaseClearAll(slot_size, value_offset); }

    // By slot number: false for an empty slot, and beyond the slots except where an exception is named.
    // A negative number is kelXNegativeIndex.
    bool getkeybyindex(int index, xstring &key) {
        return BaseGetKeyByIndex(number(index), &key, slot_size, value_offset) != 0;
    }
    bool getbyindex(int index, T &value) {
        return BaseGetByIndex(number(index), &value, slot_size, value_offset) != 0;
    }
    // kelXInvalidDictIndex beyond the slots.
    bool setbyindex(int index, T value) {
        return BaseSetByIndex(existing(index), &value, slot_size, value_offset) != 0;
    }
    bool removebyindex(int index) { return BaseRemoveByIndex(existing(index), slot_size, value_offset) != 0; }

    // The live entries in slot order, until the dictionary next changes:
    //     for (auto [key, value] : dictionary) ...
    struct item {
        const char *key;
        T &value;
    };
    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = item;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = item;

        iterator() = default;
        item operator*() const { return {m_at->key, m_at->value}; }
        iterator &operator++() {
            ++m_at;
            skip();
            return *this;
        }
        iterator operator++(int) {
            iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const iterator &other) const = default;

    private:
        friend class xtbdictionary;
        iterator(entry *at, entry *end) : m_at(at), m_end(end) { skip(); }
        void skip() {
            while (m_at != m_end && !is_live(m_at->key))
                ++m_at;
        }
        entry *m_at = nullptr, *m_end = nullptr;
    };
    iterator begin() { return {table(), table() + m_slots}; }
    iterator end() { return {table() + m_slots, table() + m_slots}; }

protected:
    void *OnAllocate(unsigned slots) override {
        entry *block = static_cast<entry *>(AllocateBlock(slots, sizeof(entry)));
        if constexpr (!std::is_trivially_default_constructible_v<T>) {
            unsigned done = 0;
            try {
                for (; done < slots; ++done)
                    ::new (&block[done].value) T();
            } catch (...) {
                OnDestroy(block, done);
                throw;
            }
        }
        return block;
    }
    void OnDestroy(void *block, unsigned slots) override {
        if constexpr (!std::is_trivially_destructible_v<T>)
            for (unsigned i = 0; i < slots; ++i)
                static_cast<entry *>(block)[i].value.~T();
        operator delete(block, pDefMemMgr);
    }
    void OnCopyEntry(void *to, const void *from) override {
        kel::detail::replace_element(*static_cast<T *>(to), *static_cast<const T *>(from));
    }
    void OnMoveEntry(void *to, void *from) override {
        // A move that may throw could not be taken back.
        if constexpr (kel::detail::empties_before_assignment<T> || std::is_nothrow_move_assignable_v<T> ||
                      !std::is_copy_assignable_v<T>)
            kel::detail::replace_element(*static_cast<T *>(to), std::move(*static_cast<T *>(from)));
        else
            *static_cast<T *>(to) = *static_cast<const T *>(from);
    }

private:
    entry *table() const noexcept { return reinterpret_cast<entry *>(m_table); }
    unsigned number(int index) {
        if (index < 0) kel::detail::throw_dictionary_index(this, index);
        return static_cast<unsigned>(index);
    }
    unsigned existing(int index) {
        if (static_cast<unsigned>(index) >= m_slots) kel::detail::throw_dictionary_index(this, index);
        return static_cast<unsigned>(index);
    }
};

// Values that are copied as bytes.
template <class T>
class xtsdictionary : public xtbdictionary<T> {
    static_assert(std::is_trivially_copyable_v<T>, "kelstdmt: values of this type need xtcdictionary");

public:
    using xtbdictionary<T>::xtbdictionary;
    ~xtsdictionary() override { this->clear(); }

protected:
    void OnRemoveEntry(void *) override {}
};

// Values with constructors, destructors and assignment.
template <class T>
class xtcdictionary : public xtbdictionary<T> {
public:
    using xtbdictionary<T>::xtbdictionary;
    ~xtcdictionary() override { this->clear(); }

protected:
    void OnRemoveEntry(void *value) override { kel::detail::replace_element(*static_cast<T *>(value), T()); }
};

namespace kel {
// The layer that fits a value type.
template <class T>
using dictionary_of = std::conditional_t<std::is_trivially_copyable_v<T>, xtsdictionary<T>, xtcdictionary<T>>;
}  // namespace kel
