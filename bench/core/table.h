// The table: a line for each row, a column for each library, and how ours stands to the fastest peer.
#pragma once

#include <benchmark/benchmark.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "suite.h"

namespace bench {

// Collects what the runner reports, repetition by repetition. The first repetition only warms up.
class Collector : public benchmark::BenchmarkReporter {
public:
    // Besides, everything goes to the file in JSON. An empty path is no file.
    explicit Collector(const std::string &json_path);
    ~Collector() override;

    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;

    // Nanoseconds an operation of a benchmark's phase (empty: it has none), one for each repetition.
    std::vector<double> samples(const std::string &benchmark, const std::string &phase) const;
    // What went wrong in the benchmark, or empty.
    std::string error(const std::string &benchmark) const;

private:
    void Store(const Run &run, bool warmed_up);

    std::map<std::string, std::map<std::string, std::vector<double>>> m_samples;
    std::map<std::string, std::string> m_errors;
    std::ofstream m_file;
    benchmark::JSONReporter m_json;
    bool m_context_told = false;
};

class Table {
public:
    // One line for each phase of the case. Prints the head ahead of the first line, and a mark in rows that
    // should have had one thread and had more.
    void print(const Case &measured, const Collector &collector, bool one_thread);
    // Counts of rows ahead and behind. False when a result was wrong.
    bool print_summary() const;

private:
    void print_head();
    void print_line(const std::string &title, const Case &measured, const std::string &phase,
                    const Collector &collector, const std::string &mark);

    bool m_head_printed = false;
    std::vector<Library> m_columns;
    int m_ahead = 0, m_even = 0;
    std::vector<std::string> m_behind, m_wrong, m_marked;
    int m_texts = 0, m_texts_twice = 0;
};

// The benchmark's name, as filters and JSON show it.
std::string name_of(const Case &measured, const Way &way);

}  // namespace bench
