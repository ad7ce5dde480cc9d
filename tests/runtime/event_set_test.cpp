// Event sets beside what each of their events says when it is asked alone.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include <kelstdmt/vumrt_socket.h>

namespace {

struct flag_event : btkBaseEvent {
    explicit flag_event(const bool &flag) : up(flag) {}
    bool IsReady() override { return up; }
    const bool &up;
};

// Something to wait for, with the events on it and the ways in which it changes.
struct subject {
    virtual ~subject() = default;
    virtual void change(std::mt19937 &random) = 0;
    std::vector<std::unique_ptr<btkEvent>> events;
};

struct own_signal : subject {
    explicit own_signal(bool manual) : handle(Event_Create(manual)) {
        events.emplace_back(new btkEvent(new btkEVENTEvent(handle)));
    }
    ~own_signal() override { Event_Free(handle); }
    void change(std::mt19937 &random) override { random() % 2 ? Event_Set(handle) : Event_Reset(handle); }
    btkEventHandle handle;
};

struct flag : subject {
    flag() { events.emplace_back(new btkEvent(new flag_event(up))); }
    void change(std::mt19937 &random) override { up = random() % 2; }
    bool up = false;
};

// What never changes: the end of a descriptor that is none, a file, and an event without a condition.
struct steady : subject {
    explicit steady(int fd) {
        events.emplace_back(new btkEvent(new btkSelectEvent(fd, 0)));
        events.emplace_back(new btkEvent(nullptr));
        events.emplace_back(new btkEvent(new btkAlwaysEvent));
    }
    void change(std::mt19937 &) override {}
};

// Three events on one descriptor, and a buffer that reads ahead.
struct connection : subject {
    explicit connection(btkAcceptSocket &listener) {
        EXPECT_TRUE(peer.Connect("127.0.0.1", listener.GetPort(), btkTimeval(5, 0)));
        EXPECT_TRUE(listener.Wait(btkTimeval(5, 0), 1) == 1 && listener.Accept(own));
        int small = 4096;
        ::setsockopt(own.GetHandle(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
        buffer.reset(new xsocketbuf(own));
        for (btkBaseEvent *base :
             {buffer->GetInputEvent(), buffer->GetOutputEvent(), buffer->GetOutOfBandEvent()})
            events.emplace_back(new btkEvent(base));
    }
    void change(std::mt19937 &random) override {
        char bytes[65536] = {}, message[4] = {};
        const auto what = random() % 8;
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
        } else if (what == 6 && random() % 20 == 0) {
            peer.Close();
        } else if (what == 7 && random() % 20 == 0) {
            buffer.reset();
            own.Close();
        }
    }
    btkStreamSocket own, peer;
    std::unique_ptr<xsocketbuf> buffer;
    bool under_way = false;
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
            const auto kind = random() % 7;
            if (kind < 2) return new own_signal(kind == 0);
            if (kind == 2) return new flag;
            if (kind == 3) return new steady(random() % 2 ? 900 : file);
            return new connection(listener);
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
            ASSERT_EQ(count, std::min<int>(room, static_cast<int>(expected.size())))
                << "seed " << seed << " step " << step;
            ASSERT_TRUE(static_cast<int>(got.size()) == count && std::ranges::includes(expected, got))
                << "seed " << seed << " step " << step;
        }
        // With room for one, everybody's turn comes.
        std::set<btkEvent *> waiting = signaled();
        for (std::size_t turns = 3 * members.size(); turns > 0; --turns) {
            btkEvent *told;
            if (set.Wait(btkTimeval(), &told, 1) == 1) waiting.erase(told);
        }
        ASSERT_TRUE(waiting.empty()) << "seed " << seed << ": " << waiting.size() << " passed over";
    }
    ::close(file);
}

// A number that was closed and opened again, while somebody else still holds what it stood for.
TEST(EventSet, ADescriptorIsUsedAgain) {
    btkAcceptSocket listener;
    ASSERT_TRUE(listener.Listen(0));
    btkEventSet set;
    connection first(listener), second(listener);
    const int number = first.own.GetHandle(), copy = ::dup(number);
    ASSERT_TRUE(set.Add(first.events[0].get()));
    btkEvent *told[4];
    EXPECT_EQ(set.Wait(btkTimeval(), told, 4), 0);
    first.buffer.reset();
    first.own.Close();
    ASSERT_EQ(::dup2(second.own.GetHandle(), number), number);
    btkEvent again(new btkSelectEvent(number, 0));
    ASSERT_TRUE(set.Add(&again));
    ASSERT_EQ(set.Wait(btkTimeval(), told, 4), 1);
    EXPECT_EQ(told[0], first.events[0].get()) << "it is closed, and known to be";
    set.Remove(told[0]);
    first.peer.Send("to the copy", 11);
    EXPECT_EQ(set.Wait(btkTimeval(0, 50000), told, 4), 0);
    second.peer.Send("to us", 5);
    ASSERT_EQ(set.Wait(btkTimeval(5, 0), told, 4), 1);
    EXPECT_EQ(told[0], &again);
    ::close(copy);
    ::close(number);
}

}  // namespace
