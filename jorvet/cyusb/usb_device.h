// One USB device bound to the Cypress USB driver: finding it by its device interface class, opening it by its place in
// the list, its descriptors, and the endpoints of the selected interface entry. No thread, no lock: Open, Close,
// SetConfig, SetAltIntfc and the destructor must not overlap each other or transfers on the endpoints.
//
// Requests block until the driver has answered. A failed one leaves the reason in `LastError`; with no device open
// nothing is sent and the operation fails. DestroyHandle, Close and EndPointOf throw a text (const char*) as stated
// there; the destructor throws nothing.
#pragma once

#include <cstddef>
#include <memory>

#include "jorvet/cyusb/descriptor_tree.h"
#include "jorvet/cyusb/endpoint.h"
#include "jorvet/cyusb/usb_descriptors.h"
#include "jorvet/system/cyusb_driver.h"
#include "jorvet/system/win32.h"

// The device interface class of the Cypress USB driver.
inline constexpr GUID CYUSBDRV_GUID = jorvet::cyusb::driver_class<GUID>();

class CCyUSBDevice {
  public:
    // A closed device of the given class. With a window it is registered there for arrivals and removals (`LastError`
    // when that fails); with `open` not 0 the first device is opened, if there is one.
    CCyUSBDevice(HWND window, GUID guid, int open);
    // Closes, and ends the registration. Failures are left in `LastError`.
    ~CCyUSBDevice();
    CCyUSBDevice(const CCyUSBDevice&) = delete;
    CCyUSBDevice& operator=(const CCyUSBDevice&) = delete;

    // The number of devices of the class that are present, modulo 256.
    UCHAR DeviceCount();
    // Registers `window` for arrivals and removals, in place of an earlier registration. False with `LastError`.
    bool RegisterForPnpEvents(HWND window);

    // Opens the device at place `index`, after closing the one that was open, reads everything for the members below
    // and selects the first configuration. True when an interface entry is selected. False with `DeviceHandle` invalid:
    // no such device, or it does not open. False with a valid handle: there is no usable configuration; requests and
    // ControlEndPt work. Of more than two configurations the first two are read.
    bool Open(UCHAR index);
    // The first step of Open: finds the path and opens the handle. The device must be closed. False with the handle
    // invalid.
    bool CreateHandle(UCHAR index);
    // Closes the handle and destroys descriptors, trees and endpoints; harmless when closed. Throws as DestroyHandle
    // does, and nothing is destroyed then.
    void Close();
    // Ends the registration of the handle and closes it. Throws "Failed to close the handle notification handle." or
    // "Failed to close handle to driver." with `LastError`; the handle stays.
    void DestroyHandle();
    // One request with `length` bytes at `buffer` as input and output. True when it succeeded and all of them came
    // back; `BytesReturned` tells how many did.
    bool IoControl(ULONG code, UCHAR* buffer, ULONG length);

    // Selects the configuration whose iConfiguration is `key` (the second one when both match, else the first), and in
    // it the entry whose alternate setting the device reports. Sends no SET_CONFIGURATION.
    void SetConfig(UCHAR key);
    // Selects an alternate setting on the device and here. True at once when the device reports it already; false when
    // no entry has it or the request fails.
    bool SetAltIntfc(UCHAR alternate);
    // Selects the first entry with that alternate setting here, without telling the device. No such entry: no change.
    void SetAltIntfcParams(UCHAR alternate);
    // The alternate setting that the device reports; 0xFF when it does not.
    UCHAR AltIntfc();
    // Counts of the open device: configurations, interfaces, alternate settings of the current interface besides the
    // first, endpoints of the current entry including endpoint 0. 0 when there is nothing to count.
    UCHAR ConfigCount() const;
    UCHAR IntfcCount() const;
    UCHAR AltIntfcCount() const;
    UCHAR EndPointCount() const;
    // The endpoint of the current entry with that address; null when there is none. Throws "Failed to find endpoint."
    // when the entry lacks an endpoint that it promises, and the address was not found before that.
    CCyUSBEndPoint* EndPointOf(UCHAR address) const;
    // Points the typed endpoint pointers below at the first endpoint of each kind and direction in the current entry,
    // and switches all of its endpoints to direct mode.
    void SetEndPointPtrs();
    // A copy of the configuration in slot `index`, or slot 0 when there is no configuration `index`; empty for a slot
    // that was not read. It outlives Close, though the handle in its endpoints does not.
    CCyUSBConfig GetUSBConfig(int index) const;

    // Copies of the descriptors read; zeros where there is none. Those of the BOS exist for USB 3.x devices only:
    // false, and nothing written, when there is no such descriptor.
    void GetDeviceDescriptor(USB_DEVICE_DESCRIPTOR* descriptor) const;
    void GetConfigDescriptor(USB_CONFIGURATION_DESCRIPTOR* descriptor) const;
    void GetIntfcDescriptor(USB_INTERFACE_DESCRIPTOR* descriptor) const;
    bool GetBosDescriptor(USB_BOS_DESCRIPTOR* descriptor) const;
    bool GetBosUSB20DeviceExtensionDescriptor(USB_BOS_USB20_DEVICE_EXTENSION* descriptor) const;
    bool GetBosContainedIDDescriptor(USB_BOS_CONTAINER_ID* descriptor) const;
    bool GetBosSSCapabilityDescriptor(USB_BOS_SS_DEVICE_CAPABILITY* descriptor) const;

