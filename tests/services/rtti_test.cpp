// Descriptors built by hand, as generated code builds them: kinds, checks, kinship, absent values.
#include "observing.h"

#include <functional>
#include <memory>

namespace {

// The subjects: a class for each kind whose descriptor the test supplies.
class Subject : public xobject {
public:
    explicit Subject(xrtticlass *type) : m_type(type) {}
    int number = 0;

private:
    xrtticlass *givertti() override { return m_type; }
    xrtticlass *m_type;
};

xany number_of(xrttifield *, xobject *object) {
    return static_cast<Subject *>(object)->number;
}
xany absent(xrttifield *field, xobject *object) {
    kelXNoField::Throw(xany(field->getname()), object);
}
xany broken(xrttifield *, xobject *) {
    kelXNotInitialized::Throw();
}
xany foreign_failure(xrttifield *, xobject *) {
    throw 5;
}

template <class Descriptor, class... Args>
std::unique_ptr<Descriptor> make(Args... args) {
    auto type = std::make_unique<Descriptor>();
    type->initialize(args...);
    return type;
}

constexpr unsigned char no = 0, yes = 1;

const char *colour_names[] = {"red", "green", "blue"};
xrttienumvalues colours(3, colour_names);

// One struct, enum, union, array, sequence and dictionary.
struct Types {
    std::unique_ptr<xrttienum> colour = make<xrttienum>("t::Colour", &colours);

    xrttifield number{"Number", 0, get_xrttiint(), number_of};
    xrttifield missing{"Missing", 1, get_xrttistring(), absent};
    xrttifield failing{"Failing", 0, get_xrttiint(), broken};
    xrttifield alien{"Alien", 0, get_xrttiint(), foreign_failure};
    xrttifield *list[4] = {&number, &missing, &failing, &alien};
    xrttifields fields{4, list};
    std::unique_ptr<xrttistruct> base = make<xrttistruct>("t::Base", no, nullptr, nullptr);
    xrttistruct *parent_list[1] = {base.get()};
    xrttistructs parents{1, parent_list};
    std::unique_ptr<xrttistruct> record = make<xrttistruct>("t::Record", no, &parents, &fields);

    xrttifield *case_list[3] = {&number, &missing, &failing};
    xrttifields cases{3, case_list};
    static inline xany discriminator;
    xrttifield kind{"Kind", 0, get_xrttiint(), [](xrttifield *, xobject *) { return discriminator; }};
    std::unique_ptr<xrttiunion> choice = make<xrttiunion>("t::Choice", no, &kind, &cases);

    int sizes[2] = {2, 3};
    std::unique_ptr<xrttiarray> matrix =
        make<xrttiarray>("t::Matrix", no, 2, sizes, yes, get_xrttiint(),
                         [](xrttiarray *, int *at, xobject *) { return xany(at[0] * 10 + at[1]); });

    std::unique_ptr<xrttisequence> sequence = make<xrttisequence>(
        "t::Sequence", no, no, get_xrttiint(), [](xrttisequence *, xobject *) { return 3; },
        [](xrttisequence *, int index, xobject *object) {
            if (index < 0) kelhThrowNegativeIndex(index);
            if (index == 1) kelhThrowNoField(index, object);
            if (index == 2) kelhThrowNotInitialized();
            return xany(index);
        });

    std::unique_ptr<xrttidictionary> dictionary = make<xrttidictionary>(
        "t::Dictionary", no, no, get_xrttiint(), [](xrttidictionary *, xobject *) { return 2; },
        [](xrttidictionary *, const char *key, xobject *, xany &elem) -> unsigned char {
            if (std::string(key) != "k") return 0;
            elem = 7;
            return 1;
        },
        [](xrttidictionary *, int index, xobject *, xstring &key) -> unsigned char {
            if (index < 0) kelhThrowNegativeIndex(index);
            key = "k";
            return index == 0;
        },
        [](xrttidictionary *, int index, xobject *, xany &elem) -> unsigned char {
            if (index < 0) kelhThrowNegativeIndex(index);
            elem = 7;
            return index == 0;
        });

