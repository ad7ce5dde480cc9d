// Sequences against std::vector: contents, the capacity that the rules give, and, for class elements, that
// each is constructed, assigned and destroyed exactly once, whatever throws.
#include <limits>
#include <new>
#include <random>
#include <set>
#include <stdexcept>

#include "observing.h"

namespace {

// Knows where its objects live. Using one that does not is a failure, and so is a second construction in one
// place; ASan sees what is never destroyed.
class Element {
public:
    static inline std::set<const Element *> living;
    static inline int until_throw = -1;

    Element() : Element(0) {}
    Element(int number) : m_number(new int(number)) {
        EXPECT_TRUE(living.insert(this).second) << "constructed twice";
    }
    Element(const Element &other) : Element(other.number()) {}
    Element(Element &&other) noexcept : m_number(std::exchange(other.m_number, nullptr)) {
        EXPECT_TRUE(living.insert(this).second && other.lives());
    }
    Element &operator=(const Element &other) {
        EXPECT_TRUE(lives() && other.lives() && this != &other);
        may_throw();
        delete std::exchange(m_number, new int(other.number()));
        return *this;
    }
    Element &operator=(Element &&other) noexcept {
        EXPECT_TRUE(lives() && other.lives());
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Element() {
        EXPECT_EQ(living.erase(this), 1U) << "destroyed what does not live";
        delete m_number;
    }
    int number() const { return m_number ? *m_number : -1; }
    bool operator==(const Element &other) const { return number() == other.number(); }

private:
    bool lives() const { return living.contains(this); }
    static void may_throw() {
        if (until_throw >= 0 && until_throw-- == 0) throw std::runtime_error("told to");
    }

    int *m_number;
};

// Moving one may throw, so that a sequence has to copy.
struct Heavy : Element {
    using Element::Element;
    Heavy() = default;
    Heavy(const Heavy &) = default;
    Heavy &operator=(const Heavy &) = default;
};

template <class T>
T made(unsigned number) {
    if constexpr (std::is_same_v<T, xstring>)
        return xstring(std::to_string(number).c_str());
    else if constexpr (std::is_arithmetic_v<T>)
        return static_cast<T>(number);
    else
        return T(static_cast<int>(number));
}

template <class T>
struct Open : kel::sequence_of<T> {
    using base = kel::sequence_of<T>;
    using base::base, base::BaseCopy, base::BaseInsert, base::BaseInsertEmpty, base::BaseRemove, base::Resize;
};

template <class T>
testing::AssertionResult same(Open<T> &ours, const std::vector<T> &model) {
    if (static_cast<std::size_t>(ours.getarraysize()) != model.size() ||
        ours.GetSize() != model.size() * sizeof(T))
        return testing::AssertionFailure() << ours.getarraysize() << " elements, not " << model.size();
    for (std::size_t i = 0; i < model.size(); ++i)
        if (!(ours.get(static_cast<int>(i)) == model[i]))
            return testing::AssertionFailure() << "element " << i;
    return testing::AssertionSuccess();
}

constexpr auto bytes(std::size_t elements, std::size_t size) {
    return static_cast<unsigned>(elements * size);
}

// Contents -----------------------------------------------------------------------------------------

template <class T>
struct Contents : testing::Test {
    using Vector = std::vector<T>;
};
using Types = testing::Types<xbool, int, double, xstring, Element, Heavy>;
TYPED_TEST_SUITE(Contents, Types);

// Every operation at every position of sequences of several lengths, from elsewhere and from within.
TYPED_TEST(Contents, AtEveryPosition) {
    using T = TypeParam;
    constexpr auto size = sizeof(T);
    for (std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{5}, 256 / size - 1, 256 / size}) {
        if (length > 40) continue;
        std::vector<T> start;
        for (unsigned i = 0; i < length; ++i)
            start.push_back(made<T>(100 + i));
        auto check = [&](auto change, auto expect) {
            Open<T> ours;
            for (const T &element : start)
                ours.append(element);
            std::vector<T> model = start;
            change(ours);
            expect(model);
            ASSERT_TRUE(same(ours, model));
        };
        const T other[] = {made<T>(1), made<T>(2), made<T>(3)};
        for (std::size_t at = 0; at <= length + 3; ++at) {
            SCOPED_TRACE(std::to_string(at) + " of " + std::to_string(length));
            auto grown = [&](std::vector<T> &model) {
                if (at > model.size()) model.resize(at);
                return model.begin() + static_cast<long>(at);
            };
            for (std::size_t count = 0; count <= 3; ++count) {
                check([&](auto &ours) { ours.BaseInsert(bytes(at, size), bytes(count, size), other); },
                      [&](auto &model) { model.insert(grown(model), other, other + count); });
                check([&](auto &ours) { ours.BaseInsertEmpty(bytes(at, size), bytes(count, size)); },
                      [&](auto &model) { model.insert(grown(model), count, T()); });
                check([&](auto &ours) { ours.BaseCopy(bytes(at, size), bytes(count, size), other); },
                      [&](auto &model) {
                          if (at + count > model.size()) model.resize(at + count);
                          std::copy_n(other, count, model.begin() + static_cast<long>(at));
                      });
            }
            check([&](auto &ours) { ours.insertseq(static_cast<int>(at), ours); },
                  [&](auto &model) { model.insert(grown(model), start.begin(), start.end()); });
            for (std::size_t from = 0; from < length; ++from)
                for (std::size_t count = 1; from + count <= length; count += 1 + count / 2) {
                    const auto first = start.begin() + static_cast<long>(from),
                               last = first + static_cast<long>(count);
                    check(
                        [&](auto &ours) {
                            ours.BaseInsert(bytes(at, size), bytes(count, size), ours.begin() + from);
                        },
                        [&](auto &model) { model.insert(grown(model), first, last); });
                    check(
                        [&](auto &ours) {
                            ours.BaseCopy(bytes(at, size), bytes(count, size), ours.begin() + from);
                        },
                        [&](auto &model) {
                            if (at + count > model.size()) model.resize(at + count);
                            std::copy(first, last, model.begin() + static_cast<long>(at));
                        });
                }
            for (std::size_t to = 0; to <= length + 3; ++to)
                check([&](auto &ours) { ours.removerange(static_cast<int>(at), static_cast<int>(to)); },
                      [&](auto &model) {
                          const auto low = std::min({at, to, length}),
                                     high = std::min(std::max(at, to), length);
                          model.erase(model.begin() + static_cast<long>(low),
                                      model.begin() + static_cast<long>(high));
                      });
        }
    }
    EXPECT_TRUE(Element::living.empty());
}

// The typed operations at random, with the capacity that the control gives.
TYPED_TEST(Contents, AtRandom) {
    using T = TypeParam;
    constexpr auto size = sizeof(T);
    for (xseqcontrol control : {xseqcontrol{}, {0, 64}, {1, 48}, {1, 0}}) {
        std::mt19937 random(control.step + control.exact);
        Open<T> ours(&control);
        std::vector<T> model;
        std::size_t capacity = 0;
        const std::size_t step = control.step ? control.step : 256;
        for (int round = 0; round < 1500; ++round) {
            auto below = [&](std::size_t limit) { return static_cast<unsigned>(random() % limit); };
            const unsigned at = below(model.size() + 2), number = below(100),
                           to = number < 95 ? at + number % 7 : below(model.size() + 2);
            auto grow = [&](std::size_t wanted) {
                if (wanted > model.size()) model.resize(wanted);
            };
            switch (below(model.size() > 200 ? 9 : 7)) {
                case 0:
                    grow(at + 1);
                    model[at] = made<T>(number);
                    ours.set(static_cast<int>(at), made<T>(number));
                    break;
                case 1:
                    grow(at);
                    model.insert(model.begin() + static_cast<long>(at), made<T>(number));
                    ours.insert(static_cast<int>(at), made<T>(number));
                    break;
                case 2:
                case 3:
                case 4:
                    for (unsigned i = 0; i < number % 8; ++i) {
                        model.push_back(made<T>(number));
                        ours.append(made<T>(number));
                    }
                    break;
                case 5:
                    grow(at);
                    model.insert(model.begin() + static_cast<long>(at), number % 5, T());
                    ours.BaseInsertEmpty(bytes(at, size), bytes(number % 5, size));
                    break;
                case 6:
                case 7: {
                    const auto low = std::min<std::size_t>(std::min(at, to), model.size());
                    const auto high = std::min<std::size_t>(std::max(at, to), model.size());
                    model.erase(model.begin() + static_cast<long>(low),
                                model.begin() + static_cast<long>(high));
                    ours.removerange(static_cast<int>(at), static_cast<int>(to));
                    break;
                }
                default:
                    model.clear();
                    ours.clear();
            }
            // A step of several changes passes through every capacity below its last one.
            const std::size_t used = model.size() * size, rounded = (used + step - 1) / step * step;
            capacity = control.exact || rounded > capacity ? rounded : capacity;
            ASSERT_TRUE(same(ours, model)) << "round " << round;
            ASSERT_EQ(ours.GetCapacity(), capacity) << "round " << round;
        }
    }
    EXPECT_TRUE(Element::living.empty());
}

TEST(Sequence, GrowsOverManyElements) {
    Open<xstring> strings;
    Open<int> ints;
    for (int i = 0; i < 100000; ++i) {
        strings.append(std::to_string(i).c_str());
        ints.append(i);
    }
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(strings.get(i), std::to_string(i).c_str());
        ASSERT_EQ(ints.get(i), i);
    }
    EXPECT_EQ(ints.GetCapacity(), (400000U + 255) / 256 * 256);
    ints.clear();
    EXPECT_EQ(ints.GetCapacity(), (400000U + 255) / 256 * 256);
    EXPECT_EQ(std::distance(strings.begin(), strings.end()), 100000);
}

