// Sequences against std::vector: contents, the capacity that the rules give, and, for class elements, that
// each is constructed, assigned and destroyed exactly once, whatever throws.
#include <algorithm>
#include <climits>
#include <limits>
#include <new>
#include <random>

#include "living.h"
#include "observing.h"

namespace {

using Element = Living<true>;
using Heavy = Living<false>;

// The elements stand for numbers, and a new one for 0.
template <class T>
T made(int number) {
    if constexpr (std::is_same_v<T, xstring>)
        return number ? xstring(std::to_string(number).c_str()) : xstring();
    else
        return static_cast<T>(number);
}

template <class T>
struct Open : kel::sequence_of<T> {
    using base = kel::sequence_of<T>;
    using base::base, base::BaseCopy, base::BaseInsert, base::BaseInsertEmpty, base::BaseRemove, base::Resize;
};

template <class T>
bool same(Open<T> &ours, const std::vector<int> &model) {
    const auto equal = [](const T &element, int number) { return element == made<T>(number); };
    return ours.GetSize() == model.size() * sizeof(T) && std::ranges::equal(ours, model, equal);
}

// Contents -----------------------------------------------------------------------------------------

template <class T>
struct Contents : testing::Test {};
using Types = testing::Types<xbool, double, xstring, Element, Heavy>;
TYPED_TEST_SUITE(Contents, Types);

// Every operation at random, with elements from elsewhere and from within, and with the capacity that the
// control gives. Elements that throw now and then leave all as it was, or alive where they are written over
// or where their moves may throw.
TYPED_TEST(Contents, AreThoseOfAVector) {
    using T = TypeParam;
    constexpr bool throws = std::is_same_v<T, Element> || std::is_same_v<T, Heavy>;
    const std::vector<int> numbers{1, 2, 3};
    const T other[] = {made<T>(1), made<T>(2), made<T>(3)};
    for (xseqcontrol control : {xseqcontrol{}, {0, 64}, {1, 48}, {1, 0}}) {
        std::mt19937 random(control.step + control.exact);
        auto below = [&](std::size_t limit) { return static_cast<int>(random() % limit); };
        auto bytes = [](int elements) { return static_cast<unsigned>(elements) * unsigned{sizeof(T)}; };
        Open<T> ours(&control);
        std::vector<int> model;
        std::size_t capacity = 0;
        const std::size_t step = control.step ? control.step : 256;
        for (int round = 0; round < 5000; ++round) {
            const int size = static_cast<int>(model.size()), at = below(model.size() + 3),
                      number = below(100);
            const bool own = below(2) && size > 9;
            const std::vector<int> &from = own ? model : numbers;
            const int start = below(from.size()),
                      count = std::min(below(from.size() + 1 - static_cast<std::size_t>(start)), 9);
            const std::vector<int> piece(from.begin() + start, from.begin() + start + count);
            const std::vector<int> whole = model;
            const T *source = (own ? ours.begin() : other) + start;
            auto place = [&](int wanted) {
                if (wanted > size) model.resize(static_cast<std::size_t>(wanted));
                return model.begin() + at;
            };
            if constexpr (throws) T::until_throw = round % 2 ? below(30) : -1;
            const int action = below(size > 100 ? 10 : 7);
            try {
                switch (action) {
                    case 0:
                        ours.set(at, made<T>(number));
                        *place(at + 1) = number;
                        break;
                    case 1:
                        ours.insert(at, made<T>(number));
                        model.insert(place(at), number);
                        break;
                    case 2:
                        ours.append(made<T>(number));
                        model.push_back(number);
                        break;
                    case 3:
                        ours.BaseInsertEmpty(bytes(at), bytes(count));
                        model.insert(place(at), static_cast<std::size_t>(count), 0);
                        break;
                    case 4:
                        ours.BaseInsert(bytes(at), bytes(count), source);
                        model.insert(place(at), piece.begin(), piece.end());
                        break;
                    case 5:
                        ours.BaseCopy(bytes(at), bytes(count), source);
                        std::copy(piece.begin(), piece.end(), place(at + count));
                        break;
                    case 6:
                    case 7: {
                        const int to = number < 90 ? at + number % 7 : below(model.size() + 2);
                        ours.removerange(at, to);
                        model.erase(model.begin() + std::min({at, to, size}),
                                    model.begin() + std::min(std::max(at, to), size));
                        break;
                    }
                    case 8:
                        ours.clear();
                        model.clear();
                        break;
                    default:
                        ours.insertseq(at, ours);
                        model.insert(place(at), whole.begin(), whole.end());
                }
            } catch (const std::runtime_error &) {
                if constexpr (throws)
                    if (std::is_same_v<T, Heavy> || action == 5) model.assign(ours.begin(), ours.end());
            }
            if constexpr (throws) {
                T::until_throw = -1;
                ASSERT_EQ(T::all.size(), model.size() + std::size(other)) << "round " << round;
            }
            const std::size_t rounded = (model.size() * sizeof(T) + step - 1) / step * step;
            capacity = control.exact || rounded > capacity ? rounded : capacity;
            ASSERT_TRUE(same(ours, model)) << "round " << round;
            ASSERT_TRUE(throws || ours.GetCapacity() == capacity) << "round " << round;
        }
    }
}

// What a caller may get wrong ------------------------------------------------------------------------

TEST(Sequence, ChecksIndices) {
    Open<int> ours;
    ours.set(2, 7);
    for (int below : {-1, INT_MIN}) {
        EXPECT_EQ(thrown_by<kelXNegativeIndex>([&] { ours.get(below); })->getIndex(), below);
        thrown_by<kelXNegativeIndex>([&] { ours.insertseq(below, ours); });
        thrown_by<kelXNegativeIndex>([&] { ours.removerange(0, below); });
    }
    for (int beyond : {3, INT_MAX})
        EXPECT_EQ(thrown_by<kelXInvalidSeqIndex>([&] { ours.get(beyond); })->getIndex(), beyond);
}

TEST(Sequence, RefusesWhat32BitsCannotHold) {
    constexpr unsigned most = std::numeric_limits<unsigned>::max();
    Open<int> ours;
    for (int i = 0; i < 3; ++i)
        ours.append(i);
    EXPECT_THROW(ours.Resize(most - 3), std::length_error) << "the capacity would be 2^32";
    EXPECT_THROW(ours.BaseCopy(most - 3, 4, &most), std::length_error);
    EXPECT_THROW(ours.BaseInsert(4, most - 3, &most), std::length_error);
    EXPECT_THROW(ours.BaseInsertEmpty(most - 3, 8), std::length_error);
    ours.BaseRemove(most, most - 3);
    EXPECT_TRUE(same(ours, {0, 1, 2}));
    Open<xbool> flags;
    volatile int farthest = INT_MAX;  // unknown to the compiler, which else warns of an access there
    EXPECT_THROW(flags.set(farthest, 1), std::length_error) << "more than an int counts";
}

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
    ours.removerange(1, 4);
    EXPECT_TRUE(xrcgetcount(&held) == 11 && ours[0] == xany(0) && ours[1] == xany(&held));
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
    EXPECT_EQ(ours.getarraysize(), 8);
    ours.removerange(0, 5);
    EXPECT_TRUE(ours.getarraysize() == 3 && ours.get(0) == 5) << "a removal needs none";
    EXPECT_EQ(ours.GetCapacity(), 32U);
    ours.exhausted = false;
    ours.removerange(1, 2);
    EXPECT_EQ(ours.GetCapacity(), 16U);
}

}  // namespace