    std::vector<xrtti *> all{get_xrttiint(), colour.get(),   record.get(),     choice.get(),
                             matrix.get(),   sequence.get(), dictionary.get(), get_xrttiobject()};
};

// A query, the descriptor that answers it, and how it refuses a descriptor of another kind.
struct Query {
    xrtti *own;
    std::string (*refusal)(const std::function<void()> &);  // the type that the exception names
    bool takes_value;
    std::function<void(brtti *, xany)> ask;
};

template <class X>
std::string refusal(const std::function<void()> &query) {
    auto refused = thrown_by<X>(query);
    return refused ? text(refused->getTypeName()) : "another exception";
}

std::vector<Query> queries_of(Types &t) {
    auto *as_enum = refusal<kelXNotEnumType>, *as_struct = refusal<kelXNotStructType>,
         *as_array = refusal<kelXNotArrayType>, *as_sequence = refusal<kelXNotSequenceType>,
         *as_dictionary = refusal<kelXNotDictionaryType>, *as_union = refusal<kelXNotUnionType>;
    xrtti *colour = t.colour.get(), *record = t.record.get(), *choice = t.choice.get(),
          *matrix = t.matrix.get(), *sequence = t.sequence.get(), *dictionary = t.dictionary.get();
    static int at[2] = {};
    return {{colour, as_enum, false, [](brtti *d, xany) { d->getnenumvalues(); }},
            {colour, as_enum, false, [](brtti *d, xany) { d->getenumindex(xany()); }},
            {record, as_struct, false, [](brtti *d, xany) { d->getnparents(); }},
            {record, as_struct, false, [](brtti *d, xany) { d->getnfields(); }},
            {record, as_struct, false, [](brtti *d, xany) { d->hasfield("n"); }},
            {record, as_struct, true, [](brtti *d, xany v) { d->getfield(99, v); }},
            {record, as_struct, true, [](brtti *d, xany v) { d->lookupfield("none", v); }},
            {matrix, as_array, false, [](brtti *d, xany) { d->getnarraydims(); }},
            {matrix, as_array, false, [](brtti *d, xany) { d->getarraytype(); }},
            {matrix, as_array, true, [](brtti *d, xany v) { d->getarrayelem(at, v); }},
            {sequence, as_sequence, false, [](brtti *d, xany) { d->getseqtype(); }},
            {sequence, as_sequence, true, [](brtti *d, xany v) { d->getnseqelems(v); }},
            {sequence, as_sequence, true, [](brtti *d, xany v) { d->getseqelem(99, v); }},
            {sequence, as_sequence, true, [](brtti *d, xany v) { d->hasindex(0, v); }},
            {dictionary, as_dictionary, false, [](brtti *d, xany) { d->getdicttype(); }},
            {dictionary, as_dictionary, true, [](brtti *d, xany v) { d->getndictelems(v); }},
            {dictionary, as_dictionary, true, [](brtti *d, xany v) { d->lookupdict("k", v); }},
            {dictionary, as_dictionary, true, [](brtti *d, xany v) { d->haskey("k", v); }},
            {choice, as_union, false, [](brtti *d, xany) { d->getnunioncases(); }},
            {choice, as_union, false, [](brtti *d, xany) { d->getdiscrtype(); }},
            {choice, as_union, true, [](brtti *d, xany v) { d->getcasevalue(99, v); }},
            {choice, as_union, true, [](brtti *d, xany v) { d->getcurcasevalue(v); }}};
}

// The kind is looked at first, then the value, and before either of them nothing is read.
TEST(Queries, AreCheckedByKindAndValue) {
    Types t;
    Subject wrong(t.base.get());
    for (const Query &query : queries_of(t))
        for (xrtti *type : t.all) {
            SCOPED_TRACE(std::string(type->getname()) + " asked as " + query.own->getname().Str());
            if (type != query.own) {
                EXPECT_EQ(query.refusal([&] { query.ask(type, xany()); }), text(type->getname()));
            } else if (query.takes_value) {
                auto unknown = thrown_by<kelXUnknownType>([&] { query.ask(type, xany()); });
                EXPECT_TRUE(unknown->getObject() == xany());
                auto mismatch = thrown_by<kelXTypeMismatch>([&] { query.ask(type, &wrong); });
                EXPECT_EQ(text(mismatch->getTypeName()), text(type->getname()));
                EXPECT_TRUE(mismatch->getObject() == xany(&wrong));
            }
            EXPECT_EQ(type->isclass(), type != get_xrttiint() && type != t.colour.get());
        }
    thrown_by<kelXTypeMismatch>([&] { t.colour->getenumindex(1); });
}

template <class X>
void refuse_index(int index, const char *name, std::function<void(int)> query) {
    SCOPED_TRACE(index);
    auto refused = thrown_by<X>([&] { query(index); });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->getIndex(), index);
    EXPECT_EQ(text(refused->getTypeName()), name);
}

