// What a server waits for, in one wait: its listening socket, the peers that have not said anything yet, and
// the ends of asynchronous requests.
//
// A peer that is awaited costs an event and a place in the list, whose order is that of their arrival. Most
// need not be: while the server runs, the system hands a connection on when its peer has spoken, or after a
// second.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "netlibsrc/deadline.h"
#include "netlibsrc/server_request.h"

struct netBaseServer::loop {
public:
    // Knows what follows when it is signalled. Leaves the set when it is destroyed.
    class event : public btkEvent {
    public:
        event(loop &owner, btkBaseEvent *owned) noexcept : btkEvent(owned), m_loop(owner) {}
        ~event() override { m_loop.m_set.Remove(this); }
        virtual void Signalled() = 0;

    protected:
        loop &m_loop;
    };

    loop(netBaseServer &server, bool awaits_input);
    ~loop();
    loop(const loop &) = delete;
    loop &operator=(const loop &) = delete;

    // Ends the loop when it is signalled; null for none. No descriptor for it: netXException.
    class watched_stop {
    public:
        watched_stop(loop &owner, btkEvent *stop);
        ~watched_stop();
        watched_stop(const watched_stop &) = delete;
        watched_stop &operator=(const watched_stop &) = delete;

    private:
        loop &m_loop;
    };
    bool IsStopped() const noexcept { return m_is_stopped; }
    bool AwaitsInput() const noexcept { return m_awaits_input; }

    // The next connection that is to be served; null when the time is over, the loop is stopped, or requests
    // have ended before.
    std::unique_ptr<btkStreamSocket> Next(const kel::detail::deadline &until);
    // A connection that was accepted already, if its peer has said something or not.
    std::unique_ptr<btkStreamSocket> TakeAccepted();
    bool HasAccepted() const noexcept { return !m_ready.empty() || !m_silent.empty(); }

    void Spawn(std::unique_ptr<netSocketStream> stream);
    std::unique_ptr<btkEvent> Watch(netAsyncRequest &request);
    // netServerTerminate when one of those that have ended says so.
    netServerLoopAction CollectEnded();

    void DropConnections() noexcept;
    void StopRequests() noexcept;

private:
    class listener;
    class silent_peer;
    class request_end;

    using peers = std::list<silent_peer>;

    void Wait(const kel::detail::deadline &until);
    btkTimeval Limit(const kel::detail::deadline &until) const noexcept;
    void PauseListening();
    std::unique_ptr<btkStreamSocket> Accept();
    void Refused(int error);
    bool MakeRoom() noexcept;
    void Await(std::unique_ptr<btkStreamSocket> socket);
    void LookForUnwatched();

    static constexpr int batch = 64;
    static constexpr std::size_t most_silent = 1024;
    static constexpr double pause = 0.1;  // seconds

    netBaseServer &m_server;
    bool m_awaits_input;
    btkEventSet m_set;
    btkEvent *m_stop = nullptr;
    bool m_is_stopped = false;
    std::unique_ptr<listener> m_listener;
    bool m_listening = false;              // the listening socket is in the set
    bool m_connections = false;            // it has some, as far as is known
    kel::detail::deadline m_pause_end{0};  // while it is not
    peers m_silent, m_ready;

    std::list<netAsyncRequest> m_requests;                // in the order in which they were started
    std::vector<netAsyncRequest *> m_ended, m_unwatched;  // the latter found no place in the set
    std::uint64_t m_started = 0;
};
