// Growable arrays.
//
// An array has a capacity that follows a fixed step and is what callers see. The memory behind it is taken
// in growing portions, so that appending n elements costs n; only an exact array holds just its capacity.
// Every element of a block is constructed when the block is made and destroyed with it: elements beyond the
// size have their default value. So an element type needs a default value, and no over-alignment.
//
// The container templates take no locks; one thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include <kelstdmt/dsiter.h>
#include <kelstdmt/element.h>
#include <kelstdmt/vumrt.h>

// How the elements of a container are stored. A class that overrides AllocElems or FreeElems empties the
// array in its own destructor (FreeArray): later its operations are no longer heard.
template <class T>
class dsDataCollection {
    static_assert(alignof(T) <= alignof(std::max_align_t),
                  "kelstdmt: over-aligned elements are not supported");

public:
    virtual ~dsDataCollection() = default;
    virtual bool IsEmpty() const = 0;

protected:
    dsDataCollection() = default;
    dsDataCollection(const dsDataCollection &) = default;
    dsDataCollection &operator=(const dsDataCollection &) = default;

    // A block of n elements from the default memory manager; null for 0.
    virtual T *AllocElems(unsigned n) {
        if (n == 0) return nullptr;
        if (n > (std::numeric_limits<std::size_t>::max() - header) / sizeof(T)) throw std::bad_alloc();
        char *block = static_cast<char *>(operator new(header + n * sizeof(T), pDefMemMgr));
        T *elements = reinterpret_cast<T *>(block + header);
        try {
            std::uninitialized_default_construct_n(elements, n);
        } catch (...) {
            ::operator delete(block);
            throw;
        }
        if constexpr (header > 0) ::new (block) unsigned(n);
        return elements;
    }
    virtual T *ReallocElems(T *elements, unsigned oldcount, unsigned newcount) {
        T *moved = AllocElems(newcount);
        MoveElems(elements, moved, std::min(oldcount, newcount));
        FreeElems(elements);
        return moved;
    }
    // Leaves null behind.
    virtual void FreeElems(T *&elements) {
        if (!elements) return;
        char *block = reinterpret_cast<char *>(elements) - header;
        if constexpr (header > 0)
            std::destroy_n(elements, *std::launder(reinterpret_cast<unsigned *>(block)));
        ::operator delete(block);
        elements = nullptr;
    }
    // Assigns n elements; the ranges may overlap.
    virtual void CopyElems(const T *from, T *to, unsigned n) {
        if constexpr (!std::is_copy_assignable_v<T>) {
            _Abort("dsDataCollection::CopyElems ()", "containers/dsarray", __LINE__);
        } else {
            kel::detail::copy_elements(from, to, n);
        }
    }
    // The same from elements that are given up.
    virtual void MoveElems(T *from, T *to, unsigned n) {
        if constexpr (std::is_trivially_copyable_v<T>) {
            CopyElems(from, to, n);
        } else {
            kel::detail::move_elements(from, to, n);
        }
    }
    // n elements leave the container: objects get their default value, so that what they hold is released.
    virtual void CleanupElems(T *elements, unsigned n) {
        if constexpr (!std::is_trivially_destructible_v<T>)
            for (T *end = elements + n; elements != end; ++elements)
                kel::detail::replace_element(*elements, T());
    }

private:
    // Blocks of elements that want a destructor begin with their number.
    static constexpr std::size_t header =
        std::is_trivially_destructible_v<T> ? 0 : std::max(alignof(T), sizeof(unsigned));
};

// How an array grows: by the step, in elements (0: 256). With exact set, every change of size trims the
// capacity, and memory given up is given back at once.
struct dsXACtrl {
    bool exact = false;
    unsigned step = 0;
};

template <class T>
class dsXArray : public dsDataCollection<T> {
public:
    using value_type = T;
    static constexpr unsigned DefaultStep = 256;

    explicit dsXArray(const dsXACtrl *control = nullptr) noexcept {
        if (!control) return;
        m_exact = control->exact;
        if (control->step > 0) m_step = control->step;
    }
    dsXArray(dsXArray &&other) noexcept { Swap(other); }
    dsXArray &operator=(dsXArray &&other) noexcept {
        if (this != &other) {
            FreeArray();
            Swap(other);
        }
        return *this;
    }
    ~dsXArray() override { FreeArray(); }

    unsigned GetSize() const noexcept { return m_size; }
    unsigned GetCapacity() const noexcept { return m_capacity; }
    bool IsEmpty() const override { return m_size == 0; }
    // The elements in place, until the array next changes its size; null without any capacity.
    T *GetDataPtr() const noexcept { return m_data; }

