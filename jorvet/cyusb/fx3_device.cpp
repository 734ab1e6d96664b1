// CCyFX3Device: vendor requests and downloads. Runs on the caller's thread.
#include "jorvet/cyusb/fx3_device.h"

#include <limits>
#include <vector>

#include "jorvet/cyusb/fx3_download.h"

using namespace jorvet::cyusb;

CCyFX3Device::CCyFX3Device() : CCyUSBDevice(nullptr, CYUSBDRV_GUID, 1) {}

// ---- Requests ------------------------------------------------------------------------------------------------------

// ControlEndPt outlives a handle that only DestroyHandle has closed.
vendor_channel CCyFX3Device::VendorChannel() {
    return vendor_channel(DeviceHandle == INVALID_HANDLE_VALUE ? nullptr : ControlEndPt);
}

bool CCyFX3Device::Ep0VendorCommand(vendorCmdData command) {
    const vendor_channel channel = VendorChannel();
    if (command.size < 0)
        return true;
    if (command.size == 0)
        return channel.send(command.opCode, command.addr, command.isRead ? DirToHost : DirToDevice);
    const auto size = static_cast<std::size_t>(command.size);
    return command.isRead ? channel.read(command.opCode, command.addr, command.buf, size)
                          : channel.write(command.opCode, command.addr, command.buf, size);
}

bool CCyFX3Device::DownloadBufferToDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode) {
    return Ep0VendorCommand({buffer, opCode, address, count, false});
}

bool CCyFX3Device::UploadBufferFromDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode) {
    return Ep0VendorCommand({buffer, opCode, address, count, true});
}

bool CCyFX3Device::SetProgramEntry(UCHAR opCode, ULONG address) {
    return VendorChannel().send(opCode, address << 16 | address >> 16);
}

bool CCyFX3Device::IsBootLoaderRunning() {
    UCHAR first = 0;
    return UploadBufferFromDevice(0, 1, &first, fx3_request::ram);
}

bool CCyFX3Device::WriteToSPIFlash(UCHAR* buffer, ULONG length, ULONG address, UCHAR opCode) {
    if (length > static_cast<ULONG>(std::numeric_limits<LONG>::max()))
        return false;
    return Ep0VendorCommand({buffer, opCode, spi_address(address), static_cast<LONG>(length), false});
}

// ---- Downloads -----------------------------------------------------------------------------------------------------

bool CCyFX3Device::EraseSectorOfSPIFlash(ULONG sector, UCHAR opCode) {
    return fx3_download(VendorChannel()).erase_sector(sector, opCode);
}

int CCyFX3Device::DownloadFwToRam(const UCHAR* image, ULONG length, UCHAR opCode) {
    return fx3_download(VendorChannel()).to_ram({image, length}, opCode);
}

int CCyFX3Device::DownloadUserIMGtoI2CE2PROM(const UCHAR* image, ULONG length, UCHAR opCode) {
    return fx3_download(VendorChannel()).to_i2c({image, length}, opCode);
}

int CCyFX3Device::DownloadUserIMGtoSPIFLASH(const UCHAR* image, ULONG length, UCHAR opCode) {
    return fx3_download(VendorChannel()).to_spi({image, length}, opCode);
}

int CCyFX3Device::DownloadFw(const char* fileName, FX3_FWDWNLOAD_MEDIA_TYPE medium) {
    const std::vector<UCHAR> image = read_image(fileName);
    return image.empty() ? FX3_NO_FILE : fx3_download(VendorChannel()).to_medium(medium, {image.data(), image.size()});
}
