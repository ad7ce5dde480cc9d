// A request to a name server, as both clients make it: the plain functions over a socket, the module over a
// stream. What is sent and what comes back, how long that may take and what is said of a failure stand here
// once.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include <kelstdmt/vumrt_names.h>

namespace kel::detail {

struct name_outcome {
    name_status status = name_status::success;
    bool told_by_server = false;

    bool is_success() const noexcept { return status == name_status::success; }
};

// Where requests go, and the port of the last one.
struct name_host {
    std::string name;
    bool is_local = false;
    int port = 0;
};

// One line, with its end.
std::string text_of(const name_outcome &outcome, const name_host &host);

// The seconds left for the next bytes. They are counted anew only when a good many have come, so that a peer
// that sends them one by one does not last for ever.
class name_patience {
public:
    double left() const;
    void count(std::size_t bytes);

private:
    std::chrono::steady_clock::time_point m_since = std::chrono::steady_clock::now();
    std::size_t m_bytes = 0;
};

// What an exchange needs of its connection. No call lasts longer than the seconds given.
class name_connection {
public:
    static constexpr std::size_t piece_size = 4096;

    name_connection() = default;
    virtual ~name_connection();
    name_connection(const name_connection &) = delete;
    name_connection &operator=(const name_connection &) = delete;

    virtual bool connect(const name_host &host) = 0;
    // All of the bytes, at most piece_size.
    virtual bool send(const char *bytes, std::size_t count, double seconds) = 0;
    // How many have come, at most room; 0 at the end, on failure and when the time ran out.
    virtual std::size_t receive(char *bytes, std::size_t room, double seconds) = 0;
};

struct name_answer {
    int count = 0;                                  // of records deleted or found
    std::function<void(name_record &&)> on_record;  // each record, as it comes
};

// One request on a connection of its own. The record is for those that send one. A failure may come after
// records.
name_outcome exchange(name_connection &connection, name_host &host, name_request request,
                      const name_record *record, name_answer &answer);

}  // namespace kel::detail
