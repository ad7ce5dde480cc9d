// kelnmsd: the name server of a host as a program, in the foreground, as a daemon, or under a service
// manager.
#include <CLI/CLI.hpp>
#include <chrono>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <kelstdmt/nameserver.h>
#include <kelstdmt/netlib_service.h>
#include <kelstdmt/vumrt_names.h>
#include <kelstdmt/vumtext.h>

namespace {

enum exit_code : int { done = 0, failed = 1, wrong_usage = 2 };

constexpr const char *footer =
    R"(Without --foreground it becomes a daemon, and the command ends when that serves.
Clients of this machine register and remove records; all may query.
Exit codes: 0 done, 1 failed, 2 wrong usage.)";

struct command_line {
    kel::name_server_options server;
    bool is_foreground = false;
    std::string pid_file, log_file;
};

void complain(const std::string &text) {
    std::cerr << "kelnmsd: " << text << std::endl;
}

// The service was asked to stop. A name server has nothing to pause: such requests are taken notice of.
class stop_request : public btkBaseEvent {
public:
    explicit stop_request(evtEvent *state) : m_state(state) {}
    bool IsReady() override { return m_state->GetBaseEvent()->IsReady() && is_stop(); }
    btkPollRequest GetPollRequest() override { return m_state->GetBaseEvent()->GetPollRequest(); }
    bool Confirm(unsigned) override { return is_stop(); }

private:
    static bool is_stop() {
        if (netService::IsStopped()) return true;
        netService::IsPaused();
        return false;
    }

    std::unique_ptr<evtEvent> m_state;
};

// Lines with the time, at the end of a file; or without, on standard error.
class log_writer {
public:
    bool open(const std::string &path) {
        if (!path.empty()) m_file.open(btkHostPath(path.c_str()), std::ios::app);
        return path.empty() || m_file.is_open();
    }
    void write(const std::string &line) {
        if (!m_file.is_open()) return complain(line);
        const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
        char text[32] = "";
        if (const std::tm *time = std::localtime(&now))
            std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z ", time);
        m_file << text << line << std::endl;
    }

private:
    std::ofstream m_file;
};

class body : public netService_DoService_cb {
public:
    explicit body(command_line &line) : m_line(line) {}
    void DoService(netService *, xrchandle<xstringsequence>) override {
        if (!m_log.open(m_line.log_file)) return complain("cannot write the log " + m_line.log_file);
        m_line.server.log = [this](const std::string &line) { m_log.write(line); };
        std::unique_ptr<evtEvent> state(netService::StateEvent());
        if (!state) return complain("no more descriptors");
        evtEvent stop(new stop_request(state.release()));
        std::string error;
        const auto server = kel::name_server::create(m_line.server, error);
        if (!server) return complain(error);
        if (m_line.server.port == 0) std::cout << "port " << server->port() << '\n';
        if (m_line.is_foreground) std::cout << "ready\n";
        std::cout.flush();
        netService::ReportRunning();
        kel::daemon_ready();
        server->run(&stop);
        m_code = done;
    }
    exit_code code() const noexcept { return m_code; }

private:
    command_line &m_line;
    log_writer m_log;
    exit_code m_code = failed;
};

exit_code serve(command_line &line) {
    std::string reason;
    if (!line.is_foreground && !kel::become_daemon(line.pid_file.c_str(), &reason)) {
        complain(reason);
        return failed;
    }
    body work(line);
    const std::unique_ptr<netService> service(
        netService::Create("kelnmsd", netService::ExtractParms(0, nullptr), "Name server"));
    service->setDoService(&work);
    if (!service->Run()) complain(std::string("cannot run: ") + Error_GetText(Error_GetLast()));
    return work.code();
}

std::string usual_pid_file() {
    dsString folder;
    if (Getenv("XDG_RUNTIME_DIR", folder) && !folder.StrEmpty())
        return folder.Str() + std::string("/kelnmsd.pid");
    return "/run/kelnmsd.pid";
}

int misused(const std::string &mistake) {
    complain(mistake);
    std::cerr << "Try 'kelnmsd --help'.\n";
    return wrong_usage;
}

}  // namespace

int main(int count, char **arguments) {
    command_line line;
    constexpr int highest_port = 65535;
    line.server.version = "kelnmsd " KEL_VERSION;
    line.pid_file = usual_pid_file();

    CLI::App app("The name server of this host.", "kelnmsd");
    app.set_version_flag("--version", line.server.version);
    app.footer(footer);
    const CLI::Option *port =
        app.add_option("--port", line.server.port,
                       "Listen on this port; 0: one that the system chooses and that is "
                       "printed. Else ORVNMSPORT, else 1239")
            ->check(CLI::Range(0, highest_port))
            ->type_name("N");
    app.add_option("--listen", line.server.addresses,
                   "Listen on this numeric address; may be repeated. Else on all")
        ->expected(1)
        ->take_all()
        ->type_name("ADDRESS");
    app.add_option("--journal", line.server.journal,
                   "Keep records in this file, so that they outlive the server")
        ->type_name("FILE");
    app.add_flag("--foreground", line.is_foreground, "Stay, and print \"ready\" when it listens");
    app.add_option("--pid-file", line.pid_file, "The daemon's process id stands here")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--log", line.log_file,
                   "Append complaints to this file. Else, in the foreground, they are "
                   "printed")
        ->type_name("FILE");
    try {
        app.parse(count, arguments);
    } catch (const CLI::Success &help) {
        app.exit(help);
        return std::cout.flush() ? done : failed;
    } catch (const CLI::ParseError &error) {
        return misused(error.what());
    }
    if (port->count() == 0) line.server.port = kel::name_service_port_of_environment();
    try {
        return serve(line);
    } catch (const std::exception &error) {
        complain(error.what());
        return failed;
    }
}
