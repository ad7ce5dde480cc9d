// What a print must give, told a second time and in another way: a plain recursion over the things
// themselves, without a descriptor.
#pragma once

#include <set>
#include <sstream>

#include "print_tree.h"

namespace tree {

class Model {
public:
    Model(int indent, bool quote, int depth, bool recursive)
        : m_indent(indent), m_quote(quote), m_depth(depth), m_recursive(recursive) {}

    std::string text;

    // The value as one of the type.
    void print(xrtti *type, const xany &value) {
        const int before = m_indent;
        try {
            route(type, value);
        } catch (const Failure &) {
            new_line();
            text += "Can not finish printing\n";
            m_indent = before;
        }
    }

private:
    struct Failure {};

    static constexpr int same_line = -1;

    void line_break() { text += m_indent == same_line ? ' ' : '\n'; }
    void spaces() { text.append(static_cast<std::size_t>(std::max(m_indent, 0)), ' '); }
    void new_line() {
        line_break();
        spaces();
    }
    void raise(int by) {
        if (m_indent != same_line) m_indent += by;
    }

    static bool empty(const xany &value) { return value.isuninit() || value.isnil(); }

    void route(xrtti *type, const xany &value) {
        if (value.getkind() != xany::Object) return single(type, value);
        Thing &thing = Thing::of(value);
        if (!dynamic_cast<Own *>(&thing)) return composite(thing, *thing.type);
        text += '<';
        if (m_nested + 1 < Own::most_nested && !thing.values.empty() && !empty(thing.values[0])) {
            ++m_nested;
            print(static_cast<xrtti *>(thing.values[0].getrtti()), thing.values[0]);
            --m_nested;
        }
        text += '>';
    }

    void single(xrtti *type, const xany &value) {
        if (!empty(value) && static_cast<xrtti *>(value.getrtti())->getname() != type->getname())
            throw Failure();
        std::ostringstream plain;
        switch (value.getkind()) {
            case xany::Uninit:
                plain << "uninit";
                break;
            case xany::Nil:
                plain << "nil";
                break;
            case xany::Int:
                plain << static_cast<int>(value);
                break;
            case xany::Bool:
                plain << (value.getbool() ? "true" : "false");
                break;
            case xany::Real:
                plain << value.getreal();
                break;
            case xany::String:
                plain << (m_quote ? "\"" : "") << value.getstring().Str() << (m_quote ? "\"" : "");
                break;
            case xany::Enum:
                if (static_cast<int>(value) > 2) throw Failure();
                plain << colour_names[static_cast<int>(value)];
                break;
            default:
                if (type->isclass()) {
                    Thing &thing = Thing::of(static_cast<xobject *>(static_cast<xextern>(value).value));
                    return frame(thing, "foreign::Struct", false, [&] { row(thing, "inner: ", 0, true); });
                }
                plain << "<external value>";
        }
        text += plain.str();
    }

    template <class Content>
    void frame(Thing &thing, const std::string &name, bool square, Content content) {
        text += name;
        if (m_printed.count(&thing)) {
            text += " <printed>";
        } else if (m_depth == 1) {
            text += square ? "[ ... skipped ... ]" : "{ ... skipped ... }";
        } else {
            m_printed.insert(&thing);
            raise(1);
            new_line();
            block(square ? "[]" : "{}", content);
            raise(-1);
        }
    }
    template <class Content>
    void block(const char *brackets, Content content) {
        text += brackets[0];
        raise(1);
        line_break();
        content();
        raise(-1);
        spaces();
        text += brackets[1];
    }
    void end(const char *mark) {
        text += mark;
        line_break();
    }
    // A field or element; answers its value.
    xany row(const Thing &thing, const std::string &label, int number, bool must_be_there,
             xrtti *declared = nullptr, const char *mark = ";") {
        spaces();
        text += label;
        const Answer answer = thing.answer(number);
        if (answer == Answer::Fails || (answer == Answer::Absent && must_be_there)) throw Failure();
        const xany value = answer == Answer::Absent ? xany() : thing.values[thing.place(number)];
        xrtti *const type = empty(value) ? declared : static_cast<xrtti *>(value.getrtti());
        if (type)
            route(type, value);
        else
            text += "<no run-time info>";
        end(mark);
        return value;
    }

    void composite(Thing &thing, const Type &type) {
        const bool square = type.kind == Kind::Sequence || type.kind == Kind::Array;
        frame(thing, type.name, square, [&] {
            switch (type.kind) {
                case Kind::Struct:
                    return structure(thing, type);
                case Kind::Union:
                    return choice(thing, type);
                case Kind::Sequence:
                    return elements(thing, type, static_cast<int>(thing.values.size()), 0);
                case Kind::Dictionary:
                    for (std::size_t slot = 0; slot < thing.keys.size(); ++slot)
                        if (thing.keys[slot] > 0)
                            row(thing, Type::key(thing.keys[slot]) + ": ", static_cast<int>(slot), false,
                                type.declared);
                    return;
                case Kind::Array:
                    if (!type.dims.empty()) array(thing, type, 0, 0);
            }
        });
    }

    xany field(const Thing &thing, const Field &field, const std::string &name) {
        return row(thing, name + ": ", field.number, false, field.gettype());
    }
    void structure(const Thing &thing, const Type &type) {
        if (m_recursive)
            for (auto parent = type.parents.rbegin(); parent != type.parents.rend(); ++parent)
                structure(thing, **parent);
        for (const auto &declared : type.fields)
            field(thing, *declared, declared->getname().Str());
    }

    void choice(const Thing &thing, const Type &type) {
        const xany chosen = field(thing, *type.fields[0], "Discriminator");
        std::size_t number = 0;
        if (chosen.getkind() == xany::Bool)
            number = chosen.getbool() != 0;
        else if (chosen.getkind() == xany::Int || chosen.getkind() == xany::Enum)
            number = static_cast<std::size_t>(static_cast<int>(chosen));
        else
            throw Failure();
        if (number >= type.fields.size() - 1) {
            spaces();
            throw Failure();
        }
        field(thing, *type.fields[number + 1], type.fields[number + 1]->getname().Str());
    }

    void elements(const Thing &thing, const Type &type, int count, int first) {
        for (int i = 0; i < count; ++i)
            row(thing, "", first + i, true, type.declared, i < count - 1 ? "," : "");
    }

    void array(const Thing &thing, const Type &type, std::size_t dimension, int first) {
        const int size = type.dims[dimension];
        if (dimension + 1 == type.dims.size()) return elements(thing, type, size, first * size);
        for (int i = 0; i < size; ++i) {
            spaces();
            block("[]", [&] { array(thing, type, dimension + 1, first * size + i); });
            end(i < size - 1 ? "," : "");
        }
    }

    int m_indent;
    bool m_quote;
    int m_depth;
    bool m_recursive;
    int m_nested = 0;
    std::set<const Thing *> m_printed;
};

}  // namespace tree
