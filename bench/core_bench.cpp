// The core beside its peers: ./bench-run core. The cases are listed in core/cases.cpp, the work that is
// measured stands in core/loops.h, and each library has its own unit.
#include <sys/resource.h>

#include <algorithm>

#include "core/cases.h"
#include "harness/runner.h"

namespace bench {
namespace {

void add_all(Suite &suite) {
    add_ours_values(suite);
    add_ours_containers(suite);
    add_ours_streams(suite);
    add_ours_events(suite);
    add_std(suite);
    add_std_streams(suite);
    add_floor(suite);
#ifdef KELSTDMT_PEER_GLIB
    add_glib(suite);
    add_glib_objects(suite);
#endif
#ifdef KELSTDMT_PEER_QT
    add_qt(suite);
    add_qt_streams(suite);
#endif
#ifdef KELSTDMT_PEER_POCO
    add_poco(suite);
#endif
#ifdef KELSTDMT_PEER_TIRPC
    add_tirpc(suite);
#endif
}

void raise_descriptor_limit() {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8'192);
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv) {
    bench::raise_descriptor_limit();
    bench::Suite suite;
    suite.add(bench::core_section());
    bench::add_all(suite);
    return bench::run_suite(
        suite,
        "Time an operation: median, and half the distance between the quartiles. The floor of waits "
        "is one\npoll over eventfds. The last columns: ours / fastest peer, and which that is.",
        argc, argv);
}
