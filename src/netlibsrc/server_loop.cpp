#include "netlibsrc/server_loop.h"

#include <algorithm>
#include <iostream>

#include "runtime/trace.h"

using kel::detail::deadline;
using kel::system::trace, kel::system::trace_area;

namespace {

constexpr btkTimeval at_once(0, 0);
enum failure : int { no_descriptors = 4, bad_handle = 6, no_memory = 8, bad_argument = 87 };

}  // namespace

// Events ---------------------------------------------------------------------------------------

class netBaseServer::loop::listener : public event {
public:
    explicit listener(loop &owner)
        : event(owner, new btkSelectEvent(owner.m_server.m_socket->GetHandle(), 0)) {}
    void Signalled() override { m_loop.m_connections = true; }
};

// A peer that has said nothing yet, or (in the other list) whose first words have not been read.
class netBaseServer::loop::silent_peer : public event {
public:
    silent_peer(loop &owner, std::unique_ptr<btkStreamSocket> connection)
        : event(owner, new btkSelectEvent(connection->GetHandle(), 0)),
          until(owner.m_server.m_patience),
          socket(std::move(connection)) {}
    // While the descriptor is still this connection's.
    ~silent_peer() override { m_loop.m_set.Remove(this); }
    void Signalled() override {
        m_loop.m_set.Remove(this);
        m_loop.m_ready.splice(m_loop.m_ready.end(), m_loop.m_silent, place);
    }

    const deadline until;
    std::unique_ptr<btkStreamSocket> socket;
    peers::iterator place;
};

class netBaseServer::loop::request_end : public event {
public:
    request_end(loop &owner, netAsyncRequest &request)
        : event(owner, request.GetExitEvent()), m_request(request) {}
    void Signalled() override {
        m_loop.m_set.Remove(this);
        m_loop.m_ended.push_back(&m_request);
    }

private:
    netAsyncRequest &m_request;
};

// Waiting --------------------------------------------------------------------------------------

netBaseServer::loop::loop(netBaseServer &server, bool awaits_input)
    : m_server(server), m_awaits_input(awaits_input), m_listener(std::make_unique<listener>(*this)) {}

netBaseServer::loop::~loop() = default;

netBaseServer::loop::watched_stop::watched_stop(loop &owner, btkEvent *stop) : m_loop(owner) {
    if (stop && !owner.m_set.Add(stop)) netXException::Throw(netSocketError, "Socket failed");
    owner.m_stop = stop;
    owner.m_is_stopped = false;
}

netBaseServer::loop::watched_stop::~watched_stop() {
    if (m_loop.m_stop) m_loop.m_set.Remove(m_loop.m_stop);
    m_loop.m_stop = nullptr;
}

btkTimeval netBaseServer::loop::Limit(const deadline &until) const noexcept {
    if (m_connections || !m_ready.empty()) return at_once;
    btkTimeval limit = until.left();
    if (!m_silent.empty()) limit = std::min(limit, m_silent.front().until.left());
    if (!m_listening) limit = std::min(limit, m_pause_end.left());
    if (!m_unwatched.empty()) limit = std::min(limit, kel::detail::timeout_of(pause));
    return limit;
}

void netBaseServer::loop::Wait(const deadline &until) {
    if (!m_listening && m_pause_end.is_over() && !(m_listening = m_set.Add(m_listener.get())))
        PauseListening();
    btkEvent *signalled[batch];
    const int count = m_set.Wait(Limit(until), signalled, batch);
    if (count < 0) netXException::Throw(netSocketError, "Socket failed");
    for (int at = 0; at < count; ++at)
        if (signalled[at] == m_stop)
            m_is_stopped = true;
        else
            static_cast<event *>(signalled[at])->Signalled();
    while (!m_silent.empty() && m_silent.front().until.is_over()) {
        trace(trace_area::server, "connection ", m_silent.front().socket->GetHandle(),
              " is dropped: it has said nothing in time");
        m_silent.pop_front();
    }
    LookForUnwatched();
}

std::unique_ptr<btkStreamSocket> netBaseServer::loop::Next(const deadline &until) {
    // With every connection, so that a flood of them does not keep the ends of requests from being seen.
    if (m_ready.empty() || !m_requests.empty()) Wait(until);
    while (m_ready.empty()) {
        if (m_connections)
            if (auto socket = Accept()) return socket;
        if (m_is_stopped || !m_ended.empty() || until.is_over()) return nullptr;
        Wait(until);
    }
    return TakeAccepted();
}

// Connections ----------------------------------------------------------------------------------

std::unique_ptr<btkStreamSocket> netBaseServer::loop::TakeAccepted() {
    peers &from = m_ready.empty() ? m_silent : m_ready;
    if (from.empty()) return nullptr;
    // The event leaves the set before the socket may be closed.
    m_set.Remove(&from.front());
    auto socket = std::move(from.front().socket);
    from.pop_front();
    return socket;
}

