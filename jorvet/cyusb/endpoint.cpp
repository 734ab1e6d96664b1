// Endpoints: construction from descriptors, and transfers through the driver's request block. Runs on the caller's
// thread.
#include "jorvet/cyusb/endpoint.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "jorvet/base/never_destroyed.h"
#include "jorvet/cyusb/driver_call.h"
#include "jorvet/cyusb/pending_record.h"

using namespace jorvet::cyusb;

namespace {

constexpr DWORD abort_wait_ms = 50;           // for the end of a transfer, before it is aborted again
constexpr DWORD poll_ms = 1;                  // when waiting for that fails
constexpr std::size_t max_packets = 1u << 27; // keeps the block, with table and data, below 4 GiB

// Calls `action` with the endpoint as a pointer to its own class.
template <class Action>
auto as_own_class(const CCyUSBEndPoint* endpoint, Action action) {
    if (const auto* bulk = dynamic_cast<const CCyBulkEndPoint*>(endpoint))
        return action(bulk);
    if (const auto* interrupt = dynamic_cast<const CCyInterruptEndPoint*>(endpoint))
        return action(interrupt);
    if (const auto* isochronous = dynamic_cast<const CCyIsocEndPoint*>(endpoint))
        return action(isochronous);
    return action(dynamic_cast<const CCyControlEndPoint*>(endpoint));
}

template <class EndPoint>
CCyUSBEndPoint* make(HANDLE device, const USB_ENDPOINT_DESCRIPTOR& descriptor,
                     const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR* companion) {
    return companion != nullptr ? new EndPoint(device, &descriptor, companion) : new EndPoint(device, &descriptor);
}

} // namespace

namespace jorvet::cyusb {

namespace {

struct parking_lot {
    std::mutex mutex;
    std::size_t count = 0;
    std::vector<BYTE*> blocks; // so that a search for leaks finds them
};

// Keeps a block that the driver may still write to, for ever.
void park(BYTE* block) try {
    auto& lot = never_destroyed<parking_lot>();
    const std::lock_guard<std::mutex> lock(lot.mutex);
    ++lot.count;
    lot.blocks.push_back(block);
} catch (const std::bad_alloc&) { // it is kept all the same
}

} // namespace

std::size_t parked_blocks() {
    auto& lot = never_destroyed<parking_lot>();
    const std::lock_guard<std::mutex> lock(lot.mutex);
    return lot.count;
}

CCyUSBEndPoint* new_endpoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR& descriptor,
                             const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR* companion) {
    switch (descriptor.bmAttributes & transfer_kind::mask) {
    case transfer_kind::isochronous:
        return make<CCyIsocEndPoint>(device, descriptor, companion);
    case transfer_kind::bulk:
        return make<CCyBulkEndPoint>(device, descriptor, companion);
    case transfer_kind::interrupt:
        return make<CCyInterruptEndPoint>(device, descriptor, companion);
    default:
        return new CCyControlEndPoint(device, &descriptor);
    }
}

CCyUSBEndPoint* copy_endpoint(const CCyUSBEndPoint& endpoint) {
    return as_own_class(&endpoint,
                        [](const auto* own) -> CCyUSBEndPoint* { return new std::decay_t<decltype(*own)>(*own); });
}

void destroy_endpoint(const CCyUSBEndPoint* endpoint) {
    as_own_class(endpoint, [](const auto* own) { delete own; });
}

} // namespace jorvet::cyusb

CCyUSBEndPoint::CCyUSBEndPoint(const CCyUSBEndPoint& other)
    : DeviceHandle(other.DeviceHandle), DescLength(other.DescLength), DescType(other.DescType), Address(other.Address),
      Attributes(other.Attributes), MaxPktSize(other.MaxPktSize), PktsPerFrame(other.PktsPerFrame),
      Interval(other.Interval), SsDescLength(other.SsDescLength), SsDescType(other.SsDescType),
      SsMaxBurst(other.SsMaxBurst), SsAttributes(other.SsAttributes), SsBytesPerInterval(other.SsBytesPerInterval),
      TimeOut(other.TimeOut), IsIn(other.IsIn), XferMode(other.XferMode) {}

