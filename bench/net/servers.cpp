#include "servers.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

extern char **environ;

namespace bench {
namespace {

constexpr Serve servers[] = {
    ours_server, ours_loop,    ours_threads, ours_names, ours_names_journal, floor_loop, floor_threads,
#ifdef KELSTDMT_PEER_GIO
    glib_loop,   glib_threads,
#endif
#ifdef KELSTDMT_PEER_QT_NETWORK
    qt_loop,     qt_threads,
#endif
#ifdef KELSTDMT_PEER_POCO_NET
    poco_loop,   poco_threads,
#endif
#ifdef KELSTDMT_PEER_ASIO
    asio_loop,   asio_threads,
#endif
};
constexpr int server_count = sizeof servers / sizeof *servers;

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(2);
}

void end(int id) {
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
}

int start(const char *const *words, int out) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (out >= 0) posix_spawn_file_actions_adddup2(&actions, out, 1);
    pid_t id = -1;
    const int failed = posix_spawnp(&id, words[0], &actions, nullptr, const_cast<char **>(words), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? -1 : id;
}

}  // namespace

bool await(const std::function<bool()> &condition) {
    for (int i = 0; i < 2'000; ++i) {
        if (condition()) return true;
        usleep(5'000);
    }
    return false;
}

void announce(int port) {
    std::printf("%d\n", port);
    std::fflush(stdout);
}

bool serve(const char *word) {
    int server, work, parent;
    if (std::sscanf(word, "--serve=%d,%d,%d", &server, &work, &parent) != 3) return false;
    if (server < 0 || server >= server_count) return false;
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // with the parent gone, this goes too
    if (getppid() != parent) return true;
    servers[server](static_cast<Work>(work));
    return true;
}

// ServerProcess --------------------------------------------------------------------------------------

ServerProcess::ServerProcess(Serve served, Work work) {
    int index = 0;
    while (index < server_count && servers[index] != served)
        ++index;
    char word[64];
    std::snprintf(word, sizeof word, "--serve=%d,%d,%d", index, static_cast<int>(work), getpid());
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) give_up("pipe");
    const char *const words[] = {"/proc/self/exe", word, nullptr};
    m_id = start(words, ends[1]);
    if (m_id < 0) give_up("a server");
    close(ends[1]);
    std::unique_ptr<FILE, int (*)(FILE *)> told(fdopen(ends[0], "r"), std::fclose);
    if (std::fscanf(told.get(), "%d", &m_port) != 1) {
        std::fprintf(stderr, "a server did not start: %s\n", word);
        std::exit(2);
    }
}

ServerProcess::~ServerProcess() {
    end(m_id);
}

std::size_t ServerProcess::resident_bytes() const {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/statm", m_id);
    std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path, "r"), std::fclose);
    std::size_t size = 0, resident = 0;
    if (!file || std::fscanf(file.get(), "%zu %zu", &size, &resident) != 2) give_up(path);
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// OtherProcess ---------------------------------------------------------------------------------------

OtherProcess::OtherProcess(const std::string &shell_words) {
    const std::string command = "exec " + shell_words;
    const char *const words[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    m_id = start(words, -1);
}

OtherProcess::~OtherProcess() {
    if (m_id > 0) end(m_id);
}

bool OtherProcess::is_running() const {
    siginfo_t ended = {};
    return m_id > 0 && waitid(P_PID, static_cast<id_t>(m_id), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == 0;
}

}  // namespace bench
