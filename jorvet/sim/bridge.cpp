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

#include "jorvet/sim/support/link_trace.h"
#include "jorvet/sim/support/shared_callee.h"

namespace jorvet::sim {

using platform::BridgeIdentity;
using platform::PortStatus;

namespace {

constexpr std::size_t most_serial_number = 15;
constexpr std::size_t most_description = 63;

// Bytes waiting for the driver: what comes goes to the end of a vector, what is read is counted off its beginning.
class ReceiveQueue {
  public:
    explicit ReceiveQueue(std::size_t capacity) : capacity_(capacity) {}

    std::size_t size() const { return bytes_.size() - read_; }

    // Takes as many as there is room for, and gives their number.
    std::size_t push(const std::uint8_t* bytes, std::size_t count) {
        const std::size_t taken = std::min(count, capacity_ - size());
        if (read_ > bytes_.size() / 2) { // moves fewer bytes than have been read since the last time
            bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(read_));
            read_ = 0;
        }
        bytes_.insert(bytes_.end(), bytes, bytes + taken);
        return taken;
    }

    std::size_t pop(std::uint8_t* bytes, std::size_t count) {
        const std::size_t taken = std::min(count, size());
        std::copy_n(bytes_.data() + read_, taken, bytes);
        read_ += taken;
        if (read_ == bytes_.size())
            clear();
        return taken;
    }

    void clear() {
        bytes_.clear();
        read_ = 0;
    }

  private:
    const std::size_t capacity_;
    Bytes bytes_;
    std::size_t read_ = 0;
};

BridgeIdentity identity_of(const BridgeOptions& options) {
    return {options.serial_number.substr(0, most_serial_number), options.description.substr(0, most_description),
            options.type, options.id, options.location};
}

// When a wait that may last `milliseconds` ends; nothing for 0, which is without limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;
Deadline deadline_after(unsigned milliseconds) {
    if (milliseconds == 0)
        return std::nullopt;
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

} // namespace

class Bridge::Impl {
  public:
    explicit Impl(const BridgeOptions& options)
        : identity(identity_of(options)), receive_queue(options.queue_capacity), board(identity.serial_number) {}

    // `closing` still is the driver's, but its writes end.
    enum class Stage { closed, open, closing };

    PortStatus write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms, std::size_t* written);
    // Puts a setting in place if it is one that the device can do.
    template <class Change>
    PortStatus set(bool possible, Change change);

    const BridgeIdentity identity;

    mutable std::mutex mutex;
    std::condition_variable changed; // for writes: the turn, the allowance, or an end to it all
    bool gone = false;
    Stage stage = Stage::closed;
    BridgeSettings settings;
    bool writing = false;                 // one write at a time, so that frames stay in one piece
    std::optional<std::size_t> allowance; // how many more bytes the board takes, if that is limited
    ReceiveQueue receive_queue;
    std::size_t overrun_bytes = 0;

    LinkTrace trace;
    Callee<std::shared_ptr<const std::function<void()>>> notify;

    Board board; // last: its thread ends before anything else goes

  private:
    struct WriteTurn; // gives the turn back
    template <class Ready>
    bool await(std::unique_lock<std::mutex>& lock, const Deadline& deadline, Ready ready);
    bool write_is_over(unsigned session) const { return gone || stage != Stage::open || settings.opens != session; }
    void pass_on(const std::uint8_t* bytes, std::size_t count);
    void write_in_turn(std::unique_lock<std::mutex>& lock, const std::uint8_t* bytes, std::size_t count,
                       const Deadline& deadline, std::size_t* written);
};

template <class Change>
PortStatus Bridge::Impl::set(bool possible, Change change) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (gone)
        return PortStatus::gone;
    if (!possible)
        return PortStatus::bad_value;
    change(settings);
    return PortStatus::ok;
}

// False when the deadline passed first.
template <class Ready>
bool Bridge::Impl::await(std::unique_lock<std::mutex>& lock, const Deadline& deadline, Ready ready) {
    if (deadline)
        return changed.wait_until(lock, *deadline, ready);
    changed.wait(lock, ready);
    return true;
}

void Bridge::Impl::pass_on(const std::uint8_t* bytes, std::size_t count) {
    trace.call(Direction::to_board, bytes, count);
    board.from_host(bytes, count);
}

struct Bridge::Impl::WriteTurn {
    Impl& bridge;
    std::unique_lock<std::mutex>& lock;
    WriteTurn(Impl& taken_of, std::unique_lock<std::mutex>& held) : bridge(taken_of), lock(held) {
        bridge.writing = true;
    }
    ~WriteTurn() {
        if (!lock.owns_lock())
            lock.lock();
        bridge.writing = false;
        bridge.changed.notify_all();
    }
};

PortStatus Bridge::Impl::write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms,
                               std::size_t* written) {
    *written = 0;
    const Deadline deadline = deadline_after(timeout_ms);
    std::unique_lock<std::mutex> lock(mutex);
    const unsigned session = settings.opens;
    if (!await(lock, deadline, [&] { return !writing || write_is_over(session); }))
        return PortStatus::ok;
    if (!write_is_over(session))
        write_in_turn(lock, bytes, count, deadline, written);
    if (*written == count && count > 0)
        return PortStatus::ok;
    if (gone)
        return PortStatus::gone;
    return write_is_over(session) ? PortStatus::failed : PortStatus::ok;
}

