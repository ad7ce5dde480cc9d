// Socket servers, and the requests that their clients begin with.
//
// A server listens on a port, may be registered by name with the name server of its host, and runs a loop
// that hands each connection to a callback: in the loop's thread, or on a thread of its own. netServer begins
// every connection with a byte that asks for something and a byte that grants it (doc/network.md). Loop,
// OnRequest and OnIdle are for one thread at a time; each OnAsyncRequest has its own.
#pragma once

#include <functional>
#include <memory>

#include <kelstdmt/declare.h>
#include <kelstdmt/eventlib.h>
#include <kelstdmt/export.h>
#include <kelstdmt/netlib_stream.h>
#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/xstring.h>

class netBaseServer;

enum netServerLoopAction : int { netServerContinue, netServerTerminate, netSpawnAsyncServer };
KEL_DECLARE_ENUM(netServerLoopAction)
// Beside the declared names: no decision.
constexpr netServerLoopAction netServerDefault = static_cast<netServerLoopAction>(3);

KEL_DECLARE_STRUCT(netBaseServer_OnRequest_cb)
class KELSTDMT_API netBaseServer_OnRequest_cb : public xobject {
    KEL_CLASS(netBaseServer_OnRequest_cb, xobject)
public:
    // The stream is the callback's from now on, also to delete, unless it answers netSpawnAsyncServer.
    virtual netServerLoopAction OnRequest(netBaseServer *server, netSocketStream *stream) = 0;
};

KEL_DECLARE_STRUCT(netBaseServer_OnAsyncRequest_cb)
class KELSTDMT_API netBaseServer_OnAsyncRequest_cb : public xobject {
    KEL_CLASS(netBaseServer_OnAsyncRequest_cb, xobject)
public:
    // On a thread of its own, and the stream is the callback's, also to delete. It must come back when the
    // event is signalled: the server goes down. Its answer netServerTerminate ends the loop. An exception
    // that leaves it is reported (_Abort) and ends nothing else.
    virtual netServerLoopAction OnAsyncRequest(netBaseServer *server, netSocketStream *stream,
                                               evtEvent *stop) = 0;
};

KEL_DECLARE_STRUCT(netBaseServer_OnIdle_cb)
class KELSTDMT_API netBaseServer_OnIdle_cb : public xobject {
    KEL_CLASS(netBaseServer_OnIdle_cb, xobject)
public:
    virtual netServerLoopAction OnIdle(netBaseServer *server) = 0;  // nothing arrived for a time slice
};

// A connection waits to be accepted. Belongs to who asked for it, and is deleted before the server.
KEL_DECLARE_STRUCT(netEvent)
class KELSTDMT_API netEvent : public evtEvent {
    KEL_CLASS(netEvent, evtEvent)
public:
    netEvent(netBaseServer *server, btkBaseEvent *owned) noexcept : evtEvent(owned), m_server(server) {}
    ~netEvent() override;

    netBaseServer *getServer() const noexcept { return m_server; }

private:
    netBaseServer *m_server;
};

KEL_DECLARE_STRUCT(netBaseServer)
class KELSTDMT_API netBaseServer : public xobject {
    KEL_CLASS(netBaseServer, xobject)
public:
    // Unregisters, signals the asynchronous requests to stop and waits for them. In the thread of the loop,
    // which has come back.
    ~netBaseServer() override;
    netBaseServer(const netBaseServer &) = delete;
    netBaseServer &operator=(const netBaseServer &) = delete;

    // Port 0 or the nil int: the system chooses. A null pointer or xstrNullStr as name: not registered. Null
    // when the port cannot be listened on; throws netXException when the name cannot be registered. The
    // caller owns the result.
    static netBaseServer *Create(const char *server_name, int port);

    // Each stays the caller's; null for none.
    virtual void setOnRequest(netBaseServer_OnRequest_cb *callback);
    virtual void setOnAsyncRequest(netBaseServer_OnAsyncRequest_cb *callback);
    virtual void setOnIdle(netBaseServer_OnIdle_cb *callback);

private:
    // What a new connection is worth, once there is something to read where m_awaits_input says so:
    // netServerContinue drops it, netServerTerminate too and ends the loop, anything else hands it on.
    virtual netServerLoopAction PreprocessRequest(btkStreamSocket *socket);

public:
    int getPortN() const noexcept;
    xstring getServerName() const { return m_server_name; }
    // Seconds after which OnIdle is called while nothing arrives, at least a thousandth; INFINITE: never. The
    // loop does nothing else by it.
    double getTimeSlice() const noexcept { return m_time_slice; }
    void setTimeSlice(double seconds) noexcept { m_time_slice = seconds; }

