// File objects: a handle on a device, opened by path. The device's driver carries out the requests on it; the system
// waits for them and keeps the records of those that complete later. Any thread.
#pragma once

#include "jorvet/compat/drivers/usb_driver.h"
#include "jorvet/compat/kernel/objects.h"

namespace jorvet::compat::kernel {

class file final : public object {
  public:
    explicit file(std::shared_ptr<usb::open_device> device) : device_(std::move(device)) {}

    usb::open_device& device() { return *device_; }

    // Ends what is pending as cancelled; when it returns, every such record and event has been written.
    void closed() override { device_->close(); }

  private:
    const std::shared_ptr<usb::open_device> device_;
};

// The file of an open handle if it is one, else null.
inline std::shared_ptr<file> find_file(HANDLE handle) {
    return std::dynamic_pointer_cast<file>(handles().find(handle));
}

} // namespace jorvet::compat::kernel
