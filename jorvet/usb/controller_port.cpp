// The operations of a port in libusb's terms. Which endpoints there are is read from the descriptors that libusb keeps.
#include "jorvet/usb/controller_port.h"

#include <utility>

#include "jorvet/usb/bus_view.h"

namespace jorvet::usb {

using ports::port_status;

namespace {

constexpr std::chrono::seconds idle_claim{1};
constexpr std::uint8_t main_interface = 0;
constexpr std::uint8_t inbound = 0x80;

void end_as(const ports::usb_completion& done, ports::usb_end end) {
    ports::usb_result result;
    result.end = end;
    done(result);
}

// What one isochronous packet may hold: at SuperSpeed a companion descriptor says it, else the packets of a microframe
// make one.
unsigned bytes_per_interval(const libusb_endpoint_descriptor& endpoint) {
    libusb_ss_endpoint_companion_descriptor* companion = nullptr;
    if (libusb_get_ss_endpoint_companion_descriptor(nullptr, &endpoint, &companion) == LIBUSB_SUCCESS) {
        const unsigned bytes = companion->wBytesPerInterval;
        libusb_free_ss_endpoint_companion_descriptor(companion);
        return bytes;
    }
    return (endpoint.wMaxPacketSize & 0x7FFu) * (1 + (endpoint.wMaxPacketSize >> 11 & 3u));
}

} // namespace

controller_port::controller_port(libusb_device* device, ports::usb_identity identity, std::string place)
    : identity_(std::move(identity)), place_(std::move(place)), device_(std::make_shared<open_device>(device)) {}

port_status controller_port::presence() const {
    return device_->gone() ? port_status::gone : port_status::ok;
}

ports::usb_end controller_port::end_of_unstarted() const {
    return device_->gone() ? ports::usb_end::gone : ports::usb_end::failed;
}

bool controller_port::in_use_elsewhere() const {
    return driver_of(place_, main_interface) == "usbfs" && !device_->has_claimed(main_interface);
}

port_status controller_port::open() {
    const std::lock_guard<std::mutex> lock(opening_);
    if (opens_ == 0) {
        if (in_use_elsewhere())
            return port_status::refused;
        const port_status status = device_->open();
        if (status != port_status::ok)
            return status;
        const std::lock_guard<std::mutex> settings(mutex_);
        alternate_ = 0;
        find_endpoints();
    }
    ++opens_;
    return presence();
}

void controller_port::close() {
    const std::lock_guard<std::mutex> lock(opening_);
    if (opens_ > 0 && --opens_ == 0)
        device_->close();
}

// The caller holds mutex_.
void controller_port::find_endpoints() {
    endpoints_.clear();
    libusb_config_descriptor* config = nullptr;
    if (libusb_get_active_config_descriptor(device_->usb_device(), &config) != LIBUSB_SUCCESS)
        return;
    for (std::uint8_t i = 0; i < config->bNumInterfaces; ++i) {
        const libusb_interface& interface = config->interface[i];
        const int setting = i == main_interface ? alternate_ : 0;
        if (setting >= interface.num_altsetting)
            continue;
        const libusb_interface_descriptor& selected = interface.altsetting[setting];
        for (std::uint8_t e = 0; e < selected.bNumEndpoints; ++e) {
            const libusb_endpoint_descriptor& descriptor = selected.endpoint[e];
            endpoints_[descriptor.bEndpointAddress] = {selected.bInterfaceNumber,
                                                       static_cast<libusb_transfer_type>(descriptor.bmAttributes & 3),
                                                       bytes_per_interval(descriptor)};
        }
    }
    libusb_free_config_descriptor(config);
}

bool controller_port::find(std::uint8_t address, endpoint& found) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto it = endpoints_.find(address);
    if (it == endpoints_.end())
        return false;
    found = it->second;
    return true;
}

// A claim begins with setting 0, whatever was selected before the interface was given back.
port_status controller_port::claim(std::uint8_t interface) {
    ++uses_;
    if (device_->has_claimed(interface))
        return port_status::ok;
    const port_status status = device_->claim(interface);
    std::uint8_t setting = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        setting = alternate_;
    }
    if (status != port_status::ok || interface != main_interface || setting == 0)
        return status;
    return device_->with_handle(
        [&](libusb_device_handle* handle) { return libusb_set_interface_alt_setting(handle, interface, setting); });
}

void controller_port::plan_release() {
    const unsigned used = ++uses_;
    context::the().call_later(idle_claim, [weak = weak_from_this(), used] {
        if (const auto self = weak.lock())
            self->release_if_idle(used);
    });
}

