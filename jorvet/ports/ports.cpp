// The bus: the devices that are plugged in, in their order. Any thread.
#include "jorvet/ports/ports.h"

#include <algorithm>
#include <mutex>
#include <utility>

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

    void add(port_pointer port, const std::string& order) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto behind =
            std::upper_bound(ports_.begin(), ports_.end(), order,
                             [](const std::string& left, const plug& right) { return left < right.order; });
        ports_.insert(behind, {std::move(port), order});
    }
    void remove(const port_pointer& port) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto is_it = [&](const plug& each) { return each.port == port; };
        ports_.erase(std::remove_if(ports_.begin(), ports_.end(), is_it), ports_.end());
    }
    std::vector<port_pointer> list() {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::vector<port_pointer> ports;
        for (const plug& each : ports_)
            ports.push_back(each.port);
        return ports;
    }
    bool empty() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return ports_.empty();
    }

  private:
    struct plug {
        port_pointer port;
        std::string order;
    };

    std::mutex mutex_;
    std::vector<plug> ports_;
};

plugs<bridge_port>& bridges() {
    return never_destroyed<plugs<bridge_port>>();
}

plugs<usb_port>& usb_devices() {
    return never_destroyed<plugs<usb_port>>();
}

// What looks at the bus first.
struct first_look {
    std::mutex mutex; // held while it looks, so that everybody else waits
    std::function<void()> look;

    void happens() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (const auto due = std::exchange(look, nullptr); due && bridges().empty() && usb_devices().empty())
            due();
    }
};

first_look& the_first_look() {
    return never_destroyed<first_look>();
}

} // namespace

void attach(std::shared_ptr<bridge_port> port, const std::string& order) {
    bridges().add(std::move(port), order);
}

void detach(const std::shared_ptr<bridge_port>& port) {
    bridges().remove(port);
}

std::vector<std::shared_ptr<bridge_port>> attached_bridges() {
    the_first_look().happens();
    return bridges().list();
}

void attach(std::shared_ptr<usb_port> port, const std::string& order) {
    usb_devices().add(std::move(port), order);
}

void detach(const std::shared_ptr<usb_port>& port) {
    usb_devices().remove(port);
}

std::vector<std::shared_ptr<usb_port>> attached_usb_devices() {
    the_first_look().happens();
    return usb_devices().list();
}

void before_first_look(std::function<void()> look) {
    first_look& first = the_first_look();
    const std::lock_guard<std::mutex> lock(first.mutex);
    first.look = std::move(look);
}

} // namespace jorvet::ports
