// Request blocks and the ends of transfers. submit() runs on the thread of the request, complete() on any.
#include "jorvet/compat/drivers/driver_transfer.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include "jorvet/system/cyusb_driver.h"

namespace jorvet::compat::usb {

namespace {

namespace code = cyusb::driver_request;

constexpr std::uint8_t inbound_bit = 0x80;
constexpr std::uint8_t endpoint_number = 0x0F;
constexpr unsigned longest_timeout_s = 0xFFFFFFFF / 1000;

// How the end of a transfer is reported: the request's error and the two status words, in the system's published
// numbers. What goes wrong on the bus completes the request and is reported by the words; only refusal, cancellation
// and removal fail it. A cancelled request is reported by its error alone, so that callers that cancel a read to
// collect the bytes so far continue afterwards.
struct end_words {
    DWORD error;
    std::uint32_t nt;
    std::uint32_t usbd;
};

end_words words_for(ports::usb_end end) {
    switch (end) {
    case ports::usb_end::ok:
        return {ERROR_SUCCESS, 0, 0};
    case ports::usb_end::stalled:
        return {ERROR_SUCCESS, 0xC0000001, 0xC0000004};
    case ports::usb_end::babble:
        return {ERROR_SUCCESS, 0xC0000001, 0xC0000008};
    case ports::usb_end::cancelled:
        return {ERROR_OPERATION_ABORTED, 0, 0};
    case ports::usb_end::timed_out:
        return {ERROR_SUCCESS, 0xC00000B5, 0xC0006000};
    case ports::usb_end::no_endpoint:
        return {ERROR_INVALID_PARAMETER, 0xC000000D, 0x80000600};
    case ports::usb_end::gone:
        return {ERROR_DEVICE_NOT_CONNECTED, 0xC000009D, 0xC0007000};
    case ports::usb_end::failed:
        break;
    }
    return {ERROR_SUCCESS, 0xC0000001, 0xC0000005};
}

// Whether a part of the block lies behind its header.
bool lies_behind_header(std::uint32_t offset, std::uint32_t length, DWORD block_size) {
    return offset >= sizeof(XferRequest) && offset <= block_size && length <= block_size - offset;
}

bool takes_table(const XferRequest& header, DWORD block_size, transfer_layout* layout) {
    if (header.PacketTableLength == 0)
        return true;
    if (header.PacketTableLength % sizeof(CCyIsoPktInfo) != 0 ||
        !lies_behind_header(header.PacketTableOffset, header.PacketTableLength, block_size))
        return false;
    layout->packets = header.PacketTableLength / sizeof(CCyIsoPktInfo);
    layout->table = layout->block + header.PacketTableOffset;
    return true;
}

bool takes_endpoint(const XferRequest& header, transfer_layout* layout) {
    layout->endpoint = header.EndpointAddress;
    layout->inbound = (header.EndpointAddress & inbound_bit) != 0;
    return (header.EndpointAddress & endpoint_number) != 0;
}

bool takes_setup(const XferRequest& header, transfer_layout* layout) {
    layout->inbound = (header.bmRequestType & inbound_bit) != 0;
    layout->setup = {header.bmRequestType, header.bRequest, header.wValue, header.wIndex, header.wLength};
    layout->timeout_ms = std::min(header.TimeOut, longest_timeout_s) * 1000;
    layout->length = header.wLength;
    return header.EndpointAddress == 0 && header.PacketTableLength == 0 && header.wLength <= header.DataLength;
}

DWORD read_direct(const io_request& request, const XferRequest& header, transfer_layout* layout) {
    layout->data = request.out;
    layout->length = request.out_size;
    const bool fits = takes_endpoint(header, layout) && takes_table(header, request.in_size, layout) &&
                      (request.out != nullptr || request.out_size == 0);
    return fits ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

DWORD read_buffered(const io_request& request, const XferRequest& header, transfer_layout* layout) {
    if (request.out == nullptr || request.out_size < request.in_size)
        return ERROR_INSUFFICIENT_BUFFER;
    if (!lies_behind_header(header.DataOffset, header.DataLength, request.in_size))
        return ERROR_INVALID_PARAMETER;
    layout->output = request.out;
    layout->data = layout->block + header.DataOffset;
    layout->length = header.DataLength;
    layout->counted_before_data = header.DataOffset;
    const bool fits = request.code == code::control_transfer
                          ? takes_setup(header, layout)
                          : takes_endpoint(header, layout) && takes_table(header, request.in_size, layout);
    return fits ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

} // namespace

DWORD read_layout(const io_request& request, transfer_layout* layout) {
    if (request.in == nullptr || request.in_size < sizeof(XferRequest))
        return ERROR_INVALID_PARAMETER;
    XferRequest header{};
    std::memcpy(&header, request.in, sizeof(header));
    layout->block = request.in;
    layout->block_size = request.in_size;
    return request.code == code::direct_transfer ? read_direct(request, header, layout)
                                                 : read_buffered(request, header, layout);
}

driver_transfer::driver_transfer(const transfer_layout& layout) : layout_(layout) {
    if (layout.output == nullptr)
        return;
    system_buffer_.assign(layout.block, layout.block + layout.block_size);
    const auto copy_of = [&](std::uint8_t* part) { return system_buffer_.data() + (part - layout.block); };
    layout_.block = system_buffer_.data();
    layout_.data = copy_of(layout.data);
    if (layout.table != nullptr)
        layout_.table = copy_of(layout.table);
}

void driver_transfer::submit(const std::shared_ptr<driver_transfer>& self, ports::usb_port& port) {
    try {
        self->submit_to(port, [self](const ports::usb_result& result) { self->complete(result); });
    } catch (const std::exception&) { // the port lacks resources; the transfer has not taken place
        ports::usb_result result;
        result.end = ports::usb_end::failed;
        self->complete(result);
    }
}

void driver_transfer::submit_to(ports::usb_port& port, ports::usb_completion done) const {
    const std::uint8_t* const sent = layout_.inbound ? nullptr : layout_.data;
    if (layout_.endpoint == 0)
        port.control(layout_.setup, sent, layout_.timeout_ms, std::move(done));
    else
        port.submit({layout_.endpoint, sent, layout_.length, layout_.packets}, std::move(done));
}

void driver_transfer::complete(const ports::usb_result& result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (finished_)
        return;
    finished_ = true;
    outcome_ = deliver(result);
    if (done_)
        done_(outcome_);
    done_ = nullptr;
}

std::optional<io_outcome> driver_transfer::hand_over(io_done done) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (finished_)
        return outcome_;
    done_ = std::move(done);
    return std::nullopt;
}

io_outcome driver_transfer::deliver(const ports::usb_result& result) const {
    const std::size_t count = std::min(result.count, layout_.length);
    const ports::usb_end end =
        result.end == ports::usb_end::ok && result.count > count ? ports::usb_end::babble : result.end;
    if (layout_.inbound && count > 0)
        std::memcpy(layout_.data, result.data, count);
    fill_table(result, end);
    const end_words words = words_for(end);
    std::memcpy(layout_.block + offsetof(XferRequest, NtStatus), &words.nt, sizeof(words.nt));
    std::memcpy(layout_.block + offsetof(XferRequest, UsbdStatus), &words.usbd, sizeof(words.usbd));
    const bool never_started = end == ports::usb_end::gone || end == ports::usb_end::no_endpoint;
    const std::size_t bytes = layout_.counted_before_data + count;
    if (layout_.output != nullptr && words.error == ERROR_SUCCESS)
        std::memcpy(layout_.output, system_buffer_.data(), bytes);
    return {words.error, static_cast<DWORD>(bytes), !never_started};
}

// Packets that the port does not report have the end `rest` and no bytes.
void driver_transfer::fill_table(const ports::usb_result& result, ports::usb_end rest) const {
    for (std::size_t i = 0; i < layout_.packets; ++i) {
        const ports::usb_packet packet = i < result.packets.size() ? result.packets[i] : ports::usb_packet{rest, 0};
        const CCyIsoPktInfo entry{words_for(packet.end).usbd, packet.length};
        std::memcpy(layout_.table + i * sizeof(entry), &entry, sizeof(entry));
    }
}

} // namespace jorvet::compat::usb
