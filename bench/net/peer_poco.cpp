// POCO: SocketReactor on one thread, TCPServer with a pool of threads, Process.
#ifdef KELSTDMT_PEER_POCO_NET
#include <Poco/NObserver.h>
#include <Poco/Net/ParallelSocketAcceptor.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAcceptor.h>
#include <Poco/Net/SocketNotification.h>
#include <Poco/Net/SocketReactor.h>
#include <Poco/Net/StreamSocket.h>
#include <Poco/Net/TCPServer.h>
#include <Poco/Net/TCPServerConnection.h>
#include <Poco/Pipe.h>
#include <Poco/PipeStream.h>
#include <Poco/Process.h>
#include <Poco/StreamCopier.h>
#include <Poco/ThreadPool.h>
#include <unistd.h>

#include "work.h"

namespace bench {
namespace {

using namespace Poco::Net;

bool read_all(StreamSocket &socket, char *bytes, std::size_t count) {
    while (count) {
        const int came = socket.receiveBytes(bytes, static_cast<int>(count));
        if (came <= 0) return false;
        bytes += came;
        count -= static_cast<std::size_t>(came);
    }
    return true;
}

void write_all(StreamSocket &socket, const char *bytes, std::size_t count) {
    while (count) {
        const int gone = socket.sendBytes(bytes, static_cast<int>(count));
        if (gone <= 0) throw Gone();
        bytes += gone;
        count -= static_cast<std::size_t>(gone);
    }
}

Work s_work = Work::Echo;

// Belongs to itself, as the acceptor wants it.
class Connection {
public:
    Connection(StreamSocket &socket, SocketReactor &reactor) : m_socket(socket), m_reactor(reactor) {
        m_socket.setNoDelay(true);
        m_reactor.addEventHandler(m_socket, m_observer);
    }
    ~Connection() {
        m_reactor.removeEventHandler(m_socket, m_observer);
        m_socket.close();
    }

private:
    void readable(const Poco::AutoPtr<ReadableNotification> &) {
        char bytes[256];
        int came = 0;
        try {
            came = m_socket.receiveBytes(bytes, sizeof bytes);
            if (came > 0) {
                m_session.answer(bytes, static_cast<std::size_t>(came));
                write_all(m_socket, bytes, static_cast<std::size_t>(came));
            }
        } catch (const std::exception &) {
            came = 0;
        }
        if (came <= 0 || m_session.is_over(s_work)) delete this;
    }

    StreamSocket m_socket;
    SocketReactor &m_reactor;
    Poco::NObserver<Connection, ReadableNotification> m_observer{*this, &Connection::readable};
    Session m_session;
};

struct Peer {
    StreamSocket &socket;
    bool read(char *bytes, std::size_t count) { return read_all(socket, bytes, count); }
    void write(const char *bytes, std::size_t count) { write_all(socket, bytes, count); }
};

class Threaded : public TCPServerConnection {
public:
    using TCPServerConnection::TCPServerConnection;
    void run() override {
        socket().setNoDelay(true);
        Peer peer{socket()};
        serve_connection(s_work, peer);
    }
};

class Client : public PeerClient<Client> {
public:
    explicit Client(int port) : m_socket(SocketAddress("127.0.0.1", static_cast<Poco::UInt16>(port))) {
        m_socket.setNoDelay(true);
        greet();
    }
    void put(const char *bytes, std::size_t count) { write_all(m_socket, bytes, count); }
    bool get(char *bytes, std::size_t count) { return read_all(m_socket, bytes, count); }

private:
    StreamSocket m_socket;
};

int run_program() {
    return Poco::Process::launch(launched, {}).wait();
}

std::string read_program() {
    Poco::Pipe out;
    Poco::ProcessHandle process = Poco::Process::launch(speaker, {spoken}, nullptr, &out, nullptr);
    Poco::PipeInputStream stream(out);
    std::string text;
    Poco::StreamCopier::copyToString(stream, text);
    process.wait();
    return text;
}

}  // namespace

void poco_loop(Work work) {
    s_work = work;
    ServerSocket listener(SocketAddress("0.0.0.0", 0), 4'096);
    SocketReactor reactor;
    SocketAcceptor<Connection> acceptor(listener, reactor);
    announce(listener.address().port());
    reactor.run();
}

void poco_threads(Work work) {
    s_work = work;
    ServerSocket listener(SocketAddress("0.0.0.0", 0), 4'096);
    Poco::ThreadPool pool(2, 210);
    TCPServerParams *parameters = new TCPServerParams;  // the server's
    parameters->setMaxThreads(200);
    parameters->setMaxQueued(4'096);
    TCPServer server(new TCPServerConnectionFactoryImpl<Threaded>, pool, listener, parameters);
    server.start();
    announce(listener.address().port());
    for (;;)
        pause();
}

void add_poco(Suite &suite) {
    const Library poco = Library::Poco;
    add_connect<Client>(suite, poco, "Poco TCPServer", poco_threads);
    add_connect<Client>(suite, poco, "Poco SocketReactor", poco_loop);
    add_exchange<Client>(suite, poco, "Poco StreamSocket", poco_threads);
    add_crowd(suite, poco, "Poco SocketReactor", poco_loop);
    add_crowd(suite, poco, "Poco TCPServer", poco_threads);
    add_open(suite, poco, "Poco SocketReactor", poco_loop);
    add_requests(suite, poco, "Poco TCPServer", poco_threads);
    add_bulk<Client>(suite, poco, "Poco StreamSocket", poco_threads);
    add_launch(suite, poco, "Poco::Process", run_program);
    add_output(suite, poco, "Poco::Process", read_program);
}

}  // namespace bench
#endif
