// The kinds of descriptors: what each answers to the queries of its kind.
//
// A getter says that a value is absent by throwing kelXNoField, recognised by its type name.
#include <kelstdmt/xrtti.h>

#include <cstring>
#include <memory>
#include <string_view>

#include <kelstdmt/xexception.h>

#include "services/object_access.h"

// Lists ----------------------------------------------------------------------------------------

namespace {

constexpr char source[] = "services/xrtti";

template <class T>
T *element(T *const *list, int count, int index, const char *message, int line) {
    if (index >= 0 && index < count) return list[index];
    _Abort(message, source, line);
    return nullptr;
}

}  // namespace

const char *xrttienumvalues::get(int index) const noexcept {
    return index >= 0 && index < m_count ? m_names[index] : nullptr;
}

xrttistruct *xrttistructs::getbyindex(int index) const {
    return element(m_structs, m_count, index, "Invalid index.", __LINE__);
}

xrttifield *xrttifields::getbyindex(int index) const {
    return element(m_fields, m_count, index, "Invalid field index.", __LINE__);
}

bool xrttifields::find(const char *name, xrttifield *&field) const {
    if (name == nullptr) return false;
    const bool marker = !kel::is_text(name);
    const std::string_view wanted(marker ? "" : name);
    const std::uint64_t key = kel::detail::name_key(name);
    for (int i = 0; i < m_count; ++i) {
        if (m_fields[i]->m_key != key) continue;
        const xstring &candidate = m_fields[i]->m_name;
        if (marker ? candidate.Str() == name : !candidate.IsNull() && std::string_view(candidate) == wanted) {
            field = m_fields[i];
            return true;
        }
    }
    return false;
}

namespace kel::detail {

std::uint64_t name_key(const char *name) noexcept {
    if (!is_text(name)) return 0;
    const std::size_t length = std::strlen(name);
    // Words of a fixed size, which may overlap: a copy of so many bytes would cost a call.
    auto ends = [&]<class Word>(Word word) {
        std::memcpy(&word, name, sizeof word);
        const std::uint64_t head = word;
        std::memcpy(&word, name + length - sizeof word, sizeof word);
        return (head ^ std::rotl(std::uint64_t{word}, 31)) + length;
    };
    if (length >= sizeof(std::uint64_t)) return ends(std::uint64_t{});
    if (length >= sizeof(std::uint32_t)) return ends(std::uint32_t{});
    if (length >= sizeof(std::uint16_t)) return ends(std::uint16_t{});
    return length == 0 ? 0 : ends(std::uint8_t{});
}

}  // namespace kel::detail

// Absent values --------------------------------------------------------------------------------

namespace {

// A caught exception: the flight's reference, given up at the end of the handler.
class caught {
public:
    explicit caught(xthrowable *flight) noexcept : m_flight(flight) {}
    ~caught() { kel::detail::release_flight(m_flight); }
    caught(const caught &) = delete;
    caught &operator=(const caught &) = delete;

    bool says_absent() {
        xrtticlass *type = kel::is_object(m_flight) ? m_flight->getrtti() : nullptr;
        return type != nullptr && type->getname() == "kellib::XNoField";
    }
    [[noreturn]] void pass_on() { throw std::exchange(m_flight, nullptr); }

private:
    xthrowable *m_flight;
};

xany read(xrttifield *field, const xany &value) {
    if (field == nullptr) return {};
    try {
        return field->get(value);
    } catch (xthrowable *flight) {
        caught exception(flight);
        if (!exception.says_absent()) exception.pass_on();
        return {};
    }
}

xobject *object_of(const xany &value) {
    return value;
}

}  // namespace

// Names ----------------------------------------------------------------------------------------

void xrtti::initialize(const char *name) {
    m_name = name ? name : xstrNullStr;
}
xstring xrtti::GiveTypeName() {
    return m_name;
}

// Enums ----------------------------------------------------------------------------------------

