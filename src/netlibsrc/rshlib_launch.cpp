#include "netlibsrc/rshlib_launch.h"

#include <kelstdmt/filelib.h>
#include <kelstdmt/proclib.h>

#include "runtime/relay.h"

namespace kel::detail {

xstring directory_of(const char *working_directory, const char *base_directory) {
    if (!*working_directory) return "";
    xstring native = fsPathToNative(working_directory);
    if (fsIsPathAbsolute(working_directory) || !*base_directory) return native;
    return fsCatPaths(fsPathToNative(base_directory), native);
}

// The launcher takes what follows the shell's option from the first quote to the last: the text may have
// quotes of its own.
std::string command_line_of(const remote_command &command) {
    if (!command.use_shell) return command.text.Str();
    const xstring shell = pcGetShellCommand();
    return std::string(shell.IsNull() ? "/bin/sh -c" : shell.Str()) + " \"" + command.text.Str() + '"';
}

std::optional<launch_failure> launched_command::launch(const remote_command &command) {
    btkInputPipe its_input;
    btkOutputPipe its_output, its_error;
    if (!btkAnonymousPipe::Create(input, its_input) || !btkAnonymousPipe::Create(its_output, output) ||
        !btkAnonymousPipe::Create(its_error, error))
        return launch_failure{0, Error_GetText(Error_GetLast())};
    const char *folder = command.working_directory.Str();
    if (!Process_Launch(&m_handle, &m_id, command_line_of(command).c_str(), *folder ? folder : nullptr,
                        its_input.GetHandle(), its_output.GetHandle(), its_error.GetHandle(),
                        btkLaunchGroup | btkLaunchSession))
        return launch_failure{pcErrorSystem, Error_GetText(Error_GetLast())};
    return std::nullopt;
}

int launched_command::collect() noexcept {
    if (m_handle == -1) return static_cast<int>(m_exit_code);
    if (Process_CheckRunning(m_handle)) terminate();
    Process_Wait(m_handle, &m_exit_code, true, true);
    m_handle = -1;
    return static_cast<int>(m_exit_code);
}

}  // namespace kel::detail
