// CCyFX3Device: vendor requests on endpoint 0. Runs on the caller's thread.
#include "jorvet/cyusb/fx3_device.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

#include "jorvet/cyusb/fx3_download.h"

using namespace jorvet::cyusb;

namespace {

constexpr LONG longest_transfer = 0xFFFF; // what wLength can say

} // namespace

CCyFX3Device::CCyFX3Device() : CCyUSBDevice(nullptr, CYUSBDRV_GUID, 1) {}

// ---- Requests ------------------------------------------------------------------------------------------------------

// One transfer; `length` becomes the bytes moved. False as XferData, or with no device open.
bool CCyFX3Device::Transfer(UCHAR opCode, ULONG address, CCyDirection direction, UCHAR* buffer, LONG& length) {
    if (ControlEndPt == nullptr || DeviceHandle == INVALID_HANDLE_VALUE)
        return false;
    ControlEndPt->Target = TargetDevice;
    ControlEndPt->ReqType = ReqVendor;
    ControlEndPt->Direction = direction;
    ControlEndPt->ReqCode = opCode;
    ControlEndPt->Value = static_cast<USHORT>(address & 0xFFFF);
    ControlEndPt->Index = static_cast<USHORT>(address >> 16);
    return ControlEndPt->XferData(buffer, length);
}

bool CCyFX3Device::Ep0VendorCommand(vendorCmdData command) {
    const CCyDirection direction = command.isRead ? DirToHost : DirToDevice;
    if (command.size == 0)
        return Transfer(command.opCode, command.addr, direction, nullptr, command.size);
    std::vector<UCHAR> chunk;
    while (command.size > 0) {
        LONG moved = std::min(command.size, longest_transfer);
        chunk.assign(static_cast<std::size_t>(moved), 0);
        if (!command.isRead)
            std::memcpy(chunk.data(), command.buf, chunk.size());
        if (!Transfer(command.opCode, command.addr, direction, chunk.data(), moved) || moved <= 0)
            return false;
        if (command.isRead)
            std::memcpy(command.buf, chunk.data(), static_cast<std::size_t>(moved));
        command.buf += moved;
        command.size -= moved;
    }
    return true;
}

bool CCyFX3Device::DownloadBufferToDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode) {
    return Ep0VendorCommand({buffer, opCode, address, count, false});
}

bool CCyFX3Device::UploadBufferFromDevice(ULONG address, USHORT count, UCHAR* buffer, UCHAR opCode) {
    return Ep0VendorCommand({buffer, opCode, address, count, true});
}

bool CCyFX3Device::SetProgramEntry(UCHAR opCode, ULONG address) {
    LONG none = 0;
    return Transfer(opCode, address << 16 | address >> 16, DirToDevice, nullptr, none);
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
    return fx3_download(*this).erase_sector(sector, opCode);
}

int CCyFX3Device::DownloadFwToRam(const UCHAR* image, ULONG length, UCHAR opCode) {
    return fx3_download(*this).to_ram({image, length}, opCode);
}

int CCyFX3Device::DownloadUserIMGtoI2CE2PROM(const UCHAR* image, ULONG length, UCHAR opCode) {
    return fx3_download(*this).to_i2c({image, length}, opCode);
}

int CCyFX3Device::DownloadUserIMGtoSPIFLASH(const UCHAR* image, ULONG length, UCHAR opCode) {
    return fx3_download(*this).to_spi({image, length}, opCode);
}

int CCyFX3Device::DownloadFw(const char* fileName, FX3_FWDWNLOAD_MEDIA_TYPE medium) {
    const std::vector<UCHAR> image = read_image(fileName);
    return image.empty() ? FX3_NO_FILE : fx3_download(*this).to_medium(medium, {image.data(), image.size()});
}
