// The list of status codes.
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "jorvet/base/status.h"

TEST(StatusList, GivesEachCodeOnceWithANameAndALineOfText) {
    std::set<unsigned int> expected{0, 0x30101000, 0x30102002};
    for (const auto& [first, last] : std::map<unsigned int, unsigned int>{{0x30100001, 0x3010000C},
                                                                          {0x3010000E, 0x3010000F},
                                                                          {0x30100011, 0x3010001C},
                                                                          {0x3010203D, 0x3010204F},
                                                                          {0x30103000, 0x30103003},
                                                                          {0x70000001, 0x70000012}})
        for (unsigned int code = first; code <= last; ++code)
            expected.insert(code);
    std::set<unsigned int> codes;
    std::set<std::string> names;
#define JV_CHECK(code, name, text)                                                                                     \
    EXPECT_TRUE(codes.insert(name).second&& names.insert(#name).second) << #name;                                      \
    EXPECT_STREQ(jv_status_name(code), #name);                                                                         \
    EXPECT_TRUE(*text != '\0' && jv_status_text(name) == std::string(text)) << #name;
    JV_STATUS_LIST(JV_CHECK)
#undef JV_CHECK
    EXPECT_EQ(codes, expected);
    EXPECT_STREQ(jv_status_name(0x3010000D), "JV_UNKNOWN");
}