    // Seconds for which a new peer of a netServer may take until it asks for something; 10 unless set.
    // INFINITE: for ever. Set before Run.
    double getPatience() const noexcept { return m_patience; }
    void setPatience(double seconds) noexcept { m_patience = seconds; }

    // Serves until a callback, an asynchronous request or a client says to terminate. May be called again. An
    // exception that leaves OnRequest or OnIdle leaves Run too; netXException when the listening socket
    // failed. While the process has no descriptors left, connections wait.
    void Run();
    // The same, and comes back when the event (null: none) is signalled, too.
    void Run(evtEvent *stop);
    // The next connection, without a handshake; null when the time (seconds) ran out or it was gone. Throws
    // netXException when the listening socket failed.
    netSocketStream *Accept(double timeout);
    netEvent *AcceptEvent();  // a connection is there for Accept; belongs to the thread of the loop

    netServerLoopAction OnRequest(netSocketStream *stream);
    netServerLoopAction OnAsyncRequest(netSocketStream *stream, evtEvent *stop);
    netServerLoopAction OnIdle();

    // Without a handshake. Null when nobody answers in time (seconds from when the port is known; INFINITE:
    // no limit), with the last error set. Throws netXException when the address leads to no port.
    static netSocketStream *Connect(netAddress *address, double timeout);

protected:
    struct loop;
    // A server name that has been registered is unregistered by the destructor. With awaits_input,
    // connections are handed on once there is something to read: up to 1,024 peers are awaited at a time, as
    // long as the server's patience is; of more, the one that has waited longest is dropped.
    netBaseServer(std::unique_ptr<btkAcceptSocket> socket, const char *server_name, bool is_registered,
                  bool awaits_input);
    // What the destructor does, for that of a derived class: no request runs any more.
    void Stop() noexcept;

private:
    netServerLoopAction Serve(std::unique_ptr<btkStreamSocket> socket);
    std::unique_ptr<btkStreamSocket> WaitForRequest(double timeout);

    friend struct loop;
    friend class netAsyncRequest;

    std::unique_ptr<btkAcceptSocket> m_socket;
    xstring m_server_name;
    bool m_is_registered;
    double m_time_slice = 0.01, m_patience = 10;
    netBaseServer_OnRequest_cb *m_on_request = nullptr;
    netBaseServer_OnAsyncRequest_cb *m_on_async_request = nullptr;
    netBaseServer_OnIdle_cb *m_on_idle = nullptr;
    std::unique_ptr<loop> m_loop;
};

namespace kel {

struct server_options {
    const char *address = nullptr;  // numeric; null: all of this machine
    bool is_registered = true;      // false: the name is for the permission lists alone
    bool needs_list = false;  // where the registry has no list of permissions, other machines are refused
    std::function<void(const char *peer)> refused = {};  // the lists do not let it in; in the loop's thread
};

}  // namespace kel

KEL_DECLARE_STRUCT(netServer)
class KELSTDMT_API netServer : public netBaseServer {
    KEL_CLASS(netServer, netBaseServer)
public:
    ~netServer() override;

    static netServer *Create(const char *server_name, int port);  // as netBaseServer::Create
    static netServer *Create(const char *server_name, int port, const kel::server_options &options);
    xstring getVersion() const { return m_version; }

    // As netBaseServer::Connect, and asks to be served: null also when the server went away, or did not
    // answer within the same time. Throws netXException when it refuses.
    static netSocketStream *Connect(netAddress *address, double timeout);
    // The time covers connection and answers. IsAlive: false for a server that cannot be reached; GetVersion
    // throws then, and Shutdown does nothing. Both throw when they are refused.
    static unsigned char IsAlive(netAddress *address, double timeout = INFINITE);
    static xstring GetVersion(netAddress *address, double timeout = INFINITE);
    static void Shutdown(netAddress *address, double timeout = INFINITE);

private:
    netServer(std::unique_ptr<btkAcceptSocket> socket, const char *server_name,
              const kel::server_options &options);
    netServerLoopAction PreprocessRequest(btkStreamSocket *socket) override;

    xstring m_version;
    bool m_needs_list;
    std::function<void(const char *)> m_refused;
};

// The name server of a host, null when none answers; a null string as host is this host. The caller owns it.
KELSTDMT_API nmsServ *getNameServer(xstring host);
KELSTDMT_API bool IsRegisteredWithNMS(nmsServ *connection, xstring name);
// Takes the connection over. The record goes when this process ends.
KELSTDMT_API bool RegisterWithNMS(nmsServ *connection, int port, xstring name);
