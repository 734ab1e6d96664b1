// A simulated USB controller with a board behind its bulk endpoints, plugged into the platform's USB driver.
//
// The board is behind the first bulk endpoint of each direction that the selected alternate setting has. What the host
// sends goes to the board at once. What the board sends in one piece ends a transfer: the oldest that is pending, or
// the next one, for which the piece waits in a queue. A piece that is longer than the transfer's room goes on in the
// transfer after it. No byte is lost by cancelled transfers, but those that do not fit into the queue are.
//
// Other endpoints: interrupt transfers from the device wait until a plan gives them data, isochronous ones end at once,
// empty without a plan; transfers to the device are taken. Endpoint 0 answers the standard requests.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/board/simulated_device.h"
#include "jorvet/sim/usb/descriptors.h"

namespace jorvet::sim {

class BootLoader;

struct ControllerOptions {
    // Of the controller and of the board behind it. Different for all that are plugged in with the same two numbers
    // below; cut after 127 characters, '\\' and '#' become '_'.
    std::string serial_number = "JV-1001";
    std::string name = "Jorvet USB controller"; // cut after 255 characters, as the next
    std::string friendly_name = "Jorvet simulated USB board";
    std::uint16_t vendor_id = 0x04B4;
    std::uint16_t product_id = 0x00F1;
    platform::UsbSpeed speed = platform::UsbSpeed::high;
    std::uint8_t bus_address = 1;
    std::optional<UsbDescriptors> descriptors;         // board_descriptors() without
    std::size_t queue_capacity = std::size_t{4} << 20; // bytes
    std::shared_ptr<BootLoader> boot_loader;           // answers vendor requests, if there is one
};

// How one transfer departs from what the device would do by itself.
struct TransferPlan {
    // `stalled` halts a bulk or interrupt endpoint until it is reset: its transfers end so, too.
    platform::UsbEnd end = platform::UsbEnd::ok;
    // Ends once so many bytes have moved; a transfer from the device no later than with the piece that comes next.
    // Without it, an end other than ok comes at once and without bytes.
    std::optional<std::size_t> after;
    bool silent = false; // stays pending until the host ends it
    // Comes from the device at once instead of what it has; babble when it is more than there is room for. An answer
    // on endpoint 0.
    std::optional<Bytes> data;
    std::chrono::milliseconds delay{0}; // until all this, and whatever waits behind it
};

// Answers a vendor or class request: the data for the host (none of them if the data go to the device), or a stall by
// giving nothing. Called on any thread, one call at a time.
using ControlHandler =
    std::function<std::optional<Bytes>(const platform::UsbSetup& setup, const Bytes& data_to_device)>;

// For a test to look at.
struct ControllerState {
    unsigned opens = 0;   // so far
    unsigned handles = 0; // open now
    unsigned aborts = 0, endpoint_resets = 0, port_resets = 0;
    std::uint8_t alternate = 0;
    platform::UsbPower power = platform::UsbPower::resumed;
    std::size_t overrun_bytes = 0; // lost because the queue was full
};

class JV_SIM_API Controller final : public platform::UsbPort,
                                    public Plug,
                                    public std::enable_shared_from_this<Controller>,
                                    private Link {
  public:
    // Makes a controller with a board and plugs it in. It stays plugged in until unplug(), also when the pointer goes.
    static std::shared_ptr<Controller> plug_in(const ControllerOptions& options = {});
    ~Controller() override;

    ControllerState state() const;
    void refuse_open(bool refuse);
    // How one transfer on an endpoint (0: control) goes: the oldest pending one that has no plan yet, or else the next
    // to be started that has none.
    void plan_transfer(std::uint8_t endpoint, const TransferPlan& plan);
    // In place of the boot loader. Without either, vendor and class requests are stalled. Returns once no call of the
    // handler before is under way.
    void set_control_handler(ControlHandler handler);
    std::shared_ptr<BootLoader> boot_loader() const; // that of the options

    // Plug. A transfer stays pending as long as the board does not take its bytes.
    Board& board() override;
    void set_trace(Trace trace) override;
    void unplug() override;
    bool plugged_in() const override;
    void stall_writes_after(std::size_t bytes) override;
    void accept_writes() override;
    std::shared_ptr<Plug>
    successor() const override; // after cycle_port(): with the same options and a board of its own

    // UsbPort. Transfers stay pending while the device is suspended.
    platform::UsbIdentity identity() const override;
    platform::PortStatus open() override;
    void close() override;
    void control(const platform::UsbSetup& setup, const std::uint8_t* data, unsigned timeout_ms,
                 platform::UsbCompletion done) override;
    void submit(const platform::UsbTransfer& transfer, platform::UsbCompletion done) override;
    platform::PortStatus abort(std::uint8_t endpoint) override;
    platform::PortStatus reset_endpoint(std::uint8_t endpoint) override;
    platform::PortStatus select_alternate(std::uint8_t setting) override;
    platform::PortStatus alternate(std::uint8_t* setting) override;
    platform::PortStatus speed(platform::UsbSpeed* speed) override;
    platform::PortStatus bus_address(std::uint8_t* address) override;
    platform::PortStatus power(platform::UsbPower* power) override;
    platform::PortStatus set_power(platform::UsbPower power) override;
    platform::PortStatus reset_port() override;
    platform::PortStatus cycle_port() override;

  private:
    explicit Controller(const ControllerOptions& options);
    void to_host(const std::uint8_t* bytes, std::size_t count) override;
    bool leave_bus();

    class Impl;
    std::shared_ptr<Impl> impl_; // shared with delayed ends of transfers
};

} // namespace jorvet::sim
