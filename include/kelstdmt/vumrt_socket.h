// TCP sockets, and the stream buffer over one.
//
// Addresses of both families are served alike: a listening socket takes connections over IPv4 and IPv6, and a
// peer over IPv4 is named in plain dotted form. Small writes go out at once (no delay); who wants them
// gathered writes through a buffer. A peer that is gone is a failed operation, never a signal. No descriptor
// made here is inherited by a new program.
//
// What fails answers so and leaves the last error: 64 the peer is gone, 87 a wrong argument, 109 broken, 1225
// refused, 1231 no way to the host, 1232 no way to its network, 11001 no such host, 10048 the port is taken,
// 4 no more descriptors, 1460 time ran out. A socket belongs to one thread at a time.
#pragma once

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_stream.h>

class KELSTDMT_API btkSocket {
public:
    btkSocket() = default;
    virtual ~btkSocket();  // closes
    btkSocket(const btkSocket &) = delete;
    btkSocket &operator=(const btkSocket &) = delete;

    int GetHandle() const noexcept { return m_fd; }  // -1 when closed
    void Close() noexcept;

    enum What : int { ForInput = 1, ForOutput = 2 };
    // Waits for input (a connection, bytes or the end) or for room: what was asked for when it is there, 0 on
    // failure, -1 when the time ran out.
    int Wait(const btkTimeval &timeout, int what);

protected:
    int m_fd = -1;
};

// A connection.
class KELSTDMT_API btkStreamSocket : public btkSocket {
public:
    // Tries the addresses of the host, a name or a numeric address, one after the other within the time-out.
    bool Connect(const char *host, int port, const btkTimeval &timeout);

    // Send: all of the bytes, waiting for room; how many were taken, fewer on failure. Recv: at least one,
    // waiting for it; 0 at the end, -1 on failure.
    int Send(const void *bytes, unsigned count);
    int Recv(void *bytes, unsigned room);
    // Without waiting, for servers of many connections. SendNow: how many there was room for, also 0.
    // RecvNow: as Recv, and -1 with the last error 997 when there is nothing yet.
    int SendNow(const void *bytes, unsigned count);
    int RecvNow(void *bytes, unsigned room);
    // Ahead of what the peer has not read yet. One message of up to 16 bytes is under way at a time: one sent
    // before the peer has taken the last puts bytes of that one among the ordinary ones. Recv takes the
    // message that is there, without waiting for one to come; 0 when there is none.
    int SendOutOfBand(const void *bytes, unsigned count);
    int RecvOutOfBand(void *bytes, unsigned room);

    // Whether the peer's address is one of this machine's, whichever.
    bool IsPeerOnTheSameMachine() const;
    // The peer's numeric address without the port, such as "10.0.0.7" or "fe80::1"; "" when there is no peer.
    // Lives as long as the socket is open.
    const char *GetPeerAddrStr() const;
    int GetPeerPort() const noexcept;

private:
    friend class btkAcceptSocket;
    friend class xsocketbuf;
    void Take(int fd);

    mutable char m_peer[64] = "";
};

class KELSTDMT_API btkAcceptSocket : public btkSocket {
public:
    // On all addresses of this machine, or on the numeric one given. Port 0 lets the system choose. A port
    // that a listener left a moment ago is free.
    bool Listen(int port, const char *address = nullptr);
    int GetPort() const noexcept { return m_port; }  // the one it listens on; 0 when closed
    // Takes the next connection, without waiting for one. False with the last error set: 997 when there is
    // none.
    bool Accept(btkStreamSocket &connection);

private:
    int m_port = 0;
};

// Reads ahead and gathers writes until it is full or flushed; reading flushes nothing. The socket must
// outlive it.
class KELSTDMT_API xsocketbuf : public xdescriptorbuf {
public:
    explicit xsocketbuf(btkStreamSocket &socket);
    ~xsocketbuf() override;  // flushes; the socket stays open
};
