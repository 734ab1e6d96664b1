// The device object over a simulated device: enumeration, what Open sends and in which order, each request failing,
// strings, selection, and who owns what when it closes.
#include "fake_platform.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "jorvet/cyusb/usb_device.h"

using namespace fake;

namespace {

Bytes text_descriptor(const std::u16string& text) {
    Bytes bytes{BYTE(2 + 2 * text.size()), 3};
    for (const char16_t unit : text)
        bytes = bytes + Bytes{BYTE(unit), BYTE(unit >> 8)};
    return bytes;
}

// A closed device object, and a device with descriptors by wValue, an alternate setting and a failure to come.
struct UsbDeviceTest : fake::Test {
    std::map<int, Bytes> descriptors;
    BYTE alternate = 0, speed = 2;
    std::size_t requests = 0;
    std::size_t fails_at = 0; // counted by `requests`
    CCyUSBDevice device{nullptr, CYUSBDRV_GUID, 0};

    UsbDeviceTest() {
        os.paths = {"\\\\?\\first", "\\\\?\\second"};
        os.device = [this](const Request& request) { return answer(request); };
        describe(0x0200, 64, 1);
        descriptors[0x0300] = text_descriptor(u"\x0407\x0409");
        descriptors[0x0301] = text_descriptor(u"Maker");
        descriptors[0x0302] = text_descriptor(u"Board");
        descriptors[0x0200] = configuration(interface_of(0, 0, 4) + endpoint(0x81, 2) + endpoint(0x82, 2) +
                                            endpoint(2, 2) + endpoint(0x83, 5) + interface_of(0, 1, 2) +
                                            endpoint(0x84, 3) + endpoint(4, 3) + interface_of(1, 0, 0));
        descriptors[0x0201] = configuration(interface_of(0, 0, 1) + endpoint(0x85, 2), 4);
    }
    ~UsbDeviceTest() override { device.Close(); }

    void describe(int version, int packet_size, int configurations) {
        descriptors[0x0100] = {
            18, 1, 0, BYTE(version >> 8),  0xFF, 0xFE, 0xFD, BYTE(packet_size), 0xB4, 0x04, 0xF1, 0, 3, 1,
            1,  2, 0, BYTE(configurations)};
    }

