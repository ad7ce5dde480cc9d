// The base of every framework object, its reference count, and the handles that hold objects.
//
// The count tells who keeps the object alive: 0, nobody has taken a reference yet; n > 0, that many
// references; -1, the object was placed under a uni reference although its class is not counted, so
// an owner decides its life and no release ever deletes it.
//
// The plain pair xrcattach/xrcrelease serves owners that know they deal with counted objects; the
// uni pair serves values and handles that take any object. An ordinary change is one increment
// (atomic once the process has a second thread). The last release runs ondelete() and the destructor
// inside one process-wide recursive lock.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

class brtti;
class ioStream;
class printData;
class xany;
class xrtticlass;
class xstring;
class xthrowable;

class KELSTDMT_API xobject {
public:
    xobject() noexcept = default;
    // A copy is an object of its own: nobody holds it yet.
    xobject(const xobject &) noexcept : m_refcount(0) {}
    xobject &operator=(const xobject &) noexcept { return *this; }
    virtual ~xobject();

    // This object as the class that `wanted` describes, as that class's own pointer. Throws
    // kelXTypeMismatch when the object is of no such class.
    virtual void *dyndowncast(const xrtticlass *wanted);

    static xobject *cast(xobject *object) { return object; }
    static xrtticlass *getclassrtti();

    xrtticlass *getrtti() { return givertti(); }

    bool issameas(xrtticlass *type);  // of just this type
    bool iskindof(xrtticlass *type);  // of this type or one derived from it
    xstring gettypename();            // the declared name, such as "kellib::XNoField"
    // Whether releases decide this object's life. Throws kelXUnknownType without a descriptor.
    bool isrefcountable();

    // Reflection: each asks the object's descriptor (see xrtti.h) about this object, and throws
    // kelXUnknownType when there is none.
    bool isstruct();
    int getnfields();
    xstring getfieldname(int index);
    xany getfield(int index);
    xany lookupfield(const char *name);
    bool hasfield(const char *name);
    bool isarray();
    int getnarraydims();
    int getnarrayelems(int dimension);
    xany getarrayelem(int *indices);
    bool issequence();
    int getnseqelems();
    xany getseqelem(int index);
    bool hasindex(int index);
    bool isdictionary();
    int getndictelems();
    bool getdictkey(int index, xstring &key);
    bool getdictelem(int index, xany &elem);
    xany lookupdict(const char *key);
    bool haskey(const char *key);
    // Prints this object; a null stream is the standard output, null options are the defaults.
    void print(ioStream *stream = nullptr, printData *options = nullptr);

private:
    // How the object prints itself; the default prints it through its class descriptor.
    virtual void onprint(ioStream *stream, printData *options);
    virtual xrtticlass *givertti();
    virtual xbool isdeletable();  // false: storage belongs to somebody else, see xauto
    virtual void ondelete();      // runs right before the destructor of a released object

    void printme(ioStream *stream, printData *options) { onprint(stream, options); }
    xrtticlass *requirertti();

    int m_refcount = 0;

    friend class xrtti;
    friend struct kel_object_access;
    friend void xrcattach(xobject *object) noexcept;
    friend void xrcrelease(xobject *object);
    friend void xrcuniattach(xobject *object);
    friend void xrcunirelease(xobject *object);
    friend int xrcgetcount(const xobject *object) noexcept;
    friend KELSTDMT_API void xdelete(xobject *object);
};

// Counting -------------------------------------------------------------------------------------

namespace kel::detail {

// Takes one from a count above 1 and answers true; at 1 or below the caller takes the slow way.
inline bool count_drop(int &count) noexcept {
    if (counts_are_private()) {
        if (count <= 1) return false;
        --count;
        return true;
    }
    if (count_load(count) <= 1) return false;
    if (__atomic_fetch_sub(&count, 1, __ATOMIC_ACQ_REL) > 1) return true;
    count_add(count, 1);  // another thread was faster: this reference is the last one
    return false;
}

KELSTDMT_API void release_last(xobject *object);
KELSTDMT_API void uniattach_first(xobject *object);
KELSTDMT_API void unirelease_last(xobject *object);

}  // namespace kel::detail

