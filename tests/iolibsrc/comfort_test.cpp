// Comfort: who holds a caught exception and when it dies, the report of an exception that nobody caught.
#include <gtest/gtest.h>
#include <kelstdmt/kelstdmt.h>

#include <cstdlib>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <type_traits>

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
    XCounted::died = Bare::died = 0;
    XCounted *kept;
    {
        kel::caught error = Catch<XCounted>();
        kel::caught moved(std::move(error));
        EXPECT_TRUE(!error && moved);
        error = std::move(moved);
        kel::caught &self = error;
        error = std::move(self);
        EXPECT_EQ(XCounted::died, 0);
        error = Catch<XCounted>();
        EXPECT_EQ(XCounted::died, 1) << "what was held before is released";
        xrcattach(kept = error.as<XCounted>());
    }
    EXPECT_EQ(XCounted::died, 1) << "others may hold it too";
    EXPECT_EQ(xrcgetcount(kept), 1);
    xrcrelease(kept);
    try {
        throw static_cast<xthrowable *>(new Bare);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        EXPECT_FALSE(error.is<kelXException>());
        EXPECT_TRUE(error.type_name() == xstrNullStr && error.description() == xstrNullStr);
        EXPECT_EQ(Text(error), "Can not finish printing\n\n");
    }
    EXPECT_EQ(Bare::died, 1);
    const auto text_of = [](auto thrower) {
        try {
            thrower();
        } catch (...) {
            return kel::take_text();
        }
        return std::string("nothing");
    };
    EXPECT_EQ(text_of([] { throw static_cast<xthrowable *>(new Bare); }), "");
    EXPECT_EQ(Bare::died, 2) << "its text takes the exception over";
    EXPECT_EQ(text_of([] { XCounted::Throw(7); }), "Counted.");
    EXPECT_EQ(text_of([] { throw std::runtime_error("its own words"); }), "its own words");
    EXPECT_EQ(text_of([] { throw 7; }) + kel::take_text(), "");
    static_assert(!std::is_copy_constructible_v<kel::caught> && !std::is_copy_assignable_v<kel::caught>);
}

template <class Thrown>
void PassedOn() {
    Thrown::died = 0;
    xthrowable *first = nullptr;
    try {
        try {
            Thrown::Throw(7);
        } catch (xthrowable *thrown) {
            kel::caught error(first = thrown);
            error.rethrow();
        }
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        EXPECT_EQ(thrown, first);
        EXPECT_EQ(xrcgetcount(thrown), error->isrefcountable() ? 1 : -1);
        EXPECT_EQ(Thrown::died, 0);
    }
    EXPECT_EQ(Thrown::died, 1);
}

TEST(Caught, PassesOnTheOneReference) {
    PassedOn<XCounted>();
    PassedOn<XUncounted>();
    kel::caught none(nullptr);
    EXPECT_FALSE(none.is<kelXException>());
    try {
        none.rethrow();
    } catch (xthrowable *thrown) {
        EXPECT_TRUE(kel::caught(thrown).is<kelXNotInitialized>());
    }
}

TEST(Caught, KnowsItsTypeAndSaysIt) {
    kel::caught error = Catch<XCounted>();
    EXPECT_TRUE(error.is<kelXException>() && !error.is<XUncounted>());
    EXPECT_EQ(Text(error), "test::XCounted\n {\n  Description: \"Counted.\";\n  Number: 7;\n }");
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

// Uncaught exceptions --------------------------------------------------------------------------------

TEST(ReportUncaughtDeathTest, PrintsAndGoesOnToTheHandlerBefore) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    auto end = [](auto action) {
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
        [&]() noexcept { action(); }();
    };
    EXPECT_EXIT(end([] { XCounted::Throw(451); }), testing::ExitedWithCode(3),
                "uncaught exception: Counted.\ntest::XCounted\n \\{\n  Description: \"Counted.\";\n"
                "  Number: 451;\n \\}\nbefore: test::XCounted");
    EXPECT_EXIT(end([] { throw 5; }), testing::ExitedWithCode(3), "^before: another");
}

}  // namespace