TEST(Indexes, OutsideTheCountAreRefusedWithTheirException) {
    Types t;
    Subject record(t.record.get()), choice(t.choice.get()), matrix(t.matrix.get()),
        dictionary(t.dictionary.get());
    internal_errors errors;
    for (int i : {-1, INT_MIN, INT_MIN + 1, 4, INT_MAX}) {
        refuse_index<kelXInvalidEnumIndex>(i, "t::Colour", [&](int k) { t.colour->getenumvaluebyindex(k); });
        refuse_index<kelXInvalidParentIndex>(i, "t::Record", [&](int k) { t.record->getparenttype(k); });
        refuse_index<kelXInvalidFieldIndex>(i, "t::Record", [&](int k) { t.record->getfieldname(k); });
        refuse_index<kelXInvalidFieldIndex>(i, "t::Record", [&](int k) { t.record->getfieldtype(k); });
        refuse_index<kelXInvalidFieldIndex>(i, "t::Record", [&](int k) { t.record->getfield(k, &record); });
        refuse_index<kelXInvalidFieldIndex>(i, "t::Record", [&](int k) { record.getfield(k); });
        refuse_index<kelXInvalidArrayDimIndex>(i, "t::Matrix", [&](int k) { t.matrix->getnarrayelems(k); });
        refuse_index<kelXInvalidUnionIndex>(i, "t::Choice", [&](int k) { t.choice->getcasename(k); });
        refuse_index<kelXInvalidUnionIndex>(i, "t::Choice", [&](int k) { t.choice->getcasetype(k); });
        refuse_index<kelXInvalidUnionIndex>(i, "t::Choice",
                                            [&](int k) { t.choice->getcasevalue(k, &choice); });
        for (int d : {0, 1}) {
            int at[2] = {1, 1};
            at[d] = i;
            auto refused = thrown_by<kelXInvalidArrayIndex>([&] { matrix.getarrayelem(at); });
            EXPECT_TRUE(refused->getDimension() == d && refused->getIndex() == i);
            EXPECT_EQ(text(refused->getTypeName()), "t::Matrix");
        }
    }
    thrown_by<kelXInvalidArrayIndex>([&] { matrix.getarrayelem(nullptr); });

    xstring key;
    xany elem;
    auto beyond = thrown_by<kelXInvalidDictIndex>([&] { dictionary.getdictelem(2, elem); });
    EXPECT_TRUE(beyond->getObject() == xany(&dictionary) && beyond->getIndex() == 2);
    thrown_by<kelXInvalidDictIndex>([&] { dictionary.getdictkey(2, key); });
    EXPECT_EQ(thrown_by<kelXNegativeIndex>([&] { dictionary.getdictelem(-1, elem); })->getIndex(), -1);
    EXPECT_EQ(errors.take(), "");

    // The lists themselves report and answer null.
    for (int i : {-1, 4}) {
        EXPECT_TRUE(!t.fields.getbyindex(i) && !t.parents.getbyindex(i) && !colours.get(i < 0 ? i : 3));
        EXPECT_EQ(errors.take(), "Invalid field index. (services/xrtti); Invalid index. (services/xrtti)");
    }
    EXPECT_EQ(xrttifields(7, nullptr).getmapsize() + xrttistructs(7, nullptr).getsize(), 0);
}

