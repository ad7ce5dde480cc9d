// Descriptors: types declared from outside the library, one of each kind, and what queries answer and refuse;
// builds that several threads begin at once or that run out of memory.
#include <atomic>
#include <climits>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include <kelstdmt/kel.h>

#include "failing_memory.h"
#include "observing.h"

// As an interface's header would show them ------------------------------------------------------

enum demoShell : int { demoShellNone, demoShellBash, demoShellOther };
KEL_DECLARE_ENUM(demoShell)

KEL_DECLARE_STRUCT(demoPerson)
KEL_SEQUENCE(demoPeople, xrchandle<demoPerson>)
class demoPerson : public xobject {
    KEL_CLASS(demoPerson, xobject)
public:
    xstring Name;
    std::optional<int> Age;
    xrchandle<demoPerson> Friend;

    int getLength() const { return static_cast<int>(kel::view(Name).size()); }
    static demoPeople *getFamily() { return nullptr; }
};

KEL_DECLARE_STRUCT(demoBare)
class demoBare : public xthrowable {
    KEL_ROOT_EXCEPTION(demoBare)
public:
    demoBare(const demoBare &) = delete;
    ~demoBare() override { ++died; }
    static inline int died = 0;
};

KEL_DECLARE_STRUCT(demoAdmin)
KEL_SEQUENCE(demoAdmins, xrchandle<demoAdmin>)
class demoAdmin : public demoPerson {
    KEL_CLASS(demoAdmin, demoPerson)
public:
    demoShell Shell = demoShellBash;
    xany Extra;
    const char *Motto = "none";

    xany getSecret() { kelXNoField::Throw("Secret", this); }
    static demoAdmins *getTeam() { return nullptr; }
    static int getTimeout() { xportXTimeout::Throw("op"); }
    static int getBare() { throw static_cast<xthrowable *>(demoBare::Create()); }
};
int initial_of(demoAdmin &admin);

KEL_SEQUENCE(demoMaybes, std::optional<int>)
KEL_DICTIONARY(demoTexts, xstring)

KEL_DECLARE_UNION(demoShape)
class demoShape : public xobject {
    KEL_CLASS(demoShape, xobject)
public:
    xany Kind = 0;
    double getRadius() {
        if (!(Kind == 0)) kelXNoField::Throw("Radius", this);
        return 2.5;
    }
    int Side = 4;
};

KEL_DECLARE_ARRAY(demoMatrix)
class demoMatrix : public xobject {
    KEL_CLASS(demoMatrix, xobject)
public:
    int At(int row, int column) const { return row * 10 + column; }
};

// As its source file would define them ----------------------------------------------------------

KEL_DEFINE_ENUM(demoShell, "demo::Shell", "demoShellNone", "demoShellBash", "demoShellOther")
KEL_DEFINE_STRUCT(demoPerson, "demo::Person", kel::counted, kel::field<&demoPerson::Name>("Name"),
                  kel::optional_field<&demoPerson::Age>("Age"),
                  kel::optional_field<&demoPerson::Friend>("Friend"),
                  kel::field<&demoPerson::getLength>("Length"), kel::field<&demoPerson::getFamily>("Family"))
KEL_DEFINE_STRUCT(demoAdmin, "demo::Admin", kel::counted, kel::field<&demoAdmin::Shell>("Shell"),
                  kel::field<&demoAdmin::Motto>("Motto"), kel::field<&initial_of>("Initial"),
                  kel::field<&demoAdmin::getTeam>("Team"), kel::field<&demoAdmin::Extra>("Extra"),
                  kel::optional_field<&demoAdmin::getSecret>("Secret"),
                  kel::field<&demoAdmin::getTimeout>("Timeout"), kel::field<&demoAdmin::getBare>("Bare"))
KEL_DEFINE_EXCEPTION(demoBare, "demo::Bare", kel::counted)
KEL_DEFINE_SEQUENCE(demoPeople, "demo::People", kel::counted)
KEL_DEFINE_SEQUENCE(demoAdmins, "demo::Admins", kel::counted)
KEL_DEFINE_SEQUENCE(demoMaybes, "demo::Maybes", kel::counted, kel::optional_elements)
KEL_DEFINE_DICTIONARY(demoTexts, "demo::Texts", kel::counted)
KEL_DEFINE_UNION(demoShape, "demo::Shape", kel::counted, kel::field<&demoShape::Kind>("Kind"),
                 kel::field<&demoShape::getRadius>("Radius"), kel::field<&demoShape::Side>("Side"))
