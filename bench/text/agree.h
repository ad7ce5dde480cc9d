// All contenders of a row must find the same: the first one's finding is kept, and each later one is held
// against it.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "harness/stopwatch.h"
#include "inputs.h"

namespace bench {

// A number that stands for what was found, step by step.
class Digest {
public:
    Digest &add(std::uint64_t value) {
        m_value = (m_value ^ value) * 0x9E37'79B9'7F4A'7C15u;
        m_value ^= m_value >> 32;
        return *this;
    }
    Digest &add(Span span) {
        return add(static_cast<std::uint64_t>(span.begin)).add(static_cast<std::uint64_t>(span.end));
    }
    Digest &add(std::string_view text) { return add(std::hash<std::string_view>()(text)).add(text.size()); }
    std::uint64_t value() const { return m_value; }

private:
    std::uint64_t m_value = 1;
};

// Null, or what is wrong.
const char *agree(const std::string &row, const Digest &found);

// Times making a result and letting it go. `digest` puts into a Digest what all contenders must agree on.
template <class Make, class Put>
void make_result(benchmark::State &state, const std::string &row, Make make, Put put) {
    run_once(state, [&]() -> const char * {
        std::optional<decltype(make())> result;
        double seconds = seconds_of_work([&] { result.emplace(make()); });
        Digest digest;
        put(digest, *result);
        seconds += seconds_of_work([&] { result.reset(); });
        state.counters[whole] = seconds * 1e9;
        return agree(row, digest);
    });
}

}  // namespace bench