void xrttienum::initialize(const char *name, xrttienumvalues *values) {
    xrtti::initialize(name);
    m_values = values;
}
xbool xrttienum::GiveIsEnum() {
    return true;
}
int xrttienum::GiveNEnumValues() {
    return m_values ? m_values->getarraysize() : 0;
}
xstring xrttienum::GiveEnumValueByIndex(int index) {
    const char *name = m_values ? m_values->get(index) : nullptr;
    return name ? xstring(name) : xstring();
}
int xrttienum::GiveEnumIndex(xany value) {
    return value;
}

// Classes --------------------------------------------------------------------------------------

void xrtticlass::initialize(const char *name, unsigned char isrefcount) {
    xrtti::initialize(name);
    m_isrefcount = isrefcount;
}
xbool xrtticlass::GiveIsClass() {
    return true;
}

// Structs --------------------------------------------------------------------------------------

void xrttistruct::initialize(const char *name, unsigned char isrefcount, xrttistructs *parents,
                             xrttifields *fields) {
    xrtticlass::initialize(name, isrefcount);
    m_parents = parents;
    m_fields = fields;
}
xbool xrttistruct::GiveIsStruct() {
    return true;
}
int xrttistruct::GiveNParents() {
    return m_parents ? m_parents->getsize() : 0;
}
brtti *xrttistruct::GiveParentType(int index) {
    return m_parents ? m_parents->getbyindex(index) : nullptr;
}
int xrttistruct::GiveNFields() {
    return m_fields ? m_fields->getmapsize() : 0;
}
brtti *xrttistruct::GiveFieldType(int index) {
    xrttifield *field = m_fields ? m_fields->getbyindex(index) : nullptr;
    return field ? field->gettype() : nullptr;
}
xstring xrttistruct::GiveFieldName(int index) {
    xrttifield *field = m_fields ? m_fields->getbyindex(index) : nullptr;
    return field ? field->getname() : xstring();
}
xany xrttistruct::GiveField(int index, xany value) {
    return read(m_fields ? m_fields->getbyindex(index) : nullptr, value);
}
xany xrttistruct::GiveFieldByName(const char *name, xany value) {
    xrttifield *field = nullptr;
    if (m_fields == nullptr || !m_fields->find(name, field)) kelXNoField::Throw(name, std::move(value));
    return field->get(value);
}
xbool xrttistruct::GiveHasField(const char *name) {
    xrttifield *field = nullptr;
    return m_fields != nullptr && m_fields->find(name, field);
}

// Unions ---------------------------------------------------------------------------------------

void xrttiunion::initialize(const char *name, unsigned char isrefcount, xrttifield *discriminator,
                            xrttifields *cases) {
    xrtticlass::initialize(name, isrefcount);
    m_discriminator = discriminator;
    m_cases = cases;
}
xbool xrttiunion::GiveIsUnion() {
    return true;
}
int xrttiunion::GiveNUnionCases() {
    return m_cases ? m_cases->getmapsize() : 0;
}
brtti *xrttiunion::GiveCaseType(int index) {
    xrttifield *field = m_cases ? m_cases->getbyindex(index) : nullptr;
    return field ? field->gettype() : nullptr;
}
xstring xrttiunion::GiveCaseName(int index) {
    xrttifield *field = m_cases ? m_cases->getbyindex(index) : nullptr;
    return field ? field->getname() : xstring();
}
xany xrttiunion::GiveCaseValue(int index, xany value) {
    return read(m_cases ? m_cases->getbyindex(index) : nullptr, value);
}
brtti *xrttiunion::GiveDiscrType() {
    return m_discriminator ? m_discriminator->gettype() : nullptr;
}
xany xrttiunion::GiveDiscrValue(xany value) {
    return read(m_discriminator, value);
}

// Arrays ---------------------------------------------------------------------------------------

