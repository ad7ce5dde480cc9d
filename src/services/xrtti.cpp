// Descriptors: the public queries. Each checks the kind, the value and the index, and then asks the virtual
// operation; below them stand the answers of a descriptor that is of no kind at all.
#include <kelstdmt/xrtti.h>

#include <cstring>
#include <unordered_set>
#include <vector>

#include <kelstdmt/xexception.h>

// Checks ---------------------------------------------------------------------------------------

inline void brtti::require(xbool kind, void (*fail)(const char *)) {
    if (!kind) [[unlikely]]
        fail(gettypename());
}

inline void brtti::check_index(int index, int count, void (*fail)(const char *, int)) {
    if (index < 0 || index >= count) [[unlikely]]
        fail(gettypename(), index);
}

void brtti::check_value(const xany &value) {
    brtti *type = value.getrtti();
    if (type == this) return;
    if (type == nullptr) kelXUnknownType::Throw(value);
    if (!type->iskindof(this)) kelXTypeMismatch::Throw(gettypename(), value);
}

// Kinship --------------------------------------------------------------------------------------

bool brtti::issameas(brtti *type) {
    if (type == this) return true;
    if (type == nullptr) return false;
    xstring mine = gettypename(), theirs = type->gettypename();
    if (mine.Str() == theirs.Str()) return true;
    return !mine.IsNull() && !theirs.IsNull() && std::strcmp(mine.Str(), theirs.Str()) == 0;
}

namespace {

constexpr int usual_line = 32;

// Depth first over the parents, each descriptor once, so that neither a parent that is reached on many ways
// nor a circle costs more than its members.
bool has_ancestor(brtti *at, brtti *type) {
    std::vector<brtti *> open;
    std::unordered_set<brtti *> seen;
    for (;;) {
        for (int i = at->isstruct() ? at->getnparents() : 0; i-- > 0;)
            if (brtti *parent = at->getparenttype(i); parent && seen.insert(parent).second)
                open.push_back(parent);
        if (open.empty()) return false;
        at = open.back();
        open.pop_back();
        if (at->issameas(type)) return true;
    }
}

}  // namespace

bool brtti::iskindof(brtti *type) {
    if (type == nullptr) return false;
    // Nearly always parents form a short line of one each: the very descriptor is looked for first, which
    // costs no look at a name.
    brtti *at = this;
    int line = 0, parents = 1;
    for (; at && parents == 1 && line < usual_line; ++line) {
        if (at == type) return true;
        parents = at->GiveIsStruct() ? at->GiveNParents() : 0;
        at = parents > 0 ? at->GiveParentType(0) : nullptr;
    }
    if (at || parents > 1) return issameas(type) || has_ancestor(this, type);
    for (at = this; !at->issameas(type); at = at->GiveParentType(0))
        if (--line == 0) return false;
    return true;
}

// Enums ----------------------------------------------------------------------------------------

int brtti::getnenumvalues() {
    require(GiveIsEnum(), kelXNotEnumType::Throw);
    return GiveNEnumValues();
}

xstring brtti::getenumvaluebyindex(int index) {
    check_index(index, getnenumvalues(), kelXInvalidEnumIndex::Throw);
    return GiveEnumValueByIndex(index);
}

int brtti::getenumindex(xany value) {
    require(GiveIsEnum(), kelXNotEnumType::Throw);
    if (value.isnil()) return kel::nil_int;
    if (value.isuninit()) return kel::uninit_int;
    check_value(value);
    return GiveEnumIndex(std::move(value));
}

xstring brtti::getenumvalue(xany value) {
    return getenumvaluebyindex(getenumindex(std::move(value)));
}

// Structs --------------------------------------------------------------------------------------

int brtti::getnparents() {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    return GiveNParents();
}

brtti *brtti::getparenttype(int index) {
    check_index(index, getnparents(), kelXInvalidParentIndex::Throw);
    return GiveParentType(index);
}

int brtti::getnfields() {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    return GiveNFields();
}

xstring brtti::getfieldname(int index) {
    check_index(index, getnfields(), kelXInvalidFieldIndex::Throw);
    return GiveFieldName(index);
}

brtti *brtti::getfieldtype(int index) {
    check_index(index, getnfields(), kelXInvalidFieldIndex::Throw);
    return GiveFieldType(index);
}