CCyUSBEndPoint::~CCyUSBEndPoint() {
    if (IsPending)
        park(StartedBlock);
}

CCyUSBEndPoint::CCyUSBEndPoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR* descriptor)
    : DeviceHandle(device), DescLength(descriptor->bLength), DescType(descriptor->bDescriptorType),
      Address(descriptor->bEndpointAddress), Attributes(descriptor->bmAttributes),
      PktsPerFrame(static_cast<USHORT>(((descriptor->wMaxPacketSize & 0x1800) >> 11) + 1)),
      Interval(descriptor->bInterval), IsIn((descriptor->bEndpointAddress & direction_in) != 0) {
    MaxPktSize = static_cast<USHORT>((descriptor->wMaxPacketSize & 0x7FFu) * PktsPerFrame);
}

CCyUSBEndPoint::CCyUSBEndPoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR* descriptor,
                               const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR* companion)
    : CCyUSBEndPoint(device, descriptor) {
    TakeCompanion(*companion);
}

void CCyUSBEndPoint::TakeCompanion(const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR& companion) {
    SsDescLength = companion.bLength;
    SsDescType = companion.bDescriptorType;
    SsMaxBurst = companion.bMaxBurst;
    SsAttributes = companion.bmAttributes;
    SsBytesPerInterval = companion.wBytesPerInterval;
    const bool isochronous = (Attributes & transfer_kind::mask) == transfer_kind::isochronous;
    const unsigned bursts = isochronous ? (SsAttributes & 3u) + 1 : 1;
    MaxPktSize = static_cast<USHORT>(std::min(MaxPktSize * (SsMaxBurst + 1u) * bursts, 0xFFFFu));
}

// ---- Starting ------------------------------------------------------------------------------------------------------

BYTE* CCyUSBEndPoint::BeginDirectXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    return Start(XferDirect, 0, buf, len, record);
}

BYTE* CCyUSBEndPoint::BeginBufferedXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    return Start(XferBuffered, 0, buf, len, record);
}

BYTE* CCyUSBEndPoint::BeginByMode(BYTE* buf, LONG len, OVERLAPPED* record) {
    return XferMode == XferDirect ? BeginDirectXfer(buf, len, record) : BeginBufferedXfer(buf, len, record);
}

BYTE* CCyUSBEndPoint::Start(CCyXferMode mode, std::size_t packets, BYTE* buf, LONG len, OVERLAPPED* record) {
    if (!IsOpen() || len < 0 || packets > max_packets)
        return nullptr;
    const bool direct = mode == XferDirect;
    transfer_block block = make_block(packets * sizeof(CCyIsoPktInfo), !direct, buf, static_cast<std::size_t>(len));
    block.header()->EndpointAddress = Address;
    if (direct)
        return Send(driver_request::direct_transfer, std::move(block), {buf, static_cast<DWORD>(len)}, record);
    const driver_buffer same = block.buffer();
    return Send(driver_request::buffered_transfer, std::move(block), same, record);
}

BYTE* CCyUSBEndPoint::Send(DWORD code, transfer_block block, driver_buffer output, OVERLAPPED* record) {
    const driver_answer answer = start_request(DeviceHandle, code, block.buffer(), output, record);
    LastError = answer.error;
    // While the request is pending the driver owns the block and may write to it from another thread.
    IsPending = answer.error == ERROR_IO_PENDING;
    UsbdStatus = IsPending ? 0 : block.header()->UsbdStatus;
    NtStatus = IsPending ? 0 : block.header()->NtStatus;
    StartedBlock = block.bytes.release();
    return StartedBlock;
}

BYTE* CCyBulkEndPoint::BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    return BeginByMode(buf, len, record);
}

BYTE* CCyInterruptEndPoint::BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    return BeginByMode(buf, len, record);
}

BYTE* CCyIsocEndPoint::BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    return BeginByMode(buf, len, record);
}

BYTE* CCyIsocEndPoint::BeginDirectXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    const std::size_t packets = PacketCount(len);
    return packets == 0 ? nullptr : Start(XferDirect, packets, buf, len, record);
}

