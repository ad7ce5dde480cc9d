#include <algorithm>
#include <utility>

#include <kelstdmt/syslib.h>

#include "nms.h"
#include "text.h"
#include "waiting.h"

namespace tool {

namespace {

std::string Explained(const nmsClientStatus &status, const std::string &place, int last_error) {
    const std::string at = place + ", port " + std::to_string(status.GetPort());
    switch (static_cast<int>(status.GetCode())) {
        case nmscNoConnection:
            return "no name server answers on " + at +
                   " (kelnmsd is one; --host asks another machine, ORVNMSPORT another port)" +
                   (last_error ? std::string(": ") + Error_GetText(last_error) : "");
        case nmscNotRecognized:
            return "the name server on " + at + " does not know such a request";
        case nmscAlreadyExists:
            return "the name server on " + at + " has such a record already";
        case nmscNotFound:
            return "the name server on " + at + " has no such record";
        case nmscNotAuthorized:
            return "the name server on " + at + " refuses: this is for programs on its own machine";
        case nmscNotSent:
            return "not a record: at most 256 fields, names and values of at most 255 bytes";
        default:
            return "the name server on " + at + " fails, or is none: it answers with status " +
                   std::to_string(status.GetCode());
    }
}

// Records keep their fields in no order that people would know.
int Rank(const std::string &field) {
    return field == kel::server_name_field ? 0 : field == kel::server_port_field ? 1 : 2;
}

}  // namespace

NameServer::NameServer(const std::string &host, double patience)
    : m_host(host),
      m_patience(patience),
      m_proxy(host.empty() ? nmsServerProxy::InitLocalProxy() : nmsServerProxy::InitProxy(host.c_str())) {}

std::string NameServer::Place() const {
    return m_host.empty() ? "this machine" : Printable(m_host);
}

template <class Request>
double NameServer::Ask(Request request) {
    std::unique_ptr<nmsClientStatus> status;
    double seconds = 0;
    {
        Deadline deadline(m_patience, [this] {
            return "the name server on " + Place() + ", port " +
                   std::to_string(kel::name_service_port_of_environment());
        });
        Error_SetLast(0);
        status.reset(request(*m_proxy));
        seconds = deadline.Elapsed();
    }
    if (status) throw Failure(Explained(*status, Place(), Error_GetLast()));
    return seconds;
}

std::vector<kel::name_record> NameServer::Query(const kel::name_record &wanted) {
    nmsRecord record_template(0);
    record_template.SetWire(wanted);
    nmsRecordArray array;
    int count = 0;
    Ask([&](nmsServerProxy &proxy) { return proxy.ImplQuery(record_template, &array, &count); });
    std::vector<kel::name_record> records;
    for (int i = 0; i < array.getarraysize(); ++i) {
        std::unique_ptr<nmsRecord> record(array.get(i));
        records.push_back(record->GetWire());
        auto &fields = records.back().fields;
        std::sort(fields.begin(), fields.end(), [](const auto &a, const auto &b) {
            return std::pair(Rank(a.first), a.first) < std::pair(Rank(b.first), b.first);
        });
    }
    return records;
}

void NameServer::Register(const kel::name_record &record) {
    nmsRecord sent(0);
    sent.SetWire(record);
    Ask([&](nmsServerProxy &proxy) { return proxy.ImplRegister(sent); });
}

int NameServer::Delete(const kel::name_record &wanted) {
    nmsRecord record_template(0);
    record_template.SetWire(wanted);
    int count = 0;
    Ask([&](nmsServerProxy &proxy) { return proxy.ImplDelete(record_template, &count); });
    return count;
}

kel::name_record NameServer::Version() {
    nmsRecord answer(0);
    Ask([&](nmsServerProxy &proxy) { return proxy.Version(answer); });
    return answer.GetWire();
}

double NameServer::Ping() {
    return Ask([](nmsServerProxy &proxy) { return proxy.Ping(); });
}

void NameServer::Shutdown() {
    Ask([](nmsServerProxy &proxy) { return proxy.ImplShutdown(); });
}

bool IsThisMachine(const std::string &host) {
    const xstring own = sysGetCurHostName();
    return host == "localhost" || host == "127.0.0.1" || host == "::1" ||
           (kel::is_text(own) && host == own.Str());
}

std::optional<int> ToPort(std::string_view text) {
    const std::optional<int> port = ToInteger(text);
    return port && *port >= 1 && *port <= 65535 ? port : std::nullopt;
}

}  // namespace tool
