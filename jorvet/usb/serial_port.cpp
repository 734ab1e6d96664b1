// Receiving runs on the event thread, all else on the driver's threads.
#include "jorvet/usb/serial_port.h"

#include <algorithm>
#include <future>
#include <utility>

#include "jorvet/usb/bus_view.h"

namespace jorvet::usb {

using ports::port_status;

namespace {

constexpr unsigned transfers_pending = 4;                 // so that the chip is never left without one
constexpr std::size_t most_unread = std::size_t{4} << 20; // bytes
constexpr unsigned most_failures = 100;                   // of inbound transfers, in a row
constexpr unsigned request_timeout_ms = 1000;
constexpr std::uint8_t vendor_out = 0x40;

port_status status_of_end(ports::usb_end end) {
    switch (end) {
    case ports::usb_end::ok:
        return port_status::ok;
    case ports::usb_end::gone:
        return port_status::gone;
    default:
        return port_status::failed;
    }
}

} // namespace

serial_port::serial_port(libusb_device* device, ports::bridge_identity identity, std::string place, bridge_chip chip,
                         std::uint8_t interface)
    : identity_(std::move(identity)), place_(std::move(place)), chip_(chip), interface_(interface),
      device_(std::make_shared<open_device>(device)) {}

bool serial_port::in_use_elsewhere() const {
    return driver_of(place_, interface_) == "usbfs" && !device_->has_claimed(interface_);
}

// False when the interface lacks one.
bool serial_port::find_endpoints() {
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_active_config_descriptor(device_->usb_device(), &config) != LIBUSB_SUCCESS)
        return false;
    in_ = out_ = 0;
    if (interface_ < config->bNumInterfaces && config->interface[interface_].num_altsetting > 0) {
        const libusb_interface_descriptor& setting = config->interface[interface_].altsetting[0];
        for (std::uint8_t e = 0; e < setting.bNumEndpoints; ++e) {
            const libusb_endpoint_descriptor& endpoint = setting.endpoint[e];
            if ((endpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN) == 0) {
                out_ = endpoint.bEndpointAddress;
                continue;
            }
            in_ = endpoint.bEndpointAddress;
            packet_size_ = std::max<std::size_t>(endpoint.wMaxPacketSize, status_bytes + 1);
        }
    }
    libusb_free_config_descriptor(config);
    return in_ != 0 && out_ != 0;
}

port_status serial_port::open(std::function<void()> notify) {
    port_status status = device_->open();
    if (status == port_status::ok)
        status = device_->claim(interface_);
    if (status == port_status::ok && !find_endpoints())
        status = port_status::failed;
    if (status != port_status::ok) {
        device_->close();
        return status;
    }
    notify_ = std::move(notify);
    line_errors_ = 0;
    unread_.clear();
    first_unread_ = 0;
    begin_receiving();
    return port_status::ok;
}

void serial_port::close() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        receiving_ = false;
    }
    device_->close(); // ends a write and waits for the completions, which notify
    notify_ = nullptr;
}

void serial_port::begin_receiving() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        receiving_ = true;
        failures_ = waiting_ = 0;
    }
    for (unsigned i = 0; i < transfers_pending; ++i)
        receive_next();
}

void serial_port::end_receiving() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        receiving_ = false;
    }
    device_->cancel(in_);
}

void serial_port::receive_next() {
    transfer_order order;
    order.endpoint = in_;
    order.length = std::max<std::size_t>(in_bytes_ / packet_size_, 1) * packet_size_; // whole packets
    device_->start(order, [self = shared_from_this()](const ports::usb_result& result) { self->on_received(result); });
}

void serial_port::on_received(const ports::usb_result& result) {
    bool news = result.end == ports::usb_end::gone, again = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const std::size_t before = unread_.size();
        line_errors_ += strip_status(result.data, result.count, packet_size_, unread_);
        news = news || unread_.size() > before;
        failures_ = result.end == ports::usb_end::ok ? 0 : failures_ + 1;
        again = receiving_ && result.end != ports::usb_end::gone && failures_ < most_failures;
        if (again && unread_.size() - first_unread_ > most_unread) {
            again = false;
            ++waiting_;
        }
    }
    if (again)
        receive_next();
    if (news)
        notify_();
}

