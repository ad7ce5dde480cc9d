// The printer: what is printed on what stream, what is printed once, how a print that fails ends, prints
// inside prints, and structures of any depth.
#include <gtest/gtest.h>
#include <kelstdmt/kelstdmt.h>

#include <functional>
#include <iomanip>
#include <random>

#include "../../fuzz/printer_fuzz.cpp"
#include "failing_memory.h"
#include "iolibsrc/own_stream.h"

enum Color { red, green, blue };
KEL_DECLARE_ENUM(Color)
KEL_DEFINE_ENUM(Color, "test::Color", "red", "green", "blue")

KEL_DECLARE_STRUCT(Point)
class Point : public xobject {
    KEL_CLASS(Point, xobject)
public:
    explicit Point(int left = 5, int right = 6) : x(left), y(right) {}
    int x, y;
};
KEL_DEFINE_STRUCT(Point, "test::Point", kel::counted, kel::field<&Point::x>("x"), kel::field<&Point::y>("y"))

KEL_SEQUENCE(Points, xrchandle<Point>)
KEL_DEFINE_SEQUENCE(Points, "test::Points", kel::counted)
KEL_DECLARE_STRUCT(Node)
class Node : public xobject {
    KEL_CLASS(Node, xobject)
public:
    explicit Node(int number) : value(number) { ++alive; }
    ~Node() override { --alive; }
    int value;
    xrchandle<Node> next;
    static inline int alive = 0;
};
KEL_DEFINE_STRUCT(Node, "test::Node", kel::counted, kel::field<&Node::value>("value"),
                  kel::field<&Node::next>("next"))

// An object with a descriptor that was made by hand; as a Point it is what it is.
class Both : public Node {
public:
    using Node::Node;
    Point point;
    void *dyndowncast(const xrtticlass *wanted) override {
        return wanted == xrtti_get_p_Point() ? &point : Node::dyndowncast(wanted);
    }
};
template <class Base>
class Shaped : public Base {
public:
    template <class... Arguments>
    explicit Shaped(xrtticlass *type, Arguments... arguments) : Base(arguments...), m_type(type) {}

private:
    xrtticlass *givertti() override { return m_type; }
    xrtticlass *m_type;
};

// Prints itself within its own print, with the same options or with fresh ones.
KEL_DECLARE_STRUCT(Mirror)
class Mirror : public xobject {
    KEL_CLASS(Mirror, xobject)
public:
    int depth = 0;
    bool fresh = false;

private:
    void onprint(ioStream *stream, printData *options) override {
        ++depth;
        stream->WriteString("<");
        print(stream, fresh ? nullptr : options);
        stream->WriteString(">");
    }
};
KEL_DEFINE_STRUCT(Mirror, "test::Mirror", kel::counted)

// Goes its own way to the printer.
class Routing : public xrttistruct {
public:
    Routing() { initialize("test::Routing", 0, nullptr, nullptr); }
    bool mismatch = false;

private:
    void OnRoutePrint(ioStream *stream, xany value, printData *options) override {
        stream->WriteString("(");
        if (mismatch)
            PrintClassImpl(stream, xany(5), options);
        else
            PrintImpl(stream, value, options);
        stream->WriteString(")");
    }
};

