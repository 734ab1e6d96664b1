// Simulated devices behind an emulated kernel: they leave the platform's list and appear in sysfs, in device events and
// as nodes of usbfs instead, where libusb finds them, so that a program can be tested through the real USB stack. By
// umockdev, whose library has to be preloaded: umockdev-wrapper PROGRAM.
//
// One emulated bus with its root hub; devices on ports from 1 on. Any thread.
#pragma once

#include <memory>
#include <string>

#include "jorvet/sim/bridge.h"
#include "jorvet/sim/usb/controller.h"

namespace jorvet::sim {

class JV_SIM_API emulated_usb {
  public:
    // The bus appears. One at a time. Throws std::runtime_error when umockdev is not preloaded.
    emulated_usb();
    ~emulated_usb();
    emulated_usb(const emulated_usb&) = delete;
    emulated_usb& operator=(const emulated_usb&) = delete;

    // Takes a device off the platform's list and plugs it in here, behind those that are there. It leaves this bus a
    // moment after its own unplug(). The place, as sysfs names it ("1-2"). A bridge is a chip of one interface.
    // std::runtime_error: no port is free, of 126.
    std::string plug_in(const std::shared_ptr<simulated_bridge>& bridge);
    std::string plug_in(const std::shared_ptr<simulated_controller>& controller);
    // Of the device at a place; std::runtime_error when there is none.
    //
    // Claims of its interfaces fail with this error (EBUSY); 0: no more.
    void fail_claim(const std::string& place, int error);
    // How many of its interfaces are claimed.
    unsigned claims(const std::string& place) const;

  private:
    class impl;
    std::unique_ptr<impl> impl_;
};

} // namespace jorvet::sim
