// The controller between a driver and a board.
//
// Locks: the trace's, held while it runs, before mutex, which guards everything else; completions are called with it,
// the board, the trace, the control handler and the bus without. The board's own order lock comes before both. A
// transfer that the board or the handler works on is taken out of its endpoint meanwhile, so that those behind it wait
// for their turn and no thread waits for another.
#include "jorvet/sim/usb/controller.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "jorvet/sim/support/byte_pieces.h"
#include "jorvet/sim/support/link_trace.h"
#include "jorvet/sim/support/shared_callee.h"
#include "jorvet/sim/support/timeline.h"
#include "jorvet/sim/usb/boot_loader.h"
#include "jorvet/sim/usb/device_model.h"

namespace jorvet::sim {

using platform::PortStatus;
using platform::UsbEnd;
using platform::UsbIdentity;
using platform::UsbPower;
using platform::UsbSetup;
using Lock = std::unique_lock<std::mutex>;
using Clock = Timeline::Clock;

namespace {

constexpr std::size_t most_serial_number = 127;
constexpr std::size_t most_name = 255;

UsbIdentity identity_of(const ControllerOptions& options) {
    std::string serial_number = options.serial_number.substr(0, most_serial_number);
    const auto forbidden = [](char character) { return character == '\\' || character == '#'; };
    std::replace_if(serial_number.begin(), serial_number.end(), forbidden, '_');
    return {options.name.substr(0, most_name), options.friendly_name.substr(0, most_name), serial_number,
            options.vendor_id, options.product_id};
}

UsbDescriptors descriptors_of(const ControllerOptions& options, const UsbIdentity& identity) {
    if (options.descriptors)
        return *options.descriptors;
    return board_descriptors(options.speed, identity.vendor_id, identity.product_id, identity.serial_number);
}

} // namespace

class Controller::Impl : public std::enable_shared_from_this<Impl> {
  public:
    explicit Impl(const ControllerOptions& given)
        : options(given), identity(identity_of(given)), model(descriptors_of(given, identity)),
          to_host_queue(given.queue_capacity), board(identity.serial_number) {}

    void start(std::uint8_t address, StartedTransfer transfer, unsigned timeout_ms);
    void add_plan(std::uint8_t address, const TransferPlan& plan);
    void to_host(Chunk piece);
    // Has the endpoint at an address, or every one, do what it can do now.
    void serve(Lock& lock, std::uint8_t address);
    void serve_all(Lock& lock);
    void end_all(UsbEnd end);
    void allow(std::optional<std::size_t> bytes);

    // Runs `use` with the lock, unless the device is gone, and gives what it gives.
    template <class Use>
    PortStatus if_there(Use use) {
        Lock lock(mutex);
        return gone ? PortStatus::gone : use(lock);
    }

    const ControllerOptions options;
    const UsbIdentity identity;

    mutable std::mutex mutex;
    bool gone = false;
    bool refusing = false;
    ControllerState state; // but for `alternate`, which the model knows
    UsbDeviceModel model;
    BytePieces to_host_queue;
    std::optional<std::size_t> allowance; // how many more bytes the board takes, if that is limited
    std::shared_ptr<Controller> successor;

    LinkTrace trace;
    Callee<std::shared_ptr<const ControlHandler>> handler;
    Timeline timeline; // delays and time-outs; its tasks do not keep this object
    Board board;       // last: its thread ends before anything else goes

  private:
    template <class Work>
    void run_at(Clock::time_point due, Work work);
    void serve_at(std::optional<Clock::time_point> due, std::uint8_t address);
    void serve_inbound(UsbEndpoint& endpoint, Chunk& arriving);
    bool serve_outbound(Lock& lock, UsbEndpoint& endpoint);
    bool serve_control(Lock& lock, UsbEndpoint& endpoint);
    void pass_on(Lock& lock, Chunk bytes);
    bool suspended() const { return state.power == UsbPower::suspended; }
    std::optional<Bytes> answer(Lock& lock, const StartedTransfer& transfer);

