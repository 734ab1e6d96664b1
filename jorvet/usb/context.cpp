// The event thread: libusb's events, then what they brought, then the timers that are due.
#include "jorvet/usb/context.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "jorvet/base/never_destroyed.h"

namespace jorvet::usb {

namespace {
constexpr std::chrono::hours longest_sleep{1};
}

context& context::the() {
    return never_destroyed<context>();
}

bool context::start(observer observe) {
    if (context_ != nullptr || libusb_init(&context_) != LIBUSB_SUCCESS)
        return false;
    observer_ = std::move(observe);
    stopped_ = false;
    const int events = LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT;
    const int status = libusb_hotplug_register_callback(context_, events, LIBUSB_HOTPLUG_ENUMERATE,
                                                        LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
                                                        LIBUSB_HOTPLUG_MATCH_ANY, on_hotplug, this, &hotplug_);
    if (status == LIBUSB_SUCCESS) {
        tell_news();
        try {
            thread_ = std::thread([this] { run(); });
            return true;
        } catch (const std::system_error&) {
        }
    }
    libusb_exit(std::exchange(context_, nullptr));
    return false;
}

void context::end(const std::function<void()>& once_quiet) {
    if (context_ == nullptr)
        return;
    stopped_ = true;
    libusb_interrupt_event_handler(context_);
    thread_.join();
    once_quiet();
    libusb_hotplug_deregister_callback(context_, hotplug_);
    news_.clear();
    timers_.clear();
    libusb_exit(std::exchange(context_, nullptr));
}

// Runs under libusb's event lock, where hardly anything of libusb may be called.
int LIBUSB_CALL context::on_hotplug(libusb_context*, libusb_device* device, libusb_hotplug_event event, void* self) {
    device_reference reference(libusb_ref_device(device));
    static_cast<context*>(self)->news_.push_back({std::move(reference), event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED});
    return 0; // stay registered
}

void context::run() {
    while (!stopped_) {
        timeval limit = until_next_timer();
        libusb_handle_events_timeout(context_, &limit);
        tell_news();
        run_due_timers();
    }
}

void context::tell_news() {
    for (const auto& [device, arrived] : std::exchange(news_, {}))
        observer_(device.get(), arrived);
}

void context::call_later(std::chrono::milliseconds delay, std::function<void()> task) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        timers_.push_back({clock::now() + delay, std::move(task)});
    }
    libusb_interrupt_event_handler(context_);
}

void context::run_due_timers() {
    std::vector<timer> due;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto is_later = [now = clock::now()](const timer& each) { return each.due > now; };
        const auto first_due = std::partition(timers_.begin(), timers_.end(), is_later);
        std::move(first_due, timers_.end(), std::back_inserter(due));
        timers_.erase(first_due, timers_.end());
    }
    for (const timer& each : due)
        each.task();
}

timeval context::until_next_timer() {
    const std::lock_guard<std::mutex> lock(mutex_);
    clock::duration wait = longest_sleep;
    for (const timer& each : timers_)
        wait = std::min(wait, std::max(clock::duration::zero(), each.due - clock::now()));
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(wait).count() + 1;
    return {static_cast<time_t>(microseconds / 1000000), static_cast<suseconds_t>(microseconds % 1000000)};
}

} // namespace jorvet::usb
