// Exceptions: what each carries, who holds it in flight, and the listeners.
#include "observing.h"

#include <functional>
#include <sstream>

namespace {

template <class Call>
xthrowable *flight_of(Call call) {
    try {
        call();
    } catch (xthrowable *flight) {
        return flight;
    }
    ADD_FAILURE() << "nothing thrown";
    return nullptr;
}

// What a final handler does with any exception.
void dispose(xthrowable *flight) {
    if (flight->isrefcountable())
        xrcrelease(flight);
    else
        xdelete(flight);
}

KEL_DECLARE_STRUCT(Tracked)
class Tracked : public kelXException {
    KEL_EXCEPTION(Tracked, kelXException, "tracked", (int, Number))
public:
    Tracked(const Tracked &) = delete;
    ~Tracked() override { ++died; }
    static inline int died = 0;
};
KEL_DEFINE_EXCEPTION(Tracked, "test::Tracked", kel::counted)

// "Name=value" for each declared field, and ":" and the type of those that have no text form here.
std::string fields_of(xobject *object) {
    std::string all;
    for (int i = 0; i < object->getnfields(); ++i) {
        xany value = object->getfield(i);
        std::string shown;
        if (value.getkind() == xany::Int)
            shown = std::to_string(static_cast<int>(value));
        else if (value.getkind() == xany::String)
            shown = static_cast<xrstring>(value);
        else
            shown = value.isnil() ? "nil" : value.isuninit() ? "uninit" : text(value.gettypename());
        all += (i ? " " : "") + text(object->getfieldname(i)) + ":" +
               text(object->getrtti()->getfieldtype(i)->gettypename()) + "=" + shown;
    }
    return all;
}

TEST(Exceptions, CarryTheirFieldsAndDescriptions) {
    xauto<kelXFunc> object("f");
    struct {
        std::function<void()> raise;
        const char *name, *fields, *description;
        bool counted = true;
    } rows[] = {
        {[&] { kelXNoField::Throw("id", &object); }, "kellib::XNoField",
         "FieldId:any=id Object:any=kellib::XFunc", "Field with given ID (name or index) does not exists"},
        {[&] { kelhThrowNoField(3, &object); }, "kellib::XNoField", "FieldId:any=3 Object:any=kellib::XFunc",
         "Field with given ID (name or index) does not exists"},
        {[&] { kelXUnknownType::Throw(1); }, "kellib::XUnknownType", "Object:any=1",
         "Run-time information is not available."},
        {[&] { kelXTypeMismatch::Throw("t", 1); }, "kellib::XTypeMismatch", "TypeName:string=t Object:any=1",
         "Object type mismatch."},
        {[&] { kelXUninitDispMethod::Throw(1, "m"); }, "kellib::XUninitDispMethod",
         "Object:any=1 MethodName:string=m", "Uninitialized dispatched method."},
        {[&] { kelXNotClassType::Throw("t"); }, "kellib::XNotClassType", "TypeName:string=t",
         "Not a class type"},
        {[&] { kelXNotEnumType::Throw("t"); }, "kellib::XNotEnumType", "TypeName:string=t",
         "Not an enum type"},
        {[&] { kelXInvalidEnumIndex::Throw("t", 4); }, "kellib::XInvalidEnumIndex",
         "TypeName:string=t Index:int=4", "Invalid enum index"},
        {[&] { kelXNotStructType::Throw("t"); }, "kellib::XNotStructType", "TypeName:string=t",
         "Not a structure type"},
        {[&] { kelXInvalidParentIndex::Throw("t", 4); }, "kellib::XInvalidParentIndex",
         "TypeName:string=t Index:int=4", "Invalid parent type index"},
        {[&] { kelXInvalidFieldIndex::Throw("t", 4); }, "kellib::XInvalidFieldIndex", "TypeName:string=t",
         "Invalid regular field index"},
        {[&] { kelXNotArrayType::Throw("t"); }, "kellib::XNotArrayType", "TypeName:string=t",
         "Not an array type"},
        {[&] { kelXInvalidArrayDimIndex::Throw("t", 4); }, "kellib::XInvalidArrayDimIndex",
         "TypeName:string=t Index:int=4", "Array dimension index is out of range"},
        {[&] { kelhThrowInvalidArrayIndex("t", 1, 4); }, "kellib::XInvalidArrayIndex",
         "TypeName:string=t Dimension:int=1 Index:int=4", "Array index is out of range"},
        {[&] { kelXNotSequenceType::Throw("t"); }, "kellib::XNotSequenceType", "TypeName:string=t",
         "Not a sequence type"},
        {[&] { kelhThrowInvalidSeqIndex(&object, 4); }, "kellib::XInvalidSeqIndex",
         "Object:any=kellib::XFunc Index:int=4", "Sequence index is out of range"},
        {[&] { kelXNotDictionaryType::Throw("t"); }, "kellib::XNotDictionaryType", "TypeName:string=t",
         "Not a dictionary type"},
        {[&] { kelhThrowInvalidDictIndex(&object, 4); }, "kellib::XInvalidDictIndex",
         "Object:any=kellib::XFunc Index:int=4", "Dictionary index is out of range"},
        {[&] { kelXNotUnionType::Throw("t"); }, "kellib::XNotUnionType", "TypeName:string=t",
         "Not a union type"},
        {[&] { kelXInvalidUnionIndex::Throw("t", 4); }, "kellib::XInvalidUnionIndex",
         "TypeName:string=t Index:int=4", "Union case index is out of range"},
        {[&] { kelXInvalidUnionDiscr::Throw(1, "d"); }, "kellib::XInvalidUnionDiscr",
         "Object:any=1 Discr:any=d", "Union case index is out of range"},
        {[&] { kelXCannotCloneRTTI::Throw("t"); }, "kellib::XCannotCloneRTTI", "TypeName:string=t",
         "Can not clone RTTI"},
        {[&] { kelhThrowNegativeIndex(-4); }, "kellib::XNegativeIndex", "Index:int=-4", "Negative index"},
        {[&] { kelhThrowNotInitialized(); }, "kellib::XNotInitialized", "",
         "Object is not initialized or has been destroyed"},
        {[&] { kelhThrowRefCountable(&object); }, "kellib::XRefCountable", "Object:any=kellib::XFunc",
         "Object is reference countable"},
        {[&] { kelXNativeException::Throw(nullptr); }, "kellib::XNativeException", "StringRep:string=nil",
         "Native exception on remote client"},
        {[&] { kelXConnectionClosed::Throw(); }, "kellib::XConnectionClosed", "",
         "Attempt to communicate with client/server after connection has been closed"},
        {[&] { xportXCannotConnect::Throw("h", 80); }, "keljava::XCannotConnect", "Host:string=h Port:int=80",
         "Cannot connect", false},
        {[&] { xportXMsgStringTooLong::Throw("m"); }, "keljava::XMsgStringTooLong", "Msg:string=m",
         "Message too long", false},
        {[&] { xportXFlushFailed::Throw(); }, "keljava::XFlushFailed", "", "Flush on socket failed", false},
        {[&] { xportXNullInNonOptArg::Throw("p"); }, "keljava::XNullInNonOptArg", "ParamName:string=p",
         "Null passed to non optional parameter argument", false},
        {[&] { xportXTimeout::Throw("o"); }, "keljava::XTimeout", "OpName:string=o", "communication timeout",
         false},
    };
    for (auto &row : rows) {
        SCOPED_TRACE(row.name);
        xthrowable *flight = flight_of(row.raise);
        EXPECT_EQ(xrcgetcount(flight), row.counted ? 1 : -1);
        EXPECT_EQ(flight->isrefcountable(), row.counted);
        EXPECT_EQ(text(flight->gettypename()), row.name);
        EXPECT_EQ(fields_of(flight), row.fields);
        kelXException *exception = kelXException::cast(flight);
        EXPECT_EQ(text(exception->getDescription()), row.description);
        EXPECT_EQ(static_cast<xobject *>(exception), static_cast<xobject *>(flight));
        EXPECT_EQ(flight->getrtti()->getparenttype(0), xrtti_get_p_kelXException());
        EXPECT_TRUE(flight->getrtti()->isstruct());
        EXPECT_EQ(flight->getrtti()->getisrefcount(), row.counted);
        dispose(flight);
    }
    EXPECT_EQ(xrcgetcount(&object), 0);
    EXPECT_EQ(xrtti_get_p_kelXException()->getnparents(), 0);
    EXPECT_EQ(thrown_by<kelXInvalidFieldIndex>([] { kelXInvalidFieldIndex::Throw("t", 4); })->getIndex(), 4);
}

// Through a virtual base, down and up again.
TEST(Exceptions, CastThroughTheirBases) {
    xthrowable *flight = flight_of([] { xportXTimeout::Throw("op"); });
    xportXTimeout *timeout = xportXTimeout::cast(flight);
    EXPECT_EQ(text(timeout->getOpName()), "op");
    EXPECT_EQ(static_cast<xthrowable *>(timeout), flight);
    EXPECT_EQ(flight->dyndowncast(xrtti_get_p_xportXTimeout()), timeout);
    EXPECT_EQ(flight->dyndowncast(xrtti_get_p_kelXException()), static_cast<kelXException *>(timeout));
    EXPECT_EQ(flight->dyndowncast(get_xrttiobject()), static_cast<xobject *>(flight));
    EXPECT_EQ(text(thrown_by<kelXTypeMismatch>([&] { xportXCannotConnect::cast(flight); })->getTypeName()),
              "xportXCannotConnect");
    xrcunirelease(flight);
    EXPECT_EQ(xrcgetcount(flight), -1);
    xdelete(flight);

    xthrowable bare;
    EXPECT_EQ(bare.getrtti(), get_xrttiobject());
}

TEST(Flight, CarriesOneReference) {
    Tracked::died = 0;
    xthrowable *flight = flight_of([] { Tracked::Throw(1); });
    EXPECT_EQ(xrcgetcount(flight), 1);
    EXPECT_EQ(Tracked::died, 0);

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

    // A handler that throws another one.
    xthrowable *other = flight_of([&] {
        try {
            xthrow(flight);
        } catch (xthrowable *caught) {
            auto held = xrchandle<xthrowable>::adopt(caught);
            Tracked::Throw(2);
        }
    });
    EXPECT_EQ(Tracked::cast(other)->getNumber(), 2);
    EXPECT_EQ(xrcgetcount(other), 1);
    EXPECT_EQ(xrcgetcount(flight), 1);
    xrcrelease(other);
    EXPECT_EQ(Tracked::died, 1);
    xrcrelease(flight);
    EXPECT_EQ(Tracked::died, 2);

    // Created now, thrown later.
    xrchandle<Tracked> created = Tracked::Create(3);
    flight = flight_of([&] { xthrow(xrcunihandle<xthrowable>(created)); });
    EXPECT_EQ(xrcgetcount(flight), 2);
    xrcrelease(flight);

    // There is nothing to throw.
    for (xthrowable *none :
         {static_cast<xthrowable *>(nullptr), static_cast<xthrowable *>(kel::uninit_pointer())})
        thrown_by<kelXNotInitialized>([&] { xthrow(none); });
}

TEST(Flight, CreatorsHandOverTheOnlyReference) {
    xrchandle<kelXNoField> missing = kelCreateXNoField("id", 2);
    EXPECT_EQ(xrcgetcount(missing), 1);
    EXPECT_TRUE(missing->getFieldId() == "id" && missing->getObject() == xany(2));
    EXPECT_EQ(text(kelCreateNativeException("there")->getStringRep()), "there");
    xportXNullInNonOptArg *plain = xportXNullInNonOptArg::Create("p");
    EXPECT_EQ(xrcgetcount(plain), 0);
    xdelete(plain);
}

// Kept past its handler's end by a value, an exception lives on.
TEST(Flight, AnExceptionIsAValueLikeAnyOther) {
    Tracked::died = 0;
    {
        xany kept;
        xthrowable *flight = flight_of([] { Tracked::Throw(6); });
        kept = static_cast<xobject *>(flight);
        xrcrelease(flight);
        EXPECT_TRUE(static_cast<xobject *>(kept)->lookupfield("Number") == xany(6));
        EXPECT_EQ(Tracked::died, 0);
    }
    EXPECT_EQ(Tracked::died, 1);
}

TEST(Functions, AreNamedByTheExceptionsThatArise) {
    xrchandle<kelXFunc> function(kel::construct<kelXFunc>("tmTime::LocalTime"));
    xrchandle<kelXExternFunc> exception(kel::construct<kelXExternFunc>("It failed.", function.get()));
    EXPECT_EQ(xrcgetcount(function), 2);
    EXPECT_EQ(exception->getFunc().get(), function.get());
    EXPECT_EQ(fields_of(exception), "Func:kellib::XFunc=kellib::XFunc");
    EXPECT_EQ(fields_of(function), "Name:string=tmTime::LocalTime Args:kellib::XArgs=kellib::XArgs");
    EXPECT_EQ(xrcgetcount(function->getArgs()), 2);
    std::ostringstream out;
    exception->Print(out);
    EXPECT_EQ(out.str(), "Exception: \"It failed.\"\n\tin function \"tmTime::LocalTime\"\n");

    xrchandle<kelXExternFunc> bare(kel::construct<kelXExternFunc>(nullptr, nullptr));
    out.str("");
    bare->Print(out);
    EXPECT_EQ(out.str(), "Exception: \"\"\n\tin function \"\"\n");
    EXPECT_EQ(fields_of(bare), "Func:kellib::XFunc=nil");

    auto *uninit = kelXFunc::cast(kel::uninit_object());
    xrchandle<kelXExternFunc> unset(kel::construct<kelXExternFunc>("", uninit));
    out.str("");
    unset->Print(out);
    EXPECT_EQ(out.str(), "Exception: \"\"\n\tin function \"\"\n");
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
    EXPECT_EQ(ask(), 0);
    EXPECT_EQ(called, (std::vector<int>{0, 2}));
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
