// Descriptors: types declared from outside the library, one of each kind, and what queries answer and refuse;
// builds that several threads begin at once or that run out of memory.
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "failing_memory.h"
#include "observing.h"

// As an interface's header would show them ------------------------------------------------------

enum demoShell : int { demoShellNone, demoShellBash, demoShellOther };
KEL_DECLARE_ENUM(demoShell)
enum class demoLevel : unsigned char { low, high };
KEL_DECLARE_ENUM(demoLevel)

KEL_DECLARE_STRUCT(demoPlace)
class demoPlace : public xobject {
    KEL_CLASS(demoPlace, xobject)
public:
    double Height = 1.5;
};

KEL_DECLARE_STRUCT(demoPerson)
KEL_SEQUENCE(demoPeople, xrchandle<demoPerson>)
class demoPerson : public xobject {
    KEL_CLASS(demoPerson, xobject)
public:
    xstring Name;
    std::optional<int> Age;
    std::optional<xstring> Nickname;
    bool Active = true;
    xrchandle<demoPerson> Friend;
    xauto<demoPlace> Home;

    int getLength() const { return static_cast<int>(kel::view(Name).size()); }
    static demoPeople *getFamily() { return nullptr; }
};

// An exception that is not counted and calls itself absence.
KEL_DECLARE_STRUCT(LooseNoField)
class LooseNoField : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(LooseNoField, kelXException, "loose")
public:
    LooseNoField(const LooseNoField &) = delete;
    ~LooseNoField() override { ++died; }
    static inline int died = 0;
};

KEL_DECLARE_STRUCT(demoAdmin)
KEL_SEQUENCE(demoAdmins, xrchandle<demoAdmin>)
class demoAdmin : public demoPerson {
    KEL_CLASS(demoAdmin, demoPerson)
public:
    demoShell Shell = demoShellBash;
    demoLevel Level = demoLevel::high;
    xany Extra;
    xbool Flag = kel::nil_bool;
    const char *Motto = "none";

    xany getSecret() { kelXNoField::Throw("Secret", this); }
    static demoAdmins *getTeam() { return nullptr; }
    static int getLoose() { LooseNoField::Throw(); }
    static int getTimeout() { xportXTimeout::Throw("op"); }
    static int getFailing() { kelXNotInitialized::Throw(); }
    static int getAlien() { throw 5; }
};
int initial_of(demoAdmin &admin);

KEL_DECLARE_STRUCT(demoXBadLine)
class demoXBadLine : public kelXException {
    KEL_EXCEPTION(demoXBadLine, kelXException, "Malformed line.", (xstring, File), (int, Line),
                  (demoShell, Shell))
};

KEL_SEQUENCE(demoMaybes, std::optional<int>)
KEL_DICTIONARY(demoPeopleByName, xrchandle<demoPerson>)
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
    static int getFailing() { kelXNotInitialized::Throw(); }
};

KEL_DECLARE_ARRAY(demoMatrix)
class demoMatrix : public xobject {
    KEL_CLASS(demoMatrix, xobject)
public:
    int At(int row, int column) const { return row * 10 + column; }
};

// As its source file would define them ----------------------------------------------------------

KEL_DEFINE_ENUM(demoShell, "demo::Shell", "demoShellNone", "demoShellBash", "demoShellOther")
KEL_DEFINE_ENUM(demoLevel, "demo::Level", "low", "high")
KEL_DEFINE_STRUCT(demoPlace, "demo::Place", kel::counted, kel::field<&demoPlace::Height>("Height"))
KEL_DEFINE_STRUCT(demoPerson, "demo::Person", kel::counted, kel::field<&demoPerson::Name>("Name"),
                  kel::optional_field<&demoPerson::Age>("Age"),
                  kel::optional_field<&demoPerson::Nickname>("Nickname"),
                  kel::field<&demoPerson::Active>("Active"),
                  kel::optional_field<&demoPerson::Friend>("Friend"), kel::field<&demoPerson::Home>("Home"),
                  kel::field<&demoPerson::getLength>("Length"), kel::field<&demoPerson::getFamily>("Family"))
