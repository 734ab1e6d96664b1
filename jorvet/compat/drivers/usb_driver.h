// The USB driver: one handle on a USB device, and what each request code does on it. Any thread may call
// anything; no lock of the handle is held in a call to the port. Not compiled on Windows, where the driver is the
// vendor's.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "jorvet/compat/drivers/driver_transfer.h"
#include "jorvet/system/cyusb_driver.h"

namespace jorvet::compat::usb {

// The class of the device interfaces that this driver serves.
inline constexpr GUID interface_class = cyusb::driver_class<GUID>();

// The path of a device's interface: shorter than 255 characters, in lower case, and different for any two attached
// devices.
std::string interface_path(const ports::usb_identity& identity);

class open_device {
  public:
    explicit open_device(std::shared_ptr<ports::usb_port> port) : port_(std::move(port)) {}
    ~open_device() { close(); }
    open_device(const open_device&) = delete;
    open_device& operator=(const open_device&) = delete;

    // Opens the device and returns the port's answer. Called once, before anything else.
    ports::port_status open();

    // Carries out a request, or starts it. Returns the answer when it is known already, without calling `done`;
    // otherwise `done` is called once, possibly before this returns. Throws nothing, does not block.
    std::optional<io_outcome> start(const io_request& request, io_done done);

    // Ends everything pending on this handle as cancelled, reports it, and releases the device. The endpoints concerned
    // are aborted, for other handles on the device too. A request that is just being started is cancelled as well.
    // Harmless the second time; the destructor calls it.
    void close();

    // Ends what a thread has started on this handle in the same way.
    void cancel_started_by(std::thread::id thread);

    ports::usb_port& port() { return *port_; }
    // Whether the device is still attached, for requests that need nothing else from it.
    ports::port_status presence();

    // The sizes into which the host divides transfers, by endpoint address.
    std::uint32_t transfer_size(std::uint8_t endpoint);
    void set_transfer_size(std::uint8_t endpoint, std::uint32_t size);

  private:
    using transfer_pointer = std::shared_ptr<driver_transfer>;

    std::optional<io_outcome> start_transfer(const io_request& request, io_done done);
    bool enlist(const transfer_pointer& transfer);
    void cancel(const transfer_pointer& transfer);

    const std::shared_ptr<ports::usb_port> port_;
    std::atomic<bool> closed_{true};
    std::mutex mutex_; // guards the members below
    struct started_transfer {
        transfer_pointer transfer;
        std::thread::id starter;
    };
    std::vector<started_transfer> pending_;
    std::map<std::uint8_t, std::uint32_t> transfer_sizes_;
};

// Opens the attached device whose interface has this path, letters compared without case. Null with `*error`:
// ERROR_FILE_NOT_FOUND (no such path, or the device is gone), ERROR_SHARING_VIOLATION (it refuses: in use elsewhere),
// ERROR_ACCESS_DENIED (not permitted) or ERROR_GEN_FAILURE.
// Throws std::bad_alloc.
std::shared_ptr<open_device> open_path(const std::string& path, DWORD* error);

} // namespace jorvet::compat::usb
