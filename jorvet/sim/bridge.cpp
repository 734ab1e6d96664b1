// The bridge between a driver and a board.
//
// Locks: the trace's, held while it runs, before mutex, which guards everything else and is held in no call to the
// outside. The board's own order lock comes before both.
#include "jorvet/sim/bridge.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "jorvet/sim/support/byte_queue.h"
#include "jorvet/sim/support/link_trace.h"
#include "jorvet/sim/support/shared_callee.h"
#include "jorvet/sim/windows/driver_library.h"

namespace jorvet::sim {

using ports::bridge_identity;
using ports::port_status;

namespace {

constexpr std::size_t max_serial_number = 15;
constexpr std::size_t max_description = 63;
constexpr std::size_t max_noted = 1000; // characters of calls()

bridge_identity identity_of(const bridge_options& options) {
    return {options.serial_number.substr(0, max_serial_number), options.description.substr(0, max_description),
            options.type, options.id, options.location};
}

std::string numbers(std::string text, std::initializer_list<std::uint32_t> values) {
    for (const std::uint32_t value : values)
        text += ' ' + std::to_string(value);
    return text;
}

// When a wait that may last `milliseconds` ends; nothing for 0, which is without limit.
using time_limit = std::optional<std::chrono::steady_clock::time_point>;
time_limit deadline_after(unsigned milliseconds) {
    if (milliseconds == 0)
        return std::nullopt;
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

} // namespace

class simulated_bridge::impl {
  public:
    explicit impl(const bridge_options& options)
        : identity(identity_of(options)), receive_queue(options.queue_capacity), board(identity.serial_number) {}

    // `closing`: still opened by the driver, but its writes end.
    enum class open_stage { closed, open, closing };

    port_status write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms, std::size_t* written);
    // Makes a setting if the device supports it.
    port_status set(const std::string& setting, bool possible = true);
    void note(const std::string& call);

    const bridge_identity identity;

    mutable std::mutex mutex;
    std::condition_variable changed; // for writes: their turn, the allowance, closing or unplugging
    bool gone = false;
    open_stage stage = open_stage::closed;
    unsigned opens = 0;
    std::string calls;
    bool writing = false;                 // one write at a time, so that frames stay in one piece
    std::optional<std::size_t> allowance; // how many more bytes the board takes, if that is limited
    byte_queue receive_queue;
    std::size_t overrun_bytes = 0;

    link_trace trace;
    shared_callee<std::shared_ptr<const std::function<void()>>> notify;

    simulated_board board; // last: its thread ends before anything else goes

  private:
    struct write_turn; // gives the turn back
    template <class Ready>
    bool await(std::unique_lock<std::mutex>& lock, const time_limit& deadline, Ready ready);
    bool write_is_over(unsigned session) const { return gone || stage != open_stage::open || opens != session; }
    void pass_on(const std::uint8_t* bytes, std::size_t count);
    void write_in_turn(std::unique_lock<std::mutex>& lock, const std::uint8_t* bytes, std::size_t count,
                       const time_limit& deadline, std::size_t* written);
};

port_status simulated_bridge::impl::set(const std::string& setting, bool possible) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (gone)
        return port_status::gone;
    if (!possible)
        return port_status::bad_value;
    note(setting);
    return port_status::ok;
}

void simulated_bridge::impl::note(const std::string& call) {
    if (calls.size() < max_noted)
        calls += call + ", ";
}

// False when the deadline passed first.
template <class Ready>
bool simulated_bridge::impl::await(std::unique_lock<std::mutex>& lock, const time_limit& deadline, Ready ready) {
    if (deadline)
        return changed.wait_until(lock, *deadline, ready);
    changed.wait(lock, ready);
    return true;
}

void simulated_bridge::impl::pass_on(const std::uint8_t* bytes, std::size_t count) {
    trace.call(link_direction::to_board, bytes, count);
    board.from_host(bytes, count);
}

struct simulated_bridge::impl::write_turn {
    impl& bridge;
    std::unique_lock<std::mutex>& lock;
    write_turn(impl& taken_of, std::unique_lock<std::mutex>& held) : bridge(taken_of), lock(held) {
        bridge.writing = true;
    }
    ~write_turn() {
        if (!lock.owns_lock())
            lock.lock();
        bridge.writing = false;
        bridge.changed.notify_all();
    }
};

port_status simulated_bridge::impl::write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                                          std::size_t* written) {
    *written = 0;
    const time_limit deadline = deadline_after(timeout_ms);
    std::unique_lock<std::mutex> lock(mutex);
    const unsigned session = opens;
    if (!await(lock, deadline, [&] { return !writing || write_is_over(session); }))
        return port_status::ok;
    if (!write_is_over(session))
        write_in_turn(lock, bytes, count, deadline, written);
    if (*written == count && count > 0)
        return port_status::ok;
    if (gone)
        return port_status::gone;
    return write_is_over(session) ? port_status::failed : port_status::ok;
}

// Passes bytes on as far as the allowance reaches, and waits for more of it until the deadline.
void simulated_bridge::impl::write_in_turn(std::unique_lock<std::mutex>& lock, const std::uint8_t* bytes,
                                           std::size_t count, const time_limit& deadline, std::size_t* written) {
    const write_turn turn(*this, lock);
    const unsigned session = opens;
    while (*written < count) {
        if (!await(lock, deadline, [&] { return allowance != 0u || write_is_over(session); }) || write_is_over(session))
            return;
        const std::size_t taken = std::min(count - *written, allowance.value_or(count));
        if (allowance)
            *allowance -= taken;
        lock.unlock();
        pass_on(bytes + *written, taken);
        lock.lock();
        *written += taken;
    }
}

