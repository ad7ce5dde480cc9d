// OpenSSH on the loopback address: a server of our own with its own keys, and one client process for each
// command. Both with the cipher and the key exchange that take least.
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "spawn.h"

namespace bench {
namespace {

constexpr const char *daemon = "/usr/sbin/sshd", *client = "/usr/bin/ssh", *key_maker = "/usr/bin/ssh-keygen",
                     *folder_variable = "KELSTDMT_BENCH_SSH";

std::string folder() {
    const char *name = std::getenv(folder_variable);
    return name ? name : "";
}

// The server -----------------------------------------------------------------------------------------

std::string text_of(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_text(const std::string &path, const std::string &text) {
    std::ofstream(path) << text;
}

void make_key(const std::string &path) {
    SpawnedCommand maker({key_maker, "-q", "-t", "ed25519", "-N", "", "-C", "", "-f", path});
    if (maker.await() != 0) throw Gone();
}

void prepare(int port) {
    const std::string place = folder() + "/", where = std::to_string(port);
    make_key(place + "host");
    make_key(place + "user");
    std::filesystem::copy_file(place + "user.pub", place + "authorized");
    write_text(place + "known", "[127.0.0.1]:" + where + " " + text_of(place + "host.pub"));
    write_text(place + "sshd", "ListenAddress 127.0.0.1:" + where + "\nHostKey " + place +
                                   "host\nAuthorizedKeysFile " + place + "authorized\nPidFile none\n" +
                                   "Ciphers aes128-gcm@openssh.com\nKexAlgorithms curve25519-sha256\n"
                                   "StrictModes no\nUsePAM no\nPasswordAuthentication no\nPermitUserRC no\n"
                                   "KbdInteractiveAuthentication no\nPermitRootLogin yes\nUseDNS no\n"
                                   "PrintMotd no\nLogLevel FATAL\nMaxStartups 1000\nMaxSessions 1000\n" +
                                   // Whatever the user's shell reads at its start is not what is measured.
                                   "SetEnv HOME=" + place + "\n");
    // The server wants this folder when it runs as root; the system's own makes it at boot.
    if (geteuid() == 0) mkdir("/run/sshd", 0755);
}

bool answers(int port) {
    try {
        close(connect_plainly(port));
        return true;
    } catch (const Gone &) {
        return false;
    }
}

// Each connection of a server has a process in a session of its own: those that are left become this one's
// children, as do theirs.
void kill_children() {
    for (bool any = true; any;) {
        any = false;
        std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
        for (pid_t id; children >> id; any = true) {
            kill(id, SIGKILL);
            waitpid(id, nullptr, 0);
        }
    }
}

// The client -----------------------------------------------------------------------------------------

class Openssh : public Shell {
public:
    explicit Openssh(bool keep) : m_server(start_server()) {
        if (m_server->port() == 0) throw std::runtime_error("cannot: no start");
        m_words = {
            client, "-F", "none", "-T", "-p", std::to_string(m_server->port()), "-i", folder() + "/user"};
        const std::string known = "UserKnownHostsFile=" + folder() + "/known",
                          control = keep ? "ControlPath=" + folder() + "/control" : "ControlPath=none";
        for (const std::string &option :
             {known, control, std::string("GlobalKnownHostsFile=/dev/null"), std::string("BatchMode=yes"),
              std::string("IdentitiesOnly=yes"), std::string("IdentityAgent=none"),
              std::string("StrictHostKeyChecking=yes"), std::string("PreferredAuthentications=publickey"),
              std::string("LogLevel=ERROR")})
            m_words.insert(m_words.end(), {"-o", option});
        if (keep) keep_connection();
        if (SpawnedCommand(words_of("true")).await() != 0) throw std::runtime_error("cannot: refused");
    }
    std::unique_ptr<Command> start(const std::string &words) override {
        return std::make_unique<SpawnedCommand>(words_of(words));
    }
    pid_t server() const override { return m_server->id(); }

private:
    static std::unique_ptr<OwnProcess> start_server() {
        for (const char *program : {daemon, client, key_maker})
            if (access(program, X_OK) != 0) throw std::runtime_error("cannot: not there");
        std::string pattern = std::filesystem::temp_directory_path() / "kelstdmt-bench-XXXXXX";
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder for keys");
        setenv(folder_variable, pattern.c_str(), 1);
        return std::make_unique<OwnProcess>("sshd");
    }
    std::vector<std::string> words_of(const std::string &words) const {
        std::vector<std::string> all = m_words;
        all.insert(all.end(), {"127.0.0.1", words});
        return all;
    }
    void keep_connection() {
        std::string words;
        for (const std::string &word : m_words)
            words += word + " ";
        m_kept = std::make_unique<OtherProcess>(words + "-M -N 127.0.0.1");
        const std::string path = folder() + "/control";
        if (!await([&] { return access(path.c_str(), F_OK) == 0 || !m_kept->is_running(); }) ||
            !m_kept->is_running())
            throw std::runtime_error("cannot: refused");
    }

    std::unique_ptr<OwnProcess> m_server;
    std::unique_ptr<OtherProcess> m_kept;
    std::vector<std::string> m_words;
};

int stop_request = -1;
void request_stop(int) {
    const char byte = 0;
    [[maybe_unused]] const ssize_t told = write(stop_request, &byte, 1);
}

}  // namespace

// Besides the server it keeps the folder of keys, which goes with it, also after Ctrl+C, which does not reach
// it itself.
void keep_sshd() {
    setsid();
    const Pipe stop = make_pipe();
    stop_request = stop.write.number;
    std::signal(SIGTERM, request_stop);
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    try {
        int port;
        close(listen_plainly(port));
        prepare(port);
        const OtherProcess server(std::string(daemon) + " -D -e -f " + folder() + "/sshd");
        const bool there =
            await([&] { return answers(port) || !server.is_running(); }) && server.is_running();
        announce(there ? port : 0);
        char byte;
        read_all(stop.read.number, &byte, 1);
    } catch (const Gone &) {
        announce(0);
    }
    kill_children();
    std::error_code ignored;
    std::filesystem::remove_all(folder(), ignored);
}

void add_openssh(Suite &suite) {
    const OpenShell fresh = [] { return std::make_unique<Openssh>(false); },
                    kept = [] { return std::make_unique<Openssh>(true); };
    add_short(suite, "true", Library::Openssh, "ssh", fresh, 10);
    add_short(suite, "shell", Library::Openssh, "ssh", fresh, 10);
    add_line(suite, Library::Openssh, "ssh", fresh);
    add_bulk(suite, Library::Openssh, "ssh", fresh);
    add_crowd(suite, Library::Openssh, "ssh", fresh);
    add_memory(suite, Library::Openssh, "ssh", fresh);
    add_short(suite, "true", Library::OpensshKept, "ssh, ControlMaster", kept, 30);
    add_short(suite, "shell", Library::OpensshKept, "ssh, ControlMaster", kept, 30);
    add_crowd(suite, Library::OpensshKept, "ssh, ControlMaster", kept);
}

}  // namespace bench
