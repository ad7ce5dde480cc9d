// Two classes whose living objects are counted: one whose references are counted and one with an owner.
#pragma once

#include <atomic>

#include <kelstdmt/declare.h>

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
