// The command that a server of the remote shell runs: its process, and the relay's ends of its channels.
#pragma once

#include <optional>
#include <string>

#include <kelstdmt/rshlib.h>
#include <kelstdmt/vumrt_process.h>
#include <kelstdmt/vumrt_stream.h>

namespace kel::detail {

// Why there is no command, as the client is told.
struct launch_failure {
    int error = 0;  // as pcXCreate has it; 0 for pipes
    xstring reason;
};

// Where the command runs: below the base directory, where that is not empty and the directory is relative.
// Throws fsXInvalidPath.
xstring directory_of(const char *working_directory, const char *base_directory);
// What is launched: the text, or what the shell gets it with.
std::string command_line_of(const remote_command &command);

// Ends with its owner: what then still runs is killed, with its whole group.
class launched_command {
public:
    launched_command() = default;
    ~launched_command() { collect(); }
    launched_command(const launched_command &) = delete;
    launched_command &operator=(const launched_command &) = delete;

    std::optional<launch_failure> launch(const remote_command &command);

    int id() const noexcept { return static_cast<int>(m_id); }
    btkProcessHandle handle() const noexcept { return m_handle; }
    // The command and all of its group, also when it has ended itself.
    void terminate() noexcept { Process_Kill(m_handle); }
    void interrupt() noexcept { Process_Interrupt(m_id); }
    // The exit code. Kills what has not ended yet.
    int collect() noexcept;

    btkOutputPipe input;
    btkInputPipe output, error;

private:
    btkProcessHandle m_handle = -1;
    unsigned long m_id = 0;
    long m_exit_code = 0;
};

}  // namespace kel::detail
