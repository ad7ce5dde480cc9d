// kel rsh: a command on another machine as if it ran here.
//
// The library's relay gives the command's channels as pipes; a carrier for each takes them from and to the
// standard channels. So a failing channel is noticed and told, which a relay that drops what it cannot write
// would not, and no reader or writer of one channel holds up another.
#include <csignal>
#include <mutex>

#include <kelstdmt/rshlib.h>
#include <kelstdmt/vumrt_names.h>

#include "channels.h"
#include "command.h"
#include "launch_line.h"
#include "text.h"

namespace tool {

namespace {

// Also what a command may end with, but then nothing is complained of.
constexpr auto not_the_commands = static_cast<ExitCode>(255);

struct Wanted {
    std::string host, user, folder;
    std::vector<std::string> words;
    bool shell = false;

    std::string Command() const {
        if (!shell) return LaunchLine(words);
        std::string text;
        for (const std::string &word : words)
            text += (text.empty() ? "" : " ") + word;
        return text;
    }
    bool IsHere() const { return host == "." || host == "localhost"; }
    std::string Place() const { return IsHere() ? "this machine" : Printable(host); }
};

std::string Reason(const rshXException &error, const Wanted &wanted) {
    const std::string place = wanted.Place();
    switch (error.getError()) {
        case rshNoNameService:
            return "no name server answers on " + place + ", port " +
                   std::to_string(kel::name_service_port_of_environment()) + " (kelnmsd is one)";
        case rshNoDaemon:
            return "no remote-shell server answers on " + place + " (kelrshd is one; there it is called " +
                   Printable(std::string(kel::remote_shell_name(wanted.user.c_str()))) + ")";
        case rshNoPermission:
            return "the remote-shell server on " + place +
                   " refuses this machine, which its setting ConnectionAllowed does not name";
        case rshProtocolMismatch:
            return "what answers on " + place + " is no remote-shell server";
        default:  // the server's text
            return "cannot start the command on " + place + ": " + Printable(std::string(error.getMsg()));
    }
}

class Session {
public:
    explicit Session(const Wanted &wanted) : m_wanted(wanted) {}

    ExitCode Run(const std::string &command) {
        {
            const SignalWatch signals([this](int signal) { OnSignal(signal); });
            Start(command);
            Carry();
        }
        if (m_ended_by) Interruption::Die(m_ended_by);
        if (!m_failure.empty()) throw Failure(m_failure);
        if (m_code == rshProcess::NoExitCode)
            throw Failure("the connection to " + m_wanted.Place() + " was lost");
        if (m_code < 0 || m_code > 255)  // more than a program can tell here
            throw Failure("the command ended with " + std::to_string(m_code));
        return static_cast<ExitCode>(m_code);
    }

private:
    void Start(const std::string &command) {
        const char *host = m_wanted.IsHere() ? nullptr : m_wanted.host.c_str();
        const char *folder = m_wanted.folder.empty() ? nullptr : m_wanted.folder.c_str();
        m_connection.reset(rshConnection::Create(host, m_wanted.user.c_str()));
        m_process.reset(
            m_connection->CreateProcessA(command.c_str(), folder, nullptr, nullptr, nullptr, m_wanted.shell));
        if (!m_process) throw LastErrorFailure("cannot start a relay", m_wanted.Place());
        const std::lock_guard held(m_lock);
        m_runs = true;
    }

    // Until the command has ended and all that it wrote is where it belongs.
    void Carry() {
        const std::unique_ptr<rshEvent> exit(m_process->ExitEvent());
        const auto to = [this](Stream channel, ioStream *from) {
            return std::make_unique<Carrier>(from->GetInheritHandle(), channel,
                                             [this](const std::string &failure) { OnOutputEnd(failure); });
        };
        const auto output = to(Stream::output, m_process->getStdout());
        const auto errors = to(Stream::error, m_process->getStderr());
        {
            const Carrier input(Stream::input, m_process->getStdin()->GetInheritHandle(),
                                [this](const std::string &failure) { OnInputEnd(failure); });
            exit->Wait(INFINITE);
        }
        {
            const std::lock_guard held(m_lock);
            m_runs = false;
        }
        output->AwaitEnd();
        errors->AwaitEnd();
        m_code = m_process->GetExitCode();
    }

    void OnInputEnd(const std::string &failure) {
        const std::lock_guard held(m_lock);
        if (m_failure.empty()) m_failure = failure;
        m_process->getStdin()->Close();
    }
    // Nobody wants more of a command whose output has nowhere to go.
    void OnOutputEnd(const std::string &failure) {
        if (failure.empty()) return;
        const std::lock_guard held(m_lock);
        if (m_failure.empty()) m_failure = failure;
        Control(&rshProcess::Terminate);
    }

    void OnSignal(int signal) {
        const std::lock_guard held(m_lock);
        if (!m_runs || signal == SIGQUIT || m_ended_by) Interruption::Die(signal);
        if (signal == SIGINT && ++m_interrupts > 2) Interruption::Die(signal);
        if (signal != SIGINT) m_ended_by = signal;
        Control(signal == SIGINT && m_interrupts == 1 ? &rshProcess::Interrupt : &rshProcess::Terminate);
    }
    void Control(void (rshProcess::*request)()) {
        try {
            if (m_runs) (m_process.get()->*request)();
        } catch (xthrowable *thrown) {
            const kel::caught ended_meanwhile(thrown);
        }
    }

    const Wanted &m_wanted;
    std::unique_ptr<rshConnection> m_connection;
    std::unique_ptr<rshProcess> m_process;  // gone before its connection
    int m_code = rshProcess::NoExitCode;

    std::mutex m_lock;  // for what follows, and for requests to the process
    bool m_runs = false;
    int m_interrupts = 0, m_ended_by = 0;
    std::string m_failure;
};

ExitCode RunRemotely(const Wanted &wanted) {
    if (wanted.host.empty()) throw Misuse("the host is empty");
    const std::string command = wanted.Command();
    try {
        return Session(wanted).Run(command);
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        const auto *known = error.as<rshXException>();
        Complain(known ? Reason(*known, wanted) : Explained(error));
    } catch (const std::bad_alloc &) {
        Complain("not enough memory");
    } catch (const std::exception &failure) {
        Complain(failure.what());
    }
    return not_the_commands;
}

void MakeCommand(CLI::App &line) {
    Wanted &wanted = WithOptions(line, RunRemotely).options;
    line.add_option("--cwd", wanted.folder, "The folder, over there, that the command runs in")
        ->type_name("FOLDER");
    line.add_flag("--shell", wanted.shell, "Let a shell over there read the command");
    line.add_option("--user", wanted.user, "Ask the server that this user runs, not that of the machine")
        ->type_name("USER");
    AddArgument(line, "HOST", wanted.host, "The other machine; . is this one")->required();
    AddArguments(line, "COMMAND", wanted.words, "The command and its arguments")
        ->option_text("-- COMMAND...");
    line.footer(R"(Standard input, output and error, and the exit code, are the command's. Exit code 255 and a
complaint: kel could not run it, or lost the connection. Ctrl+C interrupts the command, twice ends it.)");
}

const Group group("rsh", "Run a command on another machine", MakeCommand);

}  // namespace

}  // namespace tool
