#include "registration.h"

#include <memory>

#include <kelstdmt/nmsclib.h>

namespace {

constexpr double between_looks = 5;  // seconds
constexpr double patience = 5;       // a name server that stands still does not hold up the end for longer
constexpr unsigned of_this_process = 1;

void describe(nmsRecord &record, const std::string &name, const char *port = nullptr) {
    record.Add(kel::server_name_field, name.c_str());
    if (port) record.Add(kel::server_port_field, port);
}

enum class answer { none, no_records, records };
answer ask(const std::string &name, const char *port = nullptr) {
    const std::unique_ptr<nmsServerProxy> names(nmsServerProxy::InitLocalProxy());
    nmsRecord wanted(0);
    describe(wanted, name, port);
    int count = 0;
    const std::unique_ptr<nmsClientStatus> failure(names->ImplQuery(wanted, nullptr, &count));
    if (failure) return answer::none;
    return count > 0 ? answer::records : answer::no_records;
}

}  // namespace

registration::registration(std::string name, int port, service::log_writer &log)
    : m_name(std::move(name)), m_port(std::to_string(port)), m_log(log) {}

registration::state registration::look() const {
    const answer own = ask(m_name, m_port.c_str());
    if (own == answer::none) return state::unanswered;
    if (own == answer::records) return state::registered;
    return ask(m_name) == answer::records ? state::taken : state::lost;
}

bool registration::add() const {
    const std::unique_ptr<nmsServerProxy> names(nmsServerProxy::InitLocalProxy());
    nmsRecord record(of_this_process);
    describe(record, m_name, m_port.c_str());
    return std::unique_ptr<nmsClientStatus>(names->ImplRegister(record)) == nullptr;
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
    kel::set_name_service_patience(patience);
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
