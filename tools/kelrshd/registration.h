// The server's name at the name server of this machine.
//
// The record is associated with this process and goes when that ends, in whatever way. A name server that is
// started anew may have lost it (one with a journal has not): it is asked now and then, and told again.
#pragma once

#include <string>

#include <kelstdmt/eventlib.h>

#include "log.h"

class registration {
public:
    registration(std::string name, int port, service::log_writer &log);

    std::string begin();       // what is wrong, or ""
    void keep(evtEvent &end);  // until the event is signalled

private:
    enum class state { registered, unanswered, lost, taken };
    state look() const;
    bool add() const;
    void found(state now);

    std::string m_name, m_port;
    service::log_writer &m_log;
    state m_state = state::registered;
};
