// The server around the parts: it listens, keeps the connections within their limits, and runs the loop.
#include <kelstdmt/nameserver.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

#include <kelstdmt/vumrt_socket.h>

#include "client.h"

namespace kel {

namespace {

using namespace detail;
using std::chrono::milliseconds;
using std::chrono::seconds;
using steady = std::chrono::steady_clock;

constexpr std::size_t most_clients = 1024;
constexpr std::size_t most_held = std::size_t{1} << 22;  // records of answers under way, of all clients
constexpr auto client_patience = seconds(10);            // for the next byte to go in or out
constexpr auto accept_pause = milliseconds(100);         // without descriptors
constexpr double unlimited = 1 << 30;

enum last_error { no_descriptors = 4, no_memory = 8, wrong_argument = 87, awaited_already = 183 };

// One line at a time, from whichever thread.
class log_writer {
public:
    explicit log_writer(std::function<void(const std::string &)> write) : m_write(std::move(write)) {}
    void operator()(const std::string &line) {
        std::lock_guard held(m_guard);
        if (m_write)
            m_write(line);
        else
            std::fprintf(stderr, "name server: %s\n", line.c_str());
    }

private:
    std::mutex m_guard;
    std::function<void(const std::string &)> m_write;
};

class listener : public awaited {
public:
    listener(std::unique_ptr<btkAcceptSocket> socket, std::function<void(btkAcceptSocket &)> accept)
        : awaited(new btkSelectEvent(socket->GetHandle(), 0)),
          m_socket(std::move(socket)),
          m_accept(std::move(accept)) {}
    void happened() override { m_accept(*m_socket); }

private:
    std::unique_ptr<btkAcceptSocket> m_socket;
    std::function<void(btkAcceptSocket &)> m_accept;
};

class own_event {
public:
    own_event() : m_handle(Event_Create()) {}
    ~own_event() { Event_Free(m_handle); }
    own_event(const own_event &) = delete;
    own_event &operator=(const own_event &) = delete;
    btkEventHandle get() const noexcept { return m_handle; }

private:
    btkEventHandle m_handle;
};

}  // namespace

struct name_server::state final : client_host {
    explicit state(const name_server_options &options)
        : log(std::make_shared<log_writer>(options.log)),
          registry(events, [log = log](const std::string &line) { (*log)(line); }) {
        const std::size_t longest = static_cast<std::size_t>(name_record_limits().value) - 1;
        version_record.set("Version", std::string_view(options.version).substr(0, longest));
    }
    ~state() override { close(); }

    bool listen(const name_server_options &options, std::string &error);
    bool listen(int wanted_port, const char *address, std::string &error);
    void accept(btkAcceptSocket &socket);
    bool make_room();
    void pause(bool on);
    void drop_idle();
    void drop_holders();
    double seconds_to_wait() const;
    bool run(btkEvent *stop);
    bool turn();
    void close();

    registrar &names() override { return registry; }
    const name_record &version() const override { return version_record; }
    void shut_down() override { is_shut_down = true; }
    event_loop &loop() override { return events; }
    void moved(client &client) override;
    void drop(client &client) override;

