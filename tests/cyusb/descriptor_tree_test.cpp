// The walks over descriptor bytes: well-formed trees, and each way of being malformed. Every range is a heap block of
// exactly its size, so that a sanitizer sees a read beyond it.
#include <memory>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "jorvet/cyusb/descriptor_tree.h"
#include "tests/cyusb/descriptors.h"

using namespace fake;

namespace {

constexpr auto ignored = CCyCompanions::Ignored, parsed = CCyCompanions::Parsed;

CCyUSBConfig walk(const Bytes& bytes, CCyCompanions companions) {
    return CCyUSBConfig(nullptr, Bytes(bytes).data(), bytes.size(), companions);
}

// "number.alternate*AlternateCount[endpoint addresses]TotalLength" for each entry.
std::string shape(const CCyUSBConfig& config) {
    std::string text;
    for (int i = 0; i < config.AltInterfaceCount; ++i) {
        const CCyUSBInterface& entry = *config.Interfaces[i];
        text += (i > 0 ? " " : "") + std::to_string(entry.bInterfaceNumber) + "." +
                std::to_string(entry.bAlternateSetting) + "*" + std::to_string(entry.AlternateCount) + "[";
        for (int slot = 1; slot < 32 && entry.EndPoints[slot] != nullptr; ++slot)
            text += (slot > 1 ? "," : "") + std::to_string(entry.EndPoints[slot]->Address);
        text += "]" + std::to_string(entry.TotalLength);
    }
    return text;
}

// Which capabilities the walk finds: 1 the extension, 2 SuperSpeed.
int capabilities(const Bytes& bytes) {
    const CCyUSBBOS bos(nullptr, Bytes(bytes).data(), bytes.size());
    return (bos.Usb20Extension ? 1 : 0) + (bos.SsCapability ? 2 : 0);
}

Bytes repeated(int count, const Bytes& bytes) {
    return count == 0 ? Bytes() : bytes + repeated(count - 1, bytes);
}

Bytes cut(Bytes bytes, std::size_t size) {
    bytes.resize(size);
    return bytes;
}

const Bytes class_specific{5, 0x24, 0, 1, 1};
const Bytes in = endpoint(1, 2), out = endpoint(2, 2), two_bulk = interface_of(0, 0, 2) + in + out;

TEST(ConfigurationTree, entries_and_endpoints_stand_in_descriptor_order) {
    const Bytes interrupt = interface_of(1, 0, 1) + class_specific + endpoint(9, 3);
    const Bytes control = interface_of(0, 0, 2) + endpoint(1, 0) + companion(3) + out;
    const std::tuple<Bytes, CCyCompanions, std::string> rows[] = {
        {two_bulk, ignored, "0.0*1[1,2]23"},
        {two_bulk + interface_of(0, 1, 0) + interrupt, ignored, "0.0*2[1,2]23 0.1*2[]9 1.0*1[9]21"},
        {class_specific + two_bulk + class_specific + interrupt, parsed, "0.0*1[1,2]23 1.0*1[9]21"},
        {interface_of(0, 0, 2) + in + companion(3) + out + companion(1), ignored, "0.0*1[1,2]29"},
        {interface_of(0, 0, 2) + in + companion(3) + out + companion(1), parsed, "0.0*1[1,2]35"},
        {control + companion(1), parsed, "0.0*1[1,2]35"}, // a control endpoint's companion counts too
    };
    for (const auto& [rest, companions, expected] : rows)
        EXPECT_EQ(expected, shape(walk(configuration(rest), companions)));
}

TEST(ConfigurationTree, endpoints_have_the_class_that_their_kind_names_in_a_copy_too) {
    const Bytes distinct{6, 0x30, 15, 0x81, 0x82, 0x83}, interval = with(endpoint(0x83, 2, 1024), 6, 0x84);
    const Bytes rest = endpoint(1, 0) + companion(7) + endpoint(2, 5) + interval + distinct;
    const CCyUSBConfig config = walk(configuration(interface_of(0, 0, 4) + rest + endpoint(4, 3)), parsed);
    config.Interfaces[0]->EndPoints[3]->TimeOut = 7;
    config.Interfaces[0]->EndPoints[3]->XferMode = XferBuffered;
    const CCyUSBConfig copy(config);
    for (const CCyUSBConfig* tree : {&config, &copy}) {
        const auto& endpoints = tree->Interfaces[0]->EndPoints;
        EXPECT_TRUE(dynamic_cast<CCyControlEndPoint*>(endpoints[1]) && dynamic_cast<CCyIsocEndPoint*>(endpoints[2]));
        EXPECT_TRUE(dynamic_cast<CCyBulkEndPoint*>(endpoints[3]) && dynamic_cast<CCyInterruptEndPoint*>(endpoints[4]));
        EXPECT_TRUE(endpoints[1]->SsMaxBurst == 0 && endpoints[3]->MaxPktSize == 16384 && endpoints[3]->TimeOut == 7);
        const CCyUSBEndPoint& e = *endpoints[3];
        const Bytes fields{e.DescLength,   e.DescType,   e.Address,    e.Attributes,   e.Interval,
                           e.SsDescLength, e.SsDescType, e.SsMaxBurst, e.SsAttributes, BYTE(e.PktsPerFrame)};
        EXPECT_EQ(Bytes({7, 5, 0x83, 2, 0x84, 6, 0x30, 15, 0x81, 1}), fields);
        EXPECT_TRUE(e.SsBytesPerInterval == 0x8382 && e.IsIn && e.XferMode == XferBuffered && e.LastError == 0);
        endpoints[3]->LastError = 5; // stays here
    }
}

TEST(ConfigurationTree, a_malformed_descriptor_ends_the_walk_and_what_was_whole_stays) {
    const Bytes good = configuration(two_bulk), three = interface_of(0, 0, 3) + in + out, other{2, 0x24};
    const Bytes one = interface_of(0, 0, 1), two = interface_of(0, 0, 2);
    // a header cut off, of wTotalLength 0 and 9, of length 0, shorter than its record; an interface of length 0 and 1,
    // shorter than its record, past the end
    const std::vector<Bytes> headers{{},
                                     cut(good, 8),
                                     with(good, 2, 0),
                                     with(good, 2, 9),
                                     configuration({}),
                                     with(good, 0, 0),
                                     with(good, 0, 4),
                                     with(good, 9, 0),
                                     with(good, 9, 1),
                                     with(good, 9, 8),
                                     cut(good, 17)};
    const std::pair<std::string, std::vector<Bytes>> rows[] = {
        {"", headers},
        // an endpoint likewise, and one byte of it; a companion past the end
        {"0.0*1[1]16",
         {with(good, 25, 0), with(good, 25, 1), with(good, 25, 6), cut(good, 31), cut(good, 26),
          configuration(two + in + Bytes{6, 0x30, 1})}},
        // wTotalLength beyond the range; fewer endpoints than promised
        {"0.0*1[1,2]23", {with(good, 3, 0xFF), configuration(three)}},
        // the same before another interface
        {"0.0*2[1,2]23 0.0*2[1]16", {configuration(three + one + in)}},
        // eleven and twelve other descriptors; a companion shorter than its record
        {"0.0*1[1]38", {configuration(one + repeated(11, other) + in)}},
        {"0.0*1[]31", {configuration(one + repeated(12, other) + in)}},
        {"0.0*1[1,2]25", {configuration(two + in + Bytes{2, 0x30} + out)}},
    };
    for (const auto& [expected, malformed] : rows)
        for (const Bytes& bytes : malformed)
            EXPECT_EQ(expected, shape(walk(bytes, parsed))) << "number " << (&bytes - malformed.data());
}

TEST(ConfigurationTree, holds_31_endpoints_in_an_entry_and_255_entries) {
    const Bytes forty = interface_of(0, 0, 40) + repeated(40, in);
    const CCyUSBConfig endpoints = walk(configuration(forty + interface_of(1, 0, 0)), ignored);
    EXPECT_NE(nullptr, endpoints.Interfaces[0]->EndPoints[31]);
    EXPECT_TRUE(endpoints.Interfaces[0]->TotalLength == 9 + 31 * 7 && endpoints.AltInterfaceCount == 2);
    const CCyUSBConfig entries = walk(configuration(repeated(300, interface_of(0, 0, 0))), ignored);
    EXPECT_TRUE(entries.AltInterfaceCount == 255 && entries.Interfaces[254]->AlternateCount == 255);
}

TEST(ConfigurationTree, a_shared_endpoint_0_is_destroyed_once_and_copies_have_their_own) {
    auto config = std::make_unique<CCyUSBConfig>(walk(configuration(two_bulk + interface_of(0, 1, 0)), ignored));
    config->Interfaces[0]->EndPoints[0] = config->Interfaces[1]->EndPoints[0] = new CCyControlEndPoint;
    const CCyUSBConfig copy(*config);
    config.reset();
    EXPECT_EQ("0.0*2[1,2]23 0.1*2[]9", shape(copy));
    EXPECT_NE(copy.Interfaces[0]->EndPoints[0], copy.Interfaces[1]->EndPoints[0]);
}

TEST(BosTree, capabilities_are_found_wherever_they_stand_and_the_later_one_counts) {
    const Bytes container_id{20, 0x10, 4, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const Bytes bytes =
        bos(5, Bytes{3, 0x10, 1} + with(usb20_extension, 3, 1) + super_speed + container_id + usb20_extension);
    const CCyUSBBOS tree(nullptr, Bytes(bytes).data(), bytes.size());
    ASSERT_TRUE(tree.Usb20Extension && tree.SsCapability && tree.ContainerId);
    EXPECT_EQ(6u, tree.Usb20Extension->bmAttributes);
}

TEST(BosTree, a_malformed_capability_ends_the_walk_and_what_was_whole_stays) {
    const Bytes both = usb20_extension + super_speed, good = bos(2, both);
    const std::pair<int, std::vector<Bytes>> rows[] = {
        // none promised; a header cut off, of a wTotalLength below its own, of length 1
        {0, {bos(0, both), {}, cut(good, 4), cut(good, 5), with(good, 2, 4), with(good, 0, 1)}},
        // one promised; a second one of length 0, 1 and 2, shorter than its record, past the end
        {1,
         {bos(1, both), with(good, 12, 0), with(good, 12, 1), with(good, 12, 2), with(good, 12, 9), with(good, 12, 11),
          with(good, 2, 21), cut(good, 13)}},
        // whole; more promised
        {3, {good, bos(200, both)}},
    };
    for (const auto& [found, malformed] : rows)
        for (const Bytes& bytes : malformed)
            EXPECT_EQ(found, capabilities(bytes)) << "number " << (&bytes - malformed.data());
}

} // namespace
