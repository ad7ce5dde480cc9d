// Declaring types: a few lines tie a C++ type to a descriptor, so that it prints, encodes, throws and
// is inspected like the library's own types, which are declared in exactly this way.
//
// In a header, ahead of the class its kind, and inside it KEL_CLASS (exceptions: KEL_EXCEPTION):
//
//     enum Shell { shellNone, shellBash, shellOther };
//     KEL_DECLARE_ENUM(Shell)
//
//     KEL_DECLARE_STRUCT(Account)
//     class Account : public xobject {
//         KEL_CLASS(Account, xobject)
//     public:
//         xstring Name;
//         int Uid = 0;
//         std::optional<int> Age;
//     };
//     KEL_SEQUENCE(Accounts, xrchandle<Account>)
//     KEL_DICTIONARY(AccountsByName, Account *)
//
// In one source file, the declared names and the fields:
//
//     KEL_DEFINE_ENUM(Shell, "demo::Shell", "shellNone", "shellBash", "shellOther")
//     KEL_DEFINE_STRUCT(Account, "demo::Account", kel::counted,
//                       kel::field<&Account::Name>("Name"), kel::field<&Account::Uid>("Uid"),
//                       kel::optional_field<&Account::Age>("Age"))
//     KEL_DEFINE_SEQUENCE(Accounts, "demo::Accounts", kel::counted)
//     KEL_DEFINE_DICTIONARY(AccountsByName, "demo::AccountsByName", kel::counted)
//
// kel::counted: releases delete the objects (from their first uni attachment); kel::uncounted: an
// owner does. A struct whose base is another declared struct has it as its parent. Unions and arrays:
//
//     KEL_DEFINE_UNION(Shape, "demo::Shape", kel::counted, kel::field<&Shape::Kind>("Kind"),
//                      kel::field<&Shape::Radius>("Radius"), kel::field<&Shape::Side>("Side"))
//     KEL_DEFINE_ARRAY(Matrix, "demo::Matrix", kel::counted, kel::elements<&Matrix::At, 2, 3>())
//
// The first row of a union is its discriminator. At takes one int for each dimension.
//
// A descriptor is built on first use, from any thread, and deleted when the process ends, after the
// static objects of the programs and libraries that use it. A process that has had several threads leaves it
// to the system, since some of them may still run.
#pragma once

#include <kelstdmt/xdictionary.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xglue.h>
#include <kelstdmt/xsequence.h>

namespace kel {

namespace detail {

// Where a type keeps its descriptor. It is stored twice: at once when its construction begins, for the
// thread that builds it and meets the type again on the way, and for everybody when it is complete.
struct glue {
    std::atomic<brtti *> ready{nullptr};
    brtti *building = nullptr;
    glue *pending = nullptr;

    template <class Descriptor>
    Descriptor *get() const noexcept {
        return static_cast<Descriptor *>(ready.load(std::memory_order_acquire));
    }
};

KELSTDMT_API xrttistruct *build_struct(glue &place, const char *name, counting flag, xrtticlass *(*parent)(),
                                       const field_decl *rows, std::size_t count);
KELSTDMT_API xrttienum *build_enum(glue &place, const char *name, const char *const *names,
                                   std::size_t count);
KELSTDMT_API xrttiunion *build_union(glue &place, const char *name, counting flag, const field_decl *rows,
                                     std::size_t count);
KELSTDMT_API xrttiarray *build_array(glue &place, const char *name, counting flag, int ndims, const int *dims,
                                     bool optional, xrtti *(*type)(), xrttiarray::getter get);
KELSTDMT_API xrttisequence *build_sequence(glue &place, const char *name, counting flag, bool optional,
                                           xrtti *(*type)(), xrttisequence::sizer size,
                                           xrttisequence::getter get);
KELSTDMT_API xrttidictionary *build_dictionary(glue &place, const char *name, counting flag, bool optional,
                                               xrtti *(*type)(), xrttidictionary::sizer size,
                                               xrttidictionary::finder find,
                                               xrttidictionary::keygetter getkey,
                                               xrttidictionary::getter get);

template <std::size_t N>
struct declaration {
    counting flag;
    std::array<field_decl, N> rows;
};

template <class... Rows>
constexpr declaration<sizeof...(Rows)> declare(counting flag, Rows... list) {
    return {flag, {list...}};
}
template <std::size_t N>
constexpr declaration<N> declare(counting flag, const std::array<field_decl, N> &list) {
    return {flag, list};
}

template <std::size_t N>
constexpr bool distinct_names(const declaration<N> &type) {
    for (std::size_t i = 0; i < N; ++i)
        for (std::size_t k = 0; k < i; ++k)
            if (std::string_view(type.rows[i].name) == type.rows[k].name) return false;
    return true;
}

template <class T>
constexpr xrtticlass *(*parent_of())() {
    if constexpr (has_own_descriptor<typename T::kel_base>)
        return &T::kel_base::getclassrtti;
    else
        return nullptr;
}

template <class T>
struct sequence_functions {
    static int size(xrttisequence *, xobject *object) { return object_for_field<T>(object).getarraysize(); }
    static xany get(xrttisequence *, int index, xobject *object) {
        T &self = object_for_field<T>(object);
        if (index < 0) kelhThrowNegativeIndex(index);
        if (index >= self.getarraysize()) kelhThrowInvalidSeqIndex(object, index);
        return to_any(self.get(index));
    }
};

template <class T>
struct dictionary_functions {
    using value_type = typename T::value_type;

