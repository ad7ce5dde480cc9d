// Qt: QTcpServer on its event loop and with a pool of threads, QTcpSocket, QProcess.
#ifdef KELSTDMT_PEER_QT_NETWORK
#include <sys/socket.h>
#include <QCoreApplication>
#include <QHostAddress>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThreadPool>

#include "work.h"

namespace bench {
namespace {

void no_delay(QTcpSocket &socket) {
    socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

struct Peer {
    QTcpSocket &socket;
    bool read(char *bytes, std::size_t count) {
        while (count) {
            if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(-1)) return false;
            const qint64 came = socket.read(bytes, static_cast<qint64>(count));
            if (came < 0) return false;
            bytes += came;
            count -= static_cast<std::size_t>(came);
        }
        return true;
    }
    // No more waits in Qt's buffer than one block.
    bool write(const char *bytes, std::size_t count) {
        if (socket.write(bytes, static_cast<qint64>(count)) != static_cast<qint64>(count)) return false;
        socket.flush();
        while (socket.bytesToWrite() > 0)
            if (!socket.waitForBytesWritten(-1)) return false;
        return true;
    }
};

void converse(QTcpSocket *socket, Work work) {
    no_delay(*socket);
    auto session = std::make_shared<Session>();
    auto answer = [socket, session, work] {
        char bytes[256];
        const qint64 came = socket->read(bytes, sizeof bytes);
        if (came <= 0) return;
        session->answer(bytes, static_cast<std::size_t>(came));
        socket->write(bytes, came);
        socket->flush();
        if (session->is_over(work)) socket->disconnectFromHost();
    };
    QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    QObject::connect(socket, &QTcpSocket::readyRead, socket, answer);
    if (socket->bytesAvailable()) answer();
}

class Threaded : public QTcpServer {
public:
    explicit Threaded(Work work) : m_work(work) { m_pool.setMaxThreadCount(200); }

protected:
    void incomingConnection(qintptr descriptor) override {
        m_pool.start([descriptor, work = m_work] {
            QTcpSocket socket;
            socket.setSocketDescriptor(descriptor);
            no_delay(socket);
            Peer peer{socket};
            serve_connection(work, peer);
        });
    }

private:
    QThreadPool m_pool;
    Work m_work;
};

class Client : public PeerClient<Client> {
public:
    explicit Client(int port) {
        m_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), static_cast<quint16>(port));
        if (!m_socket.waitForConnected(-1)) throw Gone();
        no_delay(m_socket);
        greet();
    }
    void put(const char *bytes, std::size_t count) {
        if (!Peer{m_socket}.write(bytes, count)) throw Gone();
    }
    bool get(char *bytes, std::size_t count) { return Peer{m_socket}.read(bytes, count); }

private:
    QTcpSocket m_socket;
};

int run_program() {
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.start(launched, QStringList());
    return process.waitForFinished(-1) ? process.exitCode() : -1;
}

std::string read_program() {
    QProcess process;
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.start(speaker, {spoken});
    process.waitForFinished(-1);
    return process.readAllStandardOutput().toStdString();
}

// Qt's queue of 50 connections is too short for a hundred clients, who would wait a second for their turn.
void serve_for_good(QTcpServer &server) {
    server.listen(QHostAddress::Any, 0);
    listen(static_cast<int>(server.socketDescriptor()), SOMAXCONN);
    announce(server.serverPort());
    QCoreApplication::exec();
}

struct Application {
    int count = 1;
    char name[4] = "net";
    char *words[2] = {name, nullptr};
    QCoreApplication application{count, words};
};

}  // namespace

void qt_loop(Work work) {
    Application application;
    QTcpServer server;
    server.setMaxPendingConnections(4'096);
    QObject::connect(&server, &QTcpServer::newConnection, &server, [&] {
        while (QTcpSocket *socket = server.nextPendingConnection())
            converse(socket, work);
    });
    serve_for_good(server);
}

void qt_threads(Work work) {
    Application application;
    Threaded server(work);
    serve_for_good(server);
}

void add_qt(Suite &suite) {
    const Library qt = Library::Qt;
    add_connect<Client>(suite, qt, "QTcpServer", qt_loop);
    add_exchange<Client>(suite, qt, "QTcpSocket", qt_threads);
    add_crowd(suite, qt, "QTcpServer", qt_loop);
    add_crowd(suite, qt, "QTcpServer, QThreadPool", qt_threads);
    add_open(suite, qt, "QTcpServer", qt_loop);
    add_requests(suite, qt, "QTcpServer, QThreadPool", qt_threads);
    add_bulk<Client>(suite, qt, "QTcpSocket", qt_threads);
    add_launch(suite, qt, "QProcess", run_program);
    add_output(suite, qt, "QProcess", read_program);
}

}  // namespace bench
#endif
