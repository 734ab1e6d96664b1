// A device record in the caller's memory, byte by byte.
#include <cstring>

#include <gtest/gtest.h>

#include "jorvet/com/com_info_export.h"

namespace jorvet::testing {
namespace {

// The 268 bytes that a record leaves in memory full of `before`.
std::string exported(const CComInfo& record, char before) {
    std::string bytes(268, before);
    com::export_com_info(record, reinterpret_cast<COM_INFO*>(bytes.data()));
    return bytes;
}

TEST(ComInfo, LeavesTheBytesAfterItsTextsAlone) {
    CUsbFtd2xxComInfo record;
    record.serial_number = "JV-7";
    record.description = "ten chars.";
    record.index = 0x01020304;
    record.in_use = 1;
    record.com_type = 0;
    record.id = 0x04036014;
    const std::string expected = "JV-7" + std::string(124, '#') + "ten chars." + std::string(118, '#') +
                                 std::string("\x04\x03\x02\x01\x01\0\0\0\0\0##", 12);
    EXPECT_EQ(exported(record, '#'), expected);
}

TEST(ComInfo, CutsItsTextsAt128CharactersWithoutATerminator) {
    CComInfo record;
    record.serial_number = std::string(200, 's');
    record.description = std::string(128, 'd');
    const std::string bytes = exported(record, '#');
    EXPECT_EQ(bytes.substr(0, 256), std::string(128, 's') + std::string(128, 'd'));
    EXPECT_EQ(bytes.substr(256), std::string("\0\0\0\0\0\xFF\0\0\0\0##", 12));
}

TEST(ComInfo, OfNoDeviceIsEmptyButForItsKind) {
    EXPECT_EQ(exported(CComInfo(), '\0'), std::string(0x105, '\0') + '\xFF' + std::string(6, '\0'));
}

TEST(ComInfo, GivesTheIdentifiersOfACypressDeviceAlone) {
    CUsbCypComInfo record;
    record.com_type = 1;
    record.vendor_id = 0x04B4;
    record.product_id = 0x00F1;
    EXPECT_EQ(exported(record, '#').substr(0x104), std::string("\0\x01\xB4\x04\xF1\0##", 8));
}

} // namespace
} // namespace jorvet::testing
