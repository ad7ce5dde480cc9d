// The printer: the form of every kind of value, what is printed once, how a print that fails ends, prints
// inside prints, and structures of any depth.
#include <gtest/gtest.h>
#include <kelstdmt/kelstdmt.h>

#include <iomanip>
#include <regex>

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

KEL_DECLARE_STRUCT(Pixel)
class Pixel : public Point {
    KEL_CLASS(Pixel, Point)
public:
    Color color = green;
};
KEL_DEFINE_STRUCT(Pixel, "test::Pixel", kel::counted, kel::field<&Pixel::color>("color"))

KEL_SEQUENCE(Points, xrchandle<Point>)
KEL_DEFINE_SEQUENCE(Points, "test::Points", kel::counted)
KEL_DICTIONARY(Numbers, int)
KEL_DEFINE_DICTIONARY(Numbers, "test::Numbers", kel::counted)

KEL_DECLARE_UNION(Shape)
class Shape : public xobject {
    KEL_CLASS(Shape, xobject)
public:
    Color kind = green;
    int side = 4;
    double radius = 2.5;
};
KEL_DEFINE_UNION(Shape, "test::Shape", kel::counted, kel::field<&Shape::kind>("kind"),
                 kel::field<&Shape::side>("side"), kel::field<&Shape::radius>("radius"))

KEL_DECLARE_ARRAY(Grid)
class Grid : public xobject {
    KEL_CLASS(Grid, xobject)
public:
    int fails_at = -1;
    int At(int row, int column) const {
        if (row * 10 + column == fails_at) kelXNotInitialized::Throw();
        return row * 10 + column;
    }
};
KEL_DEFINE_ARRAY(Grid, "test::Grid", kel::counted, kel::elements<&Grid::At, 2, 2>())

// Something of every kind.
KEL_DECLARE_STRUCT(All)
class All : public Pixel {
    KEL_CLASS(All, Pixel)
public:
    All() {
        points->append(point);
        points->append(point);
        numbers->set("one", 1);
    }
    xrchandle<Point> point{kel::construct<Point>(3, -4)};
    xstring text = "\"t";
    bool flag = true;
    std::optional<int> absent;
    xany unset;
    xrchandle<Points> points{Points::create()}, none{Points::create()};
    xrchandle<Numbers> numbers{Numbers::create()};
    xrchandle<Shape> shape{kel::construct<Shape>()};
    xrchandle<Grid> grid{kel::construct<Grid>()};
};
KEL_DEFINE_STRUCT(All, "test::All", kel::counted, kel::field<&All::text>("text"),
                  kel::field<&All::flag>("flag"), kel::optional_field<&All::absent>("absent"),
                  kel::field<&All::unset>("unset"), kel::field<&All::points>("points"),
                  kel::field<&All::none>("none"), kel::field<&All::numbers>("numbers"),
                  kel::field<&All::shape>("shape"), kel::field<&All::grid>("grid"))

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

// An object with a descriptor that was made by hand.
template <class Base>
class Shaped : public Base {
public:
    template <class... Arguments>
    explicit Shaped(xrtticlass *type, Arguments... arguments) : Base(arguments...), m_type(type) {}

private:
    xrtticlass *givertti() override { return m_type; }
    xrtticlass *m_type;
};

// What is no object of the library's, as a struct with a field of which nothing is known.
class Foreign : public xrtticlass {
public:
    Foreign() { initialize("foreign::Struct", 0); }

private:
    brtti *Clone() override { return new Foreign; }
    xbool GiveIsStruct() override { return 1; }
    int GiveNFields() override { return 1; }
    xstring GiveFieldName(int) override { return "inner"; }
    brtti *GiveFieldType(int) override { return nullptr; }
    xany GiveField(int, xany) override { return {}; }
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

private:
    void OnRoutePrint(ioStream *stream, xany value, printData *options) override {
        stream->WriteString("(");
        PrintImpl(stream, value, options);
        stream->WriteString(")");
    }
};

