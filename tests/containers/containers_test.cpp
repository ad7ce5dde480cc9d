// The container templates against the standard ones, driven at random; how arrays grow; and that every
// element is constructed and destroyed once.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include <kelstdmt/containers.h>
#include <kelstdmt/xstring.h>

namespace {

// Collects the internal errors of its scope.
class reports {
public:
    reports() {
        seen().clear();
        m_before = btkSetAbortHandler([](const char *message, const char *source, int) {
            seen() += std::string(message) + "|" + source + "\n";
        });
    }
    ~reports() { btkSetAbortHandler(m_before); }
    std::string take() { return std::exchange(seen(), std::string()); }

private:
    static std::string &seen() {
        static std::string text;
        return text;
    }
    btkAbortHandler m_before;
};

// A value that knows whether it lives, and holds memory of its own.
class tracked {
public:
    tracked(int value = 0) : m_value(std::make_unique<int>(value)) { born(); }
    tracked(const tracked &other) : m_value(std::make_unique<int>(*other.m_value)) { born(); }
    tracked &operator=(const tracked &other) {
        EXPECT_TRUE(alive().count(this) && alive().count(&other));
        m_value = std::make_unique<int>(*other.m_value);
        ++assignments;
        return *this;
    }
    ~tracked() { EXPECT_EQ(alive().erase(this), 1U) << "destroyed twice, or never made"; }
    int value() const {
        EXPECT_TRUE(alive().count(this));
        return *m_value;
    }

