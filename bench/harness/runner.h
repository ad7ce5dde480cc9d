// The part of a benchmark program that all of them share: options, the runs, the table.
#pragma once

#include <string>

#include "suite.h"

namespace bench {

// Measures the cases that the filter takes and prints the tables. The program's exit status: 0, 1 for a wrong
// result, 2 for a mistake in the arguments. `note` explains the figures.
int run_suite(Suite &suite, const std::string &note, int argc, char **argv);

}  // namespace bench
