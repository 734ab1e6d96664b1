// Faults: which calls fail, and that every function behind the two faces asks.
#include <gtest/gtest.h>

#include "jorvet/compat/faults.h"
#include "jorvet/system/d2xx.h"

using namespace jorvet::compat;

namespace {

TEST(Faults, hit_the_nth_matching_call_once_or_from_then_on) {
    const struct {
        const char* function;
        unsigned nth;
        bool from_then_on;
        const char* pattern; // of the five calls below, x where one fails
        unsigned seen;
    } cases[] = {
        {"FT_Write", 1, false, "x....", 2}, {"FT_Write", 2, false, "....x", 2}, {"FT_Write", 1, true, "x...x", 2},
        {"FT_Write", 3, true, ".....", 2},  {"FT_*", 2, false, "..x..", 4},     {"FT_*", 2, true, "..xxx", 4},
        {"*", 2, true, ".xxxx", 5},         {"FT_", 1, true, ".....", 0},       {"SetEvent", 1, false, ".x...", 1}};
    for (const auto& c : cases) {
        const faults::scope armed(c.function, c.nth, 99, c.from_then_on);
        std::string pattern;
        for (const char* call : {"FT_Write", "SetEvent", "FT_Read", "FT_WriteEE", "FT_Write"})
            pattern += faults::due(call) == 99u ? 'x' : '.';
        EXPECT_EQ(pattern, c.pattern) << c.function << c.nth;
        EXPECT_EQ(faults::calls_seen(), c.seen) << c.function << c.nth;
    }
    EXPECT_FALSE(faults::due("FT_Write"));
}

} // namespace
