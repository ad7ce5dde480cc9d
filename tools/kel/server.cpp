// kel server: asks a server that is known by name, or by port, whether it lives and what it is, and ends it.
#include <iostream>

#include <kelstdmt/netlib_server.h>

#include "command.h"
#include "json.h"
#include "nms.h"
#include "text.h"
#include "waiting.h"

namespace tool {

namespace {

struct Asked {
    std::string server;
    double patience = 10;
    bool json = false;
};

// A server whose port is known: given, or found in the name server of its host.
class Server {
public:
    explicit Server(const Asked &options) : m_options(options) {
        // Names may hold an @, hosts do not.
        const std::string &text = options.server;
        const std::size_t at = text.rfind('@');
        m_name = text.substr(0, at);
        if (at != std::string::npos) m_host = text.substr(at + 1);
        if (m_name.empty() || text.ends_with('@')) throw Misuse("NAME[@HOST] or :PORT[@HOST], not " + text);
        if (m_name.starts_with(':')) {
            m_port = ToPort(m_name.substr(1)).value_or(0);
            if (!m_port) throw Misuse("no port: " + m_name.substr(1));
        } else {
            LookUp();
        }
        m_address.reset(netAddress::Create(m_port, m_host.empty() ? xstrNullStr : m_host.c_str()));
    }

    // "adder on this machine, port 4711"
    std::string Text() const {
        const std::string place = m_host.empty() ? "this machine" : Printable(m_host);
        return (m_name.starts_with(':') ? "the server" : Printable(m_name)) + " on " + place + ", port " +
               std::to_string(m_port);
    }
    Json Document() const {
        Json document;
        if (!m_name.starts_with(':')) PutBytes(document, "server", m_name);
        PutBytes(document, "host", kel::view(m_address->getHostName()));
        document["port"] = m_port;
        return document;
    }

    // Runs the request; the seconds that it took.
    template <class Request>
    double Ask(Request request) {
        try {
            Deadline deadline(m_options.patience, [this] { return Text(); });
            request(m_address.get());
            return deadline.Elapsed();
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            if (!error.is<netXException>()) throw Failure(Explained(error));
        }
        throw Failure(Text() + " refuses this machine, which its setting ConnectionAllowed does not name");
    }
    double CheckAlive() {
        bool alive = false;
        Error_SetLast(0);
        const double seconds = Ask([&](netAddress *address) { alive = netServer::IsAlive(address) == 1; });
        if (alive) return seconds;
        const int error = Error_GetLast();
        throw Failure(Text() + " does not answer" + (error ? std::string(": ") + Error_GetText(error) : ""));
    }

private:
    void LookUp() {
        NameServer names(m_host, m_options.patience);
        kel::name_record wanted;
        wanted.set(kel::server_name_field, m_name);
        for (const kel::name_record &record : names.Query(wanted)) {
            const std::string *port = record.find(kel::server_port_field);
            if (!port) continue;
            m_port = ToPort(*port).value_or(0);
            if (m_port) return;
            throw Failure(Printable(m_name) + " is registered on " + names.Place() +
                          " with no port: " + Printable(*port));
        }
        throw Failure("no server " + Printable(m_name) + " is registered on " + names.Place() +
                      " (kel nms list shows those that are)");
    }

    const Asked &m_options;
    std::string m_name, m_host;
    int m_port = 0;
    std::unique_ptr<netAddress> m_address;
};

ExitCode Ping(const Asked &options) {
    Server server(options);
    const double seconds = server.CheckAlive();
    if (options.json) {
        Json document = server.Document();
        document["alive"] = true;
        document["seconds"] = NumberOf(seconds);
        PrintJson(document);
    } else {
        std::cout << server.Text() << " answers: " << DurationText(seconds) << '\n';
    }
    return done;
}

ExitCode Version(const Asked &options) {
    Server server(options);
    server.CheckAlive();
    std::string version;
    server.Ask([&](netAddress *address) { version = kel::view(netServer::GetVersion(address)); });
    if (options.json) {
        Json document = server.Document();
        PutBytes(document, "version", version);
        PrintJson(document);
    } else {
        std::cout << Printable(version) << '\n';
    }
    return done;
}

ExitCode Shutdown(const Asked &options) {
    Server server(options);
    server.CheckAlive();  // shutting down says nothing of a server that is not there
    server.Ask([](netAddress *address) { netServer::Shutdown(address); });
    return done;
}

void AddServer(CLI::App &line, Asked &options) {
    AddArgument(line, "NAME", options.server, "The server, on this machine or another; also :PORT")
        ->option_text("NAME[@HOST]")
        ->required();
    AddTimeout(line, options.patience);
}

void AddCommands(CLI::App &group) {
    group.require_subcommand(1);
    group.footer("A name is looked up in the name server of the host; `kel nms list` shows the names.");
    {
        auto [line, options] = AddCommand(group, "ping", "Ask whether a server answers", Ping);
        AddServer(line, options);
        AddJson(line, options.json);
    }
    {
        auto [line, options] = AddCommand(group, "version", "Print what a server says it is", Version);
        AddServer(line, options);
        AddJson(line, options.json);
    }
    {
        auto [line, options] = AddCommand(group, "shutdown", "Ask a server to end", Shutdown);
        AddServer(line, options);
    }
}

const Group group("server", "Ask servers that are found by name, and shut them down", AddCommands);

}  // namespace

}  // namespace tool
