// Transfers in flight and the handle they need. A flight leaves the list only after its completion has run, so that
// whoever waits for the list to empty waits for the completions, too.
#include "jorvet/usb/open_device.h"

#include <algorithm>
#include <utility>

namespace jorvet::usb {

struct open_device::flight {
    flight(std::shared_ptr<open_device> device, const transfer_order& order, ports::usb_completion completion)
        : of(std::move(device)), endpoint(order.endpoint), done(std::move(completion)),
          transfer(libusb_alloc_transfer(static_cast<int>(order.packets))) {
        const bool is_control = order.type == LIBUSB_TRANSFER_TYPE_CONTROL;
        const std::size_t head = is_control ? LIBUSB_CONTROL_SETUP_SIZE : 0;
        memory.reset(new std::uint8_t[std::max<std::size_t>(head + order.length, 1)]);
        if (is_control)
            libusb_fill_control_setup(memory.get(), order.setup.request_type, order.setup.request, order.setup.value,
                                      order.setup.index, order.setup.length);
        if (order.data != nullptr)
            std::copy_n(order.data, order.length, memory.get() + head);
        if (transfer == nullptr)
            throw std::bad_alloc();
        transfer->endpoint = order.endpoint;
        transfer->type = static_cast<unsigned char>(order.type);
        transfer->timeout = order.timeout_ms;
        transfer->buffer = memory.get();
        transfer->length = static_cast<int>(head + order.length);
        transfer->num_iso_packets = static_cast<int>(order.packets);
        libusb_set_iso_packet_lengths(transfer, order.packet_length);
        transfer->user_data = this;
        transfer->callback = on_end;
    }
    ~flight() { libusb_free_transfer(transfer); }
    flight(const flight&) = delete;
    flight& operator=(const flight&) = delete;

    const std::shared_ptr<open_device> of;
    const std::uint8_t endpoint;
    const ports::usb_completion done;
    std::uint64_t number = 0;               // in the order of their starts
    std::unique_ptr<std::uint8_t[]> memory; // not cleared first
    libusb_transfer* const transfer;
};

namespace {

ports::usb_end end_of(libusb_transfer_status status) {
    switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
        return ports::usb_end::ok;
    case LIBUSB_TRANSFER_TIMED_OUT:
        return ports::usb_end::timed_out;
    case LIBUSB_TRANSFER_CANCELLED:
        return ports::usb_end::cancelled;
    case LIBUSB_TRANSFER_STALL:
        return ports::usb_end::stalled;
    case LIBUSB_TRANSFER_NO_DEVICE:
        return ports::usb_end::gone;
    case LIBUSB_TRANSFER_OVERFLOW:
        return ports::usb_end::babble;
    case LIBUSB_TRANSFER_ERROR:
        break;
    }
    return ports::usb_end::failed;
}

bool is_inbound(const libusb_transfer& transfer) {
    if (transfer.type == LIBUSB_TRANSFER_TYPE_CONTROL)
        return (transfer.buffer[0] & LIBUSB_ENDPOINT_IN) != 0;
    return (transfer.endpoint & LIBUSB_ENDPOINT_IN) != 0;
}

// Packets lie where the request put them, each at the start of its room.
void add_packets(const libusb_transfer& transfer, ports::usb_result& result) {
    std::size_t place = 0;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        const libusb_iso_packet_descriptor& packet = transfer.iso_packet_desc[i];
        result.packets.push_back({end_of(packet.status), packet.actual_length});
        if (!is_inbound(transfer))
            result.count += packet.actual_length;
        else if (packet.actual_length > 0)
            result.count = place + packet.actual_length;
        place += packet.length;
    }
}

} // namespace

ports::port_status status_of(int libusb_error) {
    switch (libusb_error) {
    case LIBUSB_ERROR_NO_DEVICE:
    case LIBUSB_ERROR_NOT_FOUND: // also of a device that did not come back as itself from a reset
        return ports::port_status::gone;
    case LIBUSB_ERROR_BUSY:
        return ports::port_status::refused;
    case LIBUSB_ERROR_ACCESS:
        return ports::port_status::denied;
    case LIBUSB_ERROR_INVALID_PARAM:
        return ports::port_status::bad_value;
    default:
        return libusb_error >= 0 ? ports::port_status::ok : ports::port_status::failed;
    }
}

open_device::open_device(libusb_device* device) : device_(libusb_ref_device(device)) {}

open_device::~open_device() {
    close();
}

ports::port_status open_device::open() {
    if (gone_)
        return ports::port_status::gone;
    libusb_device_handle* handle = nullptr;
    const ports::port_status status = status_of(libusb_open(device_.get(), &handle));
    if (status != ports::port_status::ok)
        return status;
    libusb_set_auto_detach_kernel_driver(handle, 1);
    const std::lock_guard<std::mutex> lock(mutex_);
    handle_ = handle;
    closing_ = false;
    return ports::port_status::ok;
}