simulated_bridge::simulated_bridge(const bridge_options& options) : impl_(std::make_unique<impl>(options)) {
    impl_->board.attach_link(this);
}

simulated_bridge::~simulated_bridge() {
    impl_->board.attach_link(nullptr);
}

std::shared_ptr<simulated_bridge> simulated_bridge::plug_in(const bridge_options& options) {
    take_the_drivers_place();
    std::shared_ptr<simulated_bridge> bridge(new simulated_bridge(options));
    ports::attach(bridge);
    return bridge;
}

simulated_board& simulated_bridge::board() {
    return impl_->board;
}

unsigned simulated_bridge::opens() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->opens;
}

std::string simulated_bridge::calls() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->calls;
}

void simulated_bridge::set_trace(trace_function trace) {
    impl_->trace.set(std::move(trace));
}

void simulated_bridge::unplug() {
    // The device list may hold the last reference. This one keeps the bridge alive until the function returns; then the
    // bridge is destroyed, possibly on the board's own thread.
    const std::shared_ptr<simulated_bridge> self = weak_from_this().lock();
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (std::exchange(impl_->gone, true))
            return;
        impl_->receive_queue.clear();
    }
    impl_->changed.notify_all();
    if (self)
        ports::detach(self);
    impl_->notify.call([](const auto& notify) { (*notify)(); });
}

bool simulated_bridge::plugged_in() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return !impl_->gone;
}

void simulated_bridge::stall_writes_after(std::size_t bytes) {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->allowance = bytes;
    }
    impl_->changed.notify_all();
}

void simulated_bridge::accept_writes() {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->allowance.reset();
    }
    impl_->changed.notify_all();
}

std::size_t simulated_bridge::overrun_bytes() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->overrun_bytes;
}

bridge_identity simulated_bridge::identity() const {
    return impl_->identity;
}

port_status simulated_bridge::open(std::function<void()> notify) {
    auto callee = notify ? std::make_shared<const std::function<void()>>(std::move(notify)) : nullptr;
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    if (impl_->gone)
        return port_status::gone;
    if (impl_->stage != impl::open_stage::closed)
        return port_status::refused;
    impl_->notify.replace(
        std::move(callee)); // with the lock held, because otherwise an unplug in between would notify nobody
    impl_->stage = impl::open_stage::open;
    ++impl_->opens;
    impl_->calls.clear();
    return port_status::ok;
}

void simulated_bridge::close() {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->stage == impl::open_stage::closed)
            return;
        impl_->stage = impl::open_stage::closing;
    }
    impl_->changed.notify_all();
    impl_->notify.replace(nullptr);
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->stage = impl::open_stage::closed;
    impl_->note("closed");
}

port_status simulated_bridge::set_baud_rate(std::uint32_t bits_per_second) {
    return impl_->set(numbers("baud rate", {bits_per_second}), bits_per_second >= 300 && bits_per_second <= 3000000);
}

port_status simulated_bridge::set_data_format(unsigned data_bits, unsigned stop_bits, unsigned parity) {
    const bool possible = (data_bits == 7 || data_bits == 8) && stop_bits <= 2 && parity <= 4;
    return impl_->set(numbers("format", {data_bits, stop_bits, parity}), possible);
}

port_status simulated_bridge::set_flow_control(unsigned mode, std::uint8_t xon, std::uint8_t xoff) {
    const bool possible = mode == 0 || mode == 0x100 || mode == 0x200 || mode == 0x400;
    return impl_->set(numbers("flow control", {mode, xon, xoff}), possible);
}

port_status simulated_bridge::set_latency_ms(unsigned milliseconds) {
    return impl_->set(numbers("latency", {milliseconds}), milliseconds >= 2 && milliseconds <= 255);
}

port_status simulated_bridge::set_transfer_sizes(std::uint32_t in_bytes, std::uint32_t out_bytes) {
    const auto fits = [](std::uint32_t bytes) { return bytes >= 64 && bytes <= 65536 && bytes % 64 == 0; };
    return impl_->set(numbers("transfers", {in_bytes, out_bytes}), fits(in_bytes) && fits(out_bytes));
}

port_status simulated_bridge::reset() {
    return impl_->set("reset");
}

port_status simulated_bridge::write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                                    std::size_t* written) {
    return impl_->write(bytes, count, timeout_ms, written);
}

port_status simulated_bridge::received(std::size_t* count) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    *count = impl_->receive_queue.size();
    return impl_->gone ? port_status::gone : port_status::ok;
}

port_status simulated_bridge::read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    *taken = impl_->receive_queue.pop(bytes, count);
    return impl_->gone ? port_status::gone : port_status::ok;
}

port_status simulated_bridge::purge(bool receive, bool transmit) {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (receive)
            impl_->receive_queue.clear(); // nothing ever waits to be sent
    }
    port_status status = port_status::ok; // of the chip's requests, one for each direction
    if (transmit)
        status = impl_->set("purge tx");
    if (receive)
        status = impl_->set("purge rx");
    return status;
}

void simulated_bridge::to_host(const std::uint8_t* bytes, std::size_t count) {
    if (!plugged_in())
        return;
    impl_->trace.call(link_direction::to_host, bytes, count);
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->gone)
            return;
        impl_->overrun_bytes += count - impl_->receive_queue.push(bytes, count);
    }
    impl_->notify.call([](const auto& notify) { (*notify)(); });
}

} // namespace jorvet::sim
