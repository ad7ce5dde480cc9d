// Objects: the two kinds of counting, deletion and its order, construction, threads.
#include "observing.h"

#include <barrier>
#include <climits>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "services/object_access.h"
#include "subjects.h"

namespace {

class Nameless : public xobject {
    xrtticlass *givertti() override { return nullptr; }
};

int count_of(xobject *object) {
    return xrcgetcount(object);
}

// Counts ---------------------------------------------------------------------------------------

constexpr const char *no_attach = "xrcattach: Invalid value of refcount. (services/xobject)";
constexpr const char *no_release = "xrcrelease: Invalid value of refcount. (services/xobject)";
constexpr int dies = INT_MAX;

struct Row {
    void (*operation)(xobject *);
    int before, after;
    const char *report = "";
};

// On an object that may be deleted and on one that may not, which goes back to 0 instead.
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
            EXPECT_EQ(count_of(object), row.after);
            delete object;
        }
        EXPECT_EQ(errors.take(), row.report);
        xauto<Object> kept;
        kel_object_access::count(&kept) = row.before;
        row.operation(&kept);
        EXPECT_EQ(Object::living, 1);
        EXPECT_EQ(count_of(&kept), row.after == dies ? 0 : row.after);
        errors.take();
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
    // Whether it is counted is said by its count, or else by its class.
    xauto<Counted> counted;
    xauto<Owned> owned;
    EXPECT_TRUE(counted.isrefcountable() && !owned.isrefcountable());
    kel_object_access::count(&counted) = -1;
    kel_object_access::count(&owned) = 1;
    EXPECT_TRUE(!counted.isrefcountable() && owned.isrefcountable());
}

TEST(Counts, AnObjectWithoutDescriptorIsUnknown) {
    Nameless object;
    const std::function<void()> uses[] = {[&] { object.isrefcountable(); },
                                          [&] { xany value(&object); },
                                          [&] { xrcunihandle<Nameless> h(&object); },
                                          [&] { xdelete(&object); },
                                          [&] { object.getfield(0); },
                                          [&] { object.gettypename(); },
                                          [&] { Counted::cast(&object); }};
    for (auto &use : uses) {
        kel_object_access::count(&object) = 0;
        auto thrown = thrown_by<kelXUnknownType>(use);
        EXPECT_EQ(static_cast<xobject *>(thrown->getObject()), &object);
        EXPECT_EQ(count_of(&object), -1);
    }
}

TEST(Counts, XdeleteIsForObjectsThatAreNotCounted) {
    xdelete(nullptr);
    thrown_by<kelXNotInitialized>([] { xdelete(kel::uninit_object()); });
    xrchandle<Counted> counted(new Counted);
    auto refused = thrown_by<kelXRefCountable>([&] { xdelete(counted); });
    EXPECT_TRUE(refused->getObject() == xany(counted));
    for (bool held : {false, true}) {
        auto *owned = new Owned;
        if (held) xany placed(owned);
        xdelete(owned);
        EXPECT_EQ(Owned::living, 0);
    }
    xauto<Owned> kept;
    xdelete(&kept);
    EXPECT_EQ(Owned::living, 1);
}

TEST(Handles, OwnPointOrShareAsTheySay) {
    auto *object = new Counted;
    xrchandle<Counted> owner(object);
    {
        xrchandle<xobject> base(owner);
        xrcunihandle<xobject> uni(object), same(uni);
        EXPECT_EQ(count_of(object), 4);
        xrchandle<Counted> moved(std::move(owner));
        xrcunihandle<xobject> unimoved(std::move(uni));
        EXPECT_TRUE(count_of(object) == 4 && !owner.get() && !uni.get());
        owner = moved;
        same = unimoved;
        auto &own_self = owner;
        auto &uni_self = same;
        owner = std::move(own_self);
        same = std::move(uni_self);
        EXPECT_TRUE(owner.get() == object && same.get() == object && count_of(object) == 5);
    }
    EXPECT_EQ(count_of(object), 1);
    xrcrelease(owner.detach());
    EXPECT_EQ(Counted::living, 0);
    // A uni handle made while the object was not counted never releases it.
    Owned owned;
    { xrcunihandle<Owned> handle(&owned); }
    EXPECT_EQ(count_of(&owned), -1);
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
    xrchandle<Virtual> owner(uninit), copy;
    copy = owner;
    xrchandle<xobject> base(copy);
    xrcunihandle<Virtual> uni(uninit), other(uni);
    EXPECT_EQ(base.get(), kel::uninit_object());
    EXPECT_EQ(other.get(), uninit);
    EXPECT_TRUE(kel::detail::to_any(uni).isuninit() && kel::detail::to_any(xrchandle<Virtual>()).isnil());
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
    bool refuses = false;

private:
    void ondelete() override {
        touch();
        events += "ondelete ";
        if (std::exchange(refuses, false)) kelhThrowNotInitialized();
    }
    void touch() {
        { xany value(this); }
        { xrchandle<Selfish> handle(this); }
        { xrcunihandle<Selfish> uni(this); }
        xrchandle<Counted> other(new Counted);
    }
};
KEL_DEFINE_STRUCT(Selfish, "object::Selfish", kel::counted)

