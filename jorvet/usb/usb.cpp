// The watcher: which of the devices that come and go are ours, and their ports on the bus. Runs where the context tells
// of devices: on the thread of the first look, then on the event thread.
#include "jorvet/usb/usb.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <new>
#include <vector>

#include "jorvet/base/never_destroyed.h"
#include "jorvet/usb/bus_view.h"
#include "jorvet/usb/context.h"
#include "jorvet/usb/controller_port.h"
#include "jorvet/usb/serial_port.h"

namespace jorvet::usb {

namespace {

// What stands on the bus for one device.
struct plugged {
    seen_device seen;
    device_kind kind = device_kind::none;
    std::vector<std::shared_ptr<serial_port>> bridges;
    std::shared_ptr<controller_port> controller;
};

class watcher {
  public:
    void add_id(const added_id& id) {
        const std::lock_guard<std::mutex> lock(mutex_);
        added_.push_back(id);
    }

    void look() {
        context::the().start([this](libusb_device* device, bool arrived) {
            try {
                arrived ? arrive(device) : leave(device);
            } catch (const std::bad_alloc&) { // the device stays unknown
            }
        });
    }

    void end() {
        context::the().end([this] {
            while (!plugged_.empty())
                leave(plugged_.begin()->first);
        });
    }

  private:
    void arrive(libusb_device* device) {
        const auto seen = look_at(device);
        if (!seen)
            return;
        plugged made;
        made.seen = *seen;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            made.kind = kind_of(*seen, added_);
        }
        if (made.kind == device_kind::bridge)
            plug_in_bridge(device, made);
        else if (made.kind == device_kind::controller)
            plug_in_controller(device, made);
        else
            return;
        plugged_.emplace(device, std::move(made));
    }

    void leave(libusb_device* device) {
        const auto found = plugged_.find(device);
        if (found == plugged_.end())
            return;
        for (const auto& bridge : found->second.bridges) {
            bridge->unplugged();
            ports::detach(std::shared_ptr<ports::bridge_port>(bridge));
        }
        if (const auto& controller = found->second.controller) {
            controller->unplugged();
            ports::detach(std::shared_ptr<ports::usb_port>(controller));
        }
        plugged_.erase(found);
    }

    // Whether another device of the same kind has its serial number.
    bool is_taken(const plugged& device) const {
        return std::any_of(plugged_.begin(), plugged_.end(), [&](const auto& other) {
            return other.second.kind == device.kind && other.second.seen.serial_number == device.seen.serial_number;
        });
    }

    void plug_in_bridge(libusb_device* device, plugged& made) {
        const bridge_chip chip = chip_of(made.seen.release);
        const bool taken = is_taken(made);
        const unsigned count = std::min<unsigned>(ports_of(chip), made.seen.interfaces);
        for (std::uint8_t interface = 0; interface < count; ++interface) {
            made.bridges.push_back(std::make_shared<serial_port>(
                device, bridge_identity_of(made.seen, interface, taken), place_of(made.seen), chip, interface));
            ports::attach(std::shared_ptr<ports::bridge_port>(made.bridges.back()), order_of(made.seen, interface));
        }
    }

    void plug_in_controller(libusb_device* device, plugged& made) {
        made.controller = std::make_shared<controller_port>(device, controller_identity_of(made.seen, is_taken(made)),
                                                            place_of(made.seen));
        ports::attach(std::shared_ptr<ports::usb_port>(made.controller), order_of(made.seen));
    }

    std::mutex mutex_; // guards the IDs
    std::vector<added_id> added_;
    std::map<libusb_device*, plugged> plugged_;
};

watcher& the_watcher() {
    return never_destroyed<watcher>();
}

} // namespace

} // namespace jorvet::usb

using namespace jorvet;
using namespace jorvet::usb;

void jv_usb_start() try {
    ports::before_first_look([] { the_watcher().look(); });
} catch (const std::bad_alloc&) { // no real devices then
}

void jv_usb_add_id(unsigned short vendor_id, unsigned short product_id, unsigned int kind) try {
    const device_kind kinds[] = {device_kind::bridge, device_kind::controller};
    the_watcher().add_id({vendor_id, product_id, kind < 2 ? kinds[kind] : device_kind::none});
} catch (const std::bad_alloc&) { // the device stays unknown
}

void jv_usb_end() {
    the_watcher().end();
}
