// The remote shell beside OpenSSH, and above what nobody can be faster than: ./bench-run rsh. The cases are
// listed in rsh/cases.cpp, what they do stands in rsh/work.cpp, and each library has its own unit. All
// servers run in processes of their own, over the loopback address.
#include <csignal>

#include "harness/runner.h"
#include "rsh/cases.h"

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    if (argc == 2 && bench::serve(argv[1], bench::serve_word)) return 0;
    bench::Suite suite;
    suite.add(bench::commands_section());
    bench::add_ours(suite);
    bench::add_openssh(suite);
    bench::add_relay(suite);
    bench::add_floor(suite);
    return bench::run_suite(
        suite,
        "By the wall clock: median, and half the distance between the quartiles. The floor "
        "are plain pipes, without\n"
        "a connection. The last columns: ours / fastest peer, and which that is.",
        argc, argv);
}
