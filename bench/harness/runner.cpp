// Case by case, the repetitions of all libraries run in random order, so that a slow moment of the machine
// does not fall on one of them. Ahead of them each library runs once to warm up, which tells who fails and
// how many repetitions there is time for.
#include "runner.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <regex>
#include <string_view>
#include <vector>

#include "table.h"

extern "C" char __libc_single_threaded;

namespace bench {
namespace {

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

// As Google Benchmark reads a filter: a regular expression that is found in the name; behind a dash, that is
// not.
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

benchmark::internal::Benchmark *enter(const Case &measured, const Way &way, const Choices &choices) {
    auto *entered = benchmark::RegisterBenchmark(name_of(measured, way).c_str(), way.run);
    if (measured.cost != Cost::Light) entered->Iterations(1);
    if (measured.cost == Cost::Light && choices.own_time) entered->MinTime(0.03);
    return entered;
}

int repetitions_of(Cost cost, double seconds) {
    constexpr int by_cost[] = {7, 5, 3};
    const int wanted = by_cost[static_cast<int>(cost)];
    return cost == Cost::Light || seconds < 0.4 ? wanted : std::min(wanted, seconds < 1.5 ? 3 : 1);
}

// False when the filter takes nothing of the case.
bool run(const Section &section, const Case &measured, const Choices &choices, Collector &collector,
         Table &table) {
    std::vector<const Way *> ways;
    for (const Way &way : measured.ways)
        if (choices.filter.takes(name_of(measured, way))) ways.push_back(&way);
    if (ways.empty()) return false;
    const bool before = has_one_thread();

    benchmark::ClearRegisteredBenchmarks();
    for (const Way *way : ways)
        enter(measured, *way, choices)->Repetitions(1);
    collector.warm_up(true);
    benchmark::RunSpecifiedBenchmarks(&collector, ".");
    collector.warm_up(false);

    benchmark::ClearRegisteredBenchmarks();
    bool any = false;
    for (const Way *way : ways) {
        const std::string name = name_of(measured, *way);
        if (!collector.error(name).empty()) continue;
        any = true;
        auto *entered = enter(measured, *way, choices);
        if (choices.own_repetitions)
            entered->Repetitions(repetitions_of(measured.cost, collector.seconds(name)));
    }
    if (any) benchmark::RunSpecifiedBenchmarks(&collector, ".");
    table.print(section, measured, collector, before && has_one_thread());
    return true;
}

int run_all(Suite &suite, const std::string &note, std::vector<char *> arguments) {
    // Every case is a run of its own for Google Benchmark, which would begin the file anew each time.
    const std::string json = take_option(arguments, "--benchmark_out=");
    take_option(arguments, "--benchmark_out_format=");
    const bool markdown = has_option(arguments, "--markdown");
    take_option(arguments, "--markdown");
    std::string interleaved = "--benchmark_enable_random_interleaving=true";
    arguments.insert(arguments.begin() + 1, interleaved.data());
    const bool own_repetitions = !has_option(arguments, "--benchmark_repetitions");
    const bool own_time = !has_option(arguments, "--benchmark_min_time");
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

    const Choices choices{Filter(benchmark::GetBenchmarkFilter()), own_repetitions, own_time};
    Collector collector(json);
    Table table(note, markdown);
    bool any = false;
    for (bool threads : {false, true})
        for (const Section &section : suite.sections())
            for (const Case &measured : section.cases)
                if (measured.threads == threads) any |= run(section, measured, choices, collector, table);
    if (!any) {
        std::fprintf(stderr, "the filter takes nothing\n");
        return 2;
    }
    return table.print_summary() ? 0 : 1;
}

}  // namespace

int run_suite(Suite &suite, const std::string &note, int argc, char **argv) {
    try {
        return run_all(suite, note, std::vector<char *>(argv, argv + argc));
    } catch (const std::regex_error &error) {
        std::fprintf(stderr, "this filter is no regular expression: %s\n", error.what());
        return 2;
    }
}

}  // namespace bench
