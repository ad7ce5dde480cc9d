// kelnmsd: the name server of a host as a program, in the foreground, as a daemon, or under a service
// manager.
#include <kelstdmt/nameserver.h>
#include <kelstdmt/vumrt_names.h>

#include "service.h"

namespace {

constexpr const char *footer =
    R"(Without --foreground it becomes a daemon, and the command ends when that serves.
Clients of this machine register and remove records; all may query.
Exit codes: 0 done, 1 failed, 2 wrong usage.)";

class naming : public service::work {
public:
    naming() : m_program("kelnmsd", "The name server of this host.", "ORVNMSPORT, else 1239") {
        m_program.options.footer(footer);
        m_program.options
            .add_option("--journal", m_settings.journal,
                        "Keep records in this file, so that they outlive the server")
            ->type_name("FILE");
    }
    int main(int count, char **arguments) { return m_program.main(count, arguments, *this); }

    std::string begin() override {
        m_settings.version = "kelnmsd " KEL_VERSION;
        m_settings.port = m_program.port ? *m_program.port : kel::name_service_port_of_environment();
        m_settings.addresses = m_program.addresses;
        m_settings.log = [this](const std::string &line) { m_program.log().write(line); };
        m_stop = service::stop_event();
        if (!m_stop) return "no more descriptors";
        std::string error;
        m_server = kel::name_server::create(m_settings, error);
        return error;
    }
    int port() const override { return m_server->port(); }
    bool serve() override { return m_server->run(m_stop.get()); }

private:
    service::program m_program;
    kel::name_server_options m_settings;
    std::unique_ptr<evtEvent> m_stop;
    std::unique_ptr<kel::name_server> m_server;
};

}  // namespace

int main(int count, char **arguments) {
    return naming().main(count, arguments);
}