    static int size(xrttidictionary *, xobject *object) { return object_for_field<T>(object).getsize(); }
    static unsigned char find(xrttidictionary *, const char *key, xobject *object, xany &elem) {
        value_type value{};
        return object_for_field<T>(object).find(key, value) && put(elem, value);
    }
    static unsigned char getkey(xrttidictionary *, int index, xobject *object, xstring &key) {
        if (index < 0) kelhThrowNegativeIndex(index);
        return object_for_field<T>(object).getkeybyindex(index, key);
    }
    static unsigned char get(xrttidictionary *, int index, xobject *object, xany &elem) {
        if (index < 0) kelhThrowNegativeIndex(index);
        value_type value{};
        return object_for_field<T>(object).getbyindex(index, value) && put(elem, value);
    }

private:
    static bool put(xany &elem, const value_type &value) {
        elem = to_any(value);
        return true;
    }
};

template <auto At, class Object, class Sequence>
struct array_reader;
template <auto At, class Object, std::size_t... D>
struct array_reader<At, Object, std::index_sequence<D...>> {
    static xany get(xrttiarray *, int *indices, xobject *object) {
        return to_any((object_for_field<Object>(object).*At)(indices[D]...));
    }
};

template <class Member>
struct array_traits;
template <class R, class T, class... I>
struct array_traits<R (T::*)(I...)> {
    using type = R;
    using object = T;
    static constexpr std::size_t dimensions = sizeof...(I);
};
template <class R, class T, class... I>
struct array_traits<R (T::*)(I...) const> : array_traits<R (T::*)(I...)> {};
template <class R, class T, class... I>
struct array_traits<R (T::*)(I...) noexcept> : array_traits<R (T::*)(I...)> {};
template <class R, class T, class... I>
struct array_traits<R (T::*)(I...) const noexcept> : array_traits<R (T::*)(I...)> {};

template <std::size_t N>
struct array_decl {
    bool optional;
    std::array<int, N> sizes;
    xrtti *(*type)();
    xrttiarray::getter get;
};

}  // namespace detail

// The elements of an array type: the member that reads one, and the size of each dimension.
template <auto At, int... Sizes>
constexpr detail::array_decl<sizeof...(Sizes)> elements(bool optional = false) {
    using traits = detail::array_traits<decltype(At)>;
    static_assert(traits::dimensions == sizeof...(Sizes),
                  "kelstdmt: the element getter takes one int for each dimension");
    static_assert(((Sizes > 0) && ...), "kelstdmt: a dimension has at least one element");
    return {
        optional,
        {Sizes...},
        &detail::describe<typename traits::type>,
        &detail::array_reader<At, typename traits::object, std::make_index_sequence<sizeof...(Sizes)>>::get};
}

// Elements of a sequence or dictionary that may be absent.
inline constexpr bool optional_elements = true;

}  // namespace kel

// A whole sequence or dictionary class. create() gives a new empty one with count 0.
#define KEL_SEQUENCE(T, ...) KEL_CONTAINER(T, xrttisequence, kel::sequence_of<__VA_ARGS__>)
#define KEL_DICTIONARY(T, ...) KEL_CONTAINER(T, xrttidictionary, kel::dictionary_of<__VA_ARGS__>)
#define KEL_CONTAINER(T, KIND, ...)                        \
    KEL_DECLARE(KIND, T)                                   \
    class KEL_EXPORTED T : public __VA_ARGS__ {            \
        KEL_CLASS(T, xobject)                              \
    public:                                                \
        using kel_container = __VA_ARGS__;                 \
        using kel_container::kel_container;                \
        T() = default;                                     \
        static T *create() { return kel::construct<T>(); } \
    };

#define KEL_DEFINE_ENUM(E, NAME, ...)                                         \
    xrttienum *xrtti_get_p_##E() {                                            \
        static constinit kel::detail::glue place;                             \
        static constexpr const char *names[] = {__VA_ARGS__};                 \
        if (auto *ready = place.get<xrttienum>()) return ready;               \
        return kel::detail::build_enum(place, NAME, names, std::size(names)); \
    }

