// A service of the system around a program's servers.
//
// Under a service manager that listens on the socket which NOTIFY_SOCKET names (systemd, Type=notify), it
// tells the manager when it starts, runs, pauses and stops; without one it runs in the foreground and tells
// nobody. SIGTERM, and in the foreground SIGINT, ask it to stop, SIGUSR1 to pause, SIGUSR2 to go on: while
// Run is under way, the signals only set states, which the service body asks for or awaits.
#pragma once

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
    virtual void DoService(netService *service, xrchandle<xstringsequence> parameters) = 0;
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
    // Runs the body with the stored parameters and comes back when it does: true. It reports the end to the
    // manager, and puts the signals' handling back. One at a time in a process: false for a second.
    unsigned char Run();
    virtual void DoService(xrchandle<xstringsequence> parameters);

    static xrchandle<xstringsequence> ExtractParms(int count, char **arguments);

    xstring getServiceName() const { return m_service_name; }
    xstring getDisplayName() const { return m_display_name; }

    // To the manager: starting goes on for up to the given seconds more; it runs; it has paused. Nothing
    // without one.
    static void ReportStarting(double seconds);
    static void ReportRunning();
    static void ReportPaused();
    // Whether somebody asked for it. IsPaused is true from the request to pause until the one to go on,
    // IsReleased from that one until the next request to pause. All false while no service runs.
    static xbool IsStopped();
    static xbool IsPaused();
    static xbool IsReleased();
    // Reports that it has paused, waits until it is to go on or to stop, and then reports that it runs (or
    // stops).
    static void DoPause();

    // Asks for the stop as SIGTERM does. Any thread.
    static void RequestStop();
    // A new event, owned by the caller: IsStopped, or a request to pause or go on that nobody has asked about
    // since.
    static evtEvent *StateEvent();

private:
    netService(const char *service_name, xrchandle<xstringsequence> parameters, const char *display_name);

    xstring m_service_name;
    xstring m_display_name;
    xrchandle<xstringsequence> m_parameters;
    netService_DoService_cb *m_do_service = nullptr;
};

namespace kel {

// Makes this program a daemon: the caller's terminal and process group are left, standard channels lead
// nowhere, and the file at the path (null: none) holds the process id until the program ends orderly. The
// calling process ends with code 0 once `ready` has been called in the daemon, or with 1 and the daemon's
// message when it ends before. Before the first thread. False, in the caller, with the last error set, when
// the file is held by a daemon that runs (183) or cannot be written.
KELSTDMT_API bool become_daemon(const char *pid_file);
KELSTDMT_API void daemon_ready();

}  // namespace kel
