// The plain functions of the name service. Each request is one connection: the question goes out in one
// piece, and the answer is read ahead, since nothing follows it.
#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/vumrt_socket.h>
#include <kelstdmt/vumtext.h>

#include "runtime/names_bounds.h"
#include "runtime/names_status.h"
#include "runtime/trace.h"

struct nmsServ {
    std::string host;
    bool local;
    int port = 0;  // of the last request
};

struct nmsRec {
    kel::name_record record;
};

struct nmsErr {
    int code;
    int origin;
    std::string text;
};

namespace {

using kel::name_request;
using kel::name_status;
using kel::system::trace, kel::system::trace_area;

std::atomic<double> patience{30};  // seconds

constexpr int found_by_client = 0, found_by_server = 1;
constexpr std::int64_t no_limit = std::int64_t{1} << 30;  // seconds

nmsErr *error_of(const nmsServ &server, int code, int origin) {
    std::string text =
        kel::system::name_status_text(code, origin, server.host.c_str(), server.local, server.port);
    trace(trace_area::names, text.c_str());
    return new nmsErr{code, origin, std::move(text)};
}
nmsErr *client_error(const nmsServ &server, name_status code) {
    return error_of(server, static_cast<int>(code), found_by_client);
}

// A request that is under way. Every read is false when the name server is gone, silent for too long, or
// says what it should not.
class exchange {
public:
    // The status of the answer; the last error's reason is told as no_connection.
    nmsErr *ask(nmsServ &server, name_request request, const nmsRec *record) {
        std::string question;
        kel::append_int(question, kel::name_service_greeting);
        question += static_cast<char>(request);
        if (record && !kel::append_record(question, record->record))
            return client_error(server, name_status::not_sent);
        server.port = kel::name_service_port_of_environment();
        const char *host = server.local ? "localhost" : server.host.c_str();
        const char *name =
            record && !record->record.fields.empty() ? record->record.fields.front().second.c_str() : nullptr;
        trace(trace_area::names, "asks ", host, " port ", server.port, ": ",
              kel::system::name_request_text(request), name ? " of " : "", name);
        if (!m_socket.Connect(host, server.port, btkTimeval(no_limit, 0)))
            return client_error(server, name_status::no_connection);
        if (!send(question))
            return client_error(server, record ? name_status::not_sent : name_status::no_connection);
        m_bounds.begin_answer();
        if (!await(1)) return client_error(server, name_status::no_connection);
        const int status = static_cast<unsigned char>(m_bytes[m_at++]);
        trace(trace_area::names, host, " answers ", kel::system::name_request_text(request), " with status ",
              status);
        return status == 0 ? nullptr : error_of(server, status, found_by_server);
    }

    bool read(int &value) {
        if (!await(4)) return false;
        value = kel::int_at(m_bytes + m_at);
        m_at += 4;
        return true;
    }