namespace {

using Options = std::unique_ptr<printData>;

std::string printed(const xany &value, printData *options) {
    std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
    value.print(stream.get(), options);
    return stream->getStr().Str();
}
std::string on_one_line(const xany &value) {
    return printed(value, Options(printData::Create(printIndentSameLine)).get());
}

struct Text : Stream {
    Text() : Stream(true, false, ioSerializer::getAscii()) {}
};

constexpr char words[] = "Can not finish printing\n";

// Form -----------------------------------------------------------------------------------------------

const std::string everything =
    "test::All\n {\n  x: 5;\n  y: 6;\n  color: green;\n  text: \"\"t\";\n  flag: true;\n  absent: nil;\n"
    "  unset: uninit;\n"
    "  points: test::Points\n   [\n    test::Point\n     {\n      x: 3;\n      y: -4;\n     },\n"
    "    test::Point <printed>\n   ];\n"
    "  none: test::Points\n   [\n   ];\n"
    "  numbers: test::Numbers\n   {\n    one: 1;\n   };\n"
    "  shape: test::Shape\n   {\n    Discriminator: green;\n    radius: 2.5;\n   };\n"
    "  grid: test::Grid\n   [\n    [\n     0,\n     1\n    ],\n    [\n     10,\n     11\n    ]\n   ];\n }";

TEST(PrinterForm, OfEveryKind) {
    const xrchandle<All> all(kel::construct<All>());
    const xrchandle<Pixel> pixel(kel::construct<Pixel>());
    EXPECT_EQ(kel::printed(all).str(), everything);
    EXPECT_EQ(on_one_line(all.get()), std::regex_replace(everything, std::regex("\n *"), " "));
    const Options deeper(printData::Create(2, false)), skipping(printData::Create(0, true, 1)),
        own(printData::Create(printIndentSameLine, true, 100, false));
    EXPECT_EQ(printed(pixel.get(), deeper.get()),
              "test::Pixel\n   {\n    x: 5;\n    y: 6;\n    color: green;\n   }");
    EXPECT_EQ(printed(xany("t"), deeper.get()), "t");
    EXPECT_EQ(printed(all.get(), skipping.get()), "test::All{ ... skipped ... }");
    EXPECT_EQ(printed(all->points.get(), skipping.get()), "test::Points[ ... skipped ... ]");
    EXPECT_EQ(printed(pixel.get(), own.get()), "test::Pixel { color: green; }");
    const xrchandle<Point> outside(kel::construct<Point>());
    EXPECT_EQ(printed({static_cast<void *>(outside.get()), new Foreign}, own.get()),
              "foreign::Struct { inner: <no run-time info>; }");
    EXPECT_EQ(xrcgetcount(outside), 1) << "what is remembered of it is not held";
}

// A type that is its own parent ends in words.
TEST(PrinterForm, ParentsFromTheLastToTheFirst) {
    xrttistruct both, circle;
    xrttistruct *parents[] = {xrtti_get_p_Point(), xrtti_get_p_Pixel()}, *itself[] = {&circle};
    xrttistructs two(2, parents), one(1, itself);
    both.initialize("test::Both", 0, &two, nullptr);
    circle.initialize("test::Circle", 0, &one, nullptr);
    Shaped<Pixel> shaped(&both);
    Shaped<Point> round(&circle);
    EXPECT_EQ(on_one_line(&shaped), "test::Both { x: 5; y: 6; color: green; x: 5; y: 6; }");
    EXPECT_EQ(on_one_line(&round), std::string("test::Circle {  ") + words);
}

// Deeper than the printer gathers at once.
TEST(PrinterForm, IndentationOfAnyWidth) {
    const std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
    xrchandle<Point>(kel::construct<Point>(1, 2))
        ->print(stream.get(), Options(printData::Create(5000)).get());
    const std::string wide(5002, ' ');
    EXPECT_EQ(drain(*stream), "test::Point\n" + wide.substr(1) + "{\n" + wide + "x: 1;\n" + wide + "y: 2;\n" +
                                  wide.substr(1) + "}");
}

// Texts as strings, the bytes between them as bytes.
TEST(PrinterForm, OtherEncodingsGetTypedValues) {
    const std::unique_ptr<ioStringStream> typed(ioStringStream::Create()), expected(ioStringStream::Create());
    typed->setSerializer(ioSerializer::getXDR());
    expected->setSerializer(ioSerializer::getXDR());
    xrchandle<Point>(kel::construct<Point>(1, 2))->print(typed.get(), Options(printData::Create(0)).get());
    for (std::string piece :
         {"test::Point", "\n ", "{", "\n  ", "x", ": ", "1", ";", "\n  ", "y", ": ", "2", ";", "\n ", "}"}) {
        if (piece == "1" || piece == "2")
            expected->WriteInt(piece[0] - '0');
        else if (piece[0] == '\n')
            expected->WriteBytes(piece.data(), static_cast<unsigned>(piece.size()));
        else
            expected->WriteString(piece.c_str());
    }
    EXPECT_EQ(drain(*typed), drain(*expected));
}

// What was printed, and any depth --------------------------------------------------------------------

TEST(PrinterLoops, ManyObjectsAreRememberedAndLiveAsLongAsTheirPrintData) {
    const int before = Node::alive;
    const xrchandle<Points> points(Points::create());
    for (int i = 0; i < 3000; ++i)
        points->append(xrchandle<Point>(kel::construct<Point>(i, i)));
    Options options(printData::Create(printIndentSameLine));
    printed(points.get(), options.get());
    printed(kel::construct<Node>(1), options.get());
    EXPECT_EQ(Node::alive, before + 1) << "that nobody else holds";
    for (const xrchandle<Point> &point : *points) {
        ASSERT_EQ(xrcgetcount(point), 2);
        ASSERT_EQ(printed(point.get(), options.get()), "test::Point <printed>");
    }
    options.reset();
    EXPECT_EQ(Node::alive, before);
    for (const xrchandle<Point> &point : *points)
        ASSERT_EQ(xrcgetcount(point), 1);
    Node local(2);
    local.print(std::unique_ptr<ioStream>(ioStringStream::Create()).get());
    EXPECT_EQ(xrcgetcount(&local), 0) << "a fresh object outlives its print";
}

TEST(PrinterDepth, ManyNodesInOneList) {
    constexpr int length = 300'000;
    xrchandle<Node> head;
    for (int i = 0; i < length; ++i) {
        xrchandle<Node> node(kel::construct<Node>(7));
        node->next = head;
        head = node;
    }
    const std::string opened = "test::Node { value: 7; next: ", closed = "; }",
                      text = on_one_line(head.get());
    ASSERT_EQ(text.size(), (opened.size() + closed.size()) * length + 3);
    EXPECT_EQ(text.substr(opened.size() * (length - 1), opened.size() + 3 + closed.size()),
              opened + "nil" + closed);
}

// Failures -------------------------------------------------------------------------------------------

TEST(PrinterFailure, OfAGetterEndsInWordsWhereItHappened) {
    for (int cell : {0, 1, 10, 11}) {
        const xrchandle<All> all(kel::construct<All>());
        all->grid->fails_at = cell;
        const Options options(printData::Create());
        const std::string text = printed(all.get(), options.get()), ahead(5, ' ');
        const std::size_t at = everything.find(ahead + std::to_string(cell), everything.find("grid"));
        EXPECT_EQ(text, everything.substr(0, at) + ahead + '\n' + ahead + words);
        EXPECT_EQ(options->getIndent(), 0);
        EXPECT_EQ(printed(all.get(), options.get()), "test::All <printed>")
            << "the next print is none the worse";
    }
    const xrchandle<Shape> shape(kel::construct<Shape>());
    shape->kind = blue;
    EXPECT_EQ(on_one_line(shape.get()), std::string("test::Shape { Discriminator: blue;  ") + words)
        << "no case of that name";
    Text stream;
    for (const xany &value : {xany(), xany(kel::nil_int)})
        EXPECT_EQ(failure([&] { value.print(&stream); }), "not a stream error: kellib::XUnknownType");
    EXPECT_EQ(stream.written, "") << "values without a type";
}

TEST(PrinterFailure, AStreamThatRefuses) {
    for (std::size_t limit = 0; limit <= everything.size(); ++limit) {
        const xrchandle<All> all(kel::construct<All>());
        Text stream;
        stream.buffer->plain.limit = limit;
        const Options options(printData::Create());
        all->print(&stream, options.get());
        EXPECT_EQ(stream.written, everything.substr(0, limit));
        EXPECT_TRUE(stream.getIsBad() == (limit < everything.size()) && options->getIndent() == 0) << limit;
    }
    const xrchandle<Point> point(kel::construct<Point>());
    Text lines, timed;
    point->print(&lines);
    EXPECT_EQ(lines.buffer->plain.synced, 6) << "four line ends, the closing bracket, and the whole print";
    timed.setOTimeout(1.0);
    point->print(&timed);
    EXPECT_EQ(timed.written, "") << "typed values are not written with a time-out";
}

// Each allocation of a print fails once, and every time the caller hears of it as std::bad_alloc, or the
// print finds its way without.
TEST(PrinterFailure, MemoryThatRunsOut) {
    const xrchandle<All> all(kel::construct<All>());
    EXPECT_EQ(kel::printed(*all).str(), everything);
    int failures = 0;
    for (long before = 0; failing_memory::allocations_left < 0; ++before) {
        std::string text = everything;
        failing_memory::allocations_left = before;
        try {
            text = kel::printed(*all).str();
        } catch (const std::bad_alloc &) {
            ++failures;
        }
        if (failing_memory::allocations_left >= 0) break;
        EXPECT_TRUE(text == everything || text.ends_with(words)) << text;
        EXPECT_EQ(kel::printed(*all).str(), everything) << "after a failure of allocation " << before;
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
}

TEST(PrinterNested, EndlessNestingEndsInWords) {
    for (bool fresh : {false, true}) {  // with the same options, and each with options of its own
        xrchandle<Mirror> mirror(kel::construct<Mirror>());
        mirror->fresh = fresh;
        std::string text = on_one_line(mirror.get());
        EXPECT_EQ(text.find(words), text.find('C')) << "expected the words inside the innermost print";
        EXPECT_GT(mirror->depth, 20);
    }
}

// On a std::ostream, and on standard output ----------------------------------------------------------

TEST(Printed, WhatHasADescriptor) {
    Node local(3);
    EXPECT_EQ(kel::printed(local, true).str(), "test::Node { value: 3; next: nil; }");
    EXPECT_EQ(xrcgetcount(&local), 0) << "nothing holds it";
    std::ostringstream out;
    out << kel::printed(xrchandle<Point>()) << ' ' << kel::printed(kel::uninit_object()) << ' '
        << kel::printed(green) << kel::printed(std::string("text")) << ' ' << xany() << green;
    EXPECT_EQ(out.str(), "nil uninit green\"text\" uninit1");
    testing::internal::CaptureStdout();
    xany(42).print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "42");
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