// Passes bytes on as far as the allowance reaches, and waits for more of it until the deadline.
void Bridge::Impl::write_in_turn(std::unique_lock<std::mutex>& lock, const std::uint8_t* bytes, std::size_t count,
                                 const Deadline& deadline, std::size_t* written) {
    const WriteTurn turn(*this, lock);
    const unsigned session = settings.opens;
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

Bridge::Bridge(const BridgeOptions& options) : impl_(std::make_unique<Impl>(options)) {
    impl_->board.attach_link(this);
}

Bridge::~Bridge() {
    impl_->board.attach_link(nullptr);
}

std::shared_ptr<Bridge> Bridge::plug_in(const BridgeOptions& options) {
    std::shared_ptr<Bridge> bridge(new Bridge(options));
    platform::attach(bridge);
    return bridge;
}

Board& Bridge::board() {
    return impl_->board;
}

BridgeSettings Bridge::settings() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->settings;
}

void Bridge::set_trace(Trace trace) {
    impl_->trace.set(std::move(trace));
}

void Bridge::unplug() {
    // The device list may hold the last reference: it goes when this function is through, which is then the bridge's
    // end, possibly on the board's own thread.
    const std::shared_ptr<Bridge> self = weak_from_this().lock();
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (std::exchange(impl_->gone, true))
            return;
        impl_->receive_queue.clear();
    }
    impl_->changed.notify_all();
    if (self)
        platform::detach(self);
    impl_->notify.call([](const auto& notify) { (*notify)(); });
}

bool Bridge::plugged_in() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return !impl_->gone;
}

void Bridge::stall_writes_after(std::size_t bytes) {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->allowance = bytes;
    }
    impl_->changed.notify_all();
}

void Bridge::accept_writes() {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->allowance.reset();
    }
    impl_->changed.notify_all();
}

std::size_t Bridge::overrun_bytes() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->overrun_bytes;
}

BridgeIdentity Bridge::identity() const {
    return impl_->identity;
}

PortStatus Bridge::open(std::function<void()> notify) {
    auto callee = notify ? std::make_shared<const std::function<void()>>(std::move(notify)) : nullptr;
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    if (impl_->gone)
        return PortStatus::gone;
    if (impl_->stage != Impl::Stage::closed)
        return PortStatus::refused;
    impl_->notify.replace(std::move(callee)); // with the lock, or an unplug in between would notify nobody
    impl_->stage = Impl::Stage::open;
    ++impl_->settings.opens;
    return PortStatus::ok;
}

void Bridge::close() {
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->stage == Impl::Stage::closed)
            return;
        impl_->stage = Impl::Stage::closing;
    }
    impl_->changed.notify_all();
    impl_->notify.replace(nullptr);
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->stage = Impl::Stage::closed;
}

PortStatus Bridge::set_baud_rate(std::uint32_t bits_per_second) {
    return impl_->set(bits_per_second >= 300 && bits_per_second <= 3000000,
                      [=](BridgeSettings& settings) { settings.baud_rate = bits_per_second; });
}

PortStatus Bridge::set_data_format(unsigned data_bits, unsigned stop_bits, unsigned parity) {
    const bool possible = (data_bits == 7 || data_bits == 8) && stop_bits <= 2 && parity <= 4;
    return impl_->set(possible, [=](BridgeSettings& settings) {
        settings.data_bits = data_bits;
        settings.stop_bits = stop_bits;
        settings.parity = parity;
    });
}

PortStatus Bridge::set_flow_control(unsigned mode, std::uint8_t xon, std::uint8_t xoff) {
    const bool possible = mode == 0 || mode == 0x100 || mode == 0x200 || mode == 0x400;
    return impl_->set(possible, [=](BridgeSettings& settings) {
        settings.flow_control = mode;
        settings.xon = xon;
        settings.xoff = xoff;
    });
}

PortStatus Bridge::set_latency_ms(unsigned milliseconds) {
    return impl_->set(milliseconds >= 2 && milliseconds <= 255,
                      [=](BridgeSettings& settings) { settings.latency_ms = milliseconds; });
}

PortStatus Bridge::set_transfer_sizes(std::uint32_t in_bytes, std::uint32_t out_bytes) {
    const auto fits = [](std::uint32_t bytes) { return bytes >= 64 && bytes <= 65536 && bytes % 64 == 0; };
    return impl_->set(fits(in_bytes) && fits(out_bytes), [=](BridgeSettings& settings) {
        settings.in_transfer = in_bytes;
        settings.out_transfer = out_bytes;
    });
}

PortStatus Bridge::reset() {
    return impl_->set(true, [](BridgeSettings& settings) { ++settings.resets; });
}

PortStatus Bridge::write(const std::uint8_t* bytes, std::size_t count, unsigned timeout_ms, std::size_t* written) {
    return impl_->write(bytes, count, timeout_ms, written);
}

PortStatus Bridge::received(std::size_t* count) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    *count = impl_->receive_queue.size();
    return impl_->gone ? PortStatus::gone : PortStatus::ok;
}

PortStatus Bridge::read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    *taken = impl_->receive_queue.pop(bytes, count);
    return impl_->gone ? PortStatus::gone : PortStatus::ok;
}

PortStatus Bridge::purge(bool receive, bool) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    if (receive)
        impl_->receive_queue.clear();
    return impl_->gone ? PortStatus::gone : PortStatus::ok; // nothing ever waits to be sent
}

void Bridge::to_host(const std::uint8_t* bytes, std::size_t count) {
    if (!plugged_in())
        return;
    impl_->trace.call(Direction::to_host, bytes, count);
    {
        const std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->gone)
            return;
        impl_->overrun_bytes += count - impl_->receive_queue.push(bytes, count);
    }
    impl_->notify.call([](const auto& notify) { (*notify)(); });
}

} // namespace jorvet::sim