    static std::size_t living() { return alive().size(); }
    static inline long assignments = 0;

private:
    void born() { EXPECT_TRUE(alive().insert(this).second) << "made twice in one place"; }
    static std::unordered_set<const tracked *> &alive() {
        static std::unordered_set<const tracked *> all;
        return all;
    }
    std::unique_ptr<int> m_value;
};

// Arrays ---------------------------------------------------------------------------------------

template <class T>
class open_array : public dsXArray<T> {
public:
    using dsXArray<T>::dsXArray;
    using dsXArray<T>::CopyElems;
    using dsXArray<T>::MoveElems;
};

TEST(Arrays, ShowTheCapacityOfTheirStep) {
    std::mt19937 random(1);
    for (bool exact : {false, true})
        for (unsigned step : {0U, 1U, 7U, 64U}) {
            dsXACtrl control{exact, step};
            dsArray<xstring> array(&control);
            unsigned real_step = step ? step : 256, capacity = 0;
            EXPECT_EQ(array.OptimizeSize(0), 0U);
            EXPECT_EQ(array.OptimizeSize(1), real_step);
            EXPECT_GE(array.OptimizeSize(0xFFFFFFFF), 0xFFFFFFFF - real_step);
            for (int round = 0; round < 200; ++round) {
                auto size = static_cast<unsigned>(random() % 600);
                array.Resize(size);
                unsigned rounded = (size + real_step - 1) / real_step * real_step;
                if (exact || size > capacity) capacity = rounded;
                ASSERT_EQ(array.GetCapacity(), capacity)
                    << "size " << size << ", step " << real_step << exact;
                ASSERT_EQ(array.GetSize(), size);
                ASSERT_EQ(array.IsEmpty(), size == 0);
            }
        }
    dsXACtrl control{false, 64};
    dsStraightArray<int> array(&control);
    for (int i = 0; i < 64; ++i)
        array.Append(i);
    EXPECT_EQ(array.GetCapacity(), 64U);
    array.Append(64);
    EXPECT_EQ(array.GetCapacity(), 128U);
    array.Resize(0);
    EXPECT_EQ(array.GetCapacity(), 128U) << "never shrinks";
    array.FreeArray();
    EXPECT_EQ(array.GetCapacity(), 0U);
    EXPECT_EQ(array.GetDataPtr(), nullptr);
}

template <class T>
void array_like_vector(bool exact, T (*make)(unsigned)) {
    std::mt19937 random(2);
    dsXACtrl control{exact, 5};
    dsArray<T> array(&control);
    std::vector<T> model;
    for (int round = 0; round < 3000; ++round) {
        auto n = static_cast<unsigned>(random());
        if (random() % 8 == 0) {
            array.Resize(n % 50);
            model.resize(n % 50);
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
        ASSERT_EQ(array.GetSize(), model.size());
        ASSERT_TRUE(std::equal(array.begin(), array.end(), model.begin())) << "round " << round;
    }
    std::size_t at = 0;
    for (dsIter<T> iter = array.GetIter(); !iter.Finished(); iter.MoveToNext())
        EXPECT_EQ(iter.Current(), model[at++]);
    EXPECT_EQ(at, model.size());
    EXPECT_TRUE(array.Contains(static_cast<unsigned>(at) - 1) && !array.Contains(static_cast<unsigned>(at)));
    dsArray<T> moved(std::move(array));
    EXPECT_EQ(moved.GetSize(), model.size());
    EXPECT_TRUE(array.IsEmpty());  // NOLINT: a moved-from array is empty
    array = std::move(moved);
    EXPECT_TRUE(std::equal(array.begin(), array.end(), model.begin(), model.end()));
}

TEST(Arrays, BehaveAsAVector) {
    for (bool exact : {false, true}) {
        array_like_vector<int>(exact, [](unsigned n) { return static_cast<int>(n); });
        array_like_vector<xstring>(exact, [](unsigned n) { return xstring(std::to_string(n).c_str()); });
        array_like_vector<std::string>(exact, [](unsigned n) { return std::string(n % 40, 'x'); });
    }
}

TEST(Arrays, MoveOverlappingRanges) {
    constexpr unsigned size = 12;
    for (unsigned from = 0; from < size; ++from)
        for (unsigned to = 0; to < size; ++to)
            for (unsigned n = 0; n + std::max(from, to) <= size; ++n)
                for (bool copy : {true, false}) {
                    open_array<tracked> array;
                    open_array<int> plain;
                    std::vector<int> model;
                    for (int i = 0; i < static_cast<int>(size); ++i) {
                        array.Append(i);
                        plain.Append(i);
                        model.push_back(i);
                    }
                    std::vector<int> before = model;
                    std::copy_n(before.begin() + from, n, model.begin() + to);
                    tracked *data = array.GetDataPtr();
                    copy ? array.CopyElems(data + from, data + to, n)
                         : array.MoveElems(data + from, data + to, n);
                    plain.CopyElems(plain.GetDataPtr() + from, plain.GetDataPtr() + to, n);
                    for (unsigned i = 0; i < size; ++i) {
                        ASSERT_EQ(array.GetDataPtr()[i].value(), model[i])
                            << n << " from " << from << " to " << to;
                        ASSERT_EQ(plain.GetDataPtr()[i], model[i]);
                    }
                }
    EXPECT_EQ(tracked::living(), 0U);
}

TEST(Arrays, ReleaseWhatLeavesThem) {
    auto held = std::make_shared<int>(1);
    dsArray<std::shared_ptr<int>> array;
    for (int i = 0; i < 10; ++i)
        array.Append(held);
    array.Resize(4);
    EXPECT_EQ(held.use_count(), 5);
    array.Resize(8);
    EXPECT_EQ(array[7], nullptr);
    array.FreeArray();
    EXPECT_EQ(held.use_count(), 1);
    struct scalar {
        int value = 7;
    };
    dsArray<scalar> scalars;
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

TEST(Arrays, ReportWhatTheyDoNotSupport) {
    reports seen;
    dsArray<int> array;
    array.Append(1);
    int value = 5;
    EXPECT_FALSE(array.Add(0, 1));
    EXPECT_FALSE(array.Remove(0));
    EXPECT_FALSE(array.Find(0, value));
    EXPECT_EQ(seen.take(),
              "dsDataMap::Add ()|containers/dsarray\ndsDataMap::Remove ()|containers/dsarray\n"
              "dsDataMap::Find ()|containers/dsarray\n");
    EXPECT_EQ(value, 5);
    array[1] = 77;
    EXPECT_EQ(array[1], 0) << "a default value, not what was written to it before";
    EXPECT_EQ(seen.take(),
              "dsArray::operator [] failed|containers/dsarray\n"
              "dsArray::operator [] failed|containers/dsarray\n");
    dsIter<int> iter = array.GetIter();
    EXPECT_EQ(iter.Reproduce(), nullptr);
    EXPECT_EQ(seen.take(), "dsIter::Reproduce|containers/dsiter\n");
    iter.MoveToNext();
    iter.MoveToNext();
    EXPECT_TRUE(iter.Finished());
    EXPECT_EQ(iter.Current(), 0);
    EXPECT_EQ(seen.take(), "dsArrayIter::Current|containers/dsiter\n");
    iter.SetAtFirst();
    EXPECT_EQ(iter.Current(), 1);
    dsIter<int> none;
    EXPECT_TRUE(none.Finished());
    EXPECT_EQ(none.Current(), 0);
    dsArrayIter<int> walk(array);
    walk.MoveToNext();
    std::unique_ptr<dsBaseIter<int>> fresh(walk.Reproduce());
    EXPECT_TRUE(walk.Finished());
    EXPECT_EQ(fresh->Current(), 1);
}

// Sets -----------------------------------------------------------------------------------------

// Keys in descending order; counts what passes through CopyKey and FreeKey, which add and take an offset.
class descending_set : public dsSortedSet<tracked> {
public:
    using dsSortedSet<tracked>::dsSortedSet;
    ~descending_set() override { Clear(); }
    int Compare(tracked a, tracked b) const override {
        return (a.value() < b.value()) - (a.value() > b.value());
    }
    std::multiset<int> stored;
    bool refuse = false;

protected:
    tracked CopyKey(tracked key) override {
        if (refuse) throw std::runtime_error("no copy");
        stored.insert(key.value());
        return key;
    }
    void FreeKey(tracked key) override {
        auto found = stored.find(key.value());
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
            ASSERT_EQ(set.GetSize(), model.size());
            ASSERT_EQ(set.Contains(key), model.count(key) == 1);
        }
        EXPECT_EQ(set.stored.size(), model.size());
        EXPECT_TRUE(std::equal(set.begin(), set.end(), model.begin(), model.end(),
                               [](const tracked &a, int b) { return a.value() == b; }));
        set.refuse = true;
        EXPECT_THROW(set.Add(1000), std::runtime_error);
        EXPECT_EQ(set.GetSize(), model.size());
        EXPECT_FALSE(set.Contains(1000));
    }
    EXPECT_EQ(tracked::living(), 0U);
}

template <class T, class Next>
void scalars_like_set(Next next, std::vector<T> &&order) {
    dsScalarSet<T> set;
    auto below = [](T a, T b) { return std::make_unsigned_t<T>(a) < std::make_unsigned_t<T>(b); };
    std::set<T, decltype(below)> model;
    for (T key : order)
        ASSERT_EQ(set += key, model.insert(key).second);
    for (int round = 0; round < 8000; ++round) {
        T key = next();
        if (round % 2) {
            ASSERT_EQ(set += key, model.insert(key).second);
        } else {
            ASSERT_EQ(set.Remove(key), model.erase(key) == 1);
        }
    }
    ASSERT_EQ(set.GetSize(), model.size());
    EXPECT_TRUE(std::equal(set.begin(), set.end(), model.begin(), model.end()));
    unsigned rank = 0, index = 0;
    dsIter<T> iter = set.GetIter();
    for (T key : model) {
        ASSERT_TRUE(set.Contains(key));
        ASSERT_TRUE(set.FindIndex(key, index));
        ASSERT_EQ(index, rank++);
        ASSERT_FALSE(iter.Finished());
        ASSERT_EQ(iter.Current(), key);
        iter.MoveToNext();
    }
    EXPECT_TRUE(iter.Finished());
    for (int i = 0; i < 1000; ++i) {
        T key = next();
        auto place = model.lower_bound(key);
        ASSERT_EQ(set.FindIndex(key, index), place != model.end() && *place == key);
        if (i < 50) {
            ASSERT_EQ(index, static_cast<unsigned>(std::distance(model.begin(), place)));
        }
    }
    dsScalarSet<T> moved(std::move(set));
    EXPECT_TRUE(std::equal(moved.begin(), moved.end(), model.begin(), model.end()));
    EXPECT_TRUE(set.IsEmpty() && set.begin() == set.end());  // NOLINT: moved from
}

TEST(Sets, OfScalarsBehaveAsASetOfUnsignedNumbers) {
    std::mt19937_64 random(4);
    for (unsigned range : {50U, 3000U, 100000U}) {
        auto next = [&] { return static_cast<int>(random() % range) - static_cast<int>(range / 2); };
        std::vector<int> ascending(range / 2), scattered;
        for (std::size_t i = 0; i < ascending.size(); ++i)
            ascending[i] = static_cast<int>(i);
        scattered = ascending;
        std::shuffle(scattered.begin(), scattered.end(), random);
        std::vector<int> descending(ascending.rbegin(), ascending.rend());
        for (auto order : {ascending, descending, scattered})
            scalars_like_set<int>(next, std::move(order));
    }
    scalars_like_set<signed char>([&] { return static_cast<signed char>(random()); }, {});

    int place[3];
    dsScalarSet<int *> pointers;
    EXPECT_TRUE(pointers += &place[2]);
    EXPECT_TRUE(pointers += &place[0]);
    EXPECT_FALSE(pointers += &place[2]);
    EXPECT_EQ(pointers.GetSize(), 2U);
    EXPECT_EQ(*pointers.begin(), &place[0]);
}

// Appending one by one, and adding in random order, cost far less than moving all elements each time.
TEST(Arrays, DoNotMoveAllElementsForEach) {
    dsXACtrl control{false, 1};
    dsArray<tracked> array(&control);
    tracked::assignments = 0;
    for (int i = 0; i < 20000; ++i)
        array.Append(i);
    EXPECT_EQ(array.GetCapacity(), 20000U);
    EXPECT_LT(tracked::assignments, 150'000);
}

TEST(Sets, DoNotMoveAllElementsForEach) {
    std::mt19937 random(5);
    dsSortedMap<tracked, unsigned> map;
    std::vector<unsigned> keys(20000);  // a plain array would move 100 million elements
    for (auto &key : keys)
        key = static_cast<unsigned>(random());
    tracked::assignments = 0;
    for (unsigned key : keys)
        map.Add(key, static_cast<int>(key / 2));
    EXPECT_LT(tracked::assignments, 10'000'000);
    for (unsigned key : keys)
        ASSERT_EQ(map[key].value(), static_cast<int>(key / 2));
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

template <class Map>
std::string walk(Map &map) {
    std::string seen;
    for (auto &[value, key] : map)
        seen += std::string(key ? key : "-") + "=" + std::to_string(value) + " ";
    return seen;
}

TEST(Maps, BehaveAsAMapOfTexts) {
    std::mt19937 random(8);
    for (unsigned range : {40U, 5000U}) {
        dsStringMap<xstring> map;
        std::map<std::string, std::string> model;
        for (int round = 0; round < 12000; ++round) {
            std::string key = "k" + std::to_string(random() % range), value = std::to_string(round);
            xstring found("before");
            switch (random() % 4) {
                case 0:
                case 1:
                    ASSERT_EQ(map.Add(key.c_str(), xstring(value.c_str())), model.emplace(key, value).second);
                    break;
                case 2:
                    ASSERT_EQ(map.Remove(key.c_str()), model.erase(key) == 1);
                    break;
                default:
                    ASSERT_EQ(map.Find(key.c_str(), found), model.count(key) == 1);
                    ASSERT_STREQ(found, model.count(key) ? model[key].c_str() : "before");
                    if (model.count(key)) map[key.c_str()] = (model[key] = value).c_str();
            }
            ASSERT_EQ(map.Contains(key.c_str()), model.count(key) == 1);
        }
        auto expected = model.begin();
        for (dsIter<xstring> iter = map.GetIter(); !iter.Finished(); iter.MoveToNext(), ++expected)
            ASSERT_STREQ(iter.Current(), expected->second.c_str());
        EXPECT_EQ(expected, model.end());
        dsSortedMapIter<xstring, const char *> keys(map);
        for (auto &[key, value] : model) {
            ASSERT_STREQ(keys.CurrentKey(), key.c_str());
            keys.MoveToNext();
        }
        dsStringMap<xstring> moved;
        moved.Add("gone", xstring("gone"));
        moved = std::move(map);
        EXPECT_EQ(moved.GetSize(), model.size());
        EXPECT_FALSE(moved.Contains("gone"));
        if (range > 1000) moved.Clear();
    }
}

TEST(Maps, OwnTheirKeysOrKeepTheCallers) {
    char key[] = "b";
    dsStringMap<int> owner;
    dsNonOwnerStringMap<int> keeper;
    for (auto *text :
         {static_cast<const char *>(key), "a", "c", "\xFF", static_cast<const char *>(nullptr), ""}) {
        int value = static_cast<int>(owner.GetSize());
        EXPECT_TRUE(owner.Add(text, value));
        EXPECT_TRUE(keeper.Add(text, value));
        EXPECT_FALSE(owner.Add(text, 9));
    }
    EXPECT_EQ(walk(owner), "-=4 =5 a=1 b=0 c=2 \xFF=3 ");
    EXPECT_EQ(walk(keeper), walk(owner));
    bool same = false;
    for (auto &entry : keeper)
        same = same || entry.key == key;
    EXPECT_TRUE(same);
    for (auto &entry : owner)
        EXPECT_NE(entry.key, key);
    key[0] = 'B';
    EXPECT_TRUE(owner.Contains("b"));
    EXPECT_TRUE(owner.Remove(nullptr));
    EXPECT_EQ(owner["a"], 1);

    reports seen;
    const auto &constant = owner;
    owner["absent"] = 5;
    EXPECT_EQ(owner["absent"] + constant["absent"], 0);
    std::string one = "dsSortedMap::operator [] failed|containers/dssorted\n";
    EXPECT_EQ(seen.take(), one + one + one);
    EXPECT_FALSE(owner.Contains("absent"));
    dsSortedMapIter<int, const char *> iter(owner);
    std::unique_ptr<dsBaseIter<int>> fresh(iter.Reproduce());
    EXPECT_EQ(fresh->Current(), 5) << "the value of the empty key";
    owner.Clear();
    EXPECT_TRUE(iter.Finished());
    EXPECT_EQ(iter.Current(), 0);
    EXPECT_EQ(seen.take(), "dsSortedMapIter::Current|containers/dssorted\n");
}

// Lists ----------------------------------------------------------------------------------------

TEST(Lists, BehaveAsADeque) {
    std::mt19937 random(9);
    dsList2<tracked> list;
    std::deque<int> model;
    for (int round = 0; round < 20000; ++round) {
        switch (random() % 6) {
            case 0:
                list.PushHead(round);
                model.push_front(round);
                break;
            case 1:
            case 2:
                list.Push(round);
                model.push_back(round);
                break;
            case 3:
                list.SetTakeOrder(static_cast<int>(random() % 3));
                break;
            default:
                if (model.empty()) break;
                bool first = list.GetTakeOrder() == 0;
                ASSERT_EQ(list.Pop().value(), first ? model.front() : model.back());
                first ? model.pop_front() : model.pop_back();
        }
        ASSERT_EQ(list.GetSize(), model.size());
        ASSERT_EQ(list.IsEmpty(), model.empty());
    }
    while (list.GetSize() < 50) {
        list.Push(static_cast<int>(list.GetSize()));
        model.push_back(static_cast<int>(model.size()));
    }
    auto same = [](const tracked &a, int b) { return a.value() == b; };
    EXPECT_TRUE(std::equal(list.begin(), list.end(), model.begin(), model.end(), same));
    dsList2Iter<tracked> back(list);
    back.SetAtLast();
    for (auto at = model.rbegin(); at != model.rend(); ++at, back.MoveToPrevious())
        ASSERT_EQ(back.Current().value(), *at);
    EXPECT_TRUE(back.Finished());
    std::size_t walked = 0;
    for (dsIter<tracked> iter = list.GetIter(); !iter.Finished(); iter.MoveToNext())
        ASSERT_EQ(iter.Current().value(), model[walked++]);
    EXPECT_EQ(walked, model.size());
    dsList2<tracked> moved(std::move(list)), other;
    other.Push(1);
    other = std::move(moved);
    EXPECT_TRUE(list.IsEmpty() && moved.IsEmpty());  // NOLINT: moved from
    EXPECT_TRUE(std::equal(other.begin(), other.end(), model.begin(), model.end(), same));
    other.Unlink(other.GetHead());
    EXPECT_EQ(other.GetHead()->value.value(), model[1]);
    EXPECT_EQ(other.GetHead()->previous, nullptr);
    other.Clear();
    EXPECT_EQ(tracked::living(), 0U);
}

TEST(Lists, ReportAnEmptyPopAndHoldAnything) {
    reports seen;
    dsList2<std::unique_ptr<int>> list(dsList2<std::unique_ptr<int>>::LastInFirstOut);
    EXPECT_EQ(list.Pop(), nullptr);
    EXPECT_EQ(seen.take(), "dsList2::Pop ()|containers/dslist\n");
    for (int i = 1; i <= 3; ++i)
        list.Push(std::make_unique<int>(i));
    EXPECT_EQ(*list.Pop(), 3);
    EXPECT_EQ(*list.Pop(), 2);
    dsList2Iter<std::unique_ptr<int>> iter(list);
    iter.MoveToNext();
    iter.MoveToNext();
    EXPECT_EQ(iter.Current(), nullptr);
    EXPECT_EQ(seen.take(), "dsList2Iter::Current|containers/dslist\n");
    dsList2<int> huge;
    for (int i = 0; i < 300000; ++i)
        huge.Push(i);
}

}  // namespace
