// Sequences: an untyped engine that manages bytes through four callbacks, and thin templates that put an
// element type on it.
//
// The engine's capacity follows fixed steps (256 bytes unless told otherwise). How much memory lies behind
// it is the layer's business: the layers here take memory in growing portions, so that appending n
// elements costs n. Every element below the size is constructed, none above it is.
//
// A sequence takes no locks; one thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include <kelstdmt/element.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xtypes.h>

class xstring;
class xany;

namespace kel {
// Whether an object may be carried to another place by its bytes alone, in place of a move to there and a
// destruction here: nothing points at it, and it points at nothing within itself.
template <class T>
inline constexpr bool relocatable = std::is_trivially_copyable_v<T>;
template <>
inline constexpr bool relocatable<xstring> = true;
template <>
inline constexpr bool relocatable<xany> = true;
template <class T>
inline constexpr bool relocatable<xrchandle<T>> = true;
template <class T>
inline constexpr bool relocatable<xrcunihandle<T>> = true;
}  // namespace kel

// How a sequence grows: by the step, in bytes (0: 256); with exact set, every change of size trims the
// capacity to the size rounded up to the step, and a capacity given up is memory given back.
struct xseqcontrol {
    xbool exact = 0;
    unsigned step = 0;
};

class KELSTDMT_API xbasesequence {
public:
    explicit xbasesequence(const xseqcontrol *control = nullptr) noexcept { Init(control); }
    xbasesequence(const xbasesequence &) = delete;
    xbasesequence &operator=(const xbasesequence &) = delete;

    // Positions and sizes are bytes, multiples of the element size. A size that 32 bits cannot hold is
    // std::length_error, and nothing has changed. `from` may lie within this sequence. When copying an
    // element throws, growth and gap are taken back.
    // Forgets the buffer without giving it back: for a sequence that has none.
    void Init(const xseqcontrol *control) noexcept;
    void Resize(unsigned bytes);
    // Overwrites at a position, growing the sequence where it is too short.
    void BaseCopy(unsigned at, unsigned bytes, const void *from);
    // Opens a gap of elements with their default value; beyond the end, the way there is filled too.
    void BaseInsertEmpty(unsigned at, unsigned bytes);
    void BaseInsert(unsigned at, unsigned bytes, const void *from);
    // The bytes between the positions, in either order, clipped to the size.
    void BaseRemove(unsigned from, unsigned to);

    unsigned GetSize() const noexcept { return m_size; }
    unsigned GetCapacity() const noexcept { return m_capacity; }

protected:
    // A buffer for the new capacity that holds the elements up to the smaller of it and the size; null for
    // 0. Those beyond the new capacity are destroyed.
    virtual void *OnResize(unsigned capacity) = 0;
    virtual void OnAllocate(void *at, unsigned bytes) = 0;  // constructs elements with their default value
    virtual void OnDestroy(void *at, unsigned bytes) = 0;
    virtual void OnCopy(void *to, const void *from, unsigned bytes) = 0;  // assigns; no overlap

public:
    virtual ~xbasesequence();

protected:
    // Assigns from elements that are given up; the ranges may overlap.
    virtual void OnMove(void *to, void *from, unsigned bytes) = 0;

    // Makes capacity for that many bytes more, at the end, without constructing anything there.
    void BaseReserve(unsigned bytes);

    char *m_buffer = nullptr;
    unsigned m_size = 0;
    unsigned m_capacity = 0;
    xbool m_exact = 0;
    unsigned m_step = 256;

private:
    unsigned wanted_capacity(unsigned bytes) const;
    void take_capacity(unsigned capacity);
    bool holds(const void *from, unsigned bytes) const noexcept;
    void assign_within(unsigned to, unsigned from, unsigned bytes);
    void open_gap(unsigned at, unsigned bytes);
    void close_gap(unsigned at, unsigned bytes, unsigned before);
};

namespace kel::detail {
// kelXNegativeIndex or, at the count and beyond, kelXInvalidSeqIndex.
[[noreturn]] KELSTDMT_API void throw_sequence_index(xobject *sequence, int index);
[[noreturn]] KELSTDMT_API void throw_sequence_length();  // std::length_error
// The byte position of an element; kelXNegativeIndex, and std::length_error beyond what 32 bits hold.
KELSTDMT_API unsigned sequence_offset(int index, std::size_t elementsize);
// Memory of a sequence's buffer, from the C heap; null for no bytes. std::bad_alloc when there is none.
KELSTDMT_API void *sequence_memory(void *block, std::size_t bytes);
KELSTDMT_API void sequence_free(void *block) noexcept;
// How much to take for a wanted size when the present one is too small.
KELSTDMT_API std::size_t sequence_portion(std::size_t present, std::size_t wanted) noexcept;

// Elements are counted as int.
template <class T>
std::size_t sequence_room(std::size_t present, unsigned capacity, bool exact) {
    if (sizeof(T) == 1 && capacity > unsigned{std::numeric_limits<int>::max()}) throw_sequence_length();
    return exact ? capacity : sequence_portion(present, capacity);
}
}  // namespace kel::detail

// The typed interface. Indices and counts are elements.
template <class T>
class xtbsequence : public xobject, public xbasesequence {
public:
    using value_type = T;

    explicit xtbsequence(const xseqcontrol *control = nullptr) noexcept : xbasesequence(control) {}

