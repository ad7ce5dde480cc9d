// One request to a name server and its answer.
#include <algorithm>
#include <cstdlib>
#include <iostream>

#include <kelstdmt/vumtext.h>

#include "runtime/names.h"

namespace kel {

int name_service_port_of_environment() {
    dsString text;
    if (!Getenv("ORVNMSPORT", text)) return name_service_port;
    if (const int port = std::atoi(text.Str()); port != 0) return port;
    // In one piece, also when several threads connect.
    const std::string line = "ERROR  : value of ORVNMSPORT is invalid, using the port " +
                             std::to_string(name_service_port) + ".\n";
    std::cerr << line << std::flush;
    return name_service_port;
}

}  // namespace kel

namespace kel::detail {

namespace {

constexpr name_outcome broke_off{name_status::no_connection};
constexpr std::size_t int_size = 4;
// What a name server may answer in all; whoever has more to say is no friend.
constexpr std::size_t answer_size = std::size_t{256} << 20;

std::string text_of(name_status status, const name_host &host) {
    switch (status) {
        case name_status::no_connection:
            return "could not connect to NameServer. (" + (host.is_local ? "LOCALHOST" : host.name) +
                   (host.port != 0 ? ", port " + std::to_string(host.port) : "") + ")";
        case name_status::not_recognized:
            return "request is not recognized.";
        case name_status::already_exists:
            return "this record(s) already exists.";
        case name_status::not_found:
            return "could not find matching record.";
        case name_status::not_authorized:
            return "not authorized to perform this request.";
        default:
            return "internal error occured.";
    }
}

bool sends_record(name_request request) {
    return request == name_request::add || request == name_request::remove || request == name_request::query;
}

// The bytes of an answer, each read once.
class answer_reader {
public:
    explicit answer_reader(name_connection &connection) : m_connection(connection) {}

    bool take(char *bytes, std::size_t count) {
        for (std::size_t at = 0; at < count; ++at, ++m_at) {
            if (m_at == m_end && !fill()) return false;
            bytes[at] = m_room[m_at];
        }
        return true;
    }
    bool take_int(int &value) {
        char bytes[int_size];
        if (!take(bytes, int_size)) return false;
        value = int_at(bytes);
        return true;
    }
    bool take_record(name_record_reader &reader) {
        do {
            if (m_at == m_end && !fill()) return false;
            m_at += reader.feed(m_room + m_at, m_end - m_at);
        } while (!reader.is_whole() && !reader.is_malformed());
        return reader.is_whole();
    }

private:
    bool fill() {
        m_at = 0;
        m_end = m_all < answer_size ? m_connection.receive(m_room, sizeof m_room, m_patience.left()) : 0;
        m_all += m_end;
        m_patience.count(m_end);
        return m_end > 0;
    }

    name_connection &m_connection;
    name_patience m_patience;
    char m_room[16384];
    std::size_t m_at = 0, m_end = 0, m_all = 0;
};

bool send_all(name_connection &connection, const std::string &bytes) {
    name_patience patience;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t count = std::min(bytes.size() - at, name_connection::piece_size);
        if (!connection.send(bytes.data() + at, count, patience.left())) return false;
        patience.count(count);
        at += count;
    }
    return true;
}

bool take_records(answer_reader &reader, int count, name_answer &answer) {
    if (count < 0) return false;
    for (name_record_reader record; count > 0; --count) {
        if (!reader.take_record(record)) return false;
        name_record taken = record.take();
        if (answer.on_record) answer.on_record(std::move(taken));
    }
    return true;
}

// What follows the status byte.
bool take_rest(answer_reader &reader, name_request request, bool is_success, name_answer &answer) {
    switch (request) {
        case name_request::remove:
            return reader.take_int(answer.count) && answer.count >= 0;
        case name_request::query:
            return !is_success ||
                   (reader.take_int(answer.count) && take_records(reader, answer.count, answer));
        case name_request::version:
            return !is_success || take_records(reader, 1, answer);
        default:
            return true;
    }
}

}  // namespace

std::string text_of(const name_outcome &outcome, const name_host &host) {
    const char *origin = outcome.told_by_server ? "NameServer on client request: " : "NMS client: ";
    return "ERROR  : " + (origin + text_of(outcome.status, host)) + "\n";
}

double name_patience::left() const {
    const std::chrono::duration<double> gone = std::chrono::steady_clock::now() - m_since;
    return name_service_patience - gone.count();
}

void name_patience::count(std::size_t bytes) {
    m_bytes += bytes;
    if (m_bytes < name_connection::piece_size) return;
    m_bytes = 0;
    m_since = std::chrono::steady_clock::now();
}

name_connection::~name_connection() = default;

name_outcome exchange(name_connection &connection, name_host &host, name_request request,
                      const name_record *record, name_answer &answer) {
    answer.count = 0;
    host.port = name_service_port_of_environment();
    if (!connection.connect(host)) return broke_off;
    std::string bytes;
    append_int(bytes, name_service_greeting);
    bytes += static_cast<char>(request);
    if (sends_record(request) && (!record || !append_record(bytes, *record))) return {name_status::not_sent};
    char status = 0;
    answer_reader reader(connection);
    if (!send_all(connection, bytes) || !reader.take(&status, 1)) return broke_off;
    const name_outcome told{static_cast<name_status>(status), status != 0};
    if (take_rest(reader, request, told.is_success(), answer)) return told;
    answer.count = 0;
    return told.is_success() ? broke_off : told;
}

}  // namespace kel::detail
