// Objects: the two kinds of counting, deletion and its order, construction, threads.
#include "observing.h"

#include <barrier>
#include <climits>
#include <thread>

#include "services/object_access.h"
#include "subjects.h"

namespace {

class Nameless : public xobject {
    xrtticlass *givertti() override { return nullptr; }
};

// Counts ---------------------------------------------------------------------------------------

constexpr const char *no_attach = "xrcattach: Invalid value of refcount. (services/xobject)";
constexpr const char *no_release = "xrcrelease: Invalid value of refcount. (services/xobject)";
constexpr int dies = INT_MAX;

struct Row {
    void (*operation)(xobject *);
    int before, after;
    const char *report = "";
};

template <class Object>
void follow(std::vector<Row> rows) {
    internal_errors errors;
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows.data() << ", from " << row.before);
        auto *object = new Object;
        kel_object_access::count(object) = row.before;
        row.operation(object);
        EXPECT_EQ(Object::living == 0, row.after == dies);
        if (Object::living == 1) {
            EXPECT_EQ(xrcgetcount(object), row.after);
            delete object;
        }
        EXPECT_EQ(errors.take(), row.report);
    }
}

TEST(Counts, FollowTheTable) {
    const std::vector<Row> rows = {
        {xrcattach, -1, 0},     {xrcattach, 0, 1},        {xrcattach, 1, 2},
        {xrcrelease, -5, dies}, {xrcrelease, 0, dies},    {xrcrelease, 1, dies},
        {xrcrelease, 2, 1},     {xrcuniattach, -1, -1},   {xrcuniattach, -2, -2, no_attach},
        {xrcuniattach, 3, 4},   {xrcunirelease, -1, -1},  {xrcunirelease, -2, -2, no_release},
        {xrcunirelease, 0, 0},  {xrcunirelease, 1, dies}, {xrcunirelease, 2, 1}};
    follow<Counted>(rows);
    follow<Owned>(rows);
    follow<Counted>({{xrcuniattach, 0, 1}});
    follow<Owned>({{xrcuniattach, 0, -1}});
    for (xobject *none : {static_cast<xobject *>(nullptr), kel::uninit_object()}) {
        for (const Row &row : rows)
            row.operation(none);
        EXPECT_EQ(xrcgetcount(none), 0);
    }
    // What may not be deleted goes back to 0. Whether it is counted is said by its count, or else by its
    // class.
    xauto<Counted> kept;
    EXPECT_TRUE(kept.isrefcountable());
    xrcattach(&kept);
    xrcrelease(&kept);
    EXPECT_EQ(xrcgetcount(&kept), 0);
    kel_object_access::count(&kept) = -1;
    EXPECT_FALSE(kept.isrefcountable());
}

TEST(Counts, AnObjectWithoutDescriptorIsUnknown) {
    Nameless object;
    thrown_by<kelXUnknownType>([&] { xany value(&object); });
    EXPECT_EQ(xrcgetcount(&object), -1);
    kel_object_access::count(&object) = 0;
    thrown_by<kelXUnknownType>([&] { xdelete(&object); });
}

TEST(Counts, XdeleteIsForObjectsThatAreNotCounted) {
    xdelete(nullptr);
    thrown_by<kelXNotInitialized>([] { xdelete(kel::uninit_object()); });
    xrchandle<Counted> counted(new Counted);
    EXPECT_TRUE(thrown_by<kelXRefCountable>([&] { xdelete(counted); })->getObject() == xany(counted));
    auto *owned = new Owned;
    { xany placed(owned); }
    xdelete(owned);
    EXPECT_EQ(Owned::living, 0);
}

TEST(Handles, OwnPointOrShareAsTheySay) {
    auto *object = new Counted;
    xrchandle<Counted> owner(object);
    {
        xrchandle<xobject> base(owner);
        xrcunihandle<xobject> uni(object), same(uni);
        EXPECT_EQ(xrcgetcount(object), 4);
        xrchandle<Counted> moved(std::move(owner));
        xrcunihandle<xobject> unimoved(std::move(uni));
        EXPECT_TRUE(xrcgetcount(object) == 4 && !owner.get() && !uni.get());
        owner = moved;
        same = unimoved;
        auto &itself = owner;
        owner = std::move(itself);
        EXPECT_TRUE(owner.get() == object && same.get() == object && xrcgetcount(object) == 5);
    }
    EXPECT_EQ(xrcgetcount(object), 1);
    xrcrelease(owner.detach());
    EXPECT_EQ(Counted::living, 0);
}

// Its object base lies beside another one, and virtually.
struct Neighbour {
    virtual ~Neighbour() = default;
    int padding = 1;
};
KEL_DECLARE_STRUCT(Virtual)
class Virtual : public Neighbour, public virtual xobject {
    KEL_CLASS(Virtual, xobject)
public:
    int port = 3;
};
KEL_DEFINE_STRUCT(Virtual, "object::Virtual", kel::counted, kel::field<&Virtual::port>("port"))
KEL_SEQUENCE(Virtuals, Virtual *)
KEL_DEFINE_SEQUENCE(Virtuals, "object::Virtuals", kel::counted)

