// The endpoints of a USB device: what their descriptors say, and the transfers on them. No thread of its own.
//
// One transfer at a time per object; transfers on different objects may run on different threads at once, and Abort and
// Reset may be called from any thread meanwhile. The statuses of the last transfer are plain members: read them on the
// thread that ran it. An endpoint lives as long as the tree that it belongs to, and is destroyed by
// jorvet::cyusb::destroy_endpoint or as its own class: there is no virtual destructor.
#pragma once

#include <atomic>

#include "jorvet/cyusb/usb_descriptors.h"
#include "jorvet/system/cyusb_driver.h"
#include "jorvet/system/win32.h"

namespace jorvet::cyusb {
struct driver_buffer;
struct transfer_block;
} // namespace jorvet::cyusb

// How data reach the driver: copied through the request block, or in the caller's own buffer.
enum CCyXferMode : std::uint32_t { XferBuffered, XferDirect };

// The parts of a control request's bmRequestType.
enum CCyTarget : std::uint32_t { TargetDevice, TargetInterface, TargetEndpoint, TargetOther };
enum CCyReqType : std::uint32_t { ReqStandard, ReqClass, ReqVendor };
enum CCyDirection : std::uint32_t { DirToDevice, DirToHost };

class CCyUSBEndPoint {
  public:
    CCyUSBEndPoint() = default;
    // Copies what the descriptors say, the handle and the settings; the statuses start at 0.
    CCyUSBEndPoint(const CCyUSBEndPoint& other);
    CCyUSBEndPoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR* descriptor);
    CCyUSBEndPoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR* descriptor,
                   const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR* companion);
    CCyUSBEndPoint& operator=(const CCyUSBEndPoint&) = delete;

    // Starts a transfer of `len` bytes from or into `buf` and returns its request block, which must reach
    // FinishDataXfer; null when nothing was started (no device handle, a negative length, an isochronous endpoint
    // without packets). Does not block. `LastError` is then 0 (completed), ERROR_IO_PENDING or the reason why it
    // failed; the two statuses are those in the block, and 0 while it is pending. `record` must be zeroed but for an
    // event of its own and, with `buf`, stay in place until FinishDataXfer returns. The first two choose the mode,
    // BeginDataXfer takes that of `XferMode`.
    virtual BYTE* BeginDirectXfer(BYTE* buf, LONG len, OVERLAPPED* record);
    virtual BYTE* BeginBufferedXfer(BYTE* buf, LONG len, OVERLAPPED* record);
    virtual BYTE* BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) = 0;

    // Takes the outcome of a transfer that has ended and frees `block`. `buf` and `len` as given to the start; `len`
    // and `BytesXferred` become the number of bytes moved, never more than `len` was. `pktInfos`, if not null, has room
    // for the packets of the transfer and receives them when bytes were moved. True when the driver and both statuses
    // report success. A transfer that is still pending (the caller should have aborted it) is aborted, every 50 ms,
    // until it has ended: until then the driver may write to block, buffer and record.
    virtual bool FinishDataXfer(BYTE* buf, LONG& len, OVERLAPPED* record, BYTE* block, CCyIsoPktInfo* pktInfos);

    // After a start: waits for at most `milliseconds`. True when the transfer has ended, false when it has not (it
    // stays pending: Abort it) or was not started. Relies on `LastError` as the start left it.
    bool WaitForXfer(OVERLAPPED* record, DWORD milliseconds);

    // The same, relying on the thread's last error and waiting for `TimeOut` ms; a transfer that has not ended by then
    // is aborted, every 50 ms, until it has, which also returns true.
    bool WaitForIO(OVERLAPPED* record);

    // A whole transfer: start, WaitForIO, finish. True when all went well; `len` becomes the bytes moved.
    bool XferData(BYTE* buf, LONG& len, CCyIsoPktInfo* pktInfos = nullptr);

    // In packet mode, on an IN endpoint: reads packet by packet until `len` bytes are there or a packet is short. True
    // when bytes came, or none were asked for; `len` becomes the bytes of the good transfers. False, with `len` 0, on
    // an endpoint whose `MaxPktSize` is 0. Otherwise as above, without packet records.
    bool XferData(BYTE* buf, LONG& len, CCyIsoPktInfo* pktInfos, bool packetMode);

    // Clears the pipe's halt. False with `LastError` when the driver does not.
    bool Reset();
    // Cancels what is pending on the pipe, on whichever thread, and waits for the driver to have done so. Always true;
    // `LastError` stays.
    bool Abort();

    // The size of the pieces into which the driver divides transfers; 0, with `LastError` unless the handle is invalid,
    // when it fails.
    ULONG GetXferSize();
    // Sets it, rounded up to whole packets; `LastError` when that fails.
    void SetXferSize(ULONG size);

    HANDLE DeviceHandle = INVALID_HANDLE_VALUE;
    UCHAR DescLength = 0; // from the endpoint descriptor, to Interval
    UCHAR DescType = 0;
    UCHAR Address = 0;
    UCHAR Attributes = 0;
    USHORT MaxPktSize = 0; // bytes in one service interval, at most 65535
    USHORT PktsPerFrame = 0;
    UCHAR Interval = 0;
    UCHAR SsDescLength = 0; // from the SuperSpeed companion, 0 without one
    UCHAR SsDescType = 0;
    UCHAR SsMaxBurst = 0;
    UCHAR SsAttributes = 0;
    USHORT SsBytesPerInterval = 0;
    ULONG TimeOut = 10000; // milliseconds; 0xFFFFFFFF waits without limit
    ULONG UsbdStatus = 0;
    ULONG NtStatus = 0;
    ULONG BytesXferred = 0;
    std::atomic<ULONG> LastError{0}; // written by the transferring thread, and by a Reset that fails on any other
    bool IsIn = false;
    CCyXferMode XferMode = XferDirect;

  protected:
    ~CCyUSBEndPoint(); // a block that the driver still holds is parked

    bool IsOpen() const { return DeviceHandle != INVALID_HANDLE_VALUE; }
    BYTE* BeginByMode(BYTE* buf, LONG len, OVERLAPPED* record);
    BYTE* Start(CCyXferMode mode, std::size_t packets, BYTE* buf, LONG len, OVERLAPPED* record);
    BYTE* Send(DWORD code, jorvet::cyusb::transfer_block block, jorvet::cyusb::driver_buffer output,
               OVERLAPPED* record);

  private:
    void TakeCompanion(const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR& companion);
    bool AbortAndWait(OVERLAPPED* record);
    bool ReadPackets(BYTE* buf, LONG& len);

    bool IsPending = false; // the driver holds StartedBlock; unlike LastError, no other thread changes it
    BYTE* StartedBlock = nullptr;
};

