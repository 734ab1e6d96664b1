// CCyUSBDevice: finding devices through their interface class, and opening one. Runs on the caller's thread.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "jorvet/cyusb/usb_device.h"

namespace {

constexpr unsigned max_failures = 256; // members that cannot be read before an enumeration is given up

// The interfaces of a class that are present; released with the object.
class present_devices {
  public:
    explicit present_devices(const GUID& guid)
        : set_(SetupDiGetClassDevsA(&guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {}
    ~present_devices() {
        if (valid())
            SetupDiDestroyDeviceInfoList(set_);
    }
    present_devices(const present_devices&) = delete;
    present_devices& operator=(const present_devices&) = delete;

    bool valid() const { return set_ != INVALID_HANDLE_VALUE; }
    HDEVINFO get() const { return set_; }

  private:
    HDEVINFO set_;
};

template <class Record>
Record sized_record() {
    Record record{};
    record.cbSize = sizeof(record);
    return record;
}

} // namespace

UCHAR CCyUSBDevice::DeviceCount() {
    Enumerate();
    return DeviceTotal;
}

void CCyUSBDevice::Enumerate() {
    DeviceTotal = 0;
    const present_devices devices(DriverGuid);
    if (!devices.valid())
        return;
    auto member = sized_record<SP_DEVICE_INTERFACE_DATA>();
    unsigned failures = 0;
    for (DWORD i = 0; failures < max_failures; ++i) {
        if (SetupDiEnumDeviceInterfaces(devices.get(), nullptr, &DriverGuid, i, &member))
            ++DeviceTotal;
        else if (GetLastError() == ERROR_NO_MORE_ITEMS)
            return;
        else
            ++failures;
    }
}

bool CCyUSBDevice::CreateHandle(UCHAR index) {
    Enumerate();
    if (index < DeviceTotal) {
        const present_devices devices(DriverGuid);
        if (devices.valid() && FindPath(devices.get(), index) && OpenPath())
            return true;
    }
    DeviceHandle = INVALID_HANDLE_VALUE;
    DeviceIndex = 0;
    return false;
}

// Fills DevicePath with the path of member `index`.
bool CCyUSBDevice::FindPath(HDEVINFO set, UCHAR index) {
    using detail_record = SP_DEVICE_INTERFACE_DETAIL_DATA_A;
    auto member = sized_record<SP_DEVICE_INTERFACE_DATA>();
    if (!SetupDiEnumDeviceInterfaces(set, nullptr, &DriverGuid, index, &member))
        return false;
    DWORD required = 0;
    if (!SetupDiGetDeviceInterfaceDetailA(set, &member, nullptr, 0, &required, nullptr) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return false;
    constexpr DWORD around_path = offsetof(detail_record, DevicePath) + 1; // the path ends with a zero
    if (required < around_path || required - around_path >= sizeof(DevicePath))
        return false;

    std::vector<BYTE> bytes(std::max<std::size_t>(required, sizeof(detail_record)));
    auto* const detail = new (bytes.data()) detail_record(sized_record<detail_record>());
    auto device = sized_record<SP_DEVINFO_DATA>();
    if (!SetupDiGetDeviceInterfaceDetailA(set, &member, detail, required, nullptr, &device))
        return false;
    const DWORD length = required - around_path;
    std::memcpy(DevicePath, bytes.data() + offsetof(detail_record, DevicePath), length);
    DevicePath[length] = '\0';
    return true;
}

bool CCyUSBDevice::OpenPath() {
    DeviceHandle = CreateFileA(DevicePath, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (!IsOpen())
        LastError = GetLastError();
    return IsOpen();
}

bool CCyUSBDevice::Open(UCHAR index) {
    Close();
    if (!CreateHandle(index))
        return false;
    DeviceIndex = index;
    GetDevDescriptor();
    SetStringDescrLanguage();
    GetString(Manufacturer, DeviceDescriptor.iManufacturer);
    GetString(Product, DeviceDescriptor.iProduct);
    GetString(SerialNumber, DeviceDescriptor.iSerialNumber);
    if (IsUsb3() && GetInternalBosDescriptor())
        Bos = new CCyUSBBOS(DeviceHandle, reinterpret_cast<const USB_BOS_DESCRIPTOR*>(BosDescriptor));
    GetUSBAddress();
    GetDeviceName();
    GetFriendlyName();
    GetDriverVer();
    GetUSBDIVer();
    GetSpeed();
    for (int slot = 0; slot < std::min<int>(ConfigTotal, 2); ++slot)
        BuildConfig(slot);
    CreateControlEndPoint();
    if (UsbConfigs[0] == nullptr || UsbConfigs[0]->Interfaces[0] == nullptr)
        return false;
    SetConfig(0);
    if (DeviceNotification != nullptr)
        RegisterHandle();
    return true;
}

void CCyUSBDevice::BuildConfig(int slot) {
    GetCfgDescriptor(slot);
    if (ConfigDescriptors[slot] == nullptr)
        return;
    const auto companions = BcdUsb >> 8 == 2 ? CCyCompanions::Ignored : CCyCompanions::Parsed;
    UsbConfigs[slot] = new CCyUSBConfig(
        DeviceHandle, reinterpret_cast<const USB_CONFIGURATION_DESCRIPTOR*>(ConfigDescriptors[slot]), companions);
}

void CCyUSBDevice::CreateControlEndPoint() {
    const auto packet_size = static_cast<USHORT>(MaxPacketSize & 0xFFFF);
    const USB_ENDPOINT_DESCRIPTOR endpoint0{7, jorvet::cyusb::descriptor_type::endpoint, 0, 0, packet_size, 0};
    ControlEndPt = new CCyControlEndPoint(DeviceHandle, &endpoint0);
    ControlEndPt->MaxPktSize = packet_size; // all 16 bits: endpoint descriptors use the upper ones for other things
}
