// One text as the program and the arguments that it names. The rules are those of the platform that the
// callers come from, where a program gets its command line as a whole; vumrt_process.h tells them.
#pragma once

#include <string>
#include <vector>

namespace kel::detail {

class command_line {
public:
    // user_shell, which may be null, is a command interpreter beside those that are known by name.
    command_line(const char *text, const char *user_shell);
    command_line(const command_line &) = delete;
    command_line &operator=(const command_line &) = delete;

    // The program first, a null pointer last. Empty words count; a text of blanks alone has none.
    char *const *arguments() const noexcept { return m_arguments.data(); }
    std::size_t size() const noexcept { return m_arguments.size() - 1; }

private:
    std::string m_words;  // each ended by a NUL
    std::vector<char *> m_arguments;
};

}  // namespace kel::detail
