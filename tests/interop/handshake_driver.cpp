// Both sides of the handshake, driven by a peer in another language: a netServer whose port is the first line
// of the output, and netServer's client operations, one for each line "OPERATION PORT SECONDS" of the input.
// The server sends every int back, plus one; a connected client sends 7 and tells the answer.
#include <atomic>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>

namespace {

struct Echo : netBaseServer_OnRequest_cb, netBaseServer_OnAsyncRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *) override { return netSpawnAsyncServer; }
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *stream, evtEvent *) override {
        const std::unique_ptr<netSocketStream> owned(stream);
        try {
            for (;;) {
                stream->WriteInt(stream->ReadInt() + 1);
                stream->Flush();
            }
        } catch (xthrowable *gone) {
            const kel::caught error(gone);
        }
        return netServerContinue;
    }
};

std::string perform(const std::string &operation, netAddress *address, double seconds) {
    if (operation == "alive") return netServer::IsAlive(address, seconds) ? "alive" : "not alive";
    if (operation == "version")
        return "version " + std::string(kel::view(netServer::GetVersion(address, seconds)));
    if (operation == "shutdown") return netServer::Shutdown(address, seconds), "done";
    const std::unique_ptr<netSocketStream> stream(netServer::Connect(address, seconds));
    if (!stream) return "null";
    stream->WriteInt(7);
    stream->Flush();
    return "int " + std::to_string(stream->ReadInt());
}

std::string outcome(const std::string &operation, netAddress *address, double seconds) {
    try {
        return perform(operation, address, seconds);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        auto *net = error.as<netXException>();
        if (!net) return "another exception";
        return "error " + std::to_string(net->getError()) + " " + std::string(kel::view(net->getMsg()));
    }
}

}  // namespace

int main() {
    Echo echo;
    const std::unique_ptr<netServer> server(netServer::Create(nullptr, 0));
    if (!server) return 1;
    server->setOnRequest(&echo);
    server->setOnAsyncRequest(&echo);
    std::cout << server->getPortN() << std::endl;
    std::thread loop([&] { server->Run(); });
    std::string operation;
    double seconds;
    for (int port; std::cin >> operation >> port >> seconds;) {
        const std::unique_ptr<netAddress> address(netAddress::Create(port, "127.0.0.1"));
        std::cout << outcome(operation, address.get(), seconds) << std::endl;
    }
    loop.join();
    std::cout << "the loop has ended" << std::endl;
}
