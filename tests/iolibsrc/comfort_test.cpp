// Comfort: who holds a caught exception and when it dies, values on a std::ostream, the report of an
// exception that nobody caught, and what the headers promise of moves, hashes, orders and range-for.
#include <gtest/gtest.h>
#include <kelstdmt/kelstdmt.h>

#include <compare>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iomanip>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>

#include "iolibsrc/print_support.h"

KEL_DECLARE_STRUCT(XCounted)
class XCounted : public kelXException {
    KEL_EXCEPTION(XCounted, kelXException, "Counted.", (int, Number))
public:
    ~XCounted() override { ++died; }
    static inline int died = 0;
};
KEL_DEFINE_EXCEPTION(XCounted, "test::XCounted", kel::counted)

KEL_DECLARE_STRUCT(XUncounted)
class XUncounted : public kelXException {
    KEL_UNCOUNTED_EXCEPTION(XUncounted, kelXException, "Not counted.", (int, Number))
public:
    ~XUncounted() override { ++died; }
    static inline int died = 0;
};
KEL_DEFINE_EXCEPTION(XUncounted, "test::XUncounted", kel::uncounted)

namespace {

// Without a descriptor, thrown without xthrow.
class Bare : public xthrowable {
public:
    ~Bare() override { ++died; }
    static inline int died = 0;

private:
    xrtticlass *givertti() override { return nullptr; }
};

template <class Thrown>
kel::caught Catch() {
    try {
        Thrown::Throw(7);
    } catch (xthrowable *thrown) {
        return kel::caught(thrown);
    }
}

std::string Text(const auto &value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

// A caught exception ---------------------------------------------------------------------------------

TEST(Caught, ReleasesEveryKindOnce) {
    XCounted::died = XUncounted::died = Bare::died = 0;
    {
        kel::caught error = Catch<XCounted>();
        EXPECT_EQ(xrcgetcount(error.get()), 1);
        kel::caught moved(std::move(error));
        EXPECT_FALSE(error);
        EXPECT_TRUE(moved);
        error = std::move(moved);
        kel::caught &self = error;
        error = std::move(self);
        EXPECT_EQ(XCounted::died, 0);
        error = Catch<XCounted>();
        EXPECT_EQ(XCounted::died, 1) << "what was held before is released";
    }
    EXPECT_EQ(XCounted::died, 2);
    {
        kel::caught error = Catch<XUncounted>();
        EXPECT_EQ(xrcgetcount(error.get()), -1);
    }
    EXPECT_EQ(XUncounted::died, 1);
    try {
        throw static_cast<xthrowable *>(new Bare);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        EXPECT_FALSE(error.is<kelXException>());
        EXPECT_EQ(error.type_name(), xstrNullStr);
        EXPECT_EQ(error.description(), xstrNullStr);
        EXPECT_EQ(Text(error), "Can not finish printing\n\n");
    }
    EXPECT_EQ(Bare::died, 1);
    // Others may hold it too.
    XCounted *kept;
    {
        kel::caught error = Catch<XCounted>();
        xrcattach(kept = error.as<XCounted>());
    }
    EXPECT_EQ(kept->getNumber(), 7);
    xrcrelease(kept);
    EXPECT_EQ(XCounted::died, 3);
    static_assert(!std::is_copy_constructible_v<kel::caught> && !std::is_copy_assignable_v<kel::caught>);
    static_assert(std::is_nothrow_move_constructible_v<kel::caught>);
}

template <class Thrown>
void PassedOnThrice() {
    Thrown::died = 0;
    const xthrowable *first = nullptr;
    std::function<void(int)> pass = [&](int times) {
        if (times == 0) Thrown::Throw(7);
        try {
            pass(times - 1);
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            if (!first) first = thrown;
            error.rethrow();
        }
    };
    try {
        pass(3);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        EXPECT_EQ(thrown, first);
        EXPECT_EQ(xrcgetcount(thrown), error->isrefcountable() ? 1 : -1);
        EXPECT_EQ(Thrown::died, 0);
    }
    EXPECT_EQ(Thrown::died, 1);
}

TEST(Caught, PassesOnTheOneReference) {
    PassedOnThrice<XCounted>();
    PassedOnThrice<XUncounted>();
    kel::caught none(nullptr);
    EXPECT_FALSE(none.is<kelXException>());
    try {
        none.rethrow();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        EXPECT_TRUE(error.is<kelXNotInitialized>());
    }
}

TEST(Caught, KnowsItsTypeAndSaysIt) {
    kel::caught error = Catch<XCounted>();
    EXPECT_EQ(error.as<XCounted>()->getNumber(), 7);
    EXPECT_TRUE(error.is<kelXException>());
    EXPECT_TRUE(error.is<xthrowable>());
    EXPECT_EQ(error.as<XUncounted>(), nullptr);
    EXPECT_EQ(error.type_name(), "test::XCounted");
    EXPECT_EQ(error.description(), "Counted.");
    EXPECT_EQ(Text(error), "test::XCounted\n {\n  Description: \"Counted.\";\n  Number: 7;\n }");

    // A virtual base lies elsewhere than the exception itself.
    try {
        xportXTimeout::Throw("call");
    } catch (xthrowable *thrown) {
        kel::caught timeout(thrown);
        ASSERT_TRUE(timeout.is<xportXTimeout>());
        EXPECT_EQ(timeout.as<xportXTimeout>()->getOpName(), "call");
        EXPECT_EQ(timeout.as<kelXException>()->getDescription(), "communication timeout");
    }
    // A stream cannot be printed to its end; the error's message is told all the same.
    std::unique_ptr<ioStringStream> stream(ioStringStream::Create("1"));
    try {
        stream->ReadInt();
    } catch (xthrowable *thrown) {
        kel::caught end(thrown);
        EXPECT_EQ(end.description(), "Stream Error (iolib):EOF reached");
        EXPECT_NE(Text(end).find("finish printing\nStream Error (iolib):EOF reached\n"), std::string::npos)
            << end;
    }
}

// Values on a std::ostream ---------------------------------------------------------------------------

TEST(Printed, WhatHasADescriptor) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    const Point &constant = *point;
    const std::string on_one_line = "test::Point { x: 1; y: 2; }";
    EXPECT_EQ(Text(kel::printed(*point)), "test::Point\n {\n  x: 1;\n  y: 2;\n }");
    EXPECT_EQ(Text(kel::printed(constant, true)), on_one_line);
    EXPECT_EQ(Text(kel::printed(&constant, true)), on_one_line);
    EXPECT_EQ(Text(kel::printed(point, true)), on_one_line);
    EXPECT_EQ(Text(kel::printed(xrcunihandle<Point>(point), true)), on_one_line);
    EXPECT_EQ(kel::printed(xany(point.get()), true).str(), on_one_line);
    EXPECT_EQ(kel::printed(xrchandle<Point>()).str(), "nil");
    EXPECT_EQ(kel::printed(kel::uninit_object()).str(), "uninit");
    EXPECT_EQ(xrcgetcount(point), 1);
    EXPECT_EQ(Text(point), Text(kel::printed(*point)));
    EXPECT_EQ(Text(xrcunihandle<Point>(point)), Text(point));

    EXPECT_EQ(kel::printed(5).str(), "5");
    EXPECT_EQ(kel::printed(true).str(), "true");
    EXPECT_EQ(kel::printed(0.5).str(), "0.5");
    EXPECT_EQ(kel::printed(green).str(), "green");
    EXPECT_EQ(kel::printed("text").str(), "\"text\"");
    EXPECT_EQ(kel::printed(xstring("text")).str(), "\"text\"");
    EXPECT_EQ(kel::printed(std::string("text")).str(), "\"text\"");
    EXPECT_EQ(kel::printed(xstring()).str(), "nil");
    std::unique_ptr<std::optional<int>> none = std::make_unique<std::optional<int>>();
    EXPECT_EQ(kel::printed(*none).str(), "nil");
    EXPECT_EQ(Text(xany(5)), "5");
    EXPECT_EQ(Text(xany()), "uninit");
    // What other types write is as it was.
    EXPECT_EQ(Text(xstring("text")), "text");
    EXPECT_EQ(Text(green), "1");
}

TEST(Printed, AnObjectThatNobodyHolds) {
    int before = Node::alive;
    {
        Node local(3);
        EXPECT_EQ(kel::printed(local, true).str(), "test::Node { value: 3; next: nil; }");
        EXPECT_EQ(xrcgetcount(&local), 0);
        EXPECT_EQ(Node::alive, before + 1);
    }
    EXPECT_EQ(Node::alive, before);
}

TEST(Printed, AStreamThatFails) {
    WatchedBuffer buffer(10);
    std::ostream out(&buffer);
    Point point(1, 2);
    out << std::setw(30) << kel::printed(point);
    EXPECT_EQ(buffer.bytes, "test::Poin");
    EXPECT_TRUE(out.bad());
    out << kel::printed(point);
    EXPECT_EQ(buffer.bytes.size(), 10U);

    // More than a buffer full arrives whole.
    xrchandle<Numbers> numbers(Numbers::create());
    std::string expected = "test::Numbers [ ";
    for (int i = 0; i < 5000; ++i) {
        numbers->append(i);
        expected += std::to_string(i) + (i < 4999 ? ", " : " ]");
    }
    EXPECT_EQ(kel::printed(numbers, true).str(), expected);
}

// Uncaught exceptions --------------------------------------------------------------------------------

TEST(ReportUncaughtDeathTest, PrintsAndGoesOnToTheHandlerBefore) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    auto end = [] {
        std::set_terminate([] {
            try {
                throw;
            } catch (xthrowable *thrown) {  // still there
                std::fprintf(stderr, "before: %s\n", thrown->gettypename().Str());
            } catch (...) {
                std::fputs("before: another\n", stderr);
            }
            std::_Exit(3);
        });
        kel::report_uncaught();
        kel::report_uncaught();
    };
    auto in_a_noexcept = [](auto action) { [&]() noexcept { action(); }(); };
    EXPECT_EXIT(
        {
            end();
            in_a_noexcept([] { XCounted::Throw(451); });
        },
        testing::ExitedWithCode(3),
        "uncaught exception: Counted.\ntest::XCounted\n \\{\n  Description: \"Counted.\";\n  Number: 451;\n "
        "\\}\nbefore: test::XCounted");
    EXPECT_EXIT(
        {
            end();
            in_a_noexcept([] { throw 5; });
        },
        testing::ExitedWithCode(3), "^before: another");
}

