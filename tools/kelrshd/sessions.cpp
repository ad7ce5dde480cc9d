#include "sessions.h"

#include <memory>
#include <string_view>

#include <kelstdmt/kel.h>

#include "text.h"

// One of a limited number of places, given back at the end.
class place_of_command {
public:
    explicit place_of_command(std::atomic<int> &taken) : m_taken(taken) {}
    ~place_of_command() {
        if (m_is_taken) --m_taken;
    }
    place_of_command(const place_of_command &) = delete;
    place_of_command &operator=(const place_of_command &) = delete;

    bool take(int limit) {
        for (int taken = m_taken; !m_is_taken && taken < limit;)
            m_is_taken = m_taken.compare_exchange_weak(taken, taken + 1);
        return m_is_taken;
    }

private:
    std::atomic<int> &m_taken;
    bool m_is_taken = false;
};

namespace {

constexpr std::size_t longest_text = 1000;  // bytes of a command or a folder in the log
constexpr int signal_base = 128;
constexpr const char *too_many = "too many connections";

// In quotes, on one line, and harmless to a terminal; of a long text the beginning.
std::string in_quotes(std::string_view text) {
    std::string shown = "\"";
    for (const char each : tool::Printable(text.substr(0, longest_text))) {
        if (each == '"') shown += '\\';
        shown += each;
    }
    shown += '"';
    if (text.size() > longest_text) shown += "... (" + std::to_string(text.size()) + " bytes)";
    return shown;
}

std::string told(const kel::remote_command &command) {
    std::string text = (command.use_shell ? "shell " : "") + in_quotes(kel::view(command.text));
    if (kel::is_text(command.working_directory) && *command.working_directory.Str())
        text += " in " + in_quotes(btkHostPath(command.working_directory));
    return text;
}

std::string told(int exit_code) {
    std::string text = "exit code " + std::to_string(exit_code);
    // What the system tells of signals, and shells do too.
    constexpr int last_signal = 64;
    if (exit_code > signal_base && exit_code <= signal_base + last_signal)
        text += " (signal " + std::to_string(exit_code - signal_base) + ")";
    return text;
}

}  // namespace

void sessions::refused(const std::string &peer, const std::string &reason) {
    m_log.write(peer + " refused: " + reason);
}

// What comes in a flood is closed without a thread.
netServerLoopAction sessions::OnRequest(netBaseServer *, netSocketStream *stream) {
    if (m_connections < m_limit + most_refused) return netSpawnAsyncServer;
    const std::unique_ptr<netSocketStream> owned(stream);
    refused(std::string(kel::view(stream->getPeer())), too_many);
    return netServerContinue;
}

netServerLoopAction sessions::OnAsyncRequest(netBaseServer *, netSocketStream *stream, evtEvent *stop) {
    const std::unique_ptr<netSocketStream> owned(stream);
    place_of_command connection(m_connections), command(m_commands);
    const std::string peer(kel::view(stream->getPeer()));
    // Several may have been given a thread before the first of them was counted.
    if (!connection.take(m_limit + most_refused)) return refused(peer, too_many), netServerContinue;
    try {
        bool has_asked = false;
        kel::serve_remote_command(stream, options_for(peer, command, has_asked), stop);
        if (!has_asked) refused(peer, "it has not said in time what to run");
    } catch (xthrowable *thrown) {
        m_log.write(peer + " failed: " + kel::caught(thrown).text());
    } catch (const std::exception &error) {
        m_log.write(peer + " failed: " + error.what());
    }
    return netServerContinue;
}

kel::remote_shell_options sessions::options_for(const std::string &peer, place_of_command &place,
                                                bool &has_asked) {
    kel::remote_shell_options options;
    options.base_directory = xstring(m_base_folder.c_str());
    options.permit = [this, &place, &has_asked](const kel::remote_command &) {
        has_asked = true;
        if (place.take(m_limit)) return xstring();
        const std::string reason = std::to_string(m_limit) + " commands run already, which is the limit";
        return xstring(reason.c_str());
    };
    options.refused = [this, peer, &has_asked](const kel::remote_command &command, const xstring &reason) {
        has_asked = true;
        m_log.write(peer + " refused " + told(command) + ": " + tool::Printable(kel::view(reason)));
    };
    const auto id = std::make_shared<int>(0);
    options.launched = [this, peer, id](const kel::remote_command &command, int process_id) {
        *id = process_id;
        m_log.write(peer + " started " + std::to_string(process_id) + ": " + told(command));
    };
    options.ended = [this, peer, id](const kel::remote_command &, int exit_code, bool client_stayed) {
        m_log.write(peer + " ended " + std::to_string(*id) + ": " + told(exit_code) +
                    (client_stayed ? "" : ", its client has left"));
    };
    return options;
}