TEST(Enums, TellNoValueFromAWrongOne) {
    Types t;
    EXPECT_EQ(t.colour->getenumindex(xany(kel::nil_int)), kel::nil_int);
    EXPECT_EQ(t.colour->getenumindex(xany()), kel::uninit_int);
    thrown_by<kelXInvalidEnumIndex>([&] { t.colour->getenumvalue(xany(9, t.colour.get())); });
}

TEST(Fields, ThatAreNotThereAreNamed) {
    Types t;
    Subject record(t.record.get());
    for (const char *none :
         {"number", "", static_cast<const char *>(nullptr), kel::nil_text(), kel::uninit_text()}) {
        EXPECT_FALSE(record.hasfield(none));
        auto refused = thrown_by<kelXNoField>([&] { record.lookupfield(none); });
        EXPECT_TRUE(refused->getFieldId() == xany(none) && refused->getObject() == xany(&record));
        thrown_by<kelXNoField>([&] { t.base->lookupfield(none, &record); });
    }
}

// Names of every length up to twice the width that the search looks at first, differing at one place.
TEST(Fields, AreFoundByTheWholeName) {
    std::vector<std::string> names{""};
    for (std::size_t length = 1; length <= 20; ++length)
        for (std::size_t at = 0; at < length; ++at) {
            names.emplace_back(length, 'x');
            names.back()[at] = 'y';
        }
    std::vector<std::unique_ptr<xrttifield>> owned;
    std::vector<xrttifield *> list;
    for (auto &name : names) {
        owned.push_back(std::make_unique<xrttifield>(name.c_str(), 0, get_xrttiint(), number_of));
        list.push_back(owned.back().get());
    }
    // Of two fields with one name the first counts.
    xrttifield twin("xy", 0, get_xrttiint(), broken);
    list.push_back(&twin);
    xrttifields fields(static_cast<int>(list.size()), list.data());
    for (std::size_t i = 0; i < names.size(); ++i) {
        xrttifield *found = nullptr;
        ASSERT_TRUE(fields.find(names[i].c_str(), found)) << names[i];
        EXPECT_EQ(found, list[i]);
        EXPECT_FALSE(fields.find((names[i] + "z").c_str(), found));
    }
}

TEST(Absent, ReadsAsUninitAndOtherFailuresPass) {
    Types t;
    Subject record(t.record.get()), choice(t.choice.get()), sequence(t.sequence.get());
    EXPECT_TRUE(record.getfield(1).isuninit());
    EXPECT_TRUE(t.choice->getcasevalue(1, &choice).isuninit());
    thrown_by<kelXNotInitialized>([&] { record.getfield(2); });
    thrown_by<kelXNotInitialized>([&] { t.choice->getcasevalue(2, &choice); });
    EXPECT_THROW(record.getfield(3), int);
    // By name the exception is the answer.
    EXPECT_TRUE(thrown_by<kelXNoField>([&] { record.lookupfield("Missing"); })->getFieldId() == "Missing");

    EXPECT_TRUE(sequence.hasindex(0) && !sequence.hasindex(1) && !sequence.hasindex(3));
    thrown_by<kelXNotInitialized>([&] { sequence.hasindex(2); });
    thrown_by<kelXNegativeIndex>([&] { sequence.hasindex(-1); });
    thrown_by<kelXNegativeIndex>([&] { sequence.getseqelem(-1); });
    auto beyond = thrown_by<kelXNoField>([&] { sequence.getseqelem(3); });
    EXPECT_TRUE(beyond->getFieldId() == xany(3) && beyond->getObject() == xany(&sequence));
    EXPECT_EQ(xrcgetcount(&sequence), -1);
}

