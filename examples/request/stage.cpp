// Brings all roles together: starts each in a process of its own and prints, line by line, who says what.
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <random>
#include <thread>

#include <kelstdmt/nameserver.h>
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/proclib.h>
#include <kelstdmt/reglib.h>
#include <kelstdmt/syslib.h>
#include <kelstdmt/vumrt.h>

#include "machine.h"
#include "request.h"

namespace {

constexpr std::size_t who_columns = 6;

void Tell(std::string who, const std::string &line) {
    who.resize(std::max(who.size(), who_columns), ' ');
    Say(who + " | " + line);
}
void Tell(const std::string &line) {
    Tell("stage", line);
}

// A program of which every line is told, as it comes.
class Actor {
public:
    Actor(const std::string &who, const std::string &command_line) : m_who(who), m_pipe(ioPipe::Create()) {
        if (!m_pipe) throw std::runtime_error("no pipe");
        m_process.reset(pcProcess::Create(command_line.c_str(), xstrNullStr, nullptr,
                                          kel_pipe_access::WriteStream(*m_pipe), nullptr, 0, 0));
        m_reader = std::thread([this] { Read(); });
    }
    ~Actor() {
        if (!m_reader.joinable()) return;
        m_process->Terminate();
        m_reader.join();
    }
    Actor(const Actor &) = delete;
    Actor &operator=(const Actor &) = delete;

    // Waits until it has said something; false when it ended without a word.
    bool AwaitWord() {
        std::unique_lock held(m_lock);
        m_heard.wait(held, [this] { return m_lines > 0 || m_silent; });
        return m_lines > 0;
    }
    // Waits for the end, and throws when it is another than expected.
    void AwaitEnd(ExitCode expected) {
        m_reader.join();
        const std::unique_ptr<pcEvent> exit(m_process->ExitEvent());
        if (exit) exit->Wait(INFINITE);
        if (const int code = m_process->GetExitCode(); code != expected)
            throw std::runtime_error("the " + m_who + " ended with " + std::to_string(code) + ", not " +
                                     std::to_string(expected));
    }

private:
    void Read() {
        std::string line;
        try {
            for (;;) {
                const auto character = static_cast<char>(kel_pipe_access::ReadStream(*m_pipe)->ReadByte());
                if (character != '\n') {
                    line += character;
                    continue;
                }
                Tell(m_who, line);
                line.clear();
                Hear(1);
            }
        } catch (xthrowable *thrown) {
            const kel::caught end(thrown);
        }
        Hear(0);
    }
    void Hear(int lines) {
        {
            const std::lock_guard held(m_lock);
            m_lines += lines;
            m_silent = lines == 0;
        }
        m_heard.notify_one();
    }

    std::string m_who;
    std::unique_ptr<ioPipe> m_pipe;
    std::unique_ptr<pcProcess> m_process;
    std::mutex m_lock;
    std::condition_variable m_heard;
    int m_lines = 0;
    bool m_silent = false;
    std::thread m_reader;
};

// A registry of the example's own, for all its processes.
class ScratchRegistry {
public:
    ScratchRegistry() {
        std::string name = (std::filesystem::temp_directory_path() / "kelstdmt-request.").string();
        m_folder = name + std::to_string(std::random_device()());
        std::filesystem::create_directory(m_folder);
        sysPutEnv("KELSTDMT_REGISTRY", m_folder.c_str());
    }
    ~ScratchRegistry() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    ScratchRegistry(const ScratchRegistry &) = delete;
    ScratchRegistry &operator=(const ScratchRegistry &) = delete;

