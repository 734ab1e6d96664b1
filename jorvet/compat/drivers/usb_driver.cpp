// The request codes: sizes of their buffers, and what each does. Requests but transfers are answered on the thread that
// makes them; transfers end on any.
#include "jorvet/compat/drivers/usb_driver.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <thread>

#include "jorvet/system/cyusb_driver.h"

namespace jorvet::compat::usb {

namespace {

namespace code = cyusb::driver_request;

constexpr std::uint32_t driver_version = 0x01020300;
constexpr std::uint32_t usbdi_version = 0x0600;
constexpr std::uint32_t default_transfer_size = 4096;
constexpr std::uint32_t full_speed_code = 1;

// The system's copy of a request's buffer: the input, and on success the output.
using system_buffer = std::array<std::uint8_t, cyusb::name_size>;

DWORD error_for(ports::port_status status) {
    switch (status) {
    case ports::port_status::ok:
        return ERROR_SUCCESS;
    case ports::port_status::gone:
        return ERROR_DEVICE_NOT_CONNECTED;
    case ports::port_status::bad_value:
        return ERROR_INVALID_PARAMETER;
    case ports::port_status::refused:
    case ports::port_status::denied:
    case ports::port_status::failed:
        break;
    }
    return ERROR_GEN_FAILURE;
}

DWORD open_error_for(ports::port_status status) {
    switch (status) {
    case ports::port_status::gone:
        return ERROR_FILE_NOT_FOUND;
    case ports::port_status::refused:
        return ERROR_SHARING_VIOLATION;
    case ports::port_status::denied:
        return ERROR_ACCESS_DENIED;
    default:
        return error_for(status);
    }
}

template <class Value>
Value value_in(const system_buffer& buffer) {
    Value value{};
    std::memcpy(&value, buffer.data(), sizeof(value));
    return value;
}

template <class Value>
ports::port_status put(system_buffer& buffer, ports::port_status status, const Value& value) {
    std::memcpy(buffer.data(), &value, sizeof(value));
    return status;
}

ports::port_status put_text(system_buffer& buffer, ports::port_status status, const std::string& text) {
    buffer.fill(0);
    text.copy(reinterpret_cast<char*>(buffer.data()), buffer.size() - 1);
    return status;
}

ports::port_status get_alternate(open_device& device, system_buffer& buffer) {
    std::uint8_t setting = 0;
    const ports::port_status status = device.port().alternate(&setting);
    return put(buffer, status, setting);
}

ports::port_status get_bus_address(open_device& device, system_buffer& buffer) {
    std::uint8_t address = 0;
    const ports::port_status status = device.port().bus_address(&address);
    return put(buffer, status, address);
}

ports::port_status get_power(open_device& device, system_buffer& buffer) {
    ports::usb_power power = ports::usb_power::resumed;
    const ports::port_status status = device.port().power(&power);
    return put(buffer, status,
               power == ports::usb_power::suspended ? cyusb::power_state::suspended : cyusb::power_state::resumed);
}

ports::port_status set_power(open_device& device, system_buffer& buffer) {
    switch (value_in<std::uint32_t>(buffer)) {
    case cyusb::power_state::resumed:
        return device.port().set_power(ports::usb_power::resumed);
    case cyusb::power_state::suspended:
        return device.port().set_power(ports::usb_power::suspended);
    default:
        return ports::port_status::bad_value;
    }
}

ports::port_status get_bus_speed(open_device& device, system_buffer& buffer) {
    ports::usb_speed speed = ports::usb_speed::full;
    const ports::port_status status = device.port().speed(&speed);
    switch (speed) {
    case ports::usb_speed::super:
        return put(buffer, status, cyusb::speed_code::super);
    case ports::usb_speed::high:
        return put(buffer, status, cyusb::speed_code::high);
    case ports::usb_speed::full:
        break;
    }
    return put(buffer, status, full_speed_code);
}

ports::port_status get_transfer_size(open_device& device, system_buffer& buffer) {
    auto record = value_in<cyusb::transfer_size_record>(buffer);
    record.size = device.transfer_size(record.endpoint_address);
    return put(buffer, device.presence(), record);
}

ports::port_status set_transfer_size(open_device& device, system_buffer& buffer) {
    const auto record = value_in<cyusb::transfer_size_record>(buffer);
    if (record.size == 0)
        return ports::port_status::bad_value;
    const ports::port_status status = device.presence();
    if (status == ports::port_status::ok)
        device.set_transfer_size(record.endpoint_address, record.size);
    return status;
}

struct rule {
    std::uint32_t code;
    DWORD in_size;  // minimum size of the input
    DWORD out_size; // of the output
    ports::port_status (*act)(open_device& device, system_buffer& buffer);
};

const rule rules[] = {
    {code::driver_version, 0, 4, [](auto& d, auto& b) { return put(b, d.presence(), driver_version); }},
    {code::usbdi_version, 0, 4, [](auto& d, auto& b) { return put(b, d.presence(), usbdi_version); }},
    {code::get_alternate, 0, 1, get_alternate},
    {code::select_alternate, 1, 1, [](auto& d, auto& b) { return d.port().select_alternate(b[0]); }},
    {code::bus_address, 0, 1, get_bus_address},
    {code::get_power, 0, 4, get_power},
    {code::set_power, 4, 4, set_power},
    {code::cycle_port, 0, 0, [](auto& d, auto&) { return d.port().cycle_port(); }},
    {code::reset_pipe, 1, 0, [](auto& d, auto& b) { return d.port().reset_endpoint(b[0]); }},
    {code::reset_parent_port, 0, 0, [](auto& d, auto&) { return d.port().reset_port(); }},
    {code::get_transfer_size, 5, 5, get_transfer_size},
    {code::set_transfer_size, 5, 5, set_transfer_size},
    {code::device_name, 0, cyusb::name_size,
     [](auto& d, auto& b) { return put_text(b, d.presence(), d.port().identity().name); }},
    {code::friendly_name, 0, cyusb::name_size,
     [](auto& d, auto& b) { return put_text(b, d.presence(), d.port().identity().friendly_name); }},
    {code::abort_pipe, 1, 0, [](auto& d, auto& b) { return d.port().abort(b[0]); }},
    {code::bus_speed, 0, 4, get_bus_speed},
};

bool is_transfer(std::uint32_t request_code) {
    return request_code == code::control_transfer || request_code == code::buffered_transfer ||
           request_code == code::direct_transfer;
}

io_outcome answer_by(const rule& rule, open_device& device, const io_request& request) {
    if (request.in_size < rule.in_size || (request.in == nullptr && rule.in_size > 0))
        return {ERROR_INVALID_PARAMETER};
    if (request.out_size < rule.out_size || (request.out == nullptr && rule.out_size > 0))
        return {ERROR_INSUFFICIENT_BUFFER};
    system_buffer buffer{};
    if (rule.in_size > 0)
        std::memcpy(buffer.data(), request.in, rule.in_size);
    const DWORD error = error_for(rule.act(device, buffer));
    if (error != ERROR_SUCCESS)
        return {error};
    if (rule.out_size > 0)
        std::memcpy(request.out, buffer.data(), rule.out_size);
    return {ERROR_SUCCESS, rule.out_size};
}

io_outcome answer(open_device& device, const io_request& request) {
    for (const rule& rule : rules)
        if (rule.code == request.code)
            return answer_by(rule, device, request);
    return {ERROR_INVALID_FUNCTION};
}

std::string lower_case(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

} // namespace

std::string interface_path(const ports::usb_identity& identity) {
    char head[32];
    std::snprintf(head, sizeof(head), "\\\\?\\usb#vid_%04x&pid_%04x#", static_cast<unsigned>(identity.vendor_id),
                  static_cast<unsigned>(identity.product_id));
    const auto& [data1, data2, data3, data4] = interface_class;
    char tail[48];
    std::snprintf(tail, sizeof(tail), "#{%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                  static_cast<unsigned long>(data1), data2 + 0u, data3 + 0u, data4[0] + 0u, data4[1] + 0u,
                  data4[2] + 0u, data4[3] + 0u, data4[4] + 0u, data4[5] + 0u, data4[6] + 0u, data4[7] + 0u);
    return lower_case(head + identity.serial_number + tail);
}

std::shared_ptr<open_device> open_path(const std::string& path, DWORD* error) {
    *error = ERROR_FILE_NOT_FOUND;
    for (const auto& port : ports::attached_usb_devices()) {
        if (interface_path(port->identity()) != lower_case(path))
            continue;
        auto device = std::make_shared<open_device>(port);
        *error = open_error_for(device->open());
        return *error == ERROR_SUCCESS ? device : nullptr;
    }
    return nullptr;
}

ports::port_status open_device::open() {
    const ports::port_status status = port_->open();
    closed_ = status != ports::port_status::ok;
    return status;
}

std::optional<io_outcome> open_device::start(const io_request& request, io_done done) {
    try {
        if (is_transfer(request.code))
            return start_transfer(request, std::move(done));
        return answer(*this, request);
    } catch (const std::bad_alloc&) {
        return io_outcome{ERROR_NOT_ENOUGH_MEMORY};
    }
}

std::optional<io_outcome> open_device::start_transfer(const io_request& request, io_done done) {
    transfer_layout layout;
    if (const DWORD error = read_layout(request, &layout))
        return io_outcome{error};
    const auto transfer = std::make_shared<driver_transfer>(layout);
    if (!enlist(transfer))
        return io_outcome{ERROR_INVALID_HANDLE};
    driver_transfer::submit(transfer, *port_);
    if (closed_) // after it was enlisted: close() may have come too early for the port to know of it
        cancel(transfer);
    return transfer->hand_over(std::move(done));
}

// Adds a transfer to those that close() ends; false when the handle is already closed.
bool open_device::enlist(const transfer_pointer& transfer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (closed_)
        return false;
    const auto is_finished = [](const started_transfer& other) { return other.transfer->finished(); };
    pending_.erase(std::remove_if(pending_.begin(), pending_.end(), is_finished), pending_.end());
    pending_.push_back({transfer, std::this_thread::get_id()});
    return true;
}

// A port may end what it aborts a little later; the handle does not wait for that.
void open_device::cancel(const transfer_pointer& transfer) {
    if (!transfer->finished())
        port_->abort(transfer->endpoint());
    ports::usb_result result;
    result.end = ports::usb_end::cancelled;
    transfer->complete(result);
}

void open_device::close() {
    std::vector<started_transfer> transfers;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (closed_.exchange(true))
            return;
        transfers.swap(pending_);
    }
    for (const auto& [transfer, starter] : transfers)
        cancel(transfer);
    port_->close();
}

void open_device::cancel_started_by(std::thread::id thread) {
    std::vector<started_transfer> transfers;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        transfers = pending_;
    }
    for (const auto& [transfer, starter] : transfers)
        if (starter == thread && !transfer->finished())
            cancel(transfer);
}

ports::port_status open_device::presence() {
    ports::usb_speed ignored = ports::usb_speed::full;
    return port_->speed(&ignored);
}

std::uint32_t open_device::transfer_size(std::uint8_t endpoint) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = transfer_sizes_.find(endpoint);
    return found == transfer_sizes_.end() ? default_transfer_size : found->second;
}

void open_device::set_transfer_size(std::uint8_t endpoint, std::uint32_t size) {
    const std::lock_guard<std::mutex> lock(mutex_);
    transfer_sizes_[endpoint] = size;
}

} // namespace jorvet::compat::usb
