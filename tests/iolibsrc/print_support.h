// Declared types of every kind for the tests of the printer, and a stream that tells what is done to it.
#pragma once

#include <kelstdmt/iolib.h>
#include <kelstdmt/printlib.h>

#include <algorithm>
#include <new>
#include <string>

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

KEL_DECLARE_STRUCT(Root)
class Root : public xobject {
    KEL_CLASS(Root, xobject)
public:
    int root = 1;
};
KEL_DEFINE_STRUCT(Root, "test::Root", kel::counted, kel::field<&Root::root>("root"))
KEL_DECLARE_STRUCT(Child)
class Child : public Root {
    KEL_CLASS(Child, Root)
public:
    int child = 2;
};
KEL_DEFINE_STRUCT(Child, "test::Child", kel::counted, kel::field<&Child::child>("child"))
// An object with a descriptor that was made by hand. As a Child and as a Point it is what it is.
class Both : public Child {
public:
    Point point;
    void *dyndowncast(const xrtticlass *wanted) override {
        return wanted == xrtti_get_p_Point() ? &point : Child::dyndowncast(wanted);
    }
};
template <class Base>
class Shaped : public Base {
public:
    explicit Shaped(xrtticlass *type) : m_type(type) {}

private:
    xrtticlass *givertti() override { return m_type; }
    xrtticlass *m_type;
};

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

KEL_DECLARE_STRUCT(Broken)
class Broken : public xobject {
    KEL_CLASS(Broken, xobject)
public:
    static int bad() { throw std::bad_alloc(); }
};
KEL_DEFINE_STRUCT(Broken, "test::Broken", kel::counted, kel::field<&Broken::bad>("bad"))

KEL_DECLARE_STRUCT(Holder)
class Holder : public xobject {
    KEL_CLASS(Holder, xobject)
public:
    xrcunihandle<xobject> held;
    int after = 5;
};
KEL_DEFINE_STRUCT(Holder, "test::Holder", kel::counted, kel::field<&Holder::held>("held"),
                  kel::field<&Holder::after>("after"))

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

// A stream that takes so many bytes and no more.
class WatchedBuffer : public xstreambuf, public std::streambuf {
public:
    explicit WatchedBuffer(std::size_t limit) : m_limit(limit) { InitStreamBuf(this); }
    std::string bytes;
    int flushes = 0;
    std::size_t unflushed = 0, longest = 0;

protected:
    std::streamsize xsputn(const char *from, std::streamsize count) override {
        std::streamsize taken = 0;
        while (taken < count && overflow(static_cast<unsigned char>(from[taken])) != -1)
            ++taken;
        return taken;
    }
    int_type overflow(int_type byte) override {
        if (bytes.size() >= m_limit) return -1;
        bytes.push_back(static_cast<char>(byte));
        longest = std::max(longest, ++unflushed);
        return byte;
    }
    int sync() override {
        ++flushes;
        unflushed = 0;
        return 0;
    }

private:
    std::size_t m_limit;
};
struct WatchedBufferFirst {
    explicit WatchedBufferFirst(std::size_t limit) : watched(limit) {}
    WatchedBuffer watched;
};
class WatchedStream : private WatchedBufferFirst, public ioStream {
public:
    explicit WatchedStream(std::size_t limit = SIZE_MAX)
        : WatchedBufferFirst(limit), ioStream(ioSerializer::getAscii(), &watched, true, false) {}
    ~WatchedStream() override { Close(); }
    const std::string &text() const { return watched.bytes; }
    int flushed() const { return watched.flushes; }
    std::size_t longest_unflushed() const { return watched.longest; }

private:
    void OnClose() override {}
};
