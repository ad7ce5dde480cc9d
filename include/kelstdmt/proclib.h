// Processes: programs that are started with their standard channels bound to streams, or that run already;
// and the keys by which a user interrupts this program.
//
// A process object is open until Close, until GetExitCode has found the end, or until it is deleted. From
// then on it answers as for a process that ended. Closing does not stop the process. One object is for one
// thread at a time.
#pragma once

#include <optional>

#include <kelstdmt/declare.h>
#include <kelstdmt/eventlib.h>
#include <kelstdmt/export.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

enum pcProcessStatus : int { pcUninit, pcRunning, pcExited };
KEL_DECLARE_ENUM(pcProcessStatus)

enum pcCreateError : int {
    pcBadIn,
    pcBadOut,
    pcBadErr,
    pcTooLongArgs,
    pcFileNotFound,
    pcCantExecute,
    pcNoMemory,
    pcBadWorkDir,
    pcBadProcessId
};
KEL_DECLARE_ENUM(pcCreateError)

// What pcXCreate holds beside the declared names.
constexpr int pcErrorSystem = 3;  // the system refused
constexpr int pcErrorInput = 11;  // a stream that no process can have
constexpr int pcErrorOutput = 12;
constexpr int pcErrorError = 13;

class pcProcess;

KEL_DECLARE_STRUCT(pcXException)
class KELSTDMT_API pcXException : public xthrowable {
    KEL_CLASS(pcXException, xthrowable)
public:
    static pcXException *Create();
    [[noreturn]] static void Throw();

    virtual xstring getMsg() const;  // "Process manipulation error"

protected:
    pcXException() = default;
};

KEL_DECLARE_STRUCT(pcXCreate)
class KELSTDMT_API pcXCreate : public pcXException {
    KEL_CLASS(pcXCreate, pcXException)
public:
    static pcXCreate *Create(int error, int system_error);
    [[noreturn]] static void Throw(int error, int system_error);

    pcCreateError getError() const noexcept { return static_cast<pcCreateError>(m_error); }
    // As its field is read by way of the descriptor, which has no name for the numbers of streams.
    std::optional<pcCreateError> getNamedError() const noexcept;
    int GetSystemError() const noexcept {
        return m_system_error;
    }  // the last error of the failure; 0 for none
    xstring getMsg() const override;

private:
    pcXCreate(int error, int system_error) noexcept : m_error(error), m_system_error(system_error) {}

    int m_error;
    int m_system_error;
};

KEL_DECLARE_STRUCT(pcXProcess)
class KELSTDMT_API pcXProcess : public pcXException {
    KEL_CLASS(pcXProcess, pcXException)
public:
    static pcXProcess *Create(pcProcess *process);
    [[noreturn]] static void Throw(pcProcess *process);

    pcProcess *getProcess() const noexcept { return m_process; }

private:
    explicit pcXProcess(pcProcess *process) noexcept : m_process(process) {}

    pcProcess *m_process;
};

// The end of a process. Belongs to who asked for it, and is deleted before the process object is closed.
KEL_DECLARE_STRUCT(pcEvent)
class KELSTDMT_API pcEvent : public evtEvent {
    KEL_CLASS(pcEvent, evtEvent)
public:
    pcEvent(pcProcess *process, btkBaseEvent *owned) noexcept : evtEvent(owned), m_process(process) {}
    ~pcEvent() override;

    pcProcess *getProcess() const noexcept { return m_process; }

private:
    pcProcess *m_process;
};

KEL_DECLARE_STRUCT(pcProcess)
class KELSTDMT_API pcProcess : public xobject {
    KEL_CLASS(pcProcess, xobject)
public:
    static constexpr int NoExitCode = static_cast<int>(0x80000000);

    ~pcProcess() override;
    pcProcess(const pcProcess &) = delete;
    pcProcess &operator=(const pcProcess &) = delete;

    // Starts a program; how the command line is read, and what the child inherits, tells Process_Launch. A
    // null pointer or xstrNullStr as directory is the caller's. A null stream leaves that channel as the
    // caller's; the others are closed here once the child has them. With own_group, interrupt and termination
    // reach what the child starts; with own_session it is away from the terminal. Throws pcXCreate, and then
    // every stream is as it was. The caller owns the result.
    static pcProcess *Create(const char *command_line, const char *working_directory, ioStream *in,
                             ioStream *out, ioStream *err, unsigned char own_group,
                             unsigned char own_session);
    // A process that runs already. Throws pcXCreate. Of one that is not this program's child the end can be
    // awaited, but its exit code stays NoExitCode.
    static pcProcess *Open(int id);

    virtual int getId();
    int GetExitCode();  // NoExitCode while it runs; once it has ended, the object is closed by this
    unsigned char IsRunning();
    pcProcessStatus GetStatus();  // pcUninit when closed
    void Interrupt();             // as Ctrl+C; a program may ignore it
    void Terminate();             // once
    pcEvent *ExitEvent();         // a new event; null when closed or when the end cannot be awaited
    void Close();                 // the program goes on

private:
    pcProcess() = default;
    static pcProcess *New();  // without a process

    btkProcessHandle m_handle = -1;
    unsigned long m_id = 0;
    long m_exit_code = NoExitCode;
    bool m_killed = false;
    bool m_can_wait = true;
    bool m_closed = true;
};

// Of any process of this machine.
KELSTDMT_API pcProcessStatus pcGetProcessStatus(int id);
// What stands before a command line that the user's command interpreter is to run: "/bin/sh -c"; the null
// string when neither SHELL nor COMSPEC names one.
KELSTDMT_API xstring pcGetShellCommand();

// Ctrl+C and Ctrl+Break, which do not end the program while one of these lives. All of them wait for one
// event.
KEL_DECLARE_STRUCT(pcInterruptEvent)
class KELSTDMT_API pcInterruptEvent : public evtEvent {
    KEL_CLASS(pcInterruptEvent, evtEvent)
public:
    ~pcInterruptEvent() override;

    static pcInterruptEvent *Create();  // null when the system refuses; the caller owns it
    static void Reset();                // forgets a key that was pressed

private:
    using evtEvent::evtEvent;
};
