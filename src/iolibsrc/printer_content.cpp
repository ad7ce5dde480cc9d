// The printer's content: single values, and composite ones step by step.
//
// A step writes one item. When an item's value is composite itself, its frame now lies on top and the next
// steps are its; the item is ended when that frame is gone. Frames stay where they are while others come and
// go, because getters are anybody's code and may print too.
//
// The checks of the public queries were made when the frame was pushed, so the items are read through the
// operations behind them.
#include <algorithm>
#include <climits>

#include <kelstdmt/xexception.h>

#include "iolibsrc/printer.h"

namespace kel::detail {

namespace {

// Composite values that are found by binary search; beyond, they are hashed.
constexpr unsigned most_sorted = 128;
// Ancestors of a type that are followed; a type with more is its own.
constexpr int deepest_parents = 1000;
constexpr std::size_t most_levels = 100'000;

[[noreturn]] void throw_circle(brtti &type) {
    xrchandle<kelXFunc> function(construct<kelXFunc>(type.gettypename()));
    xrchandle<kelXExternFunc> thrown(construct<kelXExternFunc>("A type has no end of parents.", function));
    xthrow(thrown.get());
}

// Ahead of an item's value, and behind it.
constexpr const char *colon = ": ";

}  // namespace

// Steps of writing -----------------------------------------------------------------------------

void printer::LineBreak(int indent) {
    if (indent == printIndentSameLine)
        m_out.byte(' ');
    else
        m_out.line_end();
}
void printer::Indentation(int indent) {
    if (indent > 0) m_out.spaces(indent);
}
int printer::Raised(int indent) noexcept {
    return indent == printIndentSameLine || indent == INT_MAX ? indent : indent + 1;
}

int printer::Lowered(int indent) noexcept {
    return indent == printIndentSameLine || indent == INT_MIN ? indent : indent - 1;
}

// Memory ---------------------------------------------------------------------------------------

bool printer::Remembers(const void *pointer) const {
    if (!m_memory.empty()) return m_memory.contains(pointer);
    return m_options.m_printed.Contains({true, const_cast<void *>(pointer)});
}

void printer::Remember(const printLoopCheckEntry &value) {
    printLoopCheckSet &sorted = m_options.m_printed;
    if (m_memory.empty() && sorted.GetSize() < most_sorted) {
        sorted += value;
        return;
    }
    if (m_memory.empty())
        for (const printLoopCheckEntry &entry : sorted)
            m_memory.add(entry);
    m_memory.add(value);
    sorted.Clear();
}

// Values ---------------------------------------------------------------------------------------

void printer::Value(brtti &type, xany &&value) {
    if (!value.isuninit() && !value.isnil()) {
        brtti *own = value.getrtti();
        if (own == nullptr) kelXUnknownType::Throw(std::move(value));
        if (own != &type && !own->iskindof(&type))
            kelXTypeMismatch::Throw(type.gettypename(), std::move(value));
    }
    if (Scalar(value)) return;
    if (value.getkind() == xany::Enum)
        m_out.text(type.getenumvalue(std::move(value)));
    else if (type.isclass())
        Composite(type, std::move(value));
    else
        m_out.text("<external value>");
}

// False for a value that has a type of its own.
bool printer::Scalar(const xany &value) {
    switch (value.getkind()) {
        case xany::Uninit:
            m_out.text("uninit");
            return true;
        case xany::Nil:
            m_out.text("nil");
            return true;
        case xany::Int:
            m_out.number(static_cast<int>(value));
            return true;
        case xany::Bool:
            m_out.text(value.getbool() ? "true" : "false");
            return true;
        case xany::Real:
            m_out.number(value.getreal());
            return true;
        case xany::String:
            if (m_options.m_QuoteString) m_out.byte('"');
            m_out.text(static_cast<xrstring>(value));
            if (m_options.m_QuoteString) m_out.byte('"');
            return true;
        default:
            return false;
    }
}

void printer::FieldValue(xany &&value, brtti *declared) {
    bool empty = value.isuninit() || value.isnil();
    // The descriptors of the other scalars are the library's: there is only one way that these can take.
    if (!empty && Scalar(value)) return;
    brtti *type = empty ? declared : value.getrtti();
    if (type == nullptr) {
        m_out.text("<no run-time info>");
        return;
    }
    m_out.hand_over();
    type->OnRoutePrint(m_out.target(), std::move(value), &m_options);
}

// Composite values -----------------------------------------------------------------------------

void printer::Composite(brtti &type, xany &&value) {
    brtti *own = value.getrtti();
    if (own == nullptr) kelXUnknownType::Throw(std::move(value));
    if (!own->issameas(&type)) kelXTypeMismatch::Throw(type.gettypename(), std::move(value));
    bool plain = value.getkind() != xany::Object;
    if (!type.isclass() || !(value.isobject() || value.isextern()))
        kelXNotStructType::Throw(type.gettypename());

    m_out.text(type.gettypename());
    printLoopCheckEntry entry(plain, plain ? static_cast<xextern>(value).value
                                           : static_cast<void *>(static_cast<xobject *>(value)));
    if (Remembers(entry.pointer)) {
        m_out.text(" <printed>");
        return;
    }
    unsigned content = 0;
    if (type.isarray()) content |= Array;
    if (type.issequence()) content |= Sequence;
    if (type.isstruct()) content |= Struct;
    if (type.isdictionary()) content |= Dictionary;
    if (type.isunion()) content |= Union;
    bool square = (content & (Array | Sequence)) != 0 && (content & (Struct | Union)) == 0 &&
                  ((content & Dictionary) == 0 || type.getndictelems(value) <= 0);
    char opening = square ? '[' : '{', closing = square ? ']' : '}';
    if (m_options.m_Depth == 1) {
        m_out.mark(opening);
        m_out.text(" ... skipped ... ");
        m_out.mark(closing);
        return;
    }
    Remember(entry);
    int &indent = m_options.m_Indent;
    m_frames.emplace_back(type, std::move(value), content, closing, indent);
    indent = Raised(indent);
    LineBreak(indent);
    Indentation(indent);
    m_out.mark(opening);
    indent = Raised(indent);
    LineBreak(indent);
}

void printer::Finish(std::size_t base) {
    while (m_frames.size() > base)
        Advance();
}

void printer::Advance() {
    std::size_t depth = m_frames.size();
    frame &at = m_frames.back();
    if (at.initem) EndItem(at);
    for (;;) {
        xany value;
        brtti *declared = nullptr;
        if (!BeginItem(at, value, declared)) break;
        at.initem = true;
        FieldValue(std::move(value), declared);
        if (m_frames.size() > depth) return;
        EndItem(at);
    }
    if (!OpenContent(at)) Close(at);
}

// The next of the contents, and false when there is none.
bool printer::OpenContent(frame &at) {
    if (at.left == 0) return false;
    unsigned left = at.left, rest = left & (left - 1);
    at.present = static_cast<unsigned char>(left - rest);
    at.left = static_cast<unsigned char>(rest);
    at.indent = m_options.m_Indent;
    at.index = at.count = 0;
    switch (at.present) {
        case Array:
            OpenArray(at);
            break;
        case Sequence:
            at.level = at.type->getseqtype();
            at.count = at.type->getnseqelems(at.value);
            break;
        case Struct:
            OpenStruct(at);
            break;
        case Dictionary:
            at.level = at.type->getdicttype();
            at.count = at.type->getndictelems(at.value);
            break;
        default:
            at.count = 2;
    }
    return true;
}

void printer::Close(frame &at) {
    int &indent = m_options.m_Indent;
    indent = Raised(at.outer);
    Indentation(indent);
    indent = at.outer;
    m_out.mark(at.closing);
    m_out.flush();
    frame last = std::move(m_frames.back());
    m_frames.pop_back();
}

// Items ----------------------------------------------------------------------------------------

bool printer::BeginItem(frame &at, xany &value, brtti *&declared) {
    switch (at.present) {
        case Array:
            return BeginCell(at, value, declared);
        case Sequence:
            return BeginElement(at, value, declared);
        case Struct:
            return BeginField(at, value, declared);
        case Dictionary:
            return BeginEntry(at, value, declared);
        case Union:
            return BeginCase(at, value, declared);
        default:
            return false;
    }
}

void printer::EndItem(frame &at) {
    at.initem = false;
    if ((at.present & (Array | Sequence)) == 0)
        m_out.mark(';');
    else if (at.present == Array ? !at.place->at_last() : at.index < at.count - 1)
        m_out.mark(',');
    ++(at.present == Array ? at.place->at[at.place->dimension] : at.index);
    LineBreak(at.indent);
}

// Structs: the parents from the last to the first, each behind its own, then the struct itself.
void printer::OpenStruct(frame &at) {
    at.levels = m_levels.size();
    m_levels.push_back(at.type);
    if (m_options.m_IsRecursive) {
        PushParents(*at.type, 0);
        std::reverse(m_levels.begin() + static_cast<std::ptrdiff_t>(at.levels) + 1, m_levels.end());
    }
}

void printer::PushParents(brtti &type, int depth) {
    int parents = type.getnparents();
    if (depth > deepest_parents || m_levels.size() > most_levels) throw_circle(type);
    for (int i = parents; i-- > 0;) {
        brtti *parent = type.getparenttype(i);
        if (parent == nullptr) continue;
        PushParents(*parent, depth + 1);
        m_levels.push_back(parent);
    }
}

bool printer::BeginField(frame &at, xany &value, brtti *&declared) {
    while (at.index >= at.count) {
        if (m_levels.size() <= at.levels) return false;
        at.level = m_levels.back();
        m_levels.pop_back();
        at.index = 0;
        at.count = at.level->getnfields();
    }
    Indentation(at.indent);
    m_out.text(at.level->GiveFieldName(at.index));
    m_out.text(colon);
    value = at.level->GiveField(at.index, at.value);
    declared = at.level->GiveFieldType(at.index);
    return true;
}

bool printer::BeginElement(frame &at, xany &value, brtti *&declared) {
    if (at.index >= at.count) return false;
    Indentation(at.indent);
    value = at.type->GiveSeqElem(at.index, at.value);
    declared = at.level;
    return true;
}

bool printer::BeginEntry(frame &at, xany &value, brtti *&declared) {
    xstring key;
    while (at.index < at.count && !at.type->getdictkey(at.index, at.value, key))
        ++at.index;
    if (at.index >= at.count) return false;
    Indentation(at.indent);
    m_out.text(key);
    m_out.text(colon);
    at.type->GiveDictElem(at.index, at.value, value);
    declared = at.level;
    return true;
}

// Unions: the discriminator, and the case that it names.
bool printer::BeginCase(frame &at, xany &value, brtti *&declared) {
    if (at.index >= at.count) return false;
    if (at.index == 0) {
        Indentation(at.indent);
        m_out.text("Discriminator: ");
        at.discriminator = std::make_unique<xany>(at.type->getdiscrvalue(at.value));
        declared = at.type->getdiscrtype();
        value = xany(*at.discriminator);
        return true;
    }
    const int chosen = brtti::case_index(at.value, *at.discriminator);
    Indentation(at.indent);
    m_out.text(at.type->getcasename(chosen));
    m_out.text(colon);
    value = at.type->getcasevalue(chosen, at.value);
    declared = at.type->getcasetype(chosen);
    return true;
}

// Arrays.
void printer::OpenArray(frame &at) {
    auto place = std::make_unique<grid>();
    for (int d = 0, dimensions = at.type->getnarraydims(); d < dimensions; ++d)
        place->sizes.push_back(at.type->getnarrayelems(d));
    place->at.resize(place->sizes.size());
    at.level = at.type->getarraytype();
    at.place = std::move(place);
}

bool printer::BeginCell(frame &at, xany &value, brtti *&declared) {
    grid &place = *at.place;
    if (place.sizes.empty()) return false;
    int &indent = m_options.m_Indent;
    while (!place.in_last() || !place.more()) {
        if (place.more()) {
            Indentation(indent);
            m_out.mark('[');
            indent = Raised(indent);
            LineBreak(indent);
            place.at[++place.dimension] = 0;
            at.indent = indent;
        } else if (place.dimension == 0) {
            return false;
        } else {
            --place.dimension;
            indent = Lowered(indent);
            Indentation(indent);
            m_out.mark(']');
            if (!place.at_last()) m_out.mark(',');
            LineBreak(indent);
            ++place.at[place.dimension];
        }
    }
    Indentation(at.indent);
    value = at.type->GiveArrayElem(place.at.data(), at.value);
    declared = at.level;
    return true;
}

}  // namespace kel::detail
