// What a print must give, told a second time and in another way: a plain recursion over the things
// themselves, without a descriptor.
#pragma once

#include <set>
#include <sstream>
#include <string>

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
            line_break(m_indent);
            spaces(m_indent);
            text += "Can not finish printing\n";
            m_indent = before;
        }
    }

private:
    struct Failure {};

    static constexpr int same_line = -1;

    void line_break(int indent) { text += indent == same_line ? ' ' : '\n'; }
    void spaces(int indent) { text.append(static_cast<std::size_t>(std::max(indent, 0)), ' '); }
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
        std::ostringstream number;
        if (!empty(value) && static_cast<xrtti *>(value.getrtti())->getname() != type->getname())
            throw Failure();
        switch (value.getkind()) {
            case xany::Uninit:
                text += "uninit";
                break;
            case xany::Nil:
                text += "nil";
                break;
            case xany::Int:
                text += std::to_string(static_cast<int>(value));
                break;
            case xany::Bool:
                text += value.getbool() ? "true" : "false";
                break;
            case xany::Real:
                number << value.getreal();
                text += number.str();
                break;
            case xany::String:
                text += m_quote ? '"' + std::string(value.getstring().Str()) + '"' : value.getstring().Str();
                break;
            case xany::Enum: {
                static constexpr const char *names[] = {"red", "green", "blue"};
                if (static_cast<int>(value) > 2) throw Failure();
                text += names[static_cast<int>(value)];
                break;
            }
            default: {
                if (!type->isclass()) {
                    text += "<external value>";
                    break;
                }
                Thing &thing = Thing::of(static_cast<xobject *>(static_cast<xextern>(value).value));
                frame(thing, "foreign::Struct", false, [&] {
                    const int indent = m_indent;
                    spaces(indent);
                    text += "inner: ";
                    field(get(thing, 0, true), nullptr);
                    end(indent, ";");
                });
            }
        }
    }

    void field(const xany &value, xrtti *declared) {
        xrtti *type = empty(value) ? declared : static_cast<xrtti *>(value.getrtti());
        if (type)
            route(type, value);
        else
            text += "<no run-time info>";
    }

    static xany get(Thing &thing, int number, bool must_be_there) {
        Answer answer = thing.answer(number);
        if (answer == Answer::Fails || (answer == Answer::Absent && must_be_there)) throw Failure();
        return answer == Answer::Absent ? xany() : thing.values[thing.place(number)];
    }

    void end(int indent, const char *mark) {
        text += mark;
        line_break(indent);
    }

    template <class Content>
    void frame(Thing &thing, const std::string &name, bool square, Content content) {
        text += name;
        if (m_printed.count(&thing)) {
            text += " <printed>";
            return;
        }
        if (m_depth == 1) {
            text += square ? "[ ... skipped ... ]" : "{ ... skipped ... }";
            return;
        }
        m_printed.insert(&thing);
        raise(1);
        line_break(m_indent);
        spaces(m_indent);
        text += square ? '[' : '{';
        raise(1);
        line_break(m_indent);
        content();
        raise(-1);
        spaces(m_indent);
        raise(-1);
        text += square ? ']' : '}';
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
                    return row(thing, static_cast<int>(thing.values.size()), 0, type.declared);
                case Kind::Dictionary:
                    return dictionary(thing, type);
                case Kind::Array:
                    if (!type.dims.empty()) array(thing, type, 0, 0);
            }
        });
    }

    void structure(Thing &thing, const Type &type) {
        if (m_recursive)
            for (auto parent = type.parents.rbegin(); parent != type.parents.rend(); ++parent)
                structure(thing, **parent);
        const int indent = m_indent;
        for (const auto &declared : type.fields) {
            spaces(indent);
            text += std::string(declared->getname().Str()) + ": ";
            field(get(thing, declared->number, false), declared->gettype());
            end(indent, ";");
        }
    }

    void choice(Thing &thing, const Type &type) {
        const int indent = m_indent;
        spaces(indent);
        text += "Discriminator: ";
        const xany discriminator = get(thing, 0, false);
        field(discriminator, type.fields[0]->gettype());
        end(indent, ";");
        if (discriminator.getkind() != xany::Bool && discriminator.getkind() != xany::Int &&
            discriminator.getkind() != xany::Enum)
            throw Failure();
        const int chosen = discriminator.getkind() == xany::Bool ? discriminator.getbool() != 0
                                                                 : static_cast<int>(discriminator);
        spaces(indent);
        if (chosen < 0 || chosen >= static_cast<int>(type.fields.size()) - 1) throw Failure();
        const Field &declared = *type.fields[static_cast<std::size_t>(chosen) + 1];
        text += std::string(declared.getname().Str()) + ": ";
        field(get(thing, declared.number, false), declared.gettype());
        end(indent, ";");
    }

    void row(Thing &thing, int count, int first, xrtti *declared) {
        const int indent = m_indent;
        for (int i = 0; i < count; ++i) {
            spaces(indent);
            field(get(thing, first + i, true), declared);
            end(indent, i < count - 1 ? "," : "");
        }
    }

    void dictionary(Thing &thing, const Type &type) {
        const int indent = m_indent;
        for (int slot = 0; slot < static_cast<int>(thing.keys.size()); ++slot) {
            const unsigned key = thing.keys[static_cast<std::size_t>(slot)];
            if (key == 0) continue;
            spaces(indent);
            text += Type::key(key) + ": ";
            field(get(thing, slot, false), type.declared);
            end(indent, ";");
        }
    }

    void array(Thing &thing, const Type &type, std::size_t dimension, int first) {
        const int size = type.dims[dimension];
        if (dimension + 1 == type.dims.size()) return row(thing, size, first * size, type.declared);
        for (int i = 0; i < size; ++i) {
            spaces(m_indent);
            text += '[';
            raise(1);
            line_break(m_indent);
            array(thing, type, dimension + 1, first * size + i);
            raise(-1);
            spaces(m_indent);
            end(m_indent, i < size - 1 ? "]," : "]");
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
