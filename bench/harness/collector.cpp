#include "collector.h"

#include <cstdio>

#include "stopwatch.h"

namespace bench {

std::string name_of(const Case &measured, const Way &way) {
    return measured.name + "/" + way.name;
}

Collector::Collector(const std::string &json_path) {
    if (json_path.empty()) return;
    m_file.open(json_path);
    if (!m_file) std::fprintf(stderr, "cannot write %s\n", json_path.c_str());
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
    if (m_context_told && !m_warming) m_json.ReportRuns(runs);
    for (const Run &run : runs)
        if (run.run_type == Run::RT_Iteration) store(run);
}

void Collector::store(const Run &run) {
    const std::string &name = run.run_name.function_name;
    if (run.error_occurred) {
        m_errors[name] = run.error_message;
        return;
    }
    if (m_warming) {
        m_seconds[name] = run.real_accumulated_time;
        return;
    }
    auto &phases = m_samples[name];
    for (const auto &[counter, value] : run.counters)
        phases[counter].push_back(value);
    auto timed = run.counters.find(whole);
    phases[""].push_back(timed == run.counters.end() ? run.GetAdjustedCPUTime() : timed->second.value);
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

double Collector::seconds(const std::string &benchmark) const {
    auto found = m_seconds.find(benchmark);
    return found == m_seconds.end() ? 0 : found->second;
}

}  // namespace bench
