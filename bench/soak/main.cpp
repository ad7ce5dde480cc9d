// soak_load [--seconds N] [--every N] [--clients N]; bench/soak/run builds and runs it.
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "soak.h"

namespace {

int usage() {
    std::fprintf(
        stderr,
        "soak_load [--seconds N] [--every N] [--clients N]: mixed load for N seconds (3600), a report\n"
        "every N seconds (60), from N threads of clients (6)\n");
    return 2;
}

// The words behind --role: which, the page of counters, and what the role wants besides.
int play(char **words, const std::string &self) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string role = words[0], extra = words[2];
    soak::Shared &page = soak::shared(words[1]);
    if (role == "names") soak::serve_names(extra);
    if (role == "threads") soak::serve_threads();
    if (role == "loop") soak::serve_loop();
    if (role == "brief") soak::serve_briefly(extra);
    if (role == "clients") soak::be_clients(page, std::atoi(extra.c_str()), self);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    char self[4'096] = {};
    if (readlink("/proc/self/exe", self, sizeof self - 1) < 0) return 2;
    if (argc == 5 && std::strcmp(argv[1], "--role") == 0) return play(argv + 2, self);
    soak::Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        char *end = nullptr;
        const double value = i + 1 < argc ? std::strtod(argv[i + 1], &end) : 0;
        if (value <= 0 || *end) return usage();
        if (name == "--seconds")
            options.seconds = value;
        else if (name == "--every")
            options.every = value;
        else if (name == "--clients")
            options.clients = static_cast<int>(value);
        else
            return usage();
    }
    return soak::watch(options, self);
}
