// A connection as a stream, the address of a server, and what goes wrong between them.
#pragma once

#include <memory>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/vumrt_socket.h>
#include <kelstdmt/xexception.h>
#include <kelstdmt/xstring.h>

enum netError : int { netNameServiceProblem, netInvalidAddress, netServerNotFound, netConnectionRefused };
KEL_DECLARE_ENUM(netError)
// Thrown beside the declared names: the listening socket failed.
constexpr netError netSocketError = static_cast<netError>(4);

KEL_DECLARE_STRUCT(netXException)
class KELSTDMT_API netXException : public xthrowable {
    KEL_CLASS(netXException, xthrowable)
public:
    static netXException *Create(netError error, const char *message);
    [[noreturn]] static void Throw(netError error, const char *message);

    netError getError() const noexcept { return m_error; }
    xstring getMsg() const { return m_message; }

private:
    netXException(netError error, const char *message) : m_error(error), m_message(message) {}

    netError m_error;
    xstring m_message;
};

// Where a server is: on a host, at a port or under a name.
KEL_DECLARE_STRUCT(netAddress)
class KELSTDMT_API netAddress : public xobject {
    KEL_CLASS(netAddress, xobject)
public:
    // xstrNullStr and a null pointer as host are this host. The caller owns the result.
    static netAddress *Create(int port, const char *host);
    static netAddress *Create(const char *server_name, const char *host);

    xstring getHostName() const { return m_host; }
    int getPortN() const noexcept { return m_port; }         // 0: not known yet
    xstring getServerName() const { return m_server_name; }  // the null string for an address by port
    void setPortN(int port) noexcept { m_port = port; }

private:
    static netAddress *Create(xstring host, int port, xstring server_name);
    netAddress(xstring host, int port, xstring server_name) noexcept
        : m_host(std::move(host)), m_port(port), m_server_name(std::move(server_name)) {}

    xstring m_host;
    int m_port;
    xstring m_server_name;
};

namespace kel::detail {
struct socket_stream_access;
}

// A connection; its values travel in XDR encoding. What is written is gathered until Flush, Close or a full
// buffer; reading flushes nothing.
KEL_DECLARE_STRUCT(netSocketStream)
class KELSTDMT_API netSocketStream : public ioStream {
    KEL_CLASS(netSocketStream, ioStream)
public:
    explicit netSocketStream(std::unique_ptr<btkStreamSocket> socket);
    ~netSocketStream() override;

    // A new event of type 2, owned by the caller: an out-of-band int waits.
    ioEvent *OutOfBandEvent();
    // An int that overtakes what the peer has not read yet. One is under way at a time: the next is sent when
    // the peer has answered the last. False when the peer is gone.
    unsigned char WriteOutOfBand(int value);
    int ReadOutOfBand();  // the nil int when none is there

    int GetInheritHandle() override;  // the socket; -1 once closed
    xstring getPeer() const;          // the peer's numeric address; "" once closed
    bool IsPeerOnTheSameMachine() const;

protected:
    void OnClose() override;

private:
    friend struct kel::detail::socket_stream_access;
    struct connection;
    explicit netSocketStream(std::unique_ptr<connection> owned);

    std::unique_ptr<connection> m_connection;  // null once closed
};
