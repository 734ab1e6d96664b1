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

} // namespace
} // namespace jorvet::testing
