// A connection with nothing around it: the client of those cases that look at servers alone, and the floor of
// the others.
#pragma once

#include <cstddef>

#include "harness/plain_socket.h"

namespace bench {

// What the clients of the cases look like. All of it throws when the peer is gone.
class PlainClient {
public:
    struct Later {};  // greets without waiting for the answer
    explicit PlainClient(int port) : PlainClient(port, Later()) { await_grant(); }
    PlainClient(int port, Later);
    ~PlainClient();
    PlainClient(PlainClient &&other) noexcept : m_descriptor(other.m_descriptor) { other.m_descriptor = -1; }
    PlainClient &operator=(PlainClient &&) = delete;

    void await_grant();
    int ask(int value) {
        ask_later(value);
        return answer();
    }
    void ask_later(int value);
    void put(const char *bytes, std::size_t count);
    void flush() {}
    int answer();
    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

// The client of a peer, which has `put`, which throws, and `get`, which answers whether all bytes came.
template <class Client>
class PeerClient {
public:
    int ask(int value) {
        char bytes[4];
        put_int(bytes, value);
        self().put(bytes, 4);
        return answer();
    }
    void flush() {}
    int answer() {
        char bytes[4];
        if (!self().get(bytes, 4)) throw Gone();
        return int_of(bytes);
    }

protected:
    void greet() {
        char byte = 0;
        self().put(&byte, 1);
        if (!self().get(&byte, 1) || byte != 1) throw Gone();
    }

private:
    Client &self() { return static_cast<Client &>(*this); }
};

}  // namespace bench