void open_device::close() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closing_ = true; // nothing starts any more
    }
    cancel_all();
    release_all();
    libusb_device_handle* handle = nullptr;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return inside_ == 0; });
        handle = std::exchange(handle_, nullptr);
    }
    if (handle != nullptr)
        libusb_close(handle);
}

// The handle for a call that leave() ends; null when closed.
libusb_device_handle* open_device::enter() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (handle_ == nullptr || closing_ || gone_)
        return nullptr;
    ++inside_;
    return handle_;
}

void open_device::leave() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        --inside_;
    }
    changed_.notify_all();
}

// Puts a transfer in the list and submits it, in one step, so that the list has the order of the bus.
bool open_device::start(const transfer_order& order, ports::usb_completion done) {
    auto made = std::make_unique<flight>(shared_from_this(), order, std::move(done));
    const std::lock_guard<std::mutex> lock(mutex_);
    if (handle_ == nullptr || closing_ || gone_)
        return false;
    made->transfer->dev_handle = handle_;
    made->number = ++started_;
    pending_.push_back(std::move(made));
    const int status = libusb_submit_transfer(pending_.back()->transfer);
    if (status == LIBUSB_SUCCESS)
        return true;
    pending_.pop_back();
    if (status == LIBUSB_ERROR_NO_DEVICE)
        gone_ = true;
    return false;
}

void LIBUSB_CALL open_device::on_end(libusb_transfer* transfer) {
    auto& ended = *static_cast<flight*>(transfer->user_data);
    const std::shared_ptr<open_device> self = ended.of; // outlives the flight
    ended.done(self->result_of(*transfer));
    {
        const std::lock_guard<std::mutex> lock(self->mutex_);
        self->pending_.remove_if([&](const std::unique_ptr<flight>& each) { return each.get() == &ended; });
    }
    self->changed_.notify_all();
}

ports::usb_result open_device::result_of(const libusb_transfer& transfer) const {
    ports::usb_result result;
    result.end = end_of(transfer.status);
    if (gone_ && result.end != ports::usb_end::ok)
        result.end = ports::usb_end::gone;
    const bool is_control = transfer.type == LIBUSB_TRANSFER_TYPE_CONTROL;
    if (is_inbound(transfer))
        result.data = transfer.buffer + (is_control ? LIBUSB_CONTROL_SETUP_SIZE : 0);
    if (transfer.type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS)
        add_packets(transfer, result);
    else
        result.count = static_cast<std::size_t>(transfer.actual_length);
    return result;
}

void open_device::cancel(std::uint8_t endpoint) {
    cancel_where([endpoint](const flight& each) { return each.endpoint == endpoint; });
}

void open_device::cancel_all() {
    cancel_where([](const flight&) { return true; });
}

// The last ones first, so that none of them receives what belongs to the one before it. Those that are started
// meanwhile are not waited for.
void open_device::cancel_where(const std::function<bool(const flight&)>& which) {
    std::unique_lock<std::mutex> lock(mutex_);
    const std::uint64_t last = started_;
    for (auto each = pending_.rbegin(); each != pending_.rend(); ++each)
        if (which(**each))
            libusb_cancel_transfer((*each)->transfer);
    const auto is_chosen = [&](const std::unique_ptr<flight>& each) { return each->number <= last && which(*each); };
    changed_.wait(lock, [&] { return std::none_of(pending_.begin(), pending_.end(), is_chosen); });
}

bool open_device::busy() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(pending_.begin(), pending_.end(), [](const auto& each) { return each->endpoint != 0; });
}

bool open_device::has_claimed(std::uint8_t interface) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::find(claimed_.begin(), claimed_.end(), interface) != claimed_.end();
}

ports::port_status open_device::claim(std::uint8_t interface) {
    if (has_claimed(interface))
        return ports::port_status::ok;
    const ports::port_status status =
        with_handle([&](libusb_device_handle* handle) { return libusb_claim_interface(handle, interface); });
    if (status == ports::port_status::ok) {
        const std::lock_guard<std::mutex> lock(mutex_);
        claimed_.push_back(interface);
    }
    return status;
}

void open_device::release_all() {
    std::vector<std::uint8_t> claimed;
    libusb_device_handle* handle = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        claimed.swap(claimed_);
        handle = handle_;
    }
    for (const std::uint8_t interface : claimed)
        libusb_release_interface(handle, interface);
}

void open_device::unplugged() {
    gone_ = true;
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& each : pending_)
        libusb_cancel_transfer(each->transfer);
}

} // namespace jorvet::usb
