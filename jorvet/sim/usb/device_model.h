// The simulated controller as the bus knows it: its descriptors, its configuration and alternate setting, its
// endpoints, and its answers to the standard requests. No thread, no lock.
#pragma once

#include <array>

#include "jorvet/sim/usb/endpoint.h"

namespace jorvet::sim {

class UsbDeviceModel {
  public:
    explicit UsbDeviceModel(UsbDescriptors descriptors); // in alternate setting 0 of the first configuration

    // The endpoint with that address (0: control), null when the selected setting has none.
    UsbEndpoint* find(std::uint8_t address);
    // The place of an endpoint, which it may have in another setting.
    UsbEndpoint& place_of(std::uint8_t address);
    // The first bulk endpoint of each direction, null when there is none.
    UsbEndpoint* board_in() const { return board_in_; }
    UsbEndpoint* board_out() const { return board_out_; }

    std::uint8_t alternate() const { return alternate_; }
    // Selects a setting of the first interface; what is pending on its endpoints ends as cancelled, what was halted is
    // not any more. False when there is no such setting.
    bool select_alternate(std::uint8_t setting);

    // Carries a standard request out. The data for the host, as far as they go; nothing for a stall.
    std::optional<Bytes> answer(const platform::UsbSetup& setup);

    // The addresses that endpoints may have, 0 among them.
    static const std::vector<std::uint8_t>& addresses();

  private:
    std::optional<Bytes> descriptor(unsigned type, std::size_t index, std::uint16_t language) const;
    std::optional<Bytes> string(std::size_t index, std::uint16_t language) const;
    bool set_halted(const platform::UsbSetup& setup, bool halted);
    bool configure(std::uint16_t value);
    bool has_setting(std::uint16_t setting) const;
    void clear_endpoints();
    void make_endpoints();

    const UsbDescriptors descriptors_;
    const Bytes* configuration_ = nullptr; // the selected one, null for none
    std::uint8_t alternate_ = 0;
    std::array<UsbEndpoint, 32> endpoints_; // by number, those from the device behind the others
    UsbEndpoint* board_in_ = nullptr;
    UsbEndpoint* board_out_ = nullptr;
};

} // namespace jorvet::sim
