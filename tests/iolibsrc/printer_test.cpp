// The printer: the form of every kind of value on many lines and on one, what is printed once, how a print
// that fails ends, prints inside prints, and structures of any depth.
#include <gtest/gtest.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/printlib.h>

#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

std::string Spaces(int count) {
    return std::string(static_cast<std::size_t>(count), ' ');
}

// Form -----------------------------------------------------------------------------------------------

TEST(PrinterForm, BasicValues) {
    EXPECT_EQ(Printed(xany(-17)), "-17");
    EXPECT_EQ(Printed(xany(true)), "true");
    EXPECT_EQ(Printed(xany(xbool{0})), "false");
    EXPECT_EQ(Printed(xany(xbool{7})), "true");
    EXPECT_EQ(Printed(xany("a \"b\"\n")), "\"a \"b\"\n\"");
    EXPECT_EQ(Printed(xany("")), "\"\"");
    EXPECT_EQ(Printed(xany(2, xrtti_get_p_Color())), "blue");
    std::string text(5000, 'x');
    EXPECT_EQ(Printed(xany(text.c_str())), '"' + text + '"');

    std::unique_ptr<printData> bare(printData::Create(kel::nil_int, false));
    EXPECT_EQ(Printed(xany("a\"b"), bare.get()), "a\"b");
    // Empty values take the type that they are printed as.
    EXPECT_EQ(PrintedAs(get_xrttiint(), xany()), "uninit");
    EXPECT_EQ(PrintedAs(xrtti_get_p_Color(), xany(3, xrtti_get_p_Color())), "nil");
    EXPECT_EQ(PrintedAs(xrtti_get_p_Point(), xany(kel::nil_int)), "nil");
}

// The printer writes numbers by itself where the stream would: what the stream writes is the rule.
TEST(PrinterForm, NumbersAreThoseOfTheStream) {
    for (double value : {0.0, -0.0, 1.0, 0.1, 1234567.0, 1e-5, 1e300, 123456.5, -2.5e-310, M_PI,
                         std::numeric_limits<double>::infinity(), std::nan("")}) {
        EXPECT_EQ(Printed(xany(value)), Printed([&](ioStream *stream) { stream->WriteReal(value); }));
    }
    for (int value : {0, 1, -1, INT_MAX, -INT_MAX + 1})
        EXPECT_EQ(Printed(xany(value)), std::to_string(value));
}

TEST(PrinterForm, StructOnLinesAndOnOne) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    EXPECT_EQ(Printed(xany(point.get())), "test::Point\n {\n  x: 1;\n  y: 2;\n }");
    EXPECT_EQ(PrintedOnOneLine(point.get()), "test::Point { x: 1; y: 2; }");
    auto indented = Options(4);
    EXPECT_EQ(Printed(xany(point.get()), indented.get()),
              "test::Point\n     {\n      x: 1;\n      y: 2;\n     }");
    EXPECT_EQ(indented->getIndent(), 4);
}

TEST(PrinterForm, NestedStructsIndentOnLinesAndStayOnOne) {
    xrchandle<Everything> all(kel::construct<Everything>());
    all->point = kel::construct<Point>(3, 4);
    all->color = Color::green;
    all->text = "t";
    all->any = xany(2.5);
    EXPECT_EQ(Printed(xany(all.get())),
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
              " }");
    EXPECT_EQ(
        PrintedOnOneLine(all.get()),
        "test::Everything { point: test::Point { x: 3; y: 4; }; color: green; text: \"t\"; flag: false; "
        "any: 2.5; absent: nil; }");
}

TEST(PrinterForm, ParentsFromTheLastToTheFirstThenTheStructItself) {
    xrchandle<Grandchild> child(kel::construct<Grandchild>());
    EXPECT_EQ(PrintedOnOneLine(child.get()), "test::Grandchild { root: 1; child: 2; grandchild: 3; }");
    auto flat = OneLine();
    flat->setIsRecursive(false);
    EXPECT_EQ(Printed(xany(child.get()), flat.get()), "test::Grandchild { grandchild: 3; }");

    // Two parents, one of which has a parent of its own.
    xrttistruct *parents[] = {xrtti_get_p_Grandchild(), xrtti_get_p_Point()};
    xrttistructs list(2, parents);
    xrttistruct both;
    both.initialize("test::Both", 0, &list, nullptr);
    Shaped<Both> shaped(&both);
    EXPECT_EQ(PrintedOnOneLine(&shaped), "test::Both { x: 5; y: 6; root: 1; child: 2; grandchild: 3; }");
}

