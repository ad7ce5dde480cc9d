// Parameters of a monitor file as a table of names, types and values, with a line for the history of each
// number.
#pragma once

#include <deque>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "mon_values.h"

namespace tool {

constexpr std::size_t unlimited_columns = std::numeric_limits<std::size_t>::max();
constexpr std::size_t history_columns = 32;

using History = std::deque<double>;  // the latest behind

struct MonitorRow {
    std::string name;  // printable
    MonitorValue value;
    const History *history = nullptr;
};

// One character for each number, between the least and the greatest of them.
std::string HistoryLine(const History &history, bool utf8);

// The widest that a column has been, so that a table that is drawn again and again stands still.
struct MonitorWidths {
    std::size_t name = 4, value = 5;
};

// A header and a line for each row, in this many columns at most.
std::vector<std::string> MonitorTable(std::span<const MonitorRow> rows, std::size_t columns,
                                      MonitorWidths &widest);

}  // namespace tool
