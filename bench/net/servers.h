// The servers of all libraries. Each runs in a process of its own, which is this program again.
//
// All speak the same: the client's first byte is 0, which the server grants with a byte 1. What follows is
// the server's work.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "harness/processes.h"

namespace bench {

enum class Work {
    Greet,  // nothing: the server closes
    Echo,   // ints of 4 bytes come back, until the client closes
    Sink    // an int tells how many blocks follow; then an int answers
};
constexpr std::size_t block_size = 65'536;

// Serves for good. Calls `announce` with its port when it listens.
using Serve = void (*)(Work work);

// What a server with an event loop answers to bytes that came.
class Session {
public:
    // In place: as many bytes go back as came.
    void answer(char *bytes, std::size_t count) {
        if (m_greeted || count == 0) return;
        m_greeted = true;
        bytes[0] = 1;
    }
    bool is_over(Work work) const { return m_greeted && work == Work::Greet; }

private:
    bool m_greeted = false;
};

// What a server with a thread for each connection does on it. `Peer` has read and write, both of all the
// bytes; read is false at the end.
template <class Peer>
void serve_connection(Work work, Peer &peer) {
    char bytes[4] = {};
    if (!peer.read(bytes, 1)) return;
    bytes[0] = 1;
    peer.write(bytes, 1);
    if (work == Work::Echo)
        while (peer.read(bytes, 4))
            peer.write(bytes, 4);
    if (work != Work::Sink || !peer.read(bytes, 4)) return;
    std::vector<char> block(block_size);
    unsigned blocks = 0;
    for (char byte : bytes)
        blocks = blocks << 8 | static_cast<unsigned char>(byte);
    while (blocks && peer.read(block.data(), block_size))
        --blocks;
    peer.write(bytes, 4);
}

void glib_loop(Work work);
void glib_threads(Work work);
void qt_loop(Work work);
void qt_threads(Work work);
void poco_loop(Work work);
void poco_threads(Work work);
void asio_loop(Work work);
void asio_threads(Work work);
void floor_loop(Work work);
void floor_threads(Work work);
void ours_server(Work work);
void ours_loop(Work work);
void ours_threads(Work work);
void ours_names(Work work);
void ours_names_journal(Work work);

// What a ServerProcess passes to its child: runs the server that the word names. False when it is no such
// word.
bool serve_word(std::string_view word);

// One of the servers, in its own process, until this object goes.
class ServerProcess : public OwnProcess {
public:
    explicit ServerProcess(Serve serve, Work work = Work::Echo);
};

}  // namespace bench
