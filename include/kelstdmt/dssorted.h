// Sets and maps held as a sorted array, in the order of a virtual comparison.
//
// Putting an element into a long array moves what lies behind it, and n elements in random order would
// cost n squared. So the array is two sorted runs: behind the main run a short one collects late comers,
// and is merged into the main run when it has grown to about the square root of the size. And taking an
// element out of a long main run only moves the rest of its segment: of each segment the elements come first,
// then vacant slots, until a segment is empty and all gaps are closed. Walks see one ascending sequence.
//
// Keys are stored through CopyKey and given up through FreeKey. A class that overrides FreeKey calls Clear
// in its own destructor: later its operation is no longer heard. Compare must not throw, and must not
// change the container.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <numeric>
#include <type_traits>
#include <utility>

#include <kelstdmt/dsarray.h>

template <class V, class K>
struct dsSortedMapEntry {
    V value;
    K key;
};

namespace kel::detail {

template <class K>
inline constexpr bool empties_before_assignment<dsSortedMapEntry<xany, K>> = true;

template <class T>
const T &sorted_key(const T &element) {
    return element;
}
template <class V, class K>
const K &sorted_key(const dsSortedMapEntry<V, K> &element) {
    return element.key;
}

// What a walk sees of a sorted container: element E, key K, whatever the storage.
template <class E, class K>
class sorted_runs {
public:
    virtual ~sorted_runs() = default;

    static constexpr unsigned segment = 512;  // slots of the main run

    // The main run is [0, main), the late comers are [main, end).
    struct extent {
        E *elements;
        unsigned main, end;
        const unsigned *live;  // elements of each segment, at least one; null: no slot is vacant

        // The slot, or the one behind the gap that it is in.
        unsigned Skip(unsigned slot) const noexcept {
            if (!live || slot >= main || slot % segment < live[slot / segment]) return slot;
            return std::min(main, slot - slot % segment + segment);
        }
    };
    virtual extent GetExtent() const = 0;

    virtual int Compare(K a, K b) const = 0;  // negative, 0 or positive

protected:
    virtual K CopyKey(K key) { return key; }
    virtual void FreeKey(K) {}

    // The first element of [from, to) whose key is not below the given one, and whether it is equal.
    unsigned Search(const E *elements, unsigned from, unsigned to, const K &key, bool &found) const {
        while (from < to) {
            unsigned middle = from + (to - from) / 2;
            int order = Compare(sorted_key(elements[middle]), key);
            if (order == 0) {
                found = true;
                return middle;
            }
            (order < 0 ? from : to) = order < 0 ? middle + 1 : middle;
        }
        found = false;
        return from;
    }
};

// The place of a walk in both runs.
template <class E, class K>
class sorted_cursor {
public:
    sorted_cursor() = default;
    explicit sorted_cursor(const sorted_runs<E, K> &runs) : m_runs(&runs), m_late(runs.GetExtent().main) {}

    // The element with the lower key of the two at hand; null at the end.
    E *element() const {
        const auto runs = m_runs->GetExtent();
        const unsigned at = runs.Skip(m_main);
        E *elements = runs.elements;
        bool in_main = at < runs.main, in_late = m_late < runs.end;
        if (in_main && in_late)
            in_late = m_runs->Compare(sorted_key(elements[m_late]), sorted_key(elements[at])) < 0;
        return in_late ? elements + m_late : in_main ? elements + at : nullptr;
    }
    void advance() {
        E *present = element();
        if (!present) return;
        const auto runs = m_runs->GetExtent();
        const unsigned at = runs.Skip(m_main);
        if (present == runs.elements + at) {
            m_main = at + 1;
        } else {
            ++m_late;
        }
    }

private:
    const sorted_runs<E, K> *m_runs = nullptr;
    unsigned m_main = 0, m_late = 0;
};

// For range-for.
template <class E, class K>
class sorted_iterator {
public:
    using value_type = E;
    using reference = E &;
    using pointer = E *;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;

