#include "mon_table.h"

#include <algorithm>
#include <cmath>

#include "terminal.h"

namespace tool {

namespace {

constexpr std::size_t type_columns = 6, gap = 2;

}  // namespace

std::string HistoryLine(const History &history, bool utf8) {
    static constexpr std::string_view blocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    static constexpr std::string_view ascii = "_.,-=+*#";
    double least = std::numeric_limits<double>::infinity(), greatest = -least;
    for (double number : history) {
        if (!std::isfinite(number)) continue;
        least = std::min(least, number);
        greatest = std::max(greatest, number);
    }
    std::string line;
    for (double number : history) {
        if (!std::isfinite(number)) {
            line += ' ';
            continue;
        }
        // Halves, because the whole span may be beyond the range of numbers.
        double span = greatest / 2 - least / 2;
        double place = span > 0 ? (number / 2 - least / 2) / span : 0;
        auto step = static_cast<std::size_t>(std::lround(std::clamp(place, 0.0, 1.0) * 7));
        line += utf8 ? blocks[step] : ascii.substr(step, 1);
    }
    return line;
}

std::vector<std::string> MonitorTable(std::span<const MonitorRow> rows, std::size_t columns,
                                      MonitorWidths &widest) {
    bool limited = columns != unlimited_columns;
    bool histories = std::any_of(rows.begin(), rows.end(), [](const MonitorRow &row) { return row.history; });
    std::vector<std::string> shown;
    for (const MonitorRow &row : rows) {
        shown.push_back(ShownValue(row.value));
        widest.name = std::max(widest.name, Width(row.name));
        widest.value = std::max(widest.value, Width(shown.back()));
    }
    std::size_t names = widest.name, values = widest.value;
    std::size_t history = histories ? history_columns : 0;
    if (limited) {
        // A long name leaves room for a value, and values for some history.
        std::size_t fixed = type_columns + 2 * gap;
        std::size_t room = columns > fixed ? columns - fixed : 0;
        names = std::min(names, std::max<std::size_t>(room / 2, 4));
        room = room > names ? room - names : 0;
        if (histories && room < values + gap + history)
            history = std::min(history, std::max(room > values + gap ? room - values - gap : 0, room / 3));
        values = std::min(values, room > history + gap ? room - history - gap : room);
    }
    bool utf8 = SpeaksUtf8();
    std::vector<std::string> lines;
    auto line = [&](std::string_view name, std::string_view type, std::string_view value,
                    std::string_view past) {
        std::string text =
            Fitted(name, names) + "  " + Fitted(type, type_columns) + "  " + Fitted(value, values);
        if (history) (text += "  ") += past;
        text = Trimmed(text);
        lines.push_back(limited ? Trimmed(Fitted(text, columns)) : text);
    };
    line("NAME", "TYPE", "VALUE", histories && history >= 7 ? "HISTORY" : "");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        History latest;
        if (rows[i].history) {
            std::size_t skipped = rows[i].history->size() - std::min(rows[i].history->size(), history);
            latest.assign(rows[i].history->begin() + static_cast<std::ptrdiff_t>(skipped),
                          rows[i].history->end());
        }
        line(rows[i].name, NameOf(rows[i].value.type), shown[i], HistoryLine(latest, utf8));
    }
    return lines;
}

}  // namespace tool