KEL_DECLARE_STRUCT(SelfishOwned)
class SelfishOwned : public Selfish {
    KEL_CLASS(SelfishOwned, Selfish)
};
KEL_DEFINE_STRUCT(SelfishOwned, "object::SelfishOwned", kel::uncounted)

TEST(Deletion, RunsOnceAndOndeleteComesFirst) {
    const std::pair<std::function<void()>, const char *> lives[] = {
        {[] { xrchandle<Selfish> handle(kel::construct<Selfish>()); }, "ondelete died"},
        {[] { xrcrelease(kel::construct<Selfish>()); }, "ondelete died"},  // at count 0
        {[] { xdelete(kel::construct<SelfishOwned>()); }, "ondelete died"},
        {[] { xauto<Selfish> local; }, "died"},  // its storage is not deleted
        // Neither ondelete nor a destructor of an object that did not come to be.
        {[] { EXPECT_THROW(kel::construct<Selfish>(true), int); }, ""}};
    for (auto &[life, expected] : lives) {
        events.clear();
        life();
        EXPECT_EQ(events, expected);
    }
    EXPECT_EQ(Counted::living, 0);
}

TEST(Deletion, IsCalledOffByAnExceptionOfOndelete) {
    auto *object = kel::construct<Selfish>();
    object->refuses = true;
    events.clear();
    thrown_by<kelXNotInitialized>([&] { xrcrelease(object); });
    EXPECT_EQ(count_of(object), 1);
    // The lock is free again.
    std::thread([object] { xrcrelease(object); }).join();
    EXPECT_EQ(events, "ondelete ondelete died");
}

KEL_DECLARE_STRUCT(Node)
class Node : public xobject {
    KEL_CLASS(Node, xobject)
public:
    ~Node() override {
        ++died;
        if (id >= 0) order.push_back(id);
    }
    std::vector<xrchandle<Node>> children;
    xany next;
    int id = -1;
    static inline std::size_t died = 0;
    static inline std::vector<int> order;
};
KEL_DEFINE_STRUCT(Node, "object::Node", kel::counted)

TEST(Deletion, AChainOfAMillionNeedsNoStack) {
    constexpr int length = 1'000'000;
    Node::died = 0;
    std::thread([] {
        xrchandle<Node> head;
        for (int i = 0; i < length; ++i) {
            xrchandle<Node> node(new Node);
            // Through handles and through values.
            if (head && i % 2)
                node->children.push_back(std::move(head));
            else if (head)
                node->next = static_cast<xobject *>(head);
            head = std::move(node);
        }
        EXPECT_EQ(Node::died, 0U);
    }).join();
    EXPECT_EQ(Node::died, std::size_t{length});
}

// A random tree, deeper than deletions nest, dies in the order of plain recursion below every node that
// the recursion reaches; and all of it dies.
TEST(Deletion, TreesDieWhole) {
    std::mt19937 random(3);
    for (int depth : {10, 150, 1000}) {
        Node::died = 0;
        Node::order.clear();
        std::vector<Node *> all{new Node};
        all[0]->id = 0;
        xrchandle<Node> root(all[0]);
        for (int i = 1; i < 3 * depth; ++i) {
            std::size_t low = all.size() > 3 ? all.size() - 3 : 0;
            Node *parent = all[low + random() % (all.size() - low)];
            all.push_back(new Node);
            all.back()->id = i;
            parent->children.emplace_back(all.back());
        }
        std::vector<int> expected;
        auto visit = [&](auto &self, Node *node) -> void {
            expected.push_back(node->id);
            for (auto &child : node->children)
                self(self, child);
        };
        visit(visit, root);
        root = {};
        EXPECT_EQ(Node::died, all.size());
        EXPECT_EQ(Node::order, expected) << "a parent's destructor runs first, then its children's";
    }
}