    sorted_iterator() = default;
    explicit sorted_iterator(const sorted_runs<E, K> &runs) : m_cursor(runs), m_element(m_cursor.element()) {}
    E &operator*() const noexcept { return *m_element; }
    E *operator->() const noexcept { return m_element; }
    sorted_iterator &operator++() {
        m_cursor.advance();
        m_element = m_cursor.element();
        return *this;
    }
    sorted_iterator operator++(int) {
        sorted_iterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(const sorted_iterator &a, const sorted_iterator &b) noexcept {
        return a.m_element == b.m_element;
    }

private:
    sorted_cursor<E, K> m_cursor;
    E *m_element = nullptr;
};

// The walk of a set: its elements are its keys.
template <class T>
class sorted_set_iter final : public dsBaseIter<T> {
public:
    explicit sorted_set_iter(const sorted_runs<T, T> &runs) : m_runs(&runs), m_cursor(runs) {}
    void SetAtFirst() override { m_cursor = sorted_cursor<T, T>(*m_runs); }
    bool Finished() const override { return !m_cursor.element(); }
    void MoveToNext() override { m_cursor.advance(); }
    T &Current() const override {
        if (T *element = m_cursor.element()) return *element;
        _Abort("dsSortedSetIter::Current", "containers/dssorted", __LINE__);
        return fallback_value<T>();
    }
    dsBaseIter<T> *Reproduce() const override { return new sorted_set_iter(*m_runs); }

private:
    const sorted_runs<T, T> *m_runs;
    sorted_cursor<T, T> m_cursor;
};

// The engine of sets and maps. A is the array of elements E.
template <class A, class E, class K>
class sorted_array : public sorted_runs<E, K>, protected A {
public:
    explicit sorted_array(const dsXACtrl *control = nullptr) noexcept : A(control) {}
    sorted_array(sorted_array &&other) noexcept
        : A(std::move(other)),
          m_main(std::exchange(other.m_main, 0U)),
          m_live(std::move(other.m_live)),
          m_vacant(std::exchange(other.m_vacant, 0U)) {}
    sorted_array &operator=(sorted_array &&other) noexcept {
        if (this != &other) {
            Clear();
            A::operator=(std::move(other));
            m_main = std::exchange(other.m_main, 0U);
            m_live = std::move(other.m_live);
            m_vacant = std::exchange(other.m_vacant, 0U);
        }
        return *this;
    }

    using A::GetCapacity;
    using A::IsEmpty;

    unsigned GetSize() const noexcept { return A::GetSize() - m_vacant; }
    typename sorted_runs<E, K>::extent GetExtent() const override {
        return {this->GetDataPtr(), m_main, A::GetSize(), m_live.get()};
    }
    bool Contains(K key) const { return Locate(key) != nullptr; }
    // False when there is no such key.
    bool Remove(K key) {
        E *element = Locate(key);
        if (!element) return false;
        K stored = sorted_key(*element);
        Take(static_cast<unsigned>(element - this->GetDataPtr()));
        this->FreeKey(stored);
        return true;
    }
    // Frees all keys.
    void Clear() {
        const auto runs = GetExtent();
        for (unsigned i = 0; i < runs.end; i = runs.Skip(i + 1))
            this->FreeKey(sorted_key(runs.elements[i]));
        m_main = m_vacant = 0;
        m_live.reset();
        this->Resize(0);
    }

    using iterator = sorted_iterator<E, K>;
    iterator begin() const { return iterator(*this); }
    iterator end() const { return iterator(); }

protected:
    E *Locate(const K &key) const {
        const auto runs = GetExtent();
        bool found = false;
        unsigned index = SearchMain(key, found);
        if (!found && runs.main < runs.end)
            index = this->Search(runs.elements, runs.main, runs.end, key, found);
        return found ? runs.elements + index : nullptr;
    }
    // How many keys are below the given one.
    bool Rank(const K &key, unsigned &rank) const {
        const auto runs = GetExtent();
        bool in_main = false, in_late = false;
        rank = SearchMain(key, in_main);
        if (m_live) rank = rank == m_main ? m_main - m_vacant : LiveBelow(rank);
        rank += this->Search(runs.elements, runs.main, runs.end, key, in_late) - runs.main;
        return in_main || in_late;
    }
    // Adds a key and answers its element, or null when the key is there already.
    E *Insert(const K &key) {
        const auto [elements, main, end, live] = GetExtent();
        bool found = false;
        unsigned index = main;
        if (live || (main > 0 && this->Compare(sorted_key(elements[main - 1]), key) >= 0))
            index = SearchMain(key, found);
        bool late = !found && (live || main < end || main - index > direct_move);
        if (late) index = this->Search(elements, main, end, key, found);
        if (found) return nullptr;
        Open(index, key);
        if (!late) ++m_main;
        return late && end - main >= late_limit(end) ? Locate(Merge(key)) : this->GetDataPtr() + index;
    }

private:
    using sorted_runs<E, K>::segment;
    static constexpr unsigned direct_move = segment;  // elements that a change may move at once
    static unsigned late_limit(unsigned size) {
        return static_cast<unsigned>(std::sqrt(2.0 * static_cast<double>(size)));
    }

