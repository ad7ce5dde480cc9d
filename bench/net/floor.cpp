// Plain system calls: what no library can be faster than, on this machine.
#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <thread>

#include "work.h"

extern char **environ;

namespace bench {
namespace {

struct Peer {
    int descriptor;
    bool read(char *bytes, std::size_t count) { return read_plainly(descriptor, bytes, count); }
    void write(const char *bytes, std::size_t count) { write_plainly(descriptor, bytes, count); }
};

int launch(const char *const *words, int out) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (out >= 0) posix_spawn_file_actions_adddup2(&actions, out, 1);
    pid_t id = 0;
    const int failed = posix_spawn(&id, words[0], &actions, nullptr, const_cast<char **>(words), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed ? -1 : id;
}

int run_program() {
    const char *const words[] = {launched, nullptr};
    int code = -1;
    waitpid(launch(words, -1), &code, 0);
    return code;
}

std::string read_program() {
    const char *const words[] = {speaker, spoken, nullptr};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return {};
    const int id = launch(words, ends[1]);
    close(ends[1]);
    std::string text;
    char bytes[4'096];
    for (ssize_t came; (came = read(ends[0], bytes, sizeof bytes)) > 0;)
        text.append(bytes, static_cast<std::size_t>(came));
    close(ends[0]);
    waitpid(id, nullptr, 0);
    return text;
}

}  // namespace

void floor_loop(Work work) {
    int port;
    const int listener = listen_plainly(port), set = epoll_create1(EPOLL_CLOEXEC);
    std::map<int, Session> sessions;
    auto watch = [&](int descriptor) {
        epoll_event event = {EPOLLIN, {}};
        event.data.fd = descriptor;
        epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event);
    };
    watch(listener);
    announce(port);
    for (;;) {
        epoll_event ready[64];
        const int count = epoll_wait(set, ready, 64, -1);
        for (int i = 0; i < count; ++i) {
            const int descriptor = ready[i].data.fd;
            if (descriptor == listener) {
                watch(accept_plainly(listener));
                continue;
            }
            char bytes[256];
            const ssize_t came = recv(descriptor, bytes, sizeof bytes, 0);
            Session &session = sessions[descriptor];
            if (came > 0) {
                session.answer(bytes, static_cast<std::size_t>(came));
                write_plainly(descriptor, bytes, static_cast<std::size_t>(came));
            }
            if (came > 0 && !session.is_over(work)) continue;
            sessions.erase(descriptor);
            close(descriptor);
        }
    }
}

void floor_threads(Work work) {
    int port;
    const int listener = listen_plainly(port);
    announce(port);
    for (;;) {
        const int descriptor = accept_plainly(listener);
        if (descriptor < 0) continue;
        std::thread([descriptor, work] {
            Peer peer{descriptor};
            serve_connection(work, peer);
            close(descriptor);
        }).detach();
    }
}

void add_floor(Suite &suite) {
    const Library floor = Library::Floor;
    add_connect<PlainClient>(suite, floor, "epoll", floor_loop);
    add_exchange<PlainClient>(suite, floor, "send, recv", floor_threads);
    add_crowd(suite, floor, "epoll", floor_loop);
    add_open(suite, floor, "epoll", floor_loop);
    add_requests(suite, floor, "std::thread", floor_threads);
    add_bulk<PlainClient>(suite, floor, "send, recv", floor_threads);
    add_launch(suite, floor, "posix_spawn", run_program);
    add_output(suite, floor, "posix_spawn", read_program);
}

}  // namespace bench
