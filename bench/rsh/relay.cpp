// The bare relay: input and output of a command over one socket, with a blocking loop of read and write for
// each direction at each end. No error channel, no exit code, no interrupt.
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "spawn.h"

namespace bench {
namespace {

// Until the end, or until nobody takes it.
void pump(int from, int to) {
    std::vector<char> block(65'536);
    try {
        for (;;) {
            const ssize_t came = ::read(from, block.data(), block.size());
            if (came <= 0) return;
            write_all(to, block.data(), static_cast<std::size_t>(came));
        }
    } catch (const Gone &) {
    }
}

void serve_command(int connection) {
    char size[4];
    if (!read_plainly(connection, size, sizeof size)) return;
    std::string words(static_cast<std::size_t>(int_of(size)), ' ');
    if (!read_plainly(connection, words.data(), words.size())) return;
    SpawnedCommand command(split(words));
    std::thread input([&] {
        pump(connection, command.in());
        command.end_input();
    });
    pump(command.out(), connection);
    command.await();
    shutdown(connection, SHUT_WR);
    input.join();
}

class RelayedCommand : public Command {
public:
    RelayedCommand(int port, const std::string &words)
        : m_connection(connect_plainly(port)), m_in(make_pipe()), m_out(make_pipe()) {
        char size[4];
        put_int(size, static_cast<int>(words.size()));
        const std::string request = std::string(size, 4) + words;
        if (!write_plainly(m_connection.number, request.data(), request.size())) throw Gone();
        m_input = std::thread([this] {
            pump(m_in.read.number, m_connection.number);
            m_in.read.close();
            shutdown(m_connection.number, SHUT_WR);
        });
        m_output = std::thread([this] {
            pump(m_connection.number, m_out.write.number);
            m_out.write.close();
        });
    }
    ~RelayedCommand() override {
        m_out.read.close();
        m_in.write.close();
        shutdown(m_connection.number, SHUT_RDWR);
        m_input.join();
        m_output.join();
    }
    void write(const char *bytes, std::size_t count) override { write_all(m_in.write.number, bytes, count); }
    void end_input() override { m_in.write.close(); }
    std::size_t read(char *bytes, std::size_t count) override {
        return read_all(m_out.read.number, bytes, count);
    }
    int await() override { return 0; }  // its output has ended

private:
    Descriptor m_connection;
    Pipe m_in, m_out;
    std::thread m_input, m_output;
};

class Relay : public Shell {
public:
    std::unique_ptr<Command> start(const std::string &words) override {
        return std::make_unique<RelayedCommand>(m_server.port(), words);
    }
    pid_t server() const override { return m_server.id(); }

private:
    OwnProcess m_server{"relay"};
};

}  // namespace

void serve_relay() {
    int port;
    const int listener = listen_plainly(port);
    announce(port);
    for (;;) {
        const int connection = accept_plainly(listener);
        if (connection < 0) continue;
        std::thread([connection] {
            const Descriptor owned(connection);
            try {
                serve_command(connection);
            } catch (const Gone &) {  // the peer sees the end
            }
        }).detach();
    }
}

void add_relay(Suite &suite) {
    const Library relay = Library::Relay;
    const char *way = "read, write";
    const OpenShell open = [] { return std::make_unique<Relay>(); };
    add_short(suite, "true", relay, way, open, 100);
    add_line(suite, relay, way, open);
    add_bulk(suite, relay, way, open);
    add_crowd(suite, relay, way, open);
    add_memory(suite, relay, way, open);
}

}  // namespace bench
