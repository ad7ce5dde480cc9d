// The core beside its peers: ./bench-run core. The cases are listed in core/suite.cpp, the work that is
// measured stands in core/loops.h, and each library has its own unit.
//
// Case by case, the repetitions of all libraries run in random order, so that a slow moment of the machine
// does not fall on one of them.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "core/suite.h"
#include "core/table.h"

extern "C" char __libc_single_threaded;

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

// Takes "--name=value" away from the arguments and answers the value.
std::string take_option(std::vector<char *> &arguments, std::string_view name) {
    std::string value;
    std::erase_if(arguments, [&](const char *argument) {
        std::string_view text(argument);
        if (!text.starts_with(name)) return false;
        value = text.substr(name.size());
        return true;
    });
    return value;
}

bool has_option(const std::vector<char *> &arguments, std::string_view name) {
    return std::any_of(arguments.begin(), arguments.end(),
                       [&](const char *argument) { return std::string_view(argument).starts_with(name); });
}

// As the runner reads a filter: a regular expression that is found in the name; behind a dash, that is not.
class Filter {
public:
    explicit Filter(std::string text) {
        m_all = text.empty() || text == "all";
        m_negative = text.starts_with('-');
        if (!m_all) m_expression.assign(text.substr(m_negative), std::regex::extended | std::regex::optimize);
    }
    bool takes(const std::string &name) const {
        return m_all || std::regex_search(name, m_expression) != m_negative;
    }

private:
    bool m_all = false, m_negative = false;
    std::regex m_expression;
};

// The C library's word decides how counts are changed; the number of tasks shows a thread that has not run
// yet.
bool has_one_thread() {
    std::error_code failed;
    std::filesystem::directory_iterator tasks("/proc/self/task", failed);
    return __libc_single_threaded && (failed || std::distance(begin(tasks), end(tasks)) == 1);
}

struct Choices {
    Filter filter;
    bool own_repetitions, own_time;
};

// False when the filter takes nothing of the case.
bool run(Case &measured, const Choices &choices, Collector &collector, Table &table) {
    benchmark::ClearRegisteredBenchmarks();
    bool any = false;
    for (Way &way : measured.ways) {
        std::string name = name_of(measured, way);
        if (!choices.filter.takes(name)) continue;
        any = true;
        auto *registered = benchmark::RegisterBenchmark(name.c_str(), way.run);
        if (measured.cost != Cost::Light) registered->Iterations(1);
        if (measured.cost == Cost::Light && choices.own_time) registered->MinTime(0.03);
        // One more than is counted: the first warms up.
        constexpr int repetitions[] = {8, 6, 4};
        if (choices.own_repetitions) registered->Repetitions(repetitions[static_cast<int>(measured.cost)]);
    }
    if (!any) return false;
    bool before = has_one_thread();
    benchmark::RunSpecifiedBenchmarks(&collector, ".");
    table.print(measured, collector, before && has_one_thread());
    return true;
}

void raise_descriptor_limit() {
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8'192);
    setrlimit(RLIMIT_NOFILE, &limit);
}

int main_of(int argc, char **argv) {
    std::vector<char *> arguments(argv, argv + argc);
    // Every case is a run of its own for the runner, which would begin the file anew each time.
    std::string json = take_option(arguments, "--benchmark_out=");
    take_option(arguments, "--benchmark_out_format=");
    std::string interleaved = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleaved.data());
    bool own_repetitions = !has_option(arguments, "--benchmark_repetitions");
    bool own_time = !has_option(arguments, "--benchmark_min_time");
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

    raise_descriptor_limit();
    Suite suite;
    add_all(suite);
    Choices choices{Filter(benchmark::GetBenchmarkFilter()), own_repetitions, own_time};
    Collector collector(json);
    Table table;
    bool any = false;
    for (bool threads : {false, true})
        for (Case &measured : suite.cases())
            if (measured.threads == threads) any |= run(measured, choices, collector, table);
    if (!any) {
        std::fprintf(stderr, "core_bench: the filter takes nothing\n");
        return 2;
    }
    return table.print_summary() ? 0 : 1;
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv) {
    try {
        return bench::main_of(argc, argv);
    } catch (const std::regex_error &error) {
        std::fprintf(stderr, "core_bench: this filter is no regular expression: %s\n", error.what());
        return 2;
    }
}
