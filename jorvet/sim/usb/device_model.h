// The simulated controller as seen from the bus: its descriptors, its configuration and alternate setting, its
// endpoints, and its answers to the standard requests. No thread, no lock.
#pragma once

#include <array>

#include "jorvet/sim/usb/descriptors.h"
#include "jorvet/sim/usb/endpoint.h"

namespace jorvet::sim {

class usb_device_model {
  public:
    explicit usb_device_model(usb_descriptors descriptors); // in alternate setting 0 of the first configuration

    // The endpoint with that address (0: control), null when the selected setting has none.
    simulated_endpoint* find(std::uint8_t address);
    // The endpoint object for an address, even when the selected setting lacks that endpoint.
    simulated_endpoint& place_of(std::uint8_t address);
    // The first bulk endpoint of each direction, null when there is none.
    simulated_endpoint* board_in() const { return board_in_; }
    simulated_endpoint* board_out() const { return board_out_; }

    std::uint8_t alternate() const { return alternate_; }
    // Selects a setting of the first interface; pending transfers on its endpoints end as cancelled, and halts are
    // cleared. False when there is no such setting.
    bool select_alternate(std::uint8_t setting);

    // Carries out a standard request. Returns the data for the host, cut to the requested length; nothing for a stall.
    std::optional<byte_vector> answer(const ports::usb_setup& setup);

    // The addresses that endpoints may have, 0 among them.
    static const std::vector<std::uint8_t>& addresses();

  private:
    std::optional<byte_vector> descriptor(unsigned type, std::size_t index, std::uint16_t language) const;
    std::optional<byte_vector> string(std::size_t index, std::uint16_t language) const;
    bool set_halted(const ports::usb_setup& setup, bool halted);
    bool configure(std::uint16_t value);
    bool has_setting(std::uint16_t setting) const;
    void clear_endpoints();
    void make_endpoints();

    const usb_descriptors descriptors_;
    const byte_vector* configuration_ = nullptr; // the selected one, null for none
    std::uint8_t alternate_ = 0;
    std::array<simulated_endpoint, 32> endpoints_; // by number, those from the device after the others
    simulated_endpoint* board_in_ = nullptr;
    simulated_endpoint* board_out_ = nullptr;
};

} // namespace jorvet::sim
