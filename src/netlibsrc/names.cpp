// Names of servers: a record with the name and the port, at the name server of the server's host. The record
// is associated with the process, so a server that dies without its destructor leaves none behind.
#include "netlibsrc/names.h"

#include <climits>
#include <cstdlib>

#include <kelstdmt/netlib_server.h>
#include <kelstdmt/vumrt_names.h>

#include "runtime/trace.h"

using kel::detail::name_server_connection;
using kel::system::trace, kel::system::trace_area;

namespace {

constexpr int of_this_process = 1;

struct record_release {
    void operator()(nmsRec *record) const noexcept { nmsRecDelete(record); }
};
using owned_record = std::unique_ptr<nmsRec, record_release>;

// The answer of a query.
struct found_records {
    nmsRec **records = nullptr;
    int count = 0;

    found_records() = default;
    ~found_records() { nmsRecArrayDelete(records, count); }
    found_records(const found_records &) = delete;
    found_records &operator=(const found_records &) = delete;
};

// Whether there was none.
bool print(nmsErr *error) {
    if (!error) return true;
    nmsErrPrint(error);
    nmsErrDelete(error);
    return false;
}

// Null for a name that no record can have.
owned_record record_of(const xstring &name, int associated) {
    owned_record record(nmsRecCreate(associated));
    if (record && !nmsRecAdd(record.get(), kel::server_name_field, name)) record.reset();
    return record;
}

// 0 when the server is not registered.
int look_up(nmsServ *connection, const xstring &name) {
    const owned_record wanted = record_of(name, 0);
    if (!wanted) return 0;
    found_records found;
    if (!print(nmsServQuery(connection, wanted.get(), &found.records, &found.count))) {
        nmsRecPrint(wanted.get());
        return 0;
    }
    for (int at = 0; at < found.count; ++at) {
        if (!nmsRecHasField(found.records[at], kel::server_port_field)) continue;
        const long port =
            std::strtol(nmsRecGetFieldValueByName(found.records[at], kel::server_port_field), nullptr, 10);
        return port > 0 && port <= INT_MAX ? static_cast<int>(port) : 0;
    }
    return 0;
}

[[noreturn]] void fail(const char *message) {
    trace(trace_area::names, message);
    netXException::Throw(netNameServiceProblem, message);
}

}  // namespace

nmsServ *getNameServer(xstring host) {
    name_server_connection connection(host.IsNull() ? nmsServConnectLocal() : nmsServConnectByName(host));
    if (!connection) return nullptr;
    if (nmsErr *error = nmsServPing(connection.get())) {
        nmsErrDelete(error);
        return nullptr;
    }
    return connection.release();
}

bool IsRegisteredWithNMS(nmsServ *connection, xstring name) {
    const owned_record wanted = record_of(name, 0);
    found_records found;
    return wanted && print(nmsServQuery(connection, wanted.get(), &found.records, &found.count)) &&
           found.count > 0;
}

bool RegisterWithNMS(nmsServ *connection, int port, xstring name) {
    const name_server_connection owned(connection);
    const owned_record record = record_of(name, of_this_process);
    xstring number;
    number.Sprintf("%d", port);
    return connection && record && nmsRecAdd(record.get(), kel::server_port_field, number) &&
           print(nmsServRegister(connection, record.get()));
}

namespace kel::detail {

void register_server(const xstring &name, int port) {
    name_server_connection connection(getNameServer(xstring()));
    if (!connection) fail("Can't register: Name Server not found");
    if (IsRegisteredWithNMS(connection.get(), name)) fail("Already registered with Name Server");
    if (!RegisterWithNMS(connection.release(), port, name)) fail("Can't register with Name Server");
    trace(trace_area::names, name.Str(), " is registered at port ", port);
}

void unregister_server(const xstring &name) {
    const name_server_connection connection(getNameServer(xstring()));
    const owned_record record = record_of(name, 0);
    const bool is_asked = connection && record;
    const bool is_removed = is_asked && print(nmsServRemove(connection.get(), record.get()));
    trace(trace_area::names, name.Str(),
          is_removed ? " is not registered any more" : " could not be unregistered");
}

int port_of(netAddress *address) {
    if (!kel::is_object(address)) netXException::Throw(netInvalidAddress, "Address is nil!");
    if (address->getPortN() != 0) return address->getPortN();
    const name_server_connection connection(getNameServer(address->getHostName()));
    if (!connection) fail("Name Server is not found");
    const int port = look_up(connection.get(), address->getServerName());
    if (port == 0) fail("Server is not registered");
    trace(trace_area::names, address->getServerName().Str(), " is at port ", port);
    address->setPortN(port);
    return port;
}

}  // namespace kel::detail
