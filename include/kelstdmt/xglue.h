// The part of declare.h that a class body needs: how a declared class is tied to its descriptor, and
// how a C++ type is turned into a field type and a value. Include declare.h instead.
#pragma once

#include <array>
#include <atomic>
#include <concepts>
#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/xany.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xrtti.h>
#include <kelstdmt/xstring.h>

#define KEL_FIELD_TYPES                                                                                 \
    "a field or element is an int, bool, xbool, double, xstring, const char *, xany, a declared enum, " \
    "an optional of these, or a pointer, handle or xauto of a declared class"

namespace kel {

// Whether releases decide the life of a type's objects.
enum class counting : unsigned char { uncounted, counted };
inline constexpr counting counted = counting::counted;
inline constexpr counting uncounted = counting::uncounted;

// One row of a declaration: a field, or a case of a union.
struct field_decl {
    const char *name;
    bool optional;
    xrtti *(*type)();
    xrttifield::getter get;
};

namespace detail {

[[noreturn]] KELSTDMT_API void throw_unknown(xobject *object);
[[noreturn]] KELSTDMT_API void throw_mismatch(const char *wanted, xobject *object);
[[noreturn]] KELSTDMT_API void throw_mismatch(const xrtticlass *wanted, xobject *object);
[[noreturn]] KELSTDMT_API void throw_uninitialized();

// From a C++ type to a descriptor and a value ----------------------------------------------------

template <class T>
struct is_handle : std::false_type {};
template <class T>
struct is_handle<xrchandle<T>> : std::true_type {};
template <class T>
struct is_handle<xrcunihandle<T>> : std::true_type {};
template <class T>
struct is_handle<xrcbasehandle<T>> : std::true_type {};

template <class T>
struct is_optional : std::false_type {};
template <class T>
struct is_optional<std::optional<T>> : std::true_type {};

template <class T>
concept object_class = std::derived_from<T, xobject>;

// An object held by value is somebody else's storage: no release may delete it.
template <class T>
struct is_xauto : std::false_type {};
template <class T>
struct is_xauto<xauto<T>> : std::true_type {};

template <class T>
concept declared_enum = std::is_enum_v<T> && sizeof(T) <= sizeof(xint) && requires(T value) {
    { kel_descriptor(value) } -> std::convertible_to<xrtti *>;
};

template <class T>
constexpr bool is_field_type() {
    using V = std::remove_cvref_t<T>;
    if constexpr (std::same_as<V, bool> || std::same_as<V, xbool> || std::same_as<V, int> ||
                  std::same_as<V, double> || std::same_as<V, xstring> || std::same_as<V, const char *> ||
                  std::same_as<V, xany> || declared_enum<V> || is_handle<V>::value || is_xauto<V>::value) {
        return true;
    } else if constexpr (is_optional<V>::value) {
        return is_field_type<typename V::value_type>();
    } else if constexpr (std::is_pointer_v<V>) {
        return object_class<std::remove_cv_t<std::remove_pointer_t<V>>>;
    } else {
        return false;
    }
}

template <class T>
xrtti *describe() {
    using V = std::remove_cvref_t<T>;
    static_assert(is_field_type<V>(), "kelstdmt: this type has no descriptor; " KEL_FIELD_TYPES);
    if constexpr (std::same_as<V, bool> || std::same_as<V, xbool>) {
        return get_xrttibool();
    } else if constexpr (std::same_as<V, int>) {
        return get_xrttiint();
    } else if constexpr (std::same_as<V, double>) {
        return get_xrttireal();
    } else if constexpr (std::same_as<V, xstring> || std::same_as<V, const char *>) {
        return get_xrttistring();
    } else if constexpr (std::same_as<V, xany>) {
        return get_xrttiany();
    } else if constexpr (std::is_enum_v<V>) {
        return kel_descriptor(V{});
    } else if constexpr (is_optional<V>::value) {
        return describe<typename V::value_type>();
    } else if constexpr (std::is_pointer_v<V>) {
        return std::remove_cv_t<std::remove_pointer_t<V>>::getclassrtti();
    } else if constexpr (is_handle<V>::value) {
        return describe<decltype(std::declval<V>().get())>();
    } else {
        return V::getclassrtti();
    }
}

template <class T>
xany to_any(T &&value) {
    using V = std::remove_cvref_t<T>;
    if constexpr (std::is_enum_v<V>) {
        return xany(static_cast<xint>(value), static_cast<brtti *>(kel_descriptor(value)));
    } else if constexpr (is_optional<V>::value) {
        return value ? to_any(*value) : xany(nil_int);
    } else if constexpr (std::is_pointer_v<V> && !std::same_as<V, const char *>) {
        return xany(upcast<xobject>(value));
    } else if constexpr (is_handle<V>::value) {
        return xany(upcast<xobject>(value.get()));
    } else if constexpr (is_xauto<V>::value) {
        static_assert(std::is_lvalue_reference_v<T>, "kelstdmt: a field's object must outlive the read");
        return xany(static_cast<xobject *>(&value));
    } else {
        return xany(std::forward<T>(value));
    }
}

// The object that a field is read from; an absent one is reported instead of followed.
template <class T>
T &object_for_field(xobject *object) {
    T *self = T::cast(object);
    if (!is_object(self)) throw_uninitialized();
    return *self;
}

template <class Member>
struct member_traits;
template <class R, class T>
requires(!std::is_function_v<R>) struct member_traits<R T::*> {
    using type = R;
    template <auto Member>
    static xany get(xrttifield *, xobject *object) {
        return to_any(object_for_field<T>(object).*Member);
    }
};
template <class R, class T>
struct member_traits<R (T::*)()> {
    using type = R;
    template <auto Member>
    static xany get(xrttifield *, xobject *object) {
        return to_any((object_for_field<T>(object).*Member)());
    }
};
template <class R, class T>
struct member_traits<R (T::*)() const> : member_traits<R (T::*)()> {};
template <class R, class T>
struct member_traits<R (T::*)() noexcept> : member_traits<R (T::*)()> {};
template <class R, class T>
struct member_traits<R (T::*)() const noexcept> : member_traits<R (T::*)()> {};
// A function of one's own that reads the field, and a static member that every object shares.
template <class R, class T>
struct member_traits<R (*)(T &)> {
    using type = R;
    template <auto Member>
    static xany get(xrttifield *, xobject *object) {
        return to_any(Member(object_for_field<T>(object)));
    }
};
template <class R>
struct member_traits<R (*)()> {
    using type = R;
    template <auto Member>
    static xany get(xrttifield *, xobject *) {
        return to_any(Member());
    }
};

// Casts -------------------------------------------------------------------------------------------

template <class T>
T *cast(xobject *object, const char *classname) {
    if (!is_object(object)) {
        // The two reserved pointers stand for themselves in every class.
        return object == nullptr ? nullptr : reinterpret_cast<T *>(std::uintptr_t{22});
    }
    xrtticlass *type = object->getrtti();
    if (type == nullptr) throw_unknown(object);
    xrtticlass *wanted = T::getclassrtti();
    if (type != wanted && !type->iskindof(wanted)) throw_mismatch(classname, object);
    return static_cast<T *>(object->dyndowncast(wanted));
}

template <class T>
concept has_own_descriptor = requires {
    typename T::kel_self;
};

// Whether KEL_CLASS stands in the class itself, and names one of its bases.
template <class T>
constexpr bool has_class_macro() {
    if constexpr (has_own_descriptor<T>)
        return std::same_as<T, typename T::kel_self>;
    else
        return false;
}
template <class T>
constexpr bool has_right_base() {
    if constexpr (has_class_macro<T>())
        return std::derived_from<T, typename T::kel_base>;
    else
        return true;
}

template <class T>
void *downcast(T *self, const xrtticlass *wanted) {
    if (wanted == T::getclassrtti()) return self;
    if constexpr (has_own_descriptor<typename T::kel_base>) {
        return downcast<typename T::kel_base>(self, wanted);
    } else {
        if (wanted == xobject::getclassrtti()) return static_cast<xobject *>(self);
        throw_mismatch(wanted, self);
    }
}

// Exceptions --------------------------------------------------------------------------------------

template <class... Rows>
constexpr std::array<field_decl, sizeof...(Rows)> rows(Rows... list) {
    return {list...};
}

// How a field value is handed to Throw and Create.
template <class T>
struct parameter {
    using type = T;
};
template <>
struct parameter<xstring> {
    using type = const char *;
};
template <class T>
using parameter_t = typename parameter<T>::type;

inline const char *stored(const char *text) noexcept {
    return text ? text : xstrNullStr;
}
template <class T>
T &&stored(T &value) noexcept {
    return std::move(value);
}

}  // namespace detail

// A row of a declaration. Member is a data member, a getter, a static getter, or a function that takes
// the object by reference; its type gives the field's type. A std::optional without a value reads as
// nil, and a getter may throw kelXNoField for a value that is not there.
template <auto Member>
constexpr field_decl field(const char *name) {
    using traits = detail::member_traits<decltype(Member)>;
    static_assert(detail::is_field_type<typename traits::type>(),
                  "kelstdmt: the type of this field has no descriptor; " KEL_FIELD_TYPES);
    return {name, false, &detail::describe<typename traits::type>, &traits::template get<Member>};
}

template <auto Member>
constexpr field_decl optional_field(const char *name) {
    field_decl row = field<Member>(name);
    row.optional = true;
    return row;
}

}  // namespace kel

