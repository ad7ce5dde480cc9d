#include "service.h"

#include <exception>
#include <iostream>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_service.h>
#include <kelstdmt/vumtext.h>

namespace service {

namespace {

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

class body : public netService_DoService_cb {
public:
    body(work &what, log_writer &complaints, bool tells_port, bool tells_ready)
        : m_work(what), m_complaints(complaints), m_tells_port(tells_port), m_tells_ready(tells_ready) {}
    void DoService(netService *, xrchandle<xstringsequence>) override {
        if (const std::string error = m_work.begin(); !error.empty()) return m_complaints.write(error);
        if (m_tells_port) std::cout << "port " << m_work.port() << '\n';
        if (m_tells_ready) std::cout << "ready\n";
        std::cout.flush();
        netService::ReportRunning();
        kel::daemon_ready();
        if (m_work.serve()) m_code = done;
    }
    exit_code code() const noexcept { return m_code; }

private:
    work &m_work;
    log_writer &m_complaints;
    bool m_tells_port, m_tells_ready;
    exit_code m_code = failed;
};

std::string usual_pid_file(const std::string &name) {
    dsString folder;
    const bool has_folder = Getenv("XDG_RUNTIME_DIR", folder) && !folder.StrEmpty();
    return (has_folder ? folder.Str() : std::string("/run")) + "/" + name + ".pid";
}

}  // namespace

std::unique_ptr<evtEvent> stop_event() {
    std::unique_ptr<evtEvent> state(netService::StateEvent());
    if (!state) return nullptr;
    return std::make_unique<evtEvent>(new stop_request(state.release()));
}

// The program ----------------------------------------------------------------------------------

program::program(const std::string &name, const std::string &purpose, const std::string &port_otherwise)
    : options(purpose, name), m_complaints(name), m_log(name), m_pid_file(usual_pid_file(name)) {
    constexpr int highest_port = 65535;
    options.set_version_flag("--version", name + " " KEL_VERSION);
    options
        .add_option(
            "--port", port,
            "Listen on this port; 0: one that the system chooses and that is printed. Else " + port_otherwise)
        ->check(CLI::Range(0, highest_port))
        ->type_name("N");
    options.add_option("--listen", addresses, "Listen on this numeric address; may be repeated. Else on all")
        ->expected(1)
        ->take_all()
        ->type_name("ADDRESS");
    options.add_flag("--foreground", m_is_foreground, "Stay, and print \"ready\" when it listens");
    options.add_option("--pid-file", m_pid_file, "The daemon's process id stands here")
        ->type_name("FILE")
        ->capture_default_str();
    options
        .add_option("--log", m_log_file,
                    "Append the log to this file. Else, in the foreground, it is printed")
        ->type_name("FILE");
}

int program::misused(const std::string &mistake) {
    m_complaints.write(mistake);
    std::cerr << "Try '" << options.get_name() << " --help'.\n";
    return wrong_usage;
}

int program::main(int count, char **arguments, work &what) {
    try {
        options.parse(count, arguments);
    } catch (const CLI::Success &help) {
        options.exit(help);
        return std::cout.flush() ? done : failed;
    } catch (const CLI::ParseError &error) {
        return misused(error.what());
    }
    try {
        return serve(what);
    } catch (xthrowable *thrown) {
        m_complaints.write(kel::caught(thrown).text());
    } catch (const std::exception &error) {
        m_complaints.write(error.what());
    }
    return failed;
}

int program::serve(work &what) {
    std::string reason;
    if (!m_is_foreground && !kel::become_daemon(m_pid_file.c_str(), &reason)) {
        m_complaints.write(reason);
        return failed;
    }
    if (!m_log.open(m_log_file)) {
        m_complaints.write("cannot write the log " + m_log_file);
        return failed;
    }
    body serving(what, m_complaints, port == 0, m_is_foreground);
    const std::string name = options.get_name();
    const std::unique_ptr<netService> owned(
        netService::Create(name.c_str(), netService::ExtractParms(0, nullptr), nullptr));
    owned->setDoService(&serving);
    if (!owned->Run()) m_complaints.write(std::string("cannot run: ") + Error_GetText(Error_GetLast()));
    return serving.code();
}

}  // namespace service
