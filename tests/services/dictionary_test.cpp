// Dictionaries against a slow table that is written straight from the rules, slot by slot; and values,
// exceptions and the typed interface.
#include <algorithm>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <random>

#include "living.h"
#include "observing.h"
#include "services/slot_bits.h"

namespace {

// The rules --------------------------------------------------------------------------------------

struct Model {
    struct Slot {
        bool removed = false;
        std::optional<std::string> key;
        int value = 0;
    };

    explicit Model(xdictcontrol by) : control(by) {}
    std::optional<unsigned> find(const std::string &key) const {
        for (unsigned i = 0; i < slots.size(); ++i) {
            const Slot &slot = slots[probe(key, i)];
            if (!slot.key && !slot.removed) break;
            if (slot.key == key) return probe(key, i);
        }
        return {};
    }
    bool set(const std::string &key, int value) {
        const auto at = find(key);
        if (!at) adjust();
        if (at) slots[*at].value = value;
        return at || add(key, value);
    }
    bool remove_slot(unsigned at) {
        if (at >= slots.size() || !slots[at].key) return false;
        slots[at] = {true, {}, 0};
        --count;
        adjust();
        return true;
    }
    unsigned probe(const std::string &key, unsigned i) const {
        auto s = [&](std::size_t at) { return static_cast<signed char>(key[at]); };
        const std::size_t length = key.size();
        const int x = length == 0 ? 0 : length < 3 ? s(0) : s(length / 2 + 1) ^ s(length - 2) ^ s(1);
        const int h1 = length == 0 ? 0 : s(length / 2) * s(length - 1) * s(0);
        const int h2 = length == 0 ? 1 : x * 2 + 1;
        const auto size = static_cast<unsigned>(slots.size());
        return (static_cast<unsigned>(h2) * i + static_cast<unsigned>(h1)) % size;
    }
    bool add(const std::string &key, int value) {
        for (unsigned i = 0; i < slots.size(); ++i) {
            Slot &slot = slots[probe(key, i)];
            if (slot.key) continue;
            slot = {false, key, value};
            ++count;
            return true;
        }
        return false;
    }
    void adjust() {
        const auto size = static_cast<unsigned>(slots.size());
        unsigned wanted = size == 0 ? 32 : size;
        if (size != 0 && count * 100 / size > control.high)
            wanted = size * 2;
        else if (size > 32 && count * 100 / (size / 2) < control.low && count <= size / 2)
            wanted = size / 2;
        if (wanted == size) return;
        auto old = std::exchange(slots, std::vector<Slot>(wanted));
        count = 0;
        for (const Slot &slot : old)
            if (slot.key) add(*slot.key, slot.value);
    }