    bool read(kel::name_record &record) {
        kel::name_record_reader reader;
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
    static btkTimeval time_of(double seconds) {
        btkTimeval time;
        time.init(seconds);
        return time;
    }

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

    btkStreamSocket m_socket;
    kel::detail::name_bounds m_bounds;
    char m_bytes[16384];
    std::size_t m_at = 0, m_end = 0;
};

// The records of a query while they arrive.
class record_list {
public:
    ~record_list() {
        for (nmsRec *record : m_records)
            delete record;
    }
    void append(std::unique_ptr<nmsRec> record) {
        m_records.push_back(record.get());
        static_cast<void>(record.release());
    }
    // An array that the caller frees; null for none.
    nmsRec **release() {
        if (m_records.empty()) return nullptr;
        auto array = std::make_unique<nmsRec *[]>(m_records.size());
        std::copy(m_records.begin(), m_records.end(), array.get());
        m_records.clear();
        return array.release();
    }

private:
    std::vector<nmsRec *> m_records;
};

nmsErr *request(nmsServ *server, name_request request, const nmsRec *record = nullptr) {
    if (!server) return client_error({"", false}, name_status::no_connection);
    return exchange().ask(*server, request, record);
}

}  // namespace

namespace kel {

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

// Name servers ---------------------------------------------------------------------------------

double kel::name_service_patience() noexcept {
    return patience;
}
void kel::set_name_service_patience(double seconds) noexcept {
    patience = seconds;
}

nmsServ *nmsServConnectLocal() {
    return new nmsServ{"localhost", true};
}
nmsServ *nmsServConnectByName(const char *host) {
    return kel::is_text(host) && *host ? new nmsServ{host, false} : nullptr;
}
void nmsServDelete(nmsServ *server) {
    delete server;
}

nmsErr *nmsServPing(nmsServ *server) {
    nmsErr *error = request(server, name_request::ping);
    // A name server that answers but does not greet is as good as none.
    if (error && error->origin == found_by_server) {
        nmsErrDelete(error);
        error = client_error(*server, name_status::no_connection);
    }
    return error;
}

nmsErr *nmsServRegister(nmsServ *server, nmsRec *record) {
    if (!record || (server && !server->local && record->record.process != 0))
        return client_error(server ? *server : nmsServ{"", false},
                            record ? name_status::not_authorized : name_status::not_sent);
    return request(server, name_request::add, record);
}

nmsErr *nmsServRemove(nmsServ *server, nmsRec *record_template) {
    if (!server) return client_error({"", false}, name_status::no_connection);
    if (!record_template) return client_error(*server, name_status::not_sent);
    exchange removal;
    if (nmsErr *error = removal.ask(*server, name_request::remove, record_template)) return error;
    int deleted = 0;
    if (removal.read(deleted) && deleted >= 0) return nullptr;
    return client_error(*server, name_status::no_connection);
}

nmsErr *nmsServQuery(nmsServ *server, nmsRec *record_template, nmsRec ***records, int *count) {
    if (records) *records = nullptr;
    if (count) *count = 0;
    if (!server) return client_error({"", false}, name_status::no_connection);
    if (!record_template) return client_error(*server, name_status::not_sent);
    exchange query;
    if (nmsErr *error = query.ask(*server, name_request::query, record_template)) return error;
    int told = 0;
    record_list found;
    bool whole = query.read(told) && told >= 0;
    for (int at = 0; whole && at < told; ++at) {
        auto record = std::make_unique<nmsRec>();
        whole = query.read(record->record);
        if (whole) found.append(std::move(record));
    }
    trace(trace_area::names, whole ? "records that match: " : "the answer broke off; records told: ", told);
    if (!whole) return client_error(*server, name_status::no_connection);
    if (records) *records = found.release();
    if (count) *count = told;
    return nullptr;
}

// Records --------------------------------------------------------------------------------------

nmsRec *nmsRecCreate(int associated) {
    auto *record = new nmsRec;
    record->record.process =
        associated == 1 ? static_cast<unsigned>(Process_GetCurrentId()) : static_cast<unsigned>(associated);
    return record;
}
void nmsRecDelete(nmsRec *record) {
    delete record;
}
void nmsRecArrayDelete(nmsRec **records, int count) {
    const std::unique_ptr<nmsRec *[]> array(records);
    for (int at = 0; records && at < count; ++at)
        delete records[at];
}
bool nmsRecAdd(nmsRec *record, const char *name, const char *value) {
    if (!record || !kel::is_text(name) || !kel::is_text(value)) return false;
    record->record.set(name, value);
    return true;
}
bool nmsRecHasField(nmsRec *record, const char *name) {
    return nmsRecGetFieldValueByName(record, name) != nullptr;
}
const char *nmsRecGetFieldValueByName(nmsRec *record, const char *name) {
    const std::string *value = record && kel::is_text(name) ? record->record.find(name) : nullptr;
    return value ? value->c_str() : nullptr;
}
void nmsRecPrint(nmsRec *record) {
    if (!record) return;
    for (const auto &[name, value] : record->record.fields)
        std::fprintf(stderr, "%s = %s\n", name.c_str(), value.c_str());
}

// Errors ---------------------------------------------------------------------------------------

int nmsErrGetCode(nmsErr *error) {
    return error ? error->code : 0;
}
void nmsErrPrint(nmsErr *error) {
    if (error) std::fprintf(stderr, "%s\n", error->text.c_str());
}
void nmsErrDelete(nmsErr *error) {
    delete error;
}