KEL_DEFINE_STRUCT(demoAdmin, "demo::Admin", kel::counted, kel::field<&demoAdmin::Shell>("Shell"),
                  kel::field<&demoAdmin::Flag>("Flag"), kel::field<&demoAdmin::Motto>("Motto"),
                  kel::field<&initial_of>("Initial"), kel::field<&demoAdmin::Level>("Level"),
                  kel::field<&demoAdmin::getTeam>("Team"), kel::field<&demoAdmin::Extra>("Extra"),
                  kel::optional_field<&demoAdmin::getSecret>("Secret"),
                  kel::field<&demoAdmin::getLoose>("Loose"), kel::field<&demoAdmin::getTimeout>("Timeout"),
                  kel::field<&demoAdmin::getFailing>("Failing"), kel::field<&demoAdmin::getAlien>("Alien"))
KEL_DEFINE_EXCEPTION(LooseNoField, "kellib::XNoField", kel::uncounted)
KEL_DEFINE_EXCEPTION(demoXBadLine, "demo::XBadLine", kel::counted)
KEL_DEFINE_SEQUENCE(demoPeople, "demo::People", kel::counted)
KEL_DEFINE_SEQUENCE(demoAdmins, "demo::Admins", kel::counted)
KEL_DEFINE_SEQUENCE(demoMaybes, "demo::Maybes", kel::counted, kel::optional_elements)
KEL_DEFINE_DICTIONARY(demoPeopleByName, "demo::PeopleByName", kel::counted)
KEL_DEFINE_DICTIONARY(demoTexts, "demo::Texts", kel::counted, kel::optional_elements)
KEL_DEFINE_UNION(demoShape, "demo::Shape", kel::counted, kel::field<&demoShape::Kind>("Kind"),
                 kel::field<&demoShape::getRadius>("Radius"), kel::field<&demoShape::Side>("Side"),
                 kel::field<&demoShape::getFailing>("Failing"))
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
            EXPECT_EQ(xrtti_get_p_demoPerson()->getfieldtype(7), xrtti_get_p_demoPeople());
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
    EXPECT_EQ(type->getparenttype(0), xrtti_get_p_demoPerson());
    EXPECT_EQ(type->getfieldtype(5)->getseqtype(), type);
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
    EXPECT_TRUE(admin->getrtti() == type && type->getnfields() == 12) << "without those of the parent";
    expect_fields(admin, person, "Name Age Nickname Active Friend Home Length Family ",
                  {"ada", 36, nullptr, true, admin->Friend.get(), &admin->Home, 3, nullptr});
    const xany shell(1, xrtti_get_p_demoShell()), level(1, xrtti_get_p_demoLevel());
    expect_fields(admin, type, "Shell Flag Motto Initial Level Team ",
                  {shell, nullptr, "none", int{'a'}, level, nullptr});
    EXPECT_EQ(static_cast<xrstring>(person->getfield(0, admin.get())), admin->Name.Str()) << "shared";
    EXPECT_EQ(xrcgetcount(admin->Friend) + xrcgetcount(&admin->Home), 1);
    admin->Shell = static_cast<demoShell>(3);
    EXPECT_TRUE(admin->getfield(0).isnil() && person->getfield(0, admin->Friend.get()).isnil());

    auto *fields = person->getfields();
    EXPECT_TRUE(!fields->getbyindex(0)->getisoptional() && fields->getbyindex(1)->getisoptional());
    EXPECT_EQ(fields->getbyindex(1)->gettype(), get_xrttiint());
    // An absent object is no object to read from.
    for (xobject *none : {static_cast<xobject *>(nullptr), kel::uninit_object()})
        thrown_by<kelXNotInitialized>([&] { fields->getbyindex(0)->get(none); });
    thrown_by<kelXTypeMismatch>([&] { fields->getbyindex(0)->get(&admin->Home); });
    for (const char *none :
         {"shell", "", static_cast<const char *>(nullptr), kel::nil_text(), kel::uninit_text()}) {
        EXPECT_FALSE(admin->hasfield(none));
        auto refused = thrown_by<kelXNoField>([&] { admin->lookupfield(none); });
        EXPECT_TRUE(refused->getFieldId() == xany(none) && refused->getObject() == xany(admin));
    }
    auto thrown = thrown_by<demoXBadLine>([] { demoXBadLine::Throw("f", 3, demoShellOther); });
    EXPECT_EQ(text(thrown->getDescription()), "Malformed line.");
    expect_fields(thrown, xrtti_get_p_demoXBadLine(), "File Line Shell ",
                  {"f", 3, xany(2, xrtti_get_p_demoShell())});
    EXPECT_EQ(xrcgetcount(admin), 1);
}

