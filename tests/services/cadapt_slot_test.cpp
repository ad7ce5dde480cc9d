// The exception slot, the object functions and the value adapters of the C interface.
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <kelstdmt/kelstdmt.h>

#include "services/observing.h"

namespace {

// A text with a hold of the caller's, which is given back; the markers as "(nil)" and "(uninit)".
std::string taken(const char *text) {
    std::string value = XISTEXT_C(text) ? text : text == XTEXT_NIL_C ? "(nil)" : "(uninit)";
    xstrunlock_c(text);
    return value;
}

int lives = 0;

KEL_DECLARE_STRUCT(Counted)
class Counted : public kelXException {
    KEL_CLASS(Counted, kelXException)
public:
    Counted() : kelXException("counted") { ++lives; }
    ~Counted() override { --lives; }
    bool clings = false;  // to life: its first end throws

private:
    void ondelete() override {
        if (std::exchange(clings, false)) kelXNegativeIndex::Throw(-1);
    }
};
KEL_DECLARE_STRUCT(Uncounted)
class Uncounted : public kelXException {
    KEL_CLASS(Uncounted, kelXException)
public:
    Uncounted() : kelXException("uncounted") { ++lives; }
    ~Uncounted() override { --lives; }
};
KEL_DEFINE_STRUCT(Counted, "test::Counted", kel::counted)
KEL_DEFINE_STRUCT(Uncounted, "test::Uncounted", kel::uncounted)

class Untyped : public Uncounted {
    xrtticlass *givertti() override { return nullptr; }
};

TEST(cadapt_slot_test, HoldsOneReferenceOnACountedException) {
    xobject *made = kel::construct<Counted>();
    xsetexc_c(made);
    EXPECT_EQ(xrcgetcount(made), 1) << "nobody held it before";
    EXPECT_EQ(xgetexc_c(), made);
    EXPECT_EQ(xrcgetcount(made), 2);
    xsetexc_c(made);  // what is there already
    EXPECT_EQ(xrcgetcount(made), 2);
    EXPECT_EQ(taken(xgetexctypename_c()) + " " + taken(xgetexcdescription_c()), "test::Counted counted");
    EXPECT_EQ(xrcgetcount(made), 2);
    xsetexc_c(kel::construct<Counted>());
    EXPECT_EQ(xrcgetcount(made), 1);
    EXPECT_EQ(lives, 2);
    xrcrelease_c(made);
    xobject *extracted = xextractexc_c();
    EXPECT_EQ(xrcgetcount(extracted), 1) << "the slot's hold";
    EXPECT_EQ(xextractexc_c(), nullptr);
    EXPECT_EQ(xisexc_c(), 0);
    xdelete_c(extracted);
    EXPECT_EQ(lives, 0);
    EXPECT_EQ(taken(xgetexctypename_c()) + taken(xgetexcdescription_c()), "(nil)(nil)");
    EXPECT_EQ(xgetexc_c(), nullptr);
}

TEST(cadapt_slot_test, OwnsAnUncountedException) {
    xobject *made = kel::construct<Uncounted>();
    xsetexc_c(made);
    EXPECT_EQ(xgetexc_c(), made);
    xrcrelease_c(made);  // no hold to give back
    xsetexc_c(made);
    EXPECT_EQ(taken(xgetexctypename_c()) + " " + taken(xgetexcdescription_c()), "test::Uncounted uncounted");
    EXPECT_EQ(lives, 1);
    xsetexc_c(kel::construct<Uncounted>());
    EXPECT_EQ(lives, 1);
    xobject *extracted = xextractexc_c();
    xcleanupexc_c();
    EXPECT_EQ(lives, 1);
    xsetexc_c(extracted);
    xsetexc_c(nullptr);
    EXPECT_EQ(lives, 0);
    EXPECT_EQ(xisexc_c(), 0);
    xsetexc_c(kel::construct<Uncounted>());
    xsetexc_c(XOBJECT_UNINIT_C);
    EXPECT_EQ(lives + xisexc_c(), 0);
    xobject *untyped = new Untyped;
    xsetexc_c(untyped);
    EXPECT_EQ(xgetexc_c(), untyped);
    xcleanupexc_c();
    EXPECT_EQ(lives, 0) << "without a descriptor it is not counted";
    xrchandle<xobject> sequence(xintsequence::create());
    xsetexc_c(sequence);
    EXPECT_EQ(taken(xgetexctypename_c()), "kellib::XTypeMismatch") << "no exception";
    xcleanupexc_c();
    EXPECT_EQ(xrcgetcount(sequence), 1);
}

TEST(cadapt_slot_test, IsEmptiedThoughAnEndThrows) {
    xobject *const next = kel::construct<Counted>();
    const struct {
        std::function<void()> call;
        xobject *afterwards;
    } cases[] = {{xcleanupexc_c, nullptr},
                 {[] { xsetexc_c(nullptr); }, nullptr},
                 {[] { xrcrelease_c(xintsequence_create()); }, nullptr},
                 {[=] { xsetexc_c(next); }, next}};
    for (auto &[call, afterwards] : cases) {
        auto *made = kel::construct<Counted>();
        made->clings = true;
        xsetexc_c(made);
        call();
        EXPECT_EQ(xextractexc_c(), afterwards);
        xdelete_c(made);
    }
    EXPECT_EQ(xrcgetcount(next), 1);
    xdelete_c(next);
    EXPECT_EQ(lives, 0);
}

// A sequence whose copying ends in one exception or another.
class Throwing : public xintsequence {
public:
    std::function<void()> fail;
    bool clings = false;

protected:
    void OnCopy(void *, const void *, unsigned) override { fail(); }

private:
    void ondelete() override {
        if (std::exchange(clings, false)) kelXNegativeIndex::Throw(-1);
    }
};

TEST(cadapt_slot_test, ReceivesWhateverIsThrown) {
    xauto<Throwing> sequence;
    const struct {
        std::function<void()> fail;
        std::string type, text;
    } cases[] = {
        {[] { xthrow(kel::construct<Counted>()); }, "test::Counted", ""},
        {[] { xthrow(kel::construct<Uncounted>()); }, "test::Uncounted", ""},
        {[] { throw static_cast<xthrowable *>(kel::construct<Counted>()); }, "test::Counted", ""},
        {[] { throw kel::construct<Uncounted>(); }, "test::Uncounted", ""},
        {[] { xportXTimeout::Throw("read"); }, "keljava::XTimeout", ""},
        {[] { throw std::runtime_error("of its own"); }, "kellib::XNativeException", "of its own"},
        {[] { throw std::bad_alloc(); }, "kellib::XNativeException", "std::bad_alloc"},
        {[] { throwXIllegalAccess(); }, "kellib::XNativeException", ""},
        {[] { throw 42; }, "kellib::XNativeException", "An exception of an unknown type."},
        {[] { throw static_cast<xthrowable *>(nullptr); }, "kellib::XNativeException", ""},
    };
    for (auto &[fail, type, text] : cases) {
        sequence.fail = fail;
        xintsequence_insert(&sequence, 0, 1);
        EXPECT_EQ(taken(xgetexctypename_c()), type);
        if (!text.empty()) {
            xobject *error = xgetexc_c();
            EXPECT_STREQ(kelXNativeException::cast(error)->getStringRep(), text.c_str());
            xrcrelease_c(error);
        }
        EXPECT_EQ(xintsequence_getarraysize(&sequence), 0) << "nothing was inserted";
        EXPECT_EQ(xisexc_c(), 0) << "the next call empties the slot";
        EXPECT_EQ(xrcgetcount(&sequence), 0);
        EXPECT_EQ(lives, 0);
    }
    // The call's hold becomes the last one.
    auto *given_up = kel::construct<Throwing>();
    xrcattach(given_up);
    given_up->fail = [=] { xrcrelease(given_up); };
    given_up->clings = true;
    xintsequence_insert(given_up, 0, 1);
    EXPECT_EQ(taken(xgetexctypename_c()), "kellib::XNegativeIndex");
    xdelete_c(given_up);
    xcleanupexc_c();
}

TEST(cadapt_slot_test, IsSharedByThreadsThatFail) {
    const auto work = [] {
        xobject *own = xstringsequence_create();
        for (int i = 0; i < 2000; ++i) {
            EXPECT_EQ(xstringsequence_get(own, i % 2 - 1), XTEXT_UNINIT_C);
            taken(xgetexctypename_c());
            if (xobject *seen = xgetexc_c()) {
                EXPECT_EQ(xisobjkindof_c(seen, kelXException::getclassrtti()), 1);
                xrcrelease_c(seen);
            }
            if (i % 3 == 0) xdelete_c(xextractexc_c());
        }
        xrcrelease_c(own);
    };
    std::thread other(work);
    work();
    other.join();
    xcleanupexc_c();
}

TEST(cadapt_objects_test, AnswerForNilAndUninitWithoutFailing) {
    xrtticlass *type = xintsequence_getclassrtti_c();
    std::ostringstream printed;
    std::streambuf *const console = std::cout.rdbuf(printed.rdbuf());
    for (xobject *none : {static_cast<xobject *>(nullptr), XOBJECT_UNINIT_C}) {
        xrcattach_c(none);
        xrcrelease_c(none);
        xdelete_c(none);
        EXPECT_EQ(xgettypename_c(none), XTEXT_NIL_C);
        EXPECT_EQ(xgetrtti_c(none), nullptr);
        EXPECT_EQ(xisobjsameas_c(none, type), none == nullptr);
        EXPECT_EQ(xisobjkindof_c(none, type), none == nullptr);
        EXPECT_EQ(xgetndictelems_c(none), 0);
        EXPECT_EQ(taken(xprinttext_c(none)), none ? "uninit" : "nil");
        EXPECT_FALSE(xisrcobj_c(none));
        xprint_c(none);
    }
    std::cout.rdbuf(console);
    EXPECT_EQ(printed.str(), "niluninit");
    EXPECT_EQ(xisexc_c(), 0);
}

TEST(cadapt_objects_test, CountTypeAndPrint) {
    xobject *error = kelXNegativeIndex::Create(-3).detach();
    xrcattach_c(error);
    EXPECT_EQ(xrcgetcount(error), 2);
    EXPECT_EQ(taken(xgettypename_c(error)), "kellib::XNegativeIndex");
    EXPECT_EQ(xisobjsameas_c(error, kelXException::getclassrtti()), 0);
    EXPECT_EQ(xisobjkindof_c(error, kelXException::getclassrtti()), 1);
    EXPECT_EQ(xisobjkindof_c(error, nullptr), 0);
    EXPECT_EQ(xgetrtti_c(error), kelXNegativeIndex::getclassrtti());
    const std::string expected = kel::printed(error).str();
    EXPECT_EQ(taken(xprinttext_c(error)), expected);
    testing::internal::CaptureStdout();
    xprint_c(error);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
    EXPECT_EQ(xgetndictelems_c(error), XINT_UNINIT_C);
    EXPECT_EQ(taken(xgetexctypename_c()), "kellib::XNotDictionaryType");
    EXPECT_EQ(taken(xgettypename_c(error)), "kellib::XNegativeIndex");
    EXPECT_EQ(xisexc_c(), 1) << "an object function leaves the slot alone";
    xcleanupexc_c();
    EXPECT_EQ(xrcgetcount(error), 2);
    xdelete_c(error);
    xrcrelease_c(error);
    // Objects that are not counted: an owner's, and one that is deleted.
    xauto<Uncounted> member;
    xrcattach_c(&member);
    xrcrelease_c(&member);
    xdelete_c(&member);
    EXPECT_EQ(taken(xgettypename_c(&member)), "test::Uncounted");
    EXPECT_EQ(lives, 1);
    xdelete_c(kel::construct<Uncounted>());
    EXPECT_EQ(lives, 1);
    // One that nobody holds survives a question.
    xobject *fresh = kel::construct<Counted>();
    taken(xgettypename_c(fresh));
    EXPECT_EQ(xrcgetcount(fresh), 0);
    EXPECT_TRUE(xisrcobj_c(fresh));
    xdelete_c(fresh);
    EXPECT_EQ(lives, 1);
}

// No descriptor: every question fails.
class Unknown : public xobject {
    xrtticlass *givertti() override { return nullptr; }
};

TEST(cadapt_objects_test, ParkWhatTheyThrow) {
    Unknown unknown;
    EXPECT_EQ(xgettypename_c(&unknown), XTEXT_UNINIT_C);
    EXPECT_EQ(taken(xgetexctypename_c()), "kellib::XUnknownType");
    EXPECT_EQ(xisobjsameas_c(&unknown, nullptr), XBOOL_UNINIT_C);
    EXPECT_EQ(xgetrtti_c(&unknown), nullptr);
    xcleanupexc_c();
    xintsequence_set(&unknown, 0, 0);
    EXPECT_EQ(taken(xgetexctypename_c()), "kellib::XUnknownType");
    xcleanupexc_c();
}

// Values -------------------------------------------------------------------------------------------

enum Colour { red, green };
KEL_DECLARE_ENUM(Colour)
KEL_DEFINE_ENUM(Colour, "test::Colour", "red", "green")

class Foreign : public brtti {
    xstring GiveTypeName() override { return "foreign"; }
    void OnRoutePrint(ioStream *, xany, printData *) override {}
    brtti *Clone() override { return new Foreign; }
};

TEST(cadapt_value_test, CrossesAndComesBack) {
    xrchandle<xobject> object(xintsequence::create());
    int data = 0;
    brtti *colours = kel_descriptor(red);
    const xany values[] = {xany(),           xany(nullptr),      xany(-5),
                           xany(true),       xany(0.1),          xany("text"),
                           xany(1, colours), xany(object.get()), xany(&data, new Foreign)};
    for (int kind = 0; kind < 9; ++kind) {
        SCOPED_TRACE(kind);
        const xany &value = values[kind];
        const __xany_c record = xcadapt_cxx2c(value);
        ASSERT_EQ(record.kind, kind);
        {
            const xany back = xcadapt_c2cxx(record);
            EXPECT_TRUE(back == value);
            EXPECT_EQ(xrcgetcount(object), kind == XANY_OBJECT_C ? 3 : 2);
        }
        const auto &payload = record.payload;
        EXPECT_TRUE(kind != XANY_INT_C || payload.integer == -5);
        if (kind == XANY_STRING_C) {
            EXPECT_EQ(payload.text, static_cast<xrstring>(value));
            EXPECT_EQ(kel::detail::holders(payload.text), 2U);
            xstrunlock_c(payload.text);
        }
        EXPECT_TRUE(kind != XANY_ENUM_C ||
                    (payload.enumeration.value == 1 && payload.enumeration.rtti == colours));
        EXPECT_TRUE(kind != XANY_EXTERN_C ||
                    (payload.foreign.value == &data && payload.foreign.rtti == value.getrtti()));
    }
}

TEST(cadapt_value_test, MarkersInARecordAreUninitAndNil) {
    Foreign borrowed;
    brtti *colours = kel_descriptor(red);
    const __xany_c uninit[] = {{XANY_INT_C, 0, {.integer = XINT_UNINIT_C}},
                               {XANY_BOOL_C, 0, {.boolean = 0x81}},
                               {XANY_REAL_C, 0, {.real = 9e125}},
                               {XANY_STRING_C, 0, {.text = XTEXT_UNINIT_C}},
                               {XANY_ENUM_C, 0, {.enumeration = {XINT_UNINIT_C, colours}}},
                               {XANY_OBJECT_C, 0, {.object = XOBJECT_UNINIT_C}},
                               {XANY_EXTERN_C, 0, {.foreign = {XOBJECT_UNINIT_C, &borrowed}}}};
    const __xany_c nil[] = {{XANY_INT_C, 0, {.integer = XINT_NIL_C}},
                            {XANY_BOOL_C, 0, {.boolean = 0x80}},
                            {XANY_REAL_C, 0, {.real = 1.0000000000000001e126}},
                            {XANY_STRING_C, 0, {.text = XTEXT_NIL_C}},
                            {XANY_STRING_C, 0, {.text = nullptr}},
                            {XANY_ENUM_C, 0, {.enumeration = {2, colours}}},
                            {XANY_OBJECT_C, 0, {.object = nullptr}},
                            {XANY_EXTERN_C, 0, {.foreign = {nullptr, &borrowed}}}};
    for (const __xany_c &record : uninit)
        EXPECT_TRUE(xcadapt_c2cxx(record).isuninit()) << record.kind;
    for (const __xany_c &record : nil)
        EXPECT_TRUE(xcadapt_c2cxx(record).isnil()) << record.kind;
    EXPECT_TRUE(xcadapt_c2cxx({XANY_STRING_C, 0, {.text = "no buffer"}}) == "no buffer");
}

TEST(cadapt_value_test, ReportsKindsThatThereAreNot) {
    internal_errors reports;
    for (int kind : {9, -1, XINT_NIL_C}) {
        xany value;
        std::memcpy(static_cast<void *>(&value), &kind, sizeof kind);  // the kind stands first
        EXPECT_EQ(xcadapt_cxx2c(value).kind, 0);
        EXPECT_EQ(reports.take(), "Should not be here: xany of unknown kind. (services/cadapt)");
        __xany_c record{};
        record.kind = kind;
        EXPECT_TRUE(xcadapt_c2cxx(record).isuninit());
        EXPECT_EQ(reports.take(), "Should not be here: xany_c of unknown kind. (services/cadapt)");
    }
}

// The containers behind the families.
template <class T>
void describes(const char *name, brtti *type, const xany &uninit, typename T::value_type first,
               typename T::value_type second) {
    SCOPED_TRACE(name);
    xrchandle<T> held(T::create());
    EXPECT_EQ(text(held->gettypename()), name);
    EXPECT_TRUE(held->isrefcountable());
    if constexpr (requires { held->append(first); }) {
        held->append(first);
        held->append(second);
        EXPECT_EQ(held->getrtti()->getseqtype(), type);
        EXPECT_TRUE(held->getseqelem(0) == uninit && held->getseqelem(1).isnil());
    } else {
        held->set("first", first);
        held->set("second", second);
        EXPECT_EQ(held->getrtti()->getdicttype(), type);
        EXPECT_TRUE(held->lookupdict("first") == uninit && held->lookupdict("second").isnil());
    }
}

TEST(cadapt_containers_test, DescribeThemselves) {
    const xany uninit, nil(nullptr);
    describes<xintsequence>("intseq", get_xrttiint(), uninit, XINT_UNINIT_C, XINT_NIL_C);
    describes<xboolsequence>("boolseq", get_xrttibool(), uninit, 0x81, 0x80);
    describes<xrealsequence>("realseq", get_xrttireal(), uninit, 9e125, XREAL_NIL_C);
    describes<xstringsequence>("stringseq", get_xrttistring(), nil, xstring(), xstring());
    describes<xintdictionary>("xintdictionary", get_xrttiint(), uninit, XINT_UNINIT_C, XINT_NIL_C);
    describes<xbooldictionary>("xbooldictionary", get_xrttibool(), uninit, 0x81, 0x80);
    describes<xrealdictionary>("xrealdictionary", get_xrttireal(), uninit, 9e125, XREAL_NIL_C);
    describes<xstringdictionary>("xstringdictionary", get_xrttistring(), nil, xstring(), xstring());
}

}  // namespace
