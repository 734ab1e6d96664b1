// One node of the emulated usbfs: what libusb asks of the kernel about a device, carried out on a simulated one. Its
// requests run on the thread that umockdev has for the node, the ends of transfers on any.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include <linux/usbdevice_fs.h>
#include <umockdev.h>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

// A reference to an object of GLib's.
struct unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class Object>
using reference = std::unique_ptr<Object, unref>;

class usbfs_node {
  public:
    // Told of each interface that is claimed (true) and released.
    using claim_hook = std::function<void(bool claimed)>;

    // The device is open from now on, until nobody uses the node.
    explicit usbfs_node(std::shared_ptr<ports::usb_port> device, claim_hook on_claim = nullptr);
    ~usbfs_node();
    usbfs_node(const usbfs_node&) = delete;
    usbfs_node& operator=(const usbfs_node&) = delete;

    // Answers an ioctl of a client. For umockdev.
    void answer(UMockdevIoctlClient* client);
    // Readable while there are ended transfers that nobody has reaped, and for good when the device has gone.
    int readiness() const { return readiness_; }
    // What poll() tells of a node that is ready.
    short events() const;

    // What is pending ends as gone, and every request from now on finds no device.
    void unplugged();
    void fail_claim(int error) { claim_error_ = error; }
    unsigned claims() const;

  private:
    struct urb;
    using urb_pointer = std::shared_ptr<urb>;

    int run(unsigned long request, UMockdevIoctlClient* client);
    int submit(UMockdevIoctlData* argument);
    int discard(unsigned long address);
    int reap(UMockdevIoctlData* argument);
    int claim(unsigned interface);
    int release(unsigned interface);
    int select(unsigned interface, unsigned setting);
    int reset();
    void begin(const urb_pointer& started);
    void ended(const urb_pointer& which, const ports::usb_result& result);
    void signal() const;

    const std::shared_ptr<ports::usb_port> device_;
    const claim_hook on_claim_;
    const int readiness_;
    std::atomic<bool> gone_{false};
    std::atomic<int> claim_error_{0};
    mutable std::mutex mutex_; // guards what follows; in no call of the device
    std::list<urb_pointer> pending_;
    std::deque<urb_pointer> ended_;
    std::vector<urb_pointer> again_; // cancelled with another transfer of their endpoint
    std::set<unsigned> claimed_;
};

} // namespace jorvet::sim
