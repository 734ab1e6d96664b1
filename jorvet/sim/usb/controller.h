// A simulated USB controller with a board behind its bulk endpoints, plugged into the bus.
//
// The board is behind the first bulk endpoint of each direction in the selected alternate setting. Bytes from the host
// reach the board at once. A piece of bytes that the board sends ends a transfer: the oldest pending one or, if none is
// pending, the next one; until then the piece waits in a queue. A piece that is longer than the transfer continues in
// the next transfer. Cancelled transfers lose no bytes; bytes that do not fit into the queue are lost.
//
// On other endpoints, interrupt transfers from the device wait until a plan provides data, isochronous ones end at
// once, empty without a plan, and the device accepts whatever it is sent. Endpoint 0 answers the standard requests.
#pragma once

#include <memory>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/board/simulated_device.h"
#include "jorvet/sim/usb/controller_options.h"
#include "jorvet/sim/usb/transfer_plan.h"

namespace jorvet::sim {

class controller_core;

class JV_SIM_API simulated_controller final : public ports::usb_port,
                                              public simulated_device,
                                              public std::enable_shared_from_this<simulated_controller>,
                                              private board_link {
  public:
    // Makes a controller with a board and plugs it in. It stays plugged in until unplug(), even without the pointer.
    static std::shared_ptr<simulated_controller> plug_in(const controller_options& options = {});
    ~simulated_controller() override;

    controller_state state() const;
    void refuse_open(bool refuse);
    // Whether the board sends a zero-length packet after a piece that fills its last packet, so that the piece ends its
    // transfer. Initially it does. If it does not, the transfer stays pending and continues with the next piece.
    void send_zero_length_packets(bool send);
    // How one transfer on an endpoint (0: control) is changed: the oldest pending one that has no plan yet, or else the
    // next to be started that has none.
    void plan_transfer(std::uint8_t endpoint, const transfer_plan& plan);
    void plan_aborts(const abort_plan& plan);
    // In place of the boot loader. Without either, vendor and class requests are stalled. Returns once no call of the
    // previous handler is in progress.
    void set_control_handler(control_handler handler);
    std::shared_ptr<fx3_boot_loader> boot_loader() const; // that of the options

    // simulated_device. A transfer stays pending as long as the board does not take its bytes.
    simulated_board& board() override;
    void set_trace(trace_function trace) override;
    void unplug() override;
    bool plugged_in() const override;
    void stall_writes_after(std::size_t bytes) override;
    void accept_writes() override;
    std::shared_ptr<simulated_device>
    successor() const override; // after cycle_port(): with the same options and a board of its own

    // usb_port. Transfers stay pending while the device is suspended.
    ports::usb_identity identity() const override;
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

  private:
    explicit simulated_controller(const controller_options& options);
    void to_host(const std::uint8_t* bytes, std::size_t count) override;
    bool leave_bus();

    std::shared_ptr<controller_core> impl_; // shared with delayed ends of transfers
};

} // namespace jorvet::sim