// What a caller may get wrong ------------------------------------------------------------------------

TEST(Sequence, ChecksIndices) {
    Open<int> ours;
    for (int count : {0, 3}) {
        for (int below : {-1, std::numeric_limits<int>::min()}) {
            auto error = thrown_by<kelXNegativeIndex>([&] { ours.get(below); });
            EXPECT_EQ(error->getIndex(), below);
            thrown_by<kelXNegativeIndex>([&] { ours.set(below, 1); });
            thrown_by<kelXNegativeIndex>([&] { ours.insert(below, 1); });
            thrown_by<kelXNegativeIndex>([&] { ours.insertseq(below, ours); });
            thrown_by<kelXNegativeIndex>([&] { ours.removerange(below, 1); });
            thrown_by<kelXNegativeIndex>([&] { ours.removerange(0, below); });
        }
        for (int beyond : {count, count + 1, std::numeric_limits<int>::max()}) {
            auto error = thrown_by<kelXInvalidSeqIndex>([&] { ours.get(beyond); });
            EXPECT_EQ(error->getIndex(), beyond);
        }
        EXPECT_EQ(ours.getarraysize(), count);
        ours.set(2, 7);
    }
}

TEST(Sequence, RefusesWhat32BitsCannotHold) {
    constexpr unsigned most = std::numeric_limits<unsigned>::max();
    Open<int> ours;
    for (int i = 0; i < 3; ++i)
        ours.append(i);
    const int value = 9;
    EXPECT_THROW(ours.Resize(most - 3), std::length_error) << "the capacity would be 2^32";
    EXPECT_THROW(ours.BaseCopy(most - 3, 4, &value), std::length_error);
    EXPECT_THROW(ours.BaseInsert(4, most - 3, &value), std::length_error);
    EXPECT_THROW(ours.BaseInsertEmpty(most - 3, 8), std::length_error);
    EXPECT_THROW(ours.set(std::numeric_limits<int>::max(), 1), std::length_error);
    EXPECT_THROW(ours.insert(1 << 30, 1), std::length_error);
    ours.BaseRemove(most, most - 3);
    EXPECT_TRUE(same(ours, {0, 1, 2}));
    Open<xbool> flags;
    // Unknown to the compiler, which else takes the bound's absence at this place for an access.
    volatile int farthest = std::numeric_limits<int>::max();
    EXPECT_THROW(flags.set(farthest, 1), std::length_error) << "more than an int counts";
    EXPECT_EQ(flags.getarraysize(), 0);
}

