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
template <class T>
void array_like_vector(dsXACtrl control, T (*make)(unsigned)) {
    SCOPED_TRACE(testing::Message() << "step " << control.step << ", exact " << control.exact);
    std::mt19937 random(2);
    dsArray<T> array(&control);
    std::vector<T> model;
    const unsigned step = control.step ? control.step : 256;
    unsigned capacity = 0;
    for (int round = 0; round < 700; ++round) {
        auto n = static_cast<unsigned>(random());
        if (random() % 8 == 0) {
            array.Resize(n % 500);
            model.resize(n % 500);
        } else if (!model.empty() && random() % 2) {
            unsigned index = n % static_cast<unsigned>(model.size());
            array[index] = model[index] = make(n);
            if (n % 3 == 0) {
                array.Append(array[index]);  // one of its own
                model.push_back(T(model[index]));
            }
        } else {
            array.Append(make(n));
            model.push_back(make(n));
        }
        auto size = static_cast<unsigned>(model.size()), rounded = (size + step - 1) / step * step;
        if (control.exact || rounded > capacity) capacity = rounded;
        ASSERT_EQ(array.GetCapacity(), capacity) << "size " << size << " in round " << round;
        ASSERT_TRUE(elements(array) == model) << "round " << round;
        ASSERT_TRUE(array.Contains(size - 1) == (size > 0) && !array.Contains(size));
    }
    expect_moves(array);
    array.FreeArray();
    EXPECT_EQ(array.GetCapacity(), 0U);
    EXPECT_EQ(array.GetDataPtr(), nullptr);
    EXPECT_EQ(array.OptimizeSize(0), 0U);
    EXPECT_GE(array.OptimizeSize(0xFFFFFFFF), 0xFFFFFFFF - 256);
}

TEST(Arrays, BehaveAsAVector) {
    for (bool exact : {false, true})
        for (unsigned step : {0U, 1U, 7U, 64U}) {
            array_like_vector<int>({exact, step}, [](unsigned n) { return static_cast<int>(n); });
            array_like_vector<tracked>({exact, step}, [](unsigned n) { return tracked(int(n % 99)); });
        }
    EXPECT_EQ(tracked::all.size(), 0U);
}

TEST(Arrays, ReleaseWhatLeavesThem) {
    auto held = std::make_shared<int>(1);
    dsArray<std::shared_ptr<int>> array;
    for (int i = 0; i < 10; ++i)
        array.Append(held);
    array.Resize(4);
    EXPECT_EQ(held.use_count(), 5) << "the elements that left hold nothing";
    struct scalar {
        int value = 7;
    };
    dsStraightArray<scalar> scalars;
    scalars.Resize(3);
    scalars[2].value = 1;
    scalars.Resize(1);
    scalars.Resize(3);
    EXPECT_EQ(scalars[2].value, 7) << "new elements have their default value, also where others were before";
    dsArray<std::unique_ptr<int>> owners;
    for (int i = 0; i < 300; ++i)
        owners.Append(std::make_unique<int>(i));
    EXPECT_EQ(*owners[299], 299);
}

// What is wrongly asked of a container is reported, and answered with a default value.
TEST(Reports, SayWhatWasAsked) {
    internal_errors errors;
    dsArray<int> array;
    array.Append(1);
    int value = 5;
    EXPECT_FALSE(array.Add(0, 1) || array.Remove(0) || array.Find(0, value));
    array[1] = 77;
    EXPECT_EQ(array[1], 0) << "not what was written to it before";
    dsStringMap<int> map;
    map["absent"] = 5;
    EXPECT_TRUE(std::as_const(map)["absent"] == 0 && !map.Contains("absent"));
    dsList2<int> list;
    EXPECT_EQ(list.Pop(), 0);
    const std::string index = "dsArray::operator [] failed (containers/dsarray); ",
                      key = "dsSortedMap::operator [] failed (containers/dssorted); ";
    EXPECT_EQ(errors.take(),
              "dsDataMap::Add () (containers/dsarray); dsDataMap::Remove () (containers/dsarray); "
              "dsDataMap::Find () (containers/dsarray); " +
                  index + index + key + key + "dsList2::Pop () (containers/dslist)");
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
    EXPECT_TRUE(dsIter<int>().Current() == 0 && walks[0].Reproduce() == nullptr);
    EXPECT_EQ(errors.take(), "dsIter::Current (containers/dsiter); dsIter::Reproduce (containers/dsiter)");
    dsArrayIter<int> walked(array);
    walked.MoveToNext();
    EXPECT_EQ(std::unique_ptr<dsBaseIter<int>>(walked.Reproduce())->Current(), 1) << "from the first again";
}

// Sets -----------------------------------------------------------------------------------------

