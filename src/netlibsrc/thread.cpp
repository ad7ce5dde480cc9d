// Thread objects: hooks around a thread of the runtime.
#include <cxxabi.h>

#include <exception>
#include <string>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_thread.h>

namespace {

void report(const std::string &what) {
    _Abort(("An exception left a thread: " + what).c_str(), "netlibsrc/thread", __LINE__);
}

// Reports the exception that is being handled. Only the end of the thread passes, which is no object: the
// reference to it is null, and sanitizers are not to mind.
__attribute__((no_sanitize("null"))) void report_current() {
    try {
        throw;
    } catch (abi::__forced_unwind &) {
        throw;
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        const xstring type = error.type_name(), description = error.description();
        report(std::string(kel::view(type)) + ": " + std::string(kel::view(description)));
    } catch (const std::exception &native) {
        report(native.what());
    } catch (...) {
        report("of an unknown type");
    }
}

}  // namespace

netBaseThread::~netBaseThread() {
    Close();
}

bool netBaseThread::Start() {
    if (m_started || !OnPreStart()) return false;
    m_handle = StrictThread_Launch(&netBaseThread::Body, this, &netBaseThread::Fork);
    if (m_handle == -1) return false;
    m_started = true;
    m_waited = false;
    m_exit_code = 0;
    OnPostStart();
    return true;
}

void netBaseThread::Close() {
    if (!m_started) return;
    m_started = false;
    OnClose();
}

bool netBaseThread::IsExited() {
    return m_waited || !StrictThread_CheckRunning(m_handle);
}

int netBaseThread::WaitExitCode() {
    if (!m_waited && StrictThread_Wait(m_handle, &m_exit_code)) {
        StrictThread_Free(m_handle);
        m_handle = -1;
        m_waited = true;
    }
    return m_exit_code;
}

btkBaseEvent *netBaseThread::GetExitEvent() {
    if (m_handle == -1) return new btkAlwaysEvent;
    return new btkPROCESSEvent(m_handle);
}

bool netBaseThread::OnPreStart() {
    return true;
}
void netBaseThread::OnPostStart() {}
void netBaseThread::AtFork(bool) {}

void netBaseThread::OnClose() {
    if (!m_waited) StrictThread_Free(m_handle);
    m_handle = -1;
}

int netBaseThread::Body(void *self) {
    try {
        return static_cast<netBaseThread *>(self)->OnStart();
    } catch (...) {
        report_current();
        return kel::nil_int;
    }
}

void netBaseThread::Fork(void *self, bool child) {
    static_cast<netBaseThread *>(self)->AtFork(child);
}

// With a pipe --------------------------------------------------------------------------------------

netThread::netThread() = default;
netThread::~netThread() {
    Close();
}

ioStream *netThread::ControlStream() {
    return m_pipe ? kel_pipe_access::WriteStream(*m_pipe) : nullptr;
}
ioStream *netThread::SignalStream() {
    return m_pipe ? kel_pipe_access::ReadStream(*m_pipe) : nullptr;
}

bool netThread::OnPreStart() {
    // One that a failed start has left goes first: where descriptors are few, two pipes are too many.
    m_pipe.reset();
    m_pipe.reset(ioPipe::Create());
    return m_pipe != nullptr;
}
void netThread::OnPostStart() {}

// Each side keeps the end that it uses.
void netThread::AtFork(bool child) {
    if (ioStream *unused = child ? SignalStream() : ControlStream()) unused->Close();
}

void netThread::OnClose() {
    m_pipe.reset();
    netBaseThread::OnClose();
}