// Null also for a peer that has to be awaited. Whether there are more connections is left to the next wait,
// since accepting in vain takes longer than that.
std::unique_ptr<btkStreamSocket> netBaseServer::loop::Accept() {
    m_connections = false;
    auto socket = std::make_unique<btkStreamSocket>();
    if (!m_server.m_socket->Accept(*socket)) {
        Refused(Error_GetLast());
        return nullptr;
    }
    trace(trace_area::server, "connection ", socket->GetHandle(), " from ",
          [&] { return socket->GetPeerAddrStr(); });
    if (!m_awaits_input || socket->Wait(at_once, btkSocket::ForInput) >= 0) return socket;
    Await(std::move(socket));
    return nullptr;
}

// A connection that was cut before it was accepted is passed over, and so is what has another reason.
void netBaseServer::loop::Refused(int error) {
    trace(trace_area::server, "nothing accepted: error ", error);
    switch (error) {
        case no_descriptors:
        case no_memory:
            if (!MakeRoom()) PauseListening();
            break;
        case bad_handle:
        case bad_argument:
            netXException::Throw(netSocketError, "Socket failed");
        default:
            break;
    }
}

// Those who have said nothing yet make room for those who may, the first ones first. A part of them at once:
// beside its connection a request needs descriptors for a thread and for the permission lists.
bool netBaseServer::loop::MakeRoom() noexcept {
    if (m_silent.empty()) return false;
    constexpr std::size_t parts = 8;
    const std::size_t dropped = 1 + m_silent.size() / parts;
    trace(trace_area::server, "no descriptors: ", dropped, " of ", m_silent.size(),
          " silent connections are dropped");
    for (std::size_t count = dropped; count > 0; --count)
        m_silent.pop_front();
    return true;
}

// The system keeps the connections meanwhile.
void netBaseServer::loop::PauseListening() {
    trace(trace_area::server, "no descriptors: connections stay in the queue for a while");
    m_set.Remove(m_listener.get());
    m_listening = m_connections = false;
    m_pause_end = deadline(pause);
}

void netBaseServer::loop::Await(std::unique_ptr<btkStreamSocket> socket) {
    if (m_silent.size() >= most_silent) {
        trace(trace_area::server, "connection ", m_silent.front().socket->GetHandle(),
              " is dropped: too many say nothing");
        m_silent.pop_front();
    }
    m_silent.emplace_back(*this, std::move(socket));
    m_silent.back().place = std::prev(m_silent.end());
    trace(trace_area::server, "awaits the first words of connection ", m_silent.back().socket->GetHandle(),
          ", one of ", m_silent.size());
    if (!m_set.Add(&m_silent.back())) m_silent.pop_back();
}

void netBaseServer::loop::DropConnections() noexcept {
    m_listener.reset();
    m_listening = m_connections = false;
    m_ready.clear();
    m_silent.clear();
}

// Requests -------------------------------------------------------------------------------------

void netBaseServer::loop::Spawn(std::unique_ptr<netSocketStream> stream) {
    netAsyncRequest &request = m_requests.emplace_back(m_server, std::move(stream), m_started++);
    request.place = std::prev(m_requests.end());
    if (request.Start()) return;
    while (Error_GetLast() == no_descriptors && MakeRoom())
        if (request.Start()) return;
    trace(trace_area::server, "request ", request.Number(), ": no thread, error ", Error_GetLast());
    m_requests.pop_back();
    std::cout << "netBaseServer::SpawnAsyncRequest: create thread failed" << std::endl;
}

std::unique_ptr<btkEvent> netBaseServer::loop::Watch(netAsyncRequest &request) {
    auto end = std::make_unique<request_end>(*this, request);
    if (!m_set.Add(end.get())) m_unwatched.push_back(&request);
    return end;
}

void netBaseServer::loop::LookForUnwatched() {
    std::erase_if(m_unwatched, [this](netAsyncRequest *request) {
        const bool ended = request->IsExited();
        if (ended) m_ended.push_back(request);
        return ended;
    });
}

netServerLoopAction netBaseServer::loop::CollectEnded() {
    if (m_ended.empty()) return netServerContinue;
    std::vector<netAsyncRequest *> ended;
    ended.swap(m_ended);
    std::sort(ended.begin(), ended.end(), [](const netAsyncRequest *one, const netAsyncRequest *other) {
        return one->Number() < other->Number();
    });
    netServerLoopAction action = netServerContinue;
    for (netAsyncRequest *request : ended) {
        if (request->Collect() == netServerTerminate) action = netServerTerminate;
        m_requests.erase(request->place);
    }
    // Their descriptors are free again.
    if (!m_listening) m_pause_end = deadline(0);
    return action;
}

void netBaseServer::loop::StopRequests() noexcept {
    for (netAsyncRequest &request : m_requests) {
        trace(trace_area::server, "request ", request.Number(), " is asked to stop");
        request.SendStop();
    }
    for (netAsyncRequest &request : m_requests)
        request.Collect();
    m_ended.clear();
    m_unwatched.clear();
    m_requests.clear();
}