BYTE* CCyIsocEndPoint::BeginBufferedXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    const std::size_t packets = PacketCount(len);
    return packets == 0 ? nullptr : Start(XferBuffered, packets, buf, len, record);
}

std::size_t CCyIsocEndPoint::PacketCount(LONG len) const {
    if (MaxPktSize == 0 || len <= 0)
        return 0;
    return (static_cast<std::size_t>(len) + MaxPktSize - 1) / MaxPktSize;
}

CCyIsoPktInfo* CCyIsocEndPoint::CreatePktInfos(LONG bufLen, int& count) {
    if (MaxPktSize == 0)
        return nullptr;
    const std::size_t packets = PacketCount(bufLen);
    count = static_cast<int>(packets);
    return packets == 0 ? nullptr : new CCyIsoPktInfo[packets]();
}

// ---- Waiting and finishing -----------------------------------------------------------------------------------------

bool CCyUSBEndPoint::WaitForXfer(OVERLAPPED* record, DWORD milliseconds) {
    const DWORD error = LastError;
    if (error != ERROR_IO_PENDING)
        return error == ERROR_SUCCESS;
    return WaitForSingleObject(record->hEvent, milliseconds) == WAIT_OBJECT_0;
}

bool CCyUSBEndPoint::WaitForIO(OVERLAPPED* record) {
    const DWORD error = GetLastError();
    LastError = error;
    if (error != ERROR_IO_PENDING)
        return error == ERROR_SUCCESS;
    const DWORD result = WaitForSingleObject(record->hEvent, TimeOut);
    return result == WAIT_TIMEOUT ? AbortAndWait(record) : result == WAIT_OBJECT_0;
}

// A driver may refuse an abort, or end the transfer some time after it.
bool CCyUSBEndPoint::AbortAndWait(OVERLAPPED* record) {
    for (;;) {
        Abort();
        const DWORD result = WaitForSingleObject(record->hEvent, abort_wait_ms);
        if (result == WAIT_OBJECT_0)
            return true;
        if (result == WAIT_FAILED)
            Sleep(poll_ms);
        if (HasOverlappedIoCompleted(record))
            return false;
    }
}

bool CCyUSBEndPoint::FinishDataXfer(BYTE* buf, LONG& len, OVERLAPPED* record, BYTE* block, CCyIsoPktInfo* pktInfos) {
    const std::unique_ptr<BYTE[]> owner(block);
    const LONG room = len;
    len = 0;
    BytesXferred = 0;
    if (block == nullptr)
        return false;
    // The driver may write to block, buffer and record until the transfer has ended. The record of a start that it
    // refused stays pending for ever.
    while (IsPending && !HasOverlappedIoCompleted(record))
        AbortAndWait(record);
    IsPending = false;
    StartedBlock = nullptr;
    DWORD bytes = 0;
    const bool ok = GetOverlappedResult(DeviceHandle, record, &bytes, FALSE) != FALSE;
    const XferRequest& header = *transfer_block::header_of(block);
    UsbdStatus = header.UsbdStatus;
    NtStatus = header.NtStatus;
    if (bytes > header.DataOffset && room > 0)
        BytesXferred = std::min<DWORD>(bytes - header.DataOffset, static_cast<DWORD>(room));
    len = static_cast<LONG>(BytesXferred);
    if (len > 0 && IsIn && XferMode == XferBuffered)
        std::memcpy(buf, block + header.DataOffset, BytesXferred);
    if (len > 0 && pktInfos != nullptr && header.PacketTableLength > 0)
        std::memcpy(pktInfos, block + header.PacketTableOffset, header.PacketTableLength);
    return ok && UsbdStatus == 0 && NtStatus == 0;
}

// ---- Whole transfers -----------------------------------------------------------------------------------------------

bool CCyUSBEndPoint::XferData(BYTE* buf, LONG& len, CCyIsoPktInfo* pktInfos) {
    const LONG wanted = len;
    len = 0;
    if (!IsOpen())
        return false;
    pending_record pending;
    if (!pending.valid()) {
        LastError = GetLastError();
        return false;
    }
    BYTE* const block = BeginDataXfer(buf, wanted, pending.get());
    if (block == nullptr)
        return false;
    const bool ended = WaitForIO(pending.get());
    len = wanted;
    return FinishDataXfer(buf, len, pending.get(), block, pktInfos) && ended;
}

