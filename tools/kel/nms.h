// A name server as the commands ask it: each request is bounded in time, and one that fails says which host
// and port was asked and what can be done.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kelstdmt/nmsclib.h>

namespace tool {

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

// None for what is no number from 1 to 65535.
std::optional<int> ToPort(std::string_view text);

}  // namespace tool
