// A name server as the commands ask it: each request is bounded in time, and one that fails says which host
// and port was asked and what can be done.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <kelstdmt/nmsclib.h>

#include "command.h"

namespace tool {

constexpr const char *server_name_field = "_ServerName", *server_port_field = "_PortNumber";

class NameServer {
public:
    // That of the host; of this machine when it is empty. Seconds for each request.
    NameServer(const std::string &host, double patience);

    // Throw Failure. Name and port stand first in a record, the other fields by their names.
    std::vector<kel::name_record> Query(const kel::name_record &wanted);
    void Register(const kel::name_record &record);
    int Delete(const kel::name_record &wanted);  // how many
    kel::name_record Version();
    double Ping();  // seconds until it answered
    void Shutdown();

    std::string Place() const;  // "this machine", or the host

private:
    template <class Request>
    double Ask(Request request);

    std::string m_host;
    double m_patience;
    std::unique_ptr<nmsServerProxy> m_proxy;
};

// Whether a host that was named is this machine, by the names that need no looking up.
bool IsThisMachine(const std::string &host);

// While it lives, the program has this many seconds; then it complains of having got no answer and ends.
// Nothing else bounds all that can take time: looking a name up, connecting, waiting for an answer.
class Deadline {
public:
    Deadline(double seconds, std::function<std::string()> from);
    ~Deadline();
    Deadline(const Deadline &) = delete;
    Deadline &operator=(const Deadline &) = delete;

    double Elapsed() const;  // seconds

private:
    struct State;
    std::unique_ptr<State> m_state;
};
void AddTimeout(CLI::App &line, double &seconds);
std::string DurationText(double seconds);  // "0.31 ms"

}  // namespace tool
