// The C interface: the exception slot, the object functions, values, containers beside the C++ classes behind
// them, and calls while memory runs out.
#include <climits>
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

// Exceptions of a class that is counted and of one that is not.
int lives = 0;

KEL_DECLARE_STRUCT(Held)
class Held : public kelXException {
    KEL_CLASS(Held, kelXException)
public:
    Held() : kelXException("held") { ++lives; }
    ~Held() override { --lives; }
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

// The slot -----------------------------------------------------------------------------------------

// Each kind of exception, kept by the caller too or not, meets every way to empty the slot or to fill it
// anew.
TEST(Slot, HoldsOneReferenceOrOwns) {
    xobject *const ours = kel::construct<Held>();
    xrcattach_c(ours);
    const std::function<xobject *()> kinds[] = {[=] { return ours; }, [] { return kel::construct<Held>(); },
                                                [] { return kel::construct<Loose>(); }};
    const std::function<void(xobject *)> ends[] = {
        [](xobject *) { xcleanupexc_c(); }, [](xobject *) { xsetexc_c(XOBJECT_UNINIT_C); },
        [=](xobject *) { xsetexc_c(ours); }, [](xobject *) { xsetexc_c(kel::construct<Loose>()); },
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
            EXPECT_TRUE(xisexc_c() && lives == 1 + (in != ours));
            EXPECT_EQ(xgetexc_c(), in);
            EXPECT_EQ(xrcgetcount(in), &kind - kinds < 2 ? 2 + (in == ours) : -1) << "and one for the caller";
            xrcrelease_c(in);
            end(in);
            xobject *const now = xextractexc_c();
            EXPECT_EQ(now != nullptr, &end - ends == 2 || &end - ends == 3);
            EXPECT_EQ(lives, 1 + (now && now != ours));
            now == ours ? xrcrelease_c(now) : xdelete_c(now);
            EXPECT_TRUE(xisexc_c() == 0 && lives == 1 && xrcgetcount(ours) == 1);
        }
    xdelete_c(ours);
    xrchandle<xobject> sequence(xintsequence::create());
    xsetexc_c(sequence);
    EXPECT_EQ(emptied(), "kellib::XTypeMismatch") << "no exception";
    EXPECT_EQ(xrcgetcount(sequence), 1);
}

// A sequence whose copying ends in one exception or another.
class Throwing : public xintsequence {
public:
    std::function<void()> fail;

protected:
    void OnCopy(void *, const void *, unsigned) override { fail(); }
};

TEST(Slot, ReceivesWhateverIsThrown) {
    const std::string native = "kellib::XNativeException";
    const struct {
        std::function<void()> fail;
        std::string type, text;
    } cases[] = {
        {[] { xthrow(kel::construct<Held>()); }, "test::Held", "held"},
        {[] { xthrow(kel::construct<Loose>()); }, "test::Loose", "loose"},
        {[] { throw std::runtime_error("of its own"); }, native, "of its own"},
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
    for (xobject *none : {static_cast<xobject *>(nullptr), XOBJECT_UNINIT_C}) {
        xrcattach_c(none);
        xrcrelease_c(none);
        xdelete_c(none);
        EXPECT_EQ(xgettypename_c(none), XTEXT_NIL_C);
        EXPECT_EQ(xisobjsameas_c(none, type), none == nullptr);
        EXPECT_EQ(xisobjkindof_c(none, type), none == nullptr);
        EXPECT_EQ(taken(xprinttext_c(none)), none ? "uninit" : "nil");
    }
    EXPECT_EQ(xisexc_c(), 0);
}

TEST(Objects, CountTypePrintAndParkWhatTheyThrow) {
    xobject *error = kelXNegativeIndex::Create(-3).detach();
    xrcattach_c(error);
    EXPECT_EQ(xisobjkindof_c(error, kelXException::getclassrtti()), 1);
    EXPECT_EQ(xgetrtti_c(error), kelXNegativeIndex::getclassrtti());
    EXPECT_EQ(xgetrtti_c(nullptr), nullptr);
    EXPECT_EQ(taken(xprinttext_c(error)), kel::printed(error).str());
    EXPECT_EQ(xgetndictelems_c(error), XINT_UNINIT_C);
    EXPECT_EQ(taken(xgettypename_c(error)), "kellib::XNegativeIndex") << "the slot is left alone";
    EXPECT_EQ(emptied(), "kellib::XNotDictionaryType");
    EXPECT_EQ(xrcgetcount(error), 2);
    xdelete_c(error);
    xrcrelease_c(error);
    // One that nobody holds survives a question.
    xobject *fresh = kel::construct<Held>();
    taken(xgettypename_c(fresh));
    EXPECT_TRUE(xrcgetcount(fresh) == 0 && xisrcobj_c(fresh));
    xdelete_c(fresh);
    EXPECT_EQ(lives, 0);
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
        if (kind == XANY_STRING_C) {
            EXPECT_EQ(kel::detail::holders(record.payload.text), 2U);
            xstrunlock_c(record.payload.text);
        }
    }
    internal_errors reports;
    __xany_c record{};
    record.kind = 9;
    EXPECT_TRUE(xcadapt_c2cxx(record).isuninit());
    EXPECT_EQ(reports.take(), "Should not be here: xany_c of unknown kind. (services/cadapt)");
}

// The markers that C callers have compiled in, to the bit; and an extern that the record lends.
TEST(Records, WithMarkersAreUninitAndNil) {
    Foreign lent;
    EXPECT_TRUE(XINT_UNINIT_C == -2147483647 && XBOOL_UNINIT_C == 0x81 && XREAL_UNINIT_C == 9e125);
    EXPECT_TRUE(XINT_NIL_C == INT_MIN && XBOOL_NIL_C == 0x80);
    EXPECT_EQ(XREAL_NIL_C, std::bit_cast<double>(0x5A17A2ECC414A040U));
    EXPECT_TRUE(xcadapt_c2cxx({XANY_STRING_C, 0, {.text = XTEXT_NIL_C}}).isnil());
    EXPECT_TRUE(xcadapt_c2cxx({XANY_EXTERN_C, 0, {.foreign = {nullptr, &lent}}}).isnil());
}

// Containers ---------------------------------------------------------------------------------------

// Past every end, with the steps of the capacity between; beside a twin that C++ changes alike.
TEST(Sequences, ChangeAsTheirClassDoes) {
    xobject *numbers = xintsequence_create();
    xauto<xintsequence> twin;
    for (int index : {0, 1, 2, 5, 1, 63, 64, 65, 130}) {
        xintsequence_set(numbers, index, index);
        twin.set(index, index);
        EXPECT_EQ(xintsequence_get(numbers, index), index);
        EXPECT_EQ(xintsequence_get(numbers, twin.getarraysize()), XINT_UNINIT_C);
        EXPECT_EQ(emptied(), "kellib::XInvalidSeqIndex");
    }
    for (int index : {-1, INT_MIN, INT_MAX}) {
        xintsequence_set(numbers, index, 1);
        EXPECT_EQ(emptied(), index < 0 ? "kellib::XNegativeIndex" : "kellib::XNativeException");
    }
    xintsequence_insert(numbers, 2, 9);
    twin.insert(2, 9);
    xintsequence_insertseq(numbers, 3, numbers);
    twin.insertseq(3, twin);
    xintsequence_removerange(numbers, 200, 70);
    twin.removerange(70, 200);
    EXPECT_EQ(taken(xprinttext_c(numbers)), kel::printed(&twin).str());
    EXPECT_EQ(xintsequence_getarraysize(numbers), twin.getarraysize());
    xrcrelease_c(numbers);
}

// Texts come with a hold; what a search does not find is uninit, and it may have no place.
TEST(Dictionaries, FindAndChangeByKeyAndBySlot) {
    xobject *table = xstringdictionary_create();
    xstringdictionary_set(table, "one", "1");
    xstringdictionary_set(table, "nil", nullptr);
    const char *text = nullptr;
    const auto told = [&](xbool found) { return std::to_string(found) + taken(text); };
    EXPECT_EQ(told(xstringdictionary_find(table, "one", &text)), "11");
    EXPECT_EQ(told(xstringdictionary_find(table, "nil", &text)), "1(nil)");
    EXPECT_EQ(told(xstringdictionary_find(table, "none", &text)), "0(uninit)");
    int slot = 0;
    while (slot < 32 && told(xstringdictionary_getkeybyindex(table, slot, &text)) != "1one")
        ++slot;
    EXPECT_EQ(told(xstringdictionary_getbyindex(table, slot, &text)), "11");
    xstringdictionary_setbyindex(table, slot, "2");
    EXPECT_EQ(told(xstringdictionary_find(table, "one", &text)), "12");
    xstringdictionary_removebyindex(table, slot);
    EXPECT_EQ(xstringdictionary_find(table, "one", nullptr), 0);
    EXPECT_EQ(xstringdictionary_find(table, "nil", nullptr), 1);
    xstringdictionary_remove(table, "nil");
    EXPECT_EQ(xstringdictionary_find(table, "nil", nullptr), 0);
    xstringdictionary_setbyindex(table, 32, "beyond");
    EXPECT_EQ(emptied(), "kellib::XInvalidDictIndex");
    xrcrelease_c(table);
}

// What is no such container is refused, and an answer is uninit.
TEST(Containers, AreNothingElse) {
    xobject *stranger = xrealsequence_create(), *flags = xboolsequence_create();
    double value = 0;
    const std::function<bool(xobject *)> calls[] = {
        [](xobject *o) { return xboolsequence_get(o, 0) == XBOOL_UNINIT_C; },
        [](xobject *o) { return xboolsequence_getarraysize(o) == XINT_UNINIT_C; },
        [](xobject *o) { return xboolsequence_set(o, 0, 1), true; },
        [=](xobject *o) { return xboolsequence_insertseq(flags, 0, o), true; },
        [&](xobject *o) { return xrealdictionary_find(o, "k", &value) == XBOOL_UNINIT_C; },
        [](xobject *o) { return xrealdictionary_set(o, "k", 1), true; },
    };
    for (xobject *none : {XOBJECT_NIL_C, XOBJECT_UNINIT_C, stranger})
        for (const auto &call : calls) {
            EXPECT_TRUE(call(none)) << &call - calls;
            EXPECT_EQ(emptied(), none == stranger ? "kellib::XTypeMismatch" : "kellib::XNotInitialized");
        }
    EXPECT_TRUE(value == XREAL_UNINIT_C && xrcgetcount(stranger) == 1);
    xrcrelease_c(stranger);
    xrcrelease_c(flags);
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
    const std::function<void()> calls[] = {
        [] { xrcrelease_c(xintsequence_create()); },
        [=] { xstringsequence_set(texts, 0, long_text); },
        [=] { xstringsequence_insertseq(texts, 0, texts); },
        [=] { xstrunlock_c(xstringsequence_get(texts, -1)); },
        [=] { xstringdictionary_set(table, "one more than 32 slots take", long_text); },
        [=] { xstringdictionary_remove(table, "one more than 32 slots take"); },
        [=] { xstrunlock_c(xprinttext_c(texts)); },
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
    EXPECT_GT(failures, 15);
    xrcrelease_c(texts);
    xrcrelease_c(table);
}

}  // namespace
