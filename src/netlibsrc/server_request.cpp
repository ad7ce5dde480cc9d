#include "netlibsrc/server_request.h"

#include <kelstdmt/kel.h>

#include "netlibsrc/server_loop.h"
#include "runtime/trace.h"

using kel::system::trace, kel::system::trace_area;

int netAsyncRequest::OnStart() {
    const std::unique_ptr<evtEvent> stop(SignalStream()->InputEvent());
    trace(trace_area::server, "request ", m_number, " begins on this thread");
    if (m_callback) return m_callback->OnAsyncRequest(&m_server, m_stream.release(), stop.get());
    m_stream.reset();
    return netServerDefault;
}

void netAsyncRequest::OnPostStart() {
    netThread::OnPostStart();
    m_stop_sent = false;
    m_exit_event = m_server.m_loop->Watch(*this);
}

// Where a thread has descriptors of its own, the side that does not serve lets go of the connection.
void netAsyncRequest::AtFork(bool child) {
    netThread::AtFork(child);
    if (child) m_stream.reset();
}

void netAsyncRequest::SendStop() noexcept {
    if (std::exchange(m_stop_sent, true)) return;
    try {
        ControlStream()->WriteByte(0);
        ControlStream()->Flush();
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
    }
}

// The event looks at the thread's handle, which goes with the exit code.
netServerLoopAction netAsyncRequest::Collect() {
    m_exit_event.reset();
    const int exit_code = GetExitCode();
    trace(trace_area::server, "request ", m_number, " has ended with ", exit_code);
    return exit_code == netServerTerminate ? netServerTerminate : netServerContinue;
}