TEST(PrinterForm, Sequences) {
    xrchandle<Numbers> numbers(Numbers::create());
    EXPECT_EQ(Printed(xany(numbers.get())), "test::Numbers\n [\n ]");
    EXPECT_EQ(PrintedOnOneLine(numbers.get()), "test::Numbers [ ]");
    for (int i = 1; i <= 3; ++i)
        numbers->append(i);
    EXPECT_EQ(Printed(xany(numbers.get())), "test::Numbers\n [\n  1,\n  2,\n  3\n ]");
    EXPECT_EQ(PrintedOnOneLine(numbers.get()), "test::Numbers [ 1, 2, 3 ]");

    xrchandle<Points> points(Points::create());
    points->append(xrchandle<Point>(kel::construct<Point>(1, 2)));
    points->append(xrchandle<Point>());
    EXPECT_EQ(PrintedOnOneLine(points.get()), "test::Points [ test::Point { x: 1; y: 2; }, nil ]");
}

TEST(PrinterForm, DictionariesShowOnlyTheirEntries) {
    xrchandle<Ages> ages(Ages::create());
    EXPECT_EQ(PrintedOnOneLine(ages.get()), "test::Ages { }");
    ages->set("a \"b\"", 7);
    EXPECT_EQ(Printed(xany(ages.get())), "test::Ages\n {\n  a \"b\": 7;\n }");
    ages->set("c", kel::nil_int);
    ages->remove("a \"b\"");
    EXPECT_EQ(PrintedOnOneLine(ages.get()), "test::Ages { c: nil; }");
}

TEST(PrinterForm, UnionsShowTheDiscriminatorAndItsCase) {
    xrchandle<Shape> shape(kel::construct<Shape>());
    EXPECT_EQ(Printed(xany(shape.get())), "test::Shape\n {\n  Discriminator: 1;\n  Side: 2.5;\n }");
    shape->kind = xany(false);
    EXPECT_EQ(PrintedOnOneLine(shape.get()), "test::Shape { Discriminator: false; Radius: 1; }");
    shape->kind = xany(1, xrtti_get_p_Color());
    EXPECT_EQ(PrintedOnOneLine(shape.get()), "test::Shape { Discriminator: green; Side: 2.5; }");
}

TEST(PrinterForm, Arrays) {
    xrchandle<Row> row(kel::construct<Row>());
    EXPECT_EQ(Printed(xany(row.get())), "test::Row\n [\n  0,\n  1,\n  2\n ]");
    xrchandle<Cube> cube(kel::construct<Cube>());
    EXPECT_EQ(Printed(xany(cube.get())),
              "test::Cube\n"
              " [\n"
              "  [\n"
              "   [\n"
              "    0,\n"
              "    1\n"
              "   ]\n"
              "  ],\n"
              "  [\n"
              "   [\n"
              "    100,\n"
              "    101\n"
              "   ]\n"
              "  ]\n"
              " ]");
    EXPECT_EQ(PrintedOnOneLine(cube.get()), "test::Cube [ [ [ 0, 1 ] ], [ [ 100, 101 ] ] ]");
}

