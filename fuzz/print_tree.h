// Trees of values that the bytes of an input choose: objects of made-up types of every kind, which hold each
// other in any way, and whose getters may find nothing or fail.
#pragma once

#include <kelstdmt/kelstdmt.h>

#include <memory>
#include <vector>

#include "fuzzing.h"

namespace tree {

struct Type;

// What a getter does.
enum class Answer : unsigned char { Gives, Absent, Fails };

class Thing : public xobject {
public:
    const Type *type = nullptr;
    std::vector<xany> values;
    std::vector<Answer> answers;
    std::vector<unsigned> keys;  // of a dictionary's slots; 0 for none
    // Fields and elements of any number share the values.
    std::size_t place(int number) const { return static_cast<std::size_t>(number) % values.size(); }
    Answer answer(int number) const { return values.empty() ? Answer::Absent : answers[place(number)]; }
    xany get(int number) const {
        if (answer(number) == Answer::Absent) kelXNoField::Throw(number, xany());
        if (answer(number) == Answer::Fails) kelXNotInitialized::Throw();
        return values[place(number)];
    }
    static Thing &of(xobject *object) { return *static_cast<Thing *>(object); }

private:
    void *dyndowncast(const xrtticlass *) override { return this; }
    xbool isdeletable() override { return false; }
    xrtticlass *givertti() override;
};

// Prints itself: its first value, in a print of its own with the same options.
class Own : public Thing {
public:
    static inline int nested = 0;
    static constexpr int most_nested = 3;

private:
    void onprint(ioStream *stream, printData *options) override {
        stream->WriteString("<");
        ++nested;
        if (nested < most_nested && !values.empty() && values[0].getrtti()) values[0].print(stream, options);
        --nested;
        stream->WriteString(">");
    }
};

struct Field : xrttifield {
    Field(int n, xrtti *declared)
        : xrttifield(("f" + std::to_string(n)).c_str(), n % 2 == 0, declared, &read), number(n) {}
    int number;
    static xany read(xrttifield *field, xobject *object) {
        return Thing::of(object).get(static_cast<Field *>(field)->number);
    }
};

enum class Kind : unsigned char { Struct, Union, Sequence, Dictionary, Array };

struct Type {
    Kind kind = Kind::Struct;
    std::string name;
    std::vector<const Type *> parents;
    std::vector<std::unique_ptr<Field>> fields;  // of a union: the discriminator and the cases
    xrtti *declared = nullptr;                   // of elements
    std::vector<int> dims;
    std::unique_ptr<xrtticlass> descriptor;

    static std::string key(unsigned number) { return "key" + std::to_string(number); }

    void describe(bool counted) {
        for (const auto &field : fields)
            m_fields.push_back(field.get());
        for (const Type *parent : parents)
            m_parents.push_back(static_cast<xrttistruct *>(parent->descriptor.get()));
        const auto count = static_cast<int>(m_fields.size());
        switch (kind) {
            case Kind::Struct:
                m_structs.emplace(static_cast<int>(m_parents.size()), m_parents.data());
                m_list.emplace(count, m_fields.data());
                return make<xrttistruct>(counted, &*m_structs, &*m_list);
            case Kind::Union:
                m_list.emplace(count - 1, m_fields.data() + 1);
                return make<xrttiunion>(counted, m_fields[0], &*m_list);
            case Kind::Sequence:
                return make<xrttisequence>(
                    counted, xbool{0}, declared,
                    [](xrttisequence *, xobject *o) { return static_cast<int>(Thing::of(o).values.size()); },
                    [](xrttisequence *, int index, xobject *o) { return Thing::of(o).get(index); });
            case Kind::Dictionary:
                return make<xrttidictionary>(
                    counted, xbool{0}, declared,
                    [](xrttidictionary *, xobject *o) { return static_cast<int>(Thing::of(o).keys.size()); },
                    [](xrttidictionary *, const char *, xobject *, xany &) { return xbool{0}; },
                    [](xrttidictionary *, int index, xobject *o, xstring &text) {
                        const unsigned number = Thing::of(o).keys[static_cast<std::size_t>(index)];
                        if (number > 0) text = key(number).c_str();
                        return xbool{number > 0};
                    },
                    [](xrttidictionary *, int index, xobject *o, xany &out) {
                        if (Thing::of(o).answer(index) == Answer::Absent) return xbool{0};
                        out = Thing::of(o).get(index);
                        return xbool{1};
                    });
            case Kind::Array:
                return make<xrttiarray>(counted, static_cast<int>(dims.size()), dims.data(), xbool{0},
                                        declared, [](xrttiarray *type, int *at, xobject *o) {
                                            int cell = 0;
                                            for (int d = 0; d < type->getndims(); ++d)
                                                cell = cell * type->getdimensions()[d] + at[d];
                                            return Thing::of(o).get(cell);
                                        });
        }
    }

private:
    template <class Descriptor, class... Rest>
    void make(bool counted, Rest... rest) {
        auto made = std::make_unique<Descriptor>();
        made->initialize(name.c_str(), counted, rest...);
        descriptor = std::move(made);
    }

