// Printing while memory runs out: each allocation of a print fails once, and every time the caller hears of
// it as std::bad_alloc, or the print finds its way without.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <sstream>
#include <string>

#include <kelstdmt/kelstdmt.h>

namespace {

long allocations_left = -1;  // before one fails; -1: none does

bool fails() {
    return allocations_left >= 0 && allocations_left-- == 0;
}

}  // namespace

// Not inlined: a compiler that sees through one of them takes the pair for a mismatch.
[[gnu::noinline]] void *operator new(std::size_t bytes) {
    void *block = fails() ? nullptr : std::malloc(bytes);
    if (!block) throw std::bad_alloc();
    return block;
}
[[gnu::noinline]] void operator delete(void *block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept {
    std::free(block);
}

namespace {

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
