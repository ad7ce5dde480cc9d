#include "spawn.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

extern char **environ;

namespace bench {

void Descriptor::close() {
    if (number >= 0) ::close(number);
    number = -1;
}

Pipe make_pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw Gone();
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

void write_all(int descriptor, const char *bytes, std::size_t count) {
    while (count) {
        const ssize_t gone = ::write(descriptor, bytes, count);
        if (gone < 0 && errno == EINTR) continue;
        if (gone <= 0) throw Gone();
        bytes += gone;
        count -= static_cast<std::size_t>(gone);
    }
}

std::size_t read_all(int descriptor, char *bytes, std::size_t count) {
    std::size_t got = 0;
    while (got < count) {
        const ssize_t came = ::read(descriptor, bytes + got, count - got);
        if (came < 0 && errno == EINTR) continue;
        if (came < 0) throw Gone();
        if (came == 0) break;
        got += static_cast<std::size_t>(came);
    }
    return got;
}

int code_of(pid_t process) {
    int status = -1;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> split(const std::string &words) {
    std::istringstream text(words);
    std::vector<std::string> all;
    for (std::string word; text >> word;)
        all.push_back(word);
    return all;
}

SpawnedCommand::SpawnedCommand(const std::vector<std::string> &words)
    : m_in(make_pipe()), m_out(make_pipe()) {
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, m_in.read.number, 0);
    posix_spawn_file_actions_adddup2(&actions, m_out.write.number, 1);
    // This program ignores SIGPIPE; the command does not.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int failed = posix_spawnp(&m_id, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) throw Gone();
    m_in.read.close();
    m_out.write.close();
}

SpawnedCommand::~SpawnedCommand() {
    m_in.write.close();
    m_out.read.close();
    if (m_id > 0) code_of(m_id);
}

int SpawnedCommand::await() {
    const int code = code_of(m_id);
    m_id = -1;
    return code;
}

}  // namespace bench