// Endpoint 0, and the endpoints of control kind. Every transfer is a request with the six fields below, through the
// block; `IsIn` follows `Direction`.
class CCyControlEndPoint final : public CCyUSBEndPoint {
  public:
    CCyControlEndPoint();
    CCyControlEndPoint(const CCyControlEndPoint&) = default;
    CCyControlEndPoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR* descriptor);

    BYTE* BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) override;

    // One request to the host, or to the device, with the other fields as they stand; then as XferData.
    bool Read(BYTE* buf, LONG& len);
    bool Write(BYTE* buf, LONG& len);

    CCyTarget Target = TargetDevice;
    CCyReqType ReqType = ReqVendor;
    CCyDirection Direction = DirToDevice;
    UCHAR ReqCode = 0; // bRequest
    USHORT Value = 0;  // wValue
    USHORT Index = 0;  // wIndex
};

class CCyBulkEndPoint final : public CCyUSBEndPoint {
  public:
    using CCyUSBEndPoint::CCyUSBEndPoint;
    CCyBulkEndPoint() = default;
    CCyBulkEndPoint(const CCyBulkEndPoint&) = default;

    BYTE* BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) override;
};

class CCyInterruptEndPoint final : public CCyUSBEndPoint {
  public:
    using CCyUSBEndPoint::CCyUSBEndPoint;
    CCyInterruptEndPoint() = default;
    CCyInterruptEndPoint(const CCyInterruptEndPoint&) = default;

    BYTE* BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) override;
};

// Divides a transfer into packets of `MaxPktSize` bytes, the last one possibly shorter, and has the driver report on
// each.
class CCyIsocEndPoint final : public CCyUSBEndPoint {
  public:
    using CCyUSBEndPoint::CCyUSBEndPoint;
    CCyIsocEndPoint() = default;
    CCyIsocEndPoint(const CCyIsocEndPoint&) = default;

    BYTE* BeginDirectXfer(BYTE* buf, LONG len, OVERLAPPED* record) override;
    BYTE* BeginBufferedXfer(BYTE* buf, LONG len, OVERLAPPED* record) override;
    BYTE* BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) override;

    // Zeroed packet records for a transfer of `bufLen` bytes, which the caller deletes with delete[], and their number
    // in `count`. Null with `count` 0 when there are no packets, or with `count` untouched when `MaxPktSize` is 0.
    CCyIsoPktInfo* CreatePktInfos(LONG bufLen, int& count);

  private:
    std::size_t PacketCount(LONG len) const;
};

namespace jorvet::cyusb {

// Makes an endpoint of the class that the kind bits of `descriptor` name. `companion` may be null, and is ignored for a
// control endpoint. The caller owns it.
CCyUSBEndPoint* new_endpoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR& descriptor,
                             const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR* companion);
// A copy, of the endpoint's own class.
CCyUSBEndPoint* copy_endpoint(const CCyUSBEndPoint& endpoint);
// Deletes an endpoint as its own class; null is ignored.
void destroy_endpoint(const CCyUSBEndPoint* endpoint);
// How many request blocks were never freed, because their endpoint was destroyed while the driver held them. Any
// thread.
std::size_t parked_blocks();

} // namespace jorvet::cyusb
