#include "suite.h"

#include <cstdio>
#include <cstdlib>

namespace bench {

const char *name_of(Library library) {
    static constexpr const char *names[] = {
        "kelstdmt", "C++ called", "C++ inline", "std",       "GLib",   "Qt 5",   "POCO",        "libtirpc",
        "RE2",      "PCRE2",      "PCRE2 JIT",  "libc",      "cp, rm", "SQLite", "SQLite full", "Asio",
        "rpcbind",  "Redis",      "OpenSSH",    "ssh, kept", "relay",  "floor"};
    return names[static_cast<std::size_t>(library)];
}

void Suite::add(std::string_view name, Library library, std::string way,
                std::function<void(benchmark::State &)> run) {
    for (Section &section : m_sections)
        for (Case &measured : section.cases)
            if (measured.name == name) {
                measured.ways.push_back({library, std::move(way), std::move(run)});
                return;
            }
    std::fprintf(stderr, "%s names no case: %.*s\n", way.c_str(), static_cast<int>(name.size()), name.data());
    std::abort();
}

}  // namespace bench