// By index absence reads as uninit, by name the exception is the answer; other failures pass.
TEST(Structs, AbsenceReadsAsUninit) {
    xrchandle<demoAdmin> admin(kel::construct<demoAdmin>());
    EXPECT_TRUE(admin->getfield(6).isuninit() && admin->getfield(7).isuninit());
    EXPECT_TRUE(thrown_by<kelXNoField>([&] { admin->lookupfield("Secret"); })->getFieldId() == "Secret");
    EXPECT_TRUE(admin->getfield(8).isuninit());
    EXPECT_EQ(LooseNoField::died, 1);
    xthrowable *flight = flight_of([&] { admin->getfield(9); });
    EXPECT_EQ(text(flight->gettypename()), "keljava::XTimeout");
    xdelete(flight);
    thrown_by<kelXNotInitialized>([&] { admin->getfield(10); });
    EXPECT_THROW(admin->getfield(11), int);
}

// Names of every length up to twice the width that the search looks at first, differing at one place.
TEST(Structs, FindFieldsByTheWholeName) {
    std::vector<std::unique_ptr<xrttifield>> owned;
    std::vector<xrttifield *> list;
    const auto add = [&](const std::string &name) {
        owned.push_back(std::make_unique<xrttifield>(name.c_str(), 0, get_xrttiint(), nullptr));
        list.push_back(owned.back().get());
    };
    add("");
    for (std::size_t length = 1; length <= 20; ++length)
        for (std::size_t at = 0; at < length; ++at)
            add(std::string(at, 'x') + "y" + std::string(length - at - 1, 'x'));
    const std::size_t different = list.size();
    add("xy");  // of two fields with one name the first counts
    xrttifields fields(static_cast<int>(list.size()), list.data());
    for (std::size_t i = 0; i < different; ++i) {
        const std::string name = text(list[i]->getname());
        xrttifield *found = nullptr;
        ASSERT_TRUE(fields.find(name.c_str(), found) && found == list[i]) << name;
        EXPECT_FALSE(fields.find((name + "z").c_str(), found)) << name;
    }
}

// An object whose descriptor the test supplies.
class Subject : public xobject {
public:
    explicit Subject(xrtticlass *type) : m_type(type) {}

private:
    xrtticlass *givertti() override { return m_type; }
    xrtticlass *m_type;
};

TEST(Kinds, SequencesReadTheirElements) {
    xrchandle<demoMaybes> maybes(demoMaybes::create());
    maybes->append(std::nullopt);
    maybes->append(4);
    xobject *object = maybes;
    auto *type = xrtti_get_p_demoMaybes();
    EXPECT_TRUE(object->getseqelem(0).isnil() && object->getseqelem(1) == xany(4));
    EXPECT_TRUE(object->getnseqelems() == 2 && object->hasindex(1) && !object->hasindex(2));
    EXPECT_TRUE(type->getiselemoptional() && !xrtti_get_p_demoPeople()->getiselemoptional());
    auto beyond = thrown_by<kelXNoField>([&] { object->getseqelem(2); });
    EXPECT_TRUE(beyond->getFieldId() == xany(2) && beyond->getObject() == xany(object));
    thrown_by<kelXNegativeIndex>([&] { type->get(-1, object); });
    EXPECT_EQ(thrown_by<kelXInvalidSeqIndex>([&] { type->get(2, object); })->getIndex(), 2);
    thrown_by<kelXTypeMismatch>([&] { xrtti_get_p_demoPeople()->get(0, object); });

    // A getter of one's own may say that an element is absent.
    xrttisequence gaps;
    gaps.initialize(
        "t::Gaps", 0, 0, get_xrttiint(), [](xrttisequence *, xobject *) { return 3; },
        [](xrttisequence *, int index, xobject *self) {
            if (index < 0) kelhThrowNegativeIndex(index);
            if (index == 1) kelhThrowNoField(index, self);
            if (index == 2) kelhThrowNotInitialized();
            return xany(index);
        });
    Subject sparse(&gaps);
    EXPECT_TRUE(sparse.hasindex(0) && !sparse.hasindex(1) && !sparse.hasindex(3));
    thrown_by<kelXNotInitialized>([&] { sparse.hasindex(2); });
    thrown_by<kelXNegativeIndex>([&] { sparse.hasindex(-1); });
}

