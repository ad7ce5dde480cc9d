// Dictionaries against a slow table that is written straight from the rules, slot by slot; and values,
// exceptions and the typed interface.
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <stdexcept>

#include "observing.h"

namespace {

// The rules --------------------------------------------------------------------------------------

class Model {
public:
    explicit Model(xdictcontrol control) : m_control(control) {}

    struct Slot {
        bool removed = false;
        std::optional<std::string> key;
        int value = 0;
    };

    std::optional<unsigned> find(const std::string &key) const {
        for (unsigned i = 0; i < slots.size(); ++i) {
            const Slot &slot = slots[probe(key, i)];
            if (!slot.key && !slot.removed) break;
            if (slot.key == key) return probe(key, i);
        }
        return {};
    }
    bool set(const std::string &key, int value) {
        if (auto at = find(key)) {
            slots[*at].value = value;
            return true;
        }
        adjust();
        return add(key, value);
    }
    bool remove_slot(unsigned at) {
        if (at >= slots.size() || !slots[at].key) return false;
        slots[at] = {true, {}, 0};
        --count;
        adjust();
        return true;
    }
    void clear() {
        slots.clear();
        count = 0;
    }

    std::vector<Slot> slots;
    unsigned count = 0;
    unsigned rebuilds = 0;

private:
    unsigned probe(const std::string &key, unsigned i) const {
        auto s = [&](std::size_t at) { return static_cast<signed char>(key[at]); };
        const std::size_t length = key.size();
        const int x = length == 0 ? 0 : length < 3 ? s(0) : s(length / 2 + 1) ^ s(length - 2) ^ s(1);
        const int h1 = length == 0 ? 0 : s(length / 2) * s(length - 1) * s(0);
        const int h2 = length == 0 ? 1 : x * 2 + 1;
        return (static_cast<unsigned>(h2) * i + static_cast<unsigned>(h1)) %
               static_cast<unsigned>(slots.size());
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
        unsigned wanted = size;
        if (size == 0)
            wanted = 32;
        else if (count * 100 / size > m_control.high)
            wanted = size * 2;
        else if (size > 32 && count * 100 / (size / 2) < m_control.low && count <= size / 2)
            wanted = size / 2;
        if (wanted == size) return;
        ++rebuilds;
        auto old = std::exchange(slots, std::vector<Slot>(wanted));
        count = 0;
        for (const Slot &slot : old)
            if (slot.key) add(*slot.key, slot.value);
    }

