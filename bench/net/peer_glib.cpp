// GLib: GSocketService on its main loop, GThreadedSocketService, g_spawn.
#ifdef KELSTDMT_PEER_GIO
#include <gio/gio.h>

#include <cstring>

#include "work.h"

namespace bench {
namespace {

Work s_work = Work::Echo;

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

void no_delay(GSocketConnection *connection) {
    g_socket_set_option(g_socket_connection_get_socket(connection), 6 /* TCP */, 1 /* no delay */, 1,
                        nullptr);
}

// Belongs to its source on the main loop.
struct Connection {
    Owned<GSocketConnection> connection;
    Session session;
};

gboolean readable(GSocket *socket, GIOCondition, gpointer data) {
    auto *connection = static_cast<Connection *>(data);
    char bytes[256];
    const gssize came = g_socket_receive(socket, bytes, sizeof bytes, nullptr, nullptr);
    if (came <= 0) return G_SOURCE_REMOVE;
    connection->session.answer(bytes, static_cast<std::size_t>(came));
    g_socket_send(socket, bytes, static_cast<gsize>(came), nullptr, nullptr);
    return connection->session.is_over(s_work) ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

gboolean incoming(GSocketService *, GSocketConnection *connection, GObject *, gpointer) {
    no_delay(connection);
    g_object_ref(connection);
    GSource *source = g_socket_create_source(g_socket_connection_get_socket(connection), G_IO_IN, nullptr);
    g_source_set_callback(source, G_SOURCE_FUNC(readable),
                          new Connection{Owned<GSocketConnection>(connection), {}},
                          [](gpointer data) { delete static_cast<Connection *>(data); });
    g_source_attach(source, nullptr);
    g_source_unref(source);
    return TRUE;
}

struct Peer {
    GInputStream *in;
    GOutputStream *out;
    explicit Peer(GSocketConnection *connection)
        : in(g_io_stream_get_input_stream(G_IO_STREAM(connection))),
          out(g_io_stream_get_output_stream(G_IO_STREAM(connection))) {}
    bool read(char *bytes, std::size_t count) {
        gsize came = 0;
        return g_input_stream_read_all(in, bytes, count, &came, nullptr, nullptr) && came == count;
    }
    bool write(const char *bytes, std::size_t count) {
        return g_output_stream_write_all(out, bytes, count, nullptr, nullptr, nullptr);
    }
};

gboolean run(GThreadedSocketService *, GSocketConnection *connection, GObject *, gpointer) {
    no_delay(connection);
    Peer peer(connection);
    serve_connection(s_work, peer);
    return TRUE;
}

void serve_for_good(GSocketService *service) {
    g_socket_listener_set_backlog(G_SOCKET_LISTENER(service), 4'096);
    announce(g_socket_listener_add_any_inet_port(G_SOCKET_LISTENER(service), nullptr, nullptr));
    g_socket_service_start(service);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}

class Client : public PeerClient<Client> {
public:
    explicit Client(int port)
        : m_connection(g_socket_client_connect_to_host(client(), "127.0.0.1", static_cast<guint16>(port),
                                                       nullptr, nullptr)) {
        if (!m_connection) throw Gone();
        no_delay(m_connection.get());
        greet();
    }
    void put(const char *bytes, std::size_t count) {
        if (!Peer(m_connection.get()).write(bytes, count)) throw Gone();
    }
    bool get(char *bytes, std::size_t count) { return Peer(m_connection.get()).read(bytes, count); }

private:
    // Without a look at the settings for proxies, which would be somebody else's work.
    static GSocketClient *client() {
        static GSocketClient *one = [] {
            GSocketClient *made = g_socket_client_new();
            g_socket_client_set_enable_proxy(made, FALSE);
            return made;
        }();
        return one;
    }
    Owned<GSocketConnection> m_connection;
};

int run_program(GSpawnFlags flags) {
    char program[32];
    std::strcpy(program, launched);
    char *words[] = {program, nullptr};
    int code = -1;
    g_spawn_sync(nullptr, words, nullptr, flags, nullptr, nullptr, nullptr, nullptr, &code, nullptr);
    return code;
}

std::string read_program(GSpawnFlags flags) {
    char program[32], word[32];
    std::strcpy(program, speaker);
    std::strcpy(word, spoken);
    char *words[] = {program, word, nullptr}, *out = nullptr;
    int code = -1;
    g_spawn_sync(nullptr, words, nullptr, flags, nullptr, nullptr, &out, nullptr, &code, nullptr);
    std::string text = out ? out : "";
    g_free(out);
    return text;
}

}  // namespace

void glib_loop(Work work) {
    s_work = work;
    GSocketService *service = g_socket_service_new();
    g_signal_connect(service, "incoming", G_CALLBACK(incoming), nullptr);
    serve_for_good(service);
}

void glib_threads(Work work) {
    s_work = work;
    GSocketService *service = g_threaded_socket_service_new(200);
    g_signal_connect(service, "run", G_CALLBACK(run), nullptr);
    serve_for_good(service);
}

void add_glib(Suite &suite) {
    const Library glib = Library::Glib;
    add_connect<Client>(suite, glib, "GSocketService", glib_loop);
    add_exchange<Client>(suite, glib, "GSocketConnection", glib_threads);
    add_crowd(suite, glib, "GSocketService", glib_loop);
    add_crowd(suite, glib, "GThreadedSocketService", glib_threads);
    add_open(suite, glib, "GSocketService", glib_loop);
    add_requests(suite, glib, "GThreadedSocketService", glib_threads);
    add_bulk<Client>(suite, glib, "GSocketConnection", glib_threads);
    add_launch(suite, glib, "g_spawn_sync", [] { return run_program(G_SPAWN_DEFAULT); });
    add_launch(suite, glib, "g_spawn_sync, all inherited",
               [] { return run_program(G_SPAWN_LEAVE_DESCRIPTORS_OPEN); });
    add_output(suite, glib, "g_spawn_sync", [] { return read_program(G_SPAWN_DEFAULT); });
    add_output(suite, glib, "g_spawn_sync, all inherited",
               [] { return read_program(G_SPAWN_LEAVE_DESCRIPTORS_OPEN); });
}

}  // namespace bench
#endif
