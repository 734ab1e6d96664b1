// The board at work: takes requests in, lets answers and events out, at once on the calling thread or later on the
// timeline's.
//
// Locks, in the order in which they are taken: order_ keeps the input and every frame of the output in one piece and is
// the only one held while calling the link; mutex_ guards the board's state, never during a call.
#include "jorvet/sim/board/board.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "jorvet/sim/board/frames.h"
#include "jorvet/sim/board/model.h"
#include "jorvet/sim/board/request_parser.h"
#include "jorvet/sim/support/shared_callee.h"
#include "jorvet/sim/support/timeline.h"

namespace jorvet::sim {

using Clock = Timeline::Clock;

namespace {

constexpr std::size_t requests_kept = 1024;
constexpr std::chrono::milliseconds no_time{0};

// Bytes on their way out.
struct Output {
    Bytes bytes;
    Pacing pacing;
    bool then_unplug = false;
};

Trailer trailer_of(const Request& request, const ReplyPlan& plan) {
    if (!plan.with_crc.value_or(request.with_crc))
        return Trailer::none;
    return plan.wrong_crc ? Trailer::wrong_crc : Trailer::crc;
}

// Turns the board's own answer into what leaves.
void apply_plan(const ReplyPlan& plan, const Request& request, const Answer& answer, Output& output) {
    output.pacing = plan.pacing;
    output.bytes = plan.stray_before;
    if (!plan.silent)
        append_reply(output.bytes, answer.status, plan.data ? *plan.data : answer.data, trailer_of(request, plan));
    const std::size_t answer_size = output.bytes.size() - plan.stray_before.size();
    output.then_unplug = plan.unplug_after && *plan.unplug_after <= answer_size;
    if (output.then_unplug)
        output.bytes.resize(plan.stray_before.size() + *plan.unplug_after);
    else
        output.bytes.insert(output.bytes.end(), plan.stray_after.begin(), plan.stray_after.end());
}

} // namespace

ReplyPlan::~ReplyPlan() = default;

Link::~Link() = default;

class Board::Impl : public std::enable_shared_from_this<Impl> {
  public:
    explicit Impl(std::string serial_number) : model_(std::move(serial_number)) {}
    void shut_down();

    void attach_link(Link* link) { link_.replace(link); }
    void from_host(const std::uint8_t* bytes, std::size_t count);
    void send_event(const Event& event, const Pacing& pacing);
    void send_raw(const Bytes& bytes, const Pacing& pacing);
    void start_events(std::chrono::microseconds period, const Event& event);
    void stop_events();
    void unplug(std::chrono::milliseconds delay);
    std::vector<Request> requests() const;

    // Runs `use` on the state and gives what it gives.
    template <class Use>
    auto with_state(Use use) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return use(*this);
    }

    mutable std::mutex mutex_;
    BoardModel model_;
    std::deque<ReplyPlan> next_plans_;
    ReplyPlan usual_plan_;
    std::size_t stray_bytes_ = 0;

  private:
    void answer(const Request& request);
    void compose_answer(const Request& request);
    void keep(const Request& request);
    void event_leaves(const Event& event, const Pacing& pacing);
    void leave(const Output& output);
    std::size_t send_up_to_gap(const Output& output, std::size_t from);
    void leave_later(std::shared_ptr<const Output> output, std::size_t from, std::chrono::milliseconds wait);
    void pull_plug();
    void schedule_tick(Clock::time_point due, std::chrono::microseconds period, std::shared_ptr<const Event> event,
                       unsigned series);
    bool begin_tick(unsigned series);
    bool end_tick(unsigned series);

    std::mutex order_;
    RequestParser parser_; // with order_, as the two below, which keep their memory from one request to the next
    Answer answer_;
    Output output_;

    std::vector<Request> requests_; // with mutex_; a ring once full, `requests_seen_` modulo its size the oldest
    std::size_t requests_seen_ = 0;

    unsigned series_ = 0; // with mutex_; of periodic events: each start and stop makes a new one
    bool ticking_ = false;
    std::condition_variable tick_ended_;