TEST(PrinterForm, ExternValues) {
    Point point(8, 9);
    EXPECT_EQ(Printed(xany(&point, new ForeignNumber)), "<external value>");
    // A foreign struct is read through its own operations, and a copy of it means a copy of its descriptor.
    EXPECT_EQ(PrintedOnOneLine(xany(&point, new ForeignStruct)),
              "foreign::Struct { inner: <external value>; }");
    EXPECT_EQ(PrintedOnOneLine(xany(&point, new ForeignStruct(true))),
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
    std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
    stream->setSerializer(ioSerializer::getBinary());
    xany(258).print(stream.get());
    EXPECT_EQ(stream->ReadInt(), 258);
    // Texts as strings, the bytes between them as bytes.
    xrchandle<Shape> shape(kel::construct<Shape>());
    std::unique_ptr<ioStringStream> typed(ioStringStream::Create());
    typed->setSerializer(ioSerializer::getXDR());
    auto options = Options(1);
    shape->print(typed.get(), options.get());
    auto text = [&](const char *expected) { EXPECT_EQ(typed->ReadString(), expected); };
    auto bytes = [&](std::string_view expected) {
        for (char byte : expected)
            EXPECT_EQ(typed->ReadByte(), byte);
    };
    text("test::Shape");
    bytes("\n  ");
    text("{");
    bytes("\n   ");
    text("Discriminator: ");
    EXPECT_EQ(typed->ReadInt(), 1);
    text(";");
    bytes("\n   ");
    text("Side");
    text(": ");
    EXPECT_EQ(typed->ReadReal(), 2.5);
    text(";");
    bytes("\n  ");
    text("}");
    EXPECT_EQ(typed->PeekNBytes(), 0U);
}

// Options --------------------------------------------------------------------------------------------

TEST(PrintData, MarkersGiveTheDefaults) {
    std::unique_ptr<printData> given(
        printData::Create(kel::nil_int, kel::nil_bool, kel::nil_int, kel::nil_bool));
    EXPECT_EQ(given->getIndent(), 0);
    EXPECT_EQ(given->getQuoteString(), 1);
    EXPECT_EQ(given->getDepth(), 100);
    EXPECT_EQ(given->getIsRecursive(), 1);
    given.reset(printData::Create(3, 5, 7, 0));
    EXPECT_EQ(given->getQuoteString(), 5);
    EXPECT_EQ(given->getIsRecursive(), 0);
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

    xrchandle<Points> points(Points::create());
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    points->append(point);
    points->append(point);
    EXPECT_EQ(PrintedOnOneLine(points.get()),
              "test::Points [ test::Point { x: 1; y: 2; }, test::Point <printed> ]");
}

TEST(PrinterLoops, ObjectsLiveAsLongAsTheirPrintData) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    auto options = OneLine();
    EXPECT_EQ(Printed(xany(point.get()), options.get()), "test::Point { x: 1; y: 2; }");
    EXPECT_EQ(xrcgetcount(point), 2);
    EXPECT_EQ(Printed(xany(point.get()), options.get()), "test::Point <printed>");
    options.reset();
    EXPECT_EQ(xrcgetcount(point), 1);

    // A value that nobody else holds.
    options = OneLine();
    int before = Node::alive;
    Printed(xany(kel::construct<Node>(1)), options.get());
    EXPECT_EQ(Node::alive, before + 1);
    options.reset();
    EXPECT_EQ(Node::alive, before);
}

TEST(PrinterLoops, AFreshObjectOutlivesItsPrint) {
    Node local(1);
    Printed([&](ioStream *stream) { local.print(stream); });
    EXPECT_EQ(xrcgetcount(&local), 0);
}

TEST(PrinterLoops, TheSetCountsReferencesAndIgnoresWhatIsPlain) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    {
        printLoopCheckSet set;
        EXPECT_TRUE(set += printLoopCheckEntry(false, static_cast<xobject *>(point.get())));
        EXPECT_FALSE(set += printLoopCheckEntry(true, static_cast<xobject *>(point.get())));
        EXPECT_EQ(xrcgetcount(point), 2);
        EXPECT_TRUE(set += printLoopCheckEntry(true, &set));
        EXPECT_TRUE(set += printLoopCheckEntry(false, nullptr));
        EXPECT_EQ(set.GetSize(), 3U);
        set -= printLoopCheckEntry(true, static_cast<xobject *>(point.get()));
        EXPECT_EQ(xrcgetcount(point), 1);
        set += printLoopCheckEntry(false, static_cast<xobject *>(point.get()));
    }
    EXPECT_EQ(xrcgetcount(point), 1);

    printLoopCheckSet order;
    auto entry = [](std::uintptr_t address) {
        return printLoopCheckEntry(true, reinterpret_cast<void *>(address));
    };
    EXPECT_EQ(order.Compare(entry(64), entry(60)), 4);
    EXPECT_EQ(order.Compare(entry(60), entry(64)), -4);
    EXPECT_GT(order.Compare(entry(UINTPTR_MAX), entry(1)), 0);
    EXPECT_LT(order.Compare(entry(1), entry(UINTPTR_MAX)), 0);
}

