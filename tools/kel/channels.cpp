// A carrier waits until its source has something and its destination has room, and lets the system move what
// there is (splice). Where the system cannot do that, which holds for terminals, and where it failed, since
// it does not say on which side, bytes are read and written.
#include "channels.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "descriptor.h"

namespace tool {

namespace {

constexpr std::size_t portion = 1 << 16;

// What makes a waiting thread come back.
class Bell {
public:
    void Ring() const { eventfd_write(m_event.Number(), 1); }
    // False when it has rung; else the descriptor is ready, or broken.
    bool Await(int descriptor, short events) const {
        pollfd awaited[] = {{m_event.Number(), POLLIN, 0}, {descriptor, events, 0}};
        while (poll(awaited, 2, -1) < 0 && (errno == EINTR || errno == EAGAIN)) {
        }
        return awaited[0].revents == 0;
    }

private:
    const Descriptor m_event{eventfd(0, EFD_CLOEXEC), "a thread's bell"};
};

bool IsTemporary(int error) {
    return error == EINTR || error == EAGAIN;
}

const char *NameOf(Stream stream) {
    static constexpr std::array names = {"standard input", "standard output", "standard error"};
    return names[static_cast<std::size_t>(stream)];
}

}  // namespace

void TakeStandardChannels() {
    int taken;
    // One for reading alone: writing to it fails as writing to the closed one would have.
    while ((taken = open("/dev/null", O_RDONLY)) >= 0 && taken <= STDERR_FILENO) {
    }
    if (taken >= 0) close(taken);
}

// Carrier ----------------------------------------------------------------------------------------

struct Carrier::State {
    State(Stream of_channel, int of_from, int of_to, AtEnd of_end)
        : channel(of_channel), from(of_from), to(of_to), at_end(std::move(of_end)) {}

    void Run() {
        if (channel == Stream::input) {
            sigset_t broken_pipe;
            sigemptyset(&broken_pipe);
            sigaddset(&broken_pipe, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &broken_pipe, nullptr);
        }
        while (Step()) {
        }
        at_end(failure);
        while (drops && Drop()) {
        }
    }

    // False at the end, after a failure, and when the bell has rung.
    bool Step() {
        if (!bell.Await(from, POLLIN) || !bell.Await(to, POLLOUT)) return false;
        if (copies) return Copy();
        const ssize_t moved = splice(from, nullptr, to, nullptr, 16 * portion, SPLICE_F_NONBLOCK);
        copies = moved < 0 && !IsTemporary(errno);
        return moved != 0;
    }

    bool Copy() {
        bytes.resize(portion);
        const ssize_t count = read(from, bytes.data(), portion);
        if (count < 0) return IsTemporary(errno) || Fail(channel == Stream::input);
        for (ssize_t done = 0; done < count;) {
            const ssize_t written = write(to, bytes.data() + done, static_cast<std::size_t>(count - done));
            if (written > 0) done += written;
            if (written < 0 && !IsTemporary(errno)) return Fail(channel != Stream::input);
            if (written < 0 && !bell.Await(to, POLLOUT)) return false;
        }
        return count > 0;
    }

    bool Fail(bool of_channel) {
        // A terminal that has gone is the end of what comes from it.
        if (of_channel && !(channel == Stream::input && errno == EIO && IsTerminal(channel)))
            failure = std::string(NameOf(channel)) + ": " + std::strerror(errno);
        drops = channel != Stream::input;
        return false;
    }

    bool Drop() {
        if (!bell.Await(from, POLLIN)) return false;
        const ssize_t count = read(from, bytes.data(), portion);
        return count > 0 || (count < 0 && IsTemporary(errno));
    }

    Stream channel;
    int from, to;
    AtEnd at_end;
    Bell bell;
    bool copies = false, drops = false;
    std::vector<char> bytes;
    std::string failure;
    std::thread thread;
};

Carrier::Carrier(Stream from, int to, AtEnd at_end)
    : m_state(std::make_unique<State>(from, static_cast<int>(from), to, std::move(at_end))) {
    fcntl(to, F_SETFL, fcntl(to, F_GETFL) | O_NONBLOCK);  // the pipe's end is ours alone
    m_state->thread = std::thread(&State::Run, m_state.get());
}

Carrier::Carrier(int from, Stream to, AtEnd at_end)
    : m_state(std::make_unique<State>(to, from, static_cast<int>(to), std::move(at_end))) {
    m_state->thread = std::thread(&State::Run, m_state.get());
}

Carrier::~Carrier() {
    m_state->bell.Ring();
    AwaitEnd();
}

void Carrier::AwaitEnd() {
    if (m_state->thread.joinable()) m_state->thread.join();
}

// SignalWatch ------------------------------------------------------------------------------------

namespace {

sigset_t AskingSignals() {
    sigset_t asking;
    sigemptyset(&asking);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction now {};
        sigaction(signal, nullptr, &now);
        // What nohup and the shell's background jobs ignore stays ignored.
        if (now.sa_handler != SIG_IGN) sigaddset(&asking, signal);
    }
    return asking;
}

}  // namespace

struct SignalWatch::State {
    void Run() const {
        signalfd_siginfo info;
        while (bell.Await(signals.Number(), POLLIN) &&
               read(signals.Number(), &info, sizeof info) == sizeof info)
            on_signal(static_cast<int>(info.ssi_signo));
    }

    std::function<void(int)> on_signal;
    sigset_t asking = AskingSignals(), former{};
    const Descriptor signals{signalfd(-1, &asking, SFD_CLOEXEC), "signals"};
    Bell bell;
    std::thread thread;
};

SignalWatch::SignalWatch(std::function<void(int)> on_signal) : m_state(std::make_unique<State>()) {
    m_state->on_signal = std::move(on_signal);
    pthread_sigmask(SIG_BLOCK, &m_state->asking, &m_state->former);
    m_state->thread = std::thread(&State::Run, m_state.get());
}

SignalWatch::~SignalWatch() {
    m_state->bell.Ring();
    m_state->thread.join();
    pthread_sigmask(SIG_SETMASK, &m_state->former, nullptr);
}

}  // namespace tool
