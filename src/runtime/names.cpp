// The plain functions of the name service.
#include <algorithm>
#include <iostream>
#include <memory>

#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/vumrt_socket.h>

#include "runtime/machine.h"
#include "runtime/names.h"

using kel::name_record;
using kel::name_request;
using kel::name_status;
using kel::detail::name_answer;
using kel::detail::name_host;
using kel::detail::name_outcome;

struct nmsServ {
    name_host host;
};
struct nmsRec {
    name_record record;
};
struct nmsErr {
    name_outcome outcome;
    name_host host;
};

namespace {

btkTimeval time_of(double seconds) {
    btkTimeval time;
    time.init(seconds);
    return time;
}

class socket_connection final : public kel::detail::name_connection {
public:
    bool connect(const name_host &host) override {
        return m_socket.Connect(host.name.c_str(), host.port, time_of(kel::name_service_patience));
    }
    // A socket that has room for anything has room for a piece.
    bool send(const char *bytes, std::size_t count, double seconds) override {
        const auto size = static_cast<unsigned>(count);
        return m_socket.Wait(time_of(seconds), btkSocket::ForOutput) == btkSocket::ForOutput &&
               m_socket.Send(bytes, size) == static_cast<int>(size);
    }
    std::size_t receive(char *bytes, std::size_t room, double seconds) override {
        if (m_socket.Wait(time_of(seconds), btkSocket::ForInput) != btkSocket::ForInput) return 0;
        return static_cast<std::size_t>(std::max(0, m_socket.Recv(bytes, static_cast<unsigned>(room))));
    }

private:
    btkStreamSocket m_socket;
};

nmsErr *error_of(const name_outcome &outcome, nmsServ *server) {
    return outcome.is_success() ? nullptr : new nmsErr{outcome, server ? server->host : name_host{}};
}

nmsErr *request(nmsServ *server, name_request what, const nmsRec *record, name_answer &answer) {
    if (!server) return error_of({name_status::no_connection}, nullptr);
    socket_connection connection;
    return error_of(
        kel::detail::exchange(connection, server->host, what, record ? &record->record : nullptr, answer),
        server);
}

}  // namespace

// Name servers and requests ------------------------------------------------------------------------

nmsServ *nmsServConnectLocal() {
    std::string name;
    if (!kel::system::host_name(name) || name.empty()) name = "localhost";
    return new nmsServ{{std::move(name), true}};
}

nmsServ *nmsServConnectByName(const char *host) {
    return kel::is_text(host) && *host ? new nmsServ{{host}} : nullptr;
}

void nmsServDelete(nmsServ *server) {
    delete server;
}

nmsErr *nmsServPing(nmsServ *server) {
    name_answer answer;
    nmsErr *error = request(server, name_request::ping, nullptr, answer);
    if (error) error->outcome = {name_status::no_connection};
    return error;
}

nmsErr *nmsServRegister(nmsServ *server, nmsRec *record) {
    if (server && record && record->record.process != 0 && !server->host.is_local)
        return error_of({name_status::not_authorized}, server);
    name_answer answer;
    return request(server, name_request::add, record, answer);
}

nmsErr *nmsServRemove(nmsServ *server, nmsRec *record_template) {
    name_answer answer;
    return request(server, name_request::remove, record_template, answer);
}

nmsErr *nmsServQuery(nmsServ *server, nmsRec *record_template, nmsRec ***records, int *count) {
    if (records) *records = nullptr;
    if (count) *count = 0;
    std::vector<std::unique_ptr<nmsRec>> found;
    name_answer answer;
    if (records)
        answer.on_record = [&](name_record &&record) {
            found.push_back(std::unique_ptr<nmsRec>(new nmsRec{std::move(record)}));
        };
    if (nmsErr *error = request(server, name_request::query, record_template, answer)) return error;
    if (count) *count = answer.count;
    if (found.empty()) return nullptr;
    *records = new nmsRec *[found.size()];
    std::transform(found.begin(), found.end(), *records, [](auto &record) { return record.release(); });
    return nullptr;
}

// Records ------------------------------------------------------------------------------------------

nmsRec *nmsRecCreate(int associated) {
    constexpr int this_process = 1;
    const unsigned process = associated == this_process ? static_cast<unsigned>(Process_GetCurrentId())
                                                        : static_cast<unsigned>(associated);
    return new nmsRec{{process, {}}};
}

void nmsRecDelete(nmsRec *record) {
    delete record;
}

void nmsRecArrayDelete(nmsRec **records, int count) {
    for (int at = 0; records && at < count; ++at)
        delete records[at];
    delete[] records;
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
    std::string lines;
    for (const auto &[name, value] : record->record.fields)
        lines += name + " = " + value + "\n";
    std::cerr << lines << std::flush;
}

// Errors -------------------------------------------------------------------------------------------

int nmsErrGetCode(nmsErr *error) {
    return error ? static_cast<int>(error->outcome.status) : 0;
}

void nmsErrPrint(nmsErr *error) {
    if (error) std::cerr << kel::detail::text_of(error->outcome, error->host) << std::flush;
}

void nmsErrDelete(nmsErr *error) {
    delete error;
}