// Moves, hashes, orders, range-for -------------------------------------------------------------------

template <class T>
constexpr bool moves_cheaply = std::is_nothrow_move_constructible_v<T> &&std::is_copy_constructible_v<T>;
static_assert(moves_cheaply<xany> && moves_cheaply<xstring> && moves_cheaply<xrchandle<Point>> &&
              moves_cheaply<xrcunihandle<Point>>);

TEST(Headers, AMoveTouchesNoCount) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    xrchandle<Point> first(point), second(std::move(first));
    xrcunihandle<Point> third(point), fourth(std::move(third));
    xany fifth(point.get()), sixth(std::move(fifth));
    first = std::move(second);
    third = std::move(fourth);
    fifth = std::move(sixth);
    EXPECT_EQ(xrcgetcount(point), 4);
    EXPECT_EQ(second.get(), nullptr);
    EXPECT_EQ(fourth.get(), nullptr);
    EXPECT_TRUE(sixth.isuninit());

    xstring text("a text"), moved(std::move(text));
    const char *characters = moved.Str();
    EXPECT_TRUE(text.IsNull());
    text = std::move(moved);
    EXPECT_EQ(text.Str(), characters);
    xany value(text), taken(std::move(value));
    EXPECT_EQ(static_cast<xrstring>(taken), characters);
    EXPECT_TRUE(value.isuninit());
}

