// Exceptions: what each carries, who holds it in flight, and the listeners.
#include "observing.h"

#include <functional>

#include <kelstdmt/kel.h>

namespace {

KEL_DECLARE_STRUCT(Tracked)
class Tracked : public kelXException {
    KEL_EXCEPTION(Tracked, kelXException, "tracked", (int, Number))
public:
    Tracked(const Tracked &) = delete;
    ~Tracked() override { ++died; }
    static inline int died = 0;
};
KEL_DEFINE_EXCEPTION(Tracked, "test::Tracked", kel::counted)

// One that is counted, and one that is not.
TEST(Exceptions, CarryTheirFields) {
    xauto<kelXFunc> object("f");
    auto missing = thrown_by<kelXNoField>([&] { kelhThrowNoField(3, &object); });
    EXPECT_EQ(kel::printed(missing.get(), true).str(),
              "kellib::XNoField { Description: \"Field with given ID (name or index) does not exists\"; "
              "FieldId: 3; Object: kellib::XFunc { Name: \"f\"; Args: kellib::XArgs { }; }; }");
    xthrowable *flight = flight_of([] { xportXCannotConnect::Throw("h", 80); });
    EXPECT_EQ(kel::printed(flight, true).str(),
              "keljava::XCannotConnect { Description: \"Cannot connect\"; Host: \"h\"; Port: 80; }");
    EXPECT_EQ(xrcgetcount(flight), -1);
    xdelete(flight);
}

// Through a virtual base, down and up again.
TEST(Exceptions, CastThroughTheirBases) {
    xthrowable *flight = flight_of([] { xportXTimeout::Throw("op"); });
    xportXTimeout *timeout = xportXTimeout::cast(flight);
    EXPECT_EQ(static_cast<xthrowable *>(timeout), flight);
    thrown_by<kelXTypeMismatch>([&] { xportXCannotConnect::cast(flight); });
    xdelete(flight);
}

TEST(Flight, CarriesOneReference) {
    Tracked::died = 0;
    xthrowable *flight = flight_of([] { Tracked::Throw(1); });
    EXPECT_EQ(xrcgetcount(flight), 1);

    // Passed on with xthrow by a handler that gives up the reference it caught.
    xthrowable *again = flight_of([&] {
        try {
            xthrow(flight);
        } catch (xthrowable *caught) {
            xrcunihandle<xthrowable> held(caught);
            xrcunirelease(caught);
            xthrow(held);
        }
    });
    EXPECT_EQ(again, flight);
    EXPECT_EQ(xrcgetcount(flight), 2);
    xrcrelease(again);
    xrcrelease(flight);
    EXPECT_EQ(Tracked::died, 1);

    thrown_by<kelXNotInitialized>([] { xthrow(static_cast<xthrowable *>(nullptr)); });
}

// Listeners ------------------------------------------------------------------------------------

std::vector<int> called;

struct Listener : xerrlistener {
    explicit Listener(int number, int answers = 0) : id(number), answer(answers) {}
    xerhstatus onerror(const char *, xrcunihandle<xthrowable> exception, xrcunihandle<xobject>,
                       xrcunihandle<xobject>) override {
        called.push_back(id);
        EXPECT_EQ(xrcgetcount(exception), 3) << "the caller's handle, dispatch's and this one";
        if (action) action();
        return static_cast<xerhstatus>(answer);
    }
    int id, answer;
    std::function<void()> action;
};

int ask() {
    xrchandle<Tracked> exception = Tracked::Create(1);
    called.clear();
    const int status = xerrhandler::dispatch("here", exception.get(), nullptr, nullptr);
    EXPECT_EQ(xrcgetcount(exception), 1);
    return status;
}

TEST(Listeners, AreAskedByAddressUntilOneAnswers) {
    EXPECT_EQ(ask(), 0);
    Listener few[] = {Listener(0), Listener(1, 5), Listener(2), Listener(3)};
    for (int i : {2, 0, 1, 1})
        xerrhandler::addlistener(&few[i]);
    EXPECT_EQ(ask(), 5);
    EXPECT_EQ(called, (std::vector<int>{0, 1}));
    {
        Listener temporary[] = {Listener(7)};
        xerrhandler::addlistener(temporary);
    }
    // They come and go during a round.
    few[0].action = [&] {
        xerrhandler::removelistener(&few[0]);
        xerrhandler::removelistener(&few[1]);
    };
    few[2].action = [&] {
        xerrhandler::addlistener(&few[0]);
        xerrhandler::addlistener(&few[3]);
    };
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(called, (std::vector<int>{0, 2, 3}));
}

}  // namespace
