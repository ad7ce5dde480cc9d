#include "work.h"

#include <sys/epoll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <memory>
#include <random>

namespace bench {
namespace {

// Many connections with one question under way on each. False when an answer is another's.
bool keep_asking(std::deque<PlainClient> &clients, int times) {
    struct Descriptor {
        int number = epoll_create1(EPOLL_CLOEXEC);
        ~Descriptor() { close(number); }
    } set;
    for (std::size_t i = 0; i < clients.size(); ++i) {
        epoll_event event = {EPOLLIN, {}};
        event.data.u64 = i;
        epoll_ctl(set.number, EPOLL_CTL_ADD, clients[i].descriptor(), &event);
        clients[i].ask_later(static_cast<int>(i));
    }
    bool right = true;
    int asked = static_cast<int>(clients.size()), answered = 0;
    while (answered < times) {
        epoll_event ready[64];
        const int count = epoll_wait(set.number, ready, 64, 10'000);
        if (count <= 0) throw Gone();
        for (int i = 0; i < count; ++i, ++answered) {
            PlainClient &client = clients[ready[i].data.u64];
            right = client.answer() == static_cast<int>(ready[i].data.u64) && right;
            if (asked++ < times) client.ask_later(static_cast<int>(ready[i].data.u64));
        }
    }
    return right;
}

void open_more(std::deque<PlainClient> &clients, int port, std::size_t count) {
    const std::size_t before = clients.size();
    for (std::size_t i = 0; i < count; ++i)
        clients.emplace_back(port, PlainClient::Later());
    for (std::size_t i = before; i < clients.size(); ++i)
        clients[i].await_grant();
}

// Memory of which every page is there, in pages of the usual size, until the program ends.
void hold_memory() {
    constexpr std::size_t size = std::size_t{2} << 30;
    static char *held = nullptr;
    if (held) return;
    void *got = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (got == MAP_FAILED) throw std::runtime_error("cannot: no memory");
    madvise(got, size, MADV_NOHUGEPAGE);
    held = static_cast<char *>(got);
    std::memset(held, 1, size);
}

}  // namespace

void add_crowd(Suite &suite, Library library, std::string way, Serve serve) {
    add_run(suite, "crowd", library, std::move(way), [serve](benchmark::State &state) {
        constexpr int times = 20'000;
        ServerProcess server(serve);
        std::deque<PlainClient> clients;
        open_more(clients, server.port(), 64);
        bool right = keep_asking(clients, 1'000);
        time_wall_phase(state, whole, times, [&] { right = keep_asking(clients, times) && right; });
        return right ? nullptr : "other ints come back";
    });
}

// The server's memory grows by what the connections need; then one of them, another each time, is active.
void add_open(Suite &suite, Library library, std::string way, Serve serve) {
    add_run(suite, "open", library, std::move(way), [serve](benchmark::State &state) {
        constexpr std::size_t count = 10'000, batch = 100;
        Placed placed(0);
        ServerProcess server(serve);
        std::deque<PlainClient> clients;
        open_more(clients, server.port(), 1);
        bool right = clients[0].ask(1) == 1;
        const std::size_t before = server.resident_bytes();
        while (clients.size() < count)
            open_more(clients, server.port(), std::min(batch, count - clients.size()));
        // Each has had an exchange, so that what a library allocates then is counted.
        for (PlainClient &client : clients)
            client.ask_later(2);
        for (PlainClient &client : clients)
            right = client.answer() == 2 && right;
        state.counters["bytes a connection"] =
            static_cast<double>(server.resident_bytes() - before) / static_cast<double>(count - 1);
        std::mt19937 random(1);
        constexpr int times = 1'000;
        time_wall_phase(state, "an int there and back", times, [&] {
            for (int i = 0; i < times; ++i)
                right = clients[random() % count].ask(i) == i && right;
        });
        return right ? nullptr : "other ints come back";
    });
}

// All hundred are granted before the first is asked, so all of them are under way at once.
void add_requests(Suite &suite, Library library, std::string way, Serve serve) {
    add_run(suite, "requests", library, std::move(way), [serve](benchmark::State &state) {
        constexpr int count = 100, rounds = 20;
        ServerProcess server(serve);
        bool right = true;
        auto round = [&] {
            std::deque<PlainClient> clients;
            open_more(clients, server.port(), count);
            for (int i = 0; i < count; ++i)
                clients[static_cast<std::size_t>(i)].ask_later(i);
            for (int i = 0; i < count; ++i)
                right = clients[static_cast<std::size_t>(i)].answer() == i && right;
        };
        round();
        time_wall_phase(state, whole, count * rounds, [&] {
            for (int i = 0; i < rounds; ++i)
                round();
        });
        return right ? nullptr : "other ints come back";
    });
}

void add_launch(Suite &suite, Library library, std::string way, std::function<int()> run) {
    add_run(suite, "launch", library, std::move(way), [run](benchmark::State &state) {
        hold_memory();
        constexpr int times = 50;
        bool right = run() == 0;
        time_wall_phase(state, whole, times, [&] {
            for (int i = 0; i < times; ++i)
                right = run() == 0 && right;
        });
        return right ? nullptr : "another exit code";
    });
}

void add_output(Suite &suite, Library library, std::string way, std::function<std::string()> read) {
    add_run(suite, "output", library, std::move(way), [read](benchmark::State &state) {
        hold_memory();
        constexpr int times = 50;
        const std::string wanted = std::string(spoken) + "\n";
        bool right = read() == wanted;
        time_wall_phase(state, whole, times, [&] {
            for (int i = 0; i < times; ++i)
                right = read() == wanted && right;
        });
        return right ? nullptr : "other output";
    });
}

void add_names(Suite &suite, const char *name, Library library, std::string way, OpenNames open) {
    add_run(suite, name, library, std::move(way), [open](benchmark::State &state) {
        constexpr int records = 10'000, queries = 5'000;
        Placed placed(0);
        const std::unique_ptr<Names> names = open();
        auto name_of_record = [](int i) { return "server number " + std::to_string(i); };
        time_wall_phase(state, "register", records, [&] {
            for (int i = 0; i < records; ++i)
                names->put(name_of_record(i), 1'024 + i);
        });
        std::mt19937 random(1);
        bool right = true;
        time_wall_phase(state, "query", queries, [&] {
            for (int i = 0; i < queries; ++i) {
                const int which = static_cast<int>(random() % records);
                right = names->find(name_of_record(which)) == 1'024 + which && right;
            }
        });
        return right ? nullptr : "other ports";
    });
}

}  // namespace bench
