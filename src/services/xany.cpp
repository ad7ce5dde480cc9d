// The variant value: what does not fit into its header. Reports carry the name of the object module, of
// which the value is a part.
#include <kelstdmt/xany.h>

#include <cstring>

#include <kelstdmt/xexception.h>
#include <kelstdmt/xrtti.h>

namespace {

constexpr char source[] = "services/xobject";

bool same_text(const char *a, const char *b) noexcept {
    return a == b || (a != nullptr && b != nullptr && std::strcmp(a, b) == 0);
}

}  // namespace

// Construction ---------------------------------------------------------------------------------

xany::xany(const char *text) : m_kind(text == nullptr || kel::is_nil(text) ? Nil : Uninit) {
    if (!kel::is_text(text)) return;
    m_payload.text = kel::detail::buffer_copy(text);
    m_kind = String;
}

xany::xany(const xstring &text) : m_kind(text.IsNull() ? Nil : String) {
    if (m_kind == String) m_payload.text = kel::detail::buffer_share(const_cast<char *>(text.Str()));
}

xany::xany(xint value, brtti *enumtype) : m_kind(kind_of(value, Enum)) {
    if (m_kind == Enum && enumtype != nullptr && value == enumtype->getnenumvalues()) m_kind = Nil;
    m_payload.enumeration = {value, enumtype};
}

xany::xany(void *value, brtti *descriptor) : m_kind(object_kind(value)) {
    if (m_kind == Object) {
        m_kind = Extern;
        m_payload.foreign = {value, descriptor};
    } else {
        delete descriptor;
    }
}

void xany::copy_slow(const xany &other) {
    switch (other.m_kind) {
        case String:
            m_payload.text = kel::detail::buffer_share(const_cast<char *>(other.m_payload.text));
            break;
        case Extern: {
            brtti *descriptor = other.m_payload.foreign.rtti;
            m_payload.foreign = {other.m_payload.foreign.value, descriptor ? descriptor->Clone() : nullptr};
            break;
        }
        default:
            _Abort("Can not be here.", source, __LINE__);
            return;
    }
    m_kind = other.m_kind;
}

void xany::drop() {
    switch (std::exchange(m_kind, Uninit)) {
        case String:
            kel::detail::buffer_drop(const_cast<char *>(m_payload.text));
            break;
        case Object:
            xrcunirelease(m_payload.object);
            break;
        case Extern:
            delete m_payload.foreign.rtti;
            break;
        default:
            break;
    }
}

// Assignment -----------------------------------------------------------------------------------

bool xany::reusable() const {
    if (m_kind != Object && m_kind != Extern) return true;
    _Abort("Can not reuse xany.", source, __LINE__);
    return false;
}

xany &xany::operator=(const xany &other) {
    if (!reusable()) return *this;
    if (m_kind == String || other.m_kind >= String) {
        xany fresh(other);
        std::swap(m_kind, fresh.m_kind);
        std::swap(m_payload, fresh.m_payload);
    } else {
        copy(other);
    }
    return *this;
}

xany &xany::operator=(xany &&other) {
    if (!reusable() || this == &other) return *this;
    if (m_kind == String) drop();
    m_payload = other.m_payload;
    m_kind = std::exchange(other.m_kind, Uninit);
    return *this;
}

xany &xany::operator=(xobject *object) {
    return reusable() ? *this = xany(object) : *this;
}

// Questions ------------------------------------------------------------------------------------

brtti *xany::getrtti() const {
    switch (m_kind) {
        case Object:
            return m_payload.object->getrtti();
        case Int:
            return get_xrttiint();
        case Bool:
            return get_xrttibool();
        case Real:
            return get_xrttireal();
        case String:
            return get_xrttistring();
        case Enum:
            return m_payload.enumeration.rtti;
        case Extern:
            return m_payload.foreign.rtti;
        default:
            return nullptr;
    }
}

xstring xany::gettypename() const {
    brtti *type = getrtti();
    if (type == nullptr) kelXUnknownType::Throw(*this);
    return type->gettypename();
}

xany xany::asserttype(brtti *type) const {
    brtti *own = getrtti();
    if (own == nullptr) kelXUnknownType::Throw(*this);
    if (!own->iskindof(type)) kelXTypeMismatch::Throw(type ? type->gettypename() : xstring(), *this);
    return *this;
}