    std::shared_ptr<log_writer> log;
    name_record version_record;
    event_loop events;
    registrar registry;
    std::vector<std::unique_ptr<listener>> listeners;
    client_list clients;  // the one that has been idle longest comes first
    int port = 0;
    bool is_paused = false;
    moment paused_until;
    bool is_shut_down = false;
    own_event stop_event;
    std::thread thread;
};

// Listening ------------------------------------------------------------------------------------

bool name_server::state::listen(const name_server_options &options, std::string &error) {
    port = options.port;
    if (options.addresses.empty()) return listen(port, nullptr, error);
    return std::ranges::all_of(
        options.addresses, [&](const std::string &address) { return listen(port, address.c_str(), error); });
}

bool name_server::state::listen(int wanted_port, const char *address, std::string &error) {
    auto socket = std::make_unique<btkAcceptSocket>();
    if (!socket->Listen(wanted_port, address)) {
        const int reason = Error_GetLast();
        error = "cannot listen on " + (address ? std::string(address) + " " : std::string()) + "port " +
                std::to_string(wanted_port) + ": " +
                (address && reason == wrong_argument ? "an address is numeric, such as 127.0.0.1 or ::1"
                                                     : Error_GetText(reason));
        return false;
    }
    port = socket->GetPort();
    socket->SetTakeSilent(false);
    auto made =
        std::make_unique<listener>(std::move(socket), [this](btkAcceptSocket &from) { accept(from); });
    if (!events.add(*made)) {
        error = std::string("cannot wait for connections: ") + Error_GetText(Error_GetLast());
        return false;
    }
    listeners.push_back(std::move(made));
    return true;
}

// One; whether there are more is left to the next wait, since accepting in vain takes longer than that.
void name_server::state::accept(btkAcceptSocket &from) {
    auto socket = std::make_unique<btkStreamSocket>();
    while (!from.Accept(*socket)) {
        const int reason = Error_GetLast();
        // It was gone already.
        if (reason != no_descriptors && reason != no_memory) return;
        // The system says so also when nobody waits.
        if (from.Wait(btkTimeval(), btkSocket::ForInput) <= 0) return;
        if (!make_room()) return pause(true);
    }
    if (clients.size() >= most_clients) drop(*clients.front());
    clients.push_back(std::make_unique<client>(*this, std::move(socket)));
    client &made = *clients.back();
    made.place = std::prev(clients.end());
    made.last_moved = steady::now();
    made.begin();
}

bool name_server::state::make_room() {
    if (clients.empty()) return registry.give_descriptors();
    drop(*clients.front());
    return true;
}

// Those that wait to be accepted keep the listening sockets ready: they are not asked for a while.
void name_server::state::pause(bool on) {
    if (is_paused == on) return;
    is_paused = on;
    paused_until = steady::now() + accept_pause;
    for (const auto &listener : listeners)
        if (on)
            events.remove(*listener);
        else if (!events.add(*listener) && Error_GetLast() != awaited_already)
            is_paused = true;  // tried again after another while
}

// Connections ----------------------------------------------------------------------------------

void name_server::state::moved(client &client) {
    client.last_moved = steady::now();
    clients.splice(clients.end(), clients, client.place);
}

void name_server::state::drop(client &client) {
    clients.erase(client.place);
}

void name_server::state::drop_idle() {
    const moment now = steady::now();
    while (!clients.empty() && clients.front()->last_moved + client_patience <= now)
        drop(*clients.front());
}

// Records that were removed while their answers are under way take memory until those are taken.
void name_server::state::drop_holders() {
    while (records_held > most_held)
        drop(**std::ranges::find_if(clients, [](const auto &client) { return client->holds_records(); }));
}

double name_server::state::seconds_to_wait() const {
    moment next = moment::max();
    if (!clients.empty()) next = clients.front()->last_moved + client_patience;
    if (is_paused) next = std::min(next, paused_until);
    if (next == moment::max()) return unlimited;
    return std::max(0.0, std::chrono::duration<double>(next - steady::now()).count());
}

// Running --------------------------------------------------------------------------------------

// False at the end. What there was no memory for comes up again, and the peer that has been idle longest
// gives some.
bool name_server::state::turn() {
    try {
        if (!events.wait(seconds_to_wait())) return false;
        drop_idle();
        drop_holders();
        if (is_paused && paused_until <= steady::now()) pause(false);
    } catch (const std::bad_alloc &) {
        if (clients.empty())
            std::this_thread::sleep_for(accept_pause);
        else
            drop(*clients.front());
    }
    return true;
}

bool name_server::state::run(btkEvent *stop) {
    const bool can_end = events.add_stop(stop);
    if (!can_end) (*log)("cannot wait for the end");
    while (can_end && !is_shut_down && turn()) {
    }
    events.remove_stop();
    close();
    return can_end;
}

void name_server::state::close() {
    if (!is_paused)
        for (const auto &listener : listeners)
            events.remove(*listener);
    listeners.clear();
    clients.clear();
}

name_server::name_server(std::unique_ptr<state> owned) noexcept : m_state(std::move(owned)) {}

name_server::~name_server() {
    stop();
}

std::unique_ptr<name_server> name_server::create(const name_server_options &options, std::string &error) {
    auto made = std::make_unique<state>(options);
    if (made->stop_event.get() < 0) {
        error = std::string("cannot make an event: ") + Error_GetText(Error_GetLast());
        return nullptr;
    }
    if (!options.journal.empty() && !made->registry.open_journal(options.journal, error)) return nullptr;
    if (!made->listen(options, error)) return nullptr;
    return std::unique_ptr<name_server>(new name_server(std::move(made)));
}

int name_server::port() const noexcept {
    return m_state->port;
}

bool name_server::run(evtEvent *stop) {
    return m_state->run(stop);
}

bool name_server::start() {
    if (m_state->thread.joinable()) return false;
    try {
        m_state->thread = std::thread([state = m_state.get()] {
            btkEvent stop(new btkEVENTEvent(state->stop_event.get()));
            state->run(&stop);
        });
    } catch (const std::system_error &) {
        return false;
    }
    return true;
}

void name_server::stop() {
    Event_Set(m_state->stop_event.get());
    if (m_state->thread.joinable()) m_state->thread.join();
}

}  // namespace kel
