// The container templates against the standard ones, driven at random; how arrays grow; and that every
// element is constructed and destroyed once.
#include <algorithm>
#include <deque>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include <kelstdmt/containers.h>

#include "services/living.h"
#include "services/observing.h"

namespace {

using tracked = Living<false>;

// The elements as both walks see them.
template <class Container>
auto elements(Container &ours) {
    std::vector<typename std::iterator_traits<decltype(ours.begin())>::value_type> all(ours.begin(),
                                                                                       ours.end());
    EXPECT_TRUE(ours.GetSize() == all.size() && ours.IsEmpty() == all.empty());
    auto iter = ours.GetIter();
    for (auto at = all.begin(); at != all.end(); ++at, iter.MoveToNext())
        EXPECT_TRUE(!iter.Finished() && iter.Current() == *at) << "element " << at - all.begin();
    EXPECT_TRUE(iter.Finished());
    return all;
}

// Moving leaves an empty container behind, and what the target held before has gone.
template <class Container>
void expect_moves(Container &ours) {
    auto before = elements(ours);
    Container moved(std::move(ours));
    EXPECT_EQ(elements(moved), before);
    EXPECT_TRUE(elements(ours).empty());  // NOLINT: moved from
    moved = std::move(ours = std::move(moved));
    EXPECT_EQ(elements(moved), before);
    moved = std::move(ours);
    EXPECT_TRUE(elements(moved).empty());
}

// Arrays ---------------------------------------------------------------------------------------

// Capacities follow the step: up as a rule, and down only where the control says exact.
TEST(Arrays, BehaveAsAVector) {
    std::mt19937 random(2);
    for (dsXACtrl control : {dsXACtrl{}, {false, 7}, {true, 0}, {true, 7}}) {
        SCOPED_TRACE(testing::Message() << "step " << control.step << ", exact " << control.exact);
        dsArray<tracked> array(&control);
        std::vector<int> model;
        const unsigned step = control.step ? control.step : 256;
        unsigned capacity = 0;
        for (int round = 0; round < 700; ++round) {
            const auto n = static_cast<unsigned>(random());
            const int value = static_cast<int>(n % 99);
            if (random() % 8 == 0) {
                array.Resize(n % 500);
                model.resize(n % 500);
            } else if (!model.empty() && random() % 2) {
                const unsigned index = n % static_cast<unsigned>(model.size());
                array[index] = model[index] = value;
                array.Append(array[index]);  // one of its own
                model.push_back(value);
            } else {
                array.Append(value);
                model.push_back(value);
            }
            const auto size = static_cast<unsigned>(model.size()), rounded = (size + step - 1) / step * step;
            if (control.exact || rounded > capacity) capacity = rounded;
            ASSERT_EQ(array.GetCapacity(), capacity) << "size " << size << " in round " << round;
            ASSERT_TRUE(
                std::ranges::equal(elements(array), model, {}, [](const tracked &e) { return int{e}; }))
                << "round " << round;
        }
        expect_moves(array);
        EXPECT_GE(array.OptimizeSize(0xFFFFFFFF), 0xFFFFFFFF - 256);
    }
    EXPECT_TRUE(tracked::all.empty());
}

TEST(Arrays, ReleaseWhatLeavesThem) {
    auto held = std::make_shared<int>(1);
    dsArray<std::shared_ptr<int>> array;
    for (int i = 0; i < 10; ++i)
        array.Append(held);
    array.Resize(4);
    EXPECT_EQ(held.use_count(), 5) << "the elements that left hold nothing";
    dsStraightArray<int> numbers;
    numbers.Append(1);
    numbers.Resize(0);
    numbers.Resize(1);
    EXPECT_EQ(numbers[0], 0) << "the default value, also where another was before";
}

// What is wrongly asked of a container is reported, and answered with a default value.
TEST(Reports, SayWhatWasAsked) {
    internal_errors errors;
    dsArray<int> array;
    array.Append(1);
    array[1] = 77;
    EXPECT_EQ(array[1], 0) << "not what was written to it before";
    dsStringMap<int> map;
    EXPECT_TRUE(std::as_const(map)["absent"] == 0 && !map.Contains("absent"));
    dsList2<int> list;
    EXPECT_EQ(list.Pop(), 0);
    const std::string index = "dsArray::operator [] failed (containers/dsarray); ";
    EXPECT_EQ(
        errors.take(),
        index + index +
            "dsSortedMap::operator [] failed (containers/dssorted); dsList2::Pop () (containers/dslist)");
    map.Add("a", 1);
    list.Push(1);
    dsScalarSet<int> set;
    set += 1;
    dsIter<int> walks[] = {array.GetIter(), map.GetIter(), set.GetIter(), list.GetIter()};
    for (dsIter<int> &walk : walks) {
        walk.MoveToNext();
        walk.MoveToNext();
        EXPECT_TRUE(walk.Finished() && walk.Current() == 0);
        EXPECT_NE(errors.take().find("Iter::Current (containers/ds"), std::string::npos);
        walk.SetAtFirst();
        EXPECT_EQ(walk.Current(), 1);
    }
}

// Sets -----------------------------------------------------------------------------------------

// Numbers in the order of the unsigned ones, of which some come in the given order.
void scalars_like_set(unsigned range, const std::vector<int> &order) {
    std::mt19937 random(4);
    const auto next = [&] { return static_cast<int>(random() % range) - static_cast<int>(range / 2); };
    dsScalarSet<int> set;
    const auto below = [](int a, int b) { return static_cast<unsigned>(a) < static_cast<unsigned>(b); };
    std::set<int, decltype(below)> model;
    for (int key : order)
        ASSERT_EQ(set += key, model.insert(key).second);
    for (int round = 0; round < 8000; ++round) {
        const int key = next();
        if (round % 2)
            ASSERT_EQ(set += key, model.insert(key).second);
        else
            ASSERT_EQ(set -= key, model.erase(key) == 1);
    }
    const std::vector<int> all(model.begin(), model.end());
    ASSERT_EQ(elements(set), all);
    for (int i = 0; i < 2000; ++i) {
        const int key = next();
        const auto place = std::ranges::lower_bound(all, key, below) - all.begin();
        unsigned index = 0;
        ASSERT_EQ(set.FindIndex(key, index), model.count(key) == 1);
        ASSERT_EQ(index, static_cast<unsigned>(place));
    }
    expect_moves(set);
}

TEST(Sets, OfScalarsBehaveAsASetOfUnsignedNumbers) {
    for (unsigned range : {50U, 3000U, 100000U}) {
        std::vector<int> order(range / 2);
        std::iota(order.begin(), order.end(), 0);
        scalars_like_set(range, order);
        std::reverse(order.begin(), order.end());
        scalars_like_set(range, order);
        std::shuffle(order.begin(), order.end(), std::mt19937(4));
        scalars_like_set(range, order);
    }
}

// Appending one by one, and adding and removing in random order, cost far less than moving all each time.
TEST(Containers, DoNotMoveAllElementsForEach) {
    dsXACtrl control{false, 1};
    dsArray<tracked> array(&control);
    tracked::copies = 0;
    for (int i = 0; i < 20000; ++i)
        array.Append(i);
    EXPECT_LT(tracked::copies, 150'000);
    std::mt19937 random(5);
    dsSortedMap<tracked, unsigned> map;
    std::vector<unsigned> keys(20000);  // a plain array would move 100 million elements
    std::generate(keys.begin(), keys.end(), std::ref(random));
    tracked::copies = 0;
    for (unsigned key : keys)
        map.Add(key, static_cast<int>(key / 2));
    EXPECT_LT(tracked::copies, 10'000'000);
    tracked::copies = 0;
    for (unsigned left = map.GetSize(); left > 0; --left)
        ASSERT_TRUE(map.GetSize() == left && map.Remove(keys[left - 1]));
    EXPECT_LT(tracked::copies, 10'000'000);
}

TEST(Sets, MayChangeUnderAWalk) {
    std::mt19937 random(6);
    dsScalarSet<unsigned> set;
    for (int i = 0; i < 5000; ++i)
        set += static_cast<unsigned>(random());
    unsigned steps = 0;
    for (dsIter<unsigned> iter = set.GetIter(); !iter.Finished(); iter.MoveToNext()) {
        const unsigned present = iter.Current();
        EXPECT_TRUE(set.Contains(present));
        if (random() % 4 == 0) set -= present;
        if (random() % 8 == 0) set += static_cast<unsigned>(random());
        ASSERT_LT(++steps, 100000U) << "the walk ends";
    }
}

// Maps -----------------------------------------------------------------------------------------

// Also an exact one, which gives memory back at once.
TEST(Maps, BehaveAsAMapOfTexts) {
    std::mt19937 random(8);
    for (auto [range, control] : {std::pair(40U, dsXACtrl{}), {5000U, {}}, {300U, {true, 3}}}) {
        dsStringMap<tracked> map(&control), moved;
        std::map<std::string, int> model;
        for (int round = 0; round < 12000; ++round) {
            const std::string key = "k" + std::to_string(random() % range);
            const auto action = random() % 4;
            const bool there = model.count(key) == 1;
            tracked found(-5);
            if (action < 2) {
                ASSERT_EQ(map.Add(key.c_str(), round), model.emplace(key, round).second);
            } else if (action == 2) {
                ASSERT_EQ(map.Remove(key.c_str()), model.erase(key) == 1);
            } else {
                ASSERT_EQ(map.Find(key.c_str(), found), there);
                ASSERT_EQ(found, there ? model[key] : -5);
                if (there) map[key.c_str()] = model[key] = round;
            }
        }
        dsSortedMapIter<tracked, const char *> iter(map);
        for (auto &[key, value] : model) {
            ASSERT_TRUE(key == iter.CurrentKey() && iter.Current() == value) << key;
            iter.MoveToNext();
        }
        EXPECT_TRUE(iter.Finished());
        moved.Add("gone", 0);
        moved = std::move(map);
        EXPECT_TRUE(moved.GetSize() == model.size() && !moved.Contains("gone"));
    }
    EXPECT_TRUE(tracked::all.empty());
}

struct Refusing : dsStringMap<int> {
    const char *CopyKey(const char *) override { throw std::runtime_error("no copy"); }
};

TEST(Maps, AreAsTheyWereWithoutACopyOfTheKey) {
    Refusing map;
    EXPECT_THROW(map.Add("a", 1), std::runtime_error);
    EXPECT_TRUE(map.IsEmpty() && !map.Contains("a"));
}

TEST(Maps, OwnTheirKeysOrKeepTheCallers) {
    char key[] = "b";
    dsStringMap<int> owner;
    dsNonOwnerStringMap<int> keeper;
    for (auto *text : std::initializer_list<const char *>{key, "a", "\xFF", nullptr, ""})
        EXPECT_TRUE(owner.Add(text, 1) && keeper.Add(text, 1));
    EXPECT_FALSE(owner.Add(nullptr, 9) || owner.Add("", 9));
    key[0] = 'c';
    const auto keys = [](auto &map) {
        std::string all;
        for (auto &entry : map)
            all += entry.key ? entry.key : "null";
        return all;
    };
    EXPECT_EQ(keys(owner) + keys(keeper), "nullab\xFFnullac\xFF");
}

// Lists ----------------------------------------------------------------------------------------

TEST(Lists, BehaveAsADeque) {
    std::mt19937 random(9);
    dsList2<tracked> list;
    std::deque<int> model;
    for (int round = 0; round < 20000; ++round) {
        const auto action = random() % 5;
        const bool first = round % 3000 < 1500;
        if (action == 0) {
            list.PushHead(round);
            model.push_front(round);
        } else if (action < 3) {
            list.Push(round);
            model.push_back(round);
        } else if (!model.empty()) {
            list.SetTakeOrder(first ? 0 : 2);
            ASSERT_EQ(list.Pop(), first ? model.front() : model.back());
            first ? model.pop_front() : model.pop_back();
        }
        ASSERT_EQ(list.GetSize(), model.size());
    }
    EXPECT_EQ(elements(list), std::vector<tracked>(model.begin(), model.end()));
    dsList2Iter<tracked> back(list);
    back.SetAtLast();
    for (auto at = model.rbegin(); at != model.rend(); ++at, back.MoveToPrevious())
        ASSERT_EQ(back.Current(), *at);
    EXPECT_TRUE(back.Finished());
    expect_moves(list);
    EXPECT_EQ(tracked::all.size(), 0U);
}

}  // namespace
