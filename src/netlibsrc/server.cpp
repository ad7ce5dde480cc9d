// A server's life: it listens and is registered, hands connections to its callbacks, and takes everything
// back when it goes. What it waits for stands in server_loop.cpp.
#include <algorithm>
#include <functional>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>

#include "netlibsrc/names.h"
#include "netlibsrc/server_loop.h"
#include "netlibsrc/server_open.h"
#include "runtime/trace.h"

using kel::detail::deadline;
using kel::system::trace, kel::system::trace_area;

namespace {

constexpr int nil_port = kel::nil_int, no_descriptors = 4;
constexpr double shortest_slice = 0.001, respite = 0.1;  // seconds

// Connections that were accepted ahead, because they were awaited, count as well.
class accept_event : public btkSelectEvent {
public:
    accept_event(int handle, std::function<bool()> has_accepted)
        : btkSelectEvent(handle, 0), m_has_accepted(std::move(has_accepted)) {}
    bool IsReady() override { return m_has_accepted(); }

private:
    std::function<bool()> m_has_accepted;
};

// While it lives the system keeps silent peers back. Whoever accepts without the loop may be the first to
// speak.
class spoken_first {
public:
    explicit spoken_first(btkAcceptSocket *socket) noexcept : m_socket(socket) { TakeSilent(false); }
    ~spoken_first() { TakeSilent(true); }
    spoken_first(const spoken_first &) = delete;
    spoken_first &operator=(const spoken_first &) = delete;

private:
    void TakeSilent(bool on) noexcept {
        if (m_socket) m_socket->SetTakeSilent(on);
    }
    btkAcceptSocket *m_socket;
};

const char *name_of(netServerLoopAction action) {
    switch (action) {
        case netServerTerminate:
            return "terminate";
        case netSpawnAsyncServer:
            return "spawn";
        default:
            return "continue";
    }
}

}  // namespace

std::unique_ptr<btkAcceptSocket> kel::detail::open_server(const char *server_name, int port,
                                                          const server_options &options) {
    auto socket = std::make_unique<btkAcceptSocket>();
    const char *name = kel::is_text(server_name) ? server_name : "without a name";
    if (!socket->Listen(port == nil_port ? 0 : port, options.address)) {
        trace(trace_area::server, name, " cannot listen on port ", port, ": error ", Error_GetLast());
        return nullptr;
    }
    trace(trace_area::server, name, " listens on port ", [&] { return socket->GetPort(); });
    if (options.is_registered && kel::is_text(server_name)) register_server(server_name, socket->GetPort());
    return socket;
}

netEvent::~netEvent() = default;

netBaseServer *netBaseServer::Create(const char *server_name, int port) {
    auto socket = kel::detail::open_server(server_name, port);
    if (!socket) return nullptr;
    return kel::construct_with<netBaseServer>(
        [&](void *at) { return ::new (at) netBaseServer(std::move(socket), server_name, true, false); });
}

netBaseServer::netBaseServer(std::unique_ptr<btkAcceptSocket> socket, const char *server_name,
                             bool is_registered, bool awaits_input)
    : m_socket(std::move(socket)),
      m_server_name(kel::is_text(server_name) ? server_name : xstrNullStr),
      m_is_registered(is_registered && !m_server_name.IsNull()),
      m_loop(std::make_unique<loop>(*this, awaits_input)) {}

netBaseServer::~netBaseServer() {
    Stop();
}

void netBaseServer::Stop() noexcept {
    if (!m_socket) return;
    trace(trace_area::server, "stops listening on port ", [this] { return getPortN(); });
    m_loop->DropConnections();
    m_socket.reset();
    try {
        if (m_is_registered) kel::detail::unregister_server(m_server_name);
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
    } catch (const std::exception &) {
        // The record goes with this process.
    }
    m_loop->StopRequests();
}

// Callbacks ------------------------------------------------------------------------------------

void netBaseServer::setOnRequest(netBaseServer_OnRequest_cb *callback) {
    m_on_request = callback;
}
void netBaseServer::setOnAsyncRequest(netBaseServer_OnAsyncRequest_cb *callback) {
    m_on_async_request = callback;
}
void netBaseServer::setOnIdle(netBaseServer_OnIdle_cb *callback) {
    m_on_idle = callback;
}