void xrttiarray::initialize(const char *name, unsigned char isrefcount, int ndims, int *dims,
                            unsigned char iselemoptional, xrtti *elemtype, getter read) {
    xrtticlass::initialize(name, isrefcount);
    m_ndims = dims ? ndims : 0;
    m_dims = dims;
    m_iselemoptional = iselemoptional;
    m_elemtype = elemtype;
    m_get = read;
}
xbool xrttiarray::GiveIsArray() {
    return true;
}
int xrttiarray::GiveNArrayDims() {
    return m_ndims;
}
int xrttiarray::GiveNArrayElems(int dimension) {
    return dimension >= 0 && dimension < m_ndims ? m_dims[dimension] : kel::nil_int;
}
xany xrttiarray::GiveArrayElem(int *indices, xany value) {
    return get(indices, value);
}
brtti *xrttiarray::GiveArrayType() {
    return m_elemtype;
}

// Sequences ------------------------------------------------------------------------------------

void xrttisequence::initialize(const char *name, unsigned char isrefcount, unsigned char iselemoptional,
                               xrtti *elemtype, sizer size, getter read) {
    xrtticlass::initialize(name, isrefcount);
    m_iselemoptional = iselemoptional;
    m_elemtype = elemtype;
    m_size = size;
    m_get = read;
}
xbool xrttisequence::GiveIsSequence() {
    return true;
}
int xrttisequence::GiveNSeqElems(xany value) {
    return getsize(value);
}
xany xrttisequence::GiveSeqElem(int index, xany value) {
    xobject *object = object_of(value);
    if (index >= getsize(object)) kelXNoField::Throw(index, std::move(value));
    return get(index, object);
}
brtti *xrttisequence::GiveSeqType() {
    return m_elemtype;
}
xbool xrttisequence::GiveHasIndex(int index, xany value) {
    // Beyond the end the answer is known without an exception.
    if (index >= getsize(value)) return false;
    try {
        GiveSeqElem(index, std::move(value));
        return true;
    } catch (xthrowable *flight) {
        caught exception(flight);
        if (!exception.says_absent()) exception.pass_on();
        return false;
    }
}

// Dictionaries ---------------------------------------------------------------------------------

void xrttidictionary::initialize(const char *name, unsigned char isrefcount, unsigned char iselemoptional,
                                 xrtti *elemtype, sizer size, finder seek, keygetter readkey, getter read) {
    xrtticlass::initialize(name, isrefcount);
    m_iselemoptional = iselemoptional;
    m_elemtype = elemtype;
    m_size = size;
    m_find = seek;
    m_getkey = readkey;
    m_get = read;
}
xbool xrttidictionary::GiveIsDictionary() {
    return true;
}
int xrttidictionary::GiveNDictElems(xany value) {
    return getsize(value);
}
brtti *xrttidictionary::GiveDictType() {
    return m_elemtype;
}
xbool xrttidictionary::GiveDictKey(int index, xany value, xstring &key) {
    return getkey(index, value, key);
}
xbool xrttidictionary::GiveDictElem(int index, xany value, xany &elem) {
    return get(index, value, elem);
}
xany xrttidictionary::GiveDictElemByKey(const char *key, xany value) {
    xany elem;
    if (!find(key, value, elem)) kelXNoField::Throw(key, std::move(value));
    return elem;
}
xbool xrttidictionary::GiveHasKey(const char *key, xany value) {
    xany elem;
    return find(key, value, elem);
}

// The basic descriptors ------------------------------------------------------------------------

namespace {

xrtti *basic(const char *name) {
    std::unique_ptr<xrtti> type(new (pDefMemMgr) xrtti);
    type->initialize(name);
    return type.release();
}

xrtticlass *basic_class(const char *name) {
    std::unique_ptr<xrtticlass> type(new (pDefMemMgr) xrtticlass);
    type->initialize(name, false);
    return type.release();
}

}  // namespace

xrtti *get_xrttibool() {
    static xrtti *const type = basic("bool");
    return type;
}
xrtti *get_xrttiint() {
    static xrtti *const type = basic("int");
    return type;
}
xrtti *get_xrttireal() {
    static xrtti *const type = basic("real");
    return type;
}
xrtti *get_xrttistring() {
    static xrtti *const type = basic("string");
    return type;
}
xrtti *get_xrttiany() {
    static xrtti *const type = basic("any");
    return type;
}
xrtticlass *get_xrttiobject() {
    static xrtticlass *const type = basic_class("object");
    return type;
}