xany brtti::getfield(int index, xany value) {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    check_value(value);
    check_index(index, GiveNFields(), kelXInvalidFieldIndex::Throw);
    return GiveField(index, std::move(value));
}

xany brtti::field_of(int index, xany self) {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    check_index(index, GiveNFields(), kelXInvalidFieldIndex::Throw);
    return GiveField(index, std::move(self));
}

xany brtti::lookupfield(const char *name, xany value) {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    check_value(value);
    return GiveFieldByName(name, std::move(value));
}

xany brtti::field_of(const char *name, xany self) {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    return GiveFieldByName(name, std::move(self));
}

bool brtti::hasfield(const char *name) {
    require(GiveIsStruct(), kelXNotStructType::Throw);
    return GiveHasField(name);
}

// Arrays ---------------------------------------------------------------------------------------

int brtti::getnarraydims() {
    require(GiveIsArray(), kelXNotArrayType::Throw);
    return GiveNArrayDims();
}

int brtti::getnarrayelems(int dimension) {
    check_index(dimension, getnarraydims(), kelXInvalidArrayDimIndex::Throw);
    return GiveNArrayElems(dimension);
}

brtti *brtti::getarraytype() {
    require(GiveIsArray(), kelXNotArrayType::Throw);
    return GiveArrayType();
}

xany brtti::getarrayelem(int *indices, xany value) {
    require(GiveIsArray(), kelXNotArrayType::Throw);
    check_value(value);
    for (int d = 0, dimensions = getnarraydims(); d < dimensions; ++d) {
        int index = indices ? indices[d] : kel::uninit_int;
        if (index < 0 || index >= getnarrayelems(d)) kelXInvalidArrayIndex::Throw(gettypename(), d, index);
    }
    return GiveArrayElem(indices, std::move(value));
}

// Sequences ------------------------------------------------------------------------------------

int brtti::getnseqelems(xany value) {
    require(GiveIsSequence(), kelXNotSequenceType::Throw);
    check_value(value);
    return GiveNSeqElems(std::move(value));
}

brtti *brtti::getseqtype() {
    require(GiveIsSequence(), kelXNotSequenceType::Throw);
    return GiveSeqType();
}

xany brtti::getseqelem(int index, xany value) {
    require(GiveIsSequence(), kelXNotSequenceType::Throw);
    check_value(value);
    return GiveSeqElem(index, std::move(value));
}

bool brtti::hasindex(int index, xany value) {
    require(GiveIsSequence(), kelXNotSequenceType::Throw);
    check_value(value);
    return GiveHasIndex(index, std::move(value));
}

// Dictionaries ---------------------------------------------------------------------------------

int brtti::getndictelems(xany value) {
    require(GiveIsDictionary(), kelXNotDictionaryType::Throw);
    check_value(value);
    return GiveNDictElems(std::move(value));
}

brtti *brtti::getdicttype() {
    require(GiveIsDictionary(), kelXNotDictionaryType::Throw);
    return GiveDictType();
}

// A negative index goes to the type's own getter, which answers it with kelXNegativeIndex.
bool brtti::getdictkey(int index, xany value, xstring &key) {
    if (index >= getndictelems(value)) kelXInvalidDictIndex::Throw(std::move(value), index);
    return GiveDictKey(index, std::move(value), key);
}

bool brtti::getdictelem(int index, xany value, xany &elem) {
    if (index >= getndictelems(value)) kelXInvalidDictIndex::Throw(std::move(value), index);
    return GiveDictElem(index, std::move(value), elem);
}

xany brtti::lookupdict(const char *key, xany value) {
    require(GiveIsDictionary(), kelXNotDictionaryType::Throw);
    check_value(value);
    return GiveDictElemByKey(key, std::move(value));
}

bool brtti::haskey(const char *key, xany value) {
    require(GiveIsDictionary(), kelXNotDictionaryType::Throw);
    check_value(value);
    return GiveHasKey(key, std::move(value));
}

// Unions ---------------------------------------------------------------------------------------

int brtti::getnunioncases() {
    require(GiveIsUnion(), kelXNotUnionType::Throw);
    return GiveNUnionCases();
}

brtti *brtti::getcasetype(int index) {
    check_index(index, getnunioncases(), kelXInvalidUnionIndex::Throw);
    return GiveCaseType(index);
}

