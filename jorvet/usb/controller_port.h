// A USB controller on the bus. Nothing is claimed by opening it: the first transfer on an endpoint, or the selection of
// a setting, claims the interface, and it is given back one second after the last transfer has ended, so that an idle
// program keeps no other one out.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "jorvet/ports/ports.h"
#include "jorvet/usb/open_device.h"

namespace jorvet::usb {

class controller_port final : public ports::usb_port, public std::enable_shared_from_this<controller_port> {
  public:
    // `place` as the system writes it.
    controller_port(libusb_device* device, ports::usb_identity identity, std::string place);

    ports::usb_identity identity() const override { return identity_; }
    ports::port_status open() override;
    void close() override;
    void control(const ports::usb_setup& setup, const std::uint8_t* data, unsigned timeout_ms,
                 ports::usb_completion done) override;
    void submit(const ports::usb_transfer& transfer, ports::usb_completion done) override;
    ports::port_status abort(std::uint8_t endpoint) override;
    ports::port_status reset_endpoint(std::uint8_t endpoint) override;
    ports::port_status select_alternate(std::uint8_t setting) override;
    ports::port_status alternate(std::uint8_t* setting) override;
    ports::port_status speed(ports::usb_speed* speed) override;
    ports::port_status bus_address(std::uint8_t* address) override;
    ports::port_status power(ports::usb_power* power) override;
    ports::port_status set_power(ports::usb_power power) override;
    ports::port_status reset_port() override;
    ports::port_status cycle_port() override;

    void unplugged() { device_->unplugged(); }
    // Another process has its interface.
    bool in_use_elsewhere() const;

  private:
    struct endpoint {
        std::uint8_t interface = 0;
        libusb_transfer_type type = LIBUSB_TRANSFER_TYPE_BULK;
        unsigned packet_length = 0; // of an isochronous transfer
    };

    ports::port_status presence() const;
    ports::usb_end end_of_unstarted() const;
    void find_endpoints();
    bool find(std::uint8_t address, endpoint& found);
    ports::port_status claim(std::uint8_t interface);
    void plan_release();
    void release_if_idle(unsigned started);

    const ports::usb_identity identity_;
    const std::string place_;
    const std::shared_ptr<open_device> device_;
    std::mutex opening_; // one opening or closing at a time
    unsigned opens_ = 0; // guarded by it
    std::mutex mutex_;   // guards what follows
    std::uint8_t alternate_ = 0;
    std::map<std::uint8_t, endpoint> endpoints_; // of the selected settings, by address
    std::atomic<unsigned> uses_{0};              // transfers and claims ever: whether it was idle for a while
};

} // namespace jorvet::usb
