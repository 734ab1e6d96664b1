// The bus: the devices that are plugged in, in the order of plugging. Any thread.
#include "jorvet/ports/ports.h"

#include <algorithm>
#include <mutex>

#include "jorvet/base/never_destroyed.h"

namespace jorvet::ports {

bridge_port::~bridge_port() = default;
usb_port::~usb_port() = default;

namespace {

// The ports of one family.
template <class Port>
class plugs {
  public:
    using port_pointer = std::shared_ptr<Port>;

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

void attach(std::shared_ptr<bridge_port> port) {
    never_destroyed<plugs<bridge_port>>().add(std::move(port));
}

void detach(const std::shared_ptr<bridge_port>& port) {
    never_destroyed<plugs<bridge_port>>().remove(port);
}

std::vector<std::shared_ptr<bridge_port>> attached_bridges() {
    return never_destroyed<plugs<bridge_port>>().list();
}

void attach(std::shared_ptr<usb_port> port) {
    never_destroyed<plugs<usb_port>>().add(std::move(port));
}

void detach(const std::shared_ptr<usb_port>& port) {
    never_destroyed<plugs<usb_port>>().remove(port);
}

std::vector<std::shared_ptr<usb_port>> attached_usb_devices() {
    return never_destroyed<plugs<usb_port>>().list();
}

} // namespace jorvet::ports
