// Plain pipes: the command runs here, and nothing is between it and its caller.
#include <cstdlib>

#include "spawn.h"

namespace bench {
namespace {

class Here : public Shell {
public:
    std::unique_ptr<Command> start(const std::string &words) override {
        return std::make_unique<SpawnedCommand>(split(words));
    }
};

class HereByShell : public Shell {
public:
    std::unique_ptr<Command> start(const std::string &words) override {
        const char *shell = std::getenv("SHELL");  // as ours and ssh
        return std::make_unique<SpawnedCommand>(
            std::vector<std::string>{shell ? shell : "/bin/sh", "-c", words});
    }
};

}  // namespace

void add_floor(Suite &suite) {
    const Library floor = Library::Floor;
    const char *way = "posix_spawn";
    const OpenShell open = [] { return std::make_unique<Here>(); };
    add_short(suite, "true", floor, way, open, 100);
    add_short(
        suite, "shell", floor, way, [] { return std::make_unique<HereByShell>(); }, 100);
    add_line(suite, floor, way, open);
    add_bulk(suite, floor, way, open);
    add_crowd(suite, floor, way, open);
}

}  // namespace bench