// Exceptions -----------------------------------------------------------------------------------------

// Changes a sequence until no assignment throws any more. In between, every element lives and, where moves
// cannot throw, nothing has changed at all.
template <class T, class Change>
void check_throwing(int elements, Change change) {
    for (int fuse = 0; fuse < 200; ++fuse) {
        Open<T> ours;
        std::vector<T> before;
        for (int i = 0; i < elements; ++i) {
            ours.append(T(i));
            before.push_back(T(i));
        }
        const std::size_t outside = Element::living.size() - before.size();
        bool thrown = false;
        Element::until_throw = fuse;
        try {
            change(ours);
        } catch (const std::runtime_error &) {
            thrown = true;
        }
        Element::until_throw = -1;
        ASSERT_EQ(Element::living.size(), outside + static_cast<std::size_t>(ours.getarraysize()));
        if (!thrown) return;
        if constexpr (std::is_same_v<T, Element>) {
            ASSERT_TRUE(same(ours, before)) << "fuse " << fuse;
        }
        ours.clear();
        ours.append(T(5));
        ASSERT_TRUE(same(ours, {T(5)}));
    }
    FAIL() << "every attempt threw";
}

template <class T>
void check_throwing() {
    const T other[3] = {7, 8, 9};
    constexpr auto size = sizeof(T);
    for (int elements : {0, 4, static_cast<int>(256 / size)})
        for (int at = 0; at <= elements + 1; at += 1 + elements / 3) {
            SCOPED_TRACE(std::to_string(at) + " of " + std::to_string(elements));
            const auto position = bytes(static_cast<std::size_t>(at), size);
            check_throwing<T>(elements, [&](auto &ours) { ours.BaseInsert(position, 3 * size, other); });
            check_throwing<T>(elements, [&](auto &ours) { ours.insertseq(at, ours); });
            check_throwing<T>(elements, [&](auto &ours) { ours.BaseInsertEmpty(position, 3 * size); });
            check_throwing<T>(elements, [&](auto &ours) { ours.removerange(at, at + 2); });
            if (at >= elements)
                check_throwing<T>(elements, [&](auto &ours) { ours.BaseCopy(position, 3 * size, other); });
        }
}