    // Which peers from other machines the server lets in.
    void Allow(const char *patterns) const {
        const std::unique_ptr<regRegistry> machine(regRegistry::System());
        std::unique_ptr<regKey> key;
        if (machine->Open())
            key.reset(machine->CreateSubkey((std::string("Software\\ORV\\") + service_name).c_str()));
        if (!key) throw std::runtime_error(std::string("registry: ") + Error_GetText(Error_GetLast()));
        key->SetValue("ConnectionAllowed", patterns);
        Tell(std::string("The registry's ConnectionAllowed of ") + service_name + " is now " + patterns);
    }

private:
    std::string m_folder;
};

// That of this machine or, where none answers, one of our own, whose port all children are told.
std::unique_ptr<kel::name_server> NameServer() {
    const std::string port = std::to_string(kel::name_service_port_of_environment());
    if (std::unique_ptr<nmsServerProxy>(nmsServerProxy::InitLocalProxy())->IsAlive()) {
        Tell("A name server answers on port " + port);
        return nullptr;
    }
    std::string error;
    kel::name_server_options options;
    options.log = [](const std::string &line) { Tell("names", line); };
    std::unique_ptr<kel::name_server> server = kel::name_server::create(options, error);
    if (!server) throw std::runtime_error(error);
    const std::string own_port = std::to_string(server->port());
    sysPutEnv("ORVNMSPORT", own_port.c_str());
    if (!server->start()) throw std::runtime_error("the name server cannot start");
    Tell("No name server answers on port " + port + ": one runs on a thread here, on port " + own_port);
    return server;
}

bool IsRegistered() {
    const std::unique_ptr<nmsServerProxy> names(nmsServerProxy::InitLocalProxy());
    nmsRecord wanted(0);
    wanted.Add(kel::server_name_field, service_name);
    int count = 0;
    const std::unique_ptr<nmsClientStatus> status(names->ImplQuery(wanted, nullptr, &count));
    return !status && count > 0;
}

// Without another machine for the reason given.
ExitCode Play(const std::string &program, const SecondMachine *other, const std::string &reason) {
    const std::string self = '"' + program + "\" ", name = service_name;
    const ScratchRegistry registry;
    const std::unique_ptr<kel::name_server> names = NameServer();

    Tell("A server starts");
    Actor server("server", self + "serve " + name);
    if (!server.AwaitWord()) throw std::runtime_error("the server does not start");

    Tell("A client that knows the name alone");
    Actor("client", self + "ask " + name).AwaitEnd(done);

    registry.Allow("10.0.0.*");
    if (other) {
        const std::string sum = self + "calculate " + name + '@' + SecondMachine::here + " \"2 + 3\"";
        Tell(std::string("A client on a second machine, ") + SecondMachine::there);
        Actor("there", other->Over(sum)).AwaitEnd(refused);
        registry.Allow("10.0.0.* 10.0.1.*");
        Actor("there", other->Over(sum)).AwaitEnd(done);
    } else {
        Tell("There is no second machine: " + reason);
        Tell("So nobody is refused: a client of this machine is let in whatever the list says");
        Actor("client", self + "calculate " + name + " \"2 + 3\"").AwaitEnd(done);
    }

    Tell("A client asks about the server, and ends it");
    Actor("client", self + "end " + name).AwaitEnd(done);
    server.AwaitEnd(done);
    Tell(IsRegistered() ? "The name is still registered" : "The name is registered no more");
    return IsRegistered() ? failed : done;
}

}  // namespace

ExitCode Stage(const std::string &program) {
    const std::string starter = SecondMachine::Starter();
    if (starter.empty())
        return StagePlainly(program, "unshare, nsenter and ip are missing, or the right to make networks");
    const std::unique_ptr<pcProcess> process(
        pcProcess::Create((starter + " \"" + program + "\" --own-network").c_str(), xstrNullStr, nullptr,
                          nullptr, nullptr, 0, 0));
    const std::unique_ptr<pcEvent> exit(process->ExitEvent());
    exit->Wait(INFINITE);
    return static_cast<ExitCode>(process->GetExitCode());
}

ExitCode StagePlainly(const std::string &program, const std::string &reason) {
    return Play(program, nullptr, reason);
}

ExitCode StageInOwnNetwork(const std::string &program) {
    const SecondMachine other;
    Tell(std::string("This is a network of its own, in which this machine is ") + SecondMachine::here);
    return Play(program, &other, "");
}
