// Both sides of the handshake over real connections: each input is what a client sends to our server, or what
// a server answers our client, in pieces. The answers must be those that the first byte asks for, whatever
// follows, and nobody may be held up.
#include <thread>

#include <kelstdmt/netlib_server.h>

#include "peer.h"

namespace {

using peer::require;

constexpr std::string_view version = "\1\x1bKEL netServer Version 0.99";

// Sends back what comes, up to the first '!'.
struct Echo : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *stream) override {
        const std::unique_ptr<netSocketStream> owned(stream);
        try {
            for (char byte = 0; byte != '!' && stream->ReadBytes(&byte, 1) == 1;)
                stream->WriteBytes(&byte, 1);
            stream->Flush();
        } catch (xthrowable *gone) {
            const kel::caught error(gone);
        }
        return netServerContinue;
    }
};

// Our server, which goes on when a client has shut it down.
struct Server {
    Echo echo;
    std::unique_ptr<netServer> server{netServer::Create(nullptr, 0)};

    Server() {
        server->setOnRequest(&echo);
        std::thread([this] {
            for (;;)
                server->Run();
        }).detach();
    }

    void Try(std::string_view bytes, unsigned seed) const {
        peer::Peer client;
        require(client.Connect("127.0.0.1", server->getPortN(), peer::Peer::patience), "no connection");
        std::string sent(bytes.empty() ? "\4" : bytes), expected;
        if (sent[0] == 0) {
            expected = "\1" + sent.substr(1, sent.find('!', 1) - 1) + "!";
            if (sent.find('!', 1) == sent.npos) sent += '!';
        } else if (sent[0] == 2) {
            expected = std::string(version) + '\0';
        } else if (sent[0] == 1 || sent[0] == 3) {
            expected = "\1";
        }
        client.send(sent, seed);
        const std::string saw = client.receive_all();
        // Bytes behind the question, which nobody reads, may cut the connection before the answer is read.
        require(saw == expected || (sent.size() > 1 && sent[0] != 0 && expected.starts_with(saw)),
                "not the answer to this question");
    }
};

// A server that answers every connection with the same bytes.
struct Answer {
    peer::Listener listener;
    std::unique_ptr<netAddress> address{netAddress::Create(listener.GetPort(), "127.0.0.1")};

    void Try(std::string_view bytes, unsigned seed) {
        std::thread serving([&] {
            peer::Peer server;
            listener.take(server);
            char question;
            server.Recv(&question, 1);
            server.send(bytes, seed);
        });
        const bool asks_version = seed % 2;
        std::string saw;
        try {
            if (asks_version)
                saw = kel::view(netServer::GetVersion(address.get(), 20));
            else
                saw = netServer::IsAlive(address.get(), 20) ? "alive" : "not alive";
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            auto *net = error.as<netXException>();
            require(net && net->getError() == netConnectionRefused, "another exception");
            saw = "refused";
        }
        serving.join();
        const bool granted = !bytes.empty() && bytes[0] == 1;
        std::string expected = granted ? "alive" : "not alive";
        if (asks_version) {
            const std::size_t size = bytes.size() > 1 ? static_cast<unsigned char>(bytes[1]) : 256;
            const bool whole = granted && bytes.size() >= 2 + size;
            expected = whole ? std::string(bytes.substr(2, size)).c_str() : "refused";
        }
        require(saw == expected, "the client takes the answer for another");
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    static auto *const server = new Server;
    static auto *const answer = new Answer;
    if (size < 2 || size > 600) return 0;
    const std::string_view rest(reinterpret_cast<const char *>(bytes) + 2, size - 2);
    if (bytes[0] % 2)
        server->Try(rest, bytes[1]);
    else
        answer->Try(rest, bytes[1]);
    return 0;
}
