// The work of each case, written once: what a library brings is a server and a client with the operations of
// PlainClient, functions that start a program, or a name service.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cases.h"
#include "harness/placement.h"
#include "harness/stopwatch.h"
#include "plain.h"
#include "servers.h"

namespace bench {

// Runs the work once; what it throws is a wrong result, unless it begins with cannot_prefix.
template <class Body>
void add_run(Suite &suite, const char *name, Library library, std::string way, Body body) {
    suite.add(name, library, std::move(way), [body](benchmark::State &state) {
        std::string wrong;
        run_once(state, [&]() -> const char * {
            try {
                return body(state);
            } catch (const std::exception &error) {
                wrong = error.what();
                return wrong.c_str();
            }
        });
    });
}

// Both ends are the library's, and held on one processor: what remains is the way through the library,
// without what it takes to wake another processor. Connections one after the other.
template <class Client>
void add_connect(Suite &suite, Library library, std::string way, Serve serve) {
    add_run(suite, "connect", library, std::move(way), [serve](benchmark::State &state) {
        constexpr int count = 3'000;
        Placed placed(0);
        ServerProcess server(serve, Work::Greet);
        Client first(server.port());
        time_wall_phase(state, whole, count, [&] {
            for (int i = 0; i < count; ++i)
                Client client(server.port());
        });
        return nullptr;
    });
}

// As above, on one connection.
template <class Client>
void add_exchange(Suite &suite, Library library, std::string way, Serve serve) {
    add_run(suite, "exchange", library, std::move(way), [serve](benchmark::State &state) {
        constexpr int count = 10'000;
        Placed placed(0);
        ServerProcess server(serve);
        Client client(server.port());
        bool right = client.ask(-7) == -7;
        time_wall_phase(state, whole, count, [&] {
            for (int i = 0; i < count; ++i)
                right = client.ask(i) == i && right;
        });
        return right ? nullptr : "other ints come back";
    });
}

// Both ends are the library's, on two processors.
template <class Client>
void add_bulk(Suite &suite, Library library, std::string way, Serve serve) {
    add_run(suite, "bulk", library, std::move(way), [serve](benchmark::State &state) {
        constexpr int mib = 256, blocks = mib * 1'048'576 / static_cast<int>(block_size);
        ServerProcess server(serve, Work::Sink);
        const std::string block(block_size, 'b');
        Client client(server.port());
        char count[4];
        put_int(count, blocks);
        int answer = 0;
        time_wall_phase(state, whole, mib, [&] {
            client.put(count, 4);
            for (int i = 0; i < blocks; ++i)
                client.put(block.data(), block_size);
            client.flush();
            answer = client.answer();
        });
        return answer == blocks ? nullptr : "another answer";
    });
}

// The server is the library's, the client is plain.
void add_crowd(Suite &suite, Library library, std::string way, Serve serve);
void add_open(Suite &suite, Library library, std::string way, Serve serve);
void add_requests(Suite &suite, Library library, std::string way, Serve serve);

// A program's start. `run` awaits its end and answers its code; `read` answers what it writes.
void add_launch(Suite &suite, Library library, std::string way, std::function<int()> run);
void add_output(Suite &suite, Library library, std::string way, std::function<std::string()> read);
constexpr const char *launched = "/bin/true", *speaker = "/bin/echo", *spoken = "hello";

// A name service in a process of its own, new and empty; both on one processor.
struct Names {
    virtual ~Names() = default;
    virtual void put(const std::string &name, int port) = 0;
    virtual int find(const std::string &name) = 0;
};
using OpenNames = std::function<std::unique_ptr<Names>()>;
void add_names(Suite &suite, const char *name, Library library, std::string way, OpenNames open);

}  // namespace bench
