// A service of the system around a program's servers (doc/services.md).
//
// Under a service manager that listens on the socket which NOTIFY_SOCKET names (systemd, Type=notify), it
// tells the manager when it starts, runs, pauses and stops; without one it runs in the foreground and tells
// nobody. SIGTERM, and in the foreground SIGINT unless the program was started with it ignored, ask it to
// stop, SIGUSR1 to pause, SIGUSR2 to go on: while Run is under way, the signals only set states, which the
// service body asks for or awaits. A write beyond the limit of a file's size (SIGXFSZ) only fails meanwhile.
#pragma once

#include <string>

#include <kelstdmt/declare.h>
#include <kelstdmt/eventlib.h>
#include <kelstdmt/export.h>
#include <kelstdmt/xbasic.h>
#include <kelstdmt/xstring.h>

class netService;

KEL_DECLARE_STRUCT(netService_DoService_cb)
class KELSTDMT_API netService_DoService_cb : public xobject {
    KEL_CLASS(netService_DoService_cb, xobject)
public:
    virtual void DoService(netService *service, xrchandle<xstringsequence> parameters) = 0;  // until it ends
};

KEL_DECLARE_STRUCT(netService)
class KELSTDMT_API netService : public xobject {
    KEL_CLASS(netService, xobject)
public:
    ~netService() override;

    // A null pointer or xstrNullStr as display name: the service name. The caller owns the result.
    static netService *Create(const char *service_name, xrchandle<xstringsequence> parameters,
                              const char *display_name);

    void setDoService(netService_DoService_cb *callback) noexcept { m_do_service = callback; }  // not owned
    // Runs the body with the stored parameters and comes back when it does: true; what the body throws comes
    // out. Then the end is reported to the manager, and the signals are handled as before. One at a time in a
    // process: false, with the last error set, for a second (183) and without descriptors (4).
    unsigned char Run();
    virtual void DoService(xrchandle<xstringsequence> parameters);

    static xrchandle<xstringsequence> ExtractParms(int count, char **arguments);  // all, with the first

    xstring getServiceName() const { return m_service_name; }
    xstring getDisplayName() const { return m_display_name; }

    // To the manager: starting goes on for up to the given seconds more; it runs; it has paused. Nothing
    // without one. Any thread, as the rest below.
    static void ReportStarting(double seconds);
    static void ReportRunning();
    static void ReportPaused();
    // Whether somebody asked for it. IsPaused is true from the request to pause until the one to go on,
    // IsReleased from that one until the next request to pause. All false while no service runs. When
    // IsStopped first answers true, the manager is told that the service stops.
    static xbool IsStopped();
    static xbool IsPaused();
    static xbool IsReleased();
    // Reports that it has paused, waits until it is to go on or to stop, and then reports that it runs (or
    // stops). Without a request to pause it does not wait.
    static void DoPause();

    // Asks the service that runs to stop, as SIGTERM does.
    static void RequestStop();
    // A new event, owned by the caller: IsStopped, or a request to pause or go on that nobody has asked about
    // since (IsPaused, IsReleased, DoPause). Null when no descriptors are left. It may outlive the service.
    static evtEvent *StateEvent();

private:
    netService(const char *service_name, xrchandle<xstringsequence> parameters, const char *display_name);

    xstring m_service_name;
    xstring m_display_name;
    xrchandle<xstringsequence> m_parameters;
    netService_DoService_cb *m_do_service = nullptr;
};

namespace kel {

// Makes this program a daemon: it leaves the caller's terminal, session and process group, reads nothing, and
// the file at the path (null: none) holds its process id, under a lock, until it ends orderly (exit, or main
// comes back). What it writes to standard output and error reaches the caller until daemon_ready. The current
// folder stays. Before the first thread.
//
// Comes back in the daemon: true. The calling process waits and ends with code 0 once daemon_ready has been
// called there, or with the daemon's exit code when that ends before (1 for 0, 128 and the number after a
// signal). False, in the calling process, when the file is held by a daemon that runs (last error 183) or
// cannot be written, or no process can be made; the reason is a sentence without its end. A file that a
// killed daemon left is taken over.
KELSTDMT_API bool become_daemon(const char *pid_file, std::string *reason = nullptr);
// From now on standard output and error lead nowhere. Nothing outside a daemon, and the second time.
KELSTDMT_API void daemon_ready();

}  // namespace kel