    // 0 for 0, else n rounded up to a multiple of the step (n itself where 32 bits cannot hold that).
    unsigned OptimizeSize(unsigned n) const noexcept {
        unsigned over = n % m_step, missing = over ? m_step - over : 0;
        return n > std::numeric_limits<unsigned>::max() - missing ? n : n + missing;
    }

    // New elements have their default value.
    void Resize(unsigned size) {
        unsigned before = m_size;
        if (size < before) this->CleanupElems(m_data + size, before - size);
        m_size = std::min(size, before);
        if (m_exact || size > m_capacity) SetCapacity(OptimizeSize(size));
        // What has no destructor was not cleaned up when it left.
        if constexpr (std::is_trivially_destructible_v<T>)
            for (unsigned i = before; i < size; ++i)
                m_data[i] = T();
        m_size = size;
    }
    void Append(T value) {
        if (m_size == std::numeric_limits<unsigned>::max()) throw std::bad_alloc();
        Resize(m_size + 1);
        m_data[m_size - 1] = std::move(value);
    }
    // Empties the array and gives its memory back.
    void FreeArray() noexcept {
        if (m_size > 0) this->CleanupElems(m_data, m_size);
        this->FreeElems(m_data);
        m_size = m_capacity = m_room = 0;
    }

    T *begin() noexcept { return m_data; }
    T *end() noexcept { return m_data + m_size; }
    const T *begin() const noexcept { return m_data; }
    const T *end() const noexcept { return m_data + m_size; }

protected:
    bool IsExact() const noexcept { return m_exact; }
    void Swap(dsXArray &other) noexcept {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_room, other.m_room);
        std::swap(m_exact, other.m_exact);
        std::swap(m_step, other.m_step);
    }

private:
    void SetCapacity(unsigned capacity) {
        if (m_exact ? capacity != m_room : capacity > m_room) {
            unsigned room = m_exact ? capacity : std::max(capacity, Portion());
            if (room == 0) {
                this->FreeElems(m_data);
            } else {
                m_data = m_data ? this->ReallocElems(m_data, m_room, room) : this->AllocElems(room);
            }
            m_room = room;
        }
        m_capacity = capacity;
    }
    unsigned Portion() const noexcept {
        return m_room > std::numeric_limits<unsigned>::max() / 3 * 2 ? m_room : m_room + m_room / 2;
    }

    T *m_data = nullptr;
    unsigned m_size = 0;
    unsigned m_capacity = 0;
    unsigned m_room = 0;  // elements behind the buffer
    bool m_exact = false;
    unsigned m_step = DefaultStep;
};

// A map whose keys are indices. What a map does not support is reported as an internal error and answers
// false.
template <class T, class I>
class dsDataMap {
public:
    virtual ~dsDataMap() = default;

    virtual bool Contains(I index) const = 0;
    // Reports an index that the map does not have, and answers a default value.
    virtual T &operator[](I index) = 0;
    virtual dsIter<T> GetIter() = 0;

    virtual bool Add(I, const T &) { return Unsupported("dsDataMap::Add ()"); }
    virtual bool Remove(I) { return Unsupported("dsDataMap::Remove ()"); }
    virtual bool Find(I, T &) const { return Unsupported("dsDataMap::Find ()"); }

protected:
    dsDataMap() = default;
    dsDataMap(const dsDataMap &) = default;
    dsDataMap &operator=(const dsDataMap &) = default;

private:
    static bool Unsupported(const char *operation) {
        _Abort(operation, "containers/dsarray", __LINE__);
        return false;
    }
};

template <class T>
class dsArray : public dsXArray<T>, public dsDataMap<T, unsigned> {
public:
    using dsXArray<T>::dsXArray;

    bool Contains(unsigned index) const override { return index < this->GetSize(); }
    T &operator[](unsigned index) override { return Element(index); }
    const T &operator[](unsigned index) const { return Element(index); }
    dsIter<T> GetIter() override { return dsIter<T>(new dsArrayIter<T>(*this)); }

private:
    T &Element(unsigned index) const {
        if (index < this->GetSize()) [[likely]]
            return this->GetDataPtr()[index];
        _Abort("dsArray::operator [] failed", "containers/dsarray", __LINE__);
        return kel::detail::fallback_value<T>();
    }
};

// For elements that are copied as bytes.
template <class T>
class dsStraightArray : public dsArray<T> {
    static_assert(std::is_trivially_copyable_v<T>, "kelstdmt: elements of this type need dsArray");

public:
    using dsArray<T>::dsArray;
};