#define KEL_EXPORTED __attribute__((visibility("default")))

// Ahead of a class: its descriptor's getter. One for each kind of descriptor.
#define KEL_DECLARE(KIND, T) \
    class T;                 \
    KEL_EXPORTED KIND *xrtti_get_p_##T();
#define KEL_DECLARE_STRUCT(T) KEL_DECLARE(xrttistruct, T)
#define KEL_DECLARE_UNION(T) KEL_DECLARE(xrttiunion, T)
#define KEL_DECLARE_ARRAY(T) KEL_DECLARE(xrttiarray, T)

// Behind an enum.
#define KEL_DECLARE_ENUM(E)                    \
    KEL_EXPORTED xrttienum *xrtti_get_p_##E(); \
    inline xrttienum *kel_descriptor(E) {      \
        return xrtti_get_p_##E();              \
    }

// First in a class body. Base is the class that it derives from: xobject, or another declared class.
// What follows is private until an access specifier says otherwise.
#define KEL_CLASS(T, Base)                                                 \
public:                                                                    \
    using kel_self = T;                                                    \
    using kel_base = Base;                                                 \
    [[maybe_unused]] static xrtticlass *getclassrtti();                    \
    [[maybe_unused]] static T *cast(xobject *object);                      \
    [[maybe_unused]] void *dyndowncast(const xrtticlass *wanted) override; \
                                                                           \
