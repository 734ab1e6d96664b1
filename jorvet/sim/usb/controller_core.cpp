// Serving the endpoints of the simulated controller.
#include "jorvet/sim/usb/controller_core.h"

#include <algorithm>
#include <utility>

namespace jorvet::sim {

using ports::usb_end;
using ports::usb_identity;
using clock = task_timeline::clock;

namespace {

constexpr std::size_t max_serial_number = 127;
constexpr std::size_t max_name = 255;

usb_identity identity_of(const controller_options& options) {
    std::string serial_number = options.serial_number.substr(0, max_serial_number);
    const auto forbidden = [](char character) { return character == '\\' || character == '#'; };
    std::replace_if(serial_number.begin(), serial_number.end(), forbidden, '_');
    return {options.name.substr(0, max_name), options.friendly_name.substr(0, max_name), serial_number,
            options.vendor_id, options.product_id};
}

usb_descriptors descriptors_of(const controller_options& options, const usb_identity& identity) {
    if (options.descriptors)
        return *options.descriptors;
    return board_descriptors(options.speed, identity.vendor_id, identity.product_id, identity.serial_number);
}

} // namespace

controller_core::controller_core(const controller_options& given)
    : options(given), identity(identity_of(given)), model(descriptors_of(given, identity)),
      to_host_queue(given.queue_capacity), board(identity.serial_number) {}

// Runs `work(*this, lock)` on the timeline.
template <class Work>
void controller_core::run_at(clock::time_point due, Work work) {
    timeline.run_at(due, [weak = weak_from_this(), work] {
        const std::shared_ptr<controller_core> self = weak.lock();
        if (!self)
            return;
        state_lock lock(self->mutex);
        work(*self, lock);
    });
}

void controller_core::serve_at(std::optional<clock::time_point> due, std::uint8_t address) {
    if (due)
        run_at(*due, [=](controller_core& self, state_lock& lock) { self.serve(lock, address); });
}

void controller_core::start(std::uint8_t address, started_transfer transfer, unsigned timeout_ms) {
    state_lock lock(mutex);
    simulated_endpoint* const endpoint = model.find(address);
    if (gone)
        return transfer.end(usb_end::gone);
    if (state.handles == 0)
        return transfer.end(usb_end::cancelled);
    if (endpoint == nullptr)
        return transfer.end(usb_end::no_endpoint);
    const std::uint64_t id = transfer.id = ++last_id_;
    serve_at(endpoint->start(std::move(transfer), clock::now()), address);
    serve(lock, address);
    if (endpoint->keep_bytes(id) && timeout_ms > 0)
        run_at(clock::now() + std::chrono::milliseconds(timeout_ms), [=](controller_core& self, state_lock&) {
            self.model.place_of(address).end_one(id, usb_end::timed_out);
        });
}

void controller_core::add_plan(std::uint8_t address, const transfer_plan& plan) {
    state_lock lock(mutex);
    serve_at(model.place_of(address).add_plan(plan, clock::now()), address);
    serve(lock, address);
}

void controller_core::serve(state_lock& lock, std::uint8_t address) {
    simulated_endpoint& endpoint = model.place_of(address);
    byte_view nothing;
    if ((address & usb::inbound) != 0)
        return serve_inbound(endpoint, nothing);
    while (address == 0 ? serve_control(lock, endpoint) : serve_outbound(lock, endpoint)) {
    }
}

void controller_core::serve_all(state_lock& lock) {
    for (const std::uint8_t address : usb_device_model::addresses())
        serve(lock, address);
}

// Ends transfers with the waiting bytes and then with `arriving`, and removes what it used from both.
void controller_core::serve_inbound(simulated_endpoint& endpoint, byte_view& arriving) {
    const bool from_board = &endpoint == model.board_in();
    while (!suspended()) {
        const bool from_queue = from_board && !to_host_queue.empty();
        const byte_view source = from_queue ? to_host_queue.front() : arriving;
        const std::optional<std::size_t> taken = endpoint.end_inbound(source, clock::now(), !sends_zero_length_packets);
        if (!taken)
            return;
        if (from_queue)
            to_host_queue.pop(*taken);
        else
            arriving.skip(*taken);
    }
}

// Lets the device take bytes of the oldest transfer. False when that made no progress.
bool controller_core::serve_outbound(state_lock& lock, simulated_endpoint& endpoint) {
    std::optional<started_transfer> transfer = suspended() ? std::nullopt : endpoint.take(clock::now());
    if (!transfer)
        return false;
    const std::size_t limit = transfer->limit();
    const std::size_t wanted =
        limit - std::min(limit, transfer->moved); // a plan may have arrived after some bytes had moved
    const bool to_board = &endpoint == model.board_out();
    const std::size_t count = to_board ? std::min(wanted, allowance.value_or(wanted)) : wanted;
    if (to_board && count > 0)
        pass_on(lock, {transfer->rest.bytes, count});
    transfer->rest.skip(count);
    transfer->moved += count;
    if (count == wanted)
        endpoint.end(*transfer, transfer->plan.end);
    else
        endpoint.put_back(std::move(*transfer));
    return count == wanted || count > 0;
}

void controller_core::pass_on(state_lock& lock, byte_view bytes) {
    if (allowance)
        *allowance -= bytes.count;
    lock.unlock();
    trace.call(link_direction::to_board, bytes.bytes, bytes.count);
    board.from_host(bytes.bytes, bytes.count);
    lock.lock();
}

bool controller_core::serve_control(state_lock& lock, simulated_endpoint& endpoint) {
    std::optional<started_transfer> transfer = suspended() ? std::nullopt : endpoint.take(clock::now());
    if (!transfer)
        return false;
    const transfer_plan& plan = transfer->plan;
    const std::size_t limit = transfer->limit();
    if (plan.end != usb_end::ok && limit == 0) {
        endpoint.end(*transfer, plan.end);
        return true;
    }
    const std::optional<byte_vector> data = plan.data ? plan.data : answer(lock, *transfer);
    const bool inbound = (transfer->setup.request_type & usb::inbound) != 0;
    if (!data)
        endpoint.end(*transfer, usb_end::stalled);
    else if (inbound)
        endpoint.end(*transfer, plan.end, {data->data(), std::min(data->size(), limit)});
    else {
        transfer->moved = limit;
        endpoint.end(*transfer, plan.end);
    }
    return true;
}

std::optional<byte_vector> controller_core::answer(state_lock& lock, const started_transfer& transfer) {
    if ((transfer.setup.request_type & usb::type_mask) == 0)
        return model.answer(transfer.setup);
    const byte_vector sent(transfer.rest.bytes, transfer.rest.bytes + transfer.rest.count);
    std::optional<byte_vector> result;
    lock.unlock();
    handler.call([&](const auto& current) { result = (*current)(transfer.setup, sent); });
    lock.lock();
    return result;
}

void controller_core::to_host(byte_view piece) {
    const state_lock lock(mutex);
    if (gone)
        return;
    if (model.board_in() != nullptr)
        serve_inbound(*model.board_in(), piece);
    state.overrun_bytes += piece.count - to_host_queue.push(piece);
}

void controller_core::end_all(usb_end end) {
    for (const std::uint8_t address : usb_device_model::addresses())
        model.place_of(address).end_all(end);
}

ports::port_status controller_core::abort(std::uint8_t address) {
    const unsigned number = ++state.aborts - aborts_planned_at;
    const bool planned = number >= aborts.first && number - aborts.first < aborts.count;
    if (planned && aborts.late.count() == 0)
        return ports::port_status::failed;
    if (planned)
        run_at(clock::now() + aborts.late,
               [address, up_to = last_id_](controller_core& self, state_lock&) { self.end_aborted(address, up_to); });
    else
        end_aborted(address, last_id_);
    return ports::port_status::ok;
}

void controller_core::end_aborted(std::uint8_t address, std::uint64_t up_to) {
    model.place_of(address).end_all(options.end_when_aborted, up_to);
}

void controller_core::allow(std::optional<std::size_t> bytes) {
    state_lock lock(mutex);
    allowance = bytes;
    serve_all(lock);
}

} // namespace jorvet::sim
