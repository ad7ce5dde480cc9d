#include "table.h"

#include <cstdio>
#include <iomanip>
#include <ostream>

std::string WithSeparators(long long number) {
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3; i -= 3)
        text.insert(i - 3, 1, ',');
    return text;
}

std::string Counted(long long number, std::string unit) {
    return WithSeparators(number) + ' ' + unit + (number == 1 ? "" : "s");
}

std::string Duration(double seconds) {
    struct Unit {
        double size;
        const char *name;
    };
    static constexpr Unit units[] = {{1, "s"}, {1e-3, "ms"}, {1e-6, "us"}};
    const Unit *unit = units;
    if (seconds <= 0) return "-";
    while (unit != std::end(units) - 1 && seconds < unit->size)
        ++unit;
    double amount = seconds / unit->size;
    char text[64];
    std::snprintf(text, sizeof text, "%.*f %s", amount < 10 ? 2 : amount < 100 ? 1 : 0, amount, unit->name);
    return text;
}

void PrintTable(std::ostream &out, const std::vector<Journey> &journeys) {
    auto row = [&](const auto &stream, const auto &encoding, const auto &bytes, const auto &written,
                   const auto &read, const auto &result) {
        out << "  " << std::left << std::setw(8) << stream << std::setw(10) << encoding << std::right
            << std::setw(13) << bytes << std::setw(13) << written << std::setw(13) << read << "   " << result
            << '\n';
    };
    row("stream", "encoding", "bytes", "written in", "read in", "came back");
    row("------", "--------", "-----", "----------", "-------", "---------");
    for (const Journey &journey : journeys)
        row(journey.stream, journey.encoding, WithSeparators(journey.bytes), Duration(journey.write_seconds),
            Duration(journey.read_seconds),
            journey.difference.empty() ? "equal"
            : journey.compared         ? "DIFFERENT"
                                       : "failed");
}