// Where the base lies can be asked of an object only.
TEST(Handles, HoldTheReservedPointersOfEveryClass) {
    auto *uninit = Virtual::cast(kel::uninit_object());
    xrchandle<Virtual> owner(uninit);
    xrchandle<xobject> base(owner);
    xrcunihandle<Virtual> uni(uninit), other(uni);
    EXPECT_TRUE(base.get() == kel::uninit_object() && other.get() == uninit);
    xrchandle<Virtuals> all(Virtuals::create());
    all->append(uninit);
    EXPECT_TRUE(all->getseqelem(0).isuninit());
}

// Deletion -------------------------------------------------------------------------------------

std::string events;

// Takes and gives references on itself at every moment of its life, and fails where it is told to.
KEL_DECLARE_STRUCT(Selfish)
class Selfish : public xobject {
    KEL_CLASS(Selfish, xobject)
public:
    explicit Selfish(bool fails = false) {
        touch();
        if (fails) throw 5;
    }
    ~Selfish() override {
        touch();
        events += "died";
    }

private:
    void ondelete() override {
        touch();
        events += "ondelete ";
    }
    void touch() {
        { xany value(this); }
        { xrcunihandle<Selfish> uni(this); }
    }
};
KEL_DEFINE_STRUCT(Selfish, "object::Selfish", kel::counted)

TEST(Deletion, RunsOnceAndOndeleteComesFirst) {
    { xrchandle<Selfish> handle(kel::construct<Selfish>()); }
    xrcrelease(kel::construct<Selfish>());  // at count 0
    EXPECT_EQ(events, "ondelete diedondelete died");
    events.clear();
    { xauto<Selfish> local; }
    EXPECT_EQ(events, "died") << "its storage is not deleted";
    events.clear();
    EXPECT_THROW(kel::construct<Selfish>(true), int);
    EXPECT_EQ(events, "") << "neither ondelete nor a destructor of what did not come to be";
}

KEL_DECLARE_STRUCT(Node)
class Node : public xobject {
    KEL_CLASS(Node, xobject)
public:
    ~Node() override { ++died; }
    xrchandle<Node> child;
    xany next;
    static inline int died = 0;
};
KEL_DEFINE_STRUCT(Node, "object::Node", kel::counted)

// Each with a child, through handles and through values.
TEST(Deletion, AChainOfAMillionNeedsNoStack) {
    constexpr int length = 1'000'000;
    std::thread([] {
        xrchandle<Node> head;
        for (int i = 0; i < length; ++i) {
            xrchandle<Node> node(new Node);
            xrchandle<Node> leaf(new Node);
            node->child = i % 2 ? leaf : head;
            node->next = static_cast<xobject *>(i % 2 ? head : leaf);
            head = std::move(node);
        }
        EXPECT_EQ(Node::died, 0);
    }).join();
    EXPECT_EQ(Node::died, 2 * length);
}

TEST(Reflection, LeavesTheCountOfAFreshObjectAlone) {
    auto *object = new Counted;
    EXPECT_TRUE(object->isstruct() && object->getnfields() == 0 && !object->iskindof(xrtti_get_p_Owned()));
    EXPECT_EQ(xrcgetcount(object), 0);
    // An exception that carries the object keeps it like any other value.
    thrown_by<kelXNoField>([&] { object->lookupfield("none"); });
    EXPECT_EQ(Counted::living, 0);
}

TEST(Reflection, CastsByDescriptor) {
    xauto<Counted> counted;
    xauto<Virtual> far;
    xobject *object = &far;
    EXPECT_TRUE(Virtual::cast(object) == &far && object->getfield(0) == xany(3));
    EXPECT_EQ(text(object->getfieldname(0)), text(object->getrtti()->getfieldname(0)));
    EXPECT_FALSE(object->isarray() || object->issequence() || object->isdictionary());
    thrown_by<kelXNotArrayType>([&] { object->getnarraydims(); });
    thrown_by<kelXTypeMismatch>([&] { object->dyndowncast(nullptr); });
    EXPECT_EQ(Counted::cast(nullptr), nullptr);
    EXPECT_EQ(text(thrown_by<kelXTypeMismatch>([&] { Owned::cast(&counted); })->getTypeName()), "Owned");
}

// Threads --------------------------------------------------------------------------------------

KEL_DECLARE_STRUCT(Alone)
class Alone : public xobject {
    KEL_CLASS(Alone, xobject)
public:
    Alone() { ++living; }
    ~Alone() override {
        --living;
        ends = false;
    }
    static inline std::atomic<int> living = 0;

private:
    void ondelete() override { EXPECT_FALSE(ends.exchange(true)) << "one deletion at a time"; }
    static inline std::atomic<bool> ends = false;
};
KEL_DEFINE_STRUCT(Alone, "object::Alone", kel::counted)

TEST(Threads, TheLastOfTwoReleasesDeletes) {
    std::vector<xrchandle<Alone>> handles[2];
    std::barrier together(2);
    const auto work = [&](int t) {
        for (int round = 0; round < 300; ++round) {
            if (t == 0) {
                for (int i = 0; i < 100; ++i)
                    handles[0].emplace_back(new Alone);
                handles[1] = handles[0];
            }
            together.arrive_and_wait();
            handles[t].clear();
            together.arrive_and_wait();
            EXPECT_EQ(Alone::living, 0) << round;
            together.arrive_and_wait();
        }
    };
    std::thread other(work, 1);
    work(0);
    other.join();
}

}  // namespace
