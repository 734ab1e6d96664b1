// Vendor requests to the device on endpoint 0: single transfers, and data of any length in several of them. Not
// exported by the shared library: link jorvet::jorvet_static. No thread, no lock: one operation at a time, as on any
// endpoint.
//
// Every operation blocks until its transfers have ended, each within `TimeOut` of the endpoint, whose request fields
// stay as the last transfer set them. `address` is sent as wValue (low half) and wIndex (high half).
#pragma once

#include <cstddef>

#include "jorvet/cyusb/endpoint.h"

namespace jorvet::cyusb {

class vendor_channel {
  public:
    // Over the endpoint 0 of an open device, which must outlive the channel. Null: no device is open, and every
    // operation returns false and sends nothing.
    explicit vendor_channel(CCyControlEndPoint* endpoint) : endpoint_(endpoint) {}

    // bMaxPacketSize0 of the device in bytes; 0 without a device.
    std::size_t packet_size() const { return endpoint_ == nullptr ? 0 : endpoint_->MaxPktSize; }

    // One transfer without data.
    bool send(UCHAR op_code, ULONG address, CCyDirection direction = DirToDevice) const;
    // One transfer of `size` bytes, at most 65,535. A write fails unless all of them moved; a read succeeds with fewer.
    bool write_at_once(UCHAR op_code, ULONG address, const UCHAR* data, std::size_t size) const;
    bool read_at_once(UCHAR op_code, ULONG address, UCHAR* data, std::size_t size) const;
    // `size` bytes in as many transfers to the same address as needed: at most 65,535 bytes each, fewer where the
    // device moves fewer. False when a transfer fails or moves nothing. A read that fails has filled `data` with the
    // bytes of the transfers before.
    bool write(UCHAR op_code, ULONG address, const UCHAR* data, std::size_t size) const;
    bool read(UCHAR op_code, ULONG address, UCHAR* data, std::size_t size) const;

  private:
    bool transfer(UCHAR op_code, ULONG address, CCyDirection direction, UCHAR* buffer, LONG& length) const;

    CCyControlEndPoint* endpoint_;
};

} // namespace jorvet::cyusb