bool xany::operator==(const xany &other) const noexcept {
    if (m_kind != other.m_kind) return false;
    const Payload &a = m_payload, &b = other.m_payload;
    switch (m_kind) {
        case Int:
            return a.integer == b.integer;
        case Bool:
            return a.boolean == b.boolean;
        case Real:
            return a.real == b.real;
        case String:
            return same_text(a.text, b.text);
        case Enum:
            return a.enumeration.value == b.enumeration.value && a.enumeration.rtti == b.enumeration.rtti;
        case Object:
            return a.object == b.object;
        case Extern:
            return a.foreign.value == b.foreign.value;
        default:
            return true;
    }
}

bool xany::operator==(const char *text) const noexcept {
    if (kel::is_uninit(text)) return m_kind == Uninit;
    if (kel::is_nil(text)) return m_kind == Nil;
    return m_kind == String && same_text(m_payload.text, text);
}

std::size_t xany::hash() const noexcept {
    auto mixed = [this](auto value) {
        return std::hash<decltype(value)>()(value) * 31 + static_cast<std::size_t>(m_kind);
    };
    switch (m_kind) {
        case Int:
            return mixed(m_payload.integer);
        case Bool:
            return mixed(m_payload.boolean);
        case Real:
            return mixed(m_payload.real);
        case String:
            return mixed(std::string_view(m_payload.text));
        case Enum:
            return mixed(m_payload.enumeration.value);
        case Object:
            return mixed(m_payload.object);
        case Extern:
            return mixed(m_payload.foreign.value);
        default:
            return m_kind;
    }
}

// Conversions ----------------------------------------------------------------------------------

xany::operator int() const {
    switch (m_kind) {
        case Int:
            return m_payload.integer;
        case Enum:
            return m_payload.enumeration.value;
        case Nil:
            return kel::nil_int;
        case Uninit:
            return kel::uninit_int;
        default:
            _Abort("Can not convert xany to xint.", source, __LINE__);
            return kel::uninit_int;
    }
}

xany::operator xobject *() const {
    switch (m_kind) {
        case Object:
            return m_payload.object;
        case Nil:
            return nullptr;
        case Uninit:
            return kel::uninit_object();
        default:
            _Abort("Can not convert xany to xobject.", source, __LINE__);
            return kel::uninit_object();
    }
}

xany::operator xrstring() const {
    switch (m_kind) {
        case String:
            return m_payload.text;
        case Nil:
            return kel::nil_text();
        case Uninit:
            return kel::uninit_text();
        default:
            _Abort("Can not convert xany to xrstring.", source, __LINE__);
            return kel::uninit_text();
    }
}

xany::operator xextern() const {
    switch (m_kind) {
        case Extern:
            return {m_payload.foreign.value, m_payload.foreign.rtti};
        case Nil:
            return {nullptr, nullptr};
        case Uninit:
            return {kel::uninit_pointer(), nullptr};
        default:
            _Abort("Can not convert xany to xextern.", source, __LINE__);
            return {kel::uninit_pointer(), getrtti()};
    }
}

xbool xany::getbool() const {
    switch (m_kind) {
        case Bool:
            return m_payload.boolean;
        case Nil:
            return kel::nil_bool;
        case Uninit:
            return kel::uninit_bool;
        default:
            _Abort("Can not convert xany to xbool.", source, __LINE__);
            return kel::uninit_bool;
    }
}

xreal xany::getreal() const {
    switch (m_kind) {
        case Real:
            return m_payload.real;
        case Nil:
            return kel::nil_real;
        case Uninit:
            return kel::uninit_real;
        default:
            _Abort("Can not convert xany to xreal.", source, __LINE__);
            return kel::uninit_real;
    }
}

xstring xany::getstring() const {
    switch (m_kind) {
        case String:
            return xstring::Adopt(kel::detail::buffer_share(const_cast<char *>(m_payload.text)));
        case Nil:
        case Uninit:
            return {};
        default:
            _Abort("Can not convert xany to xrstring.", source, __LINE__);
            return {};
    }
}
