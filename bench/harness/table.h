// The table: a line for each row, a column for each library, and how ours stands to the fastest peer.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "collector.h"
#include "suite.h"

namespace bench {

// An error that begins so is no wrong result: the library cannot do this piece of work. The cell of the table
// shows the words that follow.
inline constexpr const char *cannot_prefix = "cannot: ";

class Table {
public:
    // `note` explains the figures and stands ahead of the first table. With `markdown` the tables are lines
    // of cells between bars.
    Table(std::string note, bool markdown) : m_note(std::move(note)), m_markdown(markdown) {}

    // One line for each phase of the case. Prints the section's head ahead of its first line, and a mark in
    // rows that should have had one thread and had more.
    void print(const Section &section, const Case &measured, const Collector &collector, bool one_thread);
    // How ours stands to each peer, and the rows behind. False when a result was wrong.
    bool print_summary() const;

private:
    struct Figure {
        double median = 0, spread = 0;  // the spread is half the distance between the quartiles
        std::string way;
    };
    // Ours against one library, or against whichever is fastest.
    struct Score {
        int ahead = 0, twice = 0, even = 0;  // twice: ahead by twice and more
        std::vector<std::string> behind;
        double worst = 0;
        std::string worst_title;
        void count(const Figure &ours, const Figure &peer, const std::string &title);
    };

    static std::optional<Figure> figure_of(std::vector<double> samples, const std::string &way);
    static std::string shown(const Figure &figure, const std::string &phase);
    static const char *verdict_of(const Figure &ours, const Figure &peer);

    void print_head(const Section &section);
    void print_line(const std::string &title, const Section &section, const Case &measured,
                    const std::string &phase, const Collector &collector, bool marked);
    void print_cells(const std::string &title, const std::vector<std::string> &cells,
                     const std::vector<std::string> &verdict) const;

    std::string m_note;
    bool m_markdown;
    const Section *m_section = nullptr;
    Score m_fastest;
    std::map<Library, Score> m_scores;
    std::vector<std::string> m_wrong, m_marked;
};

}  // namespace bench
