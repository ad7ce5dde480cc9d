#include "table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace bench {
namespace {

constexpr int title_width = 50, column_width = 14;

double at_fraction(const std::vector<double> &sorted, double fraction) {
    double place = fraction * static_cast<double>(sorted.size() - 1);
    auto below = static_cast<std::size_t>(place);
    std::size_t above = std::min(below + 1, sorted.size() - 1);
    return sorted[below] + (sorted[above] - sorted[below]) * (place - static_cast<double>(below));
}

// "±" and "µ" take two bytes and one place.
int places_of(const std::string &text) {
    return static_cast<int>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string shown_time(double nanoseconds) {
    static constexpr const char *units[] = {"ns", "µs", "ms", "s"};
    std::size_t unit = 0;
    while (nanoseconds >= (unit == 0 ? 9'995 : 999.5) && unit < 3) {
        nanoseconds /= 1'000;
        ++unit;
    }
    char text[40];
    std::snprintf(text, sizeof text, "%.*f %s", nanoseconds < 99.95 ? 1 : 0, nanoseconds, units[unit]);
    return text;
}

std::string shown_size(double bytes) {
    char text[40];
    std::snprintf(text, sizeof text, bytes < 10'000 ? "%.0f B" : "%.1f KiB",
                  bytes < 10'000 ? bytes : bytes / 1024);
    return text;
}

std::string shown_rate(double nanoseconds) {
    char text[40];
    std::snprintf(text, sizeof text, "%.0f MB/s", 1e9 / nanoseconds);
    return text;
}

std::string ratio_of(double ours, double other) {
    char text[20];
    std::snprintf(text, sizeof text, "%.2f", ours / other);
    return text;
}

// Signs that Markdown would take for its own.
std::string escaped(const std::string &text) {
    std::string shown;
    for (char c : text) {
        if (std::strchr("|*_", c)) shown += '\\';
        shown += c;
    }
    return shown;
}

}  // namespace

// Figures --------------------------------------------------------------------------------------------

std::optional<Table::Figure> Table::figure_of(std::vector<double> samples, const std::string &way) {
    if (samples.empty()) return std::nullopt;
    std::sort(samples.begin(), samples.end());
    return Figure{at_fraction(samples, 0.5), (at_fraction(samples, 0.75) - at_fraction(samples, 0.25)) / 2,
                  way};
}

std::string Table::shown(const Figure &figure, const std::string &phase) {
    char spread[20];
    std::snprintf(spread, sizeof spread, " ±%.0f%%", 100 * figure.spread / figure.median);
    const auto unit = phase.starts_with("bytes") ? shown_size : phase == "MB/s" ? shown_rate : shown_time;
    return unit(figure.median) + spread;
}

const char *Table::verdict_of(const Figure &ours, const Figure &peer) {
    if (std::abs(ours.median - peer.median) <= ours.spread + peer.spread) return "even";
    return ours.median < peer.median ? "ahead" : "behind";
}

void Table::Score::count(const Figure &ours, const Figure &peer, const std::string &title) {
    const std::string verdict = verdict_of(ours, peer);
    if (verdict == "even")
        ++even;
    else if (verdict == "ahead")
        ++ahead;
    else
        behind.push_back(title);
    twice += ours.median * 2 <= peer.median;
    if (ours.median / peer.median <= worst) return;
    worst = ours.median / peer.median;
    worst_title = title;
}

// Lines ----------------------------------------------------------------------------------------------

void Table::print(const Section &section, const Case &measured, const Collector &collector, bool one_thread) {
    bool anything = false;
    for (const Way &way : measured.ways) {
        std::string name = name_of(measured, way), error = collector.error(name);
        if (!error.empty() && !error.starts_with(cannot_prefix)) m_wrong.push_back(name + ": " + error);
        anything = anything || !error.empty() || !collector.samples(name, "").empty();
    }
    if (!anything) return;
    if (m_section != &section) print_head(section);
    const bool marked = !measured.threads && !one_thread;
    if (measured.phases.empty()) print_line(measured.title, section, measured, "", collector, marked);
    for (const std::string &phase : measured.phases)
        print_line(measured.title + ": " + phase, section, measured, phase, collector, marked);
    std::fflush(stdout);
}

void Table::print_head(const Section &section) {
    if (!m_section) std::printf("%s\n", m_note.c_str());
    m_section = &section;
    std::printf("\n");
    std::vector<std::string> names;
    for (Library library : section.columns)
        names.push_back(name_of(library));
    if (section.beside) names.push_back(std::string("ours / ") + name_of(*section.beside));
    print_cells(section.title, names,
                m_markdown ? std::vector<std::string>{"ours / fastest", "", ""} : std::vector<std::string>());
    if (!m_markdown) return;
    std::printf("|---|");
    for (std::size_t i = 0; i < names.size() + 1; ++i)
        std::printf("---:|");
    std::printf("---|---|\n");
}

void Table::print_cells(const std::string &title, const std::vector<std::string> &cells,
                        const std::vector<std::string> &verdict) const {
    if (m_markdown) {
        std::printf("| %s |", escaped(title).c_str());
        for (const std::string &cell : cells)
            std::printf(" %s |", cell.c_str());
        for (std::size_t i = 0; i < 3; ++i)
            std::printf(" %s |", i < verdict.size() ? escaped(verdict[i]).c_str() : "");
        std::printf("\n");
        return;
    }
    std::printf("%s%*s", title.c_str(), title_width - places_of(title), "");
    for (const std::string &cell : cells)
        std::printf("%*s%s", std::max(column_width - places_of(cell), 1), "", cell.c_str());
    if (!verdict.empty())
        std::printf("  %5s %-6s  %s", verdict[0].c_str(), verdict[1].c_str(), verdict[2].c_str());
    std::printf("\n");
}

void Table::print_line(const std::string &title, const Section &section, const Case &measured,
                       const std::string &phase, const Collector &collector, bool marked) {
    std::map<Library, Figure> fastest;
    std::map<Library, std::string> unable;
    for (const Way &way : measured.ways) {
        const std::string name = name_of(measured, way), error = collector.error(name);
        if (error.starts_with(cannot_prefix))
            unable[way.library] = error.substr(std::string(cannot_prefix).size());
        auto figure = figure_of(collector.samples(name, phase), way.name);
        if (!figure) continue;
        auto [best, first] = fastest.try_emplace(way.library, *figure);
        if (!first && figure->median < best->second.median) best->second = *figure;
    }
    std::vector<std::string> cells;
    for (Library library : section.columns)
        cells.push_back(fastest.contains(library)  ? shown(fastest[library], phase)
                        : unable.contains(library) ? unable[library]
                                                   : "-");
    if (section.beside) {
        const bool both = fastest.contains(Library::Ours) && fastest.contains(*section.beside);
        cells.push_back(both ? ratio_of(fastest[Library::Ours].median, fastest[*section.beside].median)
                             : "-");
    }
    if (marked) m_marked.push_back(title);

    // The floor and our own C++ functions are no peers, but stand in the ratio where they are.
    const Figure *ours = nullptr, *peer = nullptr, *own = nullptr;
    for (const auto &[library, figure] : fastest) {
        if (library == Library::Ours)
            ours = &figure;
        else if (library == Library::Called || library == Library::Relay || library == Library::Floor)
            own = &figure;
        else if (library != Library::Inlined && (!peer || figure.median < peer->median))
            peer = &figure;
    }
    const bool beside_own = own && (!peer || fastest.contains(Library::Called));
    std::vector<std::string> verdict;
    if (ours && (peer || own)) {
        const Figure &other = beside_own ? *own : *peer;
        verdict = {ratio_of(ours->median, other.median), beside_own ? "" : verdict_of(*ours, other),
                   other.way};
        if (peer) m_fastest.count(*ours, *peer, title);
        for (const auto &[library, figure] : fastest)
            if (library != Library::Ours) m_scores[library].count(*ours, figure, title);
    }
    print_cells(title + (marked ? " (!)" : ""), cells, verdict);
}

// Summary --------------------------------------------------------------------------------------------

bool Table::print_summary() const {
    if (m_section)
        std::printf("\n%d rows ahead of the fastest peer, %d even within the spread, %zu behind.\n",
                    m_fastest.ahead, m_fastest.even, m_fastest.behind.size());
    for (const auto &[library, score] : m_scores)
        std::printf(
            "beside %-10s %2d ahead (%d of them by twice and more), %2d even, %2zu behind; the worst: %.2f, "
            "%s\n",
            name_of(library), score.ahead, score.twice, score.even, score.behind.size(), score.worst,
            score.worst_title.c_str());
    for (const std::string &title : m_fastest.behind)
        std::printf("behind: %s\n", title.c_str());
    if (!m_marked.empty())
        std::printf("WARNING: (!) this process had more than one thread where a row wants one.\n");
    for (const std::string &text : m_wrong)
        std::printf("WRONG: %s\n", text.c_str());
    return m_wrong.empty();
}

}  // namespace bench
