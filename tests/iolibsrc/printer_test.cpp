// The printer: the form of every kind of value on many lines and on one, what is printed once, how a print
// that fails ends, prints inside prints, and structures of any depth.
#include <gtest/gtest.h>
#include <kelstdmt/kel.h>

#include <cmath>
#include <functional>
#include <random>

#include "../../fuzz/printer_fuzz.cpp"
#include "iolibsrc/print_support.h"

namespace {

std::unique_ptr<printData> Options(int indent = 0) {
    return std::unique_ptr<printData>(printData::Create(indent));
}
std::unique_ptr<printData> OneLine() {
    return Options(printIndentSameLine);
}

std::string Printed(const std::function<void(ioStream *)> &print) {
    std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
    print(stream.get());
    return stream->getStr().Str();
}
std::string Printed(const xany &value, printData *options = nullptr) {
    return Printed([&](ioStream *stream) { value.print(stream, options); });
}
std::string PrintedOnOneLine(const xany &value) {
    return Printed(value, OneLine().get());
}
std::string PrintedAs(brtti *type, const xany &value, printData *options = nullptr) {
    return Printed([&](ioStream *stream) { type->printvalue(stream, value, options); });
}

constexpr char words[] = "Can not finish printing\n";

// Form -----------------------------------------------------------------------------------------------

// The fuzz target's model tells what a print gives; here it does so for chance.
TEST(PrinterForm, IsThatOfTheModel) {
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        std::vector<std::uint8_t> choices(random() % 600);
        std::generate(choices.begin(), choices.end(), std::ref(random));
        LLVMFuzzerTestOneInput(choices.data(), choices.size());
    }
}

TEST(PrinterForm, RealsAreThoseOfTheStream) {
    for (double value : {-0.0, 0.1, 1234567.0, 1e-5, -2.5e-310, HUGE_VAL, std::nan("")})
        EXPECT_EQ(Printed(xany(value)), Printed([&](ioStream *stream) { stream->WriteReal(value); }));
}

// As a parent, an object is what its class makes of itself; a type that is its own parent ends in words.
TEST(PrinterForm, ParentsFromTheLastToTheFirstThenTheStructItself) {
    xrttistruct both, circle;
    xrttistruct *parents[] = {xrtti_get_p_Child(), xrtti_get_p_Point()}, *itself[] = {&circle};
    xrttistructs two(2, parents), one(1, itself);
    both.initialize("test::Both", 0, &two, nullptr);
    circle.initialize("test::Circle", 0, &one, nullptr);
    Shaped<Both> shaped(&both);
    Shaped<Point> round(&circle);
    EXPECT_EQ(PrintedOnOneLine(&shaped), "test::Both { x: 5; y: 6; root: 1; child: 2; }");
    EXPECT_EQ(PrintedOnOneLine(&round), std::string("test::Circle {  ") + words);
}

TEST(PrinterForm, OtherEncodingsGetTypedValues) {
    // Texts as strings, the bytes between them as bytes.
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    std::unique_ptr<ioStringStream> typed(ioStringStream::Create());
    typed->setSerializer(ioSerializer::getXDR());
    auto options = Options(1);
    point->print(typed.get(), options.get());
    for (std::string_view expected : {"test::Point", "\n  ", "{", "\n   ", "x", ": ", "1", ";", "\n   ", "y",
                                      ": ", "2", ";", "\n  ", "}"}) {
        if (expected == "1" || expected == "2")
            EXPECT_EQ(typed->ReadInt(), expected[0] - '0');
        else if (expected[0] != '\n')
            EXPECT_EQ(typed->ReadString(), expected);
        else
            for (char byte : expected)
                EXPECT_EQ(typed->ReadByte(), byte);
    }
    xany(2.5).print(typed.get());
    EXPECT_EQ(typed->ReadReal(), 2.5);
    EXPECT_EQ(typed->PeekNBytes(), 0U);
}

// Options --------------------------------------------------------------------------------------------

TEST(PrintData, MarkersGiveTheDefaults) {
    std::unique_ptr<printData> given(
        printData::Create(kel::nil_int, kel::nil_bool, kel::nil_int, kel::nil_bool));
    EXPECT_EQ(PrintedOnOneLine(given.get()),
              "printlib::Data { QuoteString: true; Depth: 100; IsRecursive: true; Indent: 0; }");
    given.reset(printData::Create(3, 5, 7, 0));
    EXPECT_EQ(given->getQuoteString(), 5);
    EXPECT_EQ(given->setDepth(9), 9);
    EXPECT_FALSE(given->isrefcountable());
    EXPECT_EQ(PrintedOnOneLine(given.get()),
              "printlib::Data { QuoteString: true; Depth: 9; IsRecursive: false; Indent: 3; }");
}

// What was printed -----------------------------------------------------------------------------------

