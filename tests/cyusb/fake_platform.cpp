// The functions of win32.h over fake::Platform.
#include "fake_platform.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace fake {

Platform Test::os;

namespace {

struct Transfer {
    BYTE* block; // null for a request without one
    BYTE* out;
    bool pending;
    DWORD error = 0;
    DWORD bytes = 0;

    void perform(const Reply& reply) {
        pending = false;
        error = reply.error;
        bytes = reply.bytes != DWORD(-1) ? reply.bytes : DWORD(reply.at + reply.data.size());
        std::copy(reply.data.begin(), reply.data.end(), out + reply.at);
        if (block != nullptr) {
            std::memcpy(block + 14, &reply.nt_status, 4);
            std::memcpy(block + 18, &reply.usbd_status, 4);
        }
    }
};

Platform& os = Test::os;
DWORD last_error;
std::map<OVERLAPPED*, Transfer> transfers;
OVERLAPPED* latest; // what complete() ends
std::set<void*> signalled;

BOOL result(DWORD error) {
    last_error = error;
    return error == 0;
}

bool fails(const char* function) {
    const auto found = os.failing.find(function);
    return found != os.failing.end() && !result(found->second);
}

void* open_object(const char* function, void* none) {
    static std::uintptr_t handles;
    return fails(function) ? none : *os.objects.insert(reinterpret_cast<void*>(++handles)).first;
}

BOOL close_object(const char* function, void* object) {
    if (fails(function))
        return FALSE;
    EXPECT_EQ(1u, os.objects.erase(object)) << function << " of what is not open";
    return TRUE;
}

std::string text_of(const Request& request) {
    const auto& [code, in, room] = request;
    if (code == 0x00220020 && in[0] == 0x80 && in[1] == 6) {
        EXPECT_EQ(5, in[8]) << "seconds of the time-out";
        return "get " + hex({in[3], in[2]}) + " " + hex({in[5], in[4]}) + " " + std::to_string(in[6] | in[7] << 8);
    }
    const bool zeros = std::all_of(in.begin(), in.end(), [](BYTE byte) { return byte == 0; });
    return hex({BYTE(code >> 16), BYTE(code >> 8), BYTE(code)}) + " " +
           (zeros ? "+" + std::to_string(in.size()) : hex(in)) + ">" + std::to_string(room);
}

Reply answer(const Request& request) {
    if (os.script.empty() && !os.device)
        throw std::logic_error("unexpected request"); // the test fails here, and does not ask for ever
    if (os.script.empty())
        return os.device(request);
    const Reply reply = os.script.front();
    os.script.pop_front();
    return reply;
}

} // namespace

std::string hex(const Bytes& bytes) {
    std::string text;
    for (const BYTE byte : bytes)
        text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return text;
}

void Platform::complete(const Reply& reply) {
    ASSERT_TRUE(latest != nullptr && transfers.at(latest).pending) << "nothing is pending";
    transfers.at(latest).perform(reply);
    latest->Internal = reply.error; // anything but pending
    signalled.insert(latest->hEvent);
}

std::string Platform::take_log() {
    std::string joined;
    for (const std::string& line : std::exchange(log, {}))
        joined += (joined.empty() ? "" : "; ") + line;
    return joined;
}

Test::Test() {
    os = {};
    transfers.clear();
    signalled.clear();
    latest = nullptr;
}

Test::~Test() {
    EXPECT_EQ(0u, os.objects.size() + os.script.size() + os.waits.size()) << "objects, answers or waits are left";
}

} // namespace fake

using namespace fake;

DWORD GetLastError() {
    return last_error;
}

void SetLastError(DWORD error) {
    last_error = error;
}

HANDLE CreateEventA(SECURITY_ATTRIBUTES*, BOOL manual_reset, BOOL initial_state, LPCSTR) {
    EXPECT_FALSE(manual_reset || initial_state);
    return open_object("CreateEventA", nullptr);
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    os.log.push_back(milliseconds == INFINITE ? "wait" : "wait " + std::to_string(milliseconds));
    if (fails("WaitForSingleObject"))
        return WAIT_FAILED;
    if (signalled.count(object) == 0 && !os.waits.empty()) {
        os.waits.front()();
        os.waits.pop_front();
    }
    if (signalled.erase(object) == 1)
        return WAIT_OBJECT_0;
    EXPECT_NE(milliseconds, INFINITE) << "waits for ever";
    return WAIT_TIMEOUT;
}

