// The controller's operations as a port and as a simulated device. See controller_core.h for the locks.
#include "jorvet/sim/usb/controller.h"

#include <utility>

#include "jorvet/sim/usb/boot_loader.h"
#include "jorvet/sim/usb/controller_core.h"

namespace jorvet::sim {

using ports::port_status;
using ports::usb_end;
using ports::usb_identity;
using ports::usb_power;
using ports::usb_setup;

simulated_controller::simulated_controller(const controller_options& options)
    : impl_(std::make_shared<controller_core>(options)) {
    impl_->board.attach_link(this);
    if (options.boot_loader)
        set_control_handler([loader = options.boot_loader](const usb_setup& setup, const byte_vector& data_to_device) {
            return loader->answer(setup, data_to_device);
        });
}

simulated_controller::~simulated_controller() {
    impl_->board.attach_link(nullptr);
}

std::shared_ptr<simulated_controller> simulated_controller::plug_in(const controller_options& options) {
    std::shared_ptr<simulated_controller> controller(new simulated_controller(options));
    ports::attach(controller);
    return controller;
}

controller_state simulated_controller::state() const {
    const state_lock lock(impl_->mutex);
    controller_state result = impl_->state;
    result.alternate = impl_->model.alternate();
    return result;
}

void simulated_controller::refuse_open(bool refuse) {
    const state_lock lock(impl_->mutex);
    impl_->refusing = refuse;
}

void simulated_controller::send_zero_length_packets(bool send) {
    const state_lock lock(impl_->mutex);
    impl_->sends_zero_length_packets = send;
}

void simulated_controller::plan_transfer(std::uint8_t endpoint, const transfer_plan& plan) {
    impl_->add_plan(endpoint, plan);
}

void simulated_controller::plan_aborts(const abort_plan& plan) {
    const state_lock lock(impl_->mutex);
    impl_->aborts = plan;
    impl_->aborts_planned_at = impl_->state.aborts;
}

void simulated_controller::set_control_handler(control_handler handler) {
    impl_->handler.replace(handler ? std::make_shared<const control_handler>(std::move(handler)) : nullptr);
}

std::shared_ptr<fx3_boot_loader> simulated_controller::boot_loader() const {
    return impl_->options.boot_loader;
}

simulated_board& simulated_controller::board() {
    return impl_->board;
}

void simulated_controller::set_trace(trace_function trace) {
    impl_->trace.set(std::move(trace));
}

// True when this call did it.
bool simulated_controller::leave_bus() {
    // The device list may hold the last reference. This one keeps the controller alive until the function returns; then
    // the controller is destroyed, possibly on the board's own thread.
    const std::shared_ptr<simulated_controller> self = weak_from_this().lock();
    {
        const state_lock lock(impl_->mutex);
        if (std::exchange(impl_->gone, true))
            return false;
        impl_->to_host_queue.clear();
    }
    if (self) // before transfers end as gone, so that nobody still finds the device after that
        ports::detach(self);
    const state_lock lock(impl_->mutex);
    impl_->end_all(usb_end::gone);
    return true;
}

void simulated_controller::unplug() {
    leave_bus();
}

bool simulated_controller::plugged_in() const {
    const state_lock lock(impl_->mutex);
    return !impl_->gone;
}

void simulated_controller::stall_writes_after(std::size_t bytes) {
    impl_->allow(bytes);
}

void simulated_controller::accept_writes() {
    impl_->allow(std::nullopt);
}

std::shared_ptr<simulated_device> simulated_controller::successor() const {
    const state_lock lock(impl_->mutex);
    return impl_->successor;
}

usb_identity simulated_controller::identity() const {
    return impl_->identity;
}

port_status simulated_controller::open() {
    return impl_->if_there([this](state_lock&) {
        if (impl_->refusing)
            return port_status::refused;
        ++impl_->state.opens;
        ++impl_->state.handles;
        return port_status::ok;
    });
}

void simulated_controller::close() {
    const state_lock lock(impl_->mutex);
    if (impl_->state.handles > 0 && --impl_->state.handles == 0)
        impl_->end_all(usb_end::cancelled);
}

void simulated_controller::control(const usb_setup& setup, const std::uint8_t* data, unsigned timeout_ms,
                                   ports::usb_completion done) {
    started_transfer transfer;
    transfer.setup = setup;
    transfer.length = setup.length;
    transfer.done = std::move(done);
    if (data != nullptr)
        transfer.rest = {data, setup.length};
    impl_->start(0, std::move(transfer), timeout_ms);
}

void simulated_controller::submit(const ports::usb_transfer& request, ports::usb_completion done) {
    started_transfer transfer;
    transfer.length = request.length;
    transfer.packets = request.packets;
    transfer.done = std::move(done);
    if (request.data != nullptr)
        transfer.rest = {request.data, request.length};
    impl_->start(request.endpoint, std::move(transfer), 0);
}

port_status simulated_controller::abort(std::uint8_t endpoint) {
    return impl_->if_there([&](state_lock&) {
        if (impl_->model.find(endpoint) == nullptr)
            return port_status::bad_value;
        return impl_->abort(endpoint);
    });
}

port_status simulated_controller::reset_endpoint(std::uint8_t endpoint) {
    return impl_->if_there([&](state_lock&) {
        if (impl_->model.find(endpoint) == nullptr)
            return port_status::bad_value;
        ++impl_->state.endpoint_resets;
        impl_->model.place_of(endpoint).set_halted(false);
        return port_status::ok;
    });
}

port_status simulated_controller::select_alternate(std::uint8_t setting) {
    return impl_->if_there(
        [&](state_lock&) { return impl_->model.select_alternate(setting) ? port_status::ok : port_status::bad_value; });
}

port_status simulated_controller::alternate(std::uint8_t* setting) {
    return impl_->if_there([&](state_lock&) { return *setting = impl_->model.alternate(), port_status::ok; });
}

port_status simulated_controller::speed(ports::usb_speed* speed) {
    return impl_->if_there([&](state_lock&) { return *speed = impl_->options.speed, port_status::ok; });
}

port_status simulated_controller::bus_address(std::uint8_t* address) {
    return impl_->if_there([&](state_lock&) { return *address = impl_->options.bus_address, port_status::ok; });
}

port_status simulated_controller::power(usb_power* power) {
    return impl_->if_there([&](state_lock&) { return *power = impl_->state.power, port_status::ok; });
}

port_status simulated_controller::set_power(usb_power power) {
    return impl_->if_there([&](state_lock& lock) {
        impl_->state.power = power;
        impl_->serve_all(lock);
        return port_status::ok;
    });
}

port_status simulated_controller::reset_port() {
    return impl_->if_there([&](state_lock&) {
        ++impl_->state.port_resets;
        impl_->end_all(usb_end::cancelled);
        for (const std::uint8_t address : usb_device_model::addresses())
            impl_->model.place_of(address).set_halted(false);
        return port_status::ok;
    });
}

port_status simulated_controller::cycle_port() {
    const std::shared_ptr<simulated_controller> self = weak_from_this().lock(); // as in leave_bus()
    if (!leave_bus())
        return port_status::gone;
    auto next = plug_in(impl_->options);
    const state_lock lock(impl_->mutex);
    impl_->successor = std::move(next);
    return port_status::ok;
}

void simulated_controller::to_host(const std::uint8_t* bytes, std::size_t count) {
    if (!plugged_in())
        return;
    const std::shared_ptr<controller_core> self = impl_; // the trace may pull the plug, which may destroy this object
    self->trace.call(link_direction::to_host, bytes, count);
    self->to_host({bytes, count});
}

} // namespace jorvet::sim
