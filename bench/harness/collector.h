// Collects what the runner reports, repetition by repetition.
#pragma once

#include <benchmark/benchmark.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "suite.h"

namespace bench {

class Collector : public benchmark::BenchmarkReporter {
public:
    // Besides, everything goes to the file in JSON. An empty path is no file.
    explicit Collector(const std::string &json_path);
    ~Collector() override;

    // While this is set, only errors and how long a run took are kept.
    void warm_up(bool warming) { m_warming = warming; }

    bool ReportContext(const Context &context) override;
    void ReportRuns(const std::vector<Run> &runs) override;

    // Nanoseconds an operation of a benchmark's phase (empty: it has none), one for each repetition.
    std::vector<double> samples(const std::string &benchmark, const std::string &phase) const;
    // What went wrong in the benchmark, or empty.
    std::string error(const std::string &benchmark) const;
    // Seconds that the benchmark took to warm up.
    double seconds(const std::string &benchmark) const;

private:
    void store(const Run &run);

    std::map<std::string, std::map<std::string, std::vector<double>>> m_samples;
    std::map<std::string, std::string> m_errors;
    std::map<std::string, double> m_seconds;
    std::ofstream m_file;
    benchmark::JSONReporter m_json;
    bool m_context_told = false, m_warming = false;
};

// The benchmark's name, as filters and JSON show it.
std::string name_of(const Case &measured, const Way &way);

}  // namespace bench