    Callee<Link*> link_;
    Timeline timeline_;
};

void Board::Impl::shut_down() {
    attach_link(nullptr);
    timeline_.stop();
}

void Board::Impl::from_host(const std::uint8_t* bytes, std::size_t count) {
    const std::lock_guard<std::mutex> order(order_);
    while (const Request* request = parser_.next(bytes, count))
        answer(*request);
    const std::lock_guard<std::mutex> lock(mutex_);
    stray_bytes_ = parser_.stray_bytes();
}

void Board::Impl::answer(const Request& request) {
    compose_answer(request);
    leave(output_);
}

void Board::Impl::compose_answer(const Request& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stray_bytes_ = parser_.stray_bytes();
    keep(request);
    model_.execute(request, answer_);
    const ReplyPlan& plan = next_plans_.empty() ? usual_plan_ : next_plans_.front();
    answer_.status = plan.status.value_or(answer_.status);
    model_.note_status(answer_.status);
    apply_plan(plan, request, answer_, output_);
    if (!next_plans_.empty())
        next_plans_.pop_front();
}

void Board::Impl::keep(const Request& request) {
    if (requests_.size() < requests_kept)
        requests_.push_back(request);
    else
        requests_[requests_seen_ % requests_kept] = request;
    ++requests_seen_;
}

std::vector<Request> Board::Impl::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Request> result = requests_;
    if (requests_seen_ > requests_kept)
        std::rotate(result.begin(), result.begin() + static_cast<std::ptrdiff_t>(requests_seen_ % requests_kept),
                    result.end());
    return result;
}

void Board::Impl::send_event(const Event& event, const Pacing& pacing) {
    if (pacing.delay <= no_time)
        return event_leaves(event, pacing);
    timeline_.run_at(Clock::now() + pacing.delay, [self = shared_from_this(), event, pacing] {
        self->event_leaves(event, {no_time, pacing.fragment, pacing.gap});
    });
}

// The sequence byte is counted here, with order_ held, so that the events on the link are always in sequence.
void Board::Impl::event_leaves(const Event& event, const Pacing& pacing) {
    const std::lock_guard<std::mutex> order(order_);
    output_.bytes.clear();
    output_.pacing = pacing;
    output_.then_unplug = false;
    append_event(output_.bytes, event, with_state([](Impl& board) { return board.model_.take_sequence(); }));
    leave(output_);
}

void Board::Impl::send_raw(const Bytes& bytes, const Pacing& pacing) {
    const std::lock_guard<std::mutex> order(order_);
    leave({bytes, pacing, false});
}

// With order_ held.
void Board::Impl::leave(const Output& output) {
    if (output.pacing.delay > no_time)
        return leave_later(std::make_shared<const Output>(output), 0, output.pacing.delay);
    const std::size_t sent = send_up_to_gap(output, 0);
    if (sent < output.bytes.size())
        leave_later(std::make_shared<const Output>(output), sent, output.pacing.gap);
}

// Sends the bytes at `from` and after, up to the first gap or the end, and gives where that is. With order_ held.
std::size_t Board::Impl::send_up_to_gap(const Output& output, std::size_t from) {
    const std::size_t size = output.bytes.size();
    const std::size_t piece = output.pacing.fragment == 0 ? size : output.pacing.fragment;
    bool at_gap = false;
    while (from < size && !at_gap) {
        const std::size_t count = std::min(piece, size - from);
        link_.call([&](Link* link) { link->to_host(&output.bytes[from], count); });
        from += count;
        at_gap = output.pacing.gap > no_time;
    }
    if (from == size && output.then_unplug)
        pull_plug();
    return from;
}

void Board::Impl::leave_later(std::shared_ptr<const Output> output, std::size_t from, std::chrono::milliseconds wait) {
    timeline_.run_at(Clock::now() + wait, [self = shared_from_this(), output = std::move(output), from] {
        const std::lock_guard<std::mutex> order(self->order_);
        const std::size_t sent = self->send_up_to_gap(*output, from);
        if (sent < output->bytes.size())
            self->leave_later(output, sent, output->pacing.gap);
    });
}