    // The single reads of Open. Each fills its members. When it fails they are zero, except that `ConfigDescriptors`,
    // `BosDescriptor`, `LanguageId` and strings stay as they were.
    void GetDevDescriptor();
    void SetStringDescrLanguage();
    void GetString(WCHAR* target, UCHAR index); // `target` has 256 characters
    void GetCfgDescriptor(int index);
    bool GetInternalBosDescriptor();
    void GetDeviceName();
    void GetFriendlyName();
    void GetUSBAddress();
    void GetDriverVer();
    void GetUSBDIVer();
    void GetSpeed();

    UCHAR PowerState(); // as the driver reports it, 4 suspended; 0 when it does not
    // True when the device is in that state already, when the driver answers in full, or when it leaves the value in
    // the request; also while no device is open.
    bool Suspend();
    bool Resume();
    bool Reset();     // the port that the device is attached to
    bool ReConnect(); // cycles that port: the device enumerates anew

    // A line of text for a USB bus status word, at most 60 bytes with the terminating zero.
    static void UsbdStatusString(ULONG status, char* text);

    CCyUSBInterface* CurrentInterface = nullptr; // the trees own it, and all endpoints but ControlEndPt
    CCyUSBBOS* Bos = nullptr;
    CCyIsocEndPoint* IsocInEndPt = nullptr;
    CCyIsocEndPoint* IsocOutEndPt = nullptr;
    CCyBulkEndPoint* BulkInEndPt = nullptr;
    CCyBulkEndPoint* BulkOutEndPt = nullptr;
    CCyControlEndPoint* ControlEndPt = nullptr; // in slot 0 of the entries that were current; Close destroys it
    CCyInterruptEndPoint* InterruptInEndPt = nullptr;
    CCyInterruptEndPoint* InterruptOutEndPt = nullptr;
    USHORT LanguageId = 0;
    ULONG LastError = 0;
    ULONG UsbdStatus = 0; // of the last descriptor read
    ULONG NtStatus = 0;
    ULONG DriverVersion = 0;
    ULONG UsbdiVersion = 0;
    char DeviceName[jorvet::cyusb::name_size] = {};   // as the driver fills it: possibly not zero-terminated
    char FriendlyName[jorvet::cyusb::name_size] = {}; // likewise
    WCHAR Manufacturer[256] = {};
    WCHAR Product[256] = {};
    WCHAR SerialNumber[256] = {};
    char DevicePath[256] = {};
    USHORT BcdUsb = 0;
    USHORT VendorId = 0;
    USHORT ProductId = 0;
    UCHAR UsbAddress = 0;
    UCHAR DeviceClass = 0;
    UCHAR DeviceSubClass = 0;
    UCHAR DeviceProtocol = 0;
    LONG MaxPacketSize = 0; // of endpoint 0, bytes
    USHORT BcdDevice = 0;
    UCHAR ConfigValue = 0; // of the selected configuration
    UCHAR ConfigAttributes = 0;
    UCHAR MaxPower = 0;
    UCHAR InterfaceClass = 0; // of the selected entry
    UCHAR InterfaceSubClass = 0;
    UCHAR InterfaceProtocol = 0;
    bool IsHighSpeed = false;
    bool IsSuperSpeed = false;
    ULONG BytesReturned = 0; // by the last request
    USB_DEVICE_DESCRIPTOR DeviceDescriptor{};
    UCHAR* ConfigDescriptors[2] = {}; // whole descriptors, wTotalLength bytes or more; owned, as the next three
    UCHAR* BosDescriptor = nullptr;
    CCyUSBConfig* UsbConfigs[2] = {};
    HWND NotifyWindow = nullptr;
    HANDLE DeviceHandle = INVALID_HANDLE_VALUE;
    HDEVNOTIFY DeviceNotification = nullptr; // for the class
    HDEVNOTIFY HandleNotification = nullptr; // for the open handle
    GUID DriverGuid{};
    UCHAR DeviceTotal = 0;       // at the last count
    UCHAR InterfaceTotal = 0;    // bNumInterfaces of the selected configuration
    UCHAR AltInterfaceTotal = 0; // its entries
    UCHAR ConfigTotal = 0;
    UCHAR DeviceIndex = 0;
    UCHAR ConfigIndex = 0;
    UCHAR InterfaceNumber = 0; // of the first entry
    UCHAR InterfaceIndex = 0;  // slot of the selected entry

  private:
    struct whole_descriptor {
        std::unique_ptr<UCHAR[]> bytes; // null when it was not read
        std::size_t size = 0;
    };

    CCyUSBDevice(HWND window, const GUID& guid);

    bool IsOpen() const { return DeviceHandle != INVALID_HANDLE_VALUE; }
    // Whether the device has a BOS to read. See jorvet::cyusb::is_usb3 for why the two differ.
    bool IsUsb3() const { return BcdUsb >> 8 == 3; }

    void Enumerate();
    bool FindPath(HDEVINFO set, UCHAR index);
    bool OpenPath();
    void BuildConfig(int slot);
    void CreateControlEndPoint();
    void RegisterHandle();
    const char* DropHandle();
    void DropDeviceNotification();
    void DestroyTrees();

    template <class Number>
    void ReadNumber(ULONG code, Number& number);
    bool SetPower(ULONG state);
    bool ReadDescriptor(USHORT value, USHORT index, UCHAR* target, std::size_t length);
    whole_descriptor ReadWholeDescriptor(USHORT value, USHORT index, std::size_t header_length);

    CCyUSBConfig* CurrentConfig() const;
    CCyUSBInterface* CurrentEntry() const;
    int SlotOfAlternate(UCHAR alternate) const;
    void ClearEndPointPtrs();
    void TakeInterfaceFields(const CCyUSBInterface& entry);
    void SelectEntry(int slot);
};
