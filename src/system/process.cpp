// Processes as objects: the runtime launches, waits and signals; here is what is known of each, and failures
// become exceptions.
#include <memory>
#include <string>

#include <kelstdmt/kel.h>
#include <kelstdmt/proclib.h>
#include <kelstdmt/vumtext.h>

// The exceptions -------------------------------------------------------------------------------

namespace {

struct message {
    int error;
    const char *text;
};
constexpr message messages[] = {
    {pcErrorInput, "Stream can not be passed to a process created as an input stream"},
    {pcErrorOutput, "Stream can not be passed to a process created as an output stream"},
    {pcErrorError, "Stream can not be passed to a process created as an error stream"},
};

}  // namespace

pcXException *pcXException::Create() {
    return kel::construct_with<pcXException>([](void *at) { return ::new (at) pcXException; });
}
void pcXException::Throw() {
    xthrow(Create());
}
xstring pcXException::getMsg() const {
    return xstring("Process manipulation error");
}

pcXCreate *pcXCreate::Create(int error, int system_error) {
    return kel::construct_with<pcXCreate>(
        [&](void *at) { return ::new (at) pcXCreate(error, system_error); });
}
void pcXCreate::Throw(int error, int system_error) {
    xthrow(Create(error, system_error));
}
std::optional<pcCreateError> pcXCreate::getNamedError() const noexcept {
    if (m_error < 0 || m_error > pcBadProcessId) return std::nullopt;
    return getError();
}
xstring pcXCreate::getMsg() const {
    for (const message &each : messages)
        if (each.error == m_error) return xstring(each.text);
    return xstring(Error_GetText(m_system_error));
}

pcXProcess *pcXProcess::Create(pcProcess *process) {
    return kel::construct_with<pcXProcess>([&](void *at) { return ::new (at) pcXProcess(process); });
}
void pcXProcess::Throw(pcProcess *process) {
    xthrow(Create(process));
}

// Launching and attaching ----------------------------------------------------------------------

namespace {

struct channel {
    ioStream *stream;
    int error;
    int handle = -1;
};

// A stream of the caller's own class may throw; the process runs all the same.
void close_quietly(ioStream &stream) {
    try {
        stream.Close();
    } catch (xthrowable *thrown) {
        const kel::caught unheard(thrown);
    }
}

}  // namespace

pcProcess *pcProcess::Create(const char *command_line, const char *working_directory, ioStream *in,
                             ioStream *out, ioStream *err, unsigned char own_group,
                             unsigned char own_session) {
    channel channels[] = {{in, pcErrorInput}, {out, pcErrorOutput}, {err, pcErrorError}};
    for (channel &each : channels) {
        if (!kel::is_object(each.stream)) continue;
        each.handle = each.stream->GetInheritHandle();
        if (each.handle == -1) pcXCreate::Throw(each.error, 0);
    }
    const unsigned options = (own_group ? btkLaunchGroup : 0U) | (own_session ? btkLaunchSession : 0U);
    // Made first: the program that runs is not to be lost.
    std::unique_ptr<pcProcess> process(New());
    if (!Process_Launch(&process->m_handle, &process->m_id, command_line, working_directory,
                        channels[0].handle, channels[1].handle, channels[2].handle, options))
        pcXCreate::Throw(pcErrorSystem, Error_GetLast());
    process->m_closed = false;
    for (const channel &each : channels)
        if (each.handle != -1) close_quietly(*each.stream);
    return process.release();
}

pcProcess *pcProcess::Open(int id) {
    std::unique_ptr<pcProcess> process(New());
    if (!Process_Open(&process->m_handle, static_cast<unsigned long>(id)))
        pcXCreate::Throw(pcErrorSystem, Error_GetLast());
    process->m_closed = false;
    process->m_id = static_cast<unsigned long>(id);
    process->m_can_wait = Process_CanWait(process->m_handle);
    return process.release();
}

pcProcess *pcProcess::New() {
    return kel::construct_with<pcProcess>([](void *at) { return ::new (at) pcProcess; });
}

pcProcess::~pcProcess() {
    Close();
}

// Asking and signalling ------------------------------------------------------------------------

int pcProcess::getId() {
    return static_cast<int>(m_id);
}

int pcProcess::GetExitCode() {
    if (m_can_wait && !m_closed) m_closed = Process_Wait(m_handle, &m_exit_code, false, true);
    return static_cast<int>(m_exit_code);
}

unsigned char pcProcess::IsRunning() {
    return !m_closed && Process_CheckRunning(m_handle);
}

pcProcessStatus pcProcess::GetStatus() {
    if (m_closed) return pcUninit;
    return IsRunning() ? pcRunning : pcExited;
}

void pcProcess::Interrupt() {
    if (!m_closed) Process_Interrupt(m_id);
}

void pcProcess::Terminate() {
    if (m_closed || m_killed) return;
    Process_Kill(m_handle);
    m_killed = true;
}

pcEvent *pcProcess::ExitEvent() {
    if (m_closed || !m_can_wait) return nullptr;
    auto condition = std::make_unique<btkPROCESSEvent>(m_handle);
    pcEvent *event = kel::construct<pcEvent>(this, condition.get());
    condition.release();
    return event;
}
pcEvent::~pcEvent() = default;

void pcProcess::Close() {
    if (m_closed) return;
    if (!m_can_wait || !Process_Wait(m_handle, &m_exit_code, false, true)) Process_Free(m_handle);
    m_closed = true;
}

// Without an object ----------------------------------------------------------------------------

pcProcessStatus pcGetProcessStatus(int id) {
    btkProcessHandle handle;
    if (!Process_Open(&handle, static_cast<unsigned long>(id))) return pcUninit;
    const pcProcessStatus status = Process_CheckRunning(handle) ? pcRunning : pcExited;
    Process_Free(handle);
    return status;
}

xstring pcGetShellCommand() {
    dsString value;
    const auto is_given = [&value](const char *name) { return Getenv(name, value) && *value.Str(); };
    if (is_given("SHELL")) return xstring((std::string(value.Str()) + " -c").c_str());
    if (is_given("COMSPEC")) return xstring((std::string(value.Str()) + " /c").c_str());
    return xstring();
}
