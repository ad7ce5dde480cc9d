// Event sets beside what each of their events says when it is asked alone, while events come and go and
// numbers of descriptors are used again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <random>

#include <kelstdmt/vumrt_socket.h>

#include "failing_memory.h"

namespace {

// Something to wait for, with the events on it and the ways in which it changes.
struct subject {
    explicit subject(std::initializer_list<btkBaseEvent *> bases) {
        for (btkBaseEvent *base : bases)
            events.emplace_back(new btkEvent(base));
    }
    virtual ~subject() = default;
    virtual void change(std::mt19937 &) {}
    std::vector<std::unique_ptr<btkEvent>> events;
};

struct own_signal : subject {
    explicit own_signal(btkEventHandle made) : subject{new btkEVENTEvent(made)}, handle(made) {}
    ~own_signal() override { Event_Free(handle); }
    void change(std::mt19937 &random) override { random() % 2 ? Event_Set(handle) : Event_Reset(handle); }
    btkEventHandle handle;
};

// Three events on one descriptor, and a buffer that reads ahead.
struct connection : subject {
    explicit connection(btkAcceptSocket &listener) : subject{} {
        EXPECT_TRUE(peer.Connect("127.0.0.1", listener.GetPort(), btkTimeval(5, 0)));
        EXPECT_TRUE(listener.Wait(btkTimeval(5, 0), 1) == 1 && listener.Accept(own));
        int small = 4096;
        ::setsockopt(own.GetHandle(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
        buffer.reset(new xsocketbuf(own));
        for (btkBaseEvent *base :
             {buffer->GetInputEvent(), buffer->GetOutputEvent(), buffer->GetOutOfBandEvent()})
            events.emplace_back(new btkEvent(base));
    }
    ~connection() override {
        ::close(number);
        ::close(copy);
    }
    void change(std::mt19937 &random) override {
        char bytes[65536] = {}, message[4] = {};
        const auto what = random() % 7;
        if (what == 0) {
            peer.Send(bytes, static_cast<unsigned>(random() % 9));
        } else if (what == 1 && !under_way) {
            under_way = peer.SendOutOfBand("four", 4) == 4;
        } else if (what == 2) {
            while (own.SendNow(bytes, sizeof bytes) > 0)
                continue;
        } else if (what == 3) {
            while (peer.RecvNow(bytes, sizeof bytes) > 0)
                continue;
        } else if (what == 4 && buffer && own.RecvOutOfBand(message, 4) == 4) {
            under_way = false;
        } else if (what == 5 && buffer && events[0]->IsSignaled()) {
            buffer->GetStreamBuf()->sgetn(bytes, 1);
        } else if (what == 6 && buffer && random() % 20 == 0) {
            // What the number stood for lives on in a copy, and the number is another's.
            number = own.GetHandle();
            copy = ::dup(number);
            buffer.reset();
            own.Close();
            ::dup2(peer.GetHandle(), number);
            events.emplace_back(new btkEvent(new btkSelectEvent(number, 0)));
        }
    }
    btkStreamSocket own, peer;
    std::unique_ptr<xsocketbuf> buffer;
    bool under_way = false;
    int number = -1, copy = -1;
};

TEST(EventSet, TellsWhatItsEventsTell) {
    btkAcceptSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    int file = ::open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        std::vector<std::unique_ptr<subject>> subjects;
        btkEventSet set;
        std::vector<btkEvent *> members;
        const auto signaled = [&] {
            std::set<btkEvent *> some;
            std::ranges::copy_if(members, std::inserter(some, some.end()), &btkEvent::IsSignaled);
            return some;
        };
        auto make = [&]() -> subject * {
            const auto kind = random() % 6;
            if (kind < 2) return new own_signal(Event_Create(kind == 0));
            if (kind > 2) return new connection(listener);
            // What never changes: an event without a condition, a file, a descriptor that is none.
            const int fd = random() % 2 ? 900 : file;
            return new subject{new btkSelectEvent(fd, 0), nullptr, new btkAlwaysEvent};
        };
        for (int step = 0; step < 400; ++step) {
            subject *chosen = subjects.empty() ? nullptr : subjects[random() % subjects.size()].get();
            if (unsigned what = static_cast<unsigned>(random() % 20); what < 2 && subjects.size() < 12) {
                subjects.emplace_back(make());
            } else if (what < 5 && chosen) {
                btkEvent *event = chosen->events[random() % chosen->events.size()].get();
                const bool is_new = std::find(members.begin(), members.end(), event) == members.end();
                ASSERT_EQ(set.Add(event), is_new);
                if (is_new) members.push_back(event);
            } else if (what == 5 && !members.empty()) {
                btkEvent *event = members[random() % members.size()];
                set.Remove(event);
                set.Remove(event);
                std::erase(members, event);
            } else if (what == 6 && chosen && random() % 4 == 0) {
                for (auto &event : chosen->events) {
                    set.Remove(event.get());
                    std::erase(members, event.get());
                }
                std::erase_if(subjects, [&](auto &one) { return one.get() == chosen; });
            } else if (chosen) {
                chosen->change(random);
                for (auto &event : chosen->events)
                    set.Touch(event.get());
            }
            const std::set<btkEvent *> expected = signaled();
            btkEvent *told[64];
            const int room = random() % 3 ? 64 : static_cast<int>(random() % 3) + 1;
            const int count = set.Wait(btkTimeval(), told, room);
            const std::set<btkEvent *> got(told, told + std::max(count, 0));
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
            const int wanted = std::min<int>(room, static_cast<int>(expected.size()));
            // What was under way may have arrived in between.
            if (count != wanted && signaled() != expected) continue;
            ASSERT_EQ(count, wanted);
            ASSERT_TRUE(static_cast<int>(got.size()) == count && std::ranges::includes(expected, got));
        }
    }
    ::close(file);
}

TEST(EventSet, AddsAnEventWholeOrNotAtAll) {
    const btkEventHandle handle = Event_Create(true, true);
    btkEvent event(new btkEVENTEvent(handle)), *told = nullptr;
    int failures = 0;
    for (bool added = false; !added; ++failures) {
        btkEventSet set;
        failing_memory::allocations_left = failures;
        try {
            added = set.Add(&event);
        } catch (const std::bad_alloc &) {
        }
        failing_memory::allocations_left = -1;
        ASSERT_TRUE(added || set.Add(&event)) << failures << ": " << Error_GetLast();
        ASSERT_TRUE(set.Wait(btkTimeval(), &told, 1) == 1 && told == &event) << failures;
        set.Remove(&event);
    }
    EXPECT_GT(failures, 1);
    Event_Free(handle);
}

// What is told of a descriptor that lives on in a copy makes the set begin anew: where the set then stands at
// that number itself, and where it finds no descriptor at first.
TEST(EventSet, BeginsAnew) {
    constexpr int many = 20;
    for (const bool has_room : {true, false}) {
        btkEventSet set;
        btkEvent *told[many];
        std::vector<std::unique_ptr<btkEvent>> events;
        std::vector<std::array<int, 2>> pairs(many);
        const auto add = [&](std::array<int, 2> &pair) {
            ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
            ASSERT_TRUE(set.Add(events.emplace_back(new btkEvent(new btkSelectEvent(pair[0], 0))).get()));
        };
        std::ranges::for_each(pairs, add);
        ASSERT_EQ(set.Wait(btkTimeval(), told, many), 0);
        const int number = pairs[0][0], copy = ::dup(number);
        ::close(number);
        set.Remove(events[0].get());
        std::array<int, 2> again;
        add(again);
        ASSERT_EQ(again[0], number);
        ::close(number);
        ASSERT_EQ(::write(pairs[0][1], "x", 1), 1) << "told by the registration that the copy keeps";

        rlimit limit{}, none{};
        ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        none.rlim_max = limit.rlim_max;
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, has_room ? &limit : &none), 0);
        for (int i = 0; i < 2; ++i)
            set.Wait(btkTimeval(), told, many);
        EXPECT_TRUE(has_room || (set.Wait(btkTimeval(), told, many) == -1 && Error_GetLast() == 4));
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);

        set.Remove(events.back().get());  // whose number may be the set's
        for (std::size_t i = 1; i < many; ++i) {
            ASSERT_EQ(::write(pairs[i][1], "x", 1), 1);
            ASSERT_EQ(set.Wait(btkTimeval(10, 0), told, many), 1) << "event " << i << ", room: " << has_room;
            EXPECT_EQ(told[0], events[i].get());
            set.Remove(told[0]);
        }
        EXPECT_EQ(set.GetSize(), 0u);
        for (const auto &pair : pairs)
            std::ranges::for_each(pair, ::close);
        for (const int each : {copy, again[1]})
            ::close(each);
    }
}

}  // namespace
