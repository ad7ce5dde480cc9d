// Servers, their clients, the name service and the start of processes beside their peers: ./bench-run net.
// The cases are listed in net/cases.cpp, the work that is measured stands in net/work.h and net/work.cpp, and
// each library has its own unit. The servers run in processes of their own (net/servers.h).
#include "harness/runner.h"
#include "net/cases.h"
#include "net/servers.h"

int main(int argc, char **argv) {
    if (argc == 2 && bench::serve(argv[1], bench::serve_word)) return 0;
    bench::Suite suite;
    suite.add(bench::servers_section());
    suite.add(bench::names_section());
    suite.add(bench::launches_section());
    bench::add_ours(suite);
    bench::add_ours_names(suite);
    bench::add_ours_launches(suite);
    bench::add_floor(suite);
#ifdef KELSTDMT_PEER_GIO
    bench::add_glib(suite);
#endif
#ifdef KELSTDMT_PEER_QT_NETWORK
    bench::add_qt(suite);
#endif
#ifdef KELSTDMT_PEER_POCO_NET
    bench::add_poco(suite);
#endif
#ifdef KELSTDMT_PEER_ASIO
    bench::add_asio(suite);
#endif
    bench::add_redis(suite);
#ifdef KELSTDMT_PEER_TIRPC
    bench::add_rpcbind(suite);
#endif
    return bench::run_suite(suite,
                            "By the wall clock: median, and half the distance between the quartiles. Each "
                            "server has a process of\n"
                            "its own. The last columns: ours / fastest peer, and which that is.",
                            argc, argv);
}
