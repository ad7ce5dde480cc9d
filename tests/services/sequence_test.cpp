// Sequences against std::vector: contents, the capacity that the rules give, and, for class elements, that
// each is constructed, assigned and destroyed exactly once, whatever throws.
#include <limits>
#include <new>
#include <random>

#include "living.h"
#include "observing.h"

namespace {

using Element = Living<true>;
using Heavy = Living<false>;

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

// Every operation at random, with elements from elsewhere and from within, and with the capacity that the
// control gives.
TYPED_TEST(Contents, AreThoseOfAVector) {
    using T = TypeParam;
    constexpr auto size = sizeof(T);
    const std::vector<T> other{made<T>(1), made<T>(2), made<T>(3)};
    for (xseqcontrol control : {xseqcontrol{}, {0, 64}, {1, 48}, {1, 0}}) {
        std::mt19937 random(control.step + control.exact);
        auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
        Open<T> ours(&control);
        std::vector<T> model;
        std::size_t capacity = 0;
        const std::size_t step = control.step ? control.step : 256;
        for (int round = 0; round < 3000; ++round) {
            const std::size_t at = below(model.size() + 3), number = below(100);
            const bool own = below(2) && model.size() > 9;
            const std::vector<T> &from = own ? model : other;
            const std::size_t start = below(from.size()),
                              count = below(std::min<std::size_t>(from.size() - start + 1, 9));
            const std::vector<T> piece(from.data() + start, from.data() + start + count);
            const T *source = own ? ours.begin() + start : other.data() + start;
            const auto position = bytes(at, size), length = bytes(count, size);
            auto place = [&](std::size_t wanted) {
                if (wanted > model.size()) model.resize(wanted);
                return model.begin() + static_cast<long>(at);
            };
            switch (below(model.size() > 100 ? 10 : 8)) {
                case 0:
                    ours.set(static_cast<int>(at), made<T>(static_cast<unsigned>(number)));
                    *place(at + 1) = made<T>(static_cast<unsigned>(number));
                    break;
                case 1:
                    ours.insert(static_cast<int>(at), made<T>(static_cast<unsigned>(number)));
                    model.insert(place(at), made<T>(static_cast<unsigned>(number)));
                    break;
                case 2:
                case 3:
                    ours.append(made<T>(static_cast<unsigned>(number)));
                    model.push_back(made<T>(static_cast<unsigned>(number)));
                    break;
                case 4:
                    ours.BaseInsertEmpty(position, length);
                    model.insert(place(at), count, T());
                    break;
                case 5:
                    ours.BaseInsert(position, length, source);
                    model.insert(place(at), piece.begin(), piece.end());
                    break;
                case 6:
                    ours.BaseCopy(position, length, source);
                    std::copy(piece.begin(), piece.end(), place(at + count));
                    break;
                case 7:
                case 8: {
                    const std::size_t to = number < 90 ? at + number % 7 : below(model.size() + 2);
                    const auto low = std::min({at, to, model.size()}),
                               high = std::min(std::max(at, to), model.size());
                    ours.removerange(static_cast<int>(at), static_cast<int>(to));
                    model.erase(model.begin() + static_cast<long>(low),
                                model.begin() + static_cast<long>(high));
                    break;
                }
                default: {
                    const std::vector<T> whole = model;
                    if (number % 2) {
                        ours.insertseq(static_cast<int>(at), ours);
                        model.insert(place(at), whole.begin(), whole.end());
                    } else {
                        ours.clear();
                        model.clear();
                    }
                }
            }
            const std::size_t rounded = (model.size() * size + step - 1) / step * step;
            capacity = control.exact || rounded > capacity ? rounded : capacity;
            ASSERT_TRUE(same(ours, model)) << "round " << round;
            ASSERT_EQ(ours.GetCapacity(), capacity) << "round " << round;
        }
    }
}

// What a caller may get wrong ------------------------------------------------------------------------

TEST(Sequence, ChecksIndices) {
    Open<int> ours;
    for (int below : {-1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(thrown_by<kelXNegativeIndex>([&] { ours.get(below); })->getIndex(), below);
        thrown_by<kelXNegativeIndex>([&] { ours.set(below, 1); });
        thrown_by<kelXNegativeIndex>([&] { ours.insert(below, 1); });
        thrown_by<kelXNegativeIndex>([&] { ours.insertseq(below, ours); });
        thrown_by<kelXNegativeIndex>([&] { ours.removerange(below, 1); });
        thrown_by<kelXNegativeIndex>([&] { ours.removerange(0, below); });
    }
    for (int count : {0, 3}) {
        for (int beyond : {count, count + 1, std::numeric_limits<int>::max()})
            EXPECT_EQ(thrown_by<kelXInvalidSeqIndex>([&] { ours.get(beyond); })->getIndex(), beyond);
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

// Changes a sequence until nothing throws any more. In between, every element lives and, where moves cannot
// throw, nothing has changed at all.
template <class T, class Change>
void check_throwing(int elements, Change change) {
    bool thrown = true;
    for (int fuse = 0; thrown; ++fuse) {
        ASSERT_LT(fuse, 200) << "every attempt threw";
        thrown = false;
        Open<T> ours;
        std::vector<T> before;
        for (int i = 0; i < elements; ++i) {
            ours.append(T(i));
            before.push_back(T(i));
        }
        const std::size_t outside = T::all.size() - before.size();
        T::until_throw = fuse;
        try {
            change(ours);
        } catch (const std::runtime_error &) {
            thrown = true;
        }
        T::until_throw = -1;
        ASSERT_EQ(T::all.size(), outside + static_cast<std::size_t>(ours.getarraysize()));
        if (!thrown) return;
        if constexpr (std::is_same_v<T, Element>) {
            ASSERT_TRUE(same(ours, before)) << "fuse " << fuse;
        }
    }
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
    check_throwing<Heavy>();
    EXPECT_TRUE(Element::all.empty() && Heavy::all.empty());
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
    EXPECT_EQ(xrcgetcount(&held), 11);
    ours.set(2, ours[3]);
    EXPECT_TRUE(ours[0] == xany(0) && ours[2] == xany(&held) && ours[1] == xany(&held));
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
    EXPECT_TRUE(ours.getarraysize() == 3 && ours.get(0) == 5) << "a removal needs none";
    EXPECT_EQ(ours.GetCapacity(), 32U);
    ours.exhausted = false;
    ours.removerange(1, 2);
    EXPECT_EQ(ours.GetCapacity(), 16U);
}

}  // namespace