// An exception that is not counted and calls itself absence is disposed of, and one that does not passes.
KEL_DECLARE_STRUCT(LooseNoField)
class LooseNoField : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(LooseNoField, kelXException, "loose")
public:
    LooseNoField(const LooseNoField &) = delete;
    ~LooseNoField() override { ++died; }
    static inline int died = 0;
};
KEL_DEFINE_EXCEPTION(LooseNoField, "kellib::XNoField", kel::uncounted)

TEST(Absent, MayBeSaidByAnExceptionThatIsNotCounted) {
    xrttifield loose("Loose", 0, get_xrttiint(),
                     [](xrttifield *, xobject *) -> xany { LooseNoField::Throw(); });
    xrttifield timeout("Timeout", 0, get_xrttiint(),
                       [](xrttifield *, xobject *) -> xany { xportXTimeout::Throw("op"); });
    xrttifield *list[] = {&loose, &timeout};
    xrttifields fields(2, list);
    auto type = make<xrttistruct>("t::Loose", no, nullptr, &fields);
    Subject subject(type.get());
    EXPECT_TRUE(subject.getfield(0).isuninit());
    EXPECT_EQ(LooseNoField::died, 1);
    try {
        subject.getfield(1);
        ADD_FAILURE() << "nothing thrown";
    } catch (xthrowable *flight) {
        EXPECT_EQ(xrcgetcount(flight), -1);
        EXPECT_EQ(text(flight->gettypename()), "keljava::XTimeout");
        xdelete(flight);
    }
}

TEST(Unions, FollowTheirDiscriminator) {
    Types t;
    Subject choice(t.choice.get());
    choice.number = 5;
    struct {
        xany discriminator;
        xany expected;
    } cases[] = {{false, 5}, {true, {}}, {0, 5}, {1, {}}, {xany(0, t.colour.get()), 5}};
    for (auto &c : cases) {
        Types::discriminator = c.discriminator;
        EXPECT_TRUE(t.choice->getcurcasevalue(&choice) == c.expected);
    }
    for (const xany &none : {xany(), xany(kel::nil_int), xany(1.0), xany("0"), xany(3, t.colour.get())}) {
        Types::discriminator = none;
        auto refused = thrown_by<kelXInvalidUnionDiscr>([&] { t.choice->getcurcasevalue(&choice); });
        EXPECT_TRUE(refused->getDiscr() == none && refused->getObject() == xany(&choice));
    }
    for (int none : {-1, 3}) {
        Types::discriminator = none;
        thrown_by<kelXInvalidUnionIndex>([&] { t.choice->getcurcasevalue(&choice); });
    }
    Types::discriminator = {};
}

TEST(Kinship, IsByNameAndThroughParents) {
    Types t;
    xrttistruct *record_list[] = {t.record.get()};
    xrttistructs record_parents(1, record_list);
    auto derived = make<xrttistruct>("t::Derived", no, &record_parents, nullptr);
    auto same_name = make<xrttistruct>("t::Base", no, nullptr, nullptr);
    auto same_enum = make<xrtti>("t::Record");
    EXPECT_TRUE(derived->iskindof(derived.get()) && derived->iskindof(t.base.get()));
    EXPECT_TRUE(derived->iskindof(same_name.get()) && derived->iskindof(same_enum.get()));
    EXPECT_TRUE(t.base->issameas(same_name.get()) && !derived->issameas(t.base.get()));
    EXPECT_FALSE(t.base->iskindof(derived.get()) || derived->iskindof(nullptr) || derived->issameas(nullptr));
    EXPECT_FALSE(derived->iskindof(get_xrttiobject()));
    // A place without a parent hides none of the others.
    xrttistruct *gap_list[] = {nullptr, t.record.get()};
    xrttistructs gap(2, gap_list), only_gap(1, gap_list);
    EXPECT_TRUE(make<xrttistruct>("t::Gap", no, &gap, nullptr)->iskindof(t.base.get()));
    EXPECT_FALSE(make<xrttistruct>("t::Gap", no, &only_gap, nullptr)->iskindof(t.base.get()));
    // Descriptors without a name are one type.
    xrtti unnamed, other;
    EXPECT_TRUE(unnamed.issameas(&other) && !unnamed.issameas(t.base.get()));
}

