// kelrshd: the remote-shell server of a host, or of one of its users. It listens with one server for each
// address, all of which share the limit and the name.
#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include <kelstdmt/kel.h>
#include <kelstdmt/netlib_service.h>
#include <kelstdmt/syslib.h>

#include "registration.h"
#include "service.h"
#include "sessions.h"

namespace {

constexpr const char *footer =
    R"(Without --foreground it becomes a daemon, and the command ends when that serves.
Clients run any command as the user of the server. Those of other machines need a
place on the registry's list: kel reg set software/orv/NAME ConnectionAllowed '10.0.0.*'
Nothing that travels is encrypted, and nobody is asked who they are.
Exit codes: 0 done, 1 failed, 2 wrong usage.)";

class serving : public service::work {
public:
    serving();
    int main(int count, char **arguments) { return m_program.main(count, arguments, *this); }

    std::string begin() override;
    int port() const override { return m_servers.front()->getPortN(); }
    bool serve() override;

private:
    std::string choose_name();
    std::string enter_base();
    std::string listen();
    std::string listen(int port, const char *address);
    void run(std::size_t number);

    service::program m_program{
        "kelrshd", "The remote-shell server of this host: it runs the commands of others.", "the same"};
    std::string m_name, m_base;
    bool m_is_user_server = false, m_allows_root = false;
    int m_limit = 64;
    std::unique_ptr<sessions> m_sessions;
    std::vector<std::unique_ptr<netServer>> m_servers;
    std::vector<std::unique_ptr<evtEvent>> m_stops;  // one for each server, and one for the registration
    std::unique_ptr<registration> m_registration;
    std::atomic<bool> m_has_failed = false;
};

serving::serving() {
    constexpr int highest_limit = 10000;
    CLI::App &options = m_program.options;
    options.footer(footer);
    CLI::Option *name =
        options.add_option("--name", m_name, "Register under this name. Else kelrshd")->type_name("NAME");
    options
        .add_flag("--user-server", m_is_user_server, "Register as kelrshd-USER, for `kel rsh --user USER`")
        ->excludes(name);
    options.add_option("--base", m_base, "Commands start in this folder, and what clients name is below it")
        ->type_name("FOLDER");
    options.add_option("--limit", m_limit, "Commands at a time")
        ->check(CLI::Range(1, highest_limit))
        ->type_name("N")
        ->capture_default_str();
    options.add_flag("--allow-root", m_allows_root, "Serve although every client is root then");
}

std::string serving::choose_name() {
    if (!m_name.empty()) return "";
    const xstring user = m_is_user_server ? sysGetCurUserName() : xstring();
    if (m_is_user_server && !kel::is_text(user)) return "the user of this process has no name";
    m_name = kel::view(kel::remote_shell_name(user));
    return "";
}

// So that a command whose client names no folder starts there as well.
std::string serving::enter_base() {
    if (m_base.empty()) return "";
    std::error_code failure;
    std::filesystem::current_path(btkHostPath(m_base.c_str()), failure);
    if (failure) return "cannot enter the folder " + m_base + ": " + failure.message();
    m_base = std::filesystem::current_path(failure).string();
    return "";
}

std::string serving::listen(int port, const char *address) {
    kel::server_options options;
    options.address = address;
    options.is_registered = false;  // several servers have one name, which is kept through the years
    options.needs_list = true;
    options.refused = [this](const char *peer) {
        m_sessions->refused(peer, "not permitted by the lists of software/orv/" + m_name);
    };
    std::unique_ptr<netServer> server(netServer::Create(m_name.c_str(), port, options));
    std::unique_ptr<evtEvent> stop = service::stop_event();
    if (!server || !stop)
        return "cannot listen on " + (address ? std::string(address) + " " : std::string()) + "port " +
               std::to_string(port) + ": " + Error_GetText(Error_GetLast());
    server->setOnRequest(m_sessions.get());
    server->setOnAsyncRequest(m_sessions.get());
    m_servers.push_back(std::move(server));
    m_stops.push_back(std::move(stop));
    return "";
}

std::string serving::listen() {
    const int wanted = m_program.port.value_or(0);
    if (m_program.addresses.empty()) return listen(wanted, nullptr);
    std::string error;
    for (const std::string &address : m_program.addresses)
        if (error.empty()) error = listen(m_servers.empty() ? wanted : port(), address.c_str());
    return error;
}

std::string serving::begin() {
    if (kel::is_superuser() && !m_allows_root)
        return "every client would be root; run it as another user, or with --allow-root";
    std::string error = choose_name();
    if (error.empty()) error = enter_base();
    m_sessions = std::make_unique<sessions>(m_limit, m_base, m_program.log());
    if (error.empty()) error = listen();
    if (!error.empty()) return error;
    m_stops.push_back(service::stop_event());
    if (!m_stops.back()) return "no more descriptors";
    m_registration = std::make_unique<registration>(m_name, port(), m_program.log());
    return m_registration->begin();
}

// The end of one is the end of all: a client may have asked for it.
void serving::run(std::size_t number) {
    const auto failed = [this](const std::string &reason) {
        m_has_failed = true;
        m_program.log().write(reason);
    };
    try {
        m_servers[number]->Run(m_stops[number].get());
    } catch (xthrowable *thrown) {
        failed(kel::caught(thrown).text());
    } catch (const std::exception &error) {
        failed(error.what());
    }
    netService::RequestStop();
}

bool serving::serve() {
    std::vector<std::thread> threads;
    for (std::size_t number = 1; number < m_servers.size(); ++number)
        threads.emplace_back([this, number] { run(number); });
    threads.emplace_back([this] { m_registration->keep(*m_stops.back()); });
    run(0);
    for (std::thread &each : threads)
        each.join();
    // Ends the commands and waits for them.
    m_servers.clear();
    return !m_has_failed;
}

}  // namespace

int main(int count, char **arguments) {
    return serving().main(count, arguments);
}