// Keys in descending order; counts what passes through CopyKey and FreeKey.
class descending_set : public dsSortedSet<tracked> {
public:
    using dsSortedSet<tracked>::dsSortedSet;
    ~descending_set() override { Clear(); }
    int Compare(tracked a, tracked b) const override { return (a < b) - (a > b); }
    std::multiset<int> stored;
    bool refuse = false;

protected:
    tracked CopyKey(tracked key) override {
        if (refuse) throw std::runtime_error("no copy");
        stored.insert(key);
        return key;
    }
    void FreeKey(tracked key) override {
        auto found = stored.find(key);
        ASSERT_NE(found, stored.end());
        stored.erase(found);
    }
};

TEST(Sets, PassTheirKeysThroughCopyAndFree) {
    std::mt19937 random(3);
    for (bool exact : {false, true}) {
        dsXACtrl control{exact, 3};
        descending_set set(&control);
        std::set<int, std::greater<>> model;
        for (int round = 0; round < 1500; ++round) {
            int key = static_cast<int>(random() % 300);
            if (round % 500 == 499) {
                set.Clear();
                model.clear();
            } else if (random() % 3) {
                ASSERT_EQ(set += key, model.insert(key).second);
            } else {
                ASSERT_EQ(set -= key, model.erase(key) == 1);
            }
            ASSERT_EQ(set.Contains(key), model.count(key) == 1);
            ASSERT_EQ(set.stored.size(), model.size());
        }
        set.refuse = true;
        EXPECT_THROW(set.Add(1000), std::runtime_error);
        EXPECT_EQ(elements(set), std::vector<tracked>(model.begin(), model.end()));
    }
    EXPECT_EQ(tracked::all.size(), 0U);
}

template <class T, class Next>
void scalars_like_set(Next next, const std::vector<T> &order) {
    dsScalarSet<T> set;
    auto below = [](T a, T b) { return std::make_unsigned_t<T>(a) < std::make_unsigned_t<T>(b); };
    std::set<T, decltype(below)> model;
    for (T key : order)
        ASSERT_EQ(set += key, model.insert(key).second);
    for (int round = 0; round < 8000; ++round) {
        T key = next();
        if (round % 2)
            ASSERT_EQ(set += key, model.insert(key).second);
        else
            ASSERT_EQ(set.Remove(key), model.erase(key) == 1);
    }
    const std::vector<T> all(model.begin(), model.end());
    ASSERT_EQ(elements(set), all);
    for (int i = 0; i < 2000; ++i) {
        const T key = next();
        const auto place = std::ranges::lower_bound(all, key, below);
        const bool there = place != all.end() && *place == key;
        unsigned index = 0;
        ASSERT_EQ(set.FindIndex(key, index), there);
        ASSERT_EQ(set.Contains(key), there);
        ASSERT_EQ(index, static_cast<unsigned>(place - all.begin()));
    }
    expect_moves(set);
}

TEST(Sets, OfScalarsBehaveAsASetOfUnsignedNumbers) {
    std::mt19937_64 random(4);
    for (unsigned range : {50U, 3000U, 100000U}) {
        auto next = [&] { return static_cast<int>(random() % range) - static_cast<int>(range / 2); };
        std::vector<int> order(range / 2);
        std::iota(order.begin(), order.end(), 0);
        scalars_like_set<int>(next, order);
        std::reverse(order.begin(), order.end());
        scalars_like_set<int>(next, order);
        std::shuffle(order.begin(), order.end(), random);
        scalars_like_set<int>(next, order);
    }
    scalars_like_set<signed char>([&] { return static_cast<signed char>(random()); }, {});

    int place[3];
    dsScalarSet<int *> pointers;
    EXPECT_TRUE((pointers += &place[2]) && (pointers += &place[0]) && !(pointers += &place[2]));
    EXPECT_EQ(*pointers.begin(), &place[0]);
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
    for (unsigned key : keys)
        ASSERT_EQ(map[key], static_cast<int>(key / 2));
    tracked::copies = 0;
    for (unsigned left = map.GetSize(); left > 0; --left)
        ASSERT_TRUE(map.GetSize() == left && map.Remove(keys[left - 1]));
    EXPECT_LT(tracked::copies, 10'000'000);
    EXPECT_TRUE(map.IsEmpty() && map.begin() == map.end());
}

TEST(Sets, MayChangeUnderAWalk) {
    std::mt19937 random(6);
    dsScalarSet<unsigned> set;
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 1500; ++i)
            set += static_cast<unsigned>(random());
        unsigned steps = 0;
        for (dsIter<unsigned> iter = set.GetIter(); !iter.Finished(); iter.MoveToNext()) {
            unsigned present = iter.Current();
            EXPECT_TRUE(set.Contains(present));
            if (random() % 4 == 0) set -= present;
            if (random() % 8 == 0) set += static_cast<unsigned>(random());
            ASSERT_LT(++steps, 100000U) << "the walk ends";
        }
    }
}