TEST(Kinds, DictionariesReadTheirEntries) {
    xrchandle<demoPeopleByName> people(demoPeopleByName::create());
    people->set("ada", kel::construct<demoPerson>());
    people->set("bob", kel::construct<demoPerson>());
    xobject *object = people;
    int live = 0, slots = object->getndictelems();
    xstring key;
    for (int i = 0; i < slots; ++i) {
        xany elem;
        const bool has = object->getdictkey(i, key);
        EXPECT_EQ(object->getdictelem(i, elem), has);
        live += has && object->lookupdict(key) == elem && object->haskey(key);
    }
    EXPECT_EQ(live, 2);
    EXPECT_FALSE(object->haskey("eve"));
    xany elem;
    thrown_by<kelXNoField>([&] { object->lookupdict("eve"); });
    thrown_by<kelXNegativeIndex>([&] { object->getdictkey(-1, key); });
    thrown_by<kelXNegativeIndex>([&] { object->getdictelem(-1, elem); });
    thrown_by<kelXInvalidDictIndex>([&] { object->getdictkey(slots, key); });
    auto beyond = thrown_by<kelXInvalidDictIndex>([&] { object->getdictelem(slots, elem); });
    EXPECT_TRUE(beyond->getObject() == xany(object) && beyond->getIndex() == slots);
    EXPECT_FALSE(xrtti_get_p_demoPeopleByName()->getkey(slots, object, key));
    EXPECT_TRUE(xrtti_get_p_demoTexts()->getiselemoptional());
}

TEST(Kinds, UnionsFollowTheirDiscriminator) {
    xrchandle<demoShape> shape(kel::construct<demoShape>());
    brtti *type = shape->getrtti(), *shells = xrtti_get_p_demoShell();
    EXPECT_EQ(text(type->getcasename(0)), "Radius");
    const std::pair<xany, xany> cases[] = {{0, 2.5}, {1, 4}, {true, 4}, {xany(1, shells), 4}};
    for (auto &[discriminator, expected] : cases) {
        shape->Kind = discriminator;
        EXPECT_TRUE(type->getcurcasevalue(shape.get()) == expected);
        EXPECT_EQ(type->getcasevalue(0, shape.get()).isuninit(), !(discriminator == 0));
    }
    thrown_by<kelXNotInitialized>([&] { type->getcasevalue(2, shape.get()); });
    for (const xany &none : {xany(), xany(kel::nil_int), xany(1.0), xany("0"), xany(3, shells)}) {
        shape->Kind = none;
        auto refused = thrown_by<kelXInvalidUnionDiscr>([&] { type->getcurcasevalue(shape.get()); });
        EXPECT_TRUE(refused->getDiscr() == none && refused->getObject() == xany(shape));
    }
    shape->Kind = 3;
    thrown_by<kelXInvalidUnionIndex>([&] { type->getcurcasevalue(shape.get()); });
}

// What is refused --------------------------------------------------------------------------------

// A descriptor of each kind, and some of none.
std::vector<xrtti *> all_types() {
    return {get_xrttiint(),          get_xrttiobject(),        xrtti_get_p_demoShell(),
            xrtti_get_p_demoPlace(), xrtti_get_p_demoMatrix(), xrtti_get_p_demoPeople(),
            xrtti_get_p_demoTexts(), xrtti_get_p_demoShape()};
}

template <class P>
P argument(const xany &value) {
    if constexpr (std::is_same_v<P, xany>)
        return value;
    else if constexpr (std::is_same_v<P, int *>)
        return nullptr;
    else if constexpr (std::is_same_v<P, int>)
        return 99;
    else
        return "none";
}

// The kind is looked at first, then the value, and before either of them nothing is read.
template <class X, class Answer, class... P>
void refuse_one(xrtti *own, Answer (brtti::*query)(P...)) {
    xauto<demoPerson> wrong;
    const xany none(kel::nil_int);
    for (xrtti *type : all_types()) {
        SCOPED_TRACE(std::string(type->getname()) + " asked as " + own->getname().Str());
        const auto ask = [&](const xany &value) { (type->*query)(argument<P>(value)...); };
        if (type != own) {
            EXPECT_EQ(text(thrown_by<X>([&] { ask(none); })->getTypeName()), text(type->getname()));
        } else if ((std::is_same_v<P, xany> || ...) && own->isclass()) {
            EXPECT_TRUE(thrown_by<kelXUnknownType>([&] { ask(none); })->getObject() == none);
            auto mismatch = thrown_by<kelXTypeMismatch>([&] { ask(&wrong); });
            EXPECT_EQ(text(mismatch->getTypeName()), text(own->getname()));
            EXPECT_TRUE(mismatch->getObject() == xany(&wrong));
        }
    }
}
template <class X, class... Queries>
void refuse_others(xrtti *own, Queries... queries) {
    (refuse_one<X>(own, queries), ...);
}