    // As Search, in the main run: first the segment whose last element is not below the key.
    unsigned SearchMain(const K &key, bool &found) const {
        E *elements = this->GetDataPtr();
        if (!m_live) return this->Search(elements, 0, m_main, key, found);
        unsigned from = 0;
        for (unsigned to = segments(); from < to;) {
            unsigned middle = from + (to - from) / 2, last = middle * segment + m_live[middle] - 1;
            bool below = this->Compare(sorted_key(elements[last]), key) < 0;
            (below ? from : to) = below ? middle + 1 : middle;
        }
        if (from == segments()) return m_main;
        return this->Search(elements, from * segment, from * segment + m_live[from], key, found);
    }
    unsigned segments() const noexcept { return (m_main + segment - 1) / segment; }
    unsigned LiveBelow(unsigned slot) const {
        return std::accumulate(m_live.get(), m_live.get() + slot / segment, slot % segment);
    }

    // Takes out an element, whose key is not freed.
    void Take(unsigned index) {
        E *elements = this->GetDataPtr();
        unsigned end = A::GetSize();
        if (index < m_main && (m_live || (m_main - index > direct_move && MayHaveGaps()))) {
            unsigned &live = m_live[index / segment];
            unsigned last = index - index % segment + live - 1;
            this->MoveElems(elements + index + 1, elements + index, last - index);
            this->CleanupElems(elements + last, 1);
            ++m_vacant;
            if (--live == 0) CloseGaps();
        } else {
            this->MoveElems(elements + index + 1, elements + index, end - index - 1);
            if (index < m_main) --m_main;
            this->Resize(end - 1);
        }
    }
    // An exact array gives memory back at once. Without memory for the numbers it goes as in a short array.
    bool MayHaveGaps() {
        if (this->IsExact()) return false;
        m_live.reset(new (std::nothrow) unsigned[segments()]);
        for (unsigned i = 0; m_live && i < segments(); ++i)
            m_live[i] = std::min(segment, m_main - i * segment);
        return m_live != nullptr;
    }
    void CloseGaps() {
        auto [elements, main, end, live] = GetExtent();
        unsigned closed = 0;
        for (unsigned i = 0; i < segments(); closed += live[i++])
            this->MoveElems(elements + i * segment, elements + closed, live[i]);
        this->MoveElems(elements + main, elements + closed, end - main);
        m_main = closed;
        m_vacant = 0;
        m_live.reset();
        this->Resize(closed + end - main);
    }

    // A new element with a copy of the key; nothing has changed when that throws.
    void Open(unsigned index, const K &key) {
        unsigned end = A::GetSize();
        this->Append(E());
        E *elements = this->GetDataPtr();
        E added{};
        try {
            set_key(added, this->CopyKey(key));
        } catch (...) {
            this->Resize(end);
            throw;
        }
        this->MoveElems(elements + index, elements + index + 1, end - index);
        elements[index] = std::move(added);
    }
    static void set_key(E &element, K key) {
        if constexpr (std::is_same_v<E, K>) {
            element = std::move(key);
        } else {
            element.key = std::move(key);
        }
    }

    // Blocks of the main run move up from the back, each making room for the late comer below it.
    const K &Merge(const K &key) {
        if (m_live) CloseGaps();
        auto [elements, main, end, live] = GetExtent();
        unsigned left = end - main;
        E *late = this->AllocElems(left);
        this->MoveElems(elements + main, late, left);
        for (unsigned rest = main; left > 0; --left) {
            bool found = false;
            unsigned at = this->Search(elements, 0, rest, sorted_key(late[left - 1]), found);
            this->MoveElems(elements + at, elements + at + left, rest - at);
            elements[at + left - 1] = std::move(late[left - 1]);
            rest = at;
        }
        this->FreeElems(late);
        m_main = end;
        return key;
    }

    unsigned m_main = 0;
    std::unique_ptr<unsigned[]> m_live;  // as extent::live
    unsigned m_vacant = 0;
};

}  // namespace kel::detail

// Sets -----------------------------------------------------------------------------------------

template <class A, class T>
class dsBaseSortedSet : public kel::detail::sorted_array<A, T, T> {
public:
    using kel::detail::sorted_array<A, T, T>::sorted_array;

    // False when the key is there already.
    bool operator+=(T key) { return this->Insert(key) != nullptr; }
    bool Add(T key) { return this->Insert(key) != nullptr; }
    // False when there is no such key.
    bool operator-=(T key) { return this->Remove(std::move(key)); }
    // The key's place in ascending order, or the one that it would take.
    bool FindIndex(T key, unsigned &index) const { return this->Rank(key, index); }
    // The elements must not be changed so that their order changes.
    dsIter<T> GetIter() { return dsIter<T>(new kel::detail::sorted_set_iter<T>(*this)); }
};

// Scalars by their value as unsigned numbers, pointers by their address.
template <class A, class T>
class dsBaseScalarSet : public dsBaseSortedSet<A, T> {
    static_assert(std::is_integral_v<T> || std::is_enum_v<T> || std::is_pointer_v<T>,
                  "kelstdmt: a scalar set holds integers, enumerators or pointers");

public:
    using dsBaseSortedSet<A, T>::dsBaseSortedSet;

