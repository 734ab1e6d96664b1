// CCyUSBDevice: reading descriptors and strings from the device. Runs on the caller's thread.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "jorvet/cyusb/driver_call.h"
#include "jorvet/cyusb/usb_device.h"

using namespace jorvet::cyusb;

namespace {

constexpr std::uint32_t read_timeout_s = 5;
constexpr std::size_t string_header = 2;
constexpr std::size_t zeroed_before_copy = 256; // bytes of a string's target
constexpr USHORT us_english = 0x0409;

// wValue of GET_DESCRIPTOR
USHORT value_of(UCHAR type, int index) {
    return static_cast<USHORT>(type << 8 | index);
}

USHORT number_at(const UCHAR* bytes) {
    return static_cast<USHORT>(bytes[0] | bytes[1] << 8);
}

// Replaces the descriptor in `slot` with another, whose length is in bytes 2 and 3. That length is reduced to what the
// buffer holds.
void store(UCHAR*& slot, std::unique_ptr<UCHAR[]> bytes, std::size_t size) {
    const std::size_t claimed = std::min<std::size_t>(number_at(&bytes[2]), size);
    bytes[2] = static_cast<UCHAR>(claimed & 0xFF);
    bytes[3] = static_cast<UCHAR>(claimed >> 8);
    delete[] slot;
    slot = bytes.release();
}

} // namespace

// One GET_DESCRIPTOR of exactly `length` bytes into `target`; false, with `target` untouched, when it fails or returns
// another number of bytes. The two statuses become those of the request either way.
bool CCyUSBDevice::ReadDescriptor(USHORT value, USHORT index, UCHAR* target, std::size_t length) {
    if (!IsOpen())
        return false;
    const transfer_block block = make_block(0, true, nullptr, length);
    XferRequest& header = *block.header();
    header.bmRequestType = direction_in;
    header.bRequest = get_descriptor;
    header.wValue = value;
    header.wIndex = index;
    header.wLength = static_cast<std::uint16_t>(length);
    header.TimeOut = read_timeout_s;
    const UCHAR* const data = block.data();
    const bool read = IoControl(driver_request::control_transfer, block.bytes.get(), block.size);
    UsbdStatus = header.UsbdStatus;
    NtStatus = header.NtStatus;
    if (read)
        std::memcpy(target, data, length);
    return read;
}

// Reads a descriptor's header to learn its length, then all of it. The second reply may state another length than the
// first: `size` is the number of bytes read.
CCyUSBDevice::whole_descriptor CCyUSBDevice::ReadWholeDescriptor(USHORT value, USHORT index,
                                                                 std::size_t header_length) {
    UCHAR header[sizeof(USB_CONFIGURATION_DESCRIPTOR)] = {};
    if (!ReadDescriptor(value, index, header, header_length))
        return {};
    const std::size_t size = header_length == string_header ? header[0] : number_at(header + 2);
    if (size < header_length)
        return {};
    whole_descriptor whole{std::make_unique<UCHAR[]>(size), size};
    if (!ReadDescriptor(value, index, whole.bytes.get(), size))
        return {};
    return whole;
}

void CCyUSBDevice::GetDevDescriptor() {
    DeviceDescriptor = {};
    USB_DEVICE_DESCRIPTOR read{};
    if (!ReadDescriptor(value_of(descriptor_type::device, 0), 0, reinterpret_cast<UCHAR*>(&read), sizeof(read)))
        return;
    DeviceDescriptor = read;
    BcdUsb = read.bcdUSB;
    VendorId = read.idVendor;
    ProductId = read.idProduct;
    DeviceClass = read.bDeviceClass;
    DeviceSubClass = read.bDeviceSubClass;
    DeviceProtocol = read.bDeviceProtocol;
    BcdDevice = read.bcdDevice;
    ConfigTotal = read.bNumConfigurations;
    // From USB 3.0 on the field is an exponent; one too large for a 32-bit size counts as the largest that fits.
    MaxPacketSize = BcdUsb >> 8 < 3 ? read.bMaxPacketSize0 : LONG{1} << std::min<int>(read.bMaxPacketSize0, 30);
}

void CCyUSBDevice::SetStringDescrLanguage() {
    const ULONG nt_status = NtStatus; // this read leaves it as it was
    const whole_descriptor table = ReadWholeDescriptor(value_of(descriptor_type::string, 0), 0, string_header);
    NtStatus = nt_status;
    if (table.bytes == nullptr)
        return;
    const std::size_t length = std::min<std::size_t>(table.bytes[0], table.size);
    LanguageId = length >= string_header + 2 ? number_at(&table.bytes[string_header]) : USHORT{0};
    for (std::size_t at = string_header; at + 2 <= length; at += 2) {
        if (number_at(&table.bytes[at]) == us_english)
            LanguageId = us_english;
    }
}

void CCyUSBDevice::GetString(WCHAR* target, UCHAR index) {
    const whole_descriptor text =
        ReadWholeDescriptor(value_of(descriptor_type::string, index), LanguageId, string_header);
    if (text.bytes == nullptr || text.bytes[1] != descriptor_type::string)
        return;
    const std::size_t length = std::min<std::size_t>(text.bytes[0], text.size);
    if (length <= string_header)
        return;
    std::memset(target, 0, zeroed_before_copy);
    std::memcpy(target, &text.bytes[string_header], length - string_header);
}

void CCyUSBDevice::GetCfgDescriptor(int index) {
    if (index < 0 || index >= static_cast<int>(std::size(ConfigDescriptors)))
        return;
    whole_descriptor whole =
        ReadWholeDescriptor(value_of(descriptor_type::configuration, index), 0, sizeof(USB_CONFIGURATION_DESCRIPTOR));
    if (whole.bytes != nullptr)
        store(ConfigDescriptors[index], std::move(whole.bytes), whole.size);
}

bool CCyUSBDevice::GetInternalBosDescriptor() {
    whole_descriptor whole = ReadWholeDescriptor(value_of(descriptor_type::bos, 0), 0, sizeof(USB_BOS_DESCRIPTOR));
    if (whole.bytes == nullptr)
        return false;
    store(BosDescriptor, std::move(whole.bytes), whole.size);
    return true;
}