void Sleep(DWORD) {
    os.log.push_back("sleep");
    ASSERT_FALSE(os.waits.empty()) << "sleeps for ever";
    os.waits.front()();
    os.waits.pop_front();
}

BOOL CloseHandle(HANDLE object) {
    return close_object("CloseHandle", object);
}

HANDLE CreateFileA(LPCSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
                   DWORD flags, HANDLE model) {
    EXPECT_TRUE(access == 0xC0000000 && share == 3 && !attributes && disposition == 3 && flags == 0x40000000 && !model);
    EXPECT_EQ(1, std::count(os.paths.begin(), os.paths.end(), path));
    return open_object("CreateFileA", INVALID_HANDLE_VALUE);
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD in_size, LPVOID out, DWORD out_size, LPDWORD returned,
                     OVERLAPPED* record) {
    EXPECT_TRUE(os.objects.count(device) == 1 && last_error == 0) << "no open device, or a stale last error";
    if (record == nullptr)
        throw std::logic_error("a request without a record");
    auto* const bytes = static_cast<BYTE*>(in);
    const Request request{code, Bytes(bytes, bytes + in_size), out_size};
    os.log.push_back(text_of(request));
    if (os.log.size() > 100000)
        throw std::logic_error("requests without end");
    const Reply reply = answer(request);
    Transfer transfer{in_size >= 38 ? bytes : nullptr, static_cast<BYTE*>(out), reply.later};
    if (!reply.later)
        transfer.perform(reply);
    transfers.insert_or_assign(record, transfer);
    if (code != 0x00220044 || reply.later)
        latest = record;
    record->Internal = reply.later || reply.error != 0 ? STATUS_PENDING : 0; // also of a refused request
    if (reply.before_return)
        reply.before_return();
    *returned = transfer.bytes;
    return result(reply.later ? ERROR_IO_PENDING : reply.error);
}

BOOL GetOverlappedResult(HANDLE, OVERLAPPED* record, LPDWORD transferred, BOOL wait) {
    const Transfer& transfer = transfers.at(record);
    EXPECT_FALSE(transfer.pending && wait) << "waits for ever";
    *transferred = transfer.bytes;
    return result(transfer.pending ? ERROR_IO_INCOMPLETE : transfer.error);
}

HDEVINFO SetupDiGetClassDevsA(const GUID* class_guid, LPCSTR enumerator, HWND parent, DWORD flags) {
    EXPECT_TRUE(class_guid->Data1 == 0xAE18AA60 && enumerator == nullptr && parent == nullptr && flags == 0x12);
    return open_object("SetupDiGetClassDevsA", INVALID_HANDLE_VALUE);
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO, SP_DEVINFO_DATA* device, const GUID*, DWORD index,
                                 SP_DEVICE_INTERFACE_DATA* data) {
    EXPECT_TRUE(device == nullptr && data->cbSize == sizeof(*data));
    data->Reserved = index;
    const DWORD error = os.unreadable ? os.unreadable(index) : 0;
    return result(error == 0 && index >= os.paths.size() ? ERROR_NO_MORE_ITEMS : error);
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO, SP_DEVICE_INTERFACE_DATA* data,
                                      SP_DEVICE_INTERFACE_DETAIL_DATA_A* detail, DWORD size, LPDWORD required,
                                      SP_DEVINFO_DATA* device) {
    const std::string& path = os.paths.at(data->Reserved);
    if (fails(detail == nullptr ? "path length" : "path"))
        return FALSE;
    if (detail == nullptr) {
        *required = DWORD(5 + path.size());
        return result(ERROR_INSUFFICIENT_BUFFER);
    }
    EXPECT_TRUE(size == 5 + path.size() && detail->cbSize == sizeof(*detail) && device->cbSize == sizeof(*device));
    std::memcpy(reinterpret_cast<char*>(detail) + 4, path.c_str(), path.size() + 1);
    return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set) {
    return close_object("SetupDiDestroyDeviceInfoList", set);
}

HDEVNOTIFY RegisterDeviceNotificationA(HANDLE window, LPVOID filter, DWORD flags) {
    EXPECT_TRUE(window != nullptr && flags == 0);
    const auto* const bytes = static_cast<const BYTE*>(filter);
    os.filters.emplace_back(bytes, bytes + *static_cast<const DWORD*>(filter));
    return open_object("RegisterDeviceNotificationA", nullptr);
}

BOOL UnregisterDeviceNotification(HDEVNOTIFY registration) {
    return close_object("UnregisterDeviceNotification", registration);
}