KEL_DEFINE_ARRAY(demoMatrix, "demo::Matrix", kel::counted, kel::elements<&demoMatrix::At, 2, 3>())
int initial_of(demoAdmin &admin) {
    return admin.Name.IsNull() ? 0 : admin.Name.Str()[0];
}

namespace {

// Builds ---------------------------------------------------------------------------------------

// Nothing has been built yet, and several threads come at once from two sides of types that need each other.
TEST(Builders, AreSafeFromSeveralThreadsAtOnce) {
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (ready < 4)
                std::this_thread::yield();
            xrtticlass *type = t % 2 ? static_cast<xrtticlass *>(xrtti_get_p_demoPerson())
                                     : static_cast<xrtticlass *>(xrtti_get_p_demoPeople());
            EXPECT_EQ(text(type->getname()), t % 2 ? "demo::Person" : "demo::People");
            EXPECT_EQ(xrtti_get_p_demoPeople()->getseqtype(), xrtti_get_p_demoPerson());
            EXPECT_EQ(xrtti_get_p_demoPerson()->getfieldtype(4), xrtti_get_p_demoPeople());
        });
    for (auto &thread : threads)
        thread.join();
}

// Without memory at any one moment a build takes back all that it began, and the next one succeeds.
TEST(Builders, SurviveTheLackOfMemory) {
    int failures = 0;
    xrttistruct *type = nullptr;
    for (; type == nullptr; ++failures) {
        failing_memory::allocations_left = failures;
        try {
            type = xrtti_get_p_demoAdmin();
        } catch (const std::bad_alloc &) {
        }
        failing_memory::allocations_left = -1;
    }
    EXPECT_GT(failures, 10);
    EXPECT_TRUE(type->getparenttype(0) == xrtti_get_p_demoPerson() &&
                type->getfieldtype(3)->getseqtype() == type);
    EXPECT_EQ(text(type->getfieldtype(0)->getenumvaluebyindex(1)), "demoShellBash");
}

// What each kind reads ---------------------------------------------------------------------------

// The first fields, by index and by name.
void expect_fields(xobject *object, brtti *type, const std::string &names, const std::vector<xany> &values) {
    std::string found;
    for (const xany &value : values) {
        const auto index = static_cast<int>(&value - values.data());
        const xstring name = type->getfieldname(index);
        found += text(name) + " ";
        EXPECT_TRUE(type->getfield(index, object) == value && type->lookupfield(name, object) == value)
            << name.Str();
    }
    EXPECT_EQ(found, names);
}

TEST(Structs, ReadEveryKindOfField) {
    xrchandle<demoAdmin> admin(kel::construct<demoAdmin>());
    admin->Name = "ada";
    admin->Age = 36;
    admin->Friend = kel::construct<demoPerson>();
    auto *person = xrtti_get_p_demoPerson(), *type = xrtti_get_p_demoAdmin();
    EXPECT_TRUE(admin->getrtti() == type && type->getnfields() == 8) << "without those of the parent";
    expect_fields(admin, person, "Name Age Friend Length Family ",
                  {"ada", 36, admin->Friend.get(), 3, nullptr});
    expect_fields(admin, type, "Shell Motto Initial Team ",
                  {xany(1, xrtti_get_p_demoShell()), "none", int{'a'}, nullptr});
    EXPECT_EQ(xrcgetcount(admin->Friend), 1);
    xrttifield *name = person->getfields()->getbyindex(0);
    xauto<demoMatrix> other;
    // An absent object is no object to read from.
    thrown_by<kelXNotInitialized>([&] { name->get(nullptr); });
    thrown_by<kelXTypeMismatch>([&] { name->get(&other); });
    for (const char *none : {"shell", "", static_cast<const char *>(nullptr), kel::uninit_text()}) {
        EXPECT_FALSE(admin->hasfield(none));
        auto refused = thrown_by<kelXNoField>([&] { admin->lookupfield(none); });
        EXPECT_TRUE(refused->getFieldId() == xany(none) && refused->getObject() == xany(admin));
    }
    EXPECT_EQ(xrcgetcount(admin), 1);
}