    xdictcontrol m_control;
};

struct Ints : xtsdictionary<int> {
    using xtsdictionary<int>::xtsdictionary;
    using xbasedictionary::BaseFind, xbasedictionary::BaseRemoveByIndex;
    static constexpr unsigned slotsize = slot_size, offset = value_offset;
};

testing::AssertionResult same(Ints &ours, const Model &model) {
    if (ours.GetSlots() != model.slots.size() || ours.GetCount() != model.count)
        return testing::AssertionFailure() << ours.GetCount() << " in " << ours.GetSlots() << " slots, not "
                                           << model.count << " in " << model.slots.size();
    for (unsigned i = 0; i < model.slots.size(); ++i) {
        xstring key;
        int value = 0;
        const bool live = ours.getkeybyindex(static_cast<int>(i), key);
        ours.getbyindex(static_cast<int>(i), value);
        const Model::Slot &slot = model.slots[i];
        if (live != slot.key.has_value() || (live && (*slot.key != key.Str() || value != slot.value)))
            return testing::AssertionFailure() << "slot " << i << ": " << (live ? key.Str() : "none")
                                               << ", not " << slot.key.value_or("none");
    }
    return testing::AssertionSuccess();
}

using Random = std::mt19937;
using Shape = std::function<std::string(Random &)>;

std::string any_bytes(Random &random, std::size_t length) {
    std::string key(length, ' ');
    for (char &byte : key)
        byte = static_cast<char>(1 + random() % 255);
    return key;
}

const std::map<std::string, Shape> &shapes() {
    static const std::map<std::string, Shape> all = {
        {"0 to 4 bytes", [](Random &random) { return any_bytes(random, random() % 5); }},
        {"long, any bytes", [](Random &random) { return any_bytes(random, 5 + random() % 40); }},
        {"two letters",
         [](Random &random) {
             std::string key(random() % 14, 'a');
             for (char &byte : key)
                 byte = random() % 2 ? 'a' : '\xfe';
             return key;
         }},
        {"decimal", [](Random &random) { return std::to_string(random() % 20000); }},
        {"one way",
         [](Random &random) { return "/srv/data/file" + std::to_string(100000 + random() % 9000) + ".txt"; }},
        // One step, whose ways start anywhere and run into one another.
        {"one step",
         [](Random &random) {
             return any_bytes(random, 1) + "/////" + std::to_string(1000 + random() % 3000) + "//.a";
         }},
        // Backwards, in steps of 255.
        {"backwards",
         [](Random &random) {
             return "\x81"
                    "\x01" +
                    std::to_string(10000 + random() % 9000) +
                    "\x01\x80"
                    "a";
         }},
    };
    return all;
}

// Sets, finds and removes at random, mostly growing, then mostly keeping the count, then shrinking.
void follow(const std::string &name, xdictcontrol control, unsigned seed, int steps) {
    SCOPED_TRACE(name + ", control " + std::to_string(control.low) + "/" + std::to_string(control.high));
    const Shape &shape = shapes().at(name);
    Random random(seed);
    Model model(control);
    Ints ours(&control);
    internal_errors errors;
    std::vector<std::string> used;
    for (int step = 0; step < steps; ++step) {
        const unsigned rebuilds = model.rebuilds;
        const int phase = step * 4 / steps;
        const std::string key =
            !used.empty() && random() % 3 == 0 ? used[random() % used.size()] : shape(random);
        const auto at = model.find(key);
        if (random() % 8 < (phase == 0 ? 7U : phase == 3 ? 2U : 4U)) {
            const bool fits = model.set(key, step);
            ours.set(key.c_str(), step);
            EXPECT_EQ(errors.take(), fits ? "" : "Hash table overflow. (services/kelbdict)");
            used.push_back(key);
        } else if (random() % 2) {
            ASSERT_EQ(ours.remove(key.c_str()), at.has_value()) << key;
            if (at) model.remove_slot(*at);
        } else if (!model.slots.empty()) {
            // By number, at a live slot as a rule.
            auto number = static_cast<unsigned>(random() % model.slots.size());
            for (unsigned i = 0; i < 8 && !model.slots[number].key; ++i)
                number = static_cast<unsigned>((number + 1) % model.slots.size());
            if (!used.empty() && random() % 2)
                number = model.find(used[random() % used.size()]).value_or(number);
            ASSERT_EQ(ours.removebyindex(static_cast<int>(number)), model.remove_slot(number)) << number;
        }
        int value = -1;
        const auto now = model.find(key);
        ASSERT_EQ(ours.find(key.c_str(), value), now.has_value()) << key;
        if (now) {
            ASSERT_EQ(value, model.slots[*now].value);
        }
        if (model.rebuilds != rebuilds || model.slots.size() <= 32 || step % 64 == 0 || step == steps - 1) {
            ASSERT_TRUE(same(ours, model)) << "after step " << step;
        }
        if (step == steps / 2 && seed % 2) {
            model.clear();
            ours.clear();
        }
    }
}

TEST(Slots, FollowTheRules) {
    for (const auto &[name, shape] : shapes()) {
        follow(name, {}, 1, 3000);
        follow(name, {}, 2, 8000);
    }
}

// Full tables, tables that swing between two sizes, and tables that are nearly empty.
TEST(Slots, FollowTheControl) {
    for (xdictcontrol control : {xdictcontrol{70, 100}, {0, 200}, {95, 90}, {300, 90}, {10, 50}, {1, 3}})
        for (const auto &[name, shape] : shapes())
            follow(name, control, 5, 700);
}

// The table keeps its size, so that freed slots far and near are taken again for long.
TEST(Slots, AreTakenAgain) {
    for (const char *name : {"one way", "one step", "decimal", "backwards"}) {
        SCOPED_TRACE(name);
        const Shape &shape = shapes().at(name);
        Random random(3);
        Model model({});
        Ints ours;
        std::vector<std::string> keys;
        for (int step = 0; step < 9000; ++step) {
            if (keys.size() > 2600) {
                const std::size_t which = random() % 4 ? random() % keys.size() : 0;
                model.remove_slot(*model.find(keys[which]));
                ASSERT_TRUE(ours.remove(keys[which].c_str()));
                keys.erase(keys.begin() + static_cast<long>(which));
            }
            const std::string key = shape(random);
            if (model.find(key)) continue;
            keys.push_back(key);
            model.set(key, step);
            ours.set(key.c_str(), step);
            if (step % 500 == 0) {
                ASSERT_TRUE(same(ours, model)) << "after step " << step;
            }
        }
        EXPECT_TRUE(same(ours, model));
    }
}

TEST(Slots, OfATableThatIsKnown) {
    Ints ours;
    EXPECT_EQ(ours.GetSlots(), 0U);
    int value = 0;
    EXPECT_FALSE(ours.find("", value));
    ours.set("", 1);
    EXPECT_EQ(ours.GetSlots(), 32U);
    xstring key;
    ASSERT_TRUE(ours.getkeybyindex(0, key));
    EXPECT_STREQ(key.Str(), "");
    for (int i = 1; i < 30; ++i)
        ours.set(std::to_string(i).c_str(), i);
    EXPECT_EQ(ours.GetSlots(), 32U);
    ours.set("30", 30);
    EXPECT_EQ(ours.GetSlots(), 64U);
    for (int i = 1; i <= 30; ++i)
        EXPECT_TRUE(ours.haskey(std::to_string(i).c_str())) << i;
    for (int i = 30; i >= 23; --i)
        EXPECT_TRUE(ours.remove(std::to_string(i).c_str()));
    EXPECT_EQ(ours.GetCount(), 23U);
    EXPECT_EQ(ours.GetSlots(), 64U);
    EXPECT_TRUE(ours.remove("22"));
    EXPECT_EQ(ours.GetSlots(), 32U);
}

// Keys -------------------------------------------------------------------------------------------

TEST(Keys, AreTheTablesOwn) {
    for (int keys : {5, 500}) {
        Ints ours;
        for (int i = 0; i < keys; ++i) {
            char buffer[32];
            std::snprintf(buffer, sizeof buffer, "the key %d", i);
            ours.set(buffer, i);
            std::memset(buffer, 'x', sizeof buffer - 1);
        }
        EXPECT_FALSE(ours.haskey("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"));
        // Keys that the table holds serve as arguments, also while it is rebuilt around them.
        for (int round = 0; ours.getcount() != 0; ++round) {
            const char *own = (*ours.begin()).key;
            const std::string key = own;
            if (round < 2 * keys) {
                ours.set(own, -1);
                int value = 0;
                EXPECT_TRUE(ours.find(own, value) && value == -1);
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
    for (bool filled : {false, true}) {
        if (filled) ours.set("real", 1);
        for (const char *key : {static_cast<const char *>(nullptr), kel::nil_text(), kel::uninit_text()}) {
            ours.set(key, 5);
            EXPECT_EQ(errors.take(), "A dictionary's key must be a text. (services/kelbdict)");
            int value = 9;
            EXPECT_FALSE(ours.find(key, value) || ours.haskey(key) || ours.remove(key));
            EXPECT_EQ(value, 9);
        }
        EXPECT_EQ(ours.getcount(), filled ? 1 : 0);
    }
}

// Slot numbers of callers ------------------------------------------------------------------------

TEST(Numbers, AreChecked) {
    Ints ours;
    xstring key("untouched");
    int value = 9;
    for (int slots : {0, 32}) {
        EXPECT_EQ(ours.getsize(), slots);
        for (int beyond : {slots, slots + 1, INT_MAX}) {
            EXPECT_FALSE(ours.getkeybyindex(beyond, key) || ours.getbyindex(beyond, value));
            auto error = thrown_by<kelXInvalidDictIndex>([&] { ours.setbyindex(beyond, 1); });
            EXPECT_EQ(error->getIndex(), beyond);
            thrown_by<kelXInvalidDictIndex>([&] { ours.removebyindex(beyond); });
        }
        for (int below : {-1, INT_MIN}) {
            auto error = thrown_by<kelXNegativeIndex>([&] { ours.getkeybyindex(below, key); });
            EXPECT_EQ(error->getIndex(), below);
            thrown_by<kelXNegativeIndex>([&] { ours.getbyindex(below, value); });
            thrown_by<kelXNegativeIndex>([&] { ours.setbyindex(below, 1); });
            thrown_by<kelXNegativeIndex>([&] { ours.removebyindex(below); });
        }
        ours.set("", 3);
    }
    EXPECT_FALSE(ours.getkeybyindex(5, key) || ours.getbyindex(5, value) || ours.setbyindex(5, 1) ||
                 ours.removebyindex(5));
    EXPECT_STREQ(key.Str(), "untouched");
    EXPECT_EQ(value, 9);
    EXPECT_TRUE(ours.setbyindex(0, 4) && ours.getbyindex(0, value));
    EXPECT_EQ(value, 4);
    EXPECT_TRUE(ours.BaseGetByIndex(0, nullptr, Ints::slotsize, Ints::offset));
    EXPECT_TRUE(ours.BaseGetKeyByIndex(0, nullptr, Ints::slotsize, Ints::offset));
    EXPECT_TRUE(ours.removebyindex(0));
    EXPECT_FALSE(ours.getkeybyindex(0, key)) << "a removed slot";
}

TEST(Entries, AreWalkedInSlotOrder) {
    xtcdictionary<xstring> ours;
    EXPECT_TRUE(ours.begin() == ours.end());
    Random random(8);
    for (int i = 0; i < 200; ++i)
        ours.set(any_bytes(random, 6).c_str(), xstring(std::to_string(i).c_str()));
    int last = -1, seen = 0;
    for (auto [key, value] : ours) {
        xstring there;
        do {
            ++last;
        } while (!ours.getkeybyindex(last, there));
        EXPECT_STREQ(there.Str(), key);
        value += "!";
        ++seen;
    }
    EXPECT_EQ(seen, ours.getcount());
    for (auto item : ours)
        EXPECT_EQ(std::strchr(item.value.Str(), '!'), item.value.Str() + std::strlen(item.value.Str()) - 1);
}

// Values -----------------------------------------------------------------------------------------

// Knows how many live, and throws when told to.
struct Value {
    static inline int living = 0, copies = 0, until_throw = -1;
    static void may_throw() {
        if (until_throw >= 0 && until_throw-- == 0) throw std::runtime_error("told to");
    }

    Value() {
        may_throw();
        text = new std::string;
        ++living;
    }
    Value(const char *from) : text(new std::string(from)) { ++living; }
    Value(const Value &other) : text(new std::string(*other.text)) {
        ++copies;
        ++living;
    }
    Value &operator=(const Value &other) {
        may_throw();
        ++copies;
        *text = *other.text;
        return *this;
    }
    Value &operator=(Value &&other) noexcept {
        std::swap(text, other.text);
        return *this;
    }
    ~Value() {
        delete text;
        --living;
    }
    std::string *text;
};

// Its moves are copies.
struct HeavyValue : Value {
    using Value::Value;
    HeavyValue &operator=(const HeavyValue &other) {
        Value::operator=(static_cast<const Value &>(other));
        return *this;
    }
    HeavyValue(const HeavyValue &) = default;
};

template <class T>
std::map<std::string, std::string> contents(xtcdictionary<T> &dictionary) {
    std::map<std::string, std::string> all;
    for (auto [key, value] : dictionary) {
        all[key] = *value.text;
        T found;
        EXPECT_TRUE(dictionary.find(key, found));
        EXPECT_EQ(*found.text, *value.text);
    }
    EXPECT_EQ(static_cast<int>(all.size()), dictionary.getcount());
    return all;
}

TEST(Values, AreMovedAndGivenBack) {
    {
        xtcdictionary<Value> ours;
        Value::copies = 0;
        const Value one("one");
        for (int i = 0; i < 1000; ++i)
            ours.BaseSet(std::to_string(i).c_str(), &one, sizeof(xdictentry<Value>),
                         xdictentry<Value>::offset);
        EXPECT_EQ(Value::copies, 1000) << "the table moves values when it grows";
        EXPECT_EQ(Value::living, ours.getsize() + 1) << "a value for each slot";
        EXPECT_TRUE(ours.remove("77"));
        EXPECT_EQ(Value::living, ours.getsize() + 1);
        for (auto [key, value] : ours)
            EXPECT_EQ(*value.text, "one") << key;
    }
    EXPECT_EQ(Value::living, 0);

    xtcdictionary<xstring> strings;
    strings.set("a", "shared");
    xstring before;
    strings.find("a", before);
    EXPECT_TRUE(strings.remove("a"));
    EXPECT_EQ(kel::detail::holders(before.Str()), 1U) << "a removed slot holds nothing";
}

// Values that hold objects refuse assignment; in a table they are replaced and given back all the same.
TEST(Values, OfAnyTypeAreReplaced) {
    internal_errors errors;
    xauto<xobject> held;
    xrcattach(&held);  // counted, so that every value that holds it shows
    xtcdictionary<xany> ours;
    for (int i = 0; i < 100; ++i)
        ours.set(std::to_string(i).c_str(), &held);
    EXPECT_EQ(xrcgetcount(&held), 101);
    for (int i = 0; i < 100; ++i) {
        if (i % 2 == 0)
            ours.set(std::to_string(i).c_str(), i);
        else
            EXPECT_TRUE(ours.remove(std::to_string(i).c_str()));
    }
    EXPECT_EQ(xrcgetcount(&held), 1);
    xany value;
    EXPECT_TRUE(ours.find("42", value) && value == xany(42));
    EXPECT_EQ(errors.take(), "");
}

// Whatever call throws: either all happened or nothing, and the table goes on.
template <class T>
void check_throwing() {
    for (int fuse = 0; fuse < 400; ++fuse) {
        xtcdictionary<T> ours;
        std::map<std::string, std::string> model;
        for (int i = 0; i < 117; ++i) {  // the next key doubles the table
            model[std::to_string(i)] = "old";
            ours.set(std::to_string(i).c_str(), "old");
        }
        bool thrown = false;
        auto attempt = [&](auto call, auto then) {
            Value::until_throw = fuse;
            try {
                call();
                then();
            } catch (const std::runtime_error &) {
                thrown = true;
            }
            Value::until_throw = -1;
            ASSERT_EQ(contents(ours), model);
            ASSERT_EQ(Value::living, ours.getsize());
        };
        const T value("new");
        const unsigned size = sizeof(xdictentry<T>), offset = xdictentry<T>::offset;
        auto put = [&](const char *key) {
            attempt([&] { ours.BaseSet(key, &value, size, offset); }, [&] { model[key] = "new"; });
        };
        --Value::living;  // `value`
        put("a key that is new");
        put("5");
        put("another");
        put("another");
        ++Value::living;
        if (!thrown) return;
    }
    FAIL() << "every attempt threw";
}

TEST(Values, ThatThrowLeaveTheTableAsItWas) {
    check_throwing<Value>();
    EXPECT_EQ(Value::living, 0);
    check_throwing<HeavyValue>();
    EXPECT_EQ(Value::living, 0);
}

// Memory -----------------------------------------------------------------------------------------

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
    EXPECT_EQ(ours.getcount(), 117);
    ours.set("7", 70);
    for (int i = 116; i > 10; --i)
        EXPECT_TRUE(ours.remove(std::to_string(i).c_str())) << "needs no memory";
    EXPECT_EQ(ours.getsize(), 128);
    ours.exhausted = false;
    ours.set("new", 2);
    EXPECT_EQ(ours.getsize(), 64) << "shrinks with the next change";
    int value = 0;
    EXPECT_TRUE(ours.find("7", value) && value == 70);
    EXPECT_TRUE(ours.find("new", value) && value == 2);
}

}  // namespace