// Maps -----------------------------------------------------------------------------------------

TEST(Maps, BehaveAsAMapOfTexts) {
    std::mt19937 random(8);
    for (unsigned range : {40U, 5000U}) {
        dsStringMap<xstring> map;
        std::map<std::string, std::string> model;
        for (int round = 0; round < 12000; ++round) {
            std::string key = "k" + std::to_string(random() % range), value = std::to_string(round);
            xstring found("before");
            const auto action = random() % 4;
            const bool there = model.count(key) == 1;
            if (action < 2) {
                ASSERT_EQ(map.Add(key.c_str(), value.c_str()), model.emplace(key, value).second);
            } else if (action == 2) {
                ASSERT_EQ(map.Remove(key.c_str()), model.erase(key) == 1);
            } else {
                ASSERT_EQ(map.Find(key.c_str(), found), there);
                ASSERT_STREQ(found, there ? model[key].c_str() : "before");
                if (there) map[key.c_str()] = (model[key] = value).c_str();
            }
            ASSERT_EQ(map.Contains(key.c_str()), model.count(key) == 1);
        }
        dsSortedMapIter<xstring, const char *> iter(map);
        auto entry = map.begin();
        for (auto &[key, value] : model) {
            ASSERT_STREQ(iter.CurrentKey(), key.c_str());
            ASSERT_STREQ(iter.Current(), value.c_str());
            ASSERT_STREQ(entry->value, value.c_str());
            iter.MoveToNext();
            ++entry;
        }
        EXPECT_TRUE(iter.Finished() && entry == map.end());
        dsStringMap<xstring> moved;
        moved.Add("gone", xstring("gone"));
        moved = std::move(map);
        EXPECT_EQ(moved.GetSize(), model.size());
        EXPECT_FALSE(moved.Contains("gone"));
    }
}

TEST(Maps, OwnTheirKeysOrKeepTheCallers) {
    char key[] = "b";
    dsStringMap<int> owner;
    dsNonOwnerStringMap<int> keeper;
    for (auto *text : std::initializer_list<const char *>{key, "a", "\xFF", nullptr, ""})
        EXPECT_TRUE(owner.Add(text, 1) && keeper.Add(text, 1));
    EXPECT_FALSE(owner.Add(nullptr, 9) || owner.Add("", 9));
    key[0] = 'c';
    std::string owners, keepers;
    for (auto &entry : owner)
        owners += entry.key ? entry.key : "null";
    for (auto &entry : keeper)
        keepers += entry.key ? entry.key : "null";
    EXPECT_EQ(owners + keepers, "nullab\xFFnullac\xFF");
}

// Lists ----------------------------------------------------------------------------------------

TEST(Lists, BehaveAsADeque) {
    std::mt19937 random(9);
    dsList2<tracked> list(dsList2<tracked>::LastInFirstOut);
    std::deque<int> model;
    for (int round = 0; round < 20000; ++round) {
        const auto action = random() % 6;
        const bool first = list.GetTakeOrder() == 0;
        if (action == 0) {
            list.PushHead(round);
            model.push_front(round);
        } else if (action < 3) {
            list.Push(round);
            model.push_back(round);
        } else if (action == 3) {
            if (random() % 9 == 0) list.SetTakeOrder(static_cast<int>(random() % 3));
        } else if (!model.empty()) {
            ASSERT_EQ(list.Pop(), first ? model.front() : model.back());
            first ? model.pop_front() : model.pop_back();
        }
        ASSERT_EQ(list.GetSize(), model.size());
    }
    for (int i = 0; i < 50; ++i) {
        list.Push(i);
        model.push_back(i);
    }
    EXPECT_EQ(elements(list), std::vector<tracked>(model.begin(), model.end()));
    dsList2Iter<tracked> back(list);
    back.SetAtLast();
    for (auto at = model.rbegin(); at != model.rend(); ++at, back.MoveToPrevious())
        ASSERT_EQ(back.Current(), *at);
    EXPECT_TRUE(back.Finished());
    list.Unlink(list.GetHead());
    list.Unlink(list.GetHead()->next);
    EXPECT_TRUE(!list.GetHead()->previous && list.GetHead()->next->value == model[3]);
    expect_moves(list);
    list.Push(1);
    list.Clear();
    EXPECT_EQ(tracked::all.size(), 0U);
    dsList2<std::unique_ptr<int>> huge;  // of what can only be moved; deleted without recursion
    for (int i = 0; i < 300000; ++i)
        huge.Push(nullptr);
}

}  // namespace
