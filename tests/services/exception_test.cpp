// Exceptions: what each carries, who holds it in flight, and the listeners.
#include "observing.h"

#include <functional>
#include <sstream>

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

// Those that differ from the usual form, and one that does not.
TEST(Exceptions, CarryTheirFields) {
    xauto<kelXFunc> object("f");
    const std::string shown = "Object: kellib::XFunc { Name: \"f\"; Args: kellib::XArgs { }; }";
    const struct {
        std::function<void()> raise;
        std::string name, description, fields;
        bool counted = true;
    } rows[] = {
        {[&] { kelhThrowNoField(3, &object); }, "kellib::XNoField",
         "Field with given ID (name or index) does not exists", "FieldId: 3; " + shown},
        {[&] { kelhThrowInvalidArrayIndex("t", 1, 4); }, "kellib::XInvalidArrayIndex",
         "Array index is out of range", "TypeName: \"t\"; Dimension: 1; Index: 4"},
        {[&] { kelhThrowInvalidDictIndex(&object, 4); }, "kellib::XInvalidDictIndex",
         "Dictionary index is out of range", shown + "; Index: 4"},
        {[&] { kelXInvalidUnionDiscr::Throw(1, "d"); }, "kellib::XInvalidUnionDiscr",
         "Union case index is out of range", "Object: 1; Discr: \"d\""},
        {[&] { kelXNativeException::Throw(nullptr); }, "kellib::XNativeException",
         "Native exception on remote client", "StringRep: nil"},
        {[&] { xportXCannotConnect::Throw("h", 80); }, "keljava::XCannotConnect", "Cannot connect",
         "Host: \"h\"; Port: 80", false},
    };
    for (auto &[raise, name, description, fields, counted] : rows) {
        xthrowable *flight = flight_of(raise);
        EXPECT_EQ(kel::printed(flight, true).str(),
                  name + " { Description: \"" + description + "\"; " + fields + "; }");
        EXPECT_EQ(xrcgetcount(flight), counted ? 1 : -1) << name;
        counted ? xrcrelease(flight) : xdelete(flight);
    }
    EXPECT_EQ(xrcgetcount(&object), 0);
    EXPECT_EQ(thrown_by<kelXInvalidFieldIndex>([] { kelXInvalidFieldIndex::Throw("t", 4); })->getIndex(), 4);
}

// Through a virtual base, down and up again.
TEST(Exceptions, CastThroughTheirBases) {
    xthrowable *flight = flight_of([] { xportXTimeout::Throw("op"); });
    xportXTimeout *timeout = xportXTimeout::cast(flight);
    EXPECT_EQ(text(timeout->getOpName()), "op");
    EXPECT_EQ(static_cast<xthrowable *>(timeout), flight);
    EXPECT_EQ(flight->dyndowncast(xrtti_get_p_kelXException()), static_cast<kelXException *>(timeout));
    thrown_by<kelXTypeMismatch>([&] { xportXCannotConnect::cast(flight); });
    xrcunirelease(flight);
    EXPECT_EQ(xrcgetcount(flight), -1);
    xdelete(flight);
    EXPECT_EQ(xthrowable().getrtti(), get_xrttiobject());
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
            EXPECT_EQ(xrcgetcount(caught), 2);
            xrcunihandle<xthrowable> held(caught);
            xrcunirelease(caught);
            xthrow(held);
        }
    });
    EXPECT_EQ(again, flight);
    EXPECT_EQ(xrcgetcount(flight), 2);
    xrcrelease(again);
    EXPECT_EQ(Tracked::died, 0);
    xrcrelease(flight);
    EXPECT_EQ(Tracked::died, 1);

    // Created now, thrown later or never.
    xrchandle<Tracked> created = Tracked::Create(3);
    flight = flight_of([&] { xthrow(xrcunihandle<xthrowable>(created)); });
    EXPECT_EQ(xrcgetcount(flight), 2);
    xrcrelease(flight);
    EXPECT_EQ(xrcgetcount(kelCreateXNoField("id", 2)), 1);
    EXPECT_EQ(text(kelCreateNativeException("there")->getStringRep()), "there");

    // There is nothing to throw.
    for (xthrowable *none :
         {static_cast<xthrowable *>(nullptr), static_cast<xthrowable *>(kel::uninit_pointer())})
        thrown_by<kelXNotInitialized>([&] { xthrow(none); });
}

TEST(Functions, AreNamedByTheExceptionsThatArise) {
    xrchandle<kelXFunc> function(kel::construct<kelXFunc>("tmTime::LocalTime"));
    for (kelXFunc *named :
         {function.get(), static_cast<kelXFunc *>(nullptr), kelXFunc::cast(kel::uninit_object())}) {
        xrchandle<kelXExternFunc> exception(kel::construct<kelXExternFunc>("It failed.", named));
        EXPECT_TRUE(exception->lookupfield("Func") == xany(named));
        std::ostringstream out;
        exception->Print(out);
        const std::string name = named == function.get() ? "tmTime::LocalTime" : "";
        EXPECT_EQ(out.str(), "Exception: \"It failed.\"\n\tin function \"" + name + "\"\n");
    }
    EXPECT_EQ(xrcgetcount(function), 1);
}

// Listeners ------------------------------------------------------------------------------------

std::vector<int> called;

struct Listener : xerrlistener {
    explicit Listener(int number, int answers = 0) : id(number), answer(answers) {}
    xerhstatus onerror(const char *, xrcunihandle<xthrowable> exception, xrcunihandle<xobject> object1,
                       xrcunihandle<xobject>) override {
        called.push_back(id);
        if (exception) {
            EXPECT_EQ(xrcgetcount(exception), 3) << "the caller's handle, dispatch's and this one";
        }
        EXPECT_EQ(object1.get(), nullptr);
        if (action) action();
        return static_cast<xerhstatus>(answer);
    }
    int id, answer;
    std::function<void()> action;
};

int ask(xthrowable *exception = nullptr) {
    called.clear();
    return xerrhandler::dispatch("here", exception, nullptr, nullptr);
}

TEST(Listeners, AreAskedByAddressUntilOneAnswers) {
    EXPECT_EQ(ask(), 0);
    Listener few[] = {Listener(0), Listener(1, 5), Listener(2)};
    for (int i : {2, 0, 1, 1})
        xerrhandler::addlistener(&few[i]);
    xerrhandler::addlistener(nullptr);
    xrchandle<Tracked> exception = Tracked::Create(1);
    EXPECT_EQ(ask(exception), 5);
    EXPECT_EQ(called, (std::vector<int>{0, 1}));
    EXPECT_EQ(xrcgetcount(exception), 1);

    xerrhandler::removelistener(&few[1]);
    xerrhandler::removelistener(&few[1]);
    {
        Listener temporary[] = {Listener(7)};
        xerrhandler::addlistener(temporary);
    }
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(called, (std::vector<int>{0, 2}));
}

TEST(Listeners, MayComeAndGoDuringARound) {
    Listener few[] = {Listener(0), Listener(1), Listener(2), Listener(3)};
    for (int i : {0, 1, 2})
        xerrhandler::addlistener(&few[i]);
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
    few[0].action = [] { Tracked::Throw(1); };
    thrown_by<Tracked>([] { ask(); });
}

}  // namespace
