// Descriptors of declared types that refer to each other, built for the first time by several threads.
#include "observing.h"

#include <atomic>
#include <thread>

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

}  // namespace