TEST(Reflection, LeavesTheCountOfAFreshObjectAlone) {
    auto *object = new Counted;
    EXPECT_TRUE(object->isstruct() && object->getnfields() == 0 && object->issameas(xrtti_get_p_Counted()));
    EXPECT_FALSE(object->issequence() || object->isarray() || object->isdictionary() ||
                 object->iskindof(xrtti_get_p_Owned()));
    EXPECT_EQ(count_of(object), 0);
    // An exception that carries the object keeps it like any other value.
    thrown_by<kelXNoField>([&] { object->lookupfield("none"); });
    EXPECT_EQ(Counted::living, 0);
}

TEST(Reflection, CastsByDescriptor) {
    xauto<Counted> counted;
    xauto<Virtual> far;
    xobject plain, *object = &far;
    EXPECT_TRUE(Virtual::cast(object) == &far && object->getfield(0) == xany(3));
    thrown_by<kelXTypeMismatch>([&] { object->dyndowncast(nullptr); });
    EXPECT_EQ(Counted::cast(nullptr), nullptr);
    EXPECT_EQ(counted.dyndowncast(get_xrttiobject()), static_cast<xobject *>(&counted));
    // A cast names the class, a down-cast the declared type.
    EXPECT_EQ(text(thrown_by<kelXTypeMismatch>([&] { Owned::cast(&counted); })->getTypeName()), "Owned");
    auto refused = thrown_by<kelXTypeMismatch>([&] { plain.dyndowncast(xrtti_get_p_Owned()); });
    EXPECT_EQ(text(refused->getTypeName()), "test::Owned");
}

// Threads --------------------------------------------------------------------------------------

template <class Work>
void in_threads(int count, Work work) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t)
        threads.emplace_back(work, t);
    for (auto &thread : threads)
        thread.join();
}

TEST(Threads, CountsOfASharedObjectAddUp) {
    xrchandle<Counted> shared(new Counted);
    in_threads(4, [&](int) {
        for (int i = 0; i < 20000; ++i) {
            xany value(shared), copy(value);
            xrcunihandle<Counted> uni(shared);
        }
    });
    EXPECT_EQ(count_of(shared), 1);
}

TEST(Threads, TheLastOfTwoReleasesDeletes) {
    constexpr int rounds = 300, objects = 100;
    std::vector<xrchandle<Counted>> handles[2];
    std::barrier together(2);
    in_threads(2, [&](int t) {
        for (int round = 0; round < rounds; ++round) {
            if (t == 0) {
                for (int i = 0; i < objects; ++i)
                    handles[0].emplace_back(new Counted);
                handles[1] = handles[0];
            }
            together.arrive_and_wait();
            handles[t].clear();
            together.arrive_and_wait();
            EXPECT_EQ(Counted::living, 0) << round;
            together.arrive_and_wait();
        }
    });
}

KEL_DECLARE_STRUCT(Slow)
class Slow : public xobject {
    KEL_CLASS(Slow, xobject)
public:
    explicit Slow(std::atomic<int> &stage) : m_stage(stage) {}
    ~Slow() override {
        // The other thread has had its chance to end its own release.
        EXPECT_EQ(Counted::living, 1);
        m_stage = 2;
    }

private:
    void ondelete() override {
        m_stage = 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(Counted::living, 1);
    }
    std::atomic<int> &m_stage;
};
KEL_DEFINE_STRUCT(Slow, "object::Slow", kel::counted)

TEST(Threads, OneDeletionAtATime) {
    std::atomic<int> stage = 0;
    auto *object = new Counted;
    xrcattach(object);
    xrchandle<Slow> slow(kel::construct<Slow>(stage));
    std::thread other([&] {
        while (stage == 0)
            std::this_thread::yield();
        xrcrelease(object);
        EXPECT_EQ(stage, 2) << "the last release waits for the deletion that is under way";
    });
    slow = {};
    other.join();
    EXPECT_EQ(Counted::living, 0);
}

}  // namespace
