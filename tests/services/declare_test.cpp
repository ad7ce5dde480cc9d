// Types declared from outside the library: one of each kind, and what the declarations make of them.
#include <array>
#include <optional>

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
    static int getHowMany() { return 7; }
};

KEL_DECLARE_STRUCT(demoAdmin)
class demoAdmin : public demoPerson {
    KEL_CLASS(demoAdmin, demoPerson)
public:
    demoShell Shell = demoShellBash;
    demoLevel Level = demoLevel::high;
    xany Extra;
    xbool Flag = kel::nil_bool;
    const char *Motto = "none";

    xany getSecret() { kelXNoField::Throw("Secret", this); }
};
int initial_of(demoAdmin &admin);

KEL_DECLARE_STRUCT(demoXBadLine)
class demoXBadLine : public kelXException {
    KEL_EXCEPTION(demoXBadLine, kelXException, "Malformed line.", (xstring, File), (int, Line),
                  (demoShell, Shell))
};

KEL_SEQUENCE(demoPeople, xrchandle<demoPerson>)
KEL_SEQUENCE(demoNumbers, int)
KEL_SEQUENCE(demoMaybes, std::optional<int>)
KEL_DICTIONARY(demoPeopleByName, xrchandle<demoPerson>)
KEL_DICTIONARY(demoTexts, xstring)

KEL_DECLARE_UNION(demoShape)
class demoShape : public xobject {
    KEL_CLASS(demoShape, xobject)
public:
    int Kind = 0;
    double getRadius() {
        if (Kind != 0) kelXNoField::Throw("Radius", this);
        return 2.5;
    }
    int Side = 4;
};

KEL_DECLARE_ARRAY(demoMatrix)
class demoMatrix : public xobject {
    KEL_CLASS(demoMatrix, xobject)
public:
    int At(int row, int column) const { return cells[static_cast<std::size_t>(row * 3 + column)]; }
    std::array<int, 6> cells{0, 1, 2, 10, 11, 12};
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
                  kel::field<&demoPerson::getLength>("Length"),
                  kel::field<&demoPerson::getHowMany>("HowMany"))
KEL_DEFINE_STRUCT(demoAdmin, "demo::Admin", kel::counted, kel::field<&demoAdmin::Shell>("Shell"),
                  kel::field<&demoAdmin::Extra>("Extra"), kel::field<&demoAdmin::Flag>("Flag"),
                  kel::field<&demoAdmin::Motto>("Motto"),
                  kel::optional_field<&demoAdmin::getSecret>("Secret"), kel::field<&initial_of>("Initial"),
                  kel::field<&demoAdmin::Level>("Level"))
KEL_DEFINE_EXCEPTION(demoXBadLine, "demo::XBadLine", kel::counted)
KEL_DEFINE_SEQUENCE(demoPeople, "demo::People", kel::counted)
KEL_DEFINE_SEQUENCE(demoNumbers, "demo::Numbers", kel::uncounted)
KEL_DEFINE_SEQUENCE(demoMaybes, "demo::Maybes", kel::counted, kel::optional_elements)
KEL_DEFINE_DICTIONARY(demoPeopleByName, "demo::PeopleByName", kel::counted)
KEL_DEFINE_DICTIONARY(demoTexts, "demo::Texts", kel::counted, kel::optional_elements)
KEL_DEFINE_UNION(demoShape, "demo::Shape", kel::counted, kel::field<&demoShape::Kind>("Kind"),
                 kel::field<&demoShape::getRadius>("Radius"), kel::field<&demoShape::Side>("Side"))
KEL_DEFINE_ARRAY(demoMatrix, "demo::Matrix", kel::counted, kel::elements<&demoMatrix::At, 2, 3>())
int initial_of(demoAdmin &admin) {
    return admin.Name.IsNull() ? 0 : admin.Name.Str()[0];
}