// By index absence reads as uninit, by name the exception is the answer; other failures pass.
TEST(Structs, AbsenceReadsAsUninit) {
    xrchandle<demoAdmin> admin(kel::construct<demoAdmin>());
    EXPECT_TRUE(admin->getfield(4).isuninit() && admin->getfield(5).isuninit());
    EXPECT_TRUE(thrown_by<kelXNoField>([&] { admin->lookupfield("Secret"); })->getFieldId() == "Secret");
    xthrowable *flight = flight_of([&] { admin->getfield(6); });
    EXPECT_EQ(text(flight->gettypename()), "keljava::XTimeout");
    xdelete(flight);
    // One that was thrown without xthrow, which nobody has counted yet.
    flight = flight_of([&] { admin->getfield(7); });
    EXPECT_TRUE(demoBare::died == 0 && kel::caught(flight).is<demoBare>());
    EXPECT_EQ(demoBare::died, 1);
}

TEST(Containers, ReadTheirElements) {
    xrchandle<demoMaybes> maybes(demoMaybes::create());
    maybes->append(std::nullopt);
    maybes->append(4);
    xobject *object = maybes;
    EXPECT_TRUE(object->getseqelem(0).isnil() && object->getseqelem(1) == xany(4));
    EXPECT_TRUE(object->getnseqelems() == 2 && object->hasindex(1) && !object->hasindex(2));
    EXPECT_TRUE(thrown_by<kelXNoField>([&] { object->getseqelem(2); })->getFieldId() == xany(2));
    thrown_by<kelXNegativeIndex>([&] { object->hasindex(-1); });

    xrchandle<demoTexts> texts(demoTexts::create());
    texts->set("ada", "Lovelace");
    object = texts;
    const int slots = object->getndictelems();
    xstring key;
    xany elem;
    for (int i = 0; i < slots; ++i)
        EXPECT_EQ(object->getdictkey(i, key), object->getdictelem(i, elem));
    EXPECT_TRUE(text(key) == "ada" && elem == "Lovelace" && object->lookupdict(key) == elem);
    EXPECT_TRUE(object->haskey("ada") && !object->haskey("eve"));
    thrown_by<kelXNoField>([&] { object->lookupdict("eve"); });
    thrown_by<kelXNegativeIndex>([&] { object->getdictkey(-1, key); });
    auto beyond = thrown_by<kelXInvalidDictIndex>([&] { object->getdictelem(slots, elem); });
    EXPECT_TRUE(beyond->getObject() == xany(object) && beyond->getIndex() == slots);
}

TEST(Unions, FollowTheirDiscriminator) {
    xrchandle<demoShape> shape(kel::construct<demoShape>());
    brtti *type = shape->getrtti(), *shells = xrtti_get_p_demoShell();
    const std::pair<xany, xany> cases[] = {{0, 2.5}, {1, 4}, {true, 4}, {xany(1, shells), 4}};
    for (auto &[discriminator, expected] : cases) {
        shape->Kind = discriminator;
        EXPECT_TRUE(type->getcurcasevalue(shape.get()) == expected);
        EXPECT_EQ(type->getcasevalue(0, shape.get()).isuninit(), !(discriminator == 0));
    }
    shape->Kind = 1.0;
    auto refused = thrown_by<kelXInvalidUnionDiscr>([&] { type->getcurcasevalue(shape.get()); });
    EXPECT_TRUE(refused->getDiscr() == 1.0 && refused->getObject() == xany(shape));
    shape->Kind = 2;
    thrown_by<kelXInvalidUnionIndex>([&] { type->getcurcasevalue(shape.get()); });
}

// What is refused --------------------------------------------------------------------------------