TEST(Headers, HashesAndOrdersAgreeWithEquality) {
    std::unordered_set<xstring> texts{"a", "b", xstring(), "a"};
    EXPECT_EQ(texts.size(), 3U);
    EXPECT_EQ(texts.count("b"), 1U);
    std::set<xstring> sorted{"b", xstring(), "a", ""};
    EXPECT_TRUE(sorted.begin()->IsNull());
    EXPECT_EQ(*sorted.rbegin(), "b");
    EXPECT_TRUE(xstring("a") < xstring("b") && xstring("b") >= "a" && (xstring("a") <=> "a") == 0);

    xrchandle<Point> point(kel::construct<Point>(1, 2));
    std::unordered_map<xany, int> values;
    for (const xany &value : {xany(1), xany(1.0), xany(true), xany("1"), xany(1, xrtti_get_p_Color()), xany(),
                              xany(kel::nil_int), xany(point.get())})
        values[value]++;
    EXPECT_EQ(values.size(), 8U);
    values[xany(xstring("1"))]++;
    EXPECT_EQ(values[xany("1")], 2);
    EXPECT_EQ(std::hash<xany>()(xany(0.0)), std::hash<xany>()(xany(-0.0))) << "they are equal";

    EXPECT_TRUE(point == xrchandle<Point>(point) && (point <=> xrchandle<Point>(point)) == 0);
    std::unordered_set<xrchandle<Point>> handles{point, point};
    EXPECT_EQ(handles.size(), 1U);
}

TEST(Headers, RangesAndViews) {
    xrchandle<Numbers> numbers(Numbers::create());
    for (int i = 0; i < 4; ++i)
        numbers->append(i);
    int sum = 0;
    for (int &number : *numbers)
        sum += number *= 2;
    EXPECT_EQ(sum, 12);
    EXPECT_EQ(numbers->get(3), 6);

    xrchandle<Ages> ages(Ages::create());
    for (auto [key, age] : *ages)
        ADD_FAILURE() << key << age;
    ages->set("ada", 36);
    ages->set("gone", 1);
    ages->set("grace", 85);
    ages->remove("gone");
    std::map<std::string, int> seen;
    for (auto [key, age] : *ages)
        seen[key] = age++;
    EXPECT_EQ(seen, (std::map<std::string, int>{{"ada", 36}, {"grace", 85}}));
    int age = 0;
    EXPECT_TRUE(ages->find("ada", age));
    EXPECT_EQ(age, 37);

    xstring text("text");
    std::string_view view = text;
    EXPECT_EQ(view, "text");
    EXPECT_EQ(std::string_view(xstring()), "");
}

}  // namespace
