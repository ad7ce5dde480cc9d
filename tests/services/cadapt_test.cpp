// The C interface: the exception slot, the object functions, values, and calls while memory runs out. What
// its containers do, fuzz/c_interface_fuzz.cpp holds against models.
#include <cstring>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
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

// Beside a pointer, with exceptions of all three kinds, of which two are ours too.
TEST(Slot, HoldsOneReferenceOrOwns) {
    xobject *ours[] = {kel::construct<Held>(), kel::construct<Held>()}, *in = nullptr;
    for (xobject *one : ours)
        xrcattach_c(one);
    std::mt19937 random(3);
    const auto set = [&in](xobject *exception) {
        xsetexc_c(exception);
        in = exception == XOBJECT_UNINIT_C ? nullptr : exception;
    };
    for (int step = 0; step < 2000; ++step) {
        const std::size_t chosen = random() % 2;
        switch (random() % 9) {
            case 0:
                set(ours[chosen]);
                break;
            case 1:
                set(chosen ? kel::construct<Loose>() : new Untyped);
                break;
            case 2:
                set(kel::construct<Held>());
                break;
            case 3:
                set(chosen ? nullptr : XOBJECT_UNINIT_C);
                break;
            case 4:
                set(in);
                break;
            case 5:
            case 6:
                ASSERT_EQ(xgetexc_c(), in);
                if (in && in->getrtti()) xrcrelease_c(in);
                break;
            case 7:
                ASSERT_EQ(xextractexc_c(), in);
                if (chosen) set(in);  // counted ones have our reference and the slot's now
                if (in && (!chosen || xrcgetcount(in) > 0))
                    xrcgetcount(in) > 0 ? xrcrelease_c(in) : xdelete(in);
                if (!chosen) in = nullptr;
                break;
            default:
                xcleanupexc_c();
                in = nullptr;
        }
        const bool fresh = in && in != ours[0] && in != ours[1];
        ASSERT_EQ(lives, 2 + fresh) << step;
        ASSERT_EQ(xisexc_c(), in != nullptr);
        for (xobject *one : ours)
            ASSERT_EQ(xrcgetcount(one), 1 + (one == in)) << step;
        if (in && in->getrtti()) {
            const bool counted = xrcgetcount(in) > 0;
            ASSERT_EQ(taken(xgetexctypename_c()), counted ? "test::Held" : "test::Loose");
            ASSERT_EQ(taken(xgetexcdescription_c()), counted ? "held" : "loose");
            ASSERT_EQ(xrcgetcount(in), counted ? 1 + !fresh : -1);
        }
    }
    xcleanupexc_c();
    EXPECT_EQ(taken(xgetexctypename_c()) + taken(xgetexcdescription_c()), "(nil)(nil)");
    for (xobject *one : ours)
        xdelete_c(one);
    EXPECT_EQ(lives, 0);
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
    EXPECT_EQ(taken(xgettypename_c(error)), "kellib::XNegativeIndex") << "the slot is left alone";
    EXPECT_EQ(emptied(), "kellib::XNotDictionaryType");
    EXPECT_EQ(xrcgetcount(error), 2);
    xdelete_c(error);
    xrcrelease_c(error);
    // Objects that are not counted: an owner's, and one that is deleted.
    xauto<Loose> member;
    xrcattach_c(&member);
    xrcrelease_c(&member);
    xdelete_c(&member);
    EXPECT_EQ(taken(xgettypename_c(&member)), "test::Loose");
    xdelete_c(kel::construct<Loose>());
    EXPECT_EQ(lives, 1);
    // One that nobody holds survives a question.
    xobject *fresh = kel::construct<Held>();
    taken(xgettypename_c(fresh));
    EXPECT_EQ(xrcgetcount(fresh), 0);
    EXPECT_TRUE(xisrcobj_c(fresh));
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
void describes(const char *name, brtti *type, typename T::value_type uninit, typename T::value_type nil) {
    SCOPED_TRACE(name);
    constexpr bool texts = std::is_same_v<typename T::value_type, xstring>;  // they have no uninit
    xrchandle<T> held(T::create());
    EXPECT_EQ(text(held->gettypename()), name);
    EXPECT_TRUE(held->isrefcountable());
    if constexpr (requires { held->append(nil); }) {
        held->append(uninit);
        held->append(nil);
        EXPECT_EQ(held->getrtti()->getseqtype(), type);
        EXPECT_TRUE(held->getseqelem(0) == (texts ? xany(nullptr) : xany()) && held->getseqelem(1).isnil());
    } else {
        held->set("uninit", uninit);
        held->set("nil", nil);
        EXPECT_EQ(held->getrtti()->getdicttype(), type);
        EXPECT_TRUE(held->lookupdict("uninit") == (texts ? xany(nullptr) : xany()));
        EXPECT_TRUE(held->lookupdict("nil").isnil());
    }
}

TEST(Containers, DescribeThemselves) {
    describes<xintsequence>("intseq", get_xrttiint(), XINT_UNINIT_C, XINT_NIL_C);
    describes<xboolsequence>("boolseq", get_xrttibool(), 0x81, 0x80);
    describes<xrealsequence>("realseq", get_xrttireal(), 9e125, XREAL_NIL_C);
    describes<xstringsequence>("stringseq", get_xrttistring(), {}, {});
    describes<xintdictionary>("xintdictionary", get_xrttiint(), XINT_UNINIT_C, XINT_NIL_C);
    describes<xbooldictionary>("xbooldictionary", get_xrttibool(), 0x81, 0x80);
    describes<xrealdictionary>("xrealdictionary", get_xrttireal(), 9e125, XREAL_NIL_C);
    describes<xstringdictionary>("xstringdictionary", get_xrttistring(), {}, {});
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
            const auto which = &call - calls;
            for (long before = 0;; ++before) {
                ASSERT_LT(before, 10000) << "call " << which;
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
            EXPECT_EQ(xrcgetcount(texts), 1) << "call " << which;
            EXPECT_EQ(xrcgetcount(table), 1) << "call " << which;
        }
    }
    EXPECT_GT(failures, 30);
    xrcrelease_c(texts);
    xrcrelease_c(table);
}

}  // namespace