TEST(PrinterLoops, ManyObjectsAreRememberedAndLiveAsLongAsTheirPrintData) {
    constexpr int many = 3000;
    int before = Node::alive;
    xrchandle<Points> points(Points::create());
    for (int i = 0; i < many; ++i)
        points->append(xrchandle<Point>(kel::construct<Point>(i, i)));
    auto options = OneLine();
    Printed(xany(points.get()), options.get());
    Printed(xany(kel::construct<Node>(1)), options.get());
    EXPECT_EQ(Node::alive, before + 1) << "that nobody else holds";
    for (const xrchandle<Point> &point : *points) {
        ASSERT_EQ(xrcgetcount(point), 2);
        ASSERT_EQ(Printed(xany(point.get()), options.get()), "test::Point <printed>");
    }
    options.reset();
    EXPECT_EQ(Node::alive, before);
    Node local(2);
    Printed([&](ioStream *stream) { local.print(stream); });
    EXPECT_EQ(xrcgetcount(&local), 0) << "a fresh object outlives its print";
    for (const xrchandle<Point> &point : *points)
        ASSERT_EQ(xrcgetcount(point), 1);
}

// Any depth ------------------------------------------------------------------------------------------

TEST(PrinterDepth, AMillionNodesInOneList) {
#ifdef __SANITIZE_THREAD__
    constexpr int length = 100'000;
#else
    constexpr int length = 1'000'000;
#endif
    xrchandle<Node> head;
    for (int i = 0; i < length; ++i) {
        xrchandle<Node> node(kel::construct<Node>(7));
        node->next = head;
        head = node;
    }
    const std::string opened = "test::Node { value: 7; next: ", closed = "; }";
    std::string text = PrintedOnOneLine(head.get());
    ASSERT_EQ(text.size(), opened.size() * length + 3 + closed.size() * length);
    EXPECT_EQ(text.substr(opened.size() * (length - 1), opened.size() + 3 + closed.size()),
              opened + "nil" + closed);
}

// Failures -------------------------------------------------------------------------------------------

TEST(PrinterFailure, ValuesWithoutATypeThrowBeforeAnythingIsPrinted) {
    WatchedStream stream;
    for (const xany &value : {xany(), xany(kel::nil_int)}) {
        try {
            value.print(&stream);
            ADD_FAILURE() << "printed a value without a type";
        } catch (xthrowable *thrown) {
            EXPECT_TRUE(kel::caught(thrown).is<kelXUnknownType>());
        }
    }
    EXPECT_EQ(stream.text(), "");
}

// What is not a framework exception is not the printer's to absorb.
TEST(PrinterFailure, OtherExceptionsPass) {
    xrchandle<Broken> broken(kel::construct<Broken>());
    auto options = Options();
    EXPECT_THROW(Printed(xany(broken.get()), options.get()), std::bad_alloc);
    EXPECT_EQ(options->getIndent(), 0);
    EXPECT_EQ(Printed(xany(1), options.get()), "1");
}

TEST(PrinterFailure, AStreamThatRefuses) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    const std::string all = "test::Point\n {\n  x: 1;\n  y: 2;\n }";
    for (std::size_t limit = 0; limit <= all.size(); ++limit) {
        WatchedStream stream(limit);
        auto options = Options();
        point->print(&stream, options.get());
        EXPECT_EQ(stream.text(), all.substr(0, limit));
        EXPECT_EQ(stream.getIsBad(), limit < all.size());
        EXPECT_EQ(options->getIndent(), 0);
    }
    WatchedStream closed, timed;
    closed.Close();
    point->print(&closed);
    timed.setOTimeout(1.0);
    point->print(&timed);
    EXPECT_EQ(closed.text() + timed.text(), "") << "typed values are not written with a time-out";
}

TEST(PrinterFlush, EveryLineEndAndTheEnd) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    WatchedStream lines, line;
    point->print(&lines);
    // Four line ends, the closing bracket, and the whole print.
    EXPECT_EQ(lines.flushed(), 6);
    EXPECT_EQ(lines.longest_unflushed(), std::string("test::Point\n").size());
    point->print(&line, OneLine().get());
    EXPECT_EQ(line.flushed(), 2);
}

// Prints inside prints -------------------------------------------------------------------------------

TEST(PrinterNested, ADescriptorThatRoutesItsValues) {
    Routing routing;
    Shaped<Point> shaped(&routing);
    EXPECT_EQ(PrintedOnOneLine(&shaped), "(test::Routing { })");
    xrchandle<Holder> holder(kel::construct<Holder>());
    holder->held = &shaped;
    EXPECT_EQ(PrintedOnOneLine(holder.get()), "test::Holder { held: (test::Routing { }); after: 5; }");
    EXPECT_EQ(PrintedAs(&routing, xany()), "(uninit)");
    // Its failures reach the outermost print.
    routing.mismatch = true;
    EXPECT_EQ(PrintedOnOneLine(holder.get()), std::string("test::Holder { held: ( ") + words);
}

TEST(PrinterNested, EndlessNestingEndsInWords) {
    for (bool fresh : {false, true}) {  // with the same options, and each with options of its own
        xrchandle<Mirror> mirror(kel::construct<Mirror>());
        mirror->fresh = fresh;
        std::string text = PrintedOnOneLine(mirror.get());
        EXPECT_EQ(text.find(words), text.find('C')) << "expected the words inside the innermost print";
        EXPECT_GT(mirror->depth, 20);
    }
}

TEST(PrinterNested, StandardOutputIsTheDefault) {
    testing::internal::CaptureStdout();
    xany(42).print();
    xrtti_get_p_Color()->printvalue(nullptr, xany(1, xrtti_get_p_Color()));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "42green");
}

}  // namespace
