// What a simulated controller does between host and board: transfers on its endpoints, the queue of the board's bytes,
// plans and delays. The port's operations are in controller.h.
//
// Locks: the trace's, held while it runs, is taken before `mutex`, which guards everything else. Completions are called
// with `mutex` held; the board, the trace and the control handler are called without it. The board's own order lock is
// taken before both. A transfer that the board or the handler works on is taken out of its endpoint in the meantime, so
// that later transfers wait for their turn and no thread waits for another.
#pragma once

#include <mutex>

#include "jorvet/sim/board/simulated_device.h"
#include "jorvet/sim/support/byte_pieces.h"
#include "jorvet/sim/support/link_trace.h"
#include "jorvet/sim/support/shared_callee.h"
#include "jorvet/sim/support/timeline.h"
#include "jorvet/sim/usb/controller_options.h"
#include "jorvet/sim/usb/device_model.h"

namespace jorvet::sim {

using state_lock = std::unique_lock<std::mutex>;

class controller_core : public std::enable_shared_from_this<controller_core> {
  public:
    explicit controller_core(const controller_options& given);

    void start(std::uint8_t address, started_transfer transfer, unsigned timeout_ms);
    void add_plan(std::uint8_t address, const transfer_plan& plan);
    void to_host(byte_view piece);
    // Let the endpoint at an address, or every endpoint, do what it can do now.
    void serve(state_lock& lock, std::uint8_t address);
    void serve_all(state_lock& lock);
    void end_all(ports::usb_end end);
    // Aborts the transfers of an endpoint of the selected setting, as planned. With `mutex` held.
    ports::port_status abort(std::uint8_t address);
    void allow(std::optional<std::size_t> bytes);

    // Returns `use(lock)`, or gone when the device is unplugged.
    template <class Use>
    ports::port_status if_there(Use use) {
        state_lock lock(mutex);
        return gone ? ports::port_status::gone : use(lock);
    }

    const controller_options options;
    const ports::usb_identity identity;

    mutable std::mutex mutex;
    bool gone = false;
    bool refusing = false;
    bool sends_zero_length_packets = true;
    controller_state state; // but for `alternate`, which the model knows
    usb_device_model model;
    byte_pieces to_host_queue;
    abort_plan aborts{0, 0};
    unsigned aborts_planned_at = 0;       // number of aborts before
    std::optional<std::size_t> allowance; // how many more bytes the board takes, if that is limited
    std::shared_ptr<simulated_device> successor;

    link_trace trace;
    shared_callee<std::shared_ptr<const control_handler>> handler;
    task_timeline timeline; // delays and time-outs; its tasks hold weak pointers to this object
    simulated_board board;  // last: its thread ends before anything else goes

  private:
    template <class Work>
    void run_at(task_timeline::clock::time_point due, Work work);
    void serve_at(std::optional<task_timeline::clock::time_point> due, std::uint8_t address);
    void serve_inbound(simulated_endpoint& endpoint, byte_view& arriving);
    bool serve_outbound(state_lock& lock, simulated_endpoint& endpoint);
    bool serve_control(state_lock& lock, simulated_endpoint& endpoint);
    void end_aborted(std::uint8_t address, std::uint64_t up_to);
    void pass_on(state_lock& lock, byte_view bytes);
    bool suspended() const { return state.power == ports::usb_power::suspended; }
    std::optional<byte_vector> answer(state_lock& lock, const started_transfer& transfer);

    std::uint64_t last_id_ = 0;
};

} // namespace jorvet::sim
