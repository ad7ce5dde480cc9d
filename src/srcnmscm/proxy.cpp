// Requests to a name server. The operations with a status ask it; the others turn a status into the exception
// of the operation, whose message is the line that the status prints.
#include <algorithm>
#include <iostream>
#include <memory>

#include <kelstdmt/kel.h>
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/syslib.h>

#include "runtime/names_exchange.h"
#include "runtime/names_status.h"

using kel::system::asked_name_server;

namespace {

constexpr std::size_t longest_message = 1023;

xrchandle<kelXFunc> function(const char *name) {
    return xrchandle<kelXFunc>(kel::construct<kelXFunc>(name));
}

// The first line that the status prints, also where the host's name has several; the status is deleted.
std::string message_of(nmsClientStatus *owned) {
    const std::unique_ptr<nmsClientStatus> status(owned);
    const std::string text = kel::system::name_status_text(
        status->GetCode(), status->GetOrigin(), status->GetHost(), status->IsLocal(), status->GetPort());
    return text.substr(0, std::min(text.find('\n'), longest_message));
}

}  // namespace

nmsServerProxy::nmsServerProxy(const char *host, bool local)
    : m_host(kel::detail::stored(host)), m_local(local) {}
nmsServerProxy::~nmsServerProxy() = default;

nmsClientStatus *nmsServerProxy::Failed(nmscReturnCode code, StatusOrigin origin) const {
    return new nmsClientStatus(code, m_host, m_port, m_local, origin);
}

template <class Request>
nmsClientStatus *nmsServerProxy::Ask(Request request) {
    const xstring host = m_host.IsNull() ? sysGetCurHostName() : m_host;
    asked_name_server server(std::string(kel::view(host)), m_local);
    const kel::system::name_outcome outcome = request(server);
    if (server.port() != 0) m_port = server.port();
    if (outcome.is_success()) return nullptr;
    return Failed(static_cast<nmscReturnCode>(outcome.code), static_cast<StatusOrigin>(outcome.origin));
}

nmsServerProxy *nmsServerProxy::InitLocalProxy() {
    return new nmsServerProxy(sysGetCurHostName(), true);
}
nmsServerProxy *nmsServerProxy::InitProxy(const char *host) {
    return new nmsServerProxy(host, false);
}

nmsServerProxy *nmsServerProxy::ConnectLocal() {
    std::unique_ptr<nmsServerProxy> proxy(InitLocalProxy());
    if (!proxy->IsAlive())
        nmsXCantConnectLocal::Throw("Can't connect locally", function("nmsServerProxy::ConnectLocal").get());
    return proxy.release();
}
nmsServerProxy *nmsServerProxy::ConnectByName(const char *host) {
    std::unique_ptr<nmsServerProxy> proxy(InitProxy(host));
    if (!proxy->IsAlive())
        nmsXCantConnectByName::Throw(host, "ERROR  : can't connect by name",
                                     function("nmsServerProxy::ConnectByName").get());
    return proxy.release();
}

// With a status -------------------------------------------------------------------------------

nmsClientStatus *nmsServerProxy::Ping() {
    return Ask([](asked_name_server &server) { return server.ping(); });
}

nmsClientStatus *nmsServerProxy::ImplRegister(nmsRecord &record) {
    return Ask([&](asked_name_server &server) { return server.add(record.GetWire()); });
}

nmsClientStatus *nmsServerProxy::ImplDelete(nmsRecord &record_template, int *count) {
    int deleted = 0;
    nmsClientStatus *status =
        Ask([&](asked_name_server &server) { return server.remove(record_template.GetWire(), deleted); });
    if (count) *count = deleted;
    return status;
}

nmsClientStatus *nmsServerProxy::ImplQuery(nmsRecord &record_template, nmsRecordArray *records, int *count) {
    if (records) records->clear();
    if (count) *count = 0;
    std::vector<kel::name_record> found;
    if (nmsClientStatus *status =
            Ask([&](asked_name_server &server) { return server.query(record_template.GetWire(), found); }))
        return status;
    if (count) *count = static_cast<int>(found.size());
    if (!records) return nullptr;
    for (const kel::name_record &wire : found) {
        std::unique_ptr<nmsRecord> record(nmsRecord::Create(0));
        record->SetWire(wire);
        records->append(record.release());
    }
    return nullptr;
}

nmsClientStatus *nmsServerProxy::Version(nmsRecord &record) {
    kel::name_record answer;
    nmsClientStatus *status = Ask([&](asked_name_server &server) { return server.version(answer); });
    if (!status) record.SetWire(answer);
    return status;
}

nmsClientStatus *nmsServerProxy::ImplShutdown() {
    if (m_local) return Ask([](asked_name_server &server) { return server.shutdown(); });
    std::cerr << "ERROR  : NMS client: cannot shutdown nonlocal NameService." << std::endl;
    return Failed(nmscNotAuthorized);
}

// With exceptions -----------------------------------------------------------------------------

void nmsServerProxy::Register(nmsRecord *record) {
    nmsClientStatus *status = record ? ImplRegister(*record) : Failed(nmscNotSent);
    if (status)
        nmsXCantRegisterRecord::Throw(record, message_of(status).c_str(),
                                      function("nmsServerProxy::Register").get());
}

int nmsServerProxy::Delete(nmsRecord *record_template) {
    int count = 0;
    nmsClientStatus *status = record_template ? ImplDelete(*record_template, &count) : Failed(nmscNotSent);
    if (status)
        nmsXCantDelete::Throw(record_template, message_of(status).c_str(),
                              function("nmsServerProxy::Delete").get());
    return count;
}

nmsRecordArray *nmsServerProxy::Query(nmsRecord *record_template) {
    std::unique_ptr<nmsRecordArray> records(nmsRecordArray::create());
    int count = 0;
    nmsClientStatus *status =
        record_template ? ImplQuery(*record_template, records.get(), &count) : Failed(nmscNotSent);
    if (status)
        nmsXCantQuery::Throw(record_template, message_of(status).c_str(),
                             function("nmsServerProxy::Query").get());
    return records.release();
}

xstring nmsServerProxy::GetVersion() {
    const char *const name = "nmsServerProxy::GetVersion";
    xauto<nmsRecord> record(0u);
    if (nmsClientStatus *status = Version(record))
        nmsXCantGetVersion::Throw(message_of(status).c_str(), function(name).get());
    if (!record.HasField("Version")) nmsXCantGetVersion::Throw("ERROR  : Other", function(name).get());
    return record.GetFieldValueByName("Version");
}

unsigned char nmsServerProxy::IsAlive() {
    return std::unique_ptr<nmsClientStatus>(Ping()) == nullptr;
}

void nmsServerProxy::Shutdown() {
    if (nmsClientStatus *status = ImplShutdown())
        nmsXCantShutdown::Throw(message_of(status).c_str(), function("nmsServerProxy::Shutdown").get());
}

std::ostream &operator<<(std::ostream &out, const nmsServerProxy &proxy) {
    return out << proxy.GetHost();
}
