// The container families of the C interface, with random calls.
#include <random>

#include "../../fuzz/c_families.h"
#include "services/observing.h"

namespace {

TEST(cadapt_test, DoesWhatVectorsAndMapsDo) {
    internal_errors reports;
    std::mt19937 chance(7);
    for (unsigned round = 0; round < 64; ++round) {
        std::vector<std::uint8_t> bytes(chance() % 8000 + 1);
        for (std::uint8_t &byte : bytes)
            byte = static_cast<std::uint8_t>(chance());
        bytes[0] = static_cast<std::uint8_t>(round % 8);
        try {
            c_families::drive(bytes.data(), bytes.size());
        } catch (const std::logic_error &wrong) {
            FAIL() << "round " << round << ": " << wrong.what();
        }
    }
    EXPECT_NE(reports.take().find("A dictionary's key must be a text."), std::string::npos);
}

}  // namespace
