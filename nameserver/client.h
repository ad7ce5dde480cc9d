// One connection of a name server: its socket, and what is under way between that and the dialog. It never
// waits for its peer. While an answer has not gone out, nothing more is read, so a peer that does not read
// its answers stands in nobody's way but its own.
#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include <kelstdmt/vumrt_socket.h>

#include "dialog.h"
#include "event_loop.h"

namespace kel::detail {

class client;
using client_list = std::list<std::unique_ptr<client>>;
using moment = std::chrono::steady_clock::time_point;

class client_host : public dialog_host {
public:
    virtual event_loop &loop() = 0;
    virtual void moved(client &client) = 0;  // bytes went in or out
    virtual void drop(client &client) = 0;   // deletes it
};

class client final : private dialog::other_side {
public:
    client(client_host &host, std::unique_ptr<btkStreamSocket> socket);
    ~client();

    // Begins to wait for requests; some may be there already. May drop itself.
    void begin();

    bool holds_records() const noexcept { return m_dialog.holds_records(); }

    // The host's own.
    client_list::iterator place;
    moment last_moved;

private:
    class side;

    bool is_local() override { return m_socket->IsPeerOnTheSameMachine(); }
    void go_on(bool may_read);
    bool read();
    bool work();
    bool send();
    void gather();
    bool await(side &wanted);

    client_host &m_host;
    std::unique_ptr<btkStreamSocket> m_socket;
    dialog m_dialog;
    std::unique_ptr<side> m_input, m_output;
    side *m_awaited = nullptr;
    std::string m_requests;  // bytes that the dialog has not used yet, from m_used on
    std::size_t m_used = 0;
    std::string m_answers;  // bytes that have not gone out yet, from m_sent on
    std::size_t m_sent = 0;
};

}  // namespace kel::detail
