// The emulated bus: devices in sysfs, their events, their nodes. The nodes' readiness is told through poll(), which
// stands here in front of the system's: umockdev's nodes are plain files, which are always ready.
#include "jorvet/sim/usbfs/usbfs.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <list>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/stat.h>

#include "jorvet/base/never_destroyed.h"
#include "jorvet/sim/support/bytes.h"
#include "jorvet/sim/usbfs/bridge_chip_model.h"
#include "jorvet/sim/usbfs/node.h"

namespace jorvet::sim {

namespace {

constexpr const char* controller_of_the_bus = "/sys/devices/pci0000:00/0000:00:14.0/usb1";
constexpr unsigned root_address = 1; // of the hub; a device has that of its port behind it
constexpr unsigned last_port = 126;

std::string node_name(unsigned address) {
    char name[32];
    std::snprintf(name, sizeof(name), "bus/usb/001/%03u", address);
    return name;
}

// Nodes by the files that stand for them.
struct known_nodes {
    std::mutex mutex;
    std::map<ino_t, std::weak_ptr<usbfs_node>> nodes;

    void add(ino_t file, const std::shared_ptr<usbfs_node>& node) {
        const std::lock_guard<std::mutex> lock(mutex);
        nodes[file] = node;
    }
    void remove(ino_t file) {
        const std::lock_guard<std::mutex> lock(mutex);
        nodes.erase(file);
    }
    std::shared_ptr<usbfs_node> behind(int descriptor) {
        struct stat status {};
        const std::lock_guard<std::mutex> lock(mutex);
        if (nodes.empty() || fstat(descriptor, &status) != 0)
            return nullptr;
        const auto found = nodes.find(status.st_ino);
        return found == nodes.end() ? nullptr : found->second.lock();
    }
};

known_nodes& the_nodes() {
    return never_destroyed<known_nodes>();
}

const char* speed_text(ports::usb_speed speed) {
    switch (speed) {
    case ports::usb_speed::super:
        return "5000";
    case ports::usb_speed::high:
        return "480";
    default:
        return "12";
    }
}

std::string to_hex(const byte_vector& bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02X", unsigned{byte});
        text += digits;
    }
    return text;
}

// The bytes of one descriptor, as the device answers with them.
byte_vector descriptor_of(ports::usb_port& device, std::uint16_t value, std::uint16_t length) {
    byte_vector bytes;
    device.control({0x80, 6, value, 0, length}, nullptr, 0, [&](const ports::usb_result& result) {
        if (result.end == ports::usb_end::ok)
            bytes.assign(result.data, result.data + result.count);
    });
    return bytes;
}

byte_vector descriptors_of(ports::usb_port& device) {
    byte_vector all = descriptor_of(device, 0x0100, 18);
    const byte_vector configuration = descriptor_of(device, 0x0200, 0xFFFF);
    all.insert(all.end(), configuration.begin(), configuration.end());
    return all;
}

gboolean answer_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, void* node) {
    static_cast<usbfs_node*>(node)->answer(client);
    return TRUE;
}

// Whether this process has the file open.
bool is_open(ino_t file) {
    for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
        struct stat status {};
        if (stat(descriptor.path().c_str(), &status) == 0 && status.st_ino == file)
            return true;
    }
    return false;
}

// A device on the bus, or one that has left while somebody still has its node open.
struct plug {
    std::shared_ptr<const simulated_device> device;
    std::shared_ptr<usbfs_node> node;
    unsigned port = 0;
    std::string folder; // in sysfs
    std::string file;   // its node
    ino_t file_number = 0;
    bool left = false;
    reference<UMockdevIoctlBase> base; // calls the node
};

constexpr std::chrono::milliseconds watch_interval{1};

std::string place_of(unsigned port) {
    return "1-" + std::to_string(port);
}

void throw_if(GError* error) {
    if (error == nullptr)
        return;
    const std::string reason = error->message;
    g_error_free(error);
    throw std::runtime_error("the emulated bus cannot be made: " + reason);
}

} // namespace