TEST(Queries, AreCheckedByKindAndValue) {
    using D = brtti;
    xrtti *shell = xrtti_get_p_demoShell();
    refuse_others<kelXNotEnumType>(shell, &D::getnenumvalues, &D::getenumindex);
    refuse_others<kelXNotStructType>(xrtti_get_p_demoPlace(), &D::getnparents, &D::getnfields, &D::hasfield,
                                     &D::getfield, &D::lookupfield);
    refuse_others<kelXNotArrayType>(xrtti_get_p_demoMatrix(), &D::getnarraydims, &D::getarraytype,
                                    &D::getarrayelem);
    refuse_others<kelXNotSequenceType>(xrtti_get_p_demoPeople(), &D::getseqtype, &D::getnseqelems,
                                       &D::getseqelem, &D::hasindex);
    refuse_others<kelXNotDictionaryType>(xrtti_get_p_demoTexts(), &D::getdicttype, &D::getndictelems,
                                         &D::lookupdict, &D::haskey);
    refuse_others<kelXNotUnionType>(xrtti_get_p_demoShape(), &D::getnunioncases, &D::getdiscrtype,
                                    &D::getcasevalue, &D::getcurcasevalue);
    for (xrtti *type : all_types())
        EXPECT_EQ(type->isclass(), type != get_xrttiint() && type != shell);
    EXPECT_EQ(shell->getenumindex(xany(kel::nil_int)), kel::nil_int);
    EXPECT_EQ(shell->getenumindex(xany()), kel::uninit_int);
    thrown_by<kelXTypeMismatch>([&] { shell->getenumindex(1); });
    thrown_by<kelXInvalidEnumIndex>([&] { shell->getenumvalue(xany(9, shell)); });
}

template <class X>
void refuse_indexes(xrtti *type, int count, const std::function<void(int)> &query) {
    for (int index : {-1, INT_MIN, INT_MIN + 1, count, INT_MAX}) {
        SCOPED_TRACE(index);
        auto refused = thrown_by<X>([&] { query(index); });
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->getIndex(), index);
        EXPECT_EQ(text(refused->getTypeName()), text(type->getname()));
    }
    query(count - 1);
}