// Sends a request and waits for its end. Never called on the event thread.
port_status serial_port::ask(bridge_request request) {
    transfer_order order;
    order.type = LIBUSB_TRANSFER_TYPE_CONTROL;
    order.setup = {vendor_out, request.request, request.value,
                   static_cast<std::uint16_t>(request.index | port_number(chip_, interface_)), 0};
    order.timeout_ms = request_timeout_ms;
    const auto end = std::make_shared<std::promise<ports::usb_end>>();
    if (!device_->start(order, [end](const ports::usb_result& result) { end->set_value(result.end); }))
        return device_->gone() ? port_status::gone : port_status::failed;
    return status_of_end(end->get_future().get());
}

port_status serial_port::set_baud_rate(std::uint32_t bits_per_second) {
    const auto request = baud_rate_request(chip_, bits_per_second);
    return request ? ask(*request) : port_status::bad_value;
}

port_status serial_port::set_data_format(unsigned data_bits, unsigned stop_bits, unsigned parity) {
    return ask(data_format_request(data_bits, stop_bits, parity));
}

port_status serial_port::set_flow_control(unsigned mode, std::uint8_t xon, std::uint8_t xoff) {
    return ask(flow_control_request(mode, xon, xoff));
}

port_status serial_port::set_latency_ms(unsigned milliseconds) {
    if (milliseconds < 1 || milliseconds > 255)
        return port_status::bad_value;
    return ask(latency_request(static_cast<std::uint8_t>(milliseconds)));
}

port_status serial_port::set_transfer_sizes(std::uint32_t in_bytes, std::uint32_t out_bytes) {
    in_bytes_ = in_bytes;
    out_bytes_ = out_bytes;
    return device_->gone() ? port_status::gone : port_status::ok;
}

port_status serial_port::reset() {
    return ask(reset_request());
}

port_status serial_port::write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                               std::size_t* written) {
    *written = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (*written < count) {
        transfer_order order;
        order.endpoint = out_;
        order.data = bytes + *written;
        order.length = std::min<std::size_t>(count - *written, out_bytes_);
        if (timeout_ms != 0) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return port_status::ok;
            order.timeout_ms = static_cast<unsigned>(left.count());
        }
        const auto ended = std::make_shared<std::promise<std::pair<ports::usb_end, std::size_t>>>();
        const auto tell = [ended](const ports::usb_result& result) { ended->set_value({result.end, result.count}); };
        if (!device_->start(order, tell))
            break;
        const auto [end, moved] = ended->get_future().get();
        *written += moved;
        if (end == ports::usb_end::timed_out || end == ports::usb_end::cancelled)
            return port_status::ok;
        if (end != ports::usb_end::ok)
            return status_of_end(end);
    }
    if (*written == count) // also when the plug was pulled right after
        return port_status::ok;
    return device_->gone() ? port_status::gone : port_status::failed;
}

port_status serial_port::received(std::size_t* count) {
    if (device_->gone())
        return port_status::gone;
    const std::lock_guard<std::mutex> lock(mutex_);
    *count = unread_.size() - first_unread_;
    return failures_ < most_failures ? port_status::ok : port_status::failed;
}

port_status serial_port::read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) {
    *taken = 0;
    if (device_->gone())
        return port_status::gone;
    unsigned start = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        *taken = std::min(count, unread_.size() - first_unread_);
        std::copy_n(unread_.begin() + static_cast<std::ptrdiff_t>(first_unread_), *taken, bytes);
        first_unread_ += *taken;
        if (first_unread_ > unread_.size() / 2) { // so that taking a little of much does not move the rest each time
            unread_.erase(unread_.begin(), unread_.begin() + static_cast<std::ptrdiff_t>(first_unread_));
            first_unread_ = 0;
        }
        if (unread_.size() - first_unread_ <= most_unread / 2)
            start = std::exchange(waiting_, 0);
    }
    for (; start > 0; --start)
        receive_next();
    return port_status::ok;
}

// What is under way is taken off the bus before the chip forgets the rest, or it would follow.
port_status serial_port::purge(bool receive, bool transmit) {
    const std::lock_guard<std::mutex> lock(settings_);
    if (transmit) {
        const port_status status = ask(purge_unsent_request());
        if (status != port_status::ok || !receive)
            return status;
    }
    end_receiving();
    const port_status status = ask(purge_received_request());
    {
        const std::lock_guard<std::mutex> bytes(mutex_);
        unread_.clear();
        first_unread_ = 0;
    }
    begin_receiving();
    return status;
}

} // namespace jorvet::usb