TEST(PrinterLoops, ManyObjectsAreAllRemembered) {
    constexpr int many = 3000;
    xrchandle<Points> points(Points::create());
    for (int i = 0; i < many; ++i)
        points->append(xrchandle<Point>(kel::construct<Point>(i, i)));
    auto options = OneLine();
    Printed(xany(points.get()), options.get());
    for (const xrchandle<Point> &point : *points) {
        ASSERT_EQ(xrcgetcount(point), 2);
        ASSERT_EQ(Printed(xany(point.get()), options.get()), "test::Point <printed>");
    }
    options.reset();
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

TEST(PrinterDepth, DeepListsIndentEveryLine) {
    xrchandle<Node> head;
    for (int i = 0; i < 500; ++i) {
        xrchandle<Node> node(kel::construct<Node>(i));
        node->next = head;
        head = node;
    }
    std::string expected, end;
    for (int i = 499; i >= 0; --i) {
        int indent = (499 - i) * 2;
        expected += "test::Node\n" + Spaces(indent + 1) + "{\n" + Spaces(indent + 2) +
                    "value: " + std::to_string(i) + ";\n" + Spaces(indent + 2) + "next: ";
        end = ";\n" + Spaces(indent + 1) + "}" + end;
    }
    EXPECT_EQ(Printed(xany(head.get())), expected + "nil" + end);
}

// Failures -------------------------------------------------------------------------------------------

constexpr char words[] = "Can not finish printing\n";

TEST(PrinterFailure, AMismatchLeavesOnlyTheWords) {
    auto options = Options(2);
    EXPECT_EQ(PrintedAs(get_xrttiint(), xany("text"), options.get()), std::string("\n  ") + words);
    EXPECT_EQ(PrintedAs(get_xrttiint(), xany("text"), OneLine().get()), std::string(" ") + words);
    EXPECT_EQ(PrintedAs(xrtti_get_p_Point(), xany(5)), std::string("\n") + words);
    EXPECT_EQ(options->getIndent(), 2);
}

TEST(PrinterFailure, ValuesWithoutATypeThrowBeforeAnythingIsPrinted) {
    std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
    for (const xany &value : {xany(), xany(kel::nil_int)}) {
        try {
            value.print(stream.get());
            ADD_FAILURE() << "printed a value without a type";
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            ASSERT_TRUE(error.is<kelXUnknownType>()) << error;
            EXPECT_EQ(error.as<kelXUnknownType>()->getObject(), value);
        }
    }
    EXPECT_EQ(std::string(stream->getStr().Str()), "");
}

TEST(PrinterFailure, AUnionThatNamesNoCase) {
    xrchandle<Shape> shape(kel::construct<Shape>());
    auto options = Options();
    shape->kind = xany(kel::nil_int);
    EXPECT_EQ(Printed(xany(shape.get()), options.get()),
              std::string("test::Shape\n {\n  Discriminator: nil;\n\n  ") + words);
    EXPECT_EQ(options->getIndent(), 0);
    shape->kind = xany(2);
    EXPECT_EQ(PrintedOnOneLine(shape.get()), std::string("test::Shape { Discriminator: 2;  ") + words);
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

TEST(PrinterFailure, ALoopOfTypesEnds) {
    xrttistruct circle;
    xrttistruct *parents[] = {&circle};
    xrttistructs list(1, parents);
    circle.initialize("test::Circle", 0, &list, nullptr);
    Shaped<Point> shaped(&circle);
    EXPECT_EQ(PrintedOnOneLine(&shaped), std::string("test::Circle {  ") + words);
}

TEST(PrinterFailure, AStreamThatRefuses) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    for (std::size_t limit = 0; limit < 60; ++limit) {
        WatchedStream stream(limit);
        auto options = Options();
        point->print(&stream, options.get());
        std::string all = "test::Point\n {\n  x: 1;\n  y: 2;\n }";
        EXPECT_EQ(stream.text(), all.substr(0, limit));
        EXPECT_EQ(stream.getIsBad(), limit < all.size());
        EXPECT_EQ(options->getIndent(), 0);
    }
    WatchedStream closed;
    closed.Close();
    point->print(&closed);
    WatchedStream timed;
    timed.setOTimeout(1.0);
    point->print(&timed);
    EXPECT_EQ(timed.text(), "") << "typed values are not written with a time-out";
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
    xrchandle<Mirror> mirror(kel::construct<Mirror>());
    std::string text = PrintedOnOneLine(mirror.get());
    EXPECT_EQ(text.find(words), text.find('C')) << "expected the words inside the innermost print";
    EXPECT_GT(mirror->depth, 20);
    mirror->depth = 0;
    mirror->fresh = true;  // every print with options of its own
    text = PrintedOnOneLine(mirror.get());
    EXPECT_EQ(text.find(words), text.find('C'));
}

TEST(PrinterNested, AGetterThatPrints) {
    xrchandle<Talkative> talkative(kel::construct<Talkative>());
    auto options = OneLine();
    talkative->options = options.get();
    std::unique_ptr<ioStringStream> other(ioStringStream::Create());
    talkative->other = other.get();
    EXPECT_EQ(Printed(xany(talkative.get()), options.get()), "test::Talkative { said: 3; }");
    EXPECT_EQ(std::string(other->getStr().Str()), "test::Point { x: 1; y: 2; }");
}

TEST(PrinterNested, StandardOutputIsTheDefault) {
    testing::internal::CaptureStdout();
    xany(42).print();
    xrtti_get_p_Color()->printvalue(nullptr, xany(1, xrtti_get_p_Color()));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "42green");
}

}  // namespace
