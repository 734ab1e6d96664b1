// A simulated bridge as its chip looks on USB: one interface with a bulk endpoint in each direction, settings by vendor
// requests, two bytes of status at the beginning of each packet, and an otherwise empty one when nothing has come for
// the time of the latency timer.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "jorvet/sim/bridge.h"

namespace jorvet::sim {

class bridge_chip_model final : public ports::usb_port {
  public:
    static constexpr std::uint8_t in = 0x81, out = 0x02;
    static constexpr std::size_t packet_size = 512;

    explicit bridge_chip_model(std::shared_ptr<simulated_bridge> bridge);
    ~bridge_chip_model() override;

    // The device and configuration descriptors of a chip with these vendor and product IDs, one behind the other.
    static byte_vector descriptors(std::uint32_t id);

    ports::usb_identity identity() const override { return {}; }
    // The bridge itself is open while its interface is claimed.
    void claimed();
    void released();

    ports::port_status open() override { return ports::port_status::ok; }
    void close() override;
    void control(const ports::usb_setup& setup, const std::uint8_t* data, unsigned timeout_ms,
                 ports::usb_completion done) override;
    void submit(const ports::usb_transfer& transfer, ports::usb_completion done) override;
    ports::port_status abort(std::uint8_t endpoint) override;
    ports::port_status reset_endpoint(std::uint8_t) override { return ports::port_status::ok; }
    ports::port_status select_alternate(std::uint8_t setting) override;
    ports::port_status alternate(std::uint8_t* setting) override;
    ports::port_status speed(ports::usb_speed* speed) override;
    ports::port_status bus_address(std::uint8_t*) override { return ports::port_status::refused; }
    ports::port_status power(ports::usb_power*) override { return ports::port_status::refused; }
    ports::port_status set_power(ports::usb_power) override { return ports::port_status::refused; }
    ports::port_status reset_port() override { return bridge_->reset(); }
    ports::port_status cycle_port() override { return ports::port_status::refused; }

  private:
    struct inbound {
        std::size_t room;
        ports::usb_completion done;
    };
    struct outbound {
        byte_vector bytes;
        ports::usb_completion done;
    };
    using lock = std::unique_lock<std::mutex>;

    ports::port_status set(const ports::usb_setup& setup);
    void serve();
    void serve_inbound(lock& held, bool idle);
    void write_all();

    const std::shared_ptr<simulated_bridge> bridge_;
    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::deque<inbound> in_;
    std::deque<outbound> out_;
    unsigned latency_ms_ = 16;
    unsigned news_ = 0; // notifications of the bridge
    bool aborting_out_ = false;
    bool writing_ = false;
    bool stopped_ = false;
    std::thread server_, writer_; // of inbound and outbound transfers
};

} // namespace jorvet::sim
