// The bus: the bridges that are plugged in, in the order of plugging. Any thread.
#include "jorvet/platform/ports.h"

#include <algorithm>
#include <mutex>

namespace jorvet::platform {

BridgePort::~BridgePort() = default;

namespace {

struct bus {
    std::mutex mutex;
    std::vector<std::shared_ptr<BridgePort>> bridges;
};

// Never destroyed: a bridge that stays plugged in until the process ends is not torn down under running threads.
bus& the_bus() {
    static bus& it = *new bus;
    return it;
}

} // namespace

void attach(std::shared_ptr<BridgePort> port) {
    const std::lock_guard<std::mutex> lock(the_bus().mutex);
    the_bus().bridges.push_back(std::move(port));
}

void detach(const std::shared_ptr<BridgePort>& port) {
    const std::lock_guard<std::mutex> lock(the_bus().mutex);
    auto& bridges = the_bus().bridges;
    bridges.erase(std::remove(bridges.begin(), bridges.end(), port), bridges.end());
}

std::vector<std::shared_ptr<BridgePort>> attached_bridges() {
    const std::lock_guard<std::mutex> lock(the_bus().mutex);
    return the_bus().bridges;
}

} // namespace jorvet::platform
