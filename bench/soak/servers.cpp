// The three kinds of servers: names, requests on threads, and many connections in one loop.
#include <kelstdmt/kel.h>
#include <kelstdmt/nameserver.h>
#include <kelstdmt/netlib.h>
#include <kelstdmt/proclib.h>
#include <algorithm>

#include <cstdio>
#include <memory>
#include <unordered_map>

#include "soak.h"

namespace soak {
namespace {

using Stream = std::unique_ptr<netSocketStream>;

// Every request gets a thread, because a client may fall silent at any point.
struct Spawner : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *) override { return netSpawnAsyncServer; }
};

struct Worker : netBaseServer_OnAsyncRequest_cb {
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *owned, evtEvent *stop) override {
        const Stream stream(owned);
        try {
            for (;;)
                if (!answer(*stream, stop)) break;
        } catch (xthrowable *gone) {
            const kel::caught hold(gone);  // the client went: that is its right
        }
        return netServerContinue;
    }

private:
    // False when the server goes down.
    bool answer(netSocketStream &stream, evtEvent *stop) {
        const int request = stream.ReadInt(), count = stream.ReadInt();
        if (request == Sum) {
            unsigned sum = 0;
            for (int i = 0; i < count; ++i)
                sum += static_cast<unsigned>(stream.ReadInt());
            stream.WriteInt(static_cast<int>(sum));
        } else if (request == Job) {
            for (int i = 1; i <= count; ++i) {
                if (stop->Wait(0.001)) return false;
                stream.WriteInt(i);
                stream.Flush();
            }
        } else {
            stream.WriteInt(launch());
        }
        stream.Flush();
        return true;
    }
    static int launch() {
        const std::unique_ptr<pcProcess> process(
            pcProcess::Create("/bin/true", nullptr, nullptr, nullptr, nullptr, false, false));
        std::unique_ptr<pcEvent>(process->ExitEvent())->Wait(INFINITE);
        return process->GetExitCode();
    }
};

// A connection of the loop: whole ints come back, and nobody is waited for. Bytes are taken out of the stream
// as they come, because half of an int that stayed there would keep the event signalled.
struct Connection {
    Stream stream;
    std::unique_ptr<ioEvent> input;
    std::string half = {};

    // False at the end.
    bool answer() {
        try {
            char bytes[256];
            const unsigned waiting = std::min<unsigned>(stream->PeekNBytes(), sizeof bytes);
            if (waiting == 0) return false;
            half.append(bytes, stream->ReadBytes(bytes, waiting));
            const std::size_t whole = half.size() / 4 * 4;
            if (whole == 0) return true;
            stream->WriteBytes(half.data(), static_cast<unsigned>(whole));
            stream->Flush();
            half.erase(0, whole);
            return true;
        } catch (xthrowable *gone) {
            const kel::caught hold(gone);
            return false;
        }
    }
};

}  // namespace

void announce(int port) {
    std::printf("%d\n", port);
    std::fflush(stdout);
}

void serve_names(const std::string &folder) {
    kel::name_server_options options;
    options.journal = folder + "/journal";
    std::string error;
    const std::unique_ptr<kel::name_server> server = kel::name_server::create(options, error);
    if (!server) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return;
    }
    announce(server->port());
    server->run(nullptr);
}

void serve_threads() {
    Spawner spawner;
    Worker worker;
    const std::unique_ptr<netServer> server(netServer::Create(threads_name, 0));
    server->setOnRequest(&spawner);
    server->setOnAsyncRequest(&worker);
    announce(server->getPortN());
    server->Run();
}

void serve_loop() {
    const std::unique_ptr<netBaseServer> server(netBaseServer::Create(loop_name, 0));
    const std::unique_ptr<netEvent> arrival(server->AcceptEvent());
    std::unordered_map<btkEvent *, Connection> connections;
    btkEventSet set;
    set.Add(arrival.get());
    announce(server->getPortN());
    for (;;) {
        btkEvent *signalled[64];
        const int count = set.Wait(btkTimeval(3'600, 0), signalled, 64);
        for (int i = 0; i < count; ++i) {
            if (signalled[i] == arrival.get()) {
                if (Stream stream{server->Accept(0)}) {
                    std::unique_ptr<ioEvent> input(stream->InputEvent());
                    btkEvent *const key = input.get();
                    set.Add(key);
                    connections[key] = {std::move(stream), std::move(input)};
                }
            } else if (!connections.at(signalled[i]).answer()) {
                set.Remove(signalled[i]);
                connections.erase(signalled[i]);
            }
        }
    }
}

void serve_briefly(const std::string &name) {
    Spawner spawner;
    const std::unique_ptr<netServer> server(netServer::Create(name.c_str(), 0));
    server->setOnRequest(&spawner);
    announce(server->getPortN());
    server->Run();
}

}  // namespace soak
