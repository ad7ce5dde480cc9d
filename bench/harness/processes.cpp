#include "processes.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

extern char **environ;

namespace bench {
namespace {

constexpr std::string_view own = "--serve=", other = "--run=";

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(2);
}

// This program with one argument: what it is to be, by whom it was started, and the words.
pid_t start(std::string_view kind, const std::string &words, int out) {
    const std::string argument = std::string(kind) + std::to_string(getpid()) + "," + words;
    const char *const arguments[] = {"/proc/self/exe", argument.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (out >= 0) posix_spawn_file_actions_adddup2(&actions, out, 1);
    pid_t id = -1;
    const int failed =
        posix_spawn(&id, arguments[0], &actions, nullptr, const_cast<char **>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? -1 : id;
}

// The words of an argument of that kind, or null. From now on this process goes with its parent.
const char *words_of(const char *argument, std::string_view kind, int last_signal) {
    if (!std::string_view(argument).starts_with(kind)) return nullptr;
    char *words;
    const long parent = std::strtol(argument + kind.size(), &words, 10);
    if (*words != ',') return nullptr;
    prctl(PR_SET_PDEATHSIG, last_signal);
    if (getppid() != parent) std::exit(0);
    return words + 1;
}

}  // namespace

bool await(const std::function<bool()> &condition) {
    for (int i = 0; i < 2'000; ++i) {
        if (condition()) return true;
        usleep(5'000);
    }
    return false;
}

void announce(int number) {
    std::printf("%d\n", number);
    std::fflush(stdout);
}

bool serve(const char *argument, const std::function<bool(std::string_view)> &work) {
    if (const char *words = words_of(argument, other, SIGKILL)) {
        const std::string command = std::string("exec ") + words;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        give_up("/bin/sh");
    }
    const char *word = words_of(argument, own, SIGTERM);
    return word && work(word);
}

// OwnProcess -----------------------------------------------------------------------------------------

OwnProcess::OwnProcess(const std::string &word) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) give_up("pipe");
    m_id = start(own, word, ends[1]);
    if (m_id < 0) give_up("a server");
    close(ends[1]);
    std::unique_ptr<FILE, int (*)(FILE *)> told(fdopen(ends[0], "r"), std::fclose);
    if (std::fscanf(told.get(), "%d", &m_announced) != 1) {
        std::fprintf(stderr, "a server did not start: %s\n", word.c_str());
        std::exit(2);
    }
}

OwnProcess::~OwnProcess() {
    kill(m_id, SIGTERM);
    if (await([this] { return waitpid(m_id, nullptr, WNOHANG) != 0; })) return;
    kill(m_id, SIGKILL);
    waitpid(m_id, nullptr, 0);
}

std::size_t OwnProcess::resident_bytes() const {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/statm", m_id);
    std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path, "r"), std::fclose);
    std::size_t size = 0, resident = 0;
    if (!file || std::fscanf(file.get(), "%zu %zu", &size, &resident) != 2) give_up(path);
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// OtherProcess ---------------------------------------------------------------------------------------

OtherProcess::OtherProcess(const std::string &shell_words) : m_id(start(other, shell_words, -1)) {}

OtherProcess::~OtherProcess() {
    if (m_id <= 0) return;
    kill(m_id, SIGKILL);
    waitpid(m_id, nullptr, 0);
}

bool OtherProcess::is_running() const {
    siginfo_t ended = {};
    return m_id > 0 && waitid(P_PID, static_cast<id_t>(m_id), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

}  // namespace bench
