// What the declared values do by themselves: print, answer for their fields by name, and fail in a way that
// tells where.
#pragma once

#include <iosfwd>

#include "transport.h"
#include "types.h"

void ShowValues(std::ostream &out, Inventory &inventory);
void ShowFailures(std::ostream &out, Inventory &inventory, const DataFolder &folder);
