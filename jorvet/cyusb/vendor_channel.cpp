// Vendor requests on endpoint 0. Runs on the caller's thread.
#include "jorvet/cyusb/vendor_channel.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace jorvet::cyusb {

namespace {

constexpr std::size_t max_transfer = 0xFFFF; // wLength has 16 bits

// A transfer to the device does not write to its buffer.
UCHAR* to_send(const UCHAR* data) {
    return const_cast<UCHAR*>(data);
}

} // namespace

// One transfer; `length` becomes the bytes moved. False when XferData fails, or without a device.
bool vendor_channel::transfer(UCHAR op_code, ULONG address, CCyDirection direction, UCHAR* buffer, LONG& length) const {
    if (endpoint_ == nullptr)
        return false;
    endpoint_->Target = TargetDevice;
    endpoint_->ReqType = ReqVendor;
    endpoint_->Direction = direction;
    endpoint_->ReqCode = op_code;
    endpoint_->Value = static_cast<USHORT>(address & 0xFFFF);
    endpoint_->Index = static_cast<USHORT>(address >> 16);
    return endpoint_->XferData(buffer, length);
}

bool vendor_channel::send(UCHAR op_code, ULONG address, CCyDirection direction) const {
    LONG none = 0;
    return transfer(op_code, address, direction, nullptr, none);
}

bool vendor_channel::write_at_once(UCHAR op_code, ULONG address, const UCHAR* data, std::size_t size) const {
    auto moved = static_cast<LONG>(size);
    return transfer(op_code, address, DirToDevice, to_send(data), moved) && moved == static_cast<LONG>(size);
}

bool vendor_channel::read_at_once(UCHAR op_code, ULONG address, UCHAR* data, std::size_t size) const {
    auto moved = static_cast<LONG>(size);
    return transfer(op_code, address, DirToHost, data, moved);
}

bool vendor_channel::write(UCHAR op_code, ULONG address, const UCHAR* data, std::size_t size) const {
    while (size > 0) {
        auto moved = static_cast<LONG>(std::min(size, max_transfer));
        if (!transfer(op_code, address, DirToDevice, to_send(data), moved) || moved <= 0)
            return false;
        data += moved;
        size -= static_cast<std::size_t>(moved);
    }
    return true;
}

// A transfer that fails may have moved bytes, which must not reach the caller: it fills a buffer of its own.
bool vendor_channel::read(UCHAR op_code, ULONG address, UCHAR* data, std::size_t size) const {
    std::vector<UCHAR> chunk(std::min(size, max_transfer));
    while (size > 0) {
        auto moved = static_cast<LONG>(std::min(size, max_transfer));
        if (!transfer(op_code, address, DirToHost, chunk.data(), moved) || moved <= 0)
            return false;
        std::memcpy(data, chunk.data(), static_cast<std::size_t>(moved));
        data += moved;
        size -= static_cast<std::size_t>(moved);
    }
    return true;
}

} // namespace jorvet::cyusb
