// File objects: a handle on a device, opened by path. Signalled when a request ends that has no event of its own. The
// device's driver carries out the requests on it; the system waits for them and keeps the records of those that
// complete later. Any thread.
#pragma once

#include "jorvet/compat/drivers/usb_driver.h"
#include "jorvet/compat/kernel/objects.h"

namespace jorvet::compat::kernel {

class file final : public waitable {
  public:
    explicit file(std::shared_ptr<usb::open_device> device) : device_(std::move(device)) {}

    bool wait(DWORD milliseconds) override { return event_->wait(milliseconds); }
    void set() override { event_->set(); }
    void reset() override { event_->reset(); }

    usb::open_device& device() { return *device_; }

    // Ends what is pending as cancelled; when it returns, every such record and event has been written.
    void closed() override { device_->close(); }

  private:
    const std::shared_ptr<usb::open_device> device_;
    const std::shared_ptr<waitable> event_ = make_event(true, false);
};

// The file of an open handle if it is one, else null.
inline std::shared_ptr<file> find_file(HANDLE handle) {
    return std::dynamic_pointer_cast<file>(handles().find(handle));
}

} // namespace jorvet::compat::kernel
