// The list of cases, in the order in which they run.
#include "cases.h"

namespace bench {

Section commands_section() {
    Section commands{"A command on another host",
                     {Library::Ours, Library::Openssh, Library::OpensshKept, Library::Relay, Library::Floor}};
    commands.beside = Library::Relay;
    commands.cases = {
        {"true", "true", Cost::Heavy, true},
        {"lookup", "true, the server found by name each time", Cost::Heavy, true},
        {"shell", "true, by the shell", Cost::Heavy, true},
        {"line", "a line to cat and back", Cost::Heavy, true},
        {"output", "output, head -c 512M", Cost::Heavy, true, {"MB/s"}},
        {"pieces", "output, dd bs=512", Cost::Heavy, true, {"MB/s"}},
        {"input", "input, wc -c", Cost::Heavy, true, {"MB/s"}},
        {"both", "both at once, cat", Cost::Heavy, true, {"MB/s"}},
        {"crowd", "100 at once, a line to cat and back", Cost::Huge, true},
        {"memory",
         "cat, fed and not read",
         Cost::Huge,
         true,
         {"bytes, client's side", "bytes, server's side"}},
    };
    return commands;
}

bool serve_word(std::string_view word) {
    static constexpr struct {
        std::string_view word;
        void (*serve)();
    } works[] = {{"ours", serve_ours},
                 {"ours by name", serve_ours_by_name},
                 {"names", serve_names},
                 {"relay", serve_relay},
                 {"sshd", keep_sshd}};
    for (const auto &work : works)
        if (work.word == word) {
            work.serve();
            return true;
        }
    return false;
}

}  // namespace bench