    Reply answer(const Request& request) {
        if (++requests == fails_at)
            return {{}, ERROR_GEN_FAILURE, 0, 0xC0000004, 7};
        if (request.code == 0x00220008 || request.code == 0x0022000C)
            return {{alternate = request.code == 0x0022000C ? request.in[0] : alternate}};
        if (request.code == 0x0022004C)
            return {{speed, 0, 0, 0}};
        if (request.code != 0x00220020)
            return {Bytes(request.room, 5)};
        Bytes bytes = descriptors[request.in[2] | request.in[3] << 8];
        bytes.resize(std::size_t(request.in[6] | request.in[7] << 8));
        return {bytes, 0, 38};
    }
};

TEST_F(UsbDeviceTest, open_reads_everything_in_order_and_selects_the_endpoints) {
    EXPECT_TRUE(device.Open(0));
    EXPECT_EQ("get 0100 0000 18; get 0300 0000 2; get 0300 0000 6; get 0301 0409 2; get 0301 0409 12; "
              "get 0302 0409 2; get 0302 0409 12; get 0300 0409 2; get 0300 0409 6; "
              "220010 +1>1; 22003c +256>256; 220040 +256>256; 220000 +4>4; 220004 +4>4; 22004c +4>4; "
              "get 0200 0000 9; get 0200 0000 78; 220008 +1>1",
              os.take_log());
    EXPECT_STREQ("\\\\?\\first", device.DevicePath);
    EXPECT_TRUE(device.FriendlyName[255] == 5 && device.UsbAddress == 5 && device.DriverVersion == 0x05050505);
    EXPECT_TRUE(std::u16string(u"Maker") == device.Manufacturer && std::u16string(u"Board") == device.Product);
    EXPECT_EQ(std::u16string(u"\x0407\x0409"), device.SerialNumber); // index 0 reads the language table
    EXPECT_TRUE(device.IsHighSpeed && !device.IsSuperSpeed && device.InterfaceClass == 0xFF);
    EXPECT_TRUE(device.ConfigCount() == 1 && device.IntfcCount() == 2 && device.AltInterfaceTotal == 3);
    EXPECT_TRUE(device.AltIntfcCount() == 1 && device.EndPointCount() == 5);
    EXPECT_TRUE(device.BulkInEndPt->Address == 0x81 && device.BulkOutEndPt->Address == 2);
    EXPECT_TRUE(device.IsocInEndPt->Address == 0x83 && !device.IsocOutEndPt && !device.InterruptInEndPt);
    EXPECT_EQ(device.BulkInEndPt, device.EndPointOf(0x81));
    EXPECT_EQ(nullptr, device.EndPointOf(0x55));
    EXPECT_EQ(device.ControlEndPt, device.CurrentInterface->EndPoints[0]);
    EXPECT_TRUE(device.ControlEndPt->MaxPktSize == 64 && device.ControlEndPt->XferMode == XferBuffered);
    EXPECT_TRUE(device.ControlEndPt->DescLength == 7 && device.ControlEndPt->Attributes == 0);
    speed = 4;
    EXPECT_TRUE(device.Open(0) && device.IsSuperSpeed && !device.IsHighSpeed);
}

TEST_F(UsbDeviceTest, each_request_failing_leaves_a_device_that_opens_again) {
    describe(0x0300, 9, 1);
    descriptors[0x0F00] = bos(1, usb20_extension);
    for (fails_at = 1; fails_at <= 20; ++fails_at) {
        requests = 0;
        const bool opens = fails_at != 1 && fails_at != 18 && fails_at != 19; // descriptors of device, configuration
        EXPECT_EQ(opens, device.Open(0)) << fails_at;
        EXPECT_TRUE(device.DeviceHandle != INVALID_HANDLE_VALUE && device.ControlEndPt == device.EndPointOf(0));
        EXPECT_EQ(opens && fails_at != 20, device.BulkInEndPt != nullptr); // 20: which alternate setting?
        EXPECT_EQ(fails_at != 1 && fails_at != 10 && fails_at != 11, device.Bos != nullptr);
        EXPECT_EQ(ERROR_GEN_FAILURE, device.LastError);
        EXPECT_EQ(fails_at == 18 || fails_at == 19, device.NtStatus == 7 && device.UsbdStatus != 0);
        EXPECT_TRUE(device.Open(1) && device.BulkInEndPt != nullptr);
        EXPECT_STREQ("\\\\?\\second", device.DevicePath);
    }
}

TEST_F(UsbDeviceTest, a_place_that_cannot_be_opened_leaves_it_closed) {
    const std::pair<const char*, UCHAR> rows[] = {
        {"", 2}, {"SetupDiGetClassDevsA", 0}, {"path length", 1}, {"path", 1}, {"too long", 1}, {"CreateFileA", 1}};
    for (const auto& [function, place] : rows) {
        os.paths = {"first", std::string(255, 'x')};
        EXPECT_TRUE(device.Open(1));
        os.paths[1] += std::string(function) == "too long" ? "x" : "";
        os.failing = {{function, ERROR_ACCESS_DENIED}};
        EXPECT_FALSE(device.Open(place)) << function;
        EXPECT_TRUE(device.DeviceHandle == INVALID_HANDLE_VALUE && device.DeviceIndex == 0);
        EXPECT_TRUE(device.UsbConfigs[0] == nullptr && device.BulkInEndPt == nullptr && device.ConfigCount() == 0);
        os.failing.clear();
    }
    EXPECT_EQ(ERROR_ACCESS_DENIED, device.LastError);
}

TEST_F(UsbDeviceTest, counting_skips_what_cannot_be_read_ends_and_wraps) {
    os.unreadable = [](DWORD index) { return index == 1 ? 0 : ERROR_GEN_FAILURE; }; // for ever
    EXPECT_EQ(1, device.DeviceCount());
    os.unreadable = nullptr;
    for (const auto& [attached, counted] : {std::pair(300u, 44), std::pair(255u, 255), std::pair(0u, 0)}) {
        os.paths.resize(attached);
        EXPECT_EQ(counted, device.DeviceCount());
        EXPECT_FALSE(device.Open(UCHAR(counted)));
    }
}

TEST_F(UsbDeviceTest, strings_follow_the_language_and_stay_in_their_bounds) {
    device.Open(0);
    const std::pair<Bytes, int> tables[] = {
        {{6, 3, 7, 4, 9, 4}, 0x0409}, {{4, 3, 7, 4}, 0x0407}, {{2, 3}, 0}, {{5, 3, 7, 4, 9}, 0x0407}, {{1, 3}, 99}};
    for (const auto& [table, language] : tables) {
        descriptors[0x0300] = table;
        device.LanguageId = 99;
        device.NtStatus = 98;
        device.SetStringDescrLanguage();
        EXPECT_TRUE(device.LanguageId == language && device.NtStatus == 98) << device.LanguageId;
    }
    const std::u16string longest(126, u'w');
    const std::pair<Bytes, std::u16string> strings[] = {{text_descriptor(longest), longest},
                                                        {{4, 3, 'a', 0}, u"a" + std::u16string(125, u'\0')},
                                                        {{2, 3}, u"?"},
                                                        {{4, 2, 'a', 0}, u"?"}};
    for (const auto& [descriptor, text] : strings) {
        std::u16string target(256, u'?');
        descriptors[0x0305] = descriptor;
        device.GetString(target.data(), 5);
        EXPECT_EQ(text, target.substr(0, text.size()));
        EXPECT_EQ(text == u"?" ? u'?' : u'\0', target[127]); // 256 bytes are zeroed,
        EXPECT_EQ(u'?', target[128]);                        // and no more
    }
}

TEST_F(UsbDeviceTest, packet_size_of_endpoint_0_companions_and_bos_go_by_the_version) {
    descriptors[0x0200] = configuration(interface_of(0, 0, 1) + endpoint(0x81, 2, 1024) + companion(15));
    descriptors[0x0F00] = bos(2, usb20_extension + super_speed);
    const std::tuple<int, int, LONG, int> rows[] = {
        {0x0200, 64, 64, 1024}, {0x0100, 8, 8, 16384}, {0x0300, 9, 512, 16384}, {0x0300, 200, 1 << 30, 16384}};
    for (const auto& [version, field, packet_size, bulk_size] : rows) {
        describe(version, field, 1);
        EXPECT_TRUE(device.Open(0));
        EXPECT_TRUE(device.MaxPacketSize == packet_size && device.BulkInEndPt->MaxPktSize == bulk_size) << version;
        USB_BOS_SS_DEVICE_CAPABILITY capability{};
        USB_BOS_USB20_DEVICE_EXTENSION extension{};
        USB_BOS_CONTAINER_ID id{};
        EXPECT_EQ(version == 0x0300, device.GetBosSSCapabilityDescriptor(&capability));
        EXPECT_EQ(version == 0x0300, device.GetBosUSB20DeviceExtensionDescriptor(&extension));
        EXPECT_FALSE(device.GetBosContainedIDDescriptor(&id));
    }
}

template <class Result, class Record>
Bytes read(const CCyUSBDevice& device, Result (CCyUSBDevice::*get)(Record*) const) {
    Record record{};
    (device.*get)(&record);
    const auto* const bytes = reinterpret_cast<const BYTE*>(&record);
    return Bytes(bytes, bytes + sizeof(record));
}

TEST_F(UsbDeviceTest, descriptors_come_back_byte_for_byte_and_fill_the_members) {
    const Bytes own{18, 1, 0x21, 3, 0x22, 0x23, 0x24, 9, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 1, 2, 0, 1};
    const Bytes setting{9, 4, 0x31, 6, 1, 0x32, 0x33, 0x34, 0x35},
        rest = interface_of(0, 0, 0) + setting + endpoint(2, 2);
    const Bytes extension{7, 0x10, 2, 0x41, 0x42, 0x43, 0x44},
        super{10, 0x10, 3, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57};
    const Bytes id{20, 0x10, 4, 0x61, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    descriptors[0x0100] = own;
    descriptors[0x0200] = Bytes{9, 2, BYTE(9 + rest.size()), 0, 1, 0x71, 0x72, 0x73, 0x74} + rest;
    descriptors[0x0F00] = bos(3, extension + super + id);
    alternate = 6;
    ASSERT_TRUE(device.Open(0));
    EXPECT_EQ(own, read(device, &CCyUSBDevice::GetDeviceDescriptor));
    EXPECT_EQ(descriptors[0x0200], read(device, &CCyUSBDevice::GetConfigDescriptor) + rest);
    EXPECT_EQ(setting, read(device, &CCyUSBDevice::GetIntfcDescriptor));
    EXPECT_EQ(descriptors[0x0F00], read(device, &CCyUSBDevice::GetBosDescriptor) +
                                       read(device, &CCyUSBDevice::GetBosUSB20DeviceExtensionDescriptor) +
                                       read(device, &CCyUSBDevice::GetBosSSCapabilityDescriptor) +
                                       read(device, &CCyUSBDevice::GetBosContainedIDDescriptor));
    const CCyUSBConfig copy = device.GetUSBConfig(0);
    EXPECT_TRUE(copy.bConfigurationValue == 0x71 && copy.iConfiguration == 0x72 &&
                copy.wTotalLength == 9 + rest.size());
    const Bytes members{device.DeviceClass,     device.DeviceSubClass,    device.DeviceProtocol,
                        device.ConfigValue,     device.ConfigAttributes,  device.MaxPower,
                        device.InterfaceClass,  device.InterfaceSubClass, device.InterfaceProtocol,
                        device.InterfaceNumber, device.InterfaceIndex};
    EXPECT_EQ(Bytes({0x22, 0x23, 0x24, 0x71, 0x73, 0x74, 0x32, 0x33, 0x34, 0, 1}), members);
    EXPECT_TRUE(device.BcdUsb == 0x0321 && device.BcdDevice == 0x2A29 && device.VendorId == 0x2625 &&
                device.ProductId == 0x2827);
}

TEST_F(UsbDeviceTest, a_second_reply_that_claims_more_is_clamped) {
    descriptors[0x0F00] = bos(1, usb20_extension);
    describe(0x0300, 9, 1);
    os.device = [this](const Request& request) {
        Reply reply = answer(request);
        if (request.code == 0x00220020 && request.in[6] > 9 && request.in[3] != 1)
            reply.data[request.in[3] == 3 ? 0 : 3] = 0xFF; // the length of the whole
        return reply;
    };
    EXPECT_TRUE(device.Open(0));
    USB_CONFIGURATION_DESCRIPTOR header{};
    device.GetConfigDescriptor(&header);
    EXPECT_TRUE(header.wTotalLength == 78 && device.Bos->wTotalLength == 12);
    EXPECT_EQ(std::u16string(u"Maker"), device.Manufacturer);
}

TEST_F(UsbDeviceTest, without_a_usable_configuration_the_handle_stays_open) {
    const std::pair<int, Bytes> rows[] = {{0, configuration({})}, {1, configuration({})}, {1, {9, 2, 8, 0}}, {1, {}}};
    for (const auto& [configurations, bytes] : rows) {
        describe(0x0200, 64, configurations);
        descriptors[0x0200] = bytes;
        EXPECT_FALSE(device.Open(0));
        EXPECT_TRUE(device.DeviceHandle != INVALID_HANDLE_VALUE && device.ControlEndPt == device.EndPointOf(0));
        EXPECT_TRUE(device.BulkInEndPt == nullptr && device.EndPointCount() == 0 && !device.SetAltIntfc(1));
    }
}

TEST_F(UsbDeviceTest, the_configuration_is_chosen_by_its_string_index) {
    describe(0x0200, 64, 3);
    device.Open(0);
    EXPECT_EQ(std::string::npos, os.take_log().find("get 0202")); // no room for a third
    const std::tuple<UCHAR, UCHAR, UCHAR, int> rows[] = {{0, 4, 0, 0}, {0, 4, 4, 1}, {0, 0, 0, 1}, {4, 0, 7, 0}};
    for (const auto& [name0, name1, key, slot] : rows) {
        device.UsbConfigs[0]->iConfiguration = name0;
        device.UsbConfigs[1]->iConfiguration = name1;
        device.SetConfig(key);
        EXPECT_TRUE(device.ConfigIndex == slot && device.BulkInEndPt->Address == (slot == 0 ? 0x81 : 0x85));
    }
    for (const auto& [index, entries] : {std::pair(1, 1), std::pair(2, 0), std::pair(3, 3), std::pair(-1, 3)})
        EXPECT_EQ(entries, device.GetUSBConfig(index).AltInterfaceCount);
}

TEST_F(UsbDeviceTest, alternate_settings_move_the_endpoints) {
    device.Open(0);
    os.log.clear();
    EXPECT_TRUE(device.SetAltIntfc(0)); // the device has it already
    EXPECT_FALSE(device.SetAltIntfc(9));
    device.BulkInEndPt->XferMode = XferBuffered;
    EXPECT_TRUE(device.SetAltIntfc(1));
    EXPECT_EQ("220008 +1>1; 220008 +1>1; 220008 +1>1; 22000c 01>1", os.take_log());
    EXPECT_TRUE(device.BulkInEndPt == nullptr && device.InterruptOutEndPt->Address == 4);
    EXPECT_TRUE(device.InterfaceIndex == 1 && device.EndPointCount() == 3);
    device.SetAltIntfcParams(0);
    EXPECT_TRUE(os.log.empty() && device.InterfaceIndex == 0 && device.BulkInEndPt->XferMode == XferDirect);
    device.SetAltIntfcParams(1);
    fails_at = requests + 2;
    EXPECT_FALSE(device.SetAltIntfc(0)); // refused by the device, but taken over here
    EXPECT_EQ(0, device.InterfaceIndex);
    jorvet::cyusb::destroy_endpoint(std::exchange(device.CurrentInterface->EndPoints[2], nullptr));
    EXPECT_EQ(device.BulkInEndPt, device.EndPointOf(0x81));
    EXPECT_THROW(device.EndPointOf(0x83), const char*);
}

TEST_F(UsbDeviceTest, power_and_port_requests_say_how_they_ended) {
    device.Open(0);
    os.log.clear();
    const Reply suspended{{4, 0, 0, 0}}, failed{{}, 31};
    os.script = {suspended, suspended, {{0, 0, 0, 0}}, suspended, {{0, 0}}, failed, failed, {}, failed, failed};
    EXPECT_TRUE(device.Suspend());
    EXPECT_TRUE(device.Resume());  // all four bytes came back
    EXPECT_FALSE(device.Resume()); // 0, and two bytes
    EXPECT_TRUE(device.Suspend()); // the 4 stays in the buffer
    EXPECT_TRUE(device.Reset());
    EXPECT_FALSE(device.ReConnect());
    EXPECT_EQ(0, device.PowerState());
    EXPECT_EQ(31u, device.LastError);
    EXPECT_EQ("220018 +4>4; 220018 +4>4; 22001c 01000000>4; 220018 +4>4; 22001c 01000000>4; 220018 +4>4; "
              "22001c 04000000>4; 220030 +0>0; 220028 +0>0; 220018 +4>4",
              os.take_log());
    device.Close();
    EXPECT_TRUE(device.Suspend() && !device.Reset() && device.AltIntfc() == 0xFF && os.log.empty());
}

TEST_F(UsbDeviceTest, closing_destroys_endpoint_0_once_whoever_holds_it) {
    describe(0x0200, 64, 2);
    for (const int holders : {0, 1, 2}) {
        EXPECT_TRUE(device.Open(0));
        device.DestroyHandle(); // the trees stay until the next opening
        EXPECT_TRUE(device.BulkInEndPt != nullptr && device.EndPointOf(0x81) == nullptr && device.Open(0));
        device.SetConfig(UCHAR(2 * holders)); // 4: of the other configuration too
        if (holders == 0)
            device.CurrentInterface->EndPoints[0] = nullptr;
        const CCyUSBConfig copy = device.GetUSBConfig(0);
        device.Close();
        device.Close();
        EXPECT_TRUE(!device.ControlEndPt && !device.BulkInEndPt && !device.CurrentInterface && !device.UsbConfigs[1]);
        EXPECT_EQ(0, device.ConfigTotal + device.InterfaceTotal + device.AltInterfaceTotal + device.EndPointCount());
        EXPECT_EQ(0x81, copy.Interfaces[0]->EndPoints[1]->Address);
    }
}

TEST_F(UsbDeviceTest, registrations_are_made_replaced_and_ended_and_failures_told) {
    const HWND window = reinterpret_cast<HWND>(0x77);
    {
        CCyUSBDevice watched(window, CYUSBDRV_GUID, 1);
        ASSERT_EQ(2u, os.filters.size());
        EXPECT_TRUE(os.filters[0].size() == 32 && os.filters[0][4] == 5 && os.filters[0][12] == 0x60);
        EXPECT_TRUE(os.filters[1].size() == sizeof(DEV_BROADCAST_HANDLE) && os.filters[1][4] == 6);
        EXPECT_EQ(0, std::memcmp(&os.filters[1][offsetof(DEV_BROADCAST_HANDLE, dbch_handle)], &watched.DeviceHandle,
                                 sizeof(HANDLE)));
        const std::pair<const char*, std::string> rows[] = {
            {"UnregisterDeviceNotification", "Failed to close the handle notification handle."},
            {"CloseHandle", "Failed to close handle to driver."}};
        for (const auto& [function, text] : rows) {
            os.failing = {{function, 77}};
            try {
                watched.Close();
                ADD_FAILURE() << "closed";
            } catch (const char* message) {
                EXPECT_EQ(text, message);
            }
            EXPECT_TRUE(watched.LastError == 77 && watched.BulkInEndPt != nullptr);
        }
        os.failing = {{"RegisterDeviceNotificationA", 78}};
        EXPECT_TRUE(!watched.RegisterForPnpEvents(window) && watched.LastError == 78);
        os.failing.clear();
        EXPECT_TRUE(watched.RegisterForPnpEvents(window));
        EXPECT_EQ(2u, os.objects.size()); // the handle and one registration
        EXPECT_TRUE(watched.Open(0));
        os.failing = {{"UnregisterDeviceNotification", 77}};
    } // throws nothing, and the handle is closed
    EXPECT_EQ(2u, os.objects.size());
    os.objects.clear();
}

} // namespace