    std::uint64_t last_id_ = 0;
};

// Runs `work(*this, lock)` on the timeline.
template <class Work>
void Controller::Impl::run_at(Clock::time_point due, Work work) {
    timeline.run_at(due, [weak = weak_from_this(), work] {
        const std::shared_ptr<Impl> self = weak.lock();
        if (!self)
            return;
        Lock lock(self->mutex);
        work(*self, lock);
    });
}

void Controller::Impl::serve_at(std::optional<Clock::time_point> due, std::uint8_t address) {
    if (due)
        run_at(*due, [=](Impl& self, Lock& lock) { self.serve(lock, address); });
}

void Controller::Impl::start(std::uint8_t address, StartedTransfer transfer, unsigned timeout_ms) {
    Lock lock(mutex);
    UsbEndpoint* const endpoint = model.find(address);
    if (gone)
        return transfer.end(UsbEnd::gone);
    if (state.handles == 0)
        return transfer.end(UsbEnd::cancelled);
    if (endpoint == nullptr)
        return transfer.end(UsbEnd::no_endpoint);
    const std::uint64_t id = transfer.id = ++last_id_;
    serve_at(endpoint->start(std::move(transfer), Clock::now()), address);
    serve(lock, address);
    if (endpoint->keep_bytes(id) && timeout_ms > 0)
        run_at(Clock::now() + std::chrono::milliseconds(timeout_ms),
               [=](Impl& self, Lock&) { self.model.place_of(address).end_one(id, UsbEnd::timed_out); });
}

void Controller::Impl::add_plan(std::uint8_t address, const TransferPlan& plan) {
    Lock lock(mutex);
    serve_at(model.place_of(address).add_plan(plan, Clock::now()), address);
    serve(lock, address);
}

void Controller::Impl::serve(Lock& lock, std::uint8_t address) {
    UsbEndpoint& endpoint = model.place_of(address);
    Chunk nothing;
    if ((address & usb::inbound) != 0)
        return serve_inbound(endpoint, nothing);
    while (address == 0 ? serve_control(lock, endpoint) : serve_outbound(lock, endpoint)) {
    }
}

void Controller::Impl::serve_all(Lock& lock) {
    for (const std::uint8_t address : UsbDeviceModel::addresses())
        serve(lock, address);
}

// Ends transfers with what waits and then with what arrives, and takes that off `arriving`.
void Controller::Impl::serve_inbound(UsbEndpoint& endpoint, Chunk& arriving) {
    const bool from_board = &endpoint == model.board_in();
    while (!suspended()) {
        const bool from_queue = from_board && !to_host_queue.empty();
        const Chunk source = from_queue ? to_host_queue.front() : arriving;
        const std::optional<std::size_t> taken = endpoint.end_inbound(source, Clock::now());
        if (!taken)
            return;
        if (from_queue)
            to_host_queue.pop(*taken);
        else
            arriving.skip(*taken);
    }
}

// Has the device take what it takes of the oldest transfer. False when that brought nothing forward.
bool Controller::Impl::serve_outbound(Lock& lock, UsbEndpoint& endpoint) {
    std::optional<StartedTransfer> transfer = suspended() ? std::nullopt : endpoint.take(Clock::now());
    if (!transfer)
        return false;
    const std::size_t most = transfer->most();
    const std::size_t wanted = most - std::min(most, transfer->moved); // a plan may have come after some had moved
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

void Controller::Impl::pass_on(Lock& lock, Chunk bytes) {
    if (allowance)
        *allowance -= bytes.count;
    lock.unlock();
    trace.call(Direction::to_board, bytes.bytes, bytes.count);
    board.from_host(bytes.bytes, bytes.count);
    lock.lock();
}

bool Controller::Impl::serve_control(Lock& lock, UsbEndpoint& endpoint) {
    std::optional<StartedTransfer> transfer = suspended() ? std::nullopt : endpoint.take(Clock::now());
    if (!transfer)
        return false;
    const TransferPlan& plan = transfer->plan;
    const std::size_t most = transfer->most();
    if (plan.end != UsbEnd::ok && most == 0) {
        endpoint.end(*transfer, plan.end);
        return true;
    }
    const std::optional<Bytes> data = plan.data ? plan.data : answer(lock, *transfer);
    const bool inbound = (transfer->setup.request_type & usb::inbound) != 0;
    if (!data)
        endpoint.end(*transfer, UsbEnd::stalled);
    else if (inbound)
        endpoint.end(*transfer, plan.end, {data->data(), std::min(data->size(), most)});
    else {
        transfer->moved = most;
        endpoint.end(*transfer, plan.end);
    }
    return true;
}

std::optional<Bytes> Controller::Impl::answer(Lock& lock, const StartedTransfer& transfer) {
    if ((transfer.setup.request_type & usb::type_mask) == 0)
        return model.answer(transfer.setup);
    const Bytes sent(transfer.rest.bytes, transfer.rest.bytes + transfer.rest.count);
    std::optional<Bytes> result;
    lock.unlock();
    handler.call([&](const auto& current) { result = (*current)(transfer.setup, sent); });
    lock.lock();
    return result;
}

void Controller::Impl::to_host(Chunk piece) {
    const Lock lock(mutex);
    if (gone)
        return;
    if (model.board_in() != nullptr)
        serve_inbound(*model.board_in(), piece);
    state.overrun_bytes += piece.count - to_host_queue.push(piece);
}

void Controller::Impl::end_all(UsbEnd end) {
    for (const std::uint8_t address : UsbDeviceModel::addresses())
        model.place_of(address).end_all(end);
}

void Controller::Impl::allow(std::optional<std::size_t> bytes) {
    Lock lock(mutex);
    allowance = bytes;
    serve_all(lock);
}

Controller::Controller(const ControllerOptions& options) : impl_(std::make_shared<Impl>(options)) {
    impl_->board.attach_link(this);
    if (options.boot_loader)
        set_control_handler([loader = options.boot_loader](const UsbSetup& setup, const Bytes& data_to_device) {
            return loader->answer(setup, data_to_device);
        });
}

Controller::~Controller() {
    impl_->board.attach_link(nullptr);
}

std::shared_ptr<Controller> Controller::plug_in(const ControllerOptions& options) {
    std::shared_ptr<Controller> controller(new Controller(options));
    platform::attach(controller);
    return controller;
}

ControllerState Controller::state() const {
    const Lock lock(impl_->mutex);
    ControllerState result = impl_->state;
    result.alternate = impl_->model.alternate();
    return result;
}

void Controller::refuse_open(bool refuse) {
    const Lock lock(impl_->mutex);
    impl_->refusing = refuse;
}

void Controller::plan_transfer(std::uint8_t endpoint, const TransferPlan& plan) {
    impl_->add_plan(endpoint, plan);
}

void Controller::set_control_handler(ControlHandler handler) {
    impl_->handler.replace(handler ? std::make_shared<const ControlHandler>(std::move(handler)) : nullptr);
}

std::shared_ptr<BootLoader> Controller::boot_loader() const {
    return impl_->options.boot_loader;
}

Board& Controller::board() {
    return impl_->board;
}

void Controller::set_trace(Trace trace) {
    impl_->trace.set(std::move(trace));
}

// True when this call did it.
bool Controller::leave_bus() {
    // The device list may hold the last reference: it goes when this function is through, which is then the
    // controller's end, possibly on the board's own thread.
    const std::shared_ptr<Controller> self = weak_from_this().lock();
    {
        const Lock lock(impl_->mutex);
        if (std::exchange(impl_->gone, true))
            return false;
        impl_->to_host_queue.clear();
    }
    if (self) // before transfers end as gone, or who looks for the device then would still find it
        platform::detach(self);
    const Lock lock(impl_->mutex);
    impl_->end_all(UsbEnd::gone);
    return true;
}

void Controller::unplug() {
    leave_bus();
}

bool Controller::plugged_in() const {
    const Lock lock(impl_->mutex);
    return !impl_->gone;
}

void Controller::stall_writes_after(std::size_t bytes) {
    impl_->allow(bytes);
}

void Controller::accept_writes() {
    impl_->allow(std::nullopt);
}

std::shared_ptr<Plug> Controller::successor() const {
    const Lock lock(impl_->mutex);
    return impl_->successor;
}

UsbIdentity Controller::identity() const {
    return impl_->identity;
}

PortStatus Controller::open() {
    return impl_->if_there([this](Lock&) {
        if (impl_->refusing)
            return PortStatus::refused;
        ++impl_->state.opens;
        ++impl_->state.handles;
        return PortStatus::ok;
    });
}

void Controller::close() {
    const Lock lock(impl_->mutex);
    if (impl_->state.handles > 0 && --impl_->state.handles == 0)
        impl_->end_all(UsbEnd::cancelled);
}

void Controller::control(const UsbSetup& setup, const std::uint8_t* data, unsigned timeout_ms,
                         platform::UsbCompletion done) {
    StartedTransfer transfer;
    transfer.setup = setup;
    transfer.length = setup.length;
    transfer.done = std::move(done);
    if (data != nullptr)
        transfer.rest = {data, setup.length};
    impl_->start(0, std::move(transfer), timeout_ms);
}

void Controller::submit(const platform::UsbTransfer& request, platform::UsbCompletion done) {
    StartedTransfer transfer;
    transfer.length = request.length;
    transfer.packets = request.packets;
    transfer.done = std::move(done);
    if (request.data != nullptr)
        transfer.rest = {request.data, request.length};
    impl_->start(request.endpoint, std::move(transfer), 0);
}

PortStatus Controller::abort(std::uint8_t endpoint) {
    return impl_->if_there([&](Lock&) {
        if (impl_->model.find(endpoint) == nullptr)
            return PortStatus::bad_value;
        ++impl_->state.aborts;
        impl_->model.place_of(endpoint).end_all(UsbEnd::cancelled);
        return PortStatus::ok;
    });
}

PortStatus Controller::reset_endpoint(std::uint8_t endpoint) {
    return impl_->if_there([&](Lock&) {
        if (impl_->model.find(endpoint) == nullptr)
            return PortStatus::bad_value;
        ++impl_->state.endpoint_resets;
        impl_->model.place_of(endpoint).set_halted(false);
        return PortStatus::ok;
    });
}

PortStatus Controller::select_alternate(std::uint8_t setting) {
    return impl_->if_there(
        [&](Lock&) { return impl_->model.select_alternate(setting) ? PortStatus::ok : PortStatus::bad_value; });
}

PortStatus Controller::alternate(std::uint8_t* setting) {
    return impl_->if_there([&](Lock&) { return *setting = impl_->model.alternate(), PortStatus::ok; });
}

PortStatus Controller::speed(platform::UsbSpeed* speed) {
    return impl_->if_there([&](Lock&) { return *speed = impl_->options.speed, PortStatus::ok; });
}

PortStatus Controller::bus_address(std::uint8_t* address) {
    return impl_->if_there([&](Lock&) { return *address = impl_->options.bus_address, PortStatus::ok; });
}

PortStatus Controller::power(UsbPower* power) {
    return impl_->if_there([&](Lock&) { return *power = impl_->state.power, PortStatus::ok; });
}

PortStatus Controller::set_power(UsbPower power) {
    return impl_->if_there([&](Lock& lock) {
        impl_->state.power = power;
        impl_->serve_all(lock);
        return PortStatus::ok;
    });
}

PortStatus Controller::reset_port() {
    return impl_->if_there([&](Lock&) {
        ++impl_->state.port_resets;
        impl_->end_all(UsbEnd::cancelled);
        for (const std::uint8_t address : UsbDeviceModel::addresses())
            impl_->model.place_of(address).set_halted(false);
        return PortStatus::ok;
    });
}

PortStatus Controller::cycle_port() {
    const std::shared_ptr<Controller> self = weak_from_this().lock(); // as in leave_bus()
    if (!leave_bus())
        return PortStatus::gone;
    auto next = plug_in(impl_->options);
    const Lock lock(impl_->mutex);
    impl_->successor = std::move(next);
    return PortStatus::ok;
}

void Controller::to_host(const std::uint8_t* bytes, std::size_t count) {
    if (!plugged_in())
        return;
    const std::shared_ptr<Impl> impl = impl_; // the trace may pull the plug, and that may be the end of this object
    impl->trace.call(Direction::to_host, bytes, count);
    impl->to_host({bytes, count});
}

} // namespace jorvet::sim