private:                                                                   \
    [[maybe_unused]] xrtticlass *givertti() override;

// Lists of up to 80 (type, Name) pairs: KEL_EACH applies a macro to every pair.
#define KEL_PARENS ()
#define KEL_EXPAND(...) KEL_EXPAND3(KEL_EXPAND3(KEL_EXPAND3(KEL_EXPAND3(__VA_ARGS__))))
#define KEL_EXPAND3(...) KEL_EXPAND2(KEL_EXPAND2(KEL_EXPAND2(KEL_EXPAND2(__VA_ARGS__))))
#define KEL_EXPAND2(...) KEL_EXPAND1(KEL_EXPAND1(KEL_EXPAND1(KEL_EXPAND1(__VA_ARGS__))))
#define KEL_EXPAND1(...) __VA_ARGS__
#define KEL_EACH(MACRO, ...) __VA_OPT__(KEL_EXPAND(KEL_EACH_STEP(MACRO, __VA_ARGS__)))
#define KEL_EACH_STEP(MACRO, PAIR, ...) MACRO PAIR __VA_OPT__(KEL_EACH_AGAIN KEL_PARENS(MACRO, __VA_ARGS__))
#define KEL_EACH_AGAIN() KEL_EACH_STEP
#define KEL_COMMAS(MACRO, ...) __VA_OPT__(KEL_EXPAND(KEL_COMMAS_STEP(MACRO, __VA_ARGS__)))
#define KEL_COMMAS_STEP(MACRO, PAIR, ...) \
    MACRO PAIR __VA_OPT__(, KEL_COMMAS_AGAIN KEL_PARENS(MACRO, __VA_ARGS__))
