#include "table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>

namespace bench {
namespace {

struct Figure {
    double median = 0, spread = 0;  // the spread is half the distance between the quartiles
    std::string way;
};

double at_fraction(const std::vector<double> &sorted, double fraction) {
    double place = fraction * static_cast<double>(sorted.size() - 1);
    auto below = static_cast<std::size_t>(place);
    std::size_t above = std::min(below + 1, sorted.size() - 1);
    return sorted[below] + (sorted[above] - sorted[below]) * (place - static_cast<double>(below));
}

std::optional<Figure> figure_of(std::vector<double> samples, const std::string &way) {
    if (samples.empty()) return std::nullopt;
    std::sort(samples.begin(), samples.end());
    return Figure{at_fraction(samples, 0.5), (at_fraction(samples, 0.75) - at_fraction(samples, 0.25)) / 2,
                  way};
}

std::string shown(const Figure &figure) {
    char text[40];
    int digits = figure.median < 100 ? 1 : 0;
    std::snprintf(text, sizeof text, "%.*f ±%.0f%%", digits, figure.median,
                  100 * figure.spread / figure.median);
    return text;
}

constexpr const char *library_names[library_count] = {"kelstdmt", "std",      "GLib", "Qt 5",
                                                      "POCO",     "libtirpc", "floor"};
constexpr int title_width = 50, column_width = 12;

// "±" takes two bytes and one place.
void print_cell(const std::string &text, int width) {
    int places = 0;
    for (char c : text)
        places += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    std::printf("%*s%s", std::max(width - places, 1), "", text.c_str());
}

}  // namespace

std::string name_of(const Case &measured, const Way &way) {
    return measured.name + "/" + way.name;
}

// Collector ------------------------------------------------------------------------------------------

Collector::Collector(const std::string &json_path) {
    if (json_path.empty()) return;
    m_file.open(json_path);
    if (!m_file) std::fprintf(stderr, "core_bench: cannot write %s\n", json_path.c_str());
    m_json.SetOutputStream(&m_file);
    m_json.SetErrorStream(&m_file);
}

Collector::~Collector() {
    if (m_context_told) m_json.Finalize();
}

bool Collector::ReportContext(const Context &context) {
    if (m_file.is_open() && !m_context_told) m_context_told = m_json.ReportContext(context);
    return true;
}

void Collector::ReportRuns(const std::vector<Run> &runs) {
    if (m_context_told) m_json.ReportRuns(runs);
    for (const Run &run : runs)
        if (run.run_type == Run::RT_Iteration) Store(run, run.repetitions <= 1 || run.repetition_index > 0);
}

void Collector::Store(const Run &run, bool warmed_up) {
    const std::string &name = run.run_name.function_name;
    if (run.error_occurred) {
        m_errors[name] = run.error_message;
        return;
    }
    if (!warmed_up) return;
    auto &phases = m_samples[name];
    for (const auto &[counter, value] : run.counters)
        phases[counter].push_back(value);
    phases[""].push_back(run.GetAdjustedCPUTime());
}

std::vector<double> Collector::samples(const std::string &benchmark, const std::string &phase) const {
    auto found = m_samples.find(benchmark);
    if (found == m_samples.end()) return {};
    auto samples = found->second.find(phase);
    return samples == found->second.end() ? std::vector<double>() : samples->second;
}

std::string Collector::error(const std::string &benchmark) const {
    auto found = m_errors.find(benchmark);
    return found == m_errors.end() ? std::string() : found->second;
}

// Table ----------------------------------------------------------------------------------------------

void Table::print(const Case &measured, const Collector &collector, bool one_thread) {
    bool anything = false;
    for (const Way &way : measured.ways) {
        std::string name = name_of(measured, way), error = collector.error(name);
        if (!error.empty()) m_wrong.push_back(name + ": " + error);
        anything = anything || !error.empty() || !collector.samples(name, "").empty();
    }
    if (!anything) return;
    if (!m_head_printed) print_head();
    const std::string mark = measured.threads || one_thread ? "" : " (!)";
    if (measured.phases.empty()) print_line(measured.title, measured, "", collector, mark);
    for (const std::string &phase : measured.phases)
        print_line(measured.title + ": " + phase, measured, phase, collector, mark);
    std::fflush(stdout);
}

void Table::print_head() {
    m_head_printed = true;
    std::printf(
        "Nanoseconds an operation: median, and half the distance between the quartiles. The floor of "
        "waits is one\npoll over eventfds. The last columns: ours / fastest peer, and which that is.\n\n%-*s",
        title_width, "");
    for (const char *name : library_names)
        print_cell(name, column_width);
    std::printf("\n");
}

void Table::print_line(const std::string &title, const Case &measured, const std::string &phase,
                       const Collector &collector, const std::string &mark) {
    std::vector<std::optional<Figure>> fastest(library_count);
    for (const Way &way : measured.ways) {
        auto figure = figure_of(collector.samples(name_of(measured, way), phase), way.name);
        auto &best = fastest[static_cast<std::size_t>(way.library)];
        if (figure && (!best || figure->median < best->median)) best = figure;
    }
    std::printf("%-*s", title_width, (title + mark).c_str());
    for (std::size_t i = 0; i < fastest.size(); ++i)
        print_cell(fastest[i] ? shown(*fastest[i]) : "-", column_width);
    if (!mark.empty()) m_marked.push_back(title);

    // The floor is no peer, but stands in where there is none.
    const auto &ours = fastest[0], &floor = fastest.back();
    const Figure *peer = nullptr;
    for (std::size_t i = 1; i + 1 < fastest.size(); ++i)
        if (fastest[i] && (!peer || fastest[i]->median < peer->median)) peer = &*fastest[i];
    if (!peer && floor) peer = &*floor;
    if (!ours || !peer) {
        std::printf("\n");
        return;
    }
    double ratio = ours->median / peer->median;
    bool even = std::abs(ours->median - peer->median) <= ours->spread + peer->spread;
    const char *verdict = even ? "even" : ratio < 1 ? "ahead" : "behind";
    std::printf("  %5.2f %-6s  %s\n", ratio, verdict, peer->way.c_str());
    if (even)
        ++m_even;
    else if (ratio < 1)
        ++m_ahead;
    else
        m_behind.push_back(title);
    if (measured.name.starts_with("file/text/") && fastest[1]) {
        ++m_texts;
        m_texts_twice += ours->median * 2 <= fastest[1]->median;
    }
}

bool Table::print_summary() const {
    if (m_head_printed)
        std::printf("\n%d rows ahead of the fastest peer, %d even within the spread, %zu behind.\n", m_ahead,
                    m_even, m_behind.size());
    if (m_texts)
        std::printf("Text encoding: %d of %d rows at least twice as fast as iostreams.\n", m_texts_twice,
                    m_texts);
    for (const std::string &title : m_behind)
        std::printf("behind: %s\n", title.c_str());
    if (!m_marked.empty())
        std::printf("WARNING: (!) this process had more than one thread where a row wants one.\n");
    for (const std::string &text : m_wrong)
        std::printf("WRONG: %s\n", text.c_str());
    return m_wrong.empty();
}

}  // namespace bench
