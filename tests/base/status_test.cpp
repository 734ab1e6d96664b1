// The list of status codes: one name and one text for each, and no code twice.
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "jorvet/base/status.h"

namespace {

struct entry {
    unsigned int code;
    std::string name;
    std::string text;
};
const entry entries[] = {
#define JV_ENTRY(code, name, text) {code, #name, text},
    JV_STATUS_LIST(JV_ENTRY)
#undef JV_ENTRY
};

TEST(StatusList, NamesEachCodeOnceInOneLine) {
    std::set<unsigned int> codes;
    std::set<std::string> names;
    for (const entry& e : entries) {
        EXPECT_TRUE(codes.insert(e.code).second) << e.name;
        EXPECT_TRUE(names.insert(e.name).second) << e.name;
        EXPECT_EQ(jv_status_name(e.code), e.name);
        EXPECT_EQ(jv_status_text(e.code), e.text);
        EXPECT_TRUE(!e.text.empty() && e.text.find('\n') == std::string::npos) << e.name;
    }
    EXPECT_STREQ(jv_status_name(0x3010000D), "JV_UNKNOWN");
    EXPECT_NE(std::string(jv_status_text(0x3010000D)), "");
}

TEST(StatusList, HoldsExactlyTheCodesThatAreGivenOut) {
    std::set<unsigned int> expected{0,          0x3010000E, 0x3010000F, 0x30100011, 0x30100012, 0x30100013,
                                    0x30101000, 0x30102002, 0x30103000, 0x30103001, 0x30103002, 0x30103003};
    const auto add = [&](unsigned int first, unsigned int last) {
        for (unsigned int code = first; code <= last; ++code)
            expected.insert(code);
    };
    add(0x30100001, 0x3010000C);
    add(0x3010203D, 0x3010204F);
    add(0x70000001, 0x70000012);
    std::set<unsigned int> codes;
    for (const entry& e : entries)
        codes.insert(e.code);
    EXPECT_EQ(codes, expected);
}

TEST(StatusList, KeepsTheNamesThatProgramsCompareWith) {
    const struct {
        unsigned int constant, code;
    } rows[] = {{JV_OK, 0},
                {JV_ERR_NO_COM, 0x30100001},
                {JV_ERR_TIMEOUT_READ_MEMORY, 0x30100002},
                {JV_ERR_TIMEOUT_READ_BY_ID, 0x30100003},
                {JV_ERR_TIMEOUT_READ_SN, 0x30100004},
                {JV_ERR_TIMEOUT_READ_LAST_SW, 0x30100005},
                {JV_ERR_TIMEOUT_READ_ERROR, 0x30100006},
                {JV_ERR_TIMEOUT_WRITE_MEMORY, 0x30100007},
                {JV_ERR_TIMEOUT_WRITE_BY_ID, 0x30100008},
                {JV_ERR_TIMEOUT_EXEC_BY_ID, 0x30100009},
                {JV_ERR_TIMEOUT_RESET, 0x3010000A},
                {JV_ERR_TIMEOUT_SET_MODE, 0x3010000B},
                {JV_ERR_TIMEOUT_GET_MODE, 0x3010000C},
                {JV_ERR_REPLY_TIMEOUT, 0x3010000E},
                {JV_ERR_CONTEXT_LOSS, 0x3010000F},
                {JV_ERR_NOT_SUPPORTED, 0x30100011},
                {JV_ERR_EVENT_TIMEOUT, 0x30100012},
                {JV_ERR_NO_RESOURCES, 0x30100013},
                {JV_ERR_COM_NOT_OPEN, 0x30101000},
                {JV_ERR_FTDI_SHORT_WRITE, 0x30102002},
                {JV_ERR_CYP_NO_ENDPOINT, 0x30103000},
                {JV_ERR_CYP_READ, 0x30103001},
                {JV_ERR_CYP_WRITE, 0x30103002},
                {JV_ERR_CYP_OPEN, 0x30103003}};
    for (const auto& row : rows)
        EXPECT_EQ(row.constant, row.code);
}

} // namespace
