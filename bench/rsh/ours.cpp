// Ours: rshProcess, and a netServer that serves commands.
#include <kelstdmt/kel.h>
#include <kelstdmt/nameserver.h>
#include <kelstdmt/netlib.h>
#include <kelstdmt/rshlib.h>

#include <cstdio>
#include <cstdlib>

#include "work.h"

namespace bench {
namespace {

// The server -----------------------------------------------------------------------------------------

struct Spawner : netBaseServer_OnRequest_cb {
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *) override { return netSpawnAsyncServer; }
};

struct Commands : netBaseServer_OnAsyncRequest_cb {
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *owned, evtEvent *stop) override {
        const std::unique_ptr<netSocketStream> stream(owned);
        kel::serve_remote_command(stream.get(), {}, stop);
        return netServerContinue;
    }
};

void serve_commands(const char *name) {
    Spawner spawner;
    Commands commands;
    const std::unique_ptr<netServer> server(netServer::Create(name, 0));
    server->setOnRequest(&spawner);
    server->setOnAsyncRequest(&commands);
    announce(server->getPortN());
    server->Run();
}

// The client -----------------------------------------------------------------------------------------

// Runs what may throw the library's exceptions.
template <class Work>
auto throwing_gone(Work work) {
    try {
        return work();
    } catch (xthrowable *end) {
        const kel::caught hold(end);
        throw Gone();
    }
}

// Owns what the process stands on: its connection.
template <class Connection>
class OurCommand : public Command {
public:
    OurCommand(std::unique_ptr<Connection> connection, rshProcess *process)
        : m_connection(std::move(connection)), m_process(process) {
        if (!process) throw Gone();
    }
    void write(const char *bytes, std::size_t count) override {
        throwing_gone([&] {
            m_process->getStdin()->WriteBytes(bytes, static_cast<unsigned>(count));
            m_process->getStdin()->Flush();
        });
    }
    void end_input() override { m_process->getStdin()->Close(); }
    std::size_t read(char *bytes, std::size_t count) override {
        ioStream *out = m_process->getStdout();
        try {
            return out->ReadBytes(bytes, static_cast<unsigned>(count));
        } catch (xthrowable *end) {
            const kel::caught hold(end);
            return 0;
        }
    }
    int await() override {
        std::unique_ptr<rshEvent>(m_process->ExitEvent())->Wait(INFINITE);
        return m_process->GetExitCode();
    }

private:
    std::unique_ptr<Connection> m_connection;
    std::unique_ptr<rshProcess> m_process;
};

class ByPort : public Shell {
public:
    explicit ByPort(bool by_shell) : m_by_shell(by_shell) {}
    std::unique_ptr<Command> start(const std::string &words) override {
        return throwing_gone([&] {
            const std::unique_ptr<netAddress> address(netAddress::Create(m_server.port(), "127.0.0.1"));
            std::unique_ptr<netSocketStream> stream(netServer::Connect(address.get(), 10));
            if (!stream) throw Gone();
            rshProcess *process = rshProcess::Create(stream.get(), words.c_str(), nullptr, nullptr, nullptr,
                                                     nullptr, m_by_shell, true);
            return std::make_unique<OurCommand<netSocketStream>>(std::move(stream), process);
        });
    }
    pid_t server() const override { return m_server.id(); }

private:
    bool m_by_shell;
    OwnProcess m_server{"ours"};
};

class ByName : public Shell {
public:
    std::unique_ptr<Command> start(const std::string &words) override {
        return throwing_gone([&] {
            std::unique_ptr<rshConnection> connection(rshConnection::Create(nullptr, nullptr));
            rshProcess *process =
                connection->CreateProcessA(words.c_str(), nullptr, nullptr, nullptr, nullptr, false);
            return std::make_unique<OurCommand<rshConnection>>(std::move(connection), process);
        });
    }

private:
    // Both sides find it there.
    struct Names : OwnProcess {
        Names() : OwnProcess("names") { setenv("ORVNMSPORT", std::to_string(port()).c_str(), 1); }
    };
    Names m_names;
    OwnProcess m_server{"ours by name"};
};

}  // namespace

void serve_ours() {
    serve_commands(nullptr);
}

void serve_ours_by_name() {
    serve_commands(kel::remote_shell_name(nullptr));
}

void serve_names() {
    std::string error;
    const std::unique_ptr<kel::name_server> server = kel::name_server::create({}, error);
    if (!server) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return;
    }
    announce(server->port());
    server->run(nullptr);
}

void add_ours(Suite &suite) {
    const Library ours = Library::Ours;
    const char *way = "rshProcess";
    const OpenShell open = [] { return std::make_unique<ByPort>(false); };
    add_short(suite, "true", ours, way, open, 100);
    add_short(
        suite, "lookup", ours, "rshConnection", [] { return std::make_unique<ByName>(); }, 100);
    add_short(
        suite, "shell", ours, way, [] { return std::make_unique<ByPort>(true); }, 100);
    add_line(suite, ours, way, open);
    add_bulk(suite, ours, way, open);
    add_crowd(suite, ours, way, open);
    add_memory(suite, ours, way, open);
}

}  // namespace bench