namespace {

TEST(Structs, ReadEveryKindOfField) {
    xrchandle<demoAdmin> admin(kel::construct<demoAdmin>());
    brtti *person = xrtti_get_p_demoPerson(), *type = admin->getrtti();
    EXPECT_TRUE(type == xrtti_get_p_demoAdmin() && type == demoAdmin::getclassrtti());
    EXPECT_TRUE(type->getnparents() == 1 && type->getparenttype(0) == person && person->getnparents() == 0);
    auto read = [&](const char *name) { return person->lookupfield(name, admin.get()); };
    EXPECT_TRUE(read("Name").isnil());
    admin->Name = "ada";
    admin->Age = 36;
    admin->Friend = kel::construct<demoPerson>();
    EXPECT_EQ(static_cast<xrstring>(read("Name")), admin->Name.Str());
    EXPECT_TRUE(read("Age") == xany(36) && read("Nickname").isnil() && read("Active") == xany(true));
    EXPECT_TRUE(read("Friend") == xany(admin->Friend) && read("Home") == xany(&admin->Home));
    EXPECT_TRUE(read("Length") == xany(3) && read("HowMany") == xany(7));
    EXPECT_EQ(xrcgetcount(admin->Friend), 1);
    EXPECT_EQ(xrcgetcount(&admin->Home), 0);

    EXPECT_EQ(type->getnfields(), 7) << "without those of the parent";
    EXPECT_TRUE(admin->lookupfield("Shell") == xany(1, xrtti_get_p_demoShell()));
    EXPECT_EQ(text(xrtti_get_p_demoLevel()->getenumvalue(admin->lookupfield("Level"))), "high");
    EXPECT_TRUE(admin->lookupfield("Extra").isuninit() && admin->lookupfield("Flag").isnil());
    EXPECT_TRUE(admin->lookupfield("Motto") == "none" && admin->lookupfield("Initial") == xany(int{'a'}));
    EXPECT_TRUE(admin->getfield(4).isuninit());
    thrown_by<kelXNoField>([&] { admin->lookupfield("Secret"); });
    admin->Shell = static_cast<demoShell>(3);
    EXPECT_TRUE(admin->lookupfield("Shell").isnil());

    auto *fields = xrtti_get_p_demoPerson()->getfields();
    EXPECT_TRUE(!fields->getbyindex(0)->getisoptional() && fields->getbyindex(1)->getisoptional());
    EXPECT_EQ(fields->getbyindex(1)->gettype(), get_xrttiint());
    EXPECT_EQ(fields->getbyindex(5)->gettype(), xrtti_get_p_demoPlace());
    // An absent object is no object to read from.
    thrown_by<kelXNotInitialized>([&] { fields->getbyindex(0)->get(nullptr); });
    thrown_by<kelXNotInitialized>([&] { fields->getbyindex(0)->get(kel::uninit_object()); });
    thrown_by<kelXTypeMismatch>([&] { fields->getbyindex(0)->get(&admin->Home); });
    EXPECT_EQ(xrcgetcount(admin), 1);
}

TEST(Structs, ExceptionsOfOnesOwnThrowWithTheirFields) {
    auto thrown = thrown_by<demoXBadLine>([] { demoXBadLine::Throw("f", 3, demoShellOther); });
    EXPECT_EQ(text(thrown->getDescription()), "Malformed line.");
    EXPECT_TRUE(thrown->lookupfield("File") == "f" && thrown->lookupfield("Line") == xany(3));
    EXPECT_EQ(text(xrtti_get_p_demoShell()->getenumvalue(thrown->lookupfield("Shell"))), "demoShellOther");
}

// The other kinds --------------------------------------------------------------------------------

TEST(Kinds, SequencesReadTheirElements) {
    xrchandle<demoPeople> people(demoPeople::create());
    for (const char *name : {"a", "b", "c"}) {
        people->append(kel::construct<demoPerson>());
        people->get(people->getarraysize() - 1)->Name = name;
    }
    xobject *object = people;
    auto *type = xrtti_get_p_demoPeople();
    EXPECT_TRUE(object->getnseqelems() == 3 && type->getseqtype() == xrtti_get_p_demoPerson());
    EXPECT_TRUE(static_cast<xobject *>(object->getseqelem(2))->getfield(0) == "c");
    EXPECT_TRUE(object->hasindex(2) && !object->hasindex(3));
    thrown_by<kelXNoField>([&] { object->getseqelem(3); });
    thrown_by<kelXNegativeIndex>([&] { type->get(-1, object); });
    EXPECT_EQ(thrown_by<kelXInvalidSeqIndex>([&] { type->get(3, object); })->getIndex(), 3);
    thrown_by<kelXTypeMismatch>([&] { type->get(0, people->get(0)); });

    demoNumbers numbers;
    numbers.append(5);
    numbers.append(kel::nil_int);
    EXPECT_TRUE(numbers.getseqelem(0) == xany(5) && numbers.getseqelem(1).isnil());
    xrchandle<demoMaybes> maybes(demoMaybes::create());
    maybes->append(std::nullopt);
    maybes->append(4);
    EXPECT_TRUE(maybes->getseqelem(0).isnil() && maybes->getseqelem(1) == xany(4));
    EXPECT_TRUE(xrtti_get_p_demoMaybes()->getiselemoptional());
    EXPECT_FALSE(xrtti_get_p_demoNumbers()->getiselemoptional());
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
    thrown_by<kelXNoField>([&] { object->lookupdict("eve"); });
    thrown_by<kelXNegativeIndex>([&] { object->getdictkey(-1, key); });
    thrown_by<kelXInvalidDictIndex>([&] { object->getdictkey(slots, key); });
    EXPECT_FALSE(xrtti_get_p_demoPeopleByName()->getkey(slots, object, key));
    EXPECT_EQ(xrtti_get_p_demoTexts()->getdicttype(), get_xrttistring());
    EXPECT_TRUE(xrtti_get_p_demoTexts()->getiselemoptional());
}

TEST(Kinds, UnionsAndArrays) {
    xrchandle<demoShape> shape(kel::construct<demoShape>());
    brtti *type = shape->getrtti();
    EXPECT_EQ(text(type->getcasename(0)), "Radius");
    EXPECT_TRUE(type->getcurcasevalue(shape.get()) == xany(2.5));
    shape->Kind = 1;
    EXPECT_TRUE(type->getcurcasevalue(shape.get()) == xany(4));
    EXPECT_TRUE(type->getcasevalue(0, shape.get()).isuninit());

    xrchandle<demoMatrix> matrix(kel::construct<demoMatrix>());
    EXPECT_TRUE(matrix->getnarraydims() == 2 && matrix->getnarrayelems(1) == 3);
    int at[] = {1, 2}, outside[] = {0, 3};
    EXPECT_TRUE(matrix->getarrayelem(at) == xany(12));
    EXPECT_EQ(thrown_by<kelXInvalidArrayIndex>([&] { matrix->getarrayelem(outside); })->getDimension(), 1);
}

// The end of the process ---------------------------------------------------------------------------

// A static object that dies after everything else of this program still finds its descriptor.
struct Late {
    xrchandle<demoPerson> person;
    ~Late() {
        if (!person) return;
        if (!person->hasfield("Name") || !(person->getfield(6) == xany(2))) std::abort();
        person->getrtti()->getfieldtype(4)->gettypename();
        xrtti_get_p_demoTexts()->getdicttype();
    }
} late;

TEST(End, StaticObjectsMayUseDescriptors) {
    late.person = kel::construct<demoPerson>();
    late.person->Name = "zz";
}

}  // namespace
