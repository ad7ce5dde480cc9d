// Files, settings and monitor files beside their peers: ./bench-run files. The cases are listed in
// files/cases.cpp, the work that is measured stands in files/work.h, and each library has its own unit.
#include "files/cases.h"
#include "harness/runner.h"

int main(int argc, char **argv) {
    bench::Suite suite;
    suite.add(bench::files_section());
    suite.add(bench::settings_section());
    suite.add(bench::monitor_section());
    bench::add_ours(suite);
    bench::add_coreutils(suite);
    bench::add_std(suite);
    bench::add_libc(suite);
    bench::add_floor(suite);
#ifdef KELSTDMT_PEER_GIO
    bench::add_glib(suite);
#endif
#ifdef KELSTDMT_PEER_POCO
    bench::add_poco(suite);
#endif
#ifdef KELSTDMT_PEER_SQLITE
    bench::add_sqlite(suite);
#endif
    return bench::run_suite(
        suite,
        "Median, and half the distance between the quartiles. The last columns: ours / fastest "
        "peer, and which that is.",
        argc, argv);
}