// All of these ignore a null pointer and the uninit object.

// One more reference, whatever the count is.
inline void xrcattach(xobject *object) noexcept {
    if (kel::is_object(object)) kel::detail::count_add(object->m_refcount, 1);
}

// One reference less. At 1 or below, a deletable object is deleted, another returns to 0.
inline void xrcrelease(xobject *object) {
    if (kel::is_object(object) && !kel::detail::count_drop(object->m_refcount))
        kel::detail::release_last(object);
}

// One more reference on a counted object; an object that is not counted is marked with -1.
inline void xrcuniattach(xobject *object) {
    if (!kel::is_object(object)) return;
    int count = __atomic_load_n(&object->m_refcount, __ATOMIC_RELAXED);
    if (count > 0)
        kel::detail::count_add(object->m_refcount, 1);
    else if (count != -1)
        kel::detail::uniattach_first(object);
}

// The way back: deletes a counted object with its last reference, leaves any other alone.
inline void xrcunirelease(xobject *object) {
    if (kel::is_object(object) && __atomic_load_n(&object->m_refcount, __ATOMIC_RELAXED) != -1 &&
        !kel::detail::count_drop(object->m_refcount))
        kel::detail::unirelease_last(object);
}

// The count as stored; 0 for a null pointer.
inline int xrcgetcount(const xobject *object) noexcept {
    return kel::is_object(object) ? kel::detail::count_load(object->m_refcount) : 0;
}

// Deletes an object that is not counted. Throws kelXNotInitialized for the uninit object and
// kelXRefCountable for a counted one, which goes only by release.
KELSTDMT_API void xdelete(xobject *object);

namespace kel::detail {

// While an object is being constructed, its last release must not delete it: the one who called
// `new` still holds it. The factories hold one of these around the constructor.
class KELSTDMT_API construction {
public:
    construction(void *begin, std::size_t size) noexcept;
    ~construction();
    construction(const construction &) = delete;
    construction &operator=(const construction &) = delete;

    static bool covers(const void *object) noexcept;

private:
    const char *m_begin;
    std::size_t m_size;
    const construction *m_outer;
};

}  // namespace kel::detail

namespace kel {

// A new T from the default memory manager, with count 0. The way in which every factory of the
// system makes its objects.
template <class T, class Build>
T *construct_with(Build build) {
    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__,
                  "kelstdmt: the memory manager knows no larger alignment");
    struct storage {
        void *block = operator new(sizeof(T), pDefMemMgr);
        ~storage() {
            if (block) operator delete(block, pDefMemMgr);
        }
    } memory;
    detail::construction guard(memory.block, sizeof(T));
    T *object = build(memory.block);
    memory.block = nullptr;
    return object;
}

template <class T, class... Args>
T *construct(Args &&...args) {
    return construct_with<T>([&](void *at) { return ::new (at) T(std::forward<Args>(args)...); });
}

}  // namespace kel

// Handles --------------------------------------------------------------------------------------

namespace kel::detail {

// A pointer as one to a base. The reserved pointers stand for themselves in every class: nothing lies there
// that would tell where a base is.
template <class Base, class T>
Base *upcast(T *object) noexcept {
    if (is_object(object)) return object;
    return object == nullptr ? nullptr : reinterpret_cast<Base *>(uninit_object());
}

}  // namespace kel::detail

// A pointer that owns nothing.
template <class T>
class xrcbasehandle {
public:
    constexpr xrcbasehandle() noexcept = default;
    ~xrcbasehandle() { m_object = nullptr; }

    T *operator->() const noexcept { return m_object; }
    operator T *() const noexcept { return m_object; }
    T *get() const noexcept { return m_object; }

protected:
    explicit xrcbasehandle(T *object) noexcept : m_object(object) {}
    xrcbasehandle(const xrcbasehandle &) noexcept = default;
    xrcbasehandle &operator=(const xrcbasehandle &) noexcept = default;

    T *m_object = nullptr;
};

