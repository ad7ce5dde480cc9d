#include "host.h"

#include <stdexcept>

void Journal::Write(const std::string &line) {
    {
        const std::lock_guard held(m_lock);
        m_lines.push_back(line);
    }
    m_written.notify_one();
}

std::string Journal::Await() {
    std::unique_lock held(m_lock);
    m_written.wait(held, [this] { return !m_lines.empty(); });
    const std::string line = m_lines.front();
    m_lines.pop_front();
    return line;
}

// Every command gets a thread.
class Host::Requests : public netBaseServer_OnRequest_cb {
public:
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *) override { return netSpawnAsyncServer; }
};

class Host::Commands : public netBaseServer_OnAsyncRequest_cb {
public:
    Commands(Journal &journal, const std::string &base_directory) {
        m_options.base_directory = xstring(base_directory.c_str());
        // A text refuses, and the client reads it.
        m_options.permit = [](const kel::remote_command &command) {
            const bool shuts_down = std::string(command.text).starts_with("shutdown");
            return shuts_down ? xstring("This machine stays up.") : xstring(xstrNullStr);
        };
        m_options.refused = [&journal](const kel::remote_command &command, const xstring &reason) {
            journal.Write("did not start \"" + std::string(command.text) + "\": " + std::string(reason));
        };
        m_options.ended = [&journal](const kel::remote_command &command, int exit_code, bool stayed) {
            journal.Write("ran \"" + std::string(command.text) + "\": exit code " +
                          std::to_string(exit_code) + (stayed ? "" : ", the client left"));
        };
    }
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *taken, evtEvent *stop) override {
        const std::unique_ptr<netSocketStream> stream(taken);
        kel::serve_remote_command(stream.get(), m_options, stop);
        return netServerContinue;
    }

private:
    kel::remote_shell_options m_options;
};

Host::Host(const std::string &base_directory) {
    std::string error;
    m_names = kel::name_server::create({}, error);
    if (!m_names) throw std::runtime_error(error);
    sysPutEnv("ORVNMSPORT", std::to_string(m_names->port()).c_str());
    if (!m_names->start()) throw std::runtime_error("the name server cannot start");

    m_requests = std::make_unique<Requests>();
    m_commands = std::make_unique<Commands>(m_journal, base_directory);
    kel::server_options options;
    options.needs_list = true;  // other machines are served when the registry lists them
    m_server.reset(netServer::Create(kel::remote_shell_name(nullptr), 0, options));
    if (!m_server) throw std::runtime_error(std::string("no port: ") + Error_GetText(Error_GetLast()));
    m_server->setOnRequest(m_requests.get());
    m_server->setOnAsyncRequest(m_commands.get());
    m_loop = std::thread([this] { m_server->Run(); });
}

Host::~Host() {
    const std::unique_ptr<netAddress> address(netAddress::Create(m_server->getPortN(), xstrNullStr));
    netServer::Shutdown(address.get());
    m_loop.join();
}
