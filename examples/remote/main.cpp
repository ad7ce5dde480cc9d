// remote: commands on another host, with their input, output, exit code and failures, from C++. The other
// host is this process as well, which changes nothing for the client.
#include <filesystem>
#include <iostream>
#include <random>

#include "host.h"

namespace {

constexpr const char *usage = R"(Usage: remote [KEL]

Runs a name server and a remote-shell server, and commands on them as a client. With the path of the program
kel, its `kel rsh` runs one at last.
)";

void Tell(const std::string &who, const std::string &line) {
    std::cout << (who + "       ").substr(0, 7) << "| " << line << std::endl;
}

// A command that runs on the host that the connection leads to. One connection carries one command.
class Command {
public:
    explicit Command(const std::string &text, const char *folder = nullptr, bool use_shell = false)
        : m_connection(rshConnection::Create(nullptr, nullptr)) {
        Tell("client", (use_shell ? "runs in a shell: " : "runs: ") + text);
        m_process.reset(
            m_connection->CreateProcessA(text.c_str(), folder, nullptr, nullptr, nullptr, use_shell));
        if (!m_process) throw std::runtime_error("no thread for the command's relay");
    }

    void Send(const std::string &text) {
        Tell("client", "sends " + std::to_string(text.size()) + " bytes, which is all of the input");
        ioStream &input = *m_process->getStdin();
        input.WriteBytes(text.data(), static_cast<unsigned>(text.size()));
        input.Close();
    }
    // Waits for a line; false at the end.
    bool TellLine(const std::string &who, ioStream &from) {
        std::string line;
        try {
            for (int byte; (byte = from.ReadByte()) != '\n';)
                line += static_cast<char>(byte);
        } catch (xthrowable *thrown) {
            const kel::caught end(thrown);
            return false;
        }
        Tell(who, line);
        return true;
    }
    bool TellOutput() { return TellLine("output", *m_process->getStdout()); }
    void Interrupt() {
        Tell("client", "interrupts it");
        m_process->Interrupt();
    }
    void AwaitEnd() {
        while (TellOutput()) {
        }
        while (TellLine("error", *m_process->getStderr())) {
        }
        Tell("client", "its exit code is " + std::to_string(m_process->WaitExitCode()));
    }

private:
    std::unique_ptr<rshConnection> m_connection;
    std::unique_ptr<rshProcess> m_process;  // goes before its connection
};

// A command that the host does not start.
void Fail(const std::string &text) {
    try {
        Command(text).AwaitEnd();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        const auto *failure = error.as<rshXException>();
        if (!failure) error.rethrow();
        Tell("client", "it did not start: " + std::string(failure->getMsg()));
    }
}

void Play(Host &host, const char *kel) {
    const auto tell_journal = [&] { Tell("host", host.GetJournal().Await()); };
    {
        Command sort("sort -r");
        sort.Send("apple\npear\nplum\n");
        sort.AwaitEnd();
        tell_journal();
    }
    {
        Command script(R"--(echo "in $(basename "$PWD")"; echo "trouble" >&2; exit 3)--", "work", true);
        script.AwaitEnd();
        tell_journal();
    }
    {
        Command patient(R"(trap 'echo "tidied up"; exit 7' INT; echo ready; while :; do sleep 1; done)",
                        nullptr, true);
        patient.TellOutput();
        patient.Interrupt();
        patient.AwaitEnd();
        tell_journal();
    }
    for (const char *command : {"no-such-program --help", "shutdown now"}) {
        Fail(command);
        tell_journal();
    }
    {
        Command endless("sleep 600");
        Tell("client", "gives it up");
    }
    tell_journal();
    if (kel) {
        Tell("shell", "kel rsh . -- echo the same 'from  a shell'");
        const std::string line = std::string("\"") + kel + "\" rsh . -- echo the same \"from  a shell\"";
        std::cout << "output | " << std::flush;
        sysOSCall(line.c_str());
        tell_journal();
    }
}

// Where the commands run.
class Scratch {
public:
    Scratch()
        : m_folder(std::filesystem::temp_directory_path() /
                   ("kelstdmt-remote." + std::to_string(std::random_device()()))) {
        std::filesystem::create_directories(m_folder / "work");
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    std::string Path() const { return m_folder.string(); }

private:
    std::filesystem::path m_folder;
};

}  // namespace

int main(int count, char **arguments) {
    const char *kel = count == 2 ? arguments[1] : nullptr;
    if (count > 2 || (kel && kel[0] == '-')) {
        std::cerr << usage;
        return 2;
    }
    try {
        const Scratch scratch;
        sysPutEnv("SHELL", "/bin/sh");  // the one that the host's commands are read by
        Host host(scratch.Path());
        Tell("host", "serves commands under the name " + std::string(kel::remote_shell_name(nullptr)));
        Play(host, kel);
        return 0;
    } catch (...) {
        std::cerr << "remote: " << kel::take_text() << std::endl;
        return 1;
    }
}
