// The printer: the form of every kind of value on many lines and on one, what is printed once, how a print
// that fails ends, prints inside prints, and structures of any depth.
#include <gtest/gtest.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/printlib.h>

#include <climits>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>

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

// What is printed on lines and on one; null: the same as on lines.
struct Form {
    xany value;
    const char *lines, *one_line = nullptr;
};
void expect(std::initializer_list<Form> forms) {
    for (const Form &form : forms) {
        EXPECT_EQ(Printed(form.value), form.lines);
        EXPECT_EQ(PrintedOnOneLine(form.value), form.one_line ? form.one_line : form.lines);
    }
}

TEST(PrinterForm, BasicValues) {
    std::string quoted = '"' + std::string(5000, 'x') + '"', text = quoted.substr(1, 5000);
    Point point(8, 9);
    expect({{-17, "-17"},
            {true, "true"},
            {xany(xbool{0}), "false"},
            {xany(xbool{7}), "true"},
            {"a \"b\"\n", "\"a \"b\"\n\""},
            {text.c_str(), quoted.c_str()},
            {xany(2, xrtti_get_p_Color()), "blue"},
            {xany(&point, new ForeignNumber), "<external value>"}});
    std::unique_ptr<printData> bare(printData::Create(kel::nil_int, false));
    EXPECT_EQ(Printed(xany("a\"b"), bare.get()), "a\"b");
    // Empty values take the type that they are printed as.
    EXPECT_EQ(PrintedAs(get_xrttiint(), xany()), "uninit");
    EXPECT_EQ(PrintedAs(xrtti_get_p_Color(), xany(3, xrtti_get_p_Color())), "nil");
    EXPECT_EQ(PrintedAs(xrtti_get_p_Point(), xany(kel::nil_int)), "nil");
}

// The printer writes numbers by itself where the stream would: what the stream writes is the rule.
TEST(PrinterForm, NumbersAreThoseOfTheStream) {
    for (double value : {-0.0, 1.0, 0.1, 1234567.0, 1e-5, 1e300, 123456.5, -2.5e-310, HUGE_VAL, std::nan("")})
        EXPECT_EQ(Printed(xany(value)), Printed([&](ioStream *stream) { stream->WriteReal(value); }));
    for (int value : {0, -1, INT_MAX, -INT_MAX + 1})
        EXPECT_EQ(Printed(xany(value)), std::to_string(value));
}

TEST(PrinterForm, NestedStructsIndentOnLinesAndStayOnOne) {
    xrchandle<Everything> all(kel::construct<Everything>());
    all->point = kel::construct<Point>(3, 4);
    all->color = Color::green;
    all->text = "t";
    all->any = xany(2.5);
    expect({{all.get(),
             "test::Everything\n"
             " {\n"
             "  point: test::Point\n"
             "   {\n"
             "    x: 3;\n"
             "    y: 4;\n"
             "   };\n"
             "  color: green;\n"
             "  text: \"t\";\n"
             "  flag: false;\n"
             "  any: 2.5;\n"
             "  absent: nil;\n"
             " }",
             "test::Everything { point: test::Point { x: 3; y: 4; }; color: green; text: \"t\"; flag: false; "
             "any: 2.5; absent: nil; }"}});
    auto indented = Options(4);
    EXPECT_EQ(Printed(xany(all->point.get()), indented.get()),
              "test::Point\n     {\n      x: 3;\n      y: 4;\n     }");
    EXPECT_EQ(indented->getIndent(), 4);
}

TEST(PrinterForm, ParentsFromTheLastToTheFirstThenTheStructItself) {
    xrchandle<Child> child(kel::construct<Child>());
    EXPECT_EQ(PrintedOnOneLine(child.get()), "test::Child { root: 1; child: 2; }");
    auto flat = OneLine();
    flat->setIsRecursive(false);
    EXPECT_EQ(Printed(xany(child.get()), flat.get()), "test::Child { child: 2; }");
    // Two parents, one of which has a parent of its own; and a parent that is its own.
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

TEST(PrinterForm, Containers) {
    xrchandle<Numbers> none(Numbers::create()), numbers(Numbers::create());
    for (int i = 1; i <= 3; ++i)
        numbers->append(i);
    xrchandle<Points> points(Points::create());
    points->append(xrchandle<Point>(kel::construct<Point>(1, 2)));
    points->append(xrchandle<Point>());
    xrchandle<Ages> nobody(Ages::create()), ages(Ages::create());
    ages->set("gone", 1);
    ages->set("a \"b\"", kel::nil_int);
    ages->remove("gone");
    xrchandle<Cube> cube(kel::construct<Cube>());
    expect({
        {none.get(), "test::Numbers\n [\n ]", "test::Numbers [ ]"},
        {numbers.get(), "test::Numbers\n [\n  1,\n  2,\n  3\n ]", "test::Numbers [ 1, 2, 3 ]"},
        {points.get(), "test::Points\n [\n  test::Point\n   {\n    x: 1;\n    y: 2;\n   },\n  nil\n ]",
         "test::Points [ test::Point { x: 1; y: 2; }, nil ]"},
        {nobody.get(), "test::Ages\n {\n }", "test::Ages { }"},
        {ages.get(), "test::Ages\n {\n  a \"b\": nil;\n }", "test::Ages { a \"b\": nil; }"},
        {cube.get(),
         "test::Cube\n [\n  [\n   [\n    0,\n    1\n   ]\n  ],\n  [\n   [\n    100,\n    101\n   ]\n  ]\n ]",
         "test::Cube [ [ [ 0, 1 ] ], [ [ 100, 101 ] ] ]"},
    });
}

TEST(PrinterForm, UnionsShowTheDiscriminatorAndItsCase) {
    xrchandle<Shape> shape(kel::construct<Shape>());
    EXPECT_EQ(Printed(xany(shape.get())), "test::Shape\n {\n  Discriminator: 1;\n  Side: 2.5;\n }");
    const std::pair<xany, std::string> cases[] = {{false, "false; Radius: 1; }"},
                                                  {xany(1, xrtti_get_p_Color()), "green; Side: 2.5; }"},
                                                  {2, std::string("2;  ") + words},
                                                  {kel::nil_int, std::string("nil;  ") + words}};
    for (auto &[kind, expected] : cases) {
        shape->kind = kind;
        EXPECT_EQ(PrintedOnOneLine(shape.get()), "test::Shape { Discriminator: " + expected);
    }
}

// A foreign struct is read through its own operations, and a copy of it means a copy of its descriptor.
TEST(PrinterForm, ForeignStructs) {
    int data = 0;
    EXPECT_EQ(PrintedOnOneLine(xany(&data, new ForeignStruct)),
              "foreign::Struct { inner: <external value>; }");
    EXPECT_EQ(PrintedOnOneLine(xany(&data, new ForeignStruct(true))),
              "foreign::Struct { inner: foreign::Struct <printed>; }");
}

TEST(PrinterForm, DepthOneSkipsWhatIsComposite) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    xrchandle<Numbers> numbers(Numbers::create());
    auto options = Options();
    options->setDepth(1);
    EXPECT_EQ(Printed(xany(point.get()), options.get()), "test::Point{ ... skipped ... }");
    EXPECT_EQ(Printed(xany(numbers.get()), options.get()), "test::Numbers[ ... skipped ... ]");
    EXPECT_EQ(Printed(xany(5), options.get()), "5");
    options->setDepth(0);
    EXPECT_EQ(Printed(xany(point.get()), options.get()), "test::Point\n {\n  x: 1;\n  y: 2;\n }");
}

