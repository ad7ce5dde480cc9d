// Descriptors of declared types that refer to each other, built for the first time by several threads.
#include "observing.h"

#include <atomic>
#include <thread>

#include "failing_memory.h"

namespace {

// Two types that refer to each other, and a third that both need.
KEL_DECLARE_STRUCT(testLeft)
KEL_DECLARE_STRUCT(testRight)
KEL_SEQUENCE(testLefts, xrchandle<testLeft>)
class testLeft : public xobject {
    KEL_CLASS(testLeft, xobject)
public:
    static testRight *getOther() { return nullptr; }
    static testLeft *getSelf() { return nullptr; }
};
class testRight : public xobject {
    KEL_CLASS(testRight, xobject)
public:
    static testLefts *getOthers() { return nullptr; }
};

KEL_DEFINE_STRUCT(testLeft, "test::Left", kel::counted, kel::field<&testLeft::getOther>("Other"),
                  kel::field<&testLeft::getSelf>("Self"))
KEL_DEFINE_STRUCT(testRight, "test::Right", kel::counted, kel::field<&testRight::getOthers>("Others"))
KEL_DEFINE_SEQUENCE(testLefts, "test::Lefts", kel::counted)

// Nothing has been built yet, and several threads come at once from two sides.
TEST(Builders, AreSafeFromSeveralThreadsAtOnce) {
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            ++ready;
            while (ready < 4)
                std::this_thread::yield();
            xrttistruct *type = t % 2 ? xrtti_get_p_testLeft() : xrtti_get_p_testRight();
            EXPECT_EQ(text(type->getname()), t % 2 ? "test::Left" : "test::Right");
            brtti *lefts = xrtti_get_p_testRight()->getfieldtype(0);
            EXPECT_EQ(text(lefts->gettypename()), "test::Lefts");
            EXPECT_EQ(lefts->getseqtype(), xrtti_get_p_testLeft());
            EXPECT_EQ(xrtti_get_p_testLeft()->getfieldtype(0), xrtti_get_p_testRight());
            EXPECT_EQ(xrtti_get_p_testLeft()->getfieldtype(1), xrtti_get_p_testLeft());
        });
    for (auto &thread : threads)
        thread.join();
}

KEL_DECLARE_STRUCT(testOuter)
KEL_DECLARE_STRUCT(testInner)
enum testState : int { testIdle, testBusy };
KEL_DECLARE_ENUM(testState)
class testInner : public xobject {
    KEL_CLASS(testInner, xobject)
public:
    static testOuter *getOuter() { return nullptr; }
    static testState getState() { return testBusy; }
};
class testOuter : public testInner {
    KEL_CLASS(testOuter, testInner)
public:
    static testInner *getInner() { return nullptr; }
};
KEL_DEFINE_ENUM(testState, "test::State", "testIdle", "testBusy")
KEL_DEFINE_STRUCT(testInner, "test::Inner", kel::counted, kel::field<&testInner::getOuter>("Outer"),
                  kel::field<&testInner::getState>("State"))
KEL_DEFINE_STRUCT(testOuter, "test::Outer", kel::counted, kel::field<&testOuter::getInner>("Inner"))

// Without memory at any one moment a build takes back all that it began, and the next one succeeds.
TEST(Builders, SurviveTheLackOfMemory) {
    int failures = 0;
    xrttistruct *type = nullptr;
    for (; type == nullptr; ++failures) {
        failing_memory::allocations_left = failures;
        try {
            type = xrtti_get_p_testOuter();
        } catch (const std::bad_alloc &) {
        }
        failing_memory::allocations_left = -1;
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(text(type->getname()), "test::Outer");
    EXPECT_EQ(type->getparenttype(0), xrtti_get_p_testInner());
    EXPECT_EQ(type->getfieldtype(0), xrtti_get_p_testInner());
    EXPECT_EQ(xrtti_get_p_testInner()->getfieldtype(0), type);
    EXPECT_EQ(text(xrtti_get_p_testInner()->getfieldtype(1)->getenumvaluebyindex(1)), "testBusy");
}

}  // namespace
