// What Windows does with requests to a device, by whoever does it: but for the plugging in, the cases use what win32.h
// declares, and a Cypress device whose board sends nothing unasked.
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "jorvet/sim/usb/controller.h"
#include "jorvet/system/cyusb_driver.h"
#include "jorvet/system/win32.h"

namespace {

namespace code = jorvet::cyusb::driver_request;
using bytes = std::vector<BYTE>;
const GUID driver_class = jorvet::cyusb::driver_class<GUID>();

HANDLE open_path(const std::string& path, DWORD access) {
    return CreateFileA(path.c_str(), access, 3, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

// The first device of the class, by its path in the list of interfaces.
struct listed_device {
    HDEVINFO set = SetupDiGetClassDevsA(&driver_class, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    SP_DEVICE_INTERFACE_DATA data{sizeof(data), {}, 0, 0};
    SP_DEVINFO_DATA info{sizeof(info), {}, 0, 0};
    struct {
        SP_DEVICE_INTERFACE_DETAIL_DATA_A record;
        char rest[256];
    } detail{};

    listed_device() {
        detail.record.cbSize = sizeof(detail.record);
        EXPECT_TRUE(SetupDiEnumDeviceInterfaces(set, nullptr, &driver_class, 0, &data) && get());
    }
    ~listed_device() { SetupDiDestroyDeviceInfoList(set); }
    bool get() {
        return SetupDiGetDeviceInterfaceDetailA(set, &data, &detail.record, sizeof(detail), nullptr, &info) != FALSE;
    }
    std::string path() const {
        return reinterpret_cast<const char*>(&detail) + offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath);
    }
};

// A request to the device that is kept for the length of a case.
struct request {
    explicit request(HANDLE event) { record.hEvent = event; }
    bool start(HANDLE device, DWORD with_code) {
        const DWORD room = with_code == code::direct_transfer ? DWORD(data.size()) : DWORD(block.size());
        BYTE* const out = with_code == code::direct_transfer ? data.data() : block.data();
        return DeviceIoControl(device, with_code, block.data(), DWORD(block.size()), out, room, &returned, &record);
    }
    // A read of the board's endpoint.
    void read(HANDLE device) {
        XferRequest header{};
        header.EndpointAddress = 0x81;
        block.resize(sizeof(header));
        std::memcpy(block.data(), &header, sizeof(header));
        EXPECT_TRUE(!start(device, code::direct_transfer) && GetLastError() == ERROR_IO_PENDING);
    }
    DWORD result(HANDLE device, BOOL wait = FALSE) {
        return GetOverlappedResult(device, &record, &moved, wait) ? 0 : GetLastError();
    }
    OVERLAPPED record{};
    DWORD returned = 77, moved = 77;
    bytes block = bytes(1, 0x81), data = bytes(8);
};

jorvet::sim::controller_options named(const char* serial_number) {
    jorvet::sim::controller_options options;
    options.serial_number = serial_number;
    return options;
}

class Overlapped : public ::testing::Test {
  protected:
    ~Overlapped() override {
        CloseHandle(device);
        CloseHandle(event);
        controller->unplug();
    }
    void abort() {
        request cancel(nullptr);
        cancel.start(device, code::abort_pipe);
        while (!HasOverlappedIoCompleted(&cancel.record))
            Sleep(1);
    }

    const std::shared_ptr<jorvet::sim::simulated_controller> controller =
        jorvet::sim::simulated_controller::plug_in(named("Serial-A"));
    HANDLE device = open_path(listed_device().path(), GENERIC_READ | GENERIC_WRITE);
    HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
};

TEST_F(Overlapped, a_record_without_an_event_tells_its_end_and_the_handle_is_signalled) {
    request in(nullptr);
    in.read(device);
    EXPECT_TRUE(!HasOverlappedIoCompleted(&in.record) && WaitForSingleObject(device, 0) == WAIT_TIMEOUT);
    controller->board().send_raw({1, 2, 3});
    EXPECT_TRUE(in.result(device, TRUE) == 0 && in.moved == 3 && WaitForSingleObject(device, 0) == WAIT_OBJECT_0);
}

TEST_F(Overlapped, what_a_thread_has_started_is_cancelled_when_it_ends) {
    request in(event);
    std::thread([&] { in.read(device); }).join();
    EXPECT_EQ(in.result(device, TRUE), ERROR_OPERATION_ABORTED);
}

TEST_F(Overlapped, an_abort_may_end_its_transfers_after_its_own_end) {
    controller->plan_aborts({1, 1, std::chrono::milliseconds(20)});
    request in(event);
    in.read(device);
    abort();
    EXPECT_EQ(in.result(device), ERROR_IO_INCOMPLETE);
    EXPECT_EQ(in.result(device, TRUE), ERROR_OPERATION_ABORTED);
}

TEST_F(Overlapped, the_device_list_has_paths_in_lower_case_classes_of_devices_and_records_of_one_size) {
    listed_device listed;
    EXPECT_NE(std::memcmp(&listed.info.ClassGuid, &driver_class, sizeof(GUID)), 0) << "the class of the interface";
    std::string path = listed.path();
    EXPECT_NE(path.find("#serial-a#"), std::string::npos) << path;
    for (char& letter : path)
        letter = static_cast<char>(std::toupper(letter));
    EXPECT_TRUE(CloseHandle(open_path(path, GENERIC_READ))) << "in any case, and for reading alone";
    listed.detail.record.cbSize = 99;
    EXPECT_TRUE(!listed.get() && GetLastError() == ERROR_INVALID_USER_BUFFER);
}

} // namespace
