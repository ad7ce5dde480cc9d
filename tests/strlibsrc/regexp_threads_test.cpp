// Searches beside each other, and behind the end of what a thread keeps for them.
#include <thread>

#include "strlibsrc/text_model.h"

namespace {

kel::owned_regexp compiled(const std::string &pattern) {
    setErrReport(true);
    return kel::owned_regexp(regcomp(pattern.c_str()));
}

// Its destructor searches once more.
struct late_search {
    kel::owned_regexp program = compiled("(a+)b");
    bool &found;
    ~late_search() { found = kel::search(*program, "caab"); }
};

TEST(regexp_threads, AnObjectThatOutlivesTheThreadsTablesMaySearch) {
    bool found = false;
    std::thread([&found] {
        // Older than the tables, which the first search makes.
        static thread_local const late_search late{.found = found};
        EXPECT_TRUE(kel::search(*late.program, "ab"));
    }).join();
    EXPECT_TRUE(found);
}

TEST(regexp_threads, ThreadsCompileAndSearchProgramsOfTheirOwn) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([last = std::string(1, static_cast<char>('c' + i)), i] {
            for (int n = 0; n < 300; ++n) {
                const kel::owned_regexp one = compiled("(a|b)*" + last + "+");
                const std::string text = std::string(static_cast<std::size_t>(n), 'a') + "cdefg";
                ASSERT_TRUE(kel::search(*one, text));
                ASSERT_EQ(one->groupStart[0] - text.data(), i == 0 ? 0 : n + i);
            }
        });
    for (std::thread &each : threads)
        each.join();
}

}  // namespace