// Unless it was used since.
void controller_port::release_if_idle(unsigned used) {
    const std::lock_guard<std::mutex> lock(opening_);
    if (uses_ == used && !device_->busy())
        device_->release_all();
}

void controller_port::control(const ports::usb_setup& setup, const std::uint8_t* data, unsigned timeout_ms,
                              ports::usb_completion done) {
    transfer_order order;
    order.type = LIBUSB_TRANSFER_TYPE_CONTROL;
    order.setup = setup;
    order.data = (setup.request_type & inbound) != 0 ? nullptr : data;
    order.length = setup.length;
    order.timeout_ms = timeout_ms;
    if (!device_->start(order, done))
        end_as(done, end_of_unstarted());
}

void controller_port::submit(const ports::usb_transfer& transfer, ports::usb_completion done) {
    endpoint used;
    if (!find(transfer.endpoint, used))
        return end_as(done, device_->gone() ? ports::usb_end::gone : ports::usb_end::no_endpoint);
    if (claim(used.interface) != port_status::ok)
        return end_as(done, end_of_unstarted());
    transfer_order order;
    order.type = used.type;
    order.endpoint = transfer.endpoint;
    order.data = (transfer.endpoint & inbound) != 0 ? nullptr : transfer.data;
    order.length = transfer.length;
    if (used.type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS) {
        order.packets = transfer.packets;
        order.packet_length = used.packet_length;
    }
    const auto end = [self = shared_from_this(), done](const ports::usb_result& result) {
        done(result);
        self->plan_release();
    };
    if (!device_->start(order, end))
        end_as(done, end_of_unstarted());
}

port_status controller_port::abort(std::uint8_t address) {
    endpoint ignored;
    if (address != 0 && !find(address, ignored))
        return port_status::bad_value;
    device_->cancel(address);
    return presence();
}

port_status controller_port::reset_endpoint(std::uint8_t address) {
    endpoint used;
    if (!find(address, used))
        return port_status::bad_value;
    const port_status status = claim(used.interface);
    if (status != port_status::ok)
        return status;
    const port_status cleared =
        device_->with_handle([&](libusb_device_handle* handle) { return libusb_clear_halt(handle, address); });
    plan_release();
    return cleared;
}

// What is pending on the setting before has to end first: the system would take its end for that of the device.
port_status controller_port::select_alternate(std::uint8_t setting) {
    device_->cancel_all();
    const port_status claimed = claim(main_interface);
    if (claimed != port_status::ok)
        return claimed;
    const int result_of_none = LIBUSB_ERROR_INVALID_PARAM;
    const port_status status = device_->with_handle([&](libusb_device_handle* handle) {
        const int result = libusb_set_interface_alt_setting(handle, main_interface, setting);
        return result == LIBUSB_ERROR_NOT_FOUND ? result_of_none : result;
    });
    if (status == port_status::ok) {
        const std::lock_guard<std::mutex> lock(mutex_);
        alternate_ = setting;
        find_endpoints();
    }
    plan_release();
    return status;
}

port_status controller_port::alternate(std::uint8_t* setting) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (presence() == port_status::ok)
        *setting = alternate_;
    return presence();
}

port_status controller_port::speed(ports::usb_speed* speed) {
    if (presence() != port_status::ok)
        return presence();
    switch (libusb_get_device_speed(device_->usb_device())) {
    case LIBUSB_SPEED_SUPER:
    case LIBUSB_SPEED_SUPER_PLUS:
        *speed = ports::usb_speed::super;
        break;
    case LIBUSB_SPEED_HIGH:
        *speed = ports::usb_speed::high;
        break;
    default:
        *speed = ports::usb_speed::full;
    }
    return port_status::ok;
}

port_status controller_port::bus_address(std::uint8_t* address) {
    if (presence() == port_status::ok)
        *address = libusb_get_device_address(device_->usb_device());
    return presence();
}

// The system resumes a device that is used, and lets no ordinary user suspend one.
port_status controller_port::power(ports::usb_power* power) {
    if (presence() == port_status::ok)
        *power = ports::usb_power::resumed;
    return presence();
}

port_status controller_port::set_power(ports::usb_power power) {
    if (presence() != port_status::ok)
        return presence();
    return power == ports::usb_power::resumed ? port_status::ok : port_status::refused;
}

port_status controller_port::reset_port() {
    device_->cancel_all();
    return device_->with_handle([](libusb_device_handle* handle) { return libusb_reset_device(handle); });
}

// Needs more than an ordinary user may do.
port_status controller_port::cycle_port() {
    return presence() == port_status::ok ? port_status::refused : presence();
}

} // namespace jorvet::usb