// Circles of structs, each with one or both of the two before it as parents: 2^100,000 ways lead down.
TEST(Kinship, CostsNoMoreThanThereAreParents) {
    struct Level {
        xrttistruct type, *list[2];
        std::unique_ptr<xrttistructs> parents;
    };
    xrtti stranger;
    stranger.initialize("t::Stranger");
    for (auto [size, parents] : {std::pair(1U, 1), {2U, 1}, {50U, 1}, {100'000U, 1}, {100'000U, 2}}) {
        std::vector<Level> levels(size);
        for (unsigned i = 0; i < size; ++i) {
            Level &level = levels[i];
            for (unsigned k : {0U, 1U})
                level.list[k] = &levels[(i + 2 * size - 1 - k) % size].type;
            level.parents = std::make_unique<xrttistructs>(parents, level.list);
            level.type.initialize(("t::L" + std::to_string(i)).c_str(), 0, level.parents.get(), nullptr);
        }
        EXPECT_TRUE(levels.back().type.iskindof(&levels.front().type)) << size;
        EXPECT_FALSE(levels.back().type.iskindof(&stranger)) << size;
    }
}

// Says that it is of every kind, and nothing more.
class Claims : public brtti {
    xstring GiveTypeName() override { return "t::Claims"; }
    void OnRoutePrint(ioStream *, xany, printData *) override {}
    xbool GiveIsEnum() override { return true; }
    xbool GiveIsStruct() override { return true; }
    xbool GiveIsArray() override { return true; }
    xbool GiveIsSequence() override { return true; }
    xbool GiveIsDictionary() override { return true; }
    xbool GiveIsUnion() override { return true; }
    brtti *Clone() override { return new Claims; }
};

TEST(Descriptors, AnswerWithTheMarkersOfTheirTypes) {
    Claims d;
    int place = 0;
    const xany value(&place, new Claims);
    EXPECT_TRUE(d.getnenumvalues() == kel::uninit_int && d.getenumindex(value) == kel::uninit_int);
    EXPECT_TRUE(d.getnfields() == kel::uninit_int && d.getnparents() == 0 && !d.hasfield("n"));
    EXPECT_TRUE(d.getnarraydims() == kel::nil_int && d.getnseqelems(value) == kel::nil_int);
    EXPECT_TRUE(d.getndictelems(value) == kel::uninit_int && d.getnunioncases() == 0);
    EXPECT_TRUE(d.getarrayelem(nullptr, value).isnil() && d.getseqelem(0, value).isnil());
    EXPECT_TRUE(d.lookupfield("n", value).isuninit() && d.lookupdict("k", value).isuninit());
    EXPECT_TRUE(d.getdiscrvalue(value).isuninit());
    EXPECT_FALSE(d.hasindex(0, value) || d.haskey("k", value));
    EXPECT_FALSE(d.getarraytype() || d.getseqtype() || d.getdicttype() || d.getdiscrtype());
}

TEST(Descriptors, ThatWereNeverInitialisedAreEmpty) {
    xrttistruct record;
    xrttienum colours_of;
    xrttiunion choice;
    xrttiarray matrix;
    xrttisequence sequence;
    xrttidictionary dictionary;
    Subject in_sequence(&sequence), in_dictionary(&dictionary), in_choice(&choice), in_matrix(&matrix);
    EXPECT_EQ(record.getnfields() + colours_of.getnenumvalues() + choice.getnunioncases(), 0);
    EXPECT_EQ(in_sequence.getnseqelems() + in_dictionary.getndictelems() + matrix.getnarraydims(), 0);
    EXPECT_FALSE(in_sequence.hasindex(0) || in_dictionary.haskey("k"));
    EXPECT_TRUE(choice.getdiscrvalue(&in_choice).isuninit() && in_matrix.getarrayelem(nullptr).isuninit());
    thrown_by<kelXNoField>([&] { in_dictionary.lookupdict("k"); });
}

}  // namespace
