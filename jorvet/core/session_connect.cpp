// Connecting to a device by what it is. On the application's threads.
#include <algorithm>

#include "jorvet/com/usb_cyp_com.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"

namespace jorvet::core {

namespace {

constexpr std::uint32_t list_poll_ms = 20; // between two looks at the devices

bool same_device(const com::attached_device& left, const com::attached_device& right) {
    if (!left.serial_number.empty() || !right.serial_number.empty())
        return left.serial_number == right.serial_number;
    return com::same_place(left.place, right.place);
}

// One that was replugged while the list was made may be in it twice.
std::vector<com::attached_device> devices_where(unsigned kind, const com::device_check& fits) {
    std::vector<com::attached_device> devices = com::attached_devices(kind);
    const auto differs = [&](const com::attached_device& device) { return !fits(device); };
    devices.erase(std::remove_if(devices.begin(), devices.end(), differs), devices.end());
    return devices;
}

// What may be otherwise a moment later: the device is on its way, or the system has not made it accessible yet.
bool may_pass(unsigned status) {
    return status == JV_ERR_NO_DEVICE || status == JV_ERR_CYP_OPEN || status == JV_ERR_FTDI_DEVICE_NOT_FOUND ||
           status == JV_ERR_FTDI_DEVICE_NOT_OPENED;
}

} // namespace

unsigned session::connect_to(const com::device_check& fits, deadline until) {
    owner_.disconnect();
    for (;;) {
        bool mistaken = false;
        const unsigned status = try_connect(fits, mistaken);
        if (!may_pass(status))
            return status;
        if (cancelled_)
            return JV_ERR_CANCELLED;
        if (until.passed())
            return status;
        if (!mistaken && !pause(until, list_poll_ms))
            return JV_ERR_CANCELLED;
    }
}

// `mistaken`: another device was opened, because the list was no longer true; a new one helps.
unsigned session::try_connect(const com::device_check& fits, bool& mistaken) {
    const std::vector<com::attached_device> fitting = devices_where(owner_.m_com_type, fits);
    if (fitting.empty() || fitting.front().index > JV_MAX_INDEX)
        return JV_ERR_NO_DEVICE;
    const com::attached_device& chosen = fitting.front();
    const auto is_chosen = [&](const com::attached_device& device) {
        return device.serial_number == chosen.serial_number && com::same_place(device.place, chosen.place);
    };
    if (!std::all_of(fitting.begin(), fitting.end(), is_chosen))
        return JV_ERR_SEVERAL_DEVICES;
    return owner_.connect_checked(static_cast<unsigned char>(chosen.index), [&](const com::attached_device& opened) {
        mistaken = !fits(opened) || !is_chosen(opened);
        return !mistaken;
    });
}

unsigned session::reconnect(deadline until) {
    const com::attached_device last = device();
    if (last.kind == JV_KIND_NONE)
        return JV_ERR_NO_DEVICE;
    return connect_to([&](const com::attached_device& device) { return same_device(device, last); }, until);
}

com::attached_device session::device() const {
    const boost::unique_lock<boost::mutex> held(mutex_);
    return device_;
}

void session::remember(com::attached_device device) {
    const boost::unique_lock<boost::mutex> held(mutex_);
    device_ = std::move(device);
}

} // namespace jorvet::core