// The kind is looked at first, then the value.
TEST(Queries, AreCheckedByKindAndValue) {
    xauto<demoPerson> wrong;
    const xany none(kel::nil_int);
    using T = xrtti;
    const struct {
        xrtti *own;
        std::string refusal;
        std::function<void(xrtti *, const xany &)> query;
    } queries[] = {
        {xrtti_get_p_kelXException(), "Struct", [](T *t, const xany &v) { t->lookupfield("none", v); }},
        {xrtti_get_p_demoMatrix(), "Array", [](T *t, const xany &v) { t->getarrayelem(nullptr, v); }},
        {xrtti_get_p_demoPeople(), "Sequence", [](T *t, const xany &v) { t->hasindex(99, v); }},
        {xrtti_get_p_demoTexts(), "Dictionary", [](T *t, const xany &v) { t->getndictelems(v); }},
        {xrtti_get_p_demoShape(), "Union", [](T *t, const xany &v) { t->getcurcasevalue(v); }},
    };
    for (const auto &row : queries) {
        SCOPED_TRACE(testing::Message() << "query " << &row - queries);
        for (const auto &other : queries)
            if (other.own != row.own) {
                auto refused = xrchandle<xthrowable>::adopt(flight_of([&] { row.query(other.own, none); }));
                EXPECT_EQ(text(refused->gettypename()), "kellib::XNot" + row.refusal + "Type");
            }
        EXPECT_TRUE(thrown_by<kelXUnknownType>([&] { row.query(row.own, none); })->getObject() == none);
        auto mismatch = thrown_by<kelXTypeMismatch>([&] { row.query(row.own, &wrong); });
        EXPECT_EQ(text(mismatch->getTypeName()), text(row.own->getname()));
    }
    xrtti *shell = xrtti_get_p_demoShell();
    thrown_by<kelXNotEnumType>([&] { get_xrttiint()->getnenumvalues(); });
    EXPECT_EQ(shell->getenumindex(xany(kel::nil_int)), kel::nil_int);
    EXPECT_EQ(shell->getenumindex(xany()), kel::uninit_int);
    thrown_by<kelXTypeMismatch>([&] { shell->getenumindex(1); });
}

template <class X>
void refuse_indexes(int count, const std::function<void(int)> &query) {
    for (int index : {-1, INT_MIN, count, INT_MAX})
        EXPECT_EQ(thrown_by<X>([&] { query(index); })->getIndex(), index);
    query(count - 1);
}

TEST(Queries, RefuseIndexesOutsideTheCount) {
    auto *admin = xrtti_get_p_demoAdmin();
    xauto<demoPerson> ada;
    xauto<demoMatrix> numbers;
    refuse_indexes<kelXInvalidEnumIndex>(3, [](int k) { xrtti_get_p_demoShell()->getenumvaluebyindex(k); });
    refuse_indexes<kelXInvalidParentIndex>(1, [&](int k) { admin->getparenttype(k); });
    refuse_indexes<kelXInvalidFieldIndex>(5, [&](int k) { ada.getrtti()->getfield(k, &ada); });
    refuse_indexes<kelXInvalidFieldIndex>(5, [&](int k) { ada.getfield(k); });
    refuse_indexes<kelXInvalidArrayDimIndex>(2, [&](int k) { numbers.getnarrayelems(k); });
    refuse_indexes<kelXInvalidUnionIndex>(2, [](int k) { xrtti_get_p_demoShape()->getcasename(k); });
    for (int d : {0, 1}) {
        int at[] = {1, 2};
        EXPECT_TRUE(numbers.getarrayelem(at) == xany(12));
        for (int i : {-1, INT_MIN, 2 + d, INT_MAX}) {
            at[d] = i;
            auto refused = thrown_by<kelXInvalidArrayIndex>([&] { numbers.getarrayelem(at); });
            EXPECT_TRUE(refused->getDimension() == d && refused->getIndex() == i);
        }
    }
    thrown_by<kelXInvalidArrayIndex>([&] { numbers.getarrayelem(nullptr); });
}

// A type from outside that gives no more than its name and kinds, and one that can count: what they leave out
// answers as absent.
class Bare : public brtti {
    xstring GiveTypeName() override { return "test::Bare"; }
    xbool GiveIsEnum() override { return true; }
    xbool GiveIsStruct() override { return true; }
    xbool GiveIsArray() override { return true; }
    xbool GiveIsSequence() override { return true; }
    xbool GiveIsDictionary() override { return true; }
    xbool GiveIsUnion() override { return true; }
    void OnRoutePrint(ioStream *, xany, printData *) override {}
};
class Counting : public Bare {
    int GiveNEnumValues() override { return 1; }
    int GiveNFields() override { return 1; }
    int GiveNParents() override { return 1; }
    int GiveNDictElems(xany) override { return 1; }
    int GiveNUnionCases() override { return 1; }
    int GiveNArrayDims() override { return 1; }
    int GiveNArrayElems(int) override { return 1; }
    brtti *Clone() override { return new Counting; }
};

