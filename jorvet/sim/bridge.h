// A simulated serial bridge with a board behind it, plugged into the platform's D2XX driver.
//
// The bridge passes the host's bytes to the board at once, and keeps the board's bytes in a receive queue until the
// driver reads them. What does not fit into the queue is lost and counted, as on the real chip.
#pragma once

#include <functional>
#include <memory>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

struct bridge_options {
    std::string serial_number = "JV-0001"; // of the bridge and of the board behind it; cut after 15 characters
    std::string description = "Jorvet simulated board"; // cut after 63 characters
    std::uint32_t type = 8;                             // kind of chip
    std::uint32_t id = 0x04036014;                      // USB vendor and product ID
    std::uint32_t location = 0x11;
    std::size_t queue_capacity = std::size_t{4} << 20; // bytes
};

class JV_SIM_API simulated_bridge final : public ports::bridge_port,
                                          public simulated_device,
                                          public std::enable_shared_from_this<simulated_bridge>,
                                          private board_link {
  public:
    // Makes a bridge with a board and plugs it in. It stays plugged in until unplug(), even without the pointer.
    static std::shared_ptr<simulated_bridge> plug_in(const bridge_options& options = {});
    ~simulated_bridge() override;

    unsigned opens() const; // how often the driver has opened it
    // What the driver set, purged and reset since it opened the bridge last, and whether it closed it, in order:
    // "reset, purge tx, purge rx, baud rate 115200, closed, ". For tests; ends after about 1,000 characters.
    std::string calls() const;
    std::size_t overrun_bytes() const; // lost because the receive queue was full

    // simulated_device. Bytes that the board does not take block a write until its time-out.
    simulated_board& board() override;
    void set_trace(trace_function trace) override;
    void unplug() override;
    bool plugged_in() const override;
    void stall_writes_after(std::size_t bytes) override;
    void accept_writes() override;

    // bridge_port
    ports::bridge_identity identity() const override;
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

  private:
    explicit simulated_bridge(const bridge_options& options);
    void to_host(const std::uint8_t* bytes, std::size_t count) override;

    class impl;
    std::unique_ptr<impl> impl_;
};

} // namespace jorvet::sim
