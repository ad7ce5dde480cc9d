// Comfort: who holds a caught exception and when it dies, the report of an exception that nobody caught.
#include <gtest/gtest.h>
#include <kelstdmt/kelstdmt.h>

#include <cstdlib>
#include <exception>
#include <stdexcept>

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
    [[noreturn]] static void Throw(int) { throw static_cast<xthrowable *>(new Bare); }
    static inline int died = 0;

private:
    xrtticlass *givertti() override { return nullptr; }
};

kel::caught caught_from(const auto &action) {
    try {
        action();
    } catch (xthrowable *thrown) {
        return kel::caught(thrown);
    }
    return kel::caught(nullptr);
}

TEST(Caught, MovesAndSharesWhatItHolds) {
    XCounted::died = 0;
    XCounted *kept;
    {
        kel::caught error = caught_from([] { XCounted::Throw(7); });
        kel::caught moved(std::move(error));
        EXPECT_TRUE(!error && moved);
        error = std::move(moved);
        kel::caught &self = error;
        error = std::move(self);
        EXPECT_EQ(XCounted::died, 0);
        error = caught_from([] { XCounted::Throw(8); });
        EXPECT_EQ(XCounted::died, 1) << "what was held before is released";
        EXPECT_TRUE(error.is<kelXException>() && !error.is<XUncounted>());
        EXPECT_EQ(testing::PrintToString(error),
                  "test::XCounted\n {\n  Description: \"Counted.\";\n  Number: 8;\n }");
        xrcattach(kept = error.as<XCounted>());
    }
    EXPECT_EQ(XCounted::died, 1) << "others may hold it too";
    EXPECT_EQ(xrcgetcount(kept), 1);
    xrcrelease(kept);
}

template <class Thrown>
void dies_once_after_being_passed_on() {
    Thrown::died = 0;
    xthrowable *first = nullptr;
    {
        const kel::caught second = caught_from([&] {
            kel::caught error = caught_from([] { Thrown::Throw(7); });
            first = error.get();
            error.rethrow();
        });
        EXPECT_EQ(second.get(), first);
        EXPECT_EQ(xrcgetcount(first), first->isrefcountable() ? 1 : -1);
        EXPECT_EQ(Thrown::died, 0);
    }
    EXPECT_EQ(Thrown::died, 1);
}

TEST(Caught, PassesOnTheOneReference) {
    dies_once_after_being_passed_on<XCounted>();
    dies_once_after_being_passed_on<XUncounted>();
    EXPECT_TRUE(caught_from([] { kel::caught(nullptr).rethrow(); }).is<kelXNotInitialized>());
}

TEST(Caught, SaysWhatItCan) {
    const kel::caught bare = caught_from([] { Bare::Throw(7); });
    EXPECT_FALSE(bare.is<kelXException>());
    EXPECT_TRUE(bare.type_name() == xstrNullStr && bare.description() == xstrNullStr);
    EXPECT_EQ(testing::PrintToString(bare), "Can not finish printing\n\n");
    // A stream cannot be printed to its end; the error's message is told all the same.
    std::unique_ptr<ioStringStream> stream(ioStringStream::Create("1"));
    const std::string end = testing::PrintToString(caught_from([&] { stream->ReadInt(); }));
    EXPECT_NE(end.find("finish printing\nStream Error (iolib):EOF reached\n"), std::string::npos) << end;
    const auto taken = [](auto thrower) {
        try {
            thrower();
        } catch (...) {
            return kel::take_text();
        }
        return std::string("nothing");
    };
    const int before = Bare::died;
    EXPECT_EQ(taken([] { Bare::Throw(7); }), "");
    EXPECT_EQ(Bare::died, before + 1) << "its text takes the exception over";
    EXPECT_EQ(taken([] { XCounted::Throw(7); }), "Counted.");
    EXPECT_EQ(taken([] { throw std::runtime_error("its own words"); }), "its own words");
    EXPECT_EQ(taken([] { throw 7; }) + kel::take_text(), "");
}

TEST(ReportUncaughtDeathTest, PrintsAndGoesOnToTheHandlerBefore) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto end = []() noexcept {
        std::set_terminate([] {
            try {
                throw;
            } catch (xthrowable *thrown) {  // still there
                std::fprintf(stderr, "before: %s\n", thrown->gettypename().Str());
            }
            std::_Exit(3);
        });
        kel::report_uncaught();
        kel::report_uncaught();
        XCounted::Throw(451);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(3),
                "uncaught exception: Counted.\ntest::XCounted\n \\{\n  Description: \"Counted.\";\n"
                "  Number: 451;\n \\}\nbefore: test::XCounted");
}

}  // namespace
