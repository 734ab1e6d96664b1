// What the bridge chips are asked, what their packets hold, and what devices are called.
#include <gtest/gtest.h>

#include "jorvet/usb/bridge_chip.h"
#include "tests/support/receive_vectors.h"

namespace jorvet::usb {
namespace {

using testing::from_hex;

TEST(BridgeChip, MakesTheDivisorNextToARate) {
    const struct {
        bridge_chip chip;
        std::uint32_t rate;
        int value, index; // -1: no divisor is near enough
    } table[] = {
        {bridge_chip::r, 115200, 0x001A, 0},
        {bridge_chip::r, 9600, 0x4138, 0},
        {bridge_chip::r, 300, 0x2710, 0},
        {bridge_chip::r, 3000000, 0, 0},
        {bridge_chip::r, 2000000, 1, 0},
        {bridge_chip::r, 921600, 0x8003, 0},
        {bridge_chip::bm, 230400, 0x000D, 0},
        {bridge_chip::x, 460800, 0x4006, 0},
        {bridge_chip::am, 115200, 0x001A, 0},
        {bridge_chip::r, 19200, 0x809C, 0},
        {bridge_chip::c2232, 115200, 0x001A, 0},
        {bridge_chip::c2232, 38400, 0xC04E, 0},
        {bridge_chip::h2232, 115200, 0xC068, 0x0200},
        {bridge_chip::h232, 12000000, 0, 0x0200},
        {bridge_chip::h4232, 921600, 0x000D, 0x0200},
        {bridge_chip::h232, 300, 0x2710, 0},
        {bridge_chip::r, 4000000, -1, 0},
        {bridge_chip::r, 100, -1, 0},
        {bridge_chip::r, 2500000, -1, 0},
        {bridge_chip::h232, 0, -1, 0},
    };
    for (const auto& row : table) {
        const auto request = baud_rate_request(row.chip, row.rate);
        ASSERT_EQ(request.has_value(), row.value >= 0) << row.rate;
        if (request) {
            EXPECT_EQ(request->request, 3) << row.rate;
            EXPECT_EQ(request->value, row.value) << row.rate;
            EXPECT_EQ(request->index, row.index) << row.rate;
        }
    }
}

TEST(BridgeChip, IsAskedForItsSettings) {
    const auto text = [](const bridge_request& r) {
        return std::to_string(r.request) + " " + std::to_string(r.value) + " " + std::to_string(r.index);
    };
    EXPECT_EQ(text(reset_request()) + ", " + text(purge_received_request()) + ", " + text(purge_unsent_request()),
              "0 0 0, 0 2 0, 0 1 0");
    EXPECT_EQ(text(data_format_request(8, 0, 0)) + ", " + text(data_format_request(7, 2, 2)), "4 8 0, 4 4615 0");
    EXPECT_EQ(text(flow_control_request(0, 17, 19)) + ", " + text(flow_control_request(0x400, 0x11, 0x13)),
              "2 0 0, 2 4881 1024");
    EXPECT_EQ(text(latency_request(10)), "9 10 0");
    EXPECT_TRUE(port_number(bridge_chip::r, 0) == 0 && port_number(bridge_chip::h232, 0) == 1);
    EXPECT_EQ(port_number(bridge_chip::h4232, 3), 4);
}

TEST(BridgeChip, StripsTheStatusOfEachPacket) {
    const struct {
        const char *received, *bytes;
        unsigned errors;
    } table[] = {{"", "", 0},
                 {"0160", "", 0},
                 {"01", "", 0},
                 {"0160 AABB", "AABB", 0},
                 {"0160 A1A2A3A4A5A6 0160 B1B2", "A1A2A3A4A5A6B1B2", 0},
                 {"0162 A1A2A3A4A5A6 0170 B1 ", "A1A2A3A4A5A6B1", 2},
                 {"01E1 A1", "A1", 0}};
    for (const auto& row : table) {
        const auto received = from_hex(row.received);
        std::vector<std::uint8_t> bytes;
        EXPECT_EQ(strip_status(received.data(), received.size(), 8, bytes), row.errors) << row.received;
        EXPECT_EQ(bytes, from_hex(row.bytes)) << row.received;
    }
}

seen_device seen(std::uint16_t vendor, std::uint16_t product, std::uint8_t interface_class) {
    seen_device device;
    device.vendor_id = vendor;
    device.product_id = product;
    device.first_interface_class = interface_class;
    return device;
}

TEST(KnownDevices, AreBridgesAndControllersAlone) {
    const std::vector<added_id> added = {{0x1234, 0x0001, device_kind::bridge}, {0x0403, 0x6015, device_kind::none}};
    const std::pair<seen_device, device_kind> table[] = {
        {seen(0x0403, 0x6001, 0xFF), device_kind::bridge},     {seen(0x0403, 0x6014, 0xFF), device_kind::bridge},
        {seen(0x0403, 0x6002, 0xFF), device_kind::none},       {seen(0x0403, 0x6015, 0xFF), device_kind::none},
        {seen(0x04B4, 0x00F3, 0x00), device_kind::controller}, {seen(0x04B4, 0x1234, 0xFF), device_kind::controller},
        {seen(0x04B4, 0x0101, 0x03), device_kind::none},       {seen(0x04B4, 0x6560, 0x09), device_kind::none},
        {seen(0x1234, 0x0001, 0x00), device_kind::bridge},     {seen(0x1234, 0x0002, 0xFF), device_kind::none}};
    for (const auto& [device, kind] : table)
        EXPECT_EQ(kind_of(device, added), kind) << device.vendor_id << ":" << device.product_id;
}

TEST(KnownDevices, AreNamedAndOrderedByTheirPlaces) {
    seen_device device = seen(0x0403, 0x6011, 0xFF);
    device.bus = 1;
    device.path = {2, 3};
    device.release = 0x0800;
    device.product = std::string(70, 'p');
    EXPECT_EQ(place_of(device), "1-2.3");
    EXPECT_EQ(ports_of(chip_of(device.release)), 4u);
    ports::bridge_identity identity = bridge_identity_of(device, 1, false);
    EXPECT_EQ(identity.serial_number, "@1-2.3B");
    EXPECT_EQ(identity.description, std::string(61, 'p') + " B");
    EXPECT_TRUE(identity.type == 7 && identity.id == 0x04036011 && identity.location == 0x1232);
    device.serial_number = "0123456789ABCDEF";
    EXPECT_EQ(bridge_identity_of(device, 0, false).serial_number, "0123456789ABCDA");
    EXPECT_EQ(bridge_identity_of(device, 0, true).serial_number, "01234567@1-2.3A");
    device.release = 0x0600;
    identity = bridge_identity_of(device, 0, false);
    EXPECT_TRUE(identity.serial_number == "0123456789ABCDE" && identity.type == 5 && identity.location == 0x123);
    device.serial_number = "a#b\\c";
    EXPECT_EQ(controller_identity_of(device, false).serial_number, "a_b_c");
    EXPECT_EQ(controller_identity_of(device, true).serial_number, "a_b_c@1-2.3");

    seen_device other = device; // on the hub's next port, and on port 10
    other.path = {2, 4};
    EXPECT_LT(order_of(device), order_of(other));
    other.path = {10};
    EXPECT_LT(order_of(device, 3), order_of(other, 0));
}

} // namespace
} // namespace jorvet::usb