// An owning counted reference. Making one from a pointer takes a reference, also on a fresh object;
// a move takes the reference over and touches no count.
template <class T>
class xrchandle : public xrcbasehandle<T> {
    using base = xrcbasehandle<T>;

public:
    constexpr xrchandle() noexcept = default;
    xrchandle(T *object) noexcept : base(object) { xrcattach(kel::detail::upcast<xobject>(object)); }
    xrchandle(const xrchandle &other) noexcept : xrchandle(other.m_object) {}
    xrchandle(xrchandle &&other) noexcept : base(std::exchange(other.m_object, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U *, T *> xrchandle(const xrchandle<U> &other)
    noexcept : xrchandle(kel::detail::upcast<T>(other.get())) {}
    ~xrchandle() { xrcrelease(kel::detail::upcast<xobject>(std::exchange(this->m_object, nullptr))); }

    xrchandle &operator=(const xrchandle &other) { return *this = xrchandle(other); }
    xrchandle &operator=(xrchandle &&other) {
        T *old = std::exchange(this->m_object, std::exchange(other.m_object, nullptr));
        xrcrelease(kel::detail::upcast<xobject>(old));
        return *this;
    }

    // Takes over a reference that the caller holds.
    static xrchandle adopt(T *object) noexcept {
        xrchandle handle;
        handle.m_object = object;
        return handle;
    }
    // Gives the reference to the caller.
    [[nodiscard]] T *detach() noexcept { return std::exchange(this->m_object, nullptr); }
};

// A reference on any object: counted ones are kept alive, others are only pointed at and must be
// kept alive by their owner.
template <class T>
class xrcunihandle {
public:
    constexpr xrcunihandle() noexcept = default;
    xrcunihandle(T *object) { attach(object); }
    xrcunihandle(const xrcunihandle &other) { attach(other.m_object); }
    xrcunihandle(xrcunihandle &&other) noexcept
        : m_object(std::exchange(other.m_object, nullptr)),
          m_counted(std::exchange(other.m_counted, false)) {}
    ~xrcunihandle() { release(); }

    xrcunihandle &operator=(const xrcunihandle &other) { return *this = xrcunihandle(other); }
    xrcunihandle &operator=(xrcunihandle &&other) {
        xrcunihandle taken(std::move(other));
        std::swap(m_object, taken.m_object);
        std::swap(m_counted, taken.m_counted);
        return *this;
    }

    operator T *() const noexcept { return m_object; }
    T *operator->() const noexcept { return m_object; }
    T *get() const noexcept { return m_object; }

private:
    void attach(T *object) {
        xrcuniattach(kel::detail::upcast<xobject>(object));
        m_object = object;
        m_counted = kel::is_object(object) && object->isrefcountable();
    }
    void release() {
        T *object = std::exchange(m_object, nullptr);
        if (std::exchange(m_counted, false)) xrcunirelease(object);
    }

    T *m_object = nullptr;
    bool m_counted = false;
};

// An object whose storage belongs to somebody else, such as a member or a local: it may be handed
// out as a counted reference, and its last release sets the count back to 0 instead of deleting it.
// The arguments go to the constructor of T.
template <class T>
class xauto : public T {
public:
    template <class... Args>
    requires std::is_constructible_v<T, Args...>
    explicit(sizeof...(Args) == 1) xauto(Args &&...args)
        : xauto(during(), kel::detail::construction(this, sizeof(xauto)), std::forward<Args>(args)...) {}
    xauto(const xauto &) = default;
    xauto &operator=(const xauto &) = default;
    // T's own destructor may take and give references: none of them is the last.
    ~xauto() override { xrcattach(this); }

private:
    struct during {};
    template <class... Args>
    xauto(during, const kel::detail::construction &, Args &&...args) : T(std::forward<Args>(args)...) {}

    xbool isdeletable() override { return false; }
};

template <class T>
struct std::hash<xrchandle<T>> {
    std::size_t operator()(const xrchandle<T> &handle) const noexcept {
        return std::hash<T *>()(handle.get());
    }
};
template <class T>
struct std::hash<xrcunihandle<T>> {
    std::size_t operator()(const xrcunihandle<T> &handle) const noexcept {
        return std::hash<T *>()(handle.get());
    }
};