bool CCyUSBEndPoint::XferData(BYTE* buf, LONG& len, CCyIsoPktInfo*, bool packetMode) {
    return packetMode && IsIn ? ReadPackets(buf, len) : XferData(buf, len, nullptr);
}

bool CCyUSBEndPoint::ReadPackets(BYTE* buf, LONG& len) {
    const LONG wanted = len;
    len = 0;
    if (MaxPktSize == 0)
        return false;
    while (len < wanted) {
        LONG moved = std::min<LONG>(MaxPktSize, wanted - len);
        if (!XferData(buf + len, moved, nullptr))
            return len > 0;
        len += moved;
        if (moved < MaxPktSize)
            break;
    }
    return true;
}

bool CCyControlEndPoint::Read(BYTE* buf, LONG& len) {
    Direction = DirToHost;
    return XferData(buf, len, nullptr);
}

bool CCyControlEndPoint::Write(BYTE* buf, LONG& len) {
    Direction = DirToDevice;
    return XferData(buf, len, nullptr);
}

// ---- Control requests ----------------------------------------------------------------------------------------------

CCyControlEndPoint::CCyControlEndPoint() {
    XferMode = XferBuffered;
}

CCyControlEndPoint::CCyControlEndPoint(HANDLE device, const USB_ENDPOINT_DESCRIPTOR* descriptor)
    : CCyUSBEndPoint(device, descriptor) {
    XferMode = XferBuffered;
}

BYTE* CCyControlEndPoint::BeginDataXfer(BYTE* buf, LONG len, OVERLAPPED* record) {
    if (!IsOpen() || len < 0)
        return nullptr;
    IsIn = Direction == DirToHost;
    transfer_block block = make_block(0, true, buf, static_cast<std::size_t>(len));
    XferRequest& header = *block.header();
    header.bmRequestType = static_cast<BYTE>((Target & 0x1Fu) | ((ReqType & 3u) << 5) | (Direction << 7));
    header.bRequest = ReqCode;
    header.wValue = Value;
    header.wIndex = Index;
    header.wLength = static_cast<std::uint16_t>(len);
    header.TimeOut = TimeOut > 0 && TimeOut < 1000 ? 1 : TimeOut / 1000;
    const driver_buffer same = block.buffer();
    return Send(driver_request::control_transfer, std::move(block), same, record);
}

// ---- The pipe ------------------------------------------------------------------------------------------------------

bool CCyUSBEndPoint::Reset() {
    const driver_answer answer = call_driver(DeviceHandle, driver_request::reset_pipe, {&Address, 1}, {});
    if (!answer.ok)
        LastError = answer.error;
    return answer.ok;
}

bool CCyUSBEndPoint::Abort() {
    call_driver(DeviceHandle, driver_request::abort_pipe, {&Address, 1}, {});
    return true;
}

ULONG CCyUSBEndPoint::GetXferSize() {
    if (!IsOpen())
        return 0;
    transfer_size_record size{Address, 0};
    const driver_buffer same{&size, sizeof(size)};
    const driver_answer answer = call_driver(DeviceHandle, driver_request::get_transfer_size, same, same);
    if (answer.ok && answer.bytes >= sizeof(size))
        return size.size;
    LastError = answer.error;
    return 0;
}

void CCyUSBEndPoint::SetXferSize(ULONG size) {
    if (!IsOpen() || MaxPktSize == 0)
        return;
    const std::uint64_t packets = (std::uint64_t{size} + MaxPktSize - 1) / MaxPktSize;
    const std::uint64_t limit = 0xFFFFFFFFu / MaxPktSize;
    transfer_size_record wanted{Address, static_cast<ULONG>(std::min(packets, limit) * MaxPktSize)};
    const driver_buffer same{&wanted, sizeof(wanted)};
    const driver_answer answer = call_driver(DeviceHandle, driver_request::set_transfer_size, same, same);
    if (!answer.ok)
        LastError = answer.error;
}
