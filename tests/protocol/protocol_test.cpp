// The CRC and the request frames, byte by byte.
#include <gtest/gtest.h>

#include "jorvet/protocol/crc.h"
#include "jorvet/protocol/request_frame.h"
#include "tests/support/receive_vectors.h"

namespace jorvet::testing {
namespace {

using byte_vector = std::vector<unsigned char>;

unsigned bitwise_crc(const byte_vector& bytes) {
    unsigned crc = 0xFFFF;
    for (const unsigned char byte : bytes)
        for (int bit = 7; bit >= 0; --bit)
            crc = ((crc << 1) & 0xFFFF) ^ (((crc >> 15) ^ (byte >> bit)) & 1 ? 0x1021u : 0u);
    return crc;
}

TEST(Crc, HasItsPublishedCheckValues) {
    EXPECT_EQ(IProtocol::getCRC_CCITT(from_hex("313233343536373839")), 0x29B1);
    EXPECT_EQ(IProtocol::getCRC_CCITT({}), 0xFFFF);
    EXPECT_EQ(IProtocol::getCRC_CCITT(from_hex("616263")), 0x514A);
}

TEST(Crc, IsTheBitwiseOneAtEveryLengthAndCut) {
    byte_vector bytes;
    for (unsigned i = 0; i < 70; ++i) {
        const unsigned expected = bitwise_crc(bytes);
        ASSERT_EQ(IProtocol::getCRC_CCITT(bytes), expected) << i;
        const std::size_t cut = bytes.size() / 3;
        const unsigned short front = protocol::crc_ccitt(bytes.data(), cut);
        ASSERT_EQ(protocol::crc_ccitt(bytes.data() + cut, bytes.size() - cut, front), expected) << i;
        bytes.push_back(static_cast<unsigned char>(i * 37 + 11));
    }
}

TEST(RequestFrame, CarriesItsTrailerAsBits4To11ThenTheLowByte) {
    const byte_vector data = from_hex("ABCD");
    const struct {
        protocol::request rq;
        bool with_crc;
        const char* bytes;
    } rows[] = {
        {{protocol::requests::read_memory, {1, 2, 3}}, true, "91 10 01 02 03 0000 1CC0"},
        {{protocol::requests::read_memory, {1, 2, 3}}, false, "90 10 01 02 03 0000"},
        {{protocol::requests::read_sn, {1, 0, 0}}, true, "91 15 01 00 00 0000 6FF9"},
        {{protocol::requests::write_by_id, {1, 2, 0}, data.data(), 2}, true, "91 21 01 02 00 0002 ABCD 7882"},
        {{protocol::requests::write_by_id, {1, 2, 0}, nullptr, 0}, false, "90 21 01 02 00 0000"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(protocol::build_frame(row.rq, row.with_crc), from_hex(row.bytes)) << row.bytes;
}

TEST(RequestFrame, HasItsLengthBigEndian) {
    const byte_vector data(300, 0x55);
    const byte_vector frame =
        protocol::build_frame({protocol::requests::write_memory, {0, 0, 0}, data.data(), 300}, true);
    EXPECT_EQ(frame.size(), 309u);
    EXPECT_EQ(frame[5], 0x01);
    EXPECT_EQ(frame[6], 0x2C);
}

} // namespace
} // namespace jorvet::testing
