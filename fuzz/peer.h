// What the fuzz targets of connections need: a peer that sends any bytes, a connection with our side at one
// end and such a peer at the other, and a reader of what was sent.
#pragma once

#include <sys/socket.h>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/vumrt_names.h>

#include "fuzzing.h"

namespace peer {

using fuzz::require;

// Of the remote shell.
enum Tag : int { Err = 2, Out = 3, Code = 6, Done = 7 };
inline std::string message(int tag) {
    std::string bytes;
    kel::append_int(bytes, tag);
    return bytes;
}

// Values out of bytes; the first that is not there whole ends it.
struct Reader {
    std::string_view left;
    bool whole = true;

    int integer() {
        whole = whole && left.size() >= 4;
        if (!whole) return 0;
        const int value = kel::int_at(left.data());
        return left.remove_prefix(4), value;
    }
    std::string bytes(int count) {
        const std::string taken(left.substr(0, static_cast<std::size_t>(count)));
        whole = taken.size() == static_cast<std::size_t>(count);
        return left.remove_prefix(taken.size()), taken;
    }
};

class Peer : public btkStreamSocket {
public:
    static constexpr btkTimeval patience{20, 0};

    // In pieces whose sizes the seed chooses, up to 64 bytes; 0 sends all at once.
    void send(std::string_view bytes, unsigned seed = 0) {
        while (!bytes.empty()) {
            const std::size_t size = seed ? 1 + seed % 64 : bytes.size();
            const std::string_view piece = bytes.substr(0, size);
            if (Send(piece.data(), static_cast<unsigned>(piece.size())) < 1) return;
            bytes.remove_prefix(piece.size());
            seed = seed * 1103515245u / 7 | 1;
        }
    }
    // No more will come, but answers are read.
    void hang_up() { ::shutdown(GetHandle(), SHUT_WR); }
    // The next bytes; none at the end.
    std::string receive() {
        char block[4096];
        require(Wait(patience, ForInput) > 0, "our side holds its peer up");
        const int got = Recv(block, sizeof block);
        return std::string(block, static_cast<std::size_t>(got > 0 ? got : 0));
    }
    std::string receive_all() {
        std::string all;
        for (std::string piece; !(piece = receive()).empty();)
            all += piece;
        return all;
    }
};

class Listener : public btkAcceptSocket {
public:
    Listener() { require(Listen(0, "127.0.0.1"), "no listening socket"); }
    void take(btkStreamSocket &socket) {
        require(Wait(Peer::patience, btkSocket::ForInput) == 1 && Accept(socket), "nobody connects");
    }
};

struct Connection : Peer {
    Connection() {
        static auto *const listener = new Listener;
        auto socket = std::make_unique<btkStreamSocket>();
        require(Connect("127.0.0.1", listener->GetPort(), patience), "no connection");
        listener->take(*socket);
        ours = std::make_unique<netSocketStream>(std::move(socket));
    }
    std::unique_ptr<netSocketStream> ours;
};

}  // namespace peer
