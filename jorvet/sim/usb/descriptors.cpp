// Building descriptors: fields in the order of the bus, lengths and counts filled in afterwards.
#include "jorvet/sim/usb/descriptors.h"

#include <algorithm>

#include "jorvet/sim/usb/usb_numbers.h"

namespace jorvet::sim {

using ports::usb_speed;

namespace {

constexpr std::uint8_t vendor_specific = 0xFF;
constexpr std::uint8_t bus_powered = 0x80;
constexpr std::uint8_t power_units = 50;

struct speed_facts {
    std::uint16_t bcd_usb;
    std::uint8_t packet_size_0; // at SuperSpeed the exponent of 2
    std::uint16_t bulk, interrupt, isochronous;
    std::uint8_t interval;
    std::uint8_t bulk_burst; // packets of a burst minus one; only at SuperSpeed
};

const speed_facts& facts_of(usb_speed speed) {
    static const speed_facts full{0x0110, 64, 64, 64, 1023, 1, 0};
    static const speed_facts high{0x0200, 64, 512, 1024, 0x1400, 4, 0}; // isochronous: three packets of 1024
    static const speed_facts super{0x0300, 9, 1024, 1024, 1024, 4, 15};
    switch (speed) {
    case usb_speed::full:
        return full;
    case usb_speed::high:
        return high;
    case usb_speed::super:
        break;
    }
    return super;
}

// A sequence of descriptors. Each begins with its length and its type.
class descriptor_builder {
  public:
    descriptor_builder& begin(std::uint8_t type) {
        start_ = bytes_.size();
        return u8(0).u8(type);
    }
    descriptor_builder& u8(unsigned value) {
        bytes_.push_back(static_cast<std::uint8_t>(value));
        return *this;
    }
    descriptor_builder& u16(unsigned value) { return u8(value & 0xFF).u8(value >> 8 & 0xFF); }
    descriptor_builder& u32(std::uint32_t value) { return u16(value & 0xFFFF).u16(value >> 16); }
    descriptor_builder& text(const std::string& text, std::size_t size) {
        for (std::size_t i = 0; i < size; ++i)
            u8(i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0u);
        return *this;
    }
    void end() { bytes_[start_] = static_cast<std::uint8_t>(bytes_.size() - start_); }
    void count(std::size_t field) { ++bytes_[field]; }
    std::size_t size() const { return bytes_.size(); }
    byte_vector take() { return std::move(bytes_); }
    // Returns all of them, with the total length in the third and fourth byte.
    byte_vector take_with_total() {
        bytes_[usb::total_length] = static_cast<std::uint8_t>(bytes_.size());
        bytes_[usb::total_length + 1] = static_cast<std::uint8_t>(bytes_.size() >> 8);
        return take();
    }

  private:
    byte_vector bytes_;
    std::size_t start_ = 0;
};

enum string_index : std::uint8_t { no_string, manufacturer_string, product_string, serial_number_string };

byte_vector device_descriptor(const speed_facts& facts, std::uint16_t vendor_id, std::uint16_t product_id) {
    descriptor_builder builder;
    builder.begin(usb::device_descriptor).u16(facts.bcd_usb).u8(0).u8(0).u8(0).u8(facts.packet_size_0);
    builder.u16(vendor_id).u16(product_id).u16(0x0100);
    builder.u8(manufacturer_string).u8(product_string).u8(serial_number_string).u8(1).end();
    return builder.take();
}

// The interface of the board, one alternate setting after the other.
class settings_builder {
  public:
    explicit settings_builder(const speed_facts& facts) : facts_(facts) {
        builder_.begin(usb::configuration_descriptor).u16(0).u8(1).u8(1).u8(no_string).u8(bus_powered);
        builder_.u8(power_units).end();
    }

    settings_builder& setting(std::uint8_t number) {
        endpoint_count_ = builder_.size() + usb::interface_endpoint_count;
        builder_.begin(usb::interface_descriptor).u8(0).u8(number).u8(0).u8(vendor_specific).u8(0).u8(0);
        builder_.u8(no_string).end();
        return *this;
    }

    // A pair of endpoints, from the device and to it.
    settings_builder& pair(std::uint8_t in, std::uint8_t out, endpoint_kind kind, std::uint16_t packet_size,
                           std::uint8_t burst) {
        for (const std::uint8_t address : {in, out})
            endpoint(address, kind, packet_size, burst);
        return *this;
    }

    settings_builder& bulk_pair() { return pair(0x81, 0x02, endpoint_kind::bulk, facts_.bulk, facts_.bulk_burst); }

    byte_vector take() { return builder_.take_with_total(); }

  private:
    void endpoint(std::uint8_t address, endpoint_kind kind, std::uint16_t packet_size, std::uint8_t burst) {
        const bool periodic = kind != endpoint_kind::bulk;
        builder_.count(endpoint_count_);
        builder_.begin(usb::endpoint_descriptor).u8(address).u8(static_cast<std::uint8_t>(kind)).u16(packet_size);
        builder_.u8(periodic ? facts_.interval : 0u).end();
        if (facts_.bulk_burst > 0)
            builder_.begin(usb::companion_descriptor).u8(burst).u8(0).u16(periodic ? packet_size : 0u).end();
    }

    const speed_facts& facts_;
    descriptor_builder builder_;
    std::size_t endpoint_count_ = 0; // where that of the setting stands
};

byte_vector configuration_descriptor(const speed_facts& facts) {
    settings_builder builder(facts);
    builder.setting(0).bulk_pair();
    builder.setting(1).bulk_pair();
    builder.pair(0x83, 0x04, endpoint_kind::interrupt, facts.interrupt, 0);
    builder.pair(0x85, 0x06, endpoint_kind::isochronous, facts.isochronous, 0);
    return builder.take();
}

// USB 2.0 extension (link power management), SuperSpeed capability (full speed and up; exit latencies 10 and 2047
// microseconds) and container identifier, which is the beginning of the serial number.
byte_vector bos_descriptor(const std::string& serial_number) {
    constexpr std::size_t capability_count = 4;
    descriptor_builder builder;
    builder.begin(usb::bos_descriptor).u16(0).u8(0).end();
    const auto begin = [&](std::uint8_t capability) -> descriptor_builder& {
        builder.count(capability_count);
        return builder.begin(usb::capability_descriptor).u8(capability);
    };
    begin(usb::usb20_extension).u32(2).end();
    begin(usb::super_speed_capability).u8(0).u16(0x000E).u8(1).u8(10).u16(2047).end();
    begin(usb::container_id).u8(0).text(serial_number, 16).end();
    return builder.take_with_total();
}

} // namespace

usb_descriptors board_descriptors(usb_speed speed, std::uint16_t vendor_id, std::uint16_t product_id,
                                  const std::string& serial_number) {
    const speed_facts& facts = facts_of(speed);
    std::u16string serial;
    for (const char character : serial_number)
        serial += static_cast<unsigned char>(character);
    usb_descriptors result;
    result.device = device_descriptor(facts, vendor_id, product_id);
    result.configurations = {configuration_descriptor(facts)};
    if (speed == usb_speed::super)
        result.bos = bos_descriptor(serial_number);
    result.languages = {{0x0407, {u"Jorvet", u"Simulierte USB-Karte", serial}},
                        {0x0409, {u"Jorvet", u"Simulated USB board", serial}}};
    return result;
}

} // namespace jorvet::sim
