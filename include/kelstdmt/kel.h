// Comfort for C++ programs: an owner of a caught exception, values on a std::ostream, and a report of an
// exception that nobody caught. Nothing here is needed to use the library, and what is not used costs
// nothing.
//
//     try {
//         ...
//     } catch (xthrowable *thrown) {
//         kel::caught error(thrown);
//         if (!error.is<kelXNoField>()) error.rethrow();
//         std::cerr << error << '\n';
//     }
//     std::cout << kel::printed(account) << kel::printed(account->Name, true) << value << '\n';
#pragma once

#include <concepts>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/xany.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xglue.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>

namespace kel {

// Values on a std::ostream --------------------------------------------------------------------------

namespace detail {

// As it is passed by value; a text is a const char *.
template <class T>
using passed =
    std::conditional_t<std::same_as<std::decay_t<const T &>, char *>, const char *, std::decay_t<const T &>>;
template <class T>
concept printable_object = object_class<passed<T>>;
template <class T>
concept printable_value = !printable_object<T> && is_field_type<passed<T>>();
template <class T>
concept printable_text = !printable_object<T> && !printable_value<T> && !std::is_null_pointer_v<T> &&
                         std::convertible_to<const T &, std::string_view>;

}  // namespace detail

// A value that is about to be written to a std::ostream, in the form of printlib.h. An object is only
// referred to: it must live until the value has been written, and no count of it changes before.
class KELSTDMT_API printed_value {
public:
    printed_value(xany value, bool single_line) noexcept
        : m_value(std::move(value)), m_single_line(single_line) {}
    printed_value(xobject *object, bool single_line) noexcept
        : m_object(object), m_refers(true), m_single_line(single_line) {}

    // What the printer cannot finish ends in its own words, "Can not finish printing".
    void print(std::ostream &out) const;
    std::string str() const;

    friend std::ostream &operator<<(std::ostream &out, const printed_value &value) {
        value.print(out);
        return out;
    }

private:
    xany m_value;
    xobject *m_object = nullptr;
    bool m_refers = false;
    bool m_single_line;
};

// Anything that has a descriptor: an object (a reference, pointer or handle), an xany, a declared enum, an
// int, bool, double or text, or an optional of these. On several lines, or on one.
template <class T>
printed_value printed(const T &value, bool single_line = false) {
    using V = detail::passed<T>;
    static_assert(detail::printable_object<T> || detail::printable_value<T> || detail::printable_text<T>,
                  "kelstdmt: this type cannot be printed; see kel::printed");
    if constexpr (detail::printable_object<T>) {
        return {static_cast<xobject *>(const_cast<V *>(std::addressof(value))), single_line};
    } else if constexpr (detail::is_handle<V>::value) {
        return {detail::upcast<xobject>(value.get()), single_line};
    } else if constexpr (std::is_pointer_v<V> && !std::same_as<V, const char *>) {
        return {detail::upcast<xobject>(const_cast<std::remove_cv_t<std::remove_pointer_t<V>> *>(value)),
                single_line};
    } else if constexpr (detail::printable_text<T>) {
        std::string_view text(value);
        return {xany(xstring::FromBytes(text.data(), text.size())), single_line};
    } else {
        return {detail::to_any(static_cast<const V &>(value)), single_line};
    }
}

// An exception that was caught ----------------------------------------------------------------------

// Owns the reference that an exception carries in flight: make one in the first line of a handler, and no
// way out of the handler leaks it. A plain `throw;` would pass on an exception that is released here: use
// rethrow().
class KELSTDMT_API caught {
public:
    explicit caught(xthrowable *thrown) noexcept : m_thrown(thrown) {}
    caught(caught &&other) noexcept : m_thrown(other.detach()) {}
    caught &operator=(caught &&other) noexcept {
        caught old(std::exchange(m_thrown, other.detach()));
        return *this;
    }
    ~caught() {
        if (is_object(m_thrown)) release(m_thrown);
    }

    // Passes the exception on with the reference that is held here, which then holds none. Without an
    // exception: throws kelXNotInitialized.
    [[noreturn]] void rethrow();
    // Gives the reference to the caller.
    [[nodiscard]] xthrowable *detach() noexcept { return std::exchange(m_thrown, nullptr); }

    xthrowable *get() const noexcept { return m_thrown; }
    xthrowable *operator->() const noexcept { return m_thrown; }
    xthrowable &operator*() const noexcept { return *m_thrown; }
    explicit operator bool() const noexcept { return is_object(m_thrown); }

    // Whether the exception is a T, or of a class that derives from T.
    template <class T>
    bool is() const {
        return as<T>() != nullptr;
    }
    // The exception as a T; null if it is none.
    template <class T>
    T *as() const {
        if constexpr (std::is_base_of_v<T, xthrowable>)
            return m_thrown;
        else
            return static_cast<T *>(downcast(T::getclassrtti()));
    }

    // What it says of itself: its Description, or its Msg if it has no description; else the null string.
    xstring description() const;
    xstring type_name() const;  // the declared name, such as "kellib::XNoField"
    // The description, or the declared name of an exception that says nothing of itself.
    std::string text() const;

    // The exception with all its fields, on several lines. Where the printer cannot finish, the description
    // follows on a line of its own.
    friend KELSTDMT_API std::ostream &operator<<(std::ostream &out, const caught &error);

private:
    static void release(xthrowable *thrown) noexcept;
    void *downcast(xrtticlass *wanted) const;

    xthrowable *m_thrown;
};

// The last word of a handler `catch (...)`: the text of the exception that is being handled, whether it is
// one of the framework's, whose reference is released, or one of the C++ library's. Empty for any other.
KELSTDMT_API std::string take_text();

// From now on an exception of the framework that nobody catches is printed with its fields on standard
// error before the program ends; then the handler that was installed before takes over (by default, it
// aborts). Any thread; calling it again changes nothing.
KELSTDMT_API void report_uncaught();

}  // namespace kel

// Exactly these types, never by a conversion, so that what other types write is as before.

template <std::same_as<xany> Value>
std::ostream &operator<<(std::ostream &out, const Value &value) {
    return out << kel::printed(value);
}
template <class T>
std::ostream &operator<<(std::ostream &out, const xrchandle<T> &object) {
    return out << kel::printed(object);
}
template <class T>
std::ostream &operator<<(std::ostream &out, const xrcunihandle<T> &object) {
    return out << kel::printed(object);
}
