// TCP sockets, and the stream buffer over one.
//
// Addresses of both families are served alike: a listening socket takes connections over IPv4 and IPv6, and a
// peer over IPv4 is named in plain dotted form. Small writes go out at once (no delay); who wants them
// gathered writes through a buffer. A peer that is gone is a failed operation, never a signal. No descriptor
// made here is inherited by a new program.
//
// What fails answers so and leaves the last error: 64 the peer is gone, 87 a wrong argument, 109 broken, 1225
// refused, 1231 no way to the network, 1232 no way to the host, 11001 no such host, 10048 the port is taken,
// 1214 no address of this machine, 4 no more descriptors, 1460 time ran out. A socket belongs to one thread
// at a time.
#pragma once

#include <memory>

#include <kelstdmt/export.h>
#include <kelstdmt/vumrt.h>
#include <kelstdmt/vumrt_stream.h>

namespace kel::detail {
class urgent_input;
struct socket_access;

// An address of either family, without a system's layout; one of IPv4 stands in the first four bytes.
struct peer_address {
    unsigned char family = 0;  // 4, 6, or 0 for none
    unsigned char bytes[16] = {};
    unsigned short port = 0;
    bool operator==(const peer_address &) const = default;
};
}  // namespace kel::detail

class KELSTDMT_API btkSocket {
public:
    btkSocket() = default;
    virtual ~btkSocket();  // closes
    btkSocket(const btkSocket &) = delete;
    btkSocket &operator=(const btkSocket &) = delete;

    int GetHandle() const noexcept { return m_fd; }  // -1 when closed
    virtual void Close() noexcept;

    enum What : int { ForInput = 1, ForOutput = 2 };
    // Waits for input (a connection, bytes or the end) or for room, or for either: what of it is there, 0 on
    // failure, -1 when the time ran out. A peer that is gone is input and room: the operation tells.
    int Wait(const btkTimeval &timeout, int what);

protected:
    int m_fd = -1;
};

// A connection.
class KELSTDMT_API btkStreamSocket : public btkSocket {
public:
    btkStreamSocket();
    ~btkStreamSocket() override;
    void Close() noexcept override;

    // Tries the addresses of the host, a name or a numeric address, within the time-out: the next one when
    // the last has failed or has not answered for a quarter of a second. Only asking the system for the
    // addresses of a name is not held to the time-out; numeric ones and the name of this machine need no
    // asking.
    bool Connect(const char *host, int port, const btkTimeval &timeout);

    // Send: all of the bytes, waiting for room; how many were taken, fewer on failure. Recv: at least one,
    // waiting for it; 0 at the end, -1 on failure.
    int Send(const void *bytes, unsigned count);
    int Recv(void *bytes, unsigned room);
    // Without waiting, for servers of many connections. SendNow: how many there was room for, also 0, and -1
    // on failure. RecvNow: as Recv, and -1 with the last error 997 when there is nothing yet.
    int SendNow(const void *bytes, unsigned count);
    int RecvNow(void *bytes, unsigned room);

    // Out-of-band messages have four bytes (another count: 0 and error 87). They overtake what the peer has
    // not read yet; the ordinary bytes on both sides of one arrive whole and in order. One is under way at a
    // time: one sent before the peer has taken the last can put bytes of that one among the ordinary ones.
    // Recv takes the message that is there, without waiting for one to come; 0 when there is none. Of one
    // that is announced, the bytes that are still on their way are awaited for up to a second.
    static constexpr unsigned OutOfBandSize = 4;
    int SendOutOfBand(const void *bytes, unsigned count);
    int RecvOutOfBand(void *bytes, unsigned room);

    // Whether the peer's address is one of this machine's, whichever.
    bool IsPeerOnTheSameMachine() const;
    // The peer's numeric address without the port, such as "10.0.0.7" or "fe80::1"; "" when there is no peer.
    // Lives as long as the socket is open.
    const char *GetPeerAddrStr() const;
    int GetPeerPort() const noexcept { return m_peer.port; }

private:
    friend class btkAcceptSocket;
    friend struct kel::detail::socket_access;
    void Take(int fd, const kel::detail::peer_address &peer) noexcept;

    kel::detail::peer_address m_peer;
    mutable char m_peer_text[48] = "";
    std::unique_ptr<kel::detail::urgent_input> m_urgent;  // from the first message on
};

class KELSTDMT_API btkAcceptSocket : public btkSocket {
public:
    // On all addresses of this machine, or on the numeric one given. Port 0 lets the system choose. A port
    // that a listener left a moment ago is free.
    bool Listen(int port, const char *address = nullptr);
    ~btkAcceptSocket() override;
    void Close() noexcept override;
    int GetPort() const noexcept { return m_port; }  // the one it listens on; 0 when closed
    // Takes the next connection, without waiting for one. False with the last error set: 997 when there is
    // none.
    bool Accept(btkStreamSocket &connection);
    // Whether a connection whose peer has said nothing yet is there to be accepted at once, as it is unless
    // told otherwise, or kept by the system for about a second. Where the peers speak first, the latter
    // spares the server a wait for each of them.
    void SetTakeSilent(bool on) noexcept;

private:
    int m_port = 0;
};

// Reads ahead and gathers writes until it is full or flushed; reading flushes nothing. The socket must
// outlive it.
class KELSTDMT_API xsocketbuf : public xdescriptorbuf {
public:
    explicit xsocketbuf(btkStreamSocket &socket);
    ~xsocketbuf() override;  // flushes; the socket stays open

    // A new event that the caller owns: an out-of-band message waits. Like the others it may outlive the
    // buffer and is signalled from then on.
    btkBaseEvent *GetOutOfBandEvent();
};