namespace {

std::unique_ptr<printData> OneLine() {
    return std::unique_ptr<printData>(printData::Create(printIndentSameLine));
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

struct Text : Stream {
    Text() : Stream(true, false, ioSerializer::getAscii()) {}
};

std::string streamed(const auto &value) {
    std::ostringstream out;
    out << value;
    return out.str();
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

// As a parent, an object is what its class makes of itself; a type that is its own parent ends in words.
TEST(PrinterForm, ParentsFromTheLastToTheFirstThenTheStructItself) {
    xrttistruct both, circle;
    xrttistruct *parents[] = {xrtti_get_p_Node(), xrtti_get_p_Point()}, *itself[] = {&circle};
    xrttistructs two(2, parents), one(1, itself);
    both.initialize("test::Both", 0, &two, nullptr);
    circle.initialize("test::Circle", 0, &one, nullptr);
    Shaped<Both> shaped(&both, 1);
    Shaped<Point> round(&circle);
    EXPECT_EQ(PrintedOnOneLine(&shaped), "test::Both { x: 5; y: 6; value: 1; next: nil; }");
    EXPECT_EQ(PrintedOnOneLine(&round), std::string("test::Circle {  ") + words);
}

TEST(PrinterForm, OtherEncodingsGetTypedValues) {
    // Texts as strings, the bytes between them as bytes.
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    std::unique_ptr<ioStringStream> typed(ioStringStream::Create());
    typed->setSerializer(ioSerializer::getXDR());
    const std::unique_ptr<printData> options(printData::Create(1));
    point->print(typed.get(), options.get());
    xany(2.5).print(typed.get());
    const std::unique_ptr<ioStringStream> expected(ioStringStream::Create());
    expected->setSerializer(ioSerializer::getXDR());
    for (std::string_view piece : {"test::Point", "\n  ", "{", "\n   ", "x", ": ", "1", ";", "\n   ", "y",
                                   ": ", "2", ";", "\n  ", "}"}) {
        if (piece == "1" || piece == "2")
            expected->WriteInt(piece[0] - '0');
        else if (piece[0] == '\n')
            expected->WriteBytes(piece.data(), static_cast<unsigned>(piece.size()));
        else
            expected->WriteString(piece.data());
    }
    expected->WriteReal(2.5);
    EXPECT_EQ(drain(*typed), drain(*expected));
}

// Options --------------------------------------------------------------------------------------------

TEST(PrintData, MarkersGiveTheDefaults) {
    std::unique_ptr<printData> given(
        printData::Create(kel::nil_int, kel::nil_bool, kel::nil_int, kel::nil_bool));
    EXPECT_EQ(PrintedOnOneLine(given.get()),
              "printlib::Data { QuoteString: true; Depth: 100; IsRecursive: true; Indent: 0; }");
    given.reset(printData::Create(3, 5, 7, 0));
    EXPECT_TRUE(given->getQuoteString() == 5 && given->setDepth(9) == 9 && !given->isrefcountable());
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
    ASSERT_EQ(text.size(), (opened.size() + closed.size()) * length + 3);
    EXPECT_EQ(text.substr(opened.size() * (length - 1), opened.size() + 3 + closed.size()),
              opened + "nil" + closed);
}

// Failures -------------------------------------------------------------------------------------------

TEST(PrinterFailure, ValuesWithoutATypeThrowBeforeAnythingIsPrinted) {
    Text stream;
    for (const xany &value : {xany(), xany(kel::nil_int)})
        EXPECT_EQ(failure([&] { value.print(&stream); }), "not a stream error: kellib::XUnknownType");
    EXPECT_EQ(stream.written, "");
}

TEST(PrinterFailure, AStreamThatRefuses) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    const std::string all = "test::Point\n {\n  x: 1;\n  y: 2;\n }";
    for (std::size_t limit = 0; limit <= all.size(); ++limit) {
        Text stream;
        stream.buffer->plain.limit = limit;
        const std::unique_ptr<printData> options(printData::Create());
        point->print(&stream, options.get());
        EXPECT_EQ(stream.written, all.substr(0, limit));
        EXPECT_TRUE(stream.getIsBad() == (limit < all.size()) && options->getIndent() == 0) << limit;
    }
    Text lines, line, timed, closed;
    point->print(&lines);
    point->print(&line, OneLine().get());
    EXPECT_EQ(lines.buffer->plain.synced, 6) << "four line ends, the closing bracket, and the whole print";
    EXPECT_EQ(line.buffer->plain.synced, 2) << "the last two";
    timed.setOTimeout(1.0);
    point->print(&timed);
    closed.Close();
    point->print(&closed);
    EXPECT_EQ(timed.written + closed.written, "") << "typed values are not written with a time-out";
}

// Each allocation of a print fails once, and every time the caller hears of it as std::bad_alloc, or the
// print finds its way without.
TEST(PrinterFailure, MemoryThatRunsOut) {
    const xrchandle<Point> point(kel::construct<Point>(1, 2));
    const std::string whole = kel::printed(*point).str();
    int failures = 0;
    for (long before = 0; failing_memory::allocations_left < 0; ++before) {
        std::string text = whole;
        failing_memory::allocations_left = before;
        try {
            text = kel::printed(*point).str();
        } catch (const std::bad_alloc &) {
            ++failures;
        }
        if (failing_memory::allocations_left >= 0) break;
        EXPECT_TRUE(text == whole || text.ends_with(words)) << text;
        EXPECT_EQ(kel::printed(*point).str(), whole) << "after a failure of allocation " << before;
    }
    failing_memory::allocations_left = -1;
    EXPECT_GT(failures, 3);
}

// Prints inside prints -------------------------------------------------------------------------------

TEST(PrinterNested, ADescriptorThatRoutesItsValues) {
    Routing routing;
    Node holder(3);
    holder.next = xrchandle<Node>(kel::construct<Shaped<Node>>(&routing, 4));
    EXPECT_EQ(kel::printed(holder, true).str(), "test::Node { value: 3; next: (test::Routing { }); }");
    EXPECT_EQ(Printed([&](ioStream *stream) { routing.printvalue(stream, xany(), nullptr); }), "(uninit)");
    // Its failures reach the outermost print.
    routing.mismatch = true;
    EXPECT_EQ(kel::printed(holder, true).str(), std::string("test::Node { value: 3; next: ( ") + words);
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

// On a std::ostream ---------------------------------------------------------------------------

TEST(Printed, WhatHasADescriptor) {
    xrchandle<Point> point(kel::construct<Point>(1, 2));
    Node local(3);
    const std::pair<std::string, const char *> values[] = {
        {streamed(point), "test::Point\n {\n  x: 1;\n  y: 2;\n }"},
        {kel::printed(*point, true).str(), "test::Point { x: 1; y: 2; }"},
        {kel::printed(local, true).str(), "test::Node { value: 3; next: nil; }"},
        {kel::printed(xrchandle<Point>()).str(), "nil"},
        {kel::printed(kel::uninit_object()).str(), "uninit"},
        {kel::printed(green).str() + kel::printed(std::string("text")).str(), "green\"text\""},
        {streamed(xany()) + streamed(xstring("text")) + streamed(green), "uninittext1"},
    };
    for (auto &[text, expected] : values)
        EXPECT_EQ(text, expected);
    EXPECT_TRUE(xrcgetcount(point) == 1 && xrcgetcount(&local) == 0) << "nothing holds them";
}

TEST(Printed, AStreamThatFails) {
    Plain buffer;
    buffer.limit = 10;
    std::ostream out(&buffer);
    Point point(1, 2);
    out << std::setw(30) << kel::printed(point);
    EXPECT_EQ(buffer.written, "test::Poin");
    EXPECT_TRUE(out.bad());
    const std::string large(20000, 'x');  // more than a buffer full arrives whole
    EXPECT_EQ(kel::printed(large).str(), '"' + large + '"');
}

}  // namespace
