// What every function of the C interface has around its work: a place where exceptions end, and the hold on
// the object.
#pragma once

#include <atomic>
#include <optional>
#include <typeinfo>

#include <kelstdmt/kelstdmt_c.h>
#include <kelstdmt/xexception.h>

namespace kel::detail {

// The exception slot. It holds one reference on a counted exception and owns any other.
extern std::atomic<xthrowable *> exception_slot;

inline bool is_exception_slot_empty() noexcept {
    return exception_slot.load(std::memory_order_relaxed) == nullptr;
}
inline void empty_exception_slot() {
    if (!is_exception_slot_empty()) [[unlikely]]
        xcleanupexc_c();
}

// In a handler: puts what was caught into the slot. Only the end of a thread passes.
void park_exception();

// What the work answers, or `failed` when an exception went into the slot.
template <class Result, class Work>
Result parking(Result failed, Work work) {
    try {
        return work();
    } catch (...) {
        park_exception();
        return failed;
    }
}
template <class Work>
void parking(Work work) {
    try {
        work();
    } catch (...) {
        park_exception();
    }
}

// Holds an object for the length of a call, whatever its class says of counting. A counted object that nobody
// holds yet is at count 0 again afterwards, so the hold is never its end.
class call_hold {
public:
    explicit call_hold(xobject *object);
    ~call_hold();
    call_hold(const call_hold &) = delete;
    call_hold &operator=(const call_hold &) = delete;

private:
    xobject *m_object;
    bool m_fresh = false;
};

// The container itself, when it is just of class T.
template <class T>
T *exactly(xobject *object) noexcept {
    return kel::is_object(object) && &typeid(*object) == &typeid(T) ? static_cast<T *>(object) : nullptr;
}

// The container of a call, as which nothing but an object of class T (or one derived from it) passes:
// kelXNotInitialized, kelXTypeMismatch. In a class known to the last byte no code of others runs that could
// give up a reference, so there the hold would be a count up and down that nobody can see, and is left out.
template <class T>
class called_container {
public:
    explicit called_container(xobject *object) : m_container(exactly<T>(object)) {
        if (m_container == nullptr) [[unlikely]]
            enter(object);
    }
    T *operator->() const noexcept { return m_container; }
    T &operator*() const noexcept { return *m_container; }

private:
    [[gnu::noinline]] void enter(xobject *object) {
        m_hold.emplace(object);
        m_container = T::cast(object);
        if (!kel::is_object(m_container)) kelhThrowNotInitialized();
    }

    T *m_container;
    std::optional<call_hold> m_hold;
};

// Runs the work on a container of class T, without an answer.
template <class T, class Work>
void change(xobject *container, Work work) {
    parking([&] {
        empty_exception_slot();
        const called_container<T> called(container);
        work(*called);
    });
}

// A text as C callers get it: with a hold of their own.
inline const char *handed_out(const xstring &text) noexcept {
    const char *buffer = text.Str();
    return text.IsNull() ? buffer : buffer_share(const_cast<char *>(buffer));
}

// How an element crosses.
template <class T>
struct c_element {
    using in = T;
    using out = T;
    static T take(T value) noexcept { return value; }
    static T give(T value) noexcept { return value; }
};
template <>
struct c_element<xstring> {
    using in = const char *;
    using out = const char *;
    static xstring take(const char *text) { return is_text(text) ? xstring(text) : xstring(); }
    static const char *give(const xstring &text) noexcept { return handed_out(text); }
};

inline void mark_uninit(int &value) noexcept {
    value = uninit_int;
}
inline void mark_uninit(xbool &value) noexcept {
    value = uninit_bool;
}
inline void mark_uninit(double &value) noexcept {
    value = uninit_real;
}
inline void mark_uninit(const char *&value) noexcept {
    value = uninit_text();
}
template <class Out>
Out uninit_result() noexcept {
    Out value;
    mark_uninit(value);
    return value;
}

// A new empty container with one hold.
template <class T>
xobject *create_container() {
    return parking(uninit_object(), [] {
        empty_exception_slot();
        return xrchandle<xobject>(T::create()).detach();
    });
}

template <class T>
xrtticlass *class_descriptor() {
    return parking(static_cast<xrtticlass *>(nullptr), [] {
        empty_exception_slot();
        return T::getclassrtti();
    });
}

}  // namespace kel::detail
