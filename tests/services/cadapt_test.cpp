// The C interface from outside: every family against a model, every way into the exception slot, and the
// references on all objects before and after.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <kelstdmt/cadapt.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/xbasic.h>

#include "services/observing.h"

namespace {

// Chance with a fixed seed.
class Chance {
public:
    explicit Chance(unsigned seed) : m_engine(seed) {}
    unsigned any() { return static_cast<unsigned>(m_engine()); }
    int below(int bound) { return static_cast<int>(any() % static_cast<unsigned>(bound)); }
    bool one_in(int count) { return below(count) == 0; }

private:
    std::mt19937 m_engine;
};

// A text that the caller owns a hold on, as a value; nullopt for the nil text.
using Text = std::optional<std::string>;
Text taken(const char *text) {
    EXPECT_NE(text, XTEXT_UNINIT_C);
    Text value = XISTEXT_C(text) ? Text(text) : std::nullopt;
    xstrunlock_c(text);
    return value;
}
int taken(int value) {
    return value;
}
unsigned char taken(unsigned char value) {
    return value;
}
double taken(double value) {
    return value;
}

// The type name of the exception in the slot, "" without one; the slot is empty afterwards.
std::string failure() {
    std::string name = taken(xgetexctypename_c()).value_or("");
    EXPECT_EQ(xisexc_c(), !name.empty());
    xcleanupexc_c();
    return name;
}

constexpr const char *negative = "kellib::XNegativeIndex", *beyond_seq = "kellib::XInvalidSeqIndex",
                     *beyond_dict = "kellib::XInvalidDictIndex", *native = "kellib::XNativeException",
                     *uninitialized = "kellib::XNotInitialized", *mismatch = "kellib::XTypeMismatch";

// The functions of one family, its element type in C and in the model, and values to try.
#define FAMILY_FUNCTIONS(S)                                \
    static constexpr auto create = S##_create;             \
    static constexpr auto descriptor = S##_getclassrtti_c; \
    using container = S;
#define SEQUENCE_FAMILY(NAME, S, MODEL)                      \
    struct NAME : Values<MODEL> {                            \
        FAMILY_FUNCTIONS(S)                                  \
        static constexpr auto size = S##_getarraysize;       \
        static constexpr auto get = S##_get;                 \
        static constexpr auto set = S##_set;                 \
        static constexpr auto insert = S##_insert;           \
        static constexpr auto insertseq = S##_insertseq;     \
        static constexpr auto removerange = S##_removerange; \
    };
#define DICTIONARY_FAMILY(NAME, D, MODEL)                        \
    struct NAME : Values<MODEL> {                                \
        FAMILY_FUNCTIONS(D)                                      \
        static constexpr auto find = D##_find;                   \
        static constexpr auto getbyindex = D##_getbyindex;       \
        static constexpr auto getkeybyindex = D##_getkeybyindex; \
        static constexpr auto set = D##_set;                     \
        static constexpr auto setbyindex = D##_setbyindex;       \
        static constexpr auto remove = D##_remove;               \
        static constexpr auto removebyindex = D##_removebyindex; \
    };

template <class T>
struct Values {
    using model = T;
    using c_type = T;
    static constexpr T uninit = std::is_same_v<T, int>             ? T(XINT_UNINIT_C)
                                : std::is_same_v<T, unsigned char> ? T(XBOOL_UNINIT_C)
                                                                   : T(XREAL_UNINIT_C);
    static T c(T value) { return value; }
    static T random(Chance &chance) { return chance.one_in(5) ? uninit : static_cast<T>(chance.any()); }
};
template <>
struct Values<Text> {
    using model = Text;
    using c_type = const char *;
    static inline const char *const uninit = XTEXT_UNINIT_C;
    static const char *c(const Text &value) { return value ? value->c_str() : nullptr; }
    static Text random(Chance &chance) {
        if (chance.one_in(5)) return std::nullopt;
        return std::string(chance.any() % 40, static_cast<char>('a' + chance.below(26)));
    }
};

SEQUENCE_FAMILY(IntSequence, xintsequence, int)
SEQUENCE_FAMILY(BoolSequence, xboolsequence, unsigned char)
SEQUENCE_FAMILY(RealSequence, xrealsequence, double)
SEQUENCE_FAMILY(StringSequence, xstringsequence, Text)
DICTIONARY_FAMILY(IntDictionary, xintdictionary, int)
DICTIONARY_FAMILY(BoolDictionary, xbooldictionary, unsigned char)
DICTIONARY_FAMILY(RealDictionary, xrealdictionary, double)
DICTIONARY_FAMILY(StringDictionary, xstringdictionary, Text)

template <class Family>
class cadapt_sequence_test : public testing::Test {};
template <class Family>
class cadapt_dictionary_test : public testing::Test {};
using SequenceFamilies = testing::Types<IntSequence, BoolSequence, RealSequence, StringSequence>;
using DictionaryFamilies = testing::Types<IntDictionary, BoolDictionary, RealDictionary, StringDictionary>;
TYPED_TEST_SUITE(cadapt_sequence_test, SequenceFamilies);
TYPED_TEST_SUITE(cadapt_dictionary_test, DictionaryFamilies);

TYPED_TEST(cadapt_sequence_test, DoesWhatAVectorDoes) {
    using F = TypeParam;
    Chance chance(7);
    xobject *sequence = F::create(), *other = F::create();
    std::vector<typename F::model> model, added(3);
    for (int i = 0; i < 3; ++i) {
        added[static_cast<std::size_t>(i)] = F::random(chance);
        F::set(other, i, F::c(added[static_cast<std::size_t>(i)]));
    }
    for (int step = 0; step < 4000; ++step) {
        const int count = static_cast<int>(model.size());
        const int index = chance.one_in(50) ? INT_MAX : chance.below(count + 4) - 1;
        const int second = chance.one_in(50) ? INT_MAX : chance.below(count + 4) - 1;
        const int action = count > 200 ? 5 : chance.below(6);
        const auto value = F::random(chance);
        const char *expected = index < 0 ? negative : index == INT_MAX ? native : "";
        const auto gap = [&](std::size_t more) {
            model.insert(model.begin() + std::min(index, count), more + std::max(index - count, 0), {});
            return model.begin() + index;
        };
        SCOPED_TRACE("step " + std::to_string(step) + ", action " + std::to_string(action));
        if (action == 0) {
            auto found = F::get(sequence, index);
            if (index >= 0 && index < count) {
                EXPECT_TRUE(taken(found) == model[static_cast<std::size_t>(index)]);
            } else {
                EXPECT_EQ(found, F::uninit);
                expected = index < 0 ? negative : beyond_seq;
                EXPECT_EQ(xrcgetcount(sequence), index < 0 ? 1 : 2) << "the exception holds the sequence";
            }
        } else if (action == 1) {
            F::set(sequence, index, F::c(value));
            if (!*expected) (index < count ? model.begin() + index : gap(1))[0] = value;
        } else if (action == 2) {
            F::insert(sequence, index, F::c(value));
            if (!*expected) *gap(1) = value;
        } else if (action == 3) {
            F::insertseq(sequence, index, other);
            if (!*expected) std::copy(added.begin(), added.end(), gap(added.size()));
        } else if (action == 4) {
            EXPECT_EQ(F::size(sequence), count);
            expected = "";
        } else {
            F::removerange(sequence, index, second);
            expected = index < 0 || second < 0 ? negative : "";
            const int low = std::min({index, second, count}), high = std::min(std::max(index, second), count);
            if (!*expected) model.erase(model.begin() + low, model.begin() + high);
        }
        ASSERT_EQ(failure(), expected);
        ASSERT_EQ(F::size(sequence), static_cast<int>(model.size()));
        ASSERT_EQ(xrcgetcount(sequence), 1);
        ASSERT_EQ(xrcgetcount(other), 1);
    }
    for (std::size_t i = 0; i < model.size(); ++i)
        EXPECT_TRUE(taken(F::get(sequence, static_cast<int>(i))) == model[i]) << i;
    F::insertseq(sequence, 0, sequence);
    EXPECT_EQ(F::size(sequence), static_cast<int>(2 * model.size()));
    xrcrelease_c(sequence);
    xrcrelease_c(other);
}

TYPED_TEST(cadapt_dictionary_test, DoesWhatAMapDoes) {
    using F = TypeParam;
    Chance chance(11);
    xobject *dictionary = F::create();
    std::map<std::string, typename F::model> model;
    internal_errors reports;
    for (int step = 0; step < 6000; ++step) {
        std::string name = "key" + std::to_string(chance.below(90));
        const char *const keys[] = {name.c_str(), name.c_str(), name.c_str(), "",
                                    "\xc3\xa9",   nullptr,      XTEXT_NIL_C,  XTEXT_UNINIT_C};
        const char *key = keys[chance.any() % std::size(keys)];
        const bool is_key = XISTEXT_C(key);
        name = is_key ? key : "";
        const int slots = xgetndictelems_c(dictionary);
        const int slot = chance.one_in(30) ? INT_MAX : chance.below(slots + 3) - 1;
        const int action = chance.below(7);
        const auto value = F::random(chance);
        const char *expected = "";
        typename F::c_type found = F::c(value);
        SCOPED_TRACE("step " + std::to_string(step) + ", action " + std::to_string(action));
        const char *held = nullptr;  // the key in the slot
        const bool live = F::getkeybyindex(dictionary, slot, &held) == 1;
        ASSERT_EQ(failure(), slot < 0 ? negative : "");
        const std::string there = live ? *taken(held) : "";
        EXPECT_TRUE(live || held == XTEXT_UNINIT_C);
        if (action == 0) {
            auto *place = chance.one_in(8) ? nullptr : &found;
            const unsigned char answer = F::find(dictionary, key, place);
            EXPECT_EQ(answer, is_key && model.count(name));
            EXPECT_TRUE(!place || (answer ? taken(found) == model[name] : found == F::uninit));
        } else if (action == 1 || action == 2) {
            F::set(dictionary, key, F::c(value));
            if (is_key) model[name] = value;
            EXPECT_EQ(reports.take().empty(), is_key);
        } else if (action == 3) {
            EXPECT_EQ(F::getbyindex(dictionary, slot, &found), slot < 0 ? XBOOL_UNINIT_C : live);
            EXPECT_TRUE(live ? taken(found) == model.at(there) : found == F::uninit);
            expected = slot < 0 ? negative : "";
        } else if (action == 4) {
            F::setbyindex(dictionary, slot, F::c(value));
            if (live) model.at(there) = value;
            expected = slot < 0 ? negative : slot >= slots ? beyond_dict : "";
        } else if (action == 5) {
            F::remove(dictionary, key);
            if (is_key) model.erase(name);
        } else {
            F::removebyindex(dictionary, slot);
            model.erase(live ? there : "no such key");
            expected = slot < 0 ? negative : slot >= slots ? beyond_dict : "";
        }
        ASSERT_EQ(failure(), expected);
        ASSERT_EQ(xrcgetcount(dictionary), 1);
        if (step % 50 != 0) continue;
        for (auto &[each, there_too] : model) {
            ASSERT_EQ(F::find(dictionary, each.c_str(), &found), 1) << each;
            EXPECT_TRUE(taken(found) == there_too) << each;
        }
        ASSERT_EQ(static_cast<F::container *>(dictionary)->getcount(), static_cast<int>(model.size()));
    }
    xrcrelease_c(dictionary);
}

// Whoever stands in the container's place.
template <class Call>
void refuses_what_is_no_container(xobject *stranger, Call call) {
    xsetexc_c(kelXConnectionClosed::Create());
    call(nullptr);
    EXPECT_EQ(failure(), uninitialized);
    call(XOBJECT_UNINIT_C);
    EXPECT_EQ(failure(), uninitialized);
    call(stranger);
    EXPECT_EQ(xrcgetcount(stranger), 2) << "held by its owner and the exception";
    EXPECT_EQ(failure(), mismatch);
    EXPECT_EQ(xrcgetcount(stranger), 1);
}

TYPED_TEST(cadapt_sequence_test, NeedsASequenceOfItsClass) {
    using F = TypeParam;
    xrchandle<xobject> stranger(kelXFunc::cast(kel::construct<kelXFunc>("f")));
    const auto value = typename F::c_type{};
    xobject *own = F::create();
    for (const std::function<void(xobject *)> &call : std::vector<std::function<void(xobject *)>>{
             [](xobject *o) { EXPECT_EQ(F::size(o), XINT_UNINIT_C); },
             [](xobject *o) { EXPECT_EQ(F::get(o, 0), F::uninit); }, [=](xobject *o) { F::set(o, 0, value); },
             [=](xobject *o) { F::insert(o, 0, value); }, [](xobject *o) { F::removerange(o, 0, 1); },
             [=](xobject *o) { F::insertseq(o, 0, own); }, [=](xobject *o) { F::insertseq(own, 0, o); }})
        refuses_what_is_no_container(stranger, call);
    EXPECT_EQ(xrcgetcount(own), 1);
    EXPECT_EQ(xisobjsameas_c(own, F::descriptor()), 1);
    xrcrelease_c(own);
    // A sequence that is somebody's member: no call ends it, whatever it holds meanwhile.
    xauto<typename F::container> member;
    F::set(&member, 2, value);
    F::get(&member, 3);
    EXPECT_EQ(failure(), beyond_seq);
    EXPECT_EQ(F::size(&member), 3);
    EXPECT_EQ(xrcgetcount(&member), 0);
}

TYPED_TEST(cadapt_dictionary_test, NeedsADictionaryOfItsClass) {
    using F = TypeParam;
    xrchandle<xobject> stranger(xstringsequence::create());
    const auto value = typename F::c_type{};
    for (const std::function<void(xobject *)> &call : std::vector<std::function<void(xobject *)>>{
             [](xobject *o) { EXPECT_EQ(F::find(o, "key", nullptr), XBOOL_UNINIT_C); },
             [](xobject *o) { EXPECT_EQ(F::getbyindex(o, 0, nullptr), XBOOL_UNINIT_C); },
             [](xobject *o) { EXPECT_EQ(F::getkeybyindex(o, 0, nullptr), XBOOL_UNINIT_C); },
             [=](xobject *o) { F::set(o, "key", value); }, [=](xobject *o) { F::setbyindex(o, 0, value); },
             [](xobject *o) { F::remove(o, "key"); }, [](xobject *o) { F::removebyindex(o, 0); }})
        refuses_what_is_no_container(stranger, call);
    xauto<typename F::container> member;
    F::set(&member, "key", value);
    EXPECT_EQ(F::find(&member, "key", nullptr), 1);
    EXPECT_EQ(xisobjkindof_c(&member, F::descriptor()), 1);
    EXPECT_EQ(xrcgetcount(&member), 0);
}

}  // namespace