TEST(Queries, OfATypeThatLeavesThemOutAnswerAbsence) {
    int place = 0, first[] = {0};
    Bare bare;
    EXPECT_TRUE(bare.getnenumvalues() == kel::uninit_int && bare.getnfields() == kel::uninit_int);
    EXPECT_TRUE(bare.getnarraydims() == kel::nil_int && bare.getnparents() == 0 &&
                bare.getnunioncases() == 0);
    EXPECT_FALSE(bare.isclass() || bare.hasfield("x"));
    EXPECT_FALSE(bare.getarraytype() || bare.getseqtype() || bare.getdicttype() || bare.getdiscrtype());
    const xany alone(&place, new Bare);
    EXPECT_EQ(text(thrown_by<kelXCannotCloneRTTI>([&] { xany copy(alone); })->getTypeName()), "test::Bare");

    Counting type;
    const xany value(&place, new Counting);
    xstring key;
    xany element;
    EXPECT_EQ(text(type.getenumvaluebyindex(0)) + text(type.getfieldname(0)) + text(type.getcasename(0)),
              "(null)(null)(null)");
    EXPECT_TRUE(type.getenumindex(value) == kel::uninit_int && type.getnseqelems(value) == kel::nil_int);
    EXPECT_FALSE(type.getparenttype(0) || type.getfieldtype(0) || type.getcasetype(0));
    EXPECT_FALSE(type.hasindex(0, value) || type.haskey("k", value) || type.getdictkey(0, value, key) ||
                 type.getdictelem(0, value, element));
    for (const xany &got :
         {type.getfield(0, value), type.lookupfield("x", value), type.lookupdict("k", value),
          type.getcasevalue(0, value), type.getdiscrvalue(value)})
        EXPECT_TRUE(got.isuninit());
    for (const xany &got : {type.getarrayelem(first, value), type.getseqelem(0, value)})
        EXPECT_TRUE(got.isnil());
}

// Kinship ----------------------------------------------------------------------------------------

// A struct by name with its parents, and with nothing else.
struct Kin : xrttistruct {
    Kin(const std::string &name, std::vector<xrttistruct *> above)
        : list(std::move(above)), parents(static_cast<int>(list.size()), list.data()) {
        initialize(name.c_str(), 0, &parents, nullptr);
    }
    std::vector<xrttistruct *> list;
    xrttistructs parents;
};

TEST(Kinship, IsByNameAndThroughParents) {
    Kin base("t::Base", {}), record("t::Record", {&base}), derived("t::Derived", {&record}),
        same_name("t::Base", {});
    Kin gap("t::Gap", {nullptr, &record});  // the missing parent hides none of the others
    for (brtti *kin : {&base, &record, &same_name})
        EXPECT_TRUE(derived.iskindof(kin) && gap.iskindof(kin));
    for (brtti *stranger : std::initializer_list<brtti *>{&gap, get_xrttiobject(), nullptr})
        EXPECT_FALSE(derived.iskindof(stranger) || derived.issameas(stranger));
    EXPECT_FALSE(base.iskindof(&derived));
}

// Circles of structs, each with one or both of the two before it as parents: 2^100,000 ways lead down.
TEST(Kinship, CostsNoMoreThanThereAreParents) {
    xrtti stranger;
    stranger.initialize("t::Stranger");
    for (auto [size, parents] : {std::pair(1U, 1U), {50U, 1U}, {100'000U, 1U}, {100'000U, 2U}}) {
        std::vector<std::unique_ptr<Kin>> levels;
        for (unsigned i = 0; i < size; ++i)
            levels.push_back(
                std::make_unique<Kin>("t::L" + std::to_string(i), std::vector<xrttistruct *>(parents)));
        for (unsigned i = 0; i < size; ++i)
            for (unsigned k = 0; k < parents; ++k)
                levels[i]->list[k] = levels[(i + 2 * size - 1 - k) % size].get();
        EXPECT_TRUE(levels.back()->iskindof(levels.front().get())) << size;
        EXPECT_FALSE(levels.back()->iskindof(&stranger)) << size;
    }
}

// A static object that dies after everything else of this program still finds its descriptor.
struct Late {
    xrchandle<demoPerson> person;
    ~Late() {
        if (person && !(person->getfield(3) == xany(2))) std::abort();
    }
} late;

TEST(Descriptors, MayBeUsedByStaticObjects) {
    late.person = kel::construct<demoPerson>();
    late.person->Name = "zz";
}

}  // namespace