#define KEL_COMMAS_AGAIN() KEL_COMMAS_STEP

#define KEL_X_MEMBER(TYPE, NAME) TYPE m_##NAME;
#define KEL_X_GETTER(TYPE, NAME) \
    TYPE get##NAME() const {     \
        return m_##NAME;         \
    }
#define KEL_X_PARAM(TYPE, NAME) kel::detail::parameter_t<TYPE> NAME
#define KEL_X_PASS(TYPE, NAME) std::move(NAME)
#define KEL_X_INIT(TYPE, NAME) m_##NAME(kel::detail::stored(NAME))
#define KEL_X_FIELD(TYPE, NAME) kel::field<&kel_self::get##NAME>(#NAME)

// The whole body of an exception class: members and getters of the fields, the constructor that takes
// the description first, Create and Throw. Fields are (type, Name) pairs; a string is passed as
// const char * (null: the null string).
//
//     class myXBadLine : public kelXException {
//         KEL_EXCEPTION(myXBadLine, kelXException, "Malformed line.", (xstring, File), (int, Line))
//     };
#define KEL_EXCEPTION(T, BASE, ...) KEL_EXCEPTION_BODY(T, BASE, BASE(description), xrchandle<T>, __VA_ARGS__)
// The same for an exception whose objects are not counted: Create gives a plain pointer.
#define KEL_UNCOUNTED_EXCEPTION(T, BASE, ...) KEL_EXCEPTION_BODY(T, BASE, BASE(description), T *, __VA_ARGS__)
// And for one that descends from none and has no description, of a class derived from xthrowable.
#define KEL_ROOT_EXCEPTION(T, ...) \
    KEL_EXCEPTION_BODY(T, xthrowable, xthrowable(), T *, xstrNullStr __VA_OPT__(, ) __VA_ARGS__)

#define KEL_EXCEPTION_BODY(T, BASE, BASE_FROM, HOLDER, DESCRIPTION, ...)                                     \
    KEL_CLASS(T, BASE)                                                                                       \
public:                                                                                                      \
    KEL_EACH(KEL_X_GETTER, __VA_ARGS__)                                                                      \
    static HOLDER Create(KEL_COMMAS(KEL_X_PARAM, __VA_ARGS__)) {                                             \
        return kel::construct_with<T>([&](void *at) {                                                        \
            return ::new (at) T(DESCRIPTION __VA_OPT__(, ) KEL_COMMAS(KEL_X_PASS, __VA_ARGS__));             \
        });                                                                                                  \
    }                                                                                                        \
    [[noreturn]] static void Throw(KEL_COMMAS(KEL_X_PARAM, __VA_ARGS__)) {                                   \
        HOLDER thrown = Create(KEL_COMMAS(KEL_X_PASS, __VA_ARGS__));                                         \
        xthrow(xrcunihandle<xthrowable>(thrown));                                                            \
    }                                                                                                        \
    static constexpr auto kel_fields() {                                                                     \
        return kel::detail::rows(KEL_COMMAS(KEL_X_FIELD, __VA_ARGS__));                                      \
    }                                                                                                        \
                                                                                                             \
protected:                                                                                                   \
    explicit T([[maybe_unused]] const char *description __VA_OPT__(, ) KEL_COMMAS(KEL_X_PARAM, __VA_ARGS__)) \
        : BASE_FROM __VA_OPT__(, ) KEL_COMMAS(KEL_X_INIT, __VA_ARGS__) {}                                    \
                                                                                                             \
private:                                                                                                     \
    KEL_EACH(KEL_X_MEMBER, __VA_ARGS__)