    std::vector<xrttifield *> m_fields;
    std::vector<xrttistruct *> m_parents;
    std::optional<xrttifields> m_list;
    std::optional<xrttistructs> m_structs;
};

inline xrtticlass *Thing::givertti() {
    return type->descriptor.get();
}

inline const char *colour_names[] = {"red", "green", "blue"};

inline xrttienum *colours() {
    static xrttienumvalues list(3, colour_names);
    static xrttienum type;
    if (type.getname().IsNull()) type.initialize("fuzz::Colour", &list);
    return &type;
}

// A thing that is not ours, as a number or as a struct of one field, which is the thing's first value.
class Foreign : public xrtticlass {
public:
    explicit Foreign(bool number) : m_number(number) {
        initialize(number ? "foreign::Number" : "foreign::Struct", 0);
    }

private:
    brtti *Clone() override { return new Foreign(m_number); }
    xbool GiveIsClass() override { return !m_number; }
    xbool GiveIsStruct() override { return !m_number; }
    int GiveNFields() override { return 1; }
    xstring GiveFieldName(int) override { return "inner"; }
    brtti *GiveFieldType(int) override { return nullptr; }
    xany GiveField(int, xany value) override {
        return Thing::of(static_cast<xobject *>(static_cast<xextern>(value).value)).get(0);
    }

    bool m_number;
};

// All that an input describes.
class World {
public:
    explicit World(fuzz::Input &choose) : m_choose(choose) {
        for (unsigned i = 0, count = 1 + choose.below(6); i < count; ++i)
            add_type();
        for (unsigned i = 0, count = 1 + choose.below(40); i < count; ++i) {
            things.push_back(choose.once_in(8) ? std::make_unique<Own>() : std::make_unique<Thing>());
            things.back()->type = types[choose.below(static_cast<unsigned>(types.size()))].get();
        }
        for (const auto &thing : things) {
            for (unsigned i = 0, count = choose.below(8); i < count; ++i) {
                thing->values.push_back(value());
                thing->answers.push_back(choose.once_in(30)   ? Answer::Fails
                                         : choose.once_in(15) ? Answer::Absent
                                                              : Answer::Gives);
            }
            if (thing->type->kind == Kind::Dictionary)
                for (unsigned i = 0, count = choose.below(8); i < count; ++i)
                    thing->keys.push_back(choose.below(4));
        }
    }
    ~World() {
        for (const auto &thing : things)
            thing->values.clear();
    }

    xany value() {
        static const xany plain[][7] = {{0, 7, -1, 2147483647, kel::nil_int, kel::uninit_int},
                                        {0.0, -0.0, 0.1, 1e300, 123456789.0, kel::nil_real, 1.0 / 3},
                                        {"", "text", "\"", "a\nb", ": ;"}};
        static constexpr unsigned counts[] = {6, 7, 5};
        const unsigned kind = m_choose.below(10);
        switch (kind) {
            case 0:
            case 1:
            case 2:
                return plain[kind][m_choose.below(counts[kind])];
            case 3:
                return static_cast<xbool>(m_choose.below(3));
            case 4:
                return {static_cast<int>(m_choose.below(5)), colours()};
            case 5:
                return xstring(std::string(m_choose.below(200) * 13, 'x').c_str());
            case 6:
                return {any_thing(), new Foreign(m_choose.once_in(2))};
            default:
                return any_thing();
        }
    }
    // A descriptor of any type, or none.
    xrtti *declared() {
        xrtti *all[] = {get_xrttiint(), get_xrttistring(), get_xrttiany(), colours(), nullptr};
        const unsigned chosen = m_choose.below(5 + static_cast<unsigned>(types.size()));
        return chosen < 5 ? all[chosen] : types[chosen - 5]->descriptor.get();
    }

    std::vector<std::unique_ptr<Type>> types;
    std::vector<std::unique_ptr<Thing>> things;

private:
    xobject *any_thing() { return things[m_choose.below(static_cast<unsigned>(things.size()))].get(); }

    void add_type() {
        auto type = std::make_unique<Type>();
        type->kind = static_cast<Kind>(m_choose.below(5));
        type->name = "fuzz::T" + std::to_string(m_choose.below(8));
        type->declared = declared();
        if (type->kind == Kind::Struct)
            for (const auto &parent : types)
                if (parent->kind == Kind::Struct && m_choose.once_in(2))
                    type->parents.push_back(parent.get());
        for (int i = 0, count = 1 + static_cast<int>(m_choose.below(5)); i < count; ++i)
            type->fields.push_back(std::make_unique<Field>(i, declared()));
        for (unsigned i = 0, count = m_choose.below(4); i < count; ++i)
            type->dims.push_back(static_cast<int>(m_choose.below(4)));
        type->describe(m_choose.once_in(2));
        types.push_back(std::move(type));
    }

    fuzz::Input &m_choose;
};

}  // namespace tree
