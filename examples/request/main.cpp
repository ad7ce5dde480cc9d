// request: the typical request from end to end. A server enters its name with the name server of its host and
// serves clients that know no more than the name.
#include <algorithm>
#include <array>
#include <iostream>
#include <vector>

#include "request.h"

namespace {

constexpr const char *usage = R"(Usage: request [--plain]
       request serve NAME
       request ask NAME[@HOST]
       request calculate NAME[@HOST] 'A + B'
       request end NAME[@HOST]

Without a command: all of it, each role in a process of its own. The name server is that of this machine or,
where none answers, one on a thread. Where `unshare`, `nsenter` and `ip` may be used, all happens in a network
of its own that has a second machine, whose client is refused and then let in.

  serve      serves arithmetic under a name until a client ends it
  ask        asks for sums and a long count of primes, and shows its progress
  calculate  asks for one sum, also - * and /
  end        asks whether the server lives and for its version, and shuts it down
  --plain    makes no network of its own, and so no second machine
  --help     prints this

The name server listens on port 1239, or the one that ORVNMSPORT names.
Exit code: 0 when all went well, 1 when something failed, 2 for a wrong command line, 3 when the server refused.
)";

ExitCode Misused(const std::string &mistake) {
    std::cerr << "request: " << mistake << '\n' << usage;
    return wrong_usage;
}

ExitCode Run(const std::string &program, const std::vector<std::string> &words) {
    if (words.empty()) return Stage(program);
    const std::string &command = words.front();
    if (command == "--help" || command == "-h") {
        std::cout << usage;
        return std::cout.flush() ? done : failed;
    }
    if (command == "--plain" && words.size() == 1) return StagePlainly(program, "it is not wanted");
    // Not for people: how the program starts itself when it has got a network.
    if (command == "--own-network" && words.size() == 1) return StageInOwnNetwork(program);
    static constexpr std::array commands = {"serve", "ask", "calculate", "end"};
    if (std::find(commands.begin(), commands.end(), command) == commands.end())
        return Misused((command.starts_with('-') ? "there is no option " : "there is no command ") + command);
    const bool sum = command == "calculate";
    if (words.size() != (sum ? 3U : 2U))
        return Misused(command + (sum ? " needs a server and a sum" : " needs one server"));
    if (sum)
        Calculate(words[1], words[2]);
    else
        (command == "serve" ? Serve : command == "ask" ? Ask : End)(words[1]);
    return done;
}

}  // namespace

void Say(const std::string &line) {
    static std::mutex lock;
    const std::lock_guard held(lock);
    std::cout << line << std::endl;
}

int main(int count, char **arguments) {
    try {
        return Run(arguments[0], {arguments + 1, arguments + count});
    } catch (const Refused &error) {
        Say(error.what());
        return refused;
    } catch (...) {
        std::cerr << "request: " << kel::take_text() << std::endl;
        return failed;
    }
}
