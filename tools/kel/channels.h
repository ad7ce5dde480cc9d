// The standard channels as they are, without a buffer between, and the signals that people send: what a
// command needs that stands for another one. With terminal.h the only place in kel that knows the operating
// system.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "terminal.h"

namespace tool {

// Those that the caller has closed become ones that hold nothing and take nothing, so that no connection gets
// their number and is read and written by mistake.
void TakeStandardChannels();

// Carries what comes out of one descriptor into another, on a thread of its own, until the end. It holds one
// portion at most; between pipes and files the bytes are not even copied.
class Carrier {
public:
    // On the thread, once: at the end of the source, or with "standard output: No space left on device".
    // What still comes from a pipe after a failure is dropped.
    using AtEnd = std::function<void(const std::string &failure)>;

    // From a standard channel into a pipe. Ends also when nobody reads from the pipe, which is no failure.
    Carrier(Stream from, int to, AtEnd at_end);
    // From a pipe to a standard channel, waiting for whoever reads from that. When that one has gone the
    // program ends, as the system would have it; where the signal is ignored, that is a failure.
    Carrier(int from, Stream to, AtEnd at_end);
    // Ends one that waits for its source, without waiting for anything that may come.
    ~Carrier();
    Carrier(const Carrier &) = delete;
    Carrier &operator=(const Carrier &) = delete;

    void AwaitEnd();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// While it lives, SIGINT, SIGTERM, SIGHUP and SIGQUIT are the callback's, on a thread of its own, and reach
// no thread that is started after it. Those that were ignored stay ignored.
class SignalWatch {
public:
    explicit SignalWatch(std::function<void(int signal)> on_signal);
    ~SignalWatch();
    SignalWatch(const SignalWatch &) = delete;
    SignalWatch &operator=(const SignalWatch &) = delete;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace tool
