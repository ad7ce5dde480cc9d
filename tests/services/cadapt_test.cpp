// The C interface: the exception slot, the object functions, values, and calls while memory runs out. What
// its containers do, fuzz/c_interface_fuzz.cpp holds against models.
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>

#include <kelstdmt/kelstdmt.h>

#include "failing_memory.h"
#include "observing.h"
#include "subjects.h"

namespace {

// A text with a hold of the caller's, which is given back; the markers as "(nil)" and "(uninit)".
std::string taken(const char *text) {
    std::string value = XISTEXT_C(text) ? text : text == XTEXT_NIL_C ? "(nil)" : "(uninit)";
    xstrunlock_c(text);
    return value;
}
// The type of the exception in the slot, which is emptied.
std::string emptied() {
    const std::string type = taken(xgetexctypename_c());
    xcleanupexc_c();
    return type;
}

// Exceptions of a class that is counted and of one that is not, and one without a descriptor.
int lives = 0;

KEL_DECLARE_STRUCT(Held)
class Held : public kelXException {
    KEL_CLASS(Held, kelXException)
public:
    Held() : kelXException("held") { ++lives; }
    ~Held() override { --lives; }
    bool clings = false;  // to life: its first end throws

private:
    void ondelete() override {
        if (std::exchange(clings, false)) kelXNegativeIndex::Throw(-1);
    }
};
KEL_DECLARE_STRUCT(Loose)
class Loose : public kelXException {
    KEL_CLASS(Loose, kelXException)
public:
    Loose() : kelXException("loose") { ++lives; }
    ~Loose() override { --lives; }
};
KEL_DEFINE_STRUCT(Held, "test::Held", kel::counted)
KEL_DEFINE_STRUCT(Loose, "test::Loose", kel::uncounted)
class Untyped : public Loose {
    xrtticlass *givertti() override { return nullptr; }
};

// The slot -----------------------------------------------------------------------------------------

// Each kind of exception, kept by the caller too or not, meets every way to empty the slot or to fill it
// anew.
TEST(Slot, HoldsOneReferenceOrOwns) {
    xobject *const ours = kel::construct<Held>();
    xrcattach_c(ours);
    const std::function<xobject *()> kinds[] = {[=] { return ours; }, [] { return kel::construct<Held>(); },
                                                [] { return kel::construct<Loose>(); },
                                                [] { return new Untyped; }};
    const std::function<void(xobject *)> ends[] = {[](xobject *) { xcleanupexc_c(); },
                                                   [](xobject *) { xsetexc_c(nullptr); },
                                                   [](xobject *) { xsetexc_c(XOBJECT_UNINIT_C); },
                                                   [=](xobject *) { xsetexc_c(ours); },
                                                   [](xobject *) { xsetexc_c(kel::construct<Loose>()); },
                                                   [](xobject *in) {
                                                       EXPECT_EQ(xextractexc_c(), in);
                                                       xrcgetcount(in) > 0 ? xrcrelease_c(in) : xdelete(in);
                                                   }};
    for (const auto &kind : kinds)
        for (const auto &end : ends) {
            SCOPED_TRACE(testing::Message() << "kind " << &kind - kinds << ", end " << &end - ends);
            xobject *const in = kind();
            xsetexc_c(in);
            xsetexc_c(in);
            EXPECT_TRUE(xisexc_c() && lives == 1 + (in != ours) && xrcgetcount(ours) == 1 + (in == ours));
            if (in->getrtti()) {
                const bool counted = xrcgetcount(in) > 0;
                EXPECT_EQ(taken(xgetexctypename_c()), counted ? "test::Held" : "test::Loose");
                EXPECT_EQ(taken(xgetexcdescription_c()), counted ? "held" : "loose");
                EXPECT_EQ(xgetexc_c(), in);
                EXPECT_EQ(xrcgetcount(in), counted ? 2 + (in == ours) : -1) << "and one for the caller";
                xrcrelease_c(in);
            }
            end(in);
            xobject *const now = xextractexc_c();
            EXPECT_EQ(now != nullptr, &end - ends == 3 || &end - ends == 4);
            EXPECT_EQ(lives, 1 + (now && now != ours));
            now == ours ? xrcrelease_c(now) : xdelete_c(now);
            EXPECT_TRUE(xisexc_c() == 0 && lives == 1 && xrcgetcount(ours) == 1);
        }
    EXPECT_EQ(taken(xgetexctypename_c()) + taken(xgetexcdescription_c()), "(nil)(nil)");
    xdelete_c(ours);
    xrchandle<xobject> sequence(xintsequence::create());
    xsetexc_c(sequence);
    EXPECT_EQ(emptied(), "kellib::XTypeMismatch") << "no exception";
    EXPECT_EQ(xrcgetcount(sequence), 1);
}

TEST(Slot, IsEmptiedThoughAnEndThrows) {
    xobject *const next = kel::construct<Held>();
    const std::pair<std::function<void()>, xobject *> calls[] = {
        {xcleanupexc_c, nullptr},
        {[] { xsetexc_c(nullptr); }, nullptr},
        {[] { xrcrelease_c(xintsequence_create()); }, nullptr},
        {[=] { xsetexc_c(next); }, next}};
    for (auto &[call, afterwards] : calls) {
        auto *made = kel::construct<Held>();
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

TEST(Slot, ReceivesWhateverIsThrown) {
    const std::string native = "kellib::XNativeException";
    const struct {
        std::function<void()> fail;
        std::string type, text;
    } cases[] = {
        {[] { xthrow(kel::construct<Held>()); }, "test::Held", "held"},
        {[] { xthrow(kel::construct<Loose>()); }, "test::Loose", "loose"},
        {[] { throw static_cast<xthrowable *>(kel::construct<Held>()); }, "test::Held", "held"},
        {[] { throw kel::construct<Loose>(); }, "test::Loose", "loose"},
        {[] { throw std::runtime_error("of its own"); }, native, "of its own"},
        {[] { throw std::bad_alloc(); }, native, "std::bad_alloc"},
        {[] { throwXIllegalAccess(); }, native, ""},
        {[] { throw 42; }, native, "An exception of an unknown type."},
        {[] { throw static_cast<xthrowable *>(nullptr); }, native, "An exception without an object."},
    };
    xauto<Throwing> sequence;
    for (auto &[fail, type, text] : cases) {
        sequence.fail = fail;
        xintsequence_insert(&sequence, 0, 1);
        const std::string told = taken(xgetexcdescription_c());
        EXPECT_TRUE(told == text || text.empty()) << told;
        EXPECT_EQ(taken(xgetexctypename_c()), type);
        EXPECT_EQ(xintsequence_getarraysize(&sequence), 0) << "nothing was inserted";
        EXPECT_EQ(xisexc_c() + lives + xrcgetcount(&sequence), 0) << "the next call empties the slot";
    }
    // The call's hold becomes the last one.
    auto *given_up = kel::construct<Throwing>();
    xrcattach(given_up);
    given_up->fail = [=] { xrcrelease(given_up); };
    given_up->clings = true;
    xintsequence_insert(given_up, 0, 1);
    EXPECT_EQ(emptied(), "kellib::XNegativeIndex");
    xdelete_c(given_up);
}

TEST(Slot, IsSharedByThreadsThatFail) {
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

// Objects ------------------------------------------------------------------------------------------

TEST(Objects, AnswerForNilAndUninitWithoutFailing) {
    xrtticlass *type = xintsequence_getclassrtti_c();
    testing::internal::CaptureStdout();
    for (xobject *none : {static_cast<xobject *>(nullptr), XOBJECT_UNINIT_C}) {
        xrcattach_c(none);
        xrcrelease_c(none);
        xdelete_c(none);
        EXPECT_EQ(xgettypename_c(none), XTEXT_NIL_C);
        EXPECT_EQ(xgetrtti_c(none), nullptr);
        EXPECT_EQ(xisobjsameas_c(none, type), none == nullptr);
        EXPECT_EQ(xisobjkindof_c(none, type), none == nullptr);
        EXPECT_EQ(taken(xprinttext_c(none)), none ? "uninit" : "nil");
        EXPECT_EQ(xgetndictelems_c(none) + xisrcobj_c(none), 0);
        xprint_c(none);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "niluninit");
    EXPECT_EQ(xisexc_c(), 0);
}

TEST(Objects, CountTypePrintAndParkWhatTheyThrow) {
    xobject *error = kelXNegativeIndex::Create(-3).detach();
    xrcattach_c(error);
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
    EXPECT_EQ(taken(xgettypename_c(error)), "kellib::XNegativeIndex") << "the slot is left alone";
    EXPECT_EQ(emptied(), "kellib::XNotDictionaryType");
    EXPECT_EQ(xrcgetcount(error), 2);
    xdelete_c(error);
    xrcrelease_c(error);
    // Objects that are not counted, and one that nobody holds and that survives a question.
    xauto<Loose> member;
    xrcattach_c(&member);
    xrcrelease_c(&member);
    xdelete_c(&member);
    EXPECT_EQ(taken(xgettypename_c(&member)), "test::Loose");
    xobject *fresh = kel::construct<Held>();
    taken(xgettypename_c(fresh));
    EXPECT_TRUE(xrcgetcount(fresh) == 0 && xisrcobj_c(fresh));
    xdelete_c(fresh);
    EXPECT_EQ(lives, 1);
    Untyped unknown;
    EXPECT_EQ(xgettypename_c(&unknown), XTEXT_UNINIT_C);
    EXPECT_EQ(emptied(), "kellib::XUnknownType");
    EXPECT_EQ(xisobjsameas_c(&unknown, nullptr), XBOOL_UNINIT_C);
    EXPECT_EQ(xgetrtti_c(&unknown), nullptr);
    xintsequence_set(&unknown, 0, 0);
    EXPECT_EQ(emptied(), "kellib::XUnknownType");
}

// Values -------------------------------------------------------------------------------------------

TEST(Records, CrossAndComeBack) {
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
        EXPECT_TRUE(xcadapt_c2cxx(record) == value);
        EXPECT_EQ(xrcgetcount(object), 2);
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

// The markers are what C callers have compiled in, to the bit.
TEST(Records, WithMarkersAreUninitAndNil) {
    Foreign borrowed;
    brtti *colours = kel_descriptor(red);
    const __xany_c uninit[] = {{XANY_INT_C, 0, {.integer = -2147483647}},
                               {XANY_BOOL_C, 0, {.boolean = 0x81}},
                               {XANY_REAL_C, 0, {.real = 9e125}},
                               {XANY_STRING_C, 0, {.text = XTEXT_UNINIT_C}},
                               {XANY_ENUM_C, 0, {.enumeration = {XINT_UNINIT_C, colours}}},
                               {XANY_OBJECT_C, 0, {.object = XOBJECT_UNINIT_C}},
                               {XANY_EXTERN_C, 0, {.foreign = {XOBJECT_UNINIT_C, &borrowed}}}};
    const __xany_c nil[] = {{XANY_INT_C, 0, {.integer = -2147483647 - 1}},
                            {XANY_BOOL_C, 0, {.boolean = 0x80}},
                            {XANY_REAL_C, 0, {.real = std::bit_cast<double>(0x5A17A2ECC414A040U)}},
                            {XANY_STRING_C, 0, {.text = XTEXT_NIL_C}},
                            {XANY_STRING_C, 0, {.text = nullptr}},
                            {XANY_ENUM_C, 0, {.enumeration = {3, colours}}},
                            {XANY_OBJECT_C, 0, {.object = nullptr}},
                            {XANY_EXTERN_C, 0, {.foreign = {nullptr, &borrowed}}}};
    for (const __xany_c &record : uninit)
        EXPECT_TRUE(xcadapt_c2cxx(record).isuninit()) << record.kind;
    for (const __xany_c &record : nil)
        EXPECT_TRUE(xcadapt_c2cxx(record).isnil()) << record.kind;
    EXPECT_TRUE(xcadapt_c2cxx({XANY_STRING_C, 0, {.text = "no buffer"}}) == "no buffer");
}

// The containers behind the families.
template <class T>
std::string described(typename T::value_type nil) {
    xrchandle<T> held(T::create());
    brtti *type;
    if constexpr (requires { held->append(nil); }) {
        held->append(nil);
        type = held->getrtti()->getseqtype();
        EXPECT_TRUE(held->getseqelem(0).isnil());
    } else {
        held->set("nil", nil);
        type = held->getrtti()->getdicttype();
        EXPECT_TRUE(held->lookupdict("nil").isnil());
    }
    EXPECT_TRUE(held->isrefcountable());
    return text(held->gettypename()) + " of " + text(type->gettypename());
}

TEST(Containers, DescribeThemselves) {
    EXPECT_EQ(described<xintsequence>(XINT_NIL_C), "intseq of int");
    EXPECT_EQ(described<xboolsequence>(0x80), "boolseq of bool");
    EXPECT_EQ(described<xrealsequence>(XREAL_NIL_C), "realseq of real");
    EXPECT_EQ(described<xstringsequence>({}), "stringseq of string");
    EXPECT_EQ(described<xintdictionary>(XINT_NIL_C), "xintdictionary of int");
    EXPECT_EQ(described<xbooldictionary>(0x80), "xbooldictionary of bool");
    EXPECT_EQ(described<xrealdictionary>(XREAL_NIL_C), "xrealdictionary of real");
    EXPECT_EQ(described<xstringdictionary>({}), "xstringdictionary of string");
}

// Memory -------------------------------------------------------------------------------------------

// Each allocation of a call fails once, and then all from one on. No exception leaves the call, what it
// worked on is usable afterwards, and the slot tells.
TEST(Memory, ThatRunsOutIsToldInTheSlot) {
    const char *const long_text = "a text that fits into no small buffer of anybody's";
    xobject *texts = xstringsequence_create(), *table = xstringdictionary_create();
    xstringsequence_set(texts, 0, long_text);
    for (int i = 0; i < 30; ++i)
        xstringdictionary_set(table, std::to_string(i).c_str(), long_text);
    const char *text = nullptr;
    const std::function<void()> calls[] = {
        [] { xrcrelease_c(xintsequence_create()); },
        [=] { xstringsequence_set(texts, 0, long_text); },
        [=] { xstringsequence_insert(texts, 1, long_text); },
        [=] { xstringsequence_insertseq(texts, 0, texts); },
        [=] { xstrunlock_c(xstringsequence_get(texts, 0)); },
        [=] { xstrunlock_c(xstringsequence_get(texts, -1)); },
        [=] { xstrunlock_c(xstringsequence_get(table, 0)); },
        [=] { xstringdictionary_set(table, "one more than 32 slots take", long_text); },
        [=] { xstringdictionary_remove(table, "one more than 32 slots take"); },
        [&] {
            xstringdictionary_find(table, "7", &text);
            xstrunlock_c(text);
        },
        [&] {
            for (int slot = 0; slot < 32 && !xisexc_c(); ++slot) {
                xstringdictionary_getkeybyindex(table, slot, &text);
                xstrunlock_c(text);
            }
        },
        [=] { xstrunlock_c(xgettypename_c(texts)); },
        [=] { xstrunlock_c(xprinttext_c(texts)); },
        [] { xsetexc_c(XOBJECT_NIL_C); },
        [=] { xsetexc_c(texts); },
        [=] { xstrunlock_c(xstrcreate_c(long_text)); },
    };
    int failures = 0;
    for (const bool all : {false, true}) {
        for (const auto &call : calls) {
            SCOPED_TRACE(testing::Message() << "call " << &call - calls);
            for (long before = 0;; ++before) {
                ASSERT_LT(before, 10000);
                xcleanupexc_c();
                failing_memory::all_after = all;
                failing_memory::has_failed = false;
                failing_memory::allocations_left = before;
                call();
                failing_memory::allocations_left = -1;
                if (!failing_memory::has_failed) break;
                if (xisexc_c() == 0) continue;  // it found its way without
                ++failures;
                const std::string told = taken(xgetexcdescription_c());
                EXPECT_TRUE(told == "std::bad_alloc" || emptied() != "kellib::XNativeException") << told;
            }
            xcleanupexc_c();
            EXPECT_TRUE(xrcgetcount(texts) == 1 && xrcgetcount(table) == 1);
        }
    }
    EXPECT_GT(failures, 30);
    xrcrelease_c(texts);
    xrcrelease_c(table);
}

}  // namespace
