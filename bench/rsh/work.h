// The work of each case, written once: what a library brings is a way to a shell, which starts commands.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "cases.h"
#include "harness/plain_socket.h"

namespace bench {

// A command that runs, and the caller's ends of its channels. A thread may write while another reads.
class Command {
public:
    virtual ~Command() = default;
    // Of all the bytes; throws Gone when the command takes none.
    virtual void write(const char *bytes, std::size_t count) = 0;
    virtual void end_input() = 0;
    // All the bytes; fewer only where the output ends before.
    virtual std::size_t read(char *bytes, std::size_t count) = 0;
    // Awaits the end, once all output is read. The exit code; 0 where the library tells none.
    virtual int await() = 0;
};

class Shell {
public:
    virtual ~Shell() = default;
    // Words between blanks. From any thread.
    virtual std::unique_ptr<Command> start(const std::string &words) = 0;
    virtual pid_t server() const { return -1; }
};
using OpenShell = std::function<std::unique_ptr<Shell>()>;

// "true", "lookup" or "shell": the words are run so many times, one after the other.
void add_short(Suite &suite, const char *name, Library library, std::string way, OpenShell open, int times,
               const std::string &words = "true");
// Each counts the bytes that arrive, and looks at them.
void add_line(Suite &suite, Library library, std::string way, OpenShell open);
void add_bulk(Suite &suite, Library library, std::string way, OpenShell open);  // output, pieces, input, both
void add_crowd(Suite &suite, Library library, std::string way, OpenShell open);
void add_memory(Suite &suite, Library library, std::string way, OpenShell open);

}  // namespace bench
