// The numbers and bytes that people write, and what is said about wrong ones.
#include <gtest/gtest.h>

#include "jorvet/base/read_text.h"

namespace jorvet {
namespace {

template <class Read>
std::string complaint(Read read) {
    try {
        read();
    } catch (const std::invalid_argument& wrong) {
        return wrong.what();
    }
    return "none";
}

TEST(ReadText, NumbersAreDecimalOrHexadecimalAfter0xAndBounded) {
    const std::pair<const char*, std::uint64_t> good[] = {{"0", 0},      {"00", 0},    {"255", 255}, {"0x0", 0},
                                                          {"0xfF", 255}, {"0X10", 16}, {"010", 10}};
    for (const auto& [text, value] : good)
        EXPECT_EQ(read_number(text, 255), value) << text;
    EXPECT_EQ(read_number("18446744073709551615", UINT64_MAX), UINT64_MAX);
    for (const std::string text :
         {"", "-1", "+1", " 1", "1 ", "x", "0x", "0xg", "1f", "256", "0x100", "0x1 ", "1.0", "18446744073709551616"})
        EXPECT_EQ(complaint([&] { read_number(text, 255); }), "'" + text + "' is not a number from 0 to 255");
}

TEST(ReadText, BytesArePairsOfDigitsWithBlanksColonsAnd0xBeforeThem) {
    const std::vector<std::uint8_t> bytes{0xDE, 0xAD, 0xBE, 0x0F};
    for (const char* text : {"DEADBE0F", "de ad be 0f", "DE:AD:BE:0F", "0xDEADBE0F", " 0xde\t0XAD0xBE  :0f: "})
        EXPECT_EQ(read_bytes(text), bytes) << text;
    EXPECT_TRUE(read_bytes("").empty() && read_bytes(" : ").empty());
    const char* const bad[][2] = {
        {"ABC", "'ABC' has an odd number of digits: two make a byte"},
        {"A BC", "'A BC' has an odd number of digits: two make a byte"},
        {"A0xBC", "'A0xBC' has an odd number of digits: two make a byte"},
        {"00 XY", "'X' is not a hexadecimal digit"},
        {"00,01", "',' is not a hexadecimal digit"},
        {"00 0x", "no digits follow a 0x in '00 0x'"},
        {"0x 00", "no digits follow a 0x in '0x 00'"},
    };
    for (const auto& [text, sentence] : bad)
        EXPECT_EQ(complaint([text = text] { read_bytes(text); }), sentence);
}

} // namespace
} // namespace jorvet
