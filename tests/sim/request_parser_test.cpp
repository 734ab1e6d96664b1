// Cutting requests out of a byte stream.
#include <gtest/gtest.h>

#include "jorvet/sim/request_parser.h"
#include "tests/sim/recording_link.h"

namespace jorvet::sim {
namespace {

// Everything that the parser makes of the stream, when it comes in pieces that end before the offsets given.
Pieces parse(const Bytes& stream, const std::vector<std::size_t>& ends) {
    RequestParser parser;
    Pieces result;
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
        const std::uint8_t* bytes = stream.data() + begin;
        std::size_t count = end - begin;
        while (const Request* request = parser.next(bytes, count))
            result.push_back(to_hex(&request->command, 1) + to_hex(request->parameters, 3) + ":" +
                             to_hex(request->data.data(), request->data.size()) +
                             (request->with_crc ? (request->crc_matches ? " right" : " wrong") : ""));
        begin = end;
    }
    result.push_back(std::to_string(parser.stray_bytes()) + " stray");
    return result;
}

TEST(RequestParser, UnderstandsAStreamWhereverItIsChopped) {
    Bytes stream = from_hex("FF80 91210102000002ABCD7882 90200304000003909192 00 91150100000000 6FF9"
                            "91100102030000D1C0 91100102030000 1CC1 90320000000000 90200000 00012C");
    stream.resize(stream.size() + 300, 0x91);
    const Pieces expected{"21010200:ABCD right",
                          "20030400:909192",
                          "15010000: right",
                          "10010203: wrong",
                          "10010203: wrong",
                          "32000000:",
                          "20000000:" + to_hex(Bytes(300, 0x91).data(), 300),
                          "3 stray"};
    std::vector<std::size_t> single_bytes;
    for (std::size_t i = 0; i <= stream.size(); ++i) {
        EXPECT_EQ(parse(stream, {i, stream.size()}), expected) << "chopped at " << i;
        single_bytes.push_back(i);
    }
    EXPECT_EQ(parse(stream, single_bytes), expected);
}

} // namespace
} // namespace jorvet::sim
