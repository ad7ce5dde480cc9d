// Boost.Asio: an io_context on one thread, and blocking sockets on threads.
#ifdef KELSTDMT_PEER_ASIO
#include <utility>  // which Asio forgets
//
#include <boost/asio.hpp>
#include <thread>

#include "work.h"

namespace bench {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Failed = boost::system::error_code;

tcp::acceptor listener(asio::io_context &context) {
    tcp::acceptor acceptor(context, tcp::endpoint(tcp::v4(), 0));
    announce(acceptor.local_endpoint().port());
    return acceptor;
}

class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(tcp::socket socket, Work work) : m_socket(std::move(socket)), m_work(work) {
        m_socket.set_option(tcp::no_delay(true));
    }
    void read() {
        m_socket.async_read_some(asio::buffer(m_bytes),
                                 [self = shared_from_this()](Failed failed, std::size_t count) {
                                     if (!failed) self->write(count);
                                 });
    }

private:
    void write(std::size_t count) {
        m_session.answer(m_bytes, count);
        asio::async_write(m_socket, asio::buffer(m_bytes, count),
                          [self = shared_from_this()](Failed failed, std::size_t) {
                              if (!failed && !self->m_session.is_over(self->m_work)) self->read();
                          });
    }

    tcp::socket m_socket;
    Work m_work;
    Session m_session;
    char m_bytes[256];
};

void accept_next(tcp::acceptor &acceptor, Work work) {
    acceptor.async_accept([&acceptor, work](Failed failed, tcp::socket socket) {
        if (!failed) std::make_shared<Connection>(std::move(socket), work)->read();
        accept_next(acceptor, work);
    });
}

struct Peer {
    tcp::socket &socket;
    bool read(char *bytes, std::size_t count) {
        Failed failed;
        return asio::read(socket, asio::buffer(bytes, count), failed) == count;
    }
    void write(const char *bytes, std::size_t count) {
        Failed failed;
        asio::write(socket, asio::buffer(bytes, count), failed);
    }
};

class Client : public PeerClient<Client> {
public:
    explicit Client(int port) {
        m_socket.connect(tcp::endpoint(asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)));
        m_socket.set_option(tcp::no_delay(true));
        greet();
    }
    void put(const char *bytes, std::size_t count) { asio::write(m_socket, asio::buffer(bytes, count)); }
    bool get(char *bytes, std::size_t count) { return Peer{m_socket}.read(bytes, count); }

private:
    static asio::io_context &context() {
        static asio::io_context one;
        return one;
    }
    tcp::socket m_socket{context()};
};

}  // namespace

void asio_loop(Work work) {
    asio::io_context context(1);
    tcp::acceptor acceptor = listener(context);
    accept_next(acceptor, work);
    context.run();
}

void asio_threads(Work work) {
    asio::io_context context;
    tcp::acceptor acceptor = listener(context);
    for (;;)
        std::thread([socket = acceptor.accept(), work]() mutable {
            socket.set_option(tcp::no_delay(true));
            Peer peer{socket};
            serve_connection(work, peer);
        }).detach();
}

void add_asio(Suite &suite) {
    const Library asio = Library::Asio;
    add_connect<Client>(suite, asio, "asio, async_accept", asio_loop);
    add_exchange<Client>(suite, asio, "asio, blocking", asio_threads);
    add_crowd(suite, asio, "asio, io_context", asio_loop);
    add_open(suite, asio, "asio, io_context", asio_loop);
    add_requests(suite, asio, "asio, std::thread", asio_threads);
    add_bulk<Client>(suite, asio, "asio, blocking", asio_threads);
}

}  // namespace bench
#endif
