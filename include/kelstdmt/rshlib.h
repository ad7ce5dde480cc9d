// The remote shell: a command on another host whose standard input, output and error are local streams.
//
// Client and server share one connected socket stream, which a relay on a thread of each side has to itself
// while the command runs. One connection carries one command. What travels is neither encrypted nor
// authenticated; doc/remote-shell.md has it byte by byte.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <kelstdmt/declare.h>
#include <kelstdmt/eventlib.h>
#include <kelstdmt/export.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/netlib_thread.h>
#include <kelstdmt/rshlib_exceptions.h>
#include <kelstdmt/xstring.h>

class rshProcess;
class rshServer;

// The relay of a process has ended: all its output is delivered. Belongs to who asked for it, and is deleted
// before the process object is closed.
KEL_DECLARE_STRUCT(rshEvent)
class KELSTDMT_API rshEvent : public evtEvent {
    KEL_CLASS(rshEvent, evtEvent)
public:
    rshEvent(rshProcess *process, btkBaseEvent *owned) noexcept : evtEvent(owned), m_process(process) {}
    ~rshEvent() override;

    rshProcess *getProcess() const noexcept { return m_process; }

private:
    rshProcess *m_process;
};

// A command that runs on another host. Its operations are for one thread at a time.
KEL_DECLARE_STRUCT(rshProcess)
class KELSTDMT_API rshProcess : public xobject, public netThread {
    KEL_CLASS(rshProcess, xobject)
public:
    static constexpr int NoExitCode = static_cast<int>(0x80000000);

    ~rshProcess() override;

    // Starts a command on the server at the other end. A null directory is the server's own; with use_shell 1
    // the server's shell reads the command. Of the three streams, those that are null become pipes; the
    // others stay the caller's, and the relay uses them until its end. The connection stays the caller's too,
    // and has to live as long as this object. Null when the relay cannot be started; throws rshXProcess when
    // the server refuses or goes away. The caller owns the result.
    static rshProcess *Create(netSocketStream *connection, const char *command, const char *working_directory,
                              ioStream *in, ioStream *out, ioStream *err, unsigned char use_shell,
                              unsigned char unused);

    // The caller's ends of the pipes, owned by this object; null for a channel that the caller supplied, and
    // after Close. Closing the input's end is the end of the command's input.
    ioStream *getStdin() const;
    ioStream *getStdout() const;
    ioStream *getStderr() const;

    void Terminate();
    void Interrupt();  // as Ctrl+C; a command may ignore it
    // NoExitCode while it runs, and when the connection was lost before the end.
    int GetExitCode();
    unsigned char IsRunning();
    rshEvent *ExitEvent();  // a new event, owned by the caller
    // Of a command that still runs: gives it up, so that the server ends it. Waits for the relay.
    void Close();

protected:
    int OnStart() override;
    void AtFork(bool child) override;
    void OnClose() override;

private:
    struct parts;
    explicit rshProcess(std::unique_ptr<parts> owned);
    void Control(int tag);

    std::unique_ptr<parts> m_parts;
};

KEL_DECLARE_STRUCT(rshServerEvent)
class KELSTDMT_API rshServerEvent : public evtEvent {
    KEL_CLASS(rshServerEvent, evtEvent)
public:
    rshServerEvent(rshServer *server, btkBaseEvent *owned) noexcept : evtEvent(owned), m_server(server) {}
    ~rshServerEvent() override;

    rshServer *getServer() const noexcept { return m_server; }

private:
    rshServer *m_server;
};

// Serves one request of a client on a thread of its own.
KEL_DECLARE_STRUCT(rshServer)
class KELSTDMT_API rshServer : public xobject, public netThread {
    KEL_CLASS(rshServer, xobject)
public:
    ~rshServer() override;

    // The connection stays the caller's, and has to live as long as this object. A relative working directory
    // of a client is below the base directory, when that is not empty. Null when the thread cannot be
    // started.
    static rshServer *Create(netSocketStream *connection, const char *base_directory, unsigned char unused);
    // The server's work on the calling thread, until the client has acknowledged the end, or is gone: then
    // the command is terminated. The stop event terminates it too. False when nothing was launched.
    static unsigned char Execute(netSocketStream *connection, const char *base_directory, evtEvent *stop);

    void Terminate();             // the command; later calls do nothing
    rshServerEvent *ExitEvent();  // a new event, owned by the caller
    void Close();                 // terminates what still runs, and waits for the end

protected:
    int OnStart() override;
    void OnClose() override;

private:
    rshServer(netSocketStream *connection, const char *base_directory);

    netSocketStream *m_connection;
    xstring m_base_directory;
    bool m_terminate_sent = false;
};

// The remote-shell server of a host, connected for one command.
KEL_DECLARE_STRUCT(rshConnection)
class KELSTDMT_API rshConnection : public xobject {
    KEL_CLASS(rshConnection, xobject)
public:
    ~rshConnection() override;

    // Asks the name server of the host for the server of that user (kel::remote_shell_name), and connects. A
    // null host is this one. Throws rshXConnection: rshNoNameService when no name server answers there,
    // rshNoDaemon when it knows no such server or that cannot be reached, rshNoPermission when the server
    // refuses this peer. The caller owns the result.
    static rshConnection *Create(const char *host, const char *user);
    // As rshProcess::Create. The process has to be closed before this object is deleted.
    rshProcess *CreateProcessA(const char *command, const char *working_directory, ioStream *in,
                               ioStream *out, ioStream *err, unsigned char use_shell);

    xstring getUser() const { return m_user; }
    xstring getHost() const { return m_host; }

private:
    rshConnection(std::unique_ptr<netSocketStream> stream, const char *host, const char *user);

    std::unique_ptr<netSocketStream> m_stream;
    xstring m_user, m_host;
    bool m_used = false;
};

namespace kel {

// The name under which the remote-shell server of a user is registered: "kelrshd-ada"; of the host itself,
// for a null or empty user: "kelrshd".
KELSTDMT_API xstring remote_shell_name(const char *user);

struct remote_command {
    xstring text;               // as the client sent it
    xstring working_directory;  // where it runs; "" for the server's own
    bool use_shell = false;
};

// Serving a command, for servers that limit and log. All calls are on the serving thread.
struct remote_shell_options {
    xstring base_directory;
    double patience = 10;  // seconds until the whole request has to be there; INFINITE: for ever
    // Asked before the launch. A text refuses, and goes to the client as the reason; a null string grants.
    std::function<xstring(const remote_command &)> permit;
    std::function<void(const remote_command &, int process_id)> launched;
    // The reason that the client was told.
    std::function<void(const remote_command &, const xstring &reason)> refused;
    // The exit code as the system gave it; whether the client was there until the end.
    std::function<void(const remote_command &, int exit_code, bool client_stayed)> ended;
};

// As rshServer::Execute.
KELSTDMT_API bool serve_remote_command(netSocketStream *connection, const remote_shell_options &options,
                                       evtEvent *stop);

}  // namespace kel
