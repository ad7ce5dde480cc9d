// The variant value: how a value of any type crosses a generic interface.
//
// An xany is a kind code and a payload of at most two pointers; scalars need no heap and no virtual
// call. A scalar that equals its type's uninit or nil marker is never kept under a value kind: it
// becomes kind uninit or nil, whichever constructor it came through. A string value holds one
// reference on a shared text buffer, an object value one uni reference on the object, an extern value
// owns its descriptor but not the value.
//
// An xany that holds an object or an extern value is never assigned again. One xany belongs to one
// thread at a time.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include <kelstdmt/export.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>
#include <kelstdmt/xtypes.h>

class KELSTDMT_API xany {
public:
    enum Kind : std::uint32_t { Uninit, Nil, Int, Bool, Real, String, Enum, Object, Extern };

    xany() noexcept : m_kind(Uninit) {}
    xany(xint value) noexcept : m_kind(kind_of(value, Int)) { m_payload.integer = value; }
    // An int by its bits, as which the markers are often written.
    template <std::same_as<unsigned> U>
    xany(U value) noexcept : xany(static_cast<xint>(value)) {}
    xany(xbool value) noexcept : m_kind(kind_of(value, Bool)) { m_payload.boolean = value; }
    // Exactly bool, so that no pointer slips in as true.
    template <std::same_as<bool> B>
    xany(B value) noexcept : m_kind(Bool) {
        m_payload.boolean = value;
    }
    xany(xreal value) noexcept : m_kind(kind_of(value, Real)) { m_payload.real = value; }
    xany(std::nullptr_t) noexcept : m_kind(Nil) {}
    // A copy of the text; a null pointer is taken for the nil marker.
    xany(const char *text);
    // Shares the string's buffer; a null string gives nil.
    xany(const xstring &text);
    // An enum value. A value equal to the number of enumerators gives nil. The descriptor is not owned.
    xany(xint value, brtti *enumtype);
    // 22 gives uninit, null gives nil, anything else is attached with xrcuniattach.
    xany(xobject *object) : m_kind(object_kind(object)) {
        m_payload.object = object;
        if (m_kind == Object) xrcuniattach(object);
    }
    // An extern value: 22 gives uninit, null gives nil. Takes the descriptor over in every case.
    xany(void *value, brtti *descriptor);

    xany(const xany &other) : m_kind(Uninit) { copy(other); }
    xany(xany &&other) noexcept : m_kind(std::exchange(other.m_kind, Uninit)), m_payload(other.m_payload) {}
    ~xany() {
        if (m_kind >= String && m_kind != Enum) drop();
    }

    // Reports "Can not reuse xany." and changes nothing when this value holds an object or an extern
    // value. Copying an extern value clones its descriptor (kelXCannotCloneRTTI if it cannot).
    xany &operator=(const xany &other);
    xany &operator=(xany &&other);
    xany &operator=(xobject *object);
    // Exactly int, so that a literal 0 is no null pointer.
    template <std::same_as<xint> I>
    xany &operator=(I value) {
        return *this = xany(value);
    }

    Kind getkind() const noexcept { return m_kind; }
    bool isuninit() const noexcept { return m_kind == Uninit; }
    bool isnil() const noexcept { return m_kind == Nil; }
    // Uninit and nil are acceptable wherever an object, an extern or an enum is.
    bool isobject() const noexcept { return m_kind <= Nil || m_kind == Object; }
    bool isextern() const noexcept { return m_kind <= Nil || m_kind == Extern; }
    bool isenum() const noexcept { return m_kind <= Nil || m_kind == Enum; }

    // The descriptor of the value; null for uninit and nil.
    brtti *getrtti() const;
    xstring gettypename() const;  // throws kelXUnknownType for a value without a descriptor
    // A copy of this value, if it is of the type: else kelXUnknownType or kelXTypeMismatch.
    xany asserttype(brtti *type) const;

    // Same kind and same value. Objects are compared by identity, texts by content.
    bool operator==(const xany &other) const noexcept;
    bool operator==(const char *text) const noexcept;
    template <std::same_as<xstring> Text>
    bool operator==(const Text &text) const noexcept {
        return *this == text.Str();
    }
    // No object's count changes.
    template <std::derived_from<xobject> T>
    bool operator==(T *object) const noexcept {
        if (m_kind != object_kind(object)) return false;
        return m_kind != Object || m_payload.object == object;
    }
    template <class Scalar>
    requires(std::same_as<Scalar, xint> || std::same_as<Scalar, bool> || std::same_as<Scalar, xreal> ||
             std::same_as<Scalar, std::nullptr_t>) bool
    operator==(Scalar value) const noexcept {
        return *this == xany(value);
    }

    // In each, uninit and nil convert to the target's markers. Any other kind that does not fit is reported
    // ("Can not convert xany to ...") and gives the uninit marker.
    operator int() const;
    operator xobject *() const;
    operator xrstring() const;  // valid while this xany holds it
    operator xextern() const;
    xbool getbool() const;
    xreal getreal() const;
    xstring getstring() const;  // shares the buffer; uninit and nil give the null string

    // Prints through the descriptor; kelXUnknownType without one. Null: standard output, defaults.
    void print(ioStream *stream = nullptr, printData *options = nullptr) const;

    std::size_t hash() const noexcept;

private:
    union alignas(8) Payload {
        xint integer;
        xbool boolean;
        xreal real;
        const char *text;
        xobject *object;
        struct {
            xint value;
            brtti *rtti;
        } enumeration;
        struct {
            void *value;
            brtti *rtti;
        } foreign;
    };

    template <class Scalar>
    static Kind kind_of(Scalar value, Kind kind) noexcept {
        return kel::is_uninit(value) ? Uninit : kel::is_nil(value) ? Nil : kind;
    }
    static Kind object_kind(const void *object) noexcept {
        return kel::is_object(object) ? Object : object == nullptr ? Nil : Uninit;
    }

    void copy(const xany &other) {
        if (other.m_kind < String || other.m_kind == Enum) {
            m_payload = other.m_payload;
            m_kind = other.m_kind;
        } else if (other.m_kind == Object) {
            xrcuniattach(other.m_payload.object);
            m_payload = other.m_payload;
            m_kind = Object;
        } else {
            copy_slow(other);
        }
    }
    void copy_slow(const xany &other);
    void drop();
    bool reusable() const;

    Kind m_kind;
    Payload m_payload;
};

static_assert(sizeof(void *) != 4 || sizeof(xany) == 16, "the 32-bit record is 16 bytes");
static_assert(sizeof(void *) != 8 || sizeof(xany) == 24);

template <>
struct std::hash<xany> {
    std::size_t operator()(const xany &value) const noexcept { return value.hash(); }
};
