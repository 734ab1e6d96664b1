// A serial bridge on the bus: one of its interfaces. Received bytes are taken from the bus all the time while it is
// open and wait here, up to a limit at which the bus waits.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "jorvet/ports/ports.h"
#include "jorvet/usb/bridge_chip.h"
#include "jorvet/usb/open_device.h"

namespace jorvet::usb {

class serial_port final : public ports::bridge_port, public std::enable_shared_from_this<serial_port> {
  public:
    // `place` as the system writes it.
    serial_port(libusb_device* device, ports::bridge_identity identity, std::string place, bridge_chip chip,
                std::uint8_t interface);

    ports::bridge_identity identity() const override { return identity_; }
    bool in_use_elsewhere() const override;
    ports::port_status open(std::function<void()> notify) override;
    void close() override;
    ports::port_status set_baud_rate(std::uint32_t bits_per_second) override;
    ports::port_status set_data_format(unsigned data_bits, unsigned stop_bits, unsigned parity) override;
    ports::port_status set_flow_control(unsigned mode, std::uint8_t xon, std::uint8_t xoff) override;
    ports::port_status set_latency_ms(unsigned milliseconds) override;
    ports::port_status set_transfer_sizes(std::uint32_t in_bytes, std::uint32_t out_bytes) override;
    ports::port_status reset() override;
    ports::port_status write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                             std::size_t* written) override;
    ports::port_status received(std::size_t* count) override;
    ports::port_status read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) override;
    ports::port_status purge(bool receive, bool transmit) override;

    void unplugged() { device_->unplugged(); }
    // Packets that told of an overrun, a parity or framing error or a break, since it was opened.
    unsigned line_errors() const { return line_errors_; }

  private:
    bool find_endpoints();
    ports::port_status ask(bridge_request request);
    void begin_receiving();
    void end_receiving();
    void receive_next();
    void on_received(const ports::usb_result& result);

    const ports::bridge_identity identity_;
    const std::string place_;
    const bridge_chip chip_;
    const std::uint8_t interface_;
    const std::shared_ptr<open_device> device_;
    std::uint8_t in_ = 0, out_ = 0; // endpoint addresses
    std::size_t packet_size_ = 64;
    std::function<void()> notify_; // set while nothing is pending
    std::atomic<std::uint32_t> in_bytes_{4096}, out_bytes_{4096};
    std::atomic<unsigned> line_errors_{0};
    std::mutex settings_; // one change of the receiving at a time
    std::mutex mutex_;    // guards what follows
    bool receiving_ = false;
    unsigned failures_ = 0;            // in a row
    unsigned waiting_ = 0;             // transfers that are not started until bytes are taken
    std::vector<std::uint8_t> unread_; // from `first_unread_` on
    std::size_t first_unread_ = 0;
};

} // namespace jorvet::usb