// A thread watches for devices that are unplugged, and for nodes that nobody has open any more: each of those costs
// umockdev a thread.
class emulated_usb::impl {
  public:
    impl() : testbed_(umockdev_testbed_new()) {
        if (umockdev_in_mock_environment() == FALSE)
            throw std::runtime_error("umockdev's library is not preloaded: call the program by umockdev-wrapper");
        add(controller_of_the_bus, 1, "480",
            {18, 1, 0, 2,    9, 0, 1, 64, 0x6B, 0x1D, 2, 0, 0, 6, 0, 0, 0,    1, 9, 2, 25, 0,
             1,  1, 0, 0xE0, 0, 9, 4, 0,  0,    1,    9, 0, 0, 0, 7, 5, 0x81, 3, 4, 0, 12},
            {}, {});
        watcher_ = std::thread([this] { watch(); });
    }
    ~impl() {
        stopped_ = true;
        watcher_.join();
        for (plug& each : plugs_)
            leave(each);
        for (plug& each : plugs_)
            take_away(each);
    }

    std::string plug_in(std::shared_ptr<const simulated_device> device, std::shared_ptr<usbfs_node> node,
                        const byte_vector& descriptors, ports::usb_speed speed, const std::string& product,
                        const std::string& serial_number) {
        const std::lock_guard<std::mutex> lock(mutex_);
        std::list<plug> made(1);
        plug& added = made.front();
        added.device = std::move(device);
        added.node = std::move(node);
        added.port = next_port();
        const unsigned address = root_address + added.port;
        added.folder = controller_of_the_bus + ("/" + place_of(added.port));
        added.file = "/dev/" + node_name(address);
        add(added.folder, address, speed_text(speed), descriptors, product, serial_number);
        attach_node(added);
        plugs_.splice(plugs_.end(), made);
        umockdev_testbed_uevent(testbed_.get(), added.folder.c_str(), "add");
        return place_of(added.port);
    }

    std::shared_ptr<usbfs_node> node_at(const std::string& place) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const plug& each : plugs_)
            if (!each.left && place_of(each.port) == place)
                return each.node;
        throw std::runtime_error("no device at " + place);
    }

  private:
    // Behind the last one, so that devices stand in the order in which they were plugged in.
    unsigned next_port() const {
        unsigned port = plugs_.empty() ? 1 : plugs_.back().port + 1;
        const auto is_taken = [&](const plug& each) { return each.port == port; };
        if (port > last_port)
            for (port = 1; std::any_of(plugs_.begin(), plugs_.end(), is_taken);)
                ++port;
        if (port > last_port)
            throw std::runtime_error("no port is free");
        return port;
    }

    void add(const std::string& folder, unsigned address, const std::string& speed, const byte_vector& descriptors,
             const std::string& product, const std::string& serial_number) {
        std::string text = "P: " + folder.substr(4) + "\nN: " + node_name(address) +
                           "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=/dev/" + node_name(address) +
                           "\nE: BUSNUM=001\nE: DEVNUM=" + node_name(address).substr(12) +
                           "\nA: busnum=1\\n\nA: devnum=" + std::to_string(address) + "\\n\nA: speed=" + speed +
                           "\\n\nA: bConfigurationValue=1\\n\nH: descriptors=" + to_hex(descriptors) + "\n";
        if (!product.empty())
            text += "A: product=" + product + "\\n\n";
        if (!serial_number.empty())
            text += "A: serial=" + serial_number + "\\n\n";
        GError* error = nullptr;
        umockdev_testbed_add_from_string(testbed_.get(), (text + "\n").c_str(), &error);
        throw_if(error);
    }

    void attach_node(plug& made) {
        made.base.reset(umockdev_ioctl_base_new());
        g_signal_connect(made.base.get(), "handle-ioctl", G_CALLBACK(answer_ioctl), made.node.get());
        GError* error = nullptr;
        umockdev_testbed_attach_ioctl(testbed_.get(), made.file.c_str(), made.base.get(), &error);
        throw_if(error);
        struct stat status {};
        char* const root = umockdev_testbed_get_root_dir(testbed_.get());
        stat((root + made.file).c_str(), &status);
        g_free(root);
        made.file_number = status.st_ino;
        the_nodes().add(made.file_number, made.node);
    }

    void watch() {
        for (; !stopped_; std::this_thread::sleep_for(watch_interval)) {
            const std::lock_guard<std::mutex> lock(mutex_);
            for (auto each = plugs_.begin(); each != plugs_.end();) {
                const bool had_left = each->left;
                if (!each->device->plugged_in())
                    leave(*each);
                if (had_left && !is_open(each->file_number)) {
                    take_away(*each);
                    each = plugs_.erase(each);
                } else {
                    ++each;
                }
            }
        }
    }

    // From now on the device is not on the bus; its node goes when nobody has it open.
    void leave(plug& which) {
        if (std::exchange(which.left, true))
            return;
        which.node->unplugged();
        umockdev_testbed_uevent(testbed_.get(), which.folder.c_str(), "remove");
        umockdev_testbed_remove_device(testbed_.get(), which.folder.c_str());
    }

    void take_away(plug& which) {
        umockdev_testbed_detach_ioctl(testbed_.get(), which.file.c_str(), nullptr);
        the_nodes().remove(which.file_number);
    }

    const reference<UMockdevTestbed> testbed_;
    mutable std::mutex mutex_; // guards the plugs
    std::list<plug> plugs_;
    std::atomic<bool> stopped_{false};
    std::thread watcher_;
};

