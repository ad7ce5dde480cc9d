// Printing while memory runs out: each allocation of a print fails once, and every time the caller hears of
// it as std::bad_alloc, or the print finds its way without.
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include <kelstdmt/kelstdmt.h>

#include "failing_memory.h"

namespace {

using namespace failing_memory;

TEST(print_exhaustion_test, IsAnExceptionAndNoEnd) {
    const std::unique_ptr<printData> data(printData::Create());
    const std::string whole = kel::printed(*data).str();
    int failures = 0;
    for (long before = 0;; ++before) {
        std::string text;
        bool exhausted = false;
        allocations_left = before;
        try {
            text = kel::printed(*data).str();
        } catch (const std::bad_alloc &) {
            exhausted = true;
        }
        bool unused = allocations_left >= 0;
        allocations_left = -1;
        if (unused) break;
        if (exhausted)
            ++failures;
        else
            EXPECT_TRUE(text == whole || text.ends_with("Can not finish printing\n")) << text;
        EXPECT_EQ(kel::printed(*data).str(), whole) << "after a failure of allocation " << before;
    }
    EXPECT_GT(failures, 3);
}

}  // namespace
