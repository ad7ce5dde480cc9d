#include "registration.h"

#include <memory>

#include <kelstdmt/vumrt_names.h>

namespace {

constexpr double between_looks = 5;  // seconds
constexpr const char *name_field = "_ServerName", *port_field = "_PortNumber";
constexpr int of_this_process = 1;

struct release {
    void operator()(nmsServ *server) const noexcept { nmsServDelete(server); }
    void operator()(nmsRec *record) const noexcept { nmsRecDelete(record); }
    void operator()(nmsErr *error) const noexcept { nmsErrDelete(error); }
};
using owned_server = std::unique_ptr<nmsServ, release>;
using owned_record = std::unique_ptr<nmsRec, release>;
using owned_error = std::unique_ptr<nmsErr, release>;

owned_record record_of(const std::string &name, const char *port, int associated) {
    owned_record record(nmsRecCreate(associated));
    if (record) nmsRecAdd(record.get(), name_field, name.c_str());
    if (record && port) nmsRecAdd(record.get(), port_field, port);
    return record;
}

enum class answer { none, no_records, records };
answer ask(const owned_record &wanted) {
    const owned_server server(nmsServConnectLocal());
    nmsRec **records = nullptr;
    int count = 0;
    const owned_error error(nmsServQuery(server.get(), wanted.get(), &records, &count));
    nmsRecArrayDelete(records, count);
    if (error) return answer::none;
    return count > 0 ? answer::records : answer::no_records;
}

}  // namespace

registration::registration(std::string name, int port, service::log_writer &log)
    : m_name(std::move(name)), m_port(std::to_string(port)), m_log(log) {}

registration::state registration::look() const {
    const answer own = ask(record_of(m_name, m_port.c_str(), 0));
    if (own == answer::none) return state::unanswered;
    if (own == answer::records) return state::registered;
    return ask(record_of(m_name, nullptr, 0)) == answer::records ? state::taken : state::lost;
}

bool registration::add() const {
    const owned_server server(nmsServConnectLocal());
    const owned_record record = record_of(m_name, m_port.c_str(), of_this_process);
    return owned_error(nmsServRegister(server.get(), record.get())) == nullptr;
}

std::string registration::begin() {
    switch (look()) {
        case state::unanswered:
            return "no name server answers on port " +
                   std::to_string(kel::name_service_port_of_environment()) +
                   " of this machine; start kelnmsd, or name its port in ORVNMSPORT";
        case state::lost:
            return add() ? "" : "the name server does not take the name " + m_name;
        default:
            return "the name " + m_name + " is taken: another server of that name runs on this machine";
    }
}

void registration::keep(evtEvent &end) {
    while (!end.Wait(between_looks)) {
        state now = look();
        if (now == state::lost && add()) {
            m_log.write("registered again: the name server had lost the name " + m_name);
            now = m_state = state::registered;
        }
        found(now);
    }
}

// Each change is told once.
void registration::found(state now) {
    if (now == m_state) return;
    m_state = now;
    if (now == state::registered) m_log.write("the name server knows the name " + m_name + " again");
    if (now == state::unanswered) m_log.write("the name server does not answer, so no client finds this one");
    if (now == state::taken) m_log.write("the name " + m_name + " has been taken by another server");
    if (now == state::lost) m_log.write("the name server does not take the name " + m_name + " again");
}