    xdictcontrol control;
    std::vector<Slot> slots;
    unsigned count = 0;
};

using Ints = xtsdictionary<int>;

// Slot by slot, by number and by a walk.
testing::AssertionResult same(Ints &ours, const Model &model) {
    if (ours.GetSlots() != model.slots.size() || ours.GetCount() != model.count)
        return testing::AssertionFailure() << ours.GetCount() << " in " << ours.GetSlots() << " slots";
    auto walk = ours.begin();
    for (unsigned i = 0; i < model.slots.size(); ++i) {
        xstring key;
        int value = 0;
        const bool live = ours.getkeybyindex(static_cast<int>(i), key);
        ours.getbyindex(static_cast<int>(i), value);
        const Model::Slot &slot = model.slots[i];
        if (live != slot.key.has_value() || (live && (*slot.key != key.Str() || value != slot.value)))
            return testing::AssertionFailure() << "slot " << i << ": " << text(key);
        if (!live) continue;
        if (walk == ours.end() || *slot.key != (*walk).key || (*walk).value != value)
            return testing::AssertionFailure() << "the walk leaves out slot " << i;
        ++walk;
    }
    return testing::AssertionResult(walk == ours.end());
}

using Random = std::mt19937;

std::string any_bytes(Random &random, std::size_t length) {
    std::string key(length, ' ');
    for (char &byte : key)
        byte = static_cast<char>(1 + random() % 255);
    return key;
}

// Keys of few bytes and of many; numbers at the end of one path; in one step, whose ways start anywhere and
// run into one another; and backwards, in steps of 255.
std::string (*const shapes[])(Random &) = {
    [](Random &random) { return any_bytes(random, random() % 5); },
    [](Random &random) { return any_bytes(random, 5 + random() % 40); },
    [](Random &random) { return "/srv/file" + std::to_string(100000 + random() % 9000) + ".txt"; },
    [](Random &random) {
        return any_bytes(random, 1) + "/////" + std::to_string(1000 + random() % 3000) + "//.a";
    },
    [](Random &random) { return "\x81\1" + std::to_string(10000 + random() % 9000) + "\1\x80" + "a"; },
};

// Sets, finds and removes at random, mostly growing, then mostly keeping the count, then shrinking; or, when
// it is steady, growing to 2600 keys, one of which goes for each that comes, so that freed slots far and near
// are taken again for long.
void follow(std::size_t shape, xdictcontrol control, unsigned seed, int steps, bool steady = false) {
    SCOPED_TRACE(testing::Message() << shape << ", control " << control.low << "/" << control.high);
    Random random(seed);
    Model model(control);
    Ints ours(&control);
    internal_errors errors;
    std::vector<std::string> used;
    for (int step = 0; step < steps; ++step) {
        const std::size_t size = model.slots.size();
        const int phase = step * 4 / steps;
        const std::string key =
            !used.empty() && random() % 3 == 0 ? used[random() % used.size()] : shapes[shape](random);
        const auto at = model.find(key);
        if (steady && !at && model.count > 2600) {
            const std::size_t which = random() % 4 ? random() % used.size() : 0;
            const auto leaving = model.find(used[which]);
            ASSERT_EQ(ours.remove(used[which].c_str()), leaving.has_value());
            if (leaving) model.remove_slot(*leaving);
            used.erase(used.begin() + static_cast<long>(which));
        }
        if (steady || random() % 8 < (phase == 0 ? 7U : phase == 3 ? 2U : 4U)) {
            ours.set(key.c_str(), step);
            EXPECT_EQ(errors.take(), model.set(key, step) ? "" : "Hash table overflow. (services/kelbdict)");
            used.push_back(key);
        } else if (random() % 2) {
            ASSERT_EQ(ours.remove(key.c_str()), at.has_value()) << key;
            if (at) model.remove_slot(*at);
        } else if (!model.slots.empty()) {
            // By number, at a live slot as a rule.
            auto slot = static_cast<unsigned>(random() % model.slots.size());
            if (!used.empty() && random() % 4) slot = model.find(used[random() % used.size()]).value_or(slot);
            ASSERT_EQ(ours.removebyindex(static_cast<int>(slot)), model.remove_slot(slot)) << slot;
        }
        int value = -1;
        const auto now = model.find(key);
        ASSERT_TRUE(ours.find(key.c_str(), value) == now.has_value() &&
                    (!now || value == model.slots[*now].value));
        if (model.slots.size() != size || size <= 32 || step % 64 == 0 || step == steps - 1) {
            ASSERT_TRUE(same(ours, model)) << "after step " << step;
        }
        if (step == steps / 2 && seed % 2) {
            model = Model(control);
            ours.clear();
        }
    }
}

// Also full tables, small and large, tables that swing between two sizes, and tables that are nearly empty.
TEST(Slots, FollowTheRulesAndTheControl) {
    for (std::size_t shape = 0; shape < std::size(shapes); ++shape) {
        follow(shape, {}, 1, 3000);
        follow(shape, {}, 2, 8000);
        follow(shape, {}, 4, 9000, true);
        for (xdictcontrol control : {xdictcontrol{70, 100}, {0, 200}, {95, 90}, {1, 3}})
            follow(shape, control, 5, 700);
        if (shape >= 3) follow(shape, {60, 98}, 6, 2500);
    }
}

// The set of live slots beside plain bits, nearly full, so that long runs end at each of its levels.
TEST(Slots, AreFoundPastFullRuns) {
    Random random(3);
    for (const unsigned size : {128U, 4096U, 1U << 18}) {
        kel::detail::slot_bits set(size);
        std::vector<bool> model(size, true);
        for (unsigned slot = 0; slot < size; ++slot)
            set.add(slot);
        for (int step = 0; step < 60; ++step) {
            const auto changed = static_cast<unsigned>(random() % size),
                       from = static_cast<unsigned>(random() % size);
            model[changed] = step % 4 == 3;
            model[changed] ? set.add(changed) : set.remove(changed);
            unsigned missing = from, up = 0, down = 0;
            while (model[missing])
                missing = (missing + 1) % size;
            const auto is_full = [&](unsigned word) {
                return std::all_of(model.begin() + word * 64, model.begin() + (word + 1) * 64,
                                   std::identity());
            };
            for (unsigned word = from / 64; word < size / 64 && is_full(word); ++word)
                up = (word + 1) * 64 - from;
            for (unsigned word = from / 64 + 1; word-- > 0 && is_full(word);)
                down = from + 1 - word * 64;
            ASSERT_EQ(set.next_missing(from), missing);
            ASSERT_EQ(set.full_run(from, true), up) << from << " of " << size;
            ASSERT_EQ(set.full_run(from, false), down) << from << " of " << size;
        }
    }
}

// Keys and numbers of callers ----------------------------------------------------------------------

// Keys that the table holds serve as arguments, also while it is rebuilt around them.
TEST(Keys, OfTheTableMayBeArguments) {
    for (int keys : {5, 500}) {
        Ints ours;
        for (int i = 0; i < keys; ++i)
            ours.set(("the key " + std::to_string(i)).c_str(), i);
        for (int round = 0; ours.getcount() != 0; ++round) {
            const char *own = (*ours.begin()).key;
            const std::string key = own;
            int value = 0;
            if (round < 2 * keys) {
                ours.set(own + 1, 7);
                EXPECT_TRUE(ours.find(key.c_str() + 1, value) && value == 7);
            }
            EXPECT_TRUE(ours.remove((*ours.begin()).key));
        }
    }
}

TEST(Keys, ThatAreNoTextsAreNeverThere) {
    internal_errors errors;
    Ints ours;
    ours.set("real", 1);
    for (const char *key : {static_cast<const char *>(nullptr), kel::nil_text(), kel::uninit_text()}) {
        ours.set(key, 5);
        EXPECT_EQ(errors.take(), "A dictionary's key must be a text. (services/kelbdict)");
        EXPECT_FALSE(ours.haskey(key) || ours.remove(key));
    }
    EXPECT_EQ(ours.getcount(), 1);
}

TEST(Numbers, AreChecked) {
    Ints ours;
    xstring key;
    int value = 0;
    ours.set("", 3);
    for (int below : {-1, INT_MIN}) {
        EXPECT_EQ(thrown_by<kelXNegativeIndex>([&] { ours.removebyindex(below); })->getIndex(), below);
        thrown_by<kelXNegativeIndex>([&] { ours.getbyindex(below, value); });
    }
    for (int beyond : {32, INT_MAX}) {
        EXPECT_EQ(thrown_by<kelXInvalidDictIndex>([&] { ours.setbyindex(beyond, 1); })->getIndex(), beyond);
        EXPECT_FALSE(ours.getbyindex(beyond, value) || ours.getkeybyindex(beyond, key));
    }
    EXPECT_FALSE(ours.setbyindex(5, 1) || ours.getbyindex(5, value) || ours.removebyindex(5)) << "empty";
}

// Values -----------------------------------------------------------------------------------------

// Whatever call throws: either all happened or nothing, and the table goes on.
template <class T>
void check_throwing() {
    const T value(1);
    bool thrown = true;
    for (int fuse = 0; thrown; ++fuse) {
        ASSERT_LT(fuse, 400) << "every attempt threw";
        thrown = false;
        xtcdictionary<T> ours;
        std::map<std::string, int> model;
        for (int i = 0; i < 117; ++i) {  // the next key doubles the table
            model[std::to_string(i)] = 0;
            ours.set(std::to_string(i).c_str(), 0);
        }
        for (const char *key : {"a key that is new", "5", "another", "another"}) {
            T::until_throw = fuse;
            try {
                ours.BaseSet(key, &value, sizeof(xdictentry<T>), xdictentry<T>::offset);
                model[key] = 1;
            } catch (const std::runtime_error &) {
                thrown = true;
            }
            T::until_throw = -1;
            std::map<std::string, int> seen;
            for (auto [name, held] : ours)
                seen[name] = ours.haskey(name) ? int{held} : -1;
            ASSERT_EQ(seen, model);
            ASSERT_EQ(static_cast<int>(T::all.size()), ours.getsize() + 1) << "a value for each slot";
        }
    }
}

TEST(Values, ThatThrowLeaveTheTableAsItWas) {
    check_throwing<Living<true>>();
    check_throwing<Living<false>>();
    EXPECT_EQ(Living<true>::all.size() + Living<false>::all.size(), 0U);
}

struct Exhausted : xtsdictionary<int> {
    bool exhausted = false;
    void *OnAllocate(unsigned slots) override {
        if (exhausted) throw std::bad_alloc();
        return xtsdictionary<int>::OnAllocate(slots);
    }
};

TEST(Memory, ThatIsNotThereLeavesTheTableAsItWas) {
    Exhausted ours;
    for (int i = 0; i < 117; ++i)
        ours.set(std::to_string(i).c_str(), i);
    ours.exhausted = true;
    EXPECT_THROW(ours.set("new", 1), std::bad_alloc);
    EXPECT_FALSE(ours.haskey("new"));
    for (int i = 116; i > 10; --i)
        EXPECT_TRUE(ours.remove(std::to_string(i).c_str())) << "needs no memory";
    EXPECT_TRUE(ours.getcount() == 11 && ours.getsize() == 128);
    ours.exhausted = false;
    ours.set("new", 2);
    EXPECT_EQ(ours.getsize(), 64) << "shrinks with the next change";
}

}  // namespace
