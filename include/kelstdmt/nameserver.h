// The name server of a host. The program kelnmsd is one; a program may also run one of its own.
// doc/name-service.md tells what it answers, doc/kelnmsd.md how the program is run.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <kelstdmt/eventlib.h>
#include <kelstdmt/export.h>

namespace kel {

struct name_server_options {
    int port = 0;                        // 0: the system chooses
    std::vector<std::string> addresses;  // numeric; none: all of this machine
    std::string journal;                 // a path in the callers' form; none: records live in memory alone
    std::string version = "kelstdmt name server";  // the answer's field "Version"
    std::function<void(const std::string &)> log;  // lines about what went wrong; none: standard error
};

class KELSTDMT_API name_server {
public:
    // Listens, and takes in the journal. Null when it cannot; `error` tells what failed, on what, and what to
    // do.
    static std::unique_ptr<name_server> create(const name_server_options &options, std::string &error);
    ~name_server();  // stops the thread and lets go of all connections
    name_server(const name_server &) = delete;
    name_server &operator=(const name_server &) = delete;

    int port() const noexcept;

    // Serves on this thread until the event (null: none) is signalled or a client of this machine shuts it
    // down. False when it cannot wait for the event.
    bool run(evtEvent *stop);
    // The same on a thread of its own; stop ends that and waits for it. False when it cannot be started.
    bool start();
    void stop();

private:
    struct state;
    explicit name_server(std::unique_ptr<state> owned) noexcept;

    std::unique_ptr<state> m_state;
};

}  // namespace kel