emulated_usb::emulated_usb() {
    impl_ = std::make_unique<impl>();
}

emulated_usb::~emulated_usb() = default;

std::string emulated_usb::plug_in(const std::shared_ptr<simulated_bridge>& bridge) {
    ports::detach(std::shared_ptr<ports::bridge_port>(bridge));
    const auto identity = bridge->identity();
    const auto chip = std::make_shared<bridge_chip_model>(bridge);
    const auto on_claim = [chip](bool claimed) { claimed ? chip->claimed() : chip->released(); };
    return impl_->plug_in(bridge, std::make_shared<usbfs_node>(chip, on_claim),
                          bridge_chip_model::descriptors(identity.id), ports::usb_speed::high, identity.description,
                          identity.serial_number);
}

std::string emulated_usb::plug_in(const std::shared_ptr<simulated_controller>& controller) {
    ports::detach(std::shared_ptr<ports::usb_port>(controller));
    const auto identity = controller->identity();
    auto node = std::make_shared<usbfs_node>(controller);
    ports::usb_speed speed = ports::usb_speed::full;
    controller->speed(&speed);
    return impl_->plug_in(controller, std::move(node), descriptors_of(*controller), speed, identity.friendly_name,
                          identity.serial_number);
}

void emulated_usb::fail_claim(const std::string& place, int error) {
    impl_->node_at(place)->fail_claim(error);
}

unsigned emulated_usb::claims(const std::string& place) const {
    return impl_->node_at(place)->claims();
}

} // namespace jorvet::sim

// A node of the emulated bus is as ready as its transfers; all else is the system's business.
extern "C" JV_SIM_API int poll(pollfd* descriptors, nfds_t count, int timeout_ms) {
    std::vector<pollfd> asked(descriptors, descriptors + count);
    std::vector<std::shared_ptr<jorvet::sim::usbfs_node>> nodes(count);
    for (nfds_t i = 0; i < count; ++i) {
        if ((asked[i].events & POLLOUT) == 0 || asked[i].fd < 0)
            continue;
        nodes[i] = jorvet::sim::the_nodes().behind(asked[i].fd);
        if (nodes[i])
            asked[i] = {nodes[i]->readiness(), POLLIN, 0};
    }
    timespec limit{timeout_ms / 1000, timeout_ms % 1000 * 1000000L};
    const int ready = ppoll(asked.data(), count, timeout_ms < 0 ? nullptr : &limit, nullptr);
    for (nfds_t i = 0; i < count; ++i)
        descriptors[i].revents = nodes[i] && asked[i].revents != 0 ? nodes[i]->events() : asked[i].revents;
    return ready;
}