TEST(PrinterForm, OtherEncodingsGetTypedValues) {
    // Texts as strings, the bytes between them as bytes.
    xrchandle<Shape> shape(kel::construct<Shape>());
    std::unique_ptr<ioStringStream> typed(ioStringStream::Create());
    typed->setSerializer(ioSerializer::getXDR());
    auto options = Options(1);
    shape->print(typed.get(), options.get());
    for (std::string_view expected : {"test::Shape", "\n  ", "{", "\n   ", "Discriminator: ", "1", ";",
                                      "\n   ", "Side", ": ", "2.5", ";", "\n  ", "}"}) {
        if (expected == "1")
            EXPECT_EQ(typed->ReadInt(), 1);
        else if (expected == "2.5")
            EXPECT_EQ(typed->ReadReal(), 2.5);
        else if (expected[0] != '\n')
            EXPECT_EQ(typed->ReadString(), expected);
        else
            for (char byte : expected)
                EXPECT_EQ(typed->ReadByte(), byte);
    }
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

TEST(PrinterLoops, AnObjectIsPrintedOnce) {
    xrchandle<Node> node(kel::construct<Node>(1));
    node->next = node;
    EXPECT_EQ(PrintedOnOneLine(node.get()), "test::Node { value: 1; next: test::Node <printed>; }");
    node->next = nullptr;
    Node local(2);
    Printed([&](ioStream *stream) { local.print(stream); });
    EXPECT_EQ(xrcgetcount(&local), 0) << "a fresh object outlives its print";
}

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

TEST(PrinterFailure, AMismatchLeavesOnlyTheWords) {
    auto options = Options(2);
    EXPECT_EQ(PrintedAs(get_xrttiint(), xany("text"), options.get()), std::string("\n  ") + words);
    EXPECT_EQ(PrintedAs(get_xrttiint(), xany("text"), OneLine().get()), std::string(" ") + words);
    EXPECT_EQ(PrintedAs(xrtti_get_p_Point(), xany(5)), std::string("\n") + words);
    EXPECT_EQ(options->getIndent(), 2);
}

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

TEST(PrinterFailure, AGetterThatThrowsEndsThePrintWhereItStands) {
    xrchandle<Broken> broken(kel::construct<Broken>());
    auto options = Options();
    EXPECT_EQ(Printed(xany(broken.get()), options.get()),
              std::string("test::Broken\n {\n  good: 1;\n  bad: \n  ") + words);
    EXPECT_EQ(options->getIndent(), 0);
    EXPECT_EQ(Printed(xany(broken.get()), options.get()), "test::Broken <printed>");
    // A field that is not there is no failure.
    broken->absent = true;
    EXPECT_EQ(PrintedOnOneLine(broken.get()), "test::Broken { good: 1; bad: uninit; last: 2; }");
    // What is not a framework exception is not the printer's to absorb.
    broken->standard = true;
    options = Options();
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

TEST(PrinterNested, AClassThatPrintsItself) {
    xrchandle<Signed> own(kel::construct<Signed>());
    own->inner = kel::construct<Point>(1, 2);
    xrchandle<Holder> holder(kel::construct<Holder>());
    holder->held = own.get();
    EXPECT_EQ(PrintedOnOneLine(holder.get()),
              "test::Holder { held: <test::Point { x: 1; y: 2; }>; after: 5; }");
    EXPECT_EQ(Printed(xany(holder.get())),
              "test::Holder\n {\n  held: <test::Point\n   {\n    x: 1;\n    y: 2;\n   }>;\n  after: 5;\n }");
    // A failure inside ends there, and what is around goes on.
    own->inner = kel::construct<Broken>();
    auto options = OneLine();
    EXPECT_EQ(Printed(xany(holder.get()), options.get()),
              std::string("test::Holder { held: <test::Broken { good: 1; bad:  ") + words + ">; after: 5; }");
}

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
        xrchandle<Signed> mirror(kel::construct<Signed>());
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