    int Compare(T a, T b) const override {
        auto left = number(a), right = number(b);
        return (left > right) - (left < right);
    }

private:
    static std::uintmax_t number(T value) noexcept {
        if constexpr (std::is_pointer_v<T>) {
            return reinterpret_cast<std::uintptr_t>(value);
        } else if constexpr (std::is_same_v<T, bool>) {
            return value;
        } else {
            return static_cast<std::make_unsigned_t<T>>(value);
        }
    }
};

template <class T>
class dsScalarSet : public dsBaseScalarSet<dsXArray<T>, T> {
public:
    using dsBaseScalarSet<dsXArray<T>, T>::dsBaseScalarSet;
};

// A set in the order that the deriving class gives with Compare.
template <class T>
class dsSortedSet : public dsBaseSortedSet<dsXArray<T>, T> {
public:
    using dsBaseSortedSet<dsXArray<T>, T>::dsBaseSortedSet;
};

// Maps -----------------------------------------------------------------------------------------

// The values in the order of their keys.
template <class V, class K>
class dsSortedMapIter final : public dsBaseIter<V> {
    using entry = dsSortedMapEntry<V, K>;

public:
    explicit dsSortedMapIter(const kel::detail::sorted_runs<entry, K> &map) : m_map(&map), m_cursor(map) {}

    void SetAtFirst() override { m_cursor = kel::detail::sorted_cursor<entry, K>(*m_map); }
    bool Finished() const override { return !m_cursor.element(); }
    void MoveToNext() override { m_cursor.advance(); }
    V &Current() const override { return Entry().value; }
    const K &CurrentKey() const { return Entry().key; }
    dsBaseIter<V> *Reproduce() const override { return new dsSortedMapIter(*m_map); }

private:
    entry &Entry() const {
        if (entry *element = m_cursor.element()) return *element;
        _Abort("dsSortedMapIter::Current", "containers/dssorted", __LINE__);
        return kel::detail::fallback_value<entry>();
    }

    const kel::detail::sorted_runs<entry, K> *m_map;
    kel::detail::sorted_cursor<entry, K> m_cursor;
};

template <class A, class V, class K>
class dsBaseSortedMap : public kel::detail::sorted_array<A, dsSortedMapEntry<V, K>, K> {
public:
    using kel::detail::sorted_array<A, dsSortedMapEntry<V, K>, K>::sorted_array;

    // A key that is there already is refused and keeps its value.
    bool Add(K key, V value) {
        dsSortedMapEntry<V, K> *added = this->Insert(key);
        if (added) added->value = std::move(value);
        return added != nullptr;
    }
    // Copies the value; without such a key it is left alone.
    bool Find(K key, V &value) const {
        const dsSortedMapEntry<V, K> *found = this->Locate(key);
        if (found) value = found->value;
        return found != nullptr;
    }
    // Valid until the next addition or removal. A key that is absent is an internal error and answers a
    // default value.
    V &operator[](K key) { return Value(key); }
    const V &operator[](K key) const { return Value(key); }
    dsIter<V> GetIter() { return dsIter<V>(new dsSortedMapIter<V, K>(*this)); }

private:
    V &Value(const K &key) const {
        if (dsSortedMapEntry<V, K> *found = this->Locate(key)) return found->value;
        _Abort("dsSortedMap::operator [] failed", "containers/dssorted", __LINE__);
        return kel::detail::fallback_value<V>();
    }
};

// By the key's own order.
template <class V, class K>
class dsSortedMap : public dsBaseSortedMap<dsXArray<dsSortedMapEntry<V, K>>, V, K> {
public:
    using dsBaseSortedMap<dsXArray<dsSortedMapEntry<V, K>>, V, K>::dsBaseSortedMap;

    int Compare(K a, K b) const override { return a < b ? -1 : b < a ? 1 : 0; }
};

// Keeps the caller's key pointers. Texts compare byte by byte, a null pointer comes before all.
template <class V>
class dsNonOwnerStringMap : public dsSortedMap<V, const char *> {
public:
    using dsSortedMap<V, const char *>::dsSortedMap;

    int Compare(const char *a, const char *b) const override {
        if (a == b) return 0;
        return a && b ? std::strcmp(a, b) : a ? 1 : -1;
    }
};

// Owns copies of its keys.
template <class V>
class dsStringMap : public dsNonOwnerStringMap<V> {
public:
    using dsNonOwnerStringMap<V>::dsNonOwnerStringMap;
    dsStringMap(dsStringMap &&) noexcept = default;
    dsStringMap &operator=(dsStringMap &&) noexcept = default;
    ~dsStringMap() override { this->Clear(); }

protected:
    const char *CopyKey(const char *key) override { return Strnew__(key); }
    void FreeKey(const char *key) override { ::operator delete(const_cast<char *>(key)); }
};
