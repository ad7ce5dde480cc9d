// Ours: netServer, netBaseServer with a btkEventSet, netSocketStream at both ends.
#include <kelstdmt/kel.h>
#include <kelstdmt/netlib.h>

#include <algorithm>
#include <memory>
#include <unordered_map>

#include "work.h"

namespace bench {
namespace {

using Stream = std::unique_ptr<netSocketStream>;

// In the loop's thread, a connection after the other.
struct Greeter : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *stream) override {
        delete stream;
        return netServerContinue;
    }
};

struct Spawner : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *) override { return netSpawnAsyncServer; }
};

struct Conversation : netBaseServer_OnAsyncRequest_cb {
    explicit Conversation(Work work) : m_work(work) {}
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *owned, evtEvent *) override {
        Stream stream(owned);
        try {
            if (m_work == Work::Echo) echo(*stream);
            if (m_work == Work::Sink) sink(*stream);
        } catch (xthrowable *end) {
            const kel::caught hold(end);
        }
        return netServerContinue;
    }

private:
    [[noreturn]] static void echo(netSocketStream &stream) {
        for (;;) {
            stream.WriteInt(stream.ReadInt());
            stream.Flush();
        }
    }
    static void sink(netSocketStream &stream) {
        std::vector<char> block(block_size);
        const int blocks = stream.ReadInt();
        for (std::size_t left = static_cast<std::size_t>(blocks) * block_size; left;)
            left -= stream.ReadBytes(block.data(), static_cast<unsigned>(std::min(left, block_size)));
        stream.WriteInt(blocks);
        stream.Flush();
    }
    Work m_work;
};

struct Connection {
    Stream stream;
    std::unique_ptr<ioEvent> input;
    bool greeted = false;

    // False at the end.
    bool answer() {
        try {
            if (!greeted) {
                greeted = stream->ReadByte() == 0;
                stream->WriteByte(1);
            } else {
                stream->WriteInt(stream->ReadInt());
            }
            stream->Flush();
            return greeted;
        } catch (xthrowable *end) {
            const kel::caught hold(end);
            return false;
        }
    }
};

class Client {
public:
    explicit Client(int port) {
        std::unique_ptr<netAddress> address(netAddress::Create(port, "127.0.0.1"));
        m_stream.reset(netServer::Connect(address.get(), 10));
        if (!m_stream) throw Gone();
    }
    int ask(int value) {
        m_stream->WriteInt(value);
        m_stream->Flush();
        return m_stream->ReadInt();
    }
    void put(const char *bytes, std::size_t count) {
        m_stream->WriteBytes(bytes, static_cast<unsigned>(count));
    }
    void flush() { m_stream->Flush(); }
    int answer() { return m_stream->ReadInt(); }

private:
    Stream m_stream;
};

}  // namespace

void ours_server(Work) {
    Greeter greeter;
    std::unique_ptr<netServer> server(netServer::Create(nullptr, 0));
    server->setOnRequest(&greeter);
    announce(server->getPortN());
    server->Run();
}

void ours_threads(Work work) {
    Spawner spawner;
    Conversation conversation(work);
    std::unique_ptr<netServer> server(netServer::Create(nullptr, 0));
    server->setOnRequest(&spawner);
    server->setOnAsyncRequest(&conversation);
    announce(server->getPortN());
    server->Run();
}

void ours_loop(Work) {
    std::unique_ptr<netBaseServer> server(netBaseServer::Create(nullptr, 0));
    const std::unique_ptr<netEvent> arrival(server->AcceptEvent());
    std::unordered_map<btkEvent *, Connection> connections;
    btkEventSet set;
    set.Add(arrival.get());
    announce(server->getPortN());
    for (;;) {
        btkEvent *signalled[64];
        const int count = set.Wait(btkTimeval(3600, 0), signalled, 64);
        for (int i = 0; i < count; ++i) {
            if (signalled[i] == arrival.get()) {
                while (Stream stream{server->Accept(0)}) {
                    std::unique_ptr<ioEvent> input(stream->InputEvent());
                    set.Add(input.get());
                    btkEvent *key = input.get();
                    connections[key] = {std::move(stream), std::move(input)};
                }
            } else if (!connections.at(signalled[i]).answer()) {
                set.Remove(signalled[i]);
                connections.erase(signalled[i]);
            }
        }
    }
}

void add_ours(Suite &suite) {
    const Library ours = Library::Ours;
    add_connect<Client>(suite, ours, "netServer", ours_server);
    add_exchange<Client>(suite, ours, "netSocketStream", ours_threads);
    add_crowd(suite, ours, "btkEventSet", ours_loop);
    add_crowd(suite, ours, "netServer, OnAsyncRequest", ours_threads);
    add_open(suite, ours, "btkEventSet", ours_loop);
    add_requests(suite, ours, "netServer, OnAsyncRequest", ours_threads);
    add_bulk<Client>(suite, ours, "netSocketStream", ours_threads);
}

}  // namespace bench
