// A device record in the caller's memory, byte by byte.
#include <gtest/gtest.h>

#include "jorvet/api/com_info_export.h"

TEST(ComInfo, IsExportedAsItsCharactersAndNumbersAlone) {
    CUsbFtd2xxComInfo bridge;
    bridge.serial_number = "JV-7";
    bridge.description = "ten chars.";
    bridge.index = 0x01020304;
    bridge.in_use = 1;
    bridge.com_type = 0;
    CUsbCypComInfo cypress;
    cypress.serial_number = std::string(200, 's');
    cypress.description = std::string(128, 'd');
    cypress.com_type = 1;
    cypress.vendor_id = 0x04B4;
    cypress.product_id = 0x00F1;
    const struct {
        const CComInfo& record;
        std::string serial_number, description, rest; // of memory that was full of #
    } rows[] = {{CComInfo(), "", "", std::string("\0\0\0\0\0\xFF\0\0\0\0##", 12)},
                {bridge, "JV-7", "ten chars.", std::string("\4\3\2\1\1\0\0\0\0\0##", 12)},
                {cypress, std::string(128, 's'), std::string(128, 'd'), {"\0\0\0\0\0\1\xB4\4\xF1\0##", 12}}};
    for (const auto& row : rows) {
        std::string bytes(268, '#');
        jorvet::api::export_com_info(row.record, reinterpret_cast<COM_INFO*>(bytes.data()));
        EXPECT_EQ(bytes.substr(0, 128), row.serial_number + std::string(128 - row.serial_number.size(), '#'));
        EXPECT_EQ(bytes.substr(128), row.description + std::string(128 - row.description.size(), '#') + row.rest);
    }
}
