// Both sides of the handshake over real connections: each input is what a client sends to our server, or what
// a server answers our client, in pieces. The answers must be those that the first byte asks for, and nobody
// may be held up.
#include <thread>

#include <kelstdmt/netlib_server.h>

#include "peer.h"

namespace {

using peer::require;

constexpr std::string_view version = "\1\x1bKEL netServer Version 0.99";

// Our server, which goes on when a client has shut it down.
int serving_port() {
    auto *const server = netServer::Create(nullptr, 0);
    std::thread([server] {
        for (;;)
            server->Run();
    }).detach();
    return server->getPortN();
}

void ask_server(std::string_view bytes, unsigned seed) {
    static const int port = serving_port();
    peer::Peer client;
    require(client.Connect("127.0.0.1", port, peer::Peer::patience), "no connection");
    const std::string sent(bytes.empty() ? "\4" : bytes);
    std::string expected = static_cast<unsigned char>(sent[0]) < 4 ? "\1" : "";
    if (sent[0] == 2) expected = std::string(version) + '\0';
    client.send(sent, seed);
    const std::string saw = client.receive_all();
    // Bytes behind the question, which nobody reads, may cut the connection before the answer is read.
    require(saw == expected || (sent.size() > 1 && expected.starts_with(saw)), "another answer");
}

// Our client, and a server that answers every connection with the same bytes.
void answer_client(std::string_view bytes, unsigned seed) {
    static peer::Listener listener;
    static auto *const address = netAddress::Create(listener.GetPort(), "127.0.0.1");
    std::thread serving([&] {
        peer::Peer server;
        listener.take(server);
        char question;
        server.Recv(&question, 1);
        server.send(bytes, seed);
    });
    std::string saw;
    try {
        if (seed % 2)
            saw = kel::view(netServer::GetVersion(address, 20));
        else
            saw = netServer::IsAlive(address, 20) ? "alive" : "not alive";
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        auto *net = error.as<netXException>();
        require(net && net->getError() == netConnectionRefused, "another exception");
        saw = "refused";
    }
    serving.join();
    const bool granted = bytes.starts_with('\1');
    std::string expected = granted ? "alive" : "not alive";
    if (seed % 2) {
        const std::size_t size = bytes.size() > 1 ? static_cast<unsigned char>(bytes[1]) : 256;
        const bool whole = granted && bytes.size() >= 2 + size;
        expected = whole ? std::string(bytes.substr(2, size)).c_str() : "refused";
    }
    require(saw == expected, "the client takes the answer for another");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    if (size < 2 || size > 600) return 0;
    const std::string_view rest(reinterpret_cast<const char *>(bytes) + 2, size - 2);
    (bytes[0] % 2 ? ask_server : answer_client)(rest, bytes[1]);
    return 0;
}
