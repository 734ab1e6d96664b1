// The bus: the devices that are plugged in, in the order of plugging. Any thread.
#include "jorvet/ports/ports.h"

#include <algorithm>
#include <mutex>

#include "jorvet/platform/drivers/driver_library.h"

namespace jorvet::platform {

BridgePort::~BridgePort() = default;
UsbPort::~UsbPort() = default;

namespace {

// The ports of one family.
template <class Port>
class plugs {
  public:
    using port_pointer = std::shared_ptr<Port>;

    // Never destroyed: a device that stays plugged in until the process ends is not torn down under running threads.
    static plugs& all() {
        static plugs& it = *new plugs;
        return it;
    }

    void add(port_pointer port) {
        const std::lock_guard<std::mutex> lock(mutex_);
        ports_.push_back(std::move(port));
    }
    void remove(const port_pointer& port) {
        const std::lock_guard<std::mutex> lock(mutex_);
        ports_.erase(std::remove(ports_.begin(), ports_.end(), port), ports_.end());
    }
    std::vector<port_pointer> list() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return ports_;
    }

  private:
    std::mutex mutex_;
    std::vector<port_pointer> ports_;
};

} // namespace

void attach(std::shared_ptr<BridgePort> port) {
    take_the_drivers_place();
    plugs<BridgePort>::all().add(std::move(port));
}

void detach(const std::shared_ptr<BridgePort>& port) {
    plugs<BridgePort>::all().remove(port);
}

std::vector<std::shared_ptr<BridgePort>> attached_bridges() {
    return plugs<BridgePort>::all().list();
}

void attach(std::shared_ptr<UsbPort> port) {
    plugs<UsbPort>::all().add(std::move(port));
}

void detach(const std::shared_ptr<UsbPort>& port) {
    plugs<UsbPort>::all().remove(port);
}

std::vector<std::shared_ptr<UsbPort>> attached_usb_devices() {
    return plugs<UsbPort>::all().list();
}

} // namespace jorvet::platform