void Board::Impl::pull_plug() {
    link_.call([](Link* link) { link->unplug(); });
}

void Board::Impl::unplug(std::chrono::milliseconds delay) {
    if (delay <= no_time)
        return pull_plug();
    timeline_.run_at(Clock::now() + delay, [self = shared_from_this()] { self->pull_plug(); });
}

void Board::Impl::start_events(std::chrono::microseconds period, const Event& event) {
    stop_events();
    if (period <= no_time)
        return;
    const unsigned series = with_state([](Impl& board) { return ++board.series_; });
    schedule_tick(Clock::now() + period, period, std::make_shared<const Event>(event), series);
}

void Board::Impl::stop_events() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++series_;
    if (!timeline_.on_own_thread())
        tick_ended_.wait(lock, [this] { return !ticking_; });
}

void Board::Impl::schedule_tick(Clock::time_point due, std::chrono::microseconds period,
                                std::shared_ptr<const Event> event, unsigned series) {
    timeline_.run_at(due, [self = shared_from_this(), due, period, event = std::move(event), series] {
        if (!self->begin_tick(series))
            return;
        self->event_leaves(*event, {});
        if (self->end_tick(series))
            self->schedule_tick(std::max(due + period, Clock::now()), period, event, series);
    });
}

bool Board::Impl::begin_tick(unsigned series) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ticking_ = series == series_;
    return ticking_;
}

bool Board::Impl::end_tick(unsigned series) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ticking_ = false;
    tick_ended_.notify_all(); // under the lock: whoever waits may destroy the board next
    return series == series_;
}

Board::Board(std::string serial_number) : impl_(std::make_shared<Impl>(std::move(serial_number))) {}

Board::~Board() {
    impl_->shut_down();
}

void Board::attach_link(Link* link) {
    impl_->attach_link(link);
}

void Board::from_host(const std::uint8_t* bytes, std::size_t count) {
    impl_->from_host(bytes, count);
}

void Board::plan_next(ReplyPlan plan) {
    impl_->with_state([&](Impl& board) { board.next_plans_.push_back(std::move(plan)); });
}

void Board::plan_all(ReplyPlan plan) {
    impl_->with_state([&](Impl& board) { board.usual_plan_ = plan; });
}

void Board::send_event(const Event& event, const Pacing& pacing) {
    impl_->send_event(event, pacing);
}

void Board::lose_events(unsigned count) {
    impl_->with_state([=](Impl& board) { board.model_.skip_sequences(count); });
}

void Board::start_events(std::chrono::microseconds period, const Event& event) {
    impl_->start_events(period, event);
}

void Board::stop_events() {
    impl_->stop_events();
}

void Board::send_raw(const Bytes& bytes, const Pacing& pacing) {
    impl_->send_raw(bytes, pacing);
}

void Board::unplug(std::chrono::milliseconds delay) {
    impl_->unplug(delay);
}

void Board::set_memory(std::size_t address, const Bytes& bytes) {
    impl_->with_state([&](Impl& board) { board.model_.set_memory(address, bytes); });
}

Bytes Board::memory(std::size_t address, std::size_t count) const {
    return impl_->with_state([=](Impl& board) { return board.model_.memory(address, count); });
}

void Board::set_identifier(std::uint16_t identifier, const Bytes& bytes) {
    impl_->with_state([&](Impl& board) { board.model_.set_identifier(identifier, bytes); });
}

std::optional<Bytes> Board::identifier(std::uint16_t identifier) const {
    return impl_->with_state([=](Impl& board) { return board.model_.identifier(identifier); });
}

void Board::add_error(std::uint16_t status) {
    impl_->with_state([=](Impl& board) { board.model_.add_error(status); });
}

std::uint8_t Board::mode() const {
    return impl_->with_state([](Impl& board) { return board.model_.mode(); });
}

std::vector<Request> Board::requests() const {
    return impl_->requests();
}

std::size_t Board::stray_bytes() const {
    return impl_->with_state([](Impl& board) { return board.stray_bytes_; });
}

} // namespace jorvet::sim
