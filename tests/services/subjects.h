// Types for the tests of the core: an enum, the descriptor of a foreign type, and two classes whose living
// objects are counted: one whose references are counted and one with an owner.
#pragma once

#include <atomic>

#include <kelstdmt/declare.h>

enum Colour : int { red, green, blue };
KEL_DECLARE_ENUM(Colour)
KEL_DEFINE_ENUM(Colour, "test::Colour", "red", "green", "blue")

class Foreign : public xrtti {
public:
    static inline int living = 0;
    Foreign() {
        initialize("test::Foreign");
        ++living;
    }
    ~Foreign() override { --living; }

private:
    brtti *Clone() override { return new Foreign; }
};

KEL_DECLARE_STRUCT(Counted)
class Counted : public xobject {
    KEL_CLASS(Counted, xobject)
public:
    Counted() { ++living; }
    ~Counted() override { --living; }
    static inline std::atomic<int> living = 0;
};
KEL_DEFINE_STRUCT(Counted, "test::Counted", kel::counted)

KEL_DECLARE_STRUCT(Owned)
class Owned : public xobject {
    KEL_CLASS(Owned, xobject)
public:
    Owned() { ++living; }
    ~Owned() override { --living; }
    static inline std::atomic<int> living = 0;
};
KEL_DEFINE_STRUCT(Owned, "test::Owned", kel::uncounted)