xstring brtti::getcasename(int index) {
    check_index(index, getnunioncases(), kelXInvalidUnionIndex::Throw);
    return GiveCaseName(index);
}

xany brtti::getcasevalue(int index, xany value) {
    require(GiveIsUnion(), kelXNotUnionType::Throw);
    check_value(value);
    check_index(index, GiveNUnionCases(), kelXInvalidUnionIndex::Throw);
    return GiveCaseValue(index, std::move(value));
}

brtti *brtti::getdiscrtype() {
    require(GiveIsUnion(), kelXNotUnionType::Throw);
    return GiveDiscrType();
}

xany brtti::getdiscrvalue(xany value) {
    require(GiveIsUnion(), kelXNotUnionType::Throw);
    check_value(value);
    return GiveDiscrValue(std::move(value));
}

xany brtti::getcurcasevalue(xany value) {
    const int index = case_index(value, getdiscrvalue(value));
    return getcasevalue(index, std::move(value));
}

int brtti::case_index(const xany &value, const xany &discriminator) {
    switch (discriminator.getkind()) {
        case xany::Bool:
            return discriminator.getbool() != 0;
        case xany::Int:
        case xany::Enum:
            return discriminator;
        default:
            kelXInvalidUnionDiscr::Throw(value, discriminator);
    }
}

// Answers of a type that is of no kind ---------------------------------------------------------

brtti::~brtti() = default;

xbool brtti::GiveIsEnum() {
    return false;
}
int brtti::GiveNEnumValues() {
    return kel::uninit_int;
}
xstring brtti::GiveEnumValueByIndex(int) {
    return {};
}
int brtti::GiveEnumIndex(xany) {
    return kel::uninit_int;
}
xbool brtti::GiveIsClass() {
    return false;
}
xbool brtti::GiveIsStruct() {
    return false;
}
int brtti::GiveNParents() {
    return 0;
}
brtti *brtti::GiveParentType(int) {
    return nullptr;
}
int brtti::GiveNFields() {
    return kel::uninit_int;
}
brtti *brtti::GiveFieldType(int) {
    return nullptr;
}
xany brtti::GiveField(int, xany) {
    return {};
}
xstring brtti::GiveFieldName(int) {
    return {};
}
xany brtti::GiveFieldByName(const char *, xany) {
    return {};
}
xbool brtti::GiveHasField(const char *) {
    return false;
}
xbool brtti::GiveIsArray() {
    return false;
}
int brtti::GiveNArrayDims() {
    return kel::nil_int;
}
int brtti::GiveNArrayElems(int) {
    return kel::nil_int;
}
xany brtti::GiveArrayElem(int *, xany) {
    return kel::nil_int;
}
brtti *brtti::GiveArrayType() {
    return nullptr;
}
xbool brtti::GiveIsSequence() {
    return false;
}
int brtti::GiveNSeqElems(xany) {
    return kel::nil_int;
}
xany brtti::GiveSeqElem(int, xany) {
    return kel::nil_int;
}
brtti *brtti::GiveSeqType() {
    return nullptr;
}
xbool brtti::GiveHasIndex(int, xany) {
    return false;
}
xbool brtti::GiveIsDictionary() {
    return false;
}
int brtti::GiveNDictElems(xany) {
    return kel::uninit_int;
}
brtti *brtti::GiveDictType() {
    return nullptr;
}
xbool brtti::GiveDictKey(int, xany, xstring &) {
    return false;
}
xbool brtti::GiveDictElem(int, xany, xany &) {
    return false;
}
xany brtti::GiveDictElemByKey(const char *, xany) {
    return {};
}
xbool brtti::GiveHasKey(const char *, xany) {
    return false;
}
xbool brtti::GiveIsUnion() {
    return false;
}
int brtti::GiveNUnionCases() {
    return 0;
}
brtti *brtti::GiveCaseType(int) {
    return nullptr;
}
xstring brtti::GiveCaseName(int) {
    return {};
}
xany brtti::GiveCaseValue(int, xany) {
    return {};
}
brtti *brtti::GiveDiscrType() {
    return nullptr;
}
xany brtti::GiveDiscrValue(xany) {
    return {};
}
brtti *brtti::Clone() {
    kelXCannotCloneRTTI::Throw(gettypename());
}
