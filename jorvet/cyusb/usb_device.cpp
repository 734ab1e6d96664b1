// CCyUSBDevice: construction and closing, device-level requests, selection of configuration and alternate setting. Runs
// on the caller's thread.
#include "jorvet/cyusb/usb_device.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "jorvet/cyusb/descriptor_fields.h"
#include "jorvet/cyusb/driver_call.h"

using namespace jorvet::cyusb;

// The public constructor delegates, so that a device whose opening runs out of memory is closed again.
CCyUSBDevice::CCyUSBDevice(HWND window, const GUID& guid) : NotifyWindow(window), DriverGuid(guid) {}

CCyUSBDevice::CCyUSBDevice(HWND window, GUID guid, int open) : CCyUSBDevice(window, guid) {
    if (window != nullptr)
        RegisterForPnpEvents(window);
    if (open != 0)
        Open(DeviceIndex);
}

CCyUSBDevice::~CCyUSBDevice() {
    if (DropHandle() != nullptr) {
        HandleNotification = nullptr; // the registration could not be ended; the handle can still be closed
        DropHandle();
    }
    DestroyTrees();
    DropDeviceNotification();
}

// ---- Registrations and closing -------------------------------------------------------------------------------------

bool CCyUSBDevice::RegisterForPnpEvents(HWND window) {
    DEV_BROADCAST_DEVICEINTERFACE_A filter{};
    filter.dbcc_size = sizeof(filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = DriverGuid;
    const HDEVNOTIFY registration = RegisterDeviceNotificationA(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
    if (registration == nullptr) {
        LastError = GetLastError();
        return false;
    }
    DropDeviceNotification();
    DeviceNotification = registration;
    return true;
}

void CCyUSBDevice::DropDeviceNotification() {
    if (DeviceNotification != nullptr && !UnregisterDeviceNotification(DeviceNotification))
        LastError = GetLastError();
    DeviceNotification = nullptr;
}

void CCyUSBDevice::RegisterHandle() {
    DEV_BROADCAST_HANDLE filter{};
    filter.dbch_size = sizeof(filter);
    filter.dbch_devicetype = DBT_DEVTYP_HANDLE;
    filter.dbch_handle = DeviceHandle;
    HandleNotification = RegisterDeviceNotificationA(NotifyWindow, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
}

// Returns the text to throw; null on success.
const char* CCyUSBDevice::DropHandle() {
    if (!IsOpen())
        return nullptr;
    if (HandleNotification != nullptr && !UnregisterDeviceNotification(HandleNotification)) {
        LastError = GetLastError();
        return "Failed to close the handle notification handle.";
    }
    HandleNotification = nullptr;
    if (!CloseHandle(DeviceHandle)) {
        LastError = GetLastError();
        return "Failed to close handle to driver.";
    }
    DeviceHandle = INVALID_HANDLE_VALUE;
    return nullptr;
}

void CCyUSBDevice::DestroyHandle() {
    if (const char* const failure = DropHandle())
        throw failure;
}

void CCyUSBDevice::Close() {
    DestroyHandle();
    DestroyTrees();
}

void CCyUSBDevice::DestroyTrees() {
    DeviceDescriptor = {};
    delete[] std::exchange(BosDescriptor, nullptr);
    delete std::exchange(Bos, nullptr);
    // ControlEndPt is in slot 0 of every entry that was current: take it out of the trees and destroy it here.
    for (int slot = 0; slot < 2; ++slot) {
        if (UsbConfigs[slot] != nullptr)
            forget_endpoint0(*UsbConfigs[slot], ControlEndPt);
        delete std::exchange(UsbConfigs[slot], nullptr);
        delete[] std::exchange(ConfigDescriptors[slot], nullptr);
    }
    delete std::exchange(ControlEndPt, nullptr);
    CurrentInterface = nullptr;
    ClearEndPointPtrs();
    DeviceTotal = ConfigTotal = InterfaceTotal = AltInterfaceTotal = 0;
}

// ---- Requests ------------------------------------------------------------------------------------------------------

bool CCyUSBDevice::IoControl(ULONG code, UCHAR* buffer, ULONG length) {
    if (!IsOpen())
        return false;
    const driver_buffer same{buffer, length};
    const driver_answer answer = call_driver(DeviceHandle, code, same, same);
    BytesReturned = answer.bytes;
    if (!answer.ok)
        LastError = answer.error;
    return answer.ok && BytesReturned == length;
}

// The number becomes 0 unless all of its bytes came back.
template <class Number>
void CCyUSBDevice::ReadNumber(ULONG code, Number& number) {
    if (!IoControl(code, reinterpret_cast<UCHAR*>(&number), sizeof(number)))
        number = 0;
}

void CCyUSBDevice::GetDeviceName() {
    std::memset(DeviceName, 0, sizeof(DeviceName));
    IoControl(driver_request::device_name, reinterpret_cast<UCHAR*>(DeviceName), sizeof(DeviceName));
}

void CCyUSBDevice::GetFriendlyName() {
    std::memset(FriendlyName, 0, sizeof(FriendlyName));
    IoControl(driver_request::friendly_name, reinterpret_cast<UCHAR*>(FriendlyName), sizeof(FriendlyName));
}

void CCyUSBDevice::GetUSBAddress() {
    ReadNumber(driver_request::bus_address, UsbAddress);
}

void CCyUSBDevice::GetDriverVer() {
    ReadNumber(driver_request::driver_version, DriverVersion);
}

void CCyUSBDevice::GetUSBDIVer() {
    ReadNumber(driver_request::usbdi_version, UsbdiVersion);
}

void CCyUSBDevice::GetSpeed() {
    ULONG speed = 0;
    ReadNumber(driver_request::bus_speed, speed);
    IsHighSpeed = speed == speed_code::high;
    IsSuperSpeed = speed == speed_code::super;
}

UCHAR CCyUSBDevice::PowerState() {
    ULONG state = 0;
    ReadNumber(driver_request::get_power, state);
    return static_cast<UCHAR>(state);
}

bool CCyUSBDevice::SetPower(ULONG state) {
    if (PowerState() == state)
        return true;
    const bool answered = IoControl(driver_request::set_power, reinterpret_cast<UCHAR*>(&state), sizeof(state));
    return state != 0 || answered;
}

bool CCyUSBDevice::Suspend() {
    return SetPower(power_state::suspended);
}

bool CCyUSBDevice::Resume() {
    return SetPower(power_state::resumed);
}

bool CCyUSBDevice::Reset() {
    return IoControl(driver_request::reset_parent_port, nullptr, 0);
}

bool CCyUSBDevice::ReConnect() {
    return IoControl(driver_request::cycle_port, nullptr, 0);
}

// ---- Selection -----------------------------------------------------------------------------------------------------

CCyUSBConfig* CCyUSBDevice::CurrentConfig() const {
    return ConfigIndex < std::size(UsbConfigs) ? UsbConfigs[ConfigIndex] : nullptr;
}

CCyUSBInterface* CCyUSBDevice::CurrentEntry() const {
    const CCyUSBConfig* const config = CurrentConfig();
    return config != nullptr && InterfaceIndex < config->AltInterfaceCount ? config->Interfaces[InterfaceIndex]
                                                                           : nullptr;
}

// The first entry of the selected configuration with that alternate setting; -1 for none.
int CCyUSBDevice::SlotOfAlternate(UCHAR alternate) const {
    const CCyUSBConfig* const config = CurrentConfig();
    for (int slot = 0; config != nullptr && slot < config->AltInterfaceCount; ++slot) {
        if (config->Interfaces[slot]->bAlternateSetting == alternate)
            return slot;
    }
    return -1;
}

void CCyUSBDevice::TakeInterfaceFields(const CCyUSBInterface& entry) {
    InterfaceClass = entry.bInterfaceClass;
    InterfaceSubClass = entry.bInterfaceSubClass;
    InterfaceProtocol = entry.bInterfaceProtocol;
}

void CCyUSBDevice::SelectEntry(int slot) {
    InterfaceIndex = static_cast<UCHAR>(slot);
    TakeInterfaceFields(*CurrentEntry());
    SetEndPointPtrs();
}

void CCyUSBDevice::SetConfig(UCHAR key) {
    if (UsbConfigs[0] == nullptr)
        return;
    ConfigIndex = UsbConfigs[1] != nullptr && UsbConfigs[1]->iConfiguration == key ? 1 : 0;
    const CCyUSBConfig& config = *UsbConfigs[ConfigIndex];
    ConfigValue = config.bConfigurationValue;
    ConfigAttributes = config.bmAttributes;
    MaxPower = config.MaxPower;
    InterfaceTotal = config.bNumInterfaces;
    AltInterfaceTotal = config.AltInterfaceCount;
    InterfaceNumber = config.AltInterfaceCount > 0 ? config.Interfaces[0]->bInterfaceNumber : UCHAR{0};
    const int slot = SlotOfAlternate(AltIntfc());
    if (slot >= 0)
        SelectEntry(slot);
    else if (const CCyUSBInterface* const entry = CurrentEntry())
        TakeInterfaceFields(*entry);
}

UCHAR CCyUSBDevice::AltIntfc() {
    UCHAR alternate = 0;
    return IoControl(driver_request::get_alternate, &alternate, 1) ? alternate : UCHAR{0xFF};
}

bool CCyUSBDevice::SetAltIntfc(UCHAR alternate) {
    if (AltIntfc() == alternate)
        return true;
    const int slot = SlotOfAlternate(alternate);
    if (slot < 0)
        return false;
    const bool selected = IoControl(driver_request::select_alternate, &alternate, 1);
    SelectEntry(slot);
    return selected;
}

void CCyUSBDevice::SetAltIntfcParams(UCHAR alternate) {
    if (const int slot = SlotOfAlternate(alternate); slot >= 0)
        SelectEntry(slot);
}

UCHAR CCyUSBDevice::ConfigCount() const {
    return IsOpen() ? ConfigTotal : UCHAR{0};
}

UCHAR CCyUSBDevice::IntfcCount() const {
    return IsOpen() ? InterfaceTotal : UCHAR{0};
}

UCHAR CCyUSBDevice::AltIntfcCount() const {
    const CCyUSBInterface* const entry = CurrentEntry();
    return entry != nullptr ? static_cast<UCHAR>(entry->AlternateCount - 1) : UCHAR{0};
}

UCHAR CCyUSBDevice::EndPointCount() const {
    const CCyUSBInterface* const entry = CurrentEntry();
    return IsOpen() && entry != nullptr ? static_cast<UCHAR>(entry->bNumEndpoints + 1) : UCHAR{0};
}

// ---- Endpoints of the current entry --------------------------------------------------------------------------------

namespace {

// The slots of an entry that its endpoints may use, slot 0 included.
std::size_t slots_of(const CCyUSBInterface& entry) {
    return std::min<std::size_t>(entry.bNumEndpoints + 1u, std::size(entry.EndPoints));
}

template <class EndPoint>
void keep_first(CCyUSBEndPoint* endpoint, EndPoint*& in, EndPoint*& out) {
    EndPoint*& first = (endpoint->Address & direction_in) != 0 ? in : out;
    if (first == nullptr)
        first = dynamic_cast<EndPoint*>(endpoint);
}

} // namespace

CCyUSBEndPoint* CCyUSBDevice::EndPointOf(UCHAR address) const {
    if (address == 0)
        return ControlEndPt;
    const CCyUSBInterface* const entry = CurrentEntry();
    if (!IsOpen() || entry == nullptr)
        return nullptr;
    for (std::size_t slot = 0; slot < slots_of(*entry); ++slot) {
        CCyUSBEndPoint* const endpoint = entry->EndPoints[slot];
        if (endpoint == nullptr)
            throw "Failed to find endpoint.";
        if (endpoint->Address == address)
            return endpoint;
    }
    return nullptr;
}

void CCyUSBDevice::ClearEndPointPtrs() {
    IsocInEndPt = IsocOutEndPt = nullptr;
    BulkInEndPt = BulkOutEndPt = nullptr;
    InterruptInEndPt = InterruptOutEndPt = nullptr;
}

void CCyUSBDevice::SetEndPointPtrs() {
    if (ConfigTotal == 0 || InterfaceTotal == 0)
        return;
    ClearEndPointPtrs();
    CurrentInterface = CurrentEntry();
    if (CurrentInterface == nullptr)
        return;
    CurrentInterface->EndPoints[0] = ControlEndPt;
    for (std::size_t slot = 1; IsOpen() && slot < slots_of(*CurrentInterface); ++slot) {
        CCyUSBEndPoint* const endpoint = CurrentInterface->EndPoints[slot];
        if (endpoint == nullptr)
            continue;
        endpoint->XferMode = XferDirect;
        keep_first(endpoint, IsocInEndPt, IsocOutEndPt);
        keep_first(endpoint, BulkInEndPt, BulkOutEndPt);
        keep_first(endpoint, InterruptInEndPt, InterruptOutEndPt);
    }
}

// ---- Copies --------------------------------------------------------------------------------------------------------

CCyUSBConfig CCyUSBDevice::GetUSBConfig(int index) const {
    const int slot = index >= 0 && index < ConfigTotal ? index : 0;
    const CCyUSBConfig* const config = slot < 2 ? UsbConfigs[slot] : nullptr;
    return config != nullptr ? CCyUSBConfig(*config) : CCyUSBConfig();
}

void CCyUSBDevice::GetDeviceDescriptor(USB_DEVICE_DESCRIPTOR* descriptor) const {
    *descriptor = DeviceDescriptor;
}

void CCyUSBDevice::GetConfigDescriptor(USB_CONFIGURATION_DESCRIPTOR* descriptor) const {
    *descriptor = {};
    if (ConfigIndex < std::size(ConfigDescriptors) && ConfigDescriptors[ConfigIndex] != nullptr)
        std::memcpy(descriptor, ConfigDescriptors[ConfigIndex], sizeof(*descriptor));
}

void CCyUSBDevice::GetIntfcDescriptor(USB_INTERFACE_DESCRIPTOR* descriptor) const {
    *descriptor = {};
    if (const CCyUSBInterface* const entry = CurrentEntry())
        copy_interface_fields(*descriptor, *entry);
}

bool CCyUSBDevice::GetBosDescriptor(USB_BOS_DESCRIPTOR* descriptor) const {
    if (!IsUsb3() || Bos == nullptr)
        return false;
    copy_bos_fields(*descriptor, *Bos);
    return true;
}

bool CCyUSBDevice::GetBosUSB20DeviceExtensionDescriptor(USB_BOS_USB20_DEVICE_EXTENSION* descriptor) const {
    if (!IsUsb3() || Bos == nullptr || Bos->Usb20Extension == nullptr)
        return false;
    copy_usb20_extension_fields(*descriptor, *Bos->Usb20Extension);
    return true;
}

bool CCyUSBDevice::GetBosContainedIDDescriptor(USB_BOS_CONTAINER_ID* descriptor) const {
    if (!IsUsb3() || Bos == nullptr || Bos->ContainerId == nullptr)
        return false;
    copy_container_id_fields(*descriptor, *Bos->ContainerId);
    return true;
}

bool CCyUSBDevice::GetBosSSCapabilityDescriptor(USB_BOS_SS_DEVICE_CAPABILITY* descriptor) const {
    if (!IsUsb3() || Bos == nullptr || Bos->SsCapability == nullptr)
        return false;
    copy_super_speed_fields(*descriptor, *Bos->SsCapability);
    return true;
}
