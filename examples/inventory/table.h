// The closing table.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "transport.h"

std::string WithSeparators(long long number);             // 1234567 as 1,234,567
std::string Counted(long long number, std::string unit);  // 1 account, 2 accounts
std::string Duration(double seconds);                     // in the unit that fits; - for none

void PrintTable(std::ostream &out, const std::vector<Journey> &journeys);
