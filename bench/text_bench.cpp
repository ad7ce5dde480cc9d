// Expressions, shell patterns, texts and the C interface beside their peers: ./bench-run text. The cases are
// listed in text/cases.cpp, the work that is measured stands in text/engines.h and text/agree.h, and each
// library has its own units.
#include <clocale>
#include <cstdio>

#include "harness/runner.h"
#include "text/cases.h"

namespace bench {
namespace {

void add_all(Suite &suite) {
    suite.add(expressions_section());
    suite.add(shell_section());
    suite.add(texts_section());
    suite.add(c_interface_section());
    add_ours_expressions(suite);
    add_ours_texts(suite);
    add_c_interface(suite);
    add_std_expressions(suite);
    add_std_texts(suite);
    add_libc_expressions(suite);
    add_libc_texts(suite);
#ifdef KELSTDMT_PEER_RE2
    add_re2(suite);
#endif
#ifdef KELSTDMT_PEER_PCRE2
    add_pcre2(suite);
#endif
#ifdef KELSTDMT_PEER_GLIB
    add_glib_expressions(suite);
    add_glib_texts(suite);
#endif
#ifdef KELSTDMT_PEER_QT
    add_qt_expressions(suite);
    add_qt_texts(suite);
#endif
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv) {
    if (!std::setlocale(LC_ALL, "C.UTF-8")) std::fprintf(stderr, "text_bench: there is no locale C.UTF-8\n");
    bench::Suite suite;
    bench::add_all(suite);
    return bench::run_suite(
        suite,
        "Median, and half the distance between the quartiles. The last columns: ours / fastest "
        "peer, and which that is.",
        argc, argv);
}