netServerLoopAction netBaseServer::PreprocessRequest(btkStreamSocket *) {
    return netServerDefault;
}

netServerLoopAction netBaseServer::OnRequest(netSocketStream *stream) {
    return m_on_request ? m_on_request->OnRequest(this, stream) : netServerDefault;
}
netServerLoopAction netBaseServer::OnAsyncRequest(netSocketStream *stream, evtEvent *stop) {
    return m_on_async_request ? m_on_async_request->OnAsyncRequest(this, stream, stop) : netServerDefault;
}
netServerLoopAction netBaseServer::OnIdle() {
    return m_on_idle ? m_on_idle->OnIdle(this) : netServerDefault;
}

// Serving --------------------------------------------------------------------------------------

int netBaseServer::getPortN() const noexcept {
    return m_socket ? m_socket->GetPort() : 0;
}

void netBaseServer::Run() {
    Run(nullptr);
}

void netBaseServer::Run(evtEvent *stop) {
    const loop::watched_stop watched(*m_loop, stop);
    // Without somebody to call there is nothing to do while nothing arrives.
    const auto slice = [this] {
        if (!m_on_idle || kel::is_nil(m_time_slice)) return INFINITE;
        return m_time_slice > shortest_slice ? m_time_slice : shortest_slice;
    };
    const spoken_first scope(m_loop->AwaitsInput() ? m_socket.get() : nullptr);
    trace(trace_area::server, "the loop begins");
    const char *why = nullptr;
    for (deadline idle(slice()); !why;) {
        if (m_loop->CollectEnded() == netServerTerminate) {
            why = "a request says so";
        } else if (m_loop->IsStopped()) {
            why = "its event is signalled";
        } else if (auto socket = m_loop->Next(idle)) {
            if (Serve(std::move(socket)) == netServerTerminate) why = "the last connection says so";
            idle = deadline(slice());
        } else if (idle.is_over()) {
            if (OnIdle() == netServerTerminate) why = "OnIdle says so";
            idle = deadline(slice());
        }
    }
    trace(trace_area::server, "the loop ends: ", why);
}

netServerLoopAction netBaseServer::Serve(std::unique_ptr<btkStreamSocket> socket) {
    const netServerLoopAction asked = PreprocessRequest(socket.get());
    if (asked == netServerContinue || asked == netServerTerminate) return asked;
    // Without a callback nobody takes the connection.
    if (!m_on_request) return netServerContinue;
    const int handle = socket->GetHandle();
    netSocketStream *stream = kel::construct<netSocketStream>(std::move(socket));
    const netServerLoopAction action = OnRequest(stream);
    trace(trace_area::server, "connection ", handle, ": OnRequest answers ", name_of(action));
    if (action == netSpawnAsyncServer) m_loop->Spawn(std::unique_ptr<netSocketStream>(stream));
    return action == netServerTerminate ? netServerTerminate : netServerContinue;
}

std::unique_ptr<btkStreamSocket> netBaseServer::WaitForRequest(double timeout) {
    const deadline until(timeout);
    const int told = m_socket->Wait(until.left(), btkSocket::ForInput);
    if (told == 0) netXException::Throw(netSocketError, "Socket failed");
    if (told != btkSocket::ForInput) return nullptr;
    auto socket = std::make_unique<btkStreamSocket>();
    if (m_socket->Accept(*socket)) return socket;
    if (const int error = Error_GetLast(); error == no_descriptors) {
        // Who asks again at once would find the connection there again, and no descriptor.
        btkEvent::List nothing;
        btkEvent::Wait(nothing, std::min(until.left(), kel::detail::timeout_of(respite)), {});
        Error_SetLast(error);
    }
    return nullptr;
}

netSocketStream *netBaseServer::Accept(double timeout) {
    auto socket = m_loop->TakeAccepted();
    if (!socket) socket = WaitForRequest(timeout);
    return socket ? kel::construct<netSocketStream>(std::move(socket)) : nullptr;
}

netEvent *netBaseServer::AcceptEvent() {
    auto base = std::make_unique<accept_event>(m_socket->GetHandle(),
                                               [loop = m_loop.get()] { return loop->HasAccepted(); });
    netEvent *event = kel::construct<netEvent>(this, base.get());
    base.release();
    return event;
}
