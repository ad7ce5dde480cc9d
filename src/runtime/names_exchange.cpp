// The question goes out in one piece, and the answer is read ahead, since nothing follows it.
#include "runtime/names_exchange.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/vumrt_socket.h>
#include <kelstdmt/vumtext.h>

#include "runtime/names_bounds.h"
#include "runtime/names_status.h"
#include "runtime/trace.h"

namespace {

std::atomic<double> patience{30};  // seconds

constexpr std::int64_t no_limit = std::int64_t{1} << 30;  // seconds

btkTimeval time_of(double seconds) {
    btkTimeval time;
    time.init(seconds);
    return time;
}

}  // namespace

namespace kel {

double name_service_patience() noexcept {
    return patience;
}
void set_name_service_patience(double seconds) noexcept {
    patience = seconds;
}

int name_service_port_of_environment() {
    dsString value;
    if (!Getenv("ORVNMSPORT", value)) return name_service_port;
    // As atoi, but defined for what an int does not hold.
    const long port = std::strtol(value.Str(), nullptr, 10);
    if (port != 0 && port >= INT_MIN && port <= INT_MAX) return static_cast<int>(port);
    std::fprintf(stderr, "ERROR  : value of ORVNMSPORT is invalid, using the port %d.\n", name_service_port);
    return name_service_port;
}

}  // namespace kel

namespace kel::system {

unsigned associated_process(unsigned told) {
    return told == 1 ? static_cast<unsigned>(Process_GetCurrentId()) : told;
}

// A request that is under way. Every read is false when the name server is gone, silent for too long, or
// says what it should not.
class asked_name_server::exchange {
public:
    explicit exchange(asked_name_server &server) : m_server(server) {}

    // Sends the question and reads the status of the answer.
    name_outcome ask(name_request request, const name_record *record = nullptr) {
        std::string question;
        append_int(question, name_service_greeting);
        question += static_cast<char>(request);
        if (record && !append_record(question, *record)) return m_server.fails(name_status::not_sent);
        const char *host = m_server.m_local ? "localhost" : m_server.m_host.c_str();
        const char *name =
            record && !record->fields.empty() ? record->fields.front().second.c_str() : nullptr;
        m_server.m_port = name_service_port_of_environment();
        trace(trace_area::names, "asks ", host, " port ", m_server.m_port, ": ", name_request_text(request),
              name ? " of " : "", name);
        if (!m_socket.Connect(host, m_server.m_port, btkTimeval(no_limit, 0)))
            return m_server.fails(name_status::no_connection);
        if (!send(question))
            return m_server.fails(record ? name_status::not_sent : name_status::no_connection);
        m_bounds.begin_answer();
        if (!await(1)) return m_server.fails(name_status::no_connection);
        const int status = static_cast<unsigned char>(m_bytes[m_at++]);
        trace(trace_area::names, host, " answers ", name_request_text(request), " with status ", status);
        return {status, 1};
    }

    // False for a negative number, too.
    bool read_count(int &count) {
        if (!await(4)) return false;
        count = int_at(m_bytes + m_at);
        m_at += 4;
        return count >= 0;
    }

    bool read(name_record &record) {
        name_record_reader reader;
        std::size_t size = 0;
        while (!reader.is_whole()) {
            if (m_at == m_end && !await(1)) return false;
            const std::size_t used = reader.feed(m_bytes + m_at, m_end - m_at);
            m_at += used;
            size += used;
            if (reader.is_malformed()) return false;
        }
        record = reader.take();
        return m_bounds.allow_record(size);
    }

private:
    bool send(std::string_view question) {
        while (!question.empty()) {
            const std::string_view piece = question.substr(0, kel::detail::name_bounds::piece);
            const auto size = static_cast<unsigned>(piece.size());
            if (m_socket.Wait(time_of(m_bounds.seconds_left()), btkSocket::ForOutput) !=
                    btkSocket::ForOutput ||
                m_socket.Send(piece.data(), size) != static_cast<int>(size))
                return false;
            m_bounds.moved(size);
            question.remove_prefix(size);
        }
        return true;
    }
    // Sees to it that so many bytes, at most a handful, wait in the buffer.
    bool await(std::size_t count) {
        if (m_end - m_at >= count) return true;
        std::memmove(m_bytes, m_bytes + m_at, m_end - m_at);
        m_end -= m_at;
        m_at = 0;
        while (m_end < count) {
            if (m_socket.Wait(time_of(m_bounds.seconds_left()), btkSocket::ForInput) != btkSocket::ForInput)
                return false;
            const int got = m_socket.Recv(m_bytes + m_end, static_cast<unsigned>(sizeof m_bytes - m_end));
            if (got <= 0) return false;
            m_bounds.moved(static_cast<std::size_t>(got));
            m_end += static_cast<std::size_t>(got);
        }
        return true;
    }

    asked_name_server &m_server;
    btkStreamSocket m_socket;
    kel::detail::name_bounds m_bounds;
    char m_bytes[16384];
    std::size_t m_at = 0, m_end = 0;
};

name_outcome asked_name_server::fails(name_status code) const {
    const name_outcome outcome{static_cast<int>(code), 0};
    const std::string text = name_status_text(outcome.code, outcome.origin, m_host.c_str(), m_local, m_port);
    trace(trace_area::names, text.c_str());
    return outcome;
}

name_outcome asked_name_server::ping() {
    const name_outcome outcome = exchange(*this).ask(name_request::ping);
    // A name server that answers but does not greet is as good as none.
    return outcome.is_success() || outcome.origin == 0 ? outcome : fails(name_status::no_connection);
}

name_outcome asked_name_server::add(const name_record &record) {
    if (record.process != 0 && !m_local) return fails(name_status::not_authorized);
    return exchange(*this).ask(name_request::add, &record);
}

name_outcome asked_name_server::remove(const name_record &wanted, int &count) {
    exchange removal(*this);
    const name_outcome outcome = removal.ask(name_request::remove, &wanted);
    // The number follows whatever the status is.
    const bool is_counted = outcome.origin == 1 && removal.read_count(count);
    if (!is_counted) count = 0;
    return outcome.is_success() && !is_counted ? fails(name_status::no_connection) : outcome;
}

name_outcome asked_name_server::query(const name_record &wanted, std::vector<name_record> &found) {
    found.clear();
    exchange query(*this);
    const name_outcome outcome = query.ask(name_request::query, &wanted);
    if (!outcome.is_success()) return outcome;
    int told = 0;
    bool is_whole = query.read_count(told);
    for (int at = 0; is_whole && at < told; ++at)
        is_whole = query.read(found.emplace_back());
    trace(trace_area::names,
          is_whole ? "records that match: " : "the answer broke off; records told: ", told);
    if (is_whole) return outcome;
    found.clear();
    return fails(name_status::no_connection);
}

name_outcome asked_name_server::version(name_record &answer) {
    exchange version(*this);
    const name_outcome outcome = version.ask(name_request::version);
    return !outcome.is_success() || version.read(answer) ? outcome : fails(name_status::no_connection);
}

name_outcome asked_name_server::shutdown() {
    return exchange(*this).ask(name_request::shutdown);
}

}  // namespace kel::system
