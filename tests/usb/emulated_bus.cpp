// Puts every board of a test program on the emulated bus, and returns when the real drivers' list has it.
#include "jorvet/sim/usbfs/usbfs.h"
#include "jorvet/usb/usb.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

std::unique_ptr<sim::emulated_usb> bus;
std::vector<std::weak_ptr<sim::simulated_device>> bridges, controllers;

std::size_t plugged_in(const std::vector<std::weak_ptr<sim::simulated_device>>& devices) {
    return static_cast<std::size_t>(std::count_if(devices.begin(), devices.end(), [](const auto& each) {
        const auto device = each.lock();
        return device && device->plugged_in();
    }));
}

bool all_are_listed() {
    return ports::attached_bridges().size() == plugged_in(bridges) &&
           ports::attached_usb_devices().size() == plugged_in(controllers);
}

void move(const std::shared_ptr<sim::simulated_bridge>& bridge,
          const std::shared_ptr<sim::simulated_controller>& controller) {
    if (bridge && bridge->plugged_in()) {
        bridges.push_back(bridge);
        bus->plug_in(bridge);
    } else if (controller && controller->plugged_in()) {
        controllers.push_back(controller);
        bus->plug_in(controller);
    }
    ASSERT_TRUE(eventually(all_are_listed)) << plugged_in(bridges) << " and " << plugged_in(controllers);
}

struct emulated_bus : ::testing::Environment {
    void SetUp() override {
        bus = std::make_unique<sim::emulated_usb>();
        jv_usb_start();
        ASSERT_TRUE(all_are_listed());
        on_other_bus = move;
    }
    void TearDown() override {
        jv_usb_end();
        bus.reset();
    }
};

[[maybe_unused]] const auto* const environment = ::testing::AddGlobalTestEnvironment(new emulated_bus);

} // namespace
} // namespace jorvet::testing
