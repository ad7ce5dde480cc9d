// Value by value: are two values of any declared type the same?
#pragma once

#include <string>

#include "types.h"

struct Comparison {
    long long values = 0;    // compared so far
    std::string difference;  // where the first difference is and what stands there; empty when there is none
};

Comparison Compare(xobject *expected, xobject *found);
