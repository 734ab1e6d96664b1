// A device that is open through libusb: its transfers, the interfaces that it has claimed, and its end. Both kinds of
// ports are built on it. Transfers are started on any thread and end on the event thread.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "jorvet/ports/ports.h"
#include "jorvet/usb/context.h"

namespace jorvet::usb {

ports::port_status status_of(int libusb_error);

// What to transfer. `data`: to the device, read before start() returns.
struct transfer_order {
    libusb_transfer_type type = LIBUSB_TRANSFER_TYPE_BULK;
    std::uint8_t endpoint = 0;
    const std::uint8_t* data = nullptr;
    std::size_t length = 0;
    unsigned timeout_ms = 0;    // 0: no limit
    std::size_t packets = 0;    // of an isochronous transfer
    unsigned packet_length = 0; // of each
    ports::usb_setup setup;     // of a control transfer
};

class open_device : public std::enable_shared_from_this<open_device> {
  public:
    explicit open_device(libusb_device* device);
    ~open_device();
    open_device(const open_device&) = delete;
    open_device& operator=(const open_device&) = delete;

    libusb_device* usb_device() const { return device_.get(); }

    // Opens the device and claims nothing. Not beside close().
    ports::port_status open();
    // Ends what is pending, as cancelled, gives the claimed interfaces back and closes the device; returns when no call
    // is inside and no completion runs. Harmless when closed.
    void close();

    // Starts a transfer. `done` is called once, on the event thread, without any lock. False when it cannot be started,
    // and `done` is not called.
    bool start(const transfer_order& order, ports::usb_completion done);
    // Ends what is pending on this endpoint, and returns when it has ended. Not from a completion.
    void cancel(std::uint8_t endpoint);
    void cancel_all();
    // Whether anything is pending but control transfers.
    bool busy();

    // Claims an interface, which takes it from the system's driver; ok when it is claimed already.
    ports::port_status claim(std::uint8_t interface);
    bool has_claimed(std::uint8_t interface);
    // Gives every claimed interface back to the system's driver.
    void release_all();

    // The status of `call(handle)`, a call of libusb that returns when the device has answered; none of the locks is
    // held.
    template <class Call>
    ports::port_status with_handle(Call call) {
        libusb_device_handle* const handle = enter();
        if (handle == nullptr)
            return gone() ? ports::port_status::gone : ports::port_status::failed;
        const int result = call(handle);
        leave();
        return status_of(result);
    }

    bool gone() const { return gone_; }
    // The device is unplugged: what is pending ends as gone.
    void unplugged();

  private:
    struct flight;

    static void LIBUSB_CALL on_end(libusb_transfer* transfer);
    libusb_device_handle* enter();
    void leave();
    ports::usb_result result_of(const libusb_transfer& transfer) const;
    void cancel_where(const std::function<bool(const flight&)>& which);

    const device_reference device_;
    std::atomic<bool> gone_{false};
    std::mutex mutex_; // guards what follows; in no completion and no blocking call
    std::condition_variable changed_;
    libusb_device_handle* handle_ = nullptr;
    bool closing_ = false;
    unsigned inside_ = 0; // calls with the handle
    std::list<std::unique_ptr<flight>> pending_;
    std::uint64_t started_ = 0; // flights ever
    std::vector<std::uint8_t> claimed_;
};

} // namespace jorvet::usb
