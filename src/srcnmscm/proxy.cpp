// Requests to a name server. The operations with a status do the work, each over a connection of its own; the
// others turn a status into the exception of the operation, whose message is the line that the status prints.
#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_server.h>
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/syslib.h>

#include "runtime/names_status.h"
#include "runtime/trace.h"
#include "srcnmscm/wire.h"

using kel::system::trace, kel::system::trace_area;

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

// A request under way. What the stream throws is a connection that broke off.
class nmsServerProxy::request {
public:
    explicit request(nmsServerProxy &proxy) : m_proxy(proxy) {}

    // Sends the question and reads the status of the answer.
    nmsClientStatus *ask(kel::name_request code, nmsRecord *record = nullptr) {
        m_proxy.m_port = kel::name_service_port_of_environment();
        const char *host = m_proxy.m_local ? "localhost" : m_proxy.m_host.Str();
        trace(trace_area::names, "asks ", host, " port ", m_proxy.m_port, ": ",
              kel::system::name_request_text(code));
        const std::unique_ptr<netAddress> address(netAddress::Create(m_proxy.m_port, host));
        m_stream.reset(netBaseServer::Connect(address.get(), INFINITE));
        if (!m_stream) return m_proxy.Failed(nmscNoConnection);
        if (!guarded([&] { return send(code, record); }))
            return m_proxy.Failed(record ? nmscNotSent : nmscNoConnection);
        char status = 0;
        m_bounds.begin_answer();
        m_reader.emplace(*m_stream, m_bounds);
        if (!guarded([&] { return m_reader->read(&status, 1); })) return m_proxy.Failed(nmscNoConnection);
        trace(trace_area::names, host, " answers ", kel::system::name_request_text(code), " with status ",
              static_cast<unsigned char>(status));
        if (status == 0) return nullptr;
        return m_proxy.Failed(static_cast<nmscReturnCode>(static_cast<unsigned char>(status)), ServerOrigin);
    }

    bool read(int &value) {
        char bytes[4];
        if (!guarded([&] { return m_reader->read(bytes, sizeof bytes); })) return false;
        value = kel::int_at(bytes);
        return true;
    }
    bool read(nmsRecord &record) {
        kel::name_record_reader wire;
        if (!guarded([&] { return m_reader->read(wire); })) return false;
        record.SetWire(wire.take());
        return true;
    }

private:
    template <class Step>
    static bool guarded(Step step) {
        try {
            return step();
        } catch (xthrowable *thrown) {
            const kel::caught error(thrown);
            return false;
        }
    }

    bool send(kel::name_request code, nmsRecord *record) {
        PutIndependentInt(m_stream.get(), kel::name_service_greeting);
        m_stream->WriteByte(static_cast<int>(code));
        netSocketStream *stream = m_stream.get();
        if (record && !record->Send(stream)) return false;
        m_stream->Flush();
        return m_stream->getIsGood();
    }

    nmsServerProxy &m_proxy;
    std::unique_ptr<netSocketStream> m_stream;
    kel::detail::name_bounds m_bounds;
    std::optional<kel::detail::name_stream_reader> m_reader;
};

nmsServerProxy::nmsServerProxy(const char *host, bool local)
    : m_host(kel::detail::stored(host)), m_local(local) {}
nmsServerProxy::~nmsServerProxy() = default;

nmsClientStatus *nmsServerProxy::Failed(nmscReturnCode code, StatusOrigin origin) const {
    trace(trace_area::names, "fails with code ", static_cast<int>(code),
          origin == ServerOrigin ? " of the name server" : " of its client");
    return new nmsClientStatus(code, m_host, m_port, m_local, origin);
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
    const std::unique_ptr<nmsClientStatus> status(request(*this).ask(kel::name_request::ping));
    return status ? Failed(nmscNoConnection) : nullptr;
}

nmsClientStatus *nmsServerProxy::ImplRegister(nmsRecord &record) {
    if (record.IsAssociated() && !m_local) return Failed(nmscNotAuthorized);
    return request(*this).ask(kel::name_request::add, &record);
}

nmsClientStatus *nmsServerProxy::ImplDelete(nmsRecord &record_template, int *count) {
    request removal(*this);
    std::unique_ptr<nmsClientStatus> status(removal.ask(kel::name_request::remove, &record_template));
    int deleted = 0;
    const bool answered = !status || status->GetOrigin() == ServerOrigin;
    const bool counted = answered && removal.read(deleted) && deleted >= 0;
    if (!status && !counted) status.reset(Failed(nmscNoConnection));
    if (count) *count = counted ? deleted : 0;
    return status.release();
}

nmsClientStatus *nmsServerProxy::ImplQuery(nmsRecord &record_template, nmsRecordArray *records, int *count) {
    if (records) records->clear();
    if (count) *count = 0;
    request query(*this);
    if (nmsClientStatus *status = query.ask(kel::name_request::query, &record_template)) return status;
    int told = 0;
    bool whole = query.read(told) && told >= 0;
    for (int at = 0; whole && at < told; ++at) {
        std::unique_ptr<nmsRecord> record(nmsRecord::Create(0));
        whole = query.read(*record);
        if (whole && records) records->append(record.release());
    }
    trace(trace_area::names, whole ? "records that match: " : "the answer broke off; records told: ", told);
    if (whole) {
        if (count) *count = told;
        return nullptr;
    }
    if (records) {
        for (nmsRecord *record : *records)
            delete record;
        records->clear();
    }
    return Failed(nmscNoConnection);
}

nmsClientStatus *nmsServerProxy::Version(nmsRecord &record) {
    request version(*this);
    if (nmsClientStatus *status = version.ask(kel::name_request::version)) return status;
    return version.read(record) ? nullptr : Failed(nmscNoConnection);
}

nmsClientStatus *nmsServerProxy::ImplShutdown() {
    if (m_local) return request(*this).ask(kel::name_request::shutdown);
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