    int getarraysize() const noexcept { return static_cast<int>(m_size / sizeof(T)); }
    // kelXNegativeIndex below 0, kelXInvalidSeqIndex at the count and beyond.
    T get(int index) {
        if (!has(index)) [[unlikely]]
            kel::detail::throw_sequence_index(this, index);
        return data()[index];
    }
    // The same element in place, until the sequence next changes.
    const T &operator[](int index) const {
        if (!has(index)) [[unlikely]]
            kel::detail::throw_sequence_index(const_cast<xtbsequence *>(this), index);
        return data()[index];
    }
    // Beyond the end the sequence grows; elements on the way have their default value (0, null, a nil
    // string). A negative index is kelXNegativeIndex.
    void set(int index, T value) {
        if (has(index)) [[likely]]
            kel::detail::replace_element(data()[index], std::move(value));
        else
            BaseCopy(offset(index), sizeof(T), &value);
    }
    void insert(int index, T value) { BaseInsert(offset(index), sizeof(T), &value); }
    // Room for so many elements more; their number does not change.
    void reserve(int more) { BaseReserve(offset(more)); }
    void append(T value) {
        if (m_capacity - m_size < sizeof(T)) [[unlikely]]
            BaseReserve(sizeof(T));
        ::new (m_buffer + m_size) T(std::move(value));
        m_size += static_cast<unsigned>(sizeof(T));
    }
    // All elements of the other sequence, in order; it may be this one.
    void insertseq(int index, const xtbsequence &other) {
        BaseInsert(offset(index), other.m_size, other.m_buffer);
    }
    // From the lower position up to, not including, the higher one, clipped to the count.
    void removerange(int from, int to) {
        const unsigned first = clipped(from), last = clipped(to);
        BaseRemove(first, last);
    }
    void clear() { Resize(0); }

    // The elements in place, until the sequence next changes.
    T *begin() noexcept { return data(); }
    T *end() noexcept { return data() + getarraysize(); }
    const T *begin() const noexcept { return data(); }
    const T *end() const noexcept { return data() + getarraysize(); }

protected:
    T *data() const noexcept { return reinterpret_cast<T *>(m_buffer); }
    bool has(int index) const noexcept { return static_cast<unsigned>(index) < m_size / sizeof(T); }
    // A position, or that of the end where it lies beyond.
    unsigned clipped(int position) const { return offset(std::min(position, getarraysize())); }
    static unsigned offset(int index) { return kel::detail::sequence_offset(index, sizeof(T)); }
};

// Elements that are copied as bytes.
template <class T>
class xtssequence : public xtbsequence<T> {
    static_assert(std::is_trivially_copyable_v<T>, "kelstdmt: elements of this type need xtcsequence");

public:
    using xtbsequence<T>::xtbsequence;
    ~xtssequence() override { kel::detail::sequence_free(this->m_buffer); }

protected:
    void *OnResize(unsigned capacity) override {
        if (capacity <= m_room && !this->m_exact) return this->m_buffer;
        std::size_t room = kel::detail::sequence_room<T>(m_room, capacity, this->m_exact);
        void *block = kel::detail::sequence_memory(this->m_buffer, room);
        m_room = room;
        return block;
    }
    void OnAllocate(void *at, unsigned bytes) override { std::memset(at, 0, bytes); }
    void OnDestroy(void *, unsigned) override {}
    void OnCopy(void *to, const void *from, unsigned bytes) override { std::memcpy(to, from, bytes); }
    void OnMove(void *to, void *from, unsigned bytes) override { std::memmove(to, from, bytes); }

private:
    std::size_t m_room = 0;  // bytes behind the buffer
};

// Elements with constructors, destructors and assignment.
template <class T>
class xtcsequence : public xtbsequence<T> {
public:
    using xtbsequence<T>::xtbsequence;
    ~xtcsequence() override {
        std::destroy_n(this->data(), this->getarraysize());
        kel::detail::sequence_free(this->m_buffer);
    }

protected:
    void *OnResize(unsigned capacity) override {
        if (capacity <= m_room && !this->m_exact) return this->m_buffer;
        std::size_t room = kel::detail::sequence_room<T>(m_room, capacity, this->m_exact);
        if constexpr (kel::relocatable<T>) {
            if (room >= m_room) {
                void *block = kel::detail::sequence_memory(this->m_buffer, room);
                m_room = room;
                return block;
            }
        }
        struct memory {
            T *block;
            ~memory() { kel::detail::sequence_free(block); }
        } fresh{static_cast<T *>(kel::detail::sequence_memory(nullptr, room))};
        T *old = this->data();
        std::size_t live = this->m_size / sizeof(T), kept = std::min(live, capacity / sizeof(T));
        // A move that may throw could not be taken back.
        if constexpr (std::is_nothrow_move_constructible_v<T> || !std::is_copy_constructible_v<T>)
            std::uninitialized_move_n(old, kept, fresh.block);
        else
            std::uninitialized_copy_n(old, kept, fresh.block);
        std::destroy_n(old, live);
        m_room = room;
        std::swap(old, fresh.block);
        return old;
    }
    void OnAllocate(void *at, unsigned bytes) override {
        std::uninitialized_value_construct_n(static_cast<T *>(at), bytes / sizeof(T));
    }
    void OnDestroy(void *at, unsigned bytes) override {
        std::destroy_n(static_cast<T *>(at), bytes / sizeof(T));
    }
    void OnCopy(void *to, const void *from, unsigned bytes) override {
        kel::detail::copy_elements(static_cast<const T *>(from), static_cast<T *>(to), bytes / sizeof(T));
    }
    void OnMove(void *to, void *from, unsigned bytes) override {
        kel::detail::move_elements(static_cast<T *>(from), static_cast<T *>(to), bytes / sizeof(T));
    }

private:
    std::size_t m_room = 0;  // bytes behind the buffer
};

namespace kel {
// The layer that fits an element type.
template <class T>
using sequence_of = std::conditional_t<std::is_trivially_copyable_v<T>, xtssequence<T>, xtcsequence<T>>;
}  // namespace kel