// Mistakes in a class body, told before anything else trips over them.
#define KEL_CHECK_CLASS(T)                                                           \
    static_assert(kel::detail::has_class_macro<T>(),                                 \
                  "kelstdmt: the body of " #T " lacks KEL_CLASS(" #T ", its base)"); \
    static_assert(kel::detail::has_right_base<T>(),                                  \
                  "kelstdmt: KEL_CLASS of " #T " names a class that is no base");

// ... is the counting flag and the rows.
#define KEL_DEFINE_STRUCT(T, NAME, ...)                                                                   \
    KEL_CHECK_CLASS(T)                                                                                    \
    xrttistruct *xrtti_get_p_##T() {                                                                      \
        static constinit kel::detail::glue place;                                                         \
        static constexpr auto type = kel::detail::declare(__VA_ARGS__);                                   \
        static_assert(kel::detail::distinct_names(type), "kelstdmt: two fields of " #T " have one name"); \
        if (auto *ready = place.get<xrttistruct>()) return ready;                                         \
        return kel::detail::build_struct(place, NAME, type.flag, kel::detail::parent_of<T>(),             \
                                         type.rows.data(), type.rows.size());                             \
    }                                                                                                     \
    KEL_DEFINE_CLASS(T)

#define KEL_DEFINE_EXCEPTION(T, NAME, FLAG) KEL_DEFINE_STRUCT(T, NAME, FLAG, T::kel_fields())

#define KEL_DEFINE_UNION(T, NAME, ...)                                                                   \
    KEL_CHECK_CLASS(T)                                                                                   \
    xrttiunion *xrtti_get_p_##T() {                                                                      \
        static constinit kel::detail::glue place;                                                        \
        static constexpr auto type = kel::detail::declare(__VA_ARGS__);                                  \
        static_assert(type.rows.size() > 1, "kelstdmt: union " #T " needs a discriminator and a case");  \
        static_assert(kel::detail::distinct_names(type), "kelstdmt: two cases of " #T " have one name"); \
        if (auto *ready = place.get<xrttiunion>()) return ready;                                         \
        return kel::detail::build_union(place, NAME, type.flag, type.rows.data(), type.rows.size());     \
    }                                                                                                    \
    KEL_DEFINE_CLASS(T)

#define KEL_DEFINE_ARRAY(T, NAME, FLAG, ...)                                                    \
    KEL_CHECK_CLASS(T)                                                                          \
    xrttiarray *xrtti_get_p_##T() {                                                             \
        static constinit kel::detail::glue place;                                               \
        static constexpr auto type = __VA_ARGS__;                                               \
        if (auto *ready = place.get<xrttiarray>()) return ready;                                \
        return kel::detail::build_array(place, NAME, FLAG, static_cast<int>(type.sizes.size()), \
                                        type.sizes.data(), type.optional, type.type, type.get); \
    }                                                                                           \
    KEL_DEFINE_CLASS(T)

// ... is the counting flag, and kel::optional_elements where elements may be absent.
#define KEL_DEFINE_SEQUENCE(T, NAME, ...) \
    KEL_DEFINE_CONTAINER(T, NAME, xrttisequence, sequence, __VA_ARGS__, false)
#define KEL_DEFINE_DICTIONARY(T, NAME, ...) \
    KEL_DEFINE_CONTAINER(T, NAME, xrttidictionary, dictionary, __VA_ARGS__, false)

#define KEL_DEFINE_CONTAINER(T, NAME, KIND, WORD, FLAG, OPTIONAL, ...)             \
    KEL_CHECK_CLASS(T)                                                             \
    KIND *xrtti_get_p_##T() {                                                      \
        static constinit kel::detail::glue place;                                  \
        if (auto *ready = place.get<KIND>()) return ready;                         \
        return kel::detail::build_declared_##WORD<T>(place, NAME, FLAG, OPTIONAL); \
    }                                                                              \
    KEL_DEFINE_CLASS(T)

#define KEL_DEFINE_CLASS(T)                            \
    xrtticlass *T::getclassrtti() {                    \
        return xrtti_get_p_##T();                      \
    }                                                  \
    xrtticlass *T::givertti() {                        \
        return xrtti_get_p_##T();                      \
    }                                                  \
    T *T::cast(xobject *object) {                      \
        return kel::detail::cast<T>(object, #T);       \
    }                                                  \
    void *T::dyndowncast(const xrtticlass *wanted) {   \
        return kel::detail::downcast<T>(this, wanted); \
    }

namespace kel::detail {

template <class T>
xrttisequence *build_declared_sequence(glue &place, const char *name, counting flag, bool optional) {
    using functions = sequence_functions<T>;
    return build_sequence(place, name, flag, optional, &describe<typename T::value_type>, &functions::size,
                          &functions::get);
}

template <class T>
xrttidictionary *build_declared_dictionary(glue &place, const char *name, counting flag, bool optional) {
    using functions = dictionary_functions<T>;
    return build_dictionary(place, name, flag, optional, &describe<typename T::value_type>, &functions::size,
                            &functions::find, &functions::getkey, &functions::get);
}

}  // namespace kel::detail