TEST(Sequence, TakesBackWhatCouldNotBeCopied) {
    check_throwing<Element>();
    EXPECT_TRUE(Element::living.empty());
    check_throwing<Heavy>();
    EXPECT_TRUE(Element::living.empty());
}

// An engine whose memory runs out.
// Values that hold objects refuse assignment; in a sequence they are replaced and moved all the same.
TEST(Sequence, ReplacesValuesOfAnyType) {
    internal_errors errors;
    xauto<xobject> held;
    xrcattach(&held);  // counted, so that every value that holds it shows
    xtcsequence<xany> ours;
    for (int i = 0; i < 6; ++i)
        ours.append(&held);
    ours.insert(1, 1);
    ours.insertseq(2, ours);
    ours.set(0, 0);
    EXPECT_EQ(xrcgetcount(&held), 12);
    ours.removerange(1, 4);
    EXPECT_EQ(xrcgetcount(&held), 11);
    ours.set(2, ours[3]);
    EXPECT_TRUE(ours[0] == xany(0) && ours[2] == xany(&held) && ours[1] == xany(&held));
    ours.removerange(0, 5);
    EXPECT_EQ(ours.getarraysize(), 6);
    ours.clear();
    EXPECT_EQ(xrcgetcount(&held), 1);
    EXPECT_EQ(errors.take(), "");
}

struct Exhausted : xtssequence<int> {
    using xtssequence<int>::xtssequence;
    bool exhausted = false;
    void *OnResize(unsigned capacity) override {
        if (exhausted) throw std::bad_alloc();
        return xtssequence<int>::OnResize(capacity);
    }
};

TEST(Sequence, GoesOnWithoutMemory) {
    const xseqcontrol exact{1, 16};
    Exhausted ours(&exact);
    for (int i = 0; i < 8; ++i)
        ours.append(i);
    ours.exhausted = true;
    EXPECT_THROW(ours.append(8), std::bad_alloc);
    EXPECT_THROW(ours.insert(0, 8), std::bad_alloc);
    EXPECT_EQ(ours.getarraysize(), 8);
    ours.removerange(0, 5);
    EXPECT_EQ(ours.getarraysize(), 3) << "a removal needs none";
    EXPECT_EQ(ours.get(0), 5);
    ours.append(6);
    EXPECT_EQ(ours.GetCapacity(), 32U);
    ours.exhausted = false;
    ours.removerange(1, 4);
    EXPECT_EQ(ours.GetCapacity(), 16U);
    EXPECT_EQ(ours.get(0), 5);
}

}  // namespace