TEST(Queries, RefuseIndexesOutsideTheCount) {
    auto *shell = xrtti_get_p_demoShell();
    auto *admin = xrtti_get_p_demoAdmin(), *line = xrtti_get_p_demoXBadLine();
    auto *shape = xrtti_get_p_demoShape();
    auto *matrix = xrtti_get_p_demoMatrix();
    xauto<demoShape> triangle;
    xauto<demoMatrix> numbers;
    xrchandle<demoXBadLine> error = demoXBadLine::Create("f", 1, demoShellNone);
    internal_errors errors;
    refuse_indexes<kelXInvalidEnumIndex>(shell, 3, [&](int k) { shell->getenumvaluebyindex(k); });
    refuse_indexes<kelXInvalidParentIndex>(admin, 1, [&](int k) { admin->getparenttype(k); });
    refuse_indexes<kelXInvalidFieldIndex>(admin, 12, [&](int k) { admin->getfieldname(k); });
    refuse_indexes<kelXInvalidFieldIndex>(admin, 12, [&](int k) { admin->getfieldtype(k); });
    refuse_indexes<kelXInvalidFieldIndex>(line, 3, [&](int k) { line->getfield(k, error.get()); });
    refuse_indexes<kelXInvalidFieldIndex>(line, 3, [&](int k) { error->getfield(k); });
    refuse_indexes<kelXInvalidArrayDimIndex>(matrix, 2, [&](int k) { matrix->getnarrayelems(k); });
    refuse_indexes<kelXInvalidUnionIndex>(shape, 3, [&](int k) { shape->getcasename(k); });
    refuse_indexes<kelXInvalidUnionIndex>(shape, 3, [&](int k) { shape->getcasetype(k); });
    refuse_indexes<kelXInvalidUnionIndex>(shape, 3, [&](int k) {
        if (k != 2) shape->getcasevalue(k, &triangle);
    });
    EXPECT_TRUE(numbers.isarray() && numbers.getnarraydims() == 2 && numbers.getnarrayelems(1) == 3);
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
    EXPECT_EQ(errors.take(), "");
    // The lists themselves report and answer null.
    EXPECT_TRUE(!admin->getfields()->getbyindex(12) && !admin->getparents()->getbyindex(-1));
    EXPECT_EQ(errors.take(), "Invalid field index. (services/xrtti); Invalid index. (services/xrtti)");
    EXPECT_EQ(xrttifields(7, nullptr).getmapsize() + xrttistructs(7, nullptr).getsize(), 0);
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
    xrtti same_enum, unnamed, other;
    same_enum.initialize("t::Record");
    // A place without a parent hides none of the others.
    Kin gap("t::Gap", {nullptr, &record}), orphan("t::Gap", {nullptr});
    for (brtti *kin : std::initializer_list<brtti *>{&base, &derived, &same_name, &same_enum})
        EXPECT_TRUE(derived.iskindof(kin) && (kin == &derived || gap.iskindof(kin)));
    for (brtti *stranger : std::initializer_list<brtti *>{&gap, get_xrttiobject(), nullptr})
        EXPECT_FALSE(derived.iskindof(stranger) || derived.issameas(stranger));
    EXPECT_TRUE(base.issameas(&same_name) && !derived.issameas(&base) && !base.iskindof(&derived));
    EXPECT_FALSE(orphan.iskindof(&base));
    EXPECT_TRUE(unnamed.issameas(&other) && !unnamed.issameas(&base)) << "without a name they are one";
}

// Circles of structs, each with one or both of the two before it as parents: 2^100,000 ways lead down.
TEST(Kinship, CostsNoMoreThanThereAreParents) {
    xrtti stranger;
    stranger.initialize("t::Stranger");
    for (auto [size, parents] : {std::pair(1U, 1U), {2U, 1U}, {50U, 1U}, {100'000U, 1U}, {100'000U, 2U}}) {
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

// Without an answer ------------------------------------------------------------------------------

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
    std::string markers;
    for (const xany &answer : {xany(d.getnenumvalues()), xany(d.getenumindex(value)), xany(d.getnfields()),
                               xany(d.getndictelems(value)), d.lookupfield("n", value),
                               d.lookupdict("k", value), d.getdiscrvalue(value), xany(d.getnarraydims()),
                               xany(d.getnseqelems(value)), d.getarrayelem(nullptr, value),
                               d.getseqelem(0, value), xany(d.getnparents()), xany(d.getnunioncases())})
        markers += answer.isuninit() ? "uninit " : answer.isnil() ? "nil " : answer == 0 ? "0 " : "other ";
    EXPECT_EQ(markers, "uninit uninit uninit uninit uninit uninit uninit nil nil nil nil 0 0 ");
    EXPECT_FALSE(d.hasindex(0, value) || d.haskey("k", value) || d.hasfield("n"));
    EXPECT_FALSE(d.getarraytype() || d.getseqtype() || d.getdicttype() || d.getdiscrtype());
    // Those that were never initialised are empty.
    xrttisequence sequence;
    xrttidictionary dictionary;
    Subject in_sequence(&sequence), in_dictionary(&dictionary);
    EXPECT_EQ(xrttistruct().getnfields() + xrttienum().getnenumvalues() + xrttiunion().getnunioncases() +
                  in_sequence.getnseqelems() + in_dictionary.getndictelems() + xrttiarray().getnarraydims(),
              0);
    EXPECT_FALSE(in_sequence.hasindex(0) || in_dictionary.haskey("k"));
    thrown_by<kelXNoField>([&] { in_dictionary.lookupdict("k"); });
}

// A static object that dies after everything else of this program still finds its descriptor.
struct Late {
    xrchandle<demoPerson> person;
    ~Late() {
        if (!person) return;
        if (!person->hasfield("Name") || !(person->getfield(6) == xany(2))) std::abort();
        xrtti_get_p_demoTexts()->getdicttype();
    }
} late;

TEST(Descriptors, MayBeUsedByStaticObjects) {
    late.person = kel::construct<demoPerson>();
    late.person->Name = "zz";
}

}  // namespace
