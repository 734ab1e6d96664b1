// The process's libusb context and its event thread, on which every completion runs. The thread sleeps while nothing is
// pending and no device comes or goes.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <libusb.h>

namespace jorvet::usb {

// Gives a reference to a device back.
struct device_release {
    void operator()(libusb_device* device) const { libusb_unref_device(device); }
};
using device_reference = std::unique_ptr<libusb_device, device_release>;

class context {
  public:
    // Told of each device that arrives or has left: on the thread that starts for those that are there, then on the
    // event thread, outside of libusb's locks.
    using observer = std::function<void(libusb_device* device, bool arrived)>;

    static context& the();

    // Passes every attached device to `observe`, then starts the thread. False with nothing started when libusb or the
    // thread cannot be had, or when it has been started before.
    bool start(observer observe);
    // Ends the thread, calls `once_quiet`, and ends the context. Every handle has been closed, or is never used again.
    void end(const std::function<void()>& once_quiet);

    // Has `task` called on the event thread once, not before `delay` has passed.
    void call_later(std::chrono::milliseconds delay, std::function<void()> task);

  private:
    using clock = std::chrono::steady_clock;
    struct news {
        device_reference device;
        bool arrived;
    };
    struct timer {
        clock::time_point due;
        std::function<void()> task;
    };

    static int LIBUSB_CALL on_hotplug(libusb_context*, libusb_device* device, libusb_hotplug_event event, void* self);
    void run();
    void tell_news();
    void run_due_timers();
    timeval until_next_timer();

    libusb_context* context_ = nullptr;
    libusb_hotplug_callback_handle hotplug_ = 0;
    observer observer_;
    std::thread thread_;
    std::atomic<bool> stopped_{false};
    std::vector<news> news_; // of libusb's callback, which runs inside libusb's event handling or its registration
    std::mutex mutex_;       // guards the timers
    std::vector<timer> timers_;
};

} // namespace jorvet::usb
