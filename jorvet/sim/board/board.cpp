// The board at work: receives requests and sends answers and events, at once on the calling thread or later on the
// timeline's.
//
// Locks, in the order in which they are taken: order_ keeps requests and frames in one piece, and is the only one held
// while the link is called; mutex_ guards the board's state, never during a call.
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

using clock = task_timeline::clock;

namespace {

constexpr std::size_t requests_kept = 1024;
constexpr std::chrono::milliseconds no_time{0};

// Bytes on their way out.
struct board_output {
    byte_vector bytes;
    output_pacing pacing;
    bool then_unplug = false;
};

crc_trailer trailer_of(const board_request& request, const reply_plan& plan) {
    if (!plan.with_crc.value_or(request.with_crc))
        return crc_trailer::none;
    if (plan.shifted_crc)
        return crc_trailer::shifted_crc;
    return plan.wrong_crc ? crc_trailer::wrong_crc : crc_trailer::crc;
}

// Turns the board's own answer into the output to send.
void apply_plan(const reply_plan& plan, const board_request& request, const board_answer& answer,
                board_output& output) {
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

board_link::~board_link() = default;

class simulated_board::impl : public std::enable_shared_from_this<impl> {
  public:
    explicit impl(std::string serial_number) : model_(std::move(serial_number)) {}
    void shut_down();

    void attach_link(board_link* link) { link_.replace(link); }
    void from_host(const std::uint8_t* bytes, std::size_t count);
    void send_event(const board_event& event, const output_pacing& pacing);
    void send_raw(const byte_vector& bytes, const output_pacing& pacing);
    void start_events(std::chrono::microseconds period, const board_event& event);
    void stop_events();
    void unplug(std::chrono::milliseconds delay);
    std::vector<board_request> requests() const;

    // Runs `use` on the state and returns its result.
    template <class Use>
    auto with_state(Use use) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return use(*this);
    }

    mutable std::mutex mutex_;
    board_model model_;
    std::deque<reply_plan> next_plans_;
    reply_plan usual_plan_;
    std::size_t stray_bytes_ = 0;

  private:
    void answer(const board_request& request);
    void compose_answer(const board_request& request);
    void keep(const board_request& request);
    void event_leaves(const board_event& event, const output_pacing& pacing);
    void leave(const board_output& output);
    std::size_t send_up_to_gap(const board_output& output, std::size_t from);
    void leave_later(std::shared_ptr<const board_output> output, std::size_t from, std::chrono::milliseconds wait);
    void pull_plug();
    void schedule_tick(clock::time_point due, std::chrono::microseconds period,
                       std::shared_ptr<const board_event> event, unsigned series);
    bool begin_tick(unsigned series);
    bool end_tick(unsigned series);

    std::mutex order_;
    request_parser parser_; // guarded by order_, as the two below, which keep their memory from one request to the next
    board_answer answer_;
    board_output output_;

    std::vector<board_request> requests_; // with mutex_; a ring once full, `requests_seen_` modulo its size the oldest
    std::size_t requests_seen_ = 0;

    unsigned series_ = 0; // with mutex_; of periodic events; each start and stop begins a new one
    bool ticking_ = false;
    std::condition_variable tick_ended_;

    shared_callee<board_link*> link_;
    task_timeline timeline_;
};

void simulated_board::impl::shut_down() {
    attach_link(nullptr);
    timeline_.stop();
}

void simulated_board::impl::from_host(const std::uint8_t* bytes, std::size_t count) {
    const std::lock_guard<std::mutex> order(order_);
    while (const board_request* request = parser_.next(bytes, count))
        answer(*request);
    const std::lock_guard<std::mutex> lock(mutex_);
    stray_bytes_ = parser_.stray_bytes();
}

void simulated_board::impl::answer(const board_request& request) {
    compose_answer(request);
    leave(output_);
}

void simulated_board::impl::compose_answer(const board_request& request) {
    const std::lock_guard<std::mutex> lock(mutex_);
    stray_bytes_ = parser_.stray_bytes();
    keep(request);
    model_.execute(request, answer_);
    const reply_plan& plan = next_plans_.empty() ? usual_plan_ : next_plans_.front();
    answer_.status = plan.status.value_or(answer_.status);
    model_.note_status(answer_.status);
    apply_plan(plan, request, answer_, output_);
    if (!next_plans_.empty())
        next_plans_.pop_front();
}

void simulated_board::impl::keep(const board_request& request) {
    if (requests_.size() < requests_kept)
        requests_.push_back(request);
    else
        requests_[requests_seen_ % requests_kept] = request;
    ++requests_seen_;
}

std::vector<board_request> simulated_board::impl::requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<board_request> result = requests_;
    if (requests_seen_ > requests_kept)
        std::rotate(result.begin(), result.begin() + static_cast<std::ptrdiff_t>(requests_seen_ % requests_kept),
                    result.end());
    return result;
}

void simulated_board::impl::send_event(const board_event& event, const output_pacing& pacing) {
    if (pacing.delay <= no_time)
        return event_leaves(event, pacing);
    timeline_.run_at(clock::now() + pacing.delay, [self = shared_from_this(), event, pacing] {
        self->event_leaves(event, {no_time, pacing.fragment, pacing.gap});
    });
}

// The sequence byte is counted here, with order_ held, so that the events on the link are always in sequence.
void simulated_board::impl::event_leaves(const board_event& event, const output_pacing& pacing) {
    const std::lock_guard<std::mutex> order(order_);
    output_.bytes.clear();
    output_.pacing = pacing;
    output_.then_unplug = false;
    append_event(output_.bytes, event, with_state([](impl& board) { return board.model_.take_sequence(); }));
    leave(output_);
}

void simulated_board::impl::send_raw(const byte_vector& bytes, const output_pacing& pacing) {
    const std::lock_guard<std::mutex> order(order_);
    leave({bytes, pacing, false});
}

// With order_ held.
void simulated_board::impl::leave(const board_output& output) {
    if (output.pacing.delay > no_time)
        return leave_later(std::make_shared<const board_output>(output), 0, output.pacing.delay);
    const std::size_t sent = send_up_to_gap(output, 0);
    if (sent < output.bytes.size())
        leave_later(std::make_shared<const board_output>(output), sent, output.pacing.gap);
}

// Sends the bytes from `from` up to the first gap or the end, and returns that position. With order_ held.
std::size_t simulated_board::impl::send_up_to_gap(const board_output& output, std::size_t from) {
    const std::size_t size = output.bytes.size();
    const std::size_t piece = output.pacing.fragment == 0 ? size : output.pacing.fragment;
    bool at_gap = false;
    while (from < size && !at_gap) {
        const std::size_t count = std::min(piece, size - from);
        link_.call([&](board_link* link) { link->to_host(&output.bytes[from], count); });
        from += count;
        at_gap = output.pacing.gap > no_time;
    }
    if (from == size && output.then_unplug)
        pull_plug();
    return from;
}

void simulated_board::impl::leave_later(std::shared_ptr<const board_output> output, std::size_t from,
                                        std::chrono::milliseconds wait) {
    timeline_.run_at(clock::now() + wait, [self = shared_from_this(), output = std::move(output), from] {
        const std::lock_guard<std::mutex> order(self->order_);
        const std::size_t sent = self->send_up_to_gap(*output, from);
        if (sent < output->bytes.size())
            self->leave_later(output, sent, output->pacing.gap);
    });
}

void simulated_board::impl::pull_plug() {
    link_.call([](board_link* link) { link->unplug(); });
}

void simulated_board::impl::unplug(std::chrono::milliseconds delay) {
    if (delay <= no_time)
        return pull_plug();
    timeline_.run_at(clock::now() + delay, [self = shared_from_this()] { self->pull_plug(); });
}

void simulated_board::impl::start_events(std::chrono::microseconds period, const board_event& event) {
    stop_events();
    if (period <= no_time)
        return;
    const unsigned series = with_state([](impl& board) { return ++board.series_; });
    schedule_tick(clock::now() + period, period, std::make_shared<const board_event>(event), series);
}

void simulated_board::impl::stop_events() {
    std::unique_lock<std::mutex> lock(mutex_);
    ++series_;
    if (!timeline_.on_own_thread())
        tick_ended_.wait(lock, [this] { return !ticking_; });
}

void simulated_board::impl::schedule_tick(clock::time_point due, std::chrono::microseconds period,
                                          std::shared_ptr<const board_event> event, unsigned series) {
    timeline_.run_at(due, [self = shared_from_this(), due, period, event = std::move(event), series] {
        if (!self->begin_tick(series))
            return;
        self->event_leaves(*event, {});
        if (self->end_tick(series))
            self->schedule_tick(std::max(due + period, clock::now()), period, event, series);
    });
}

bool simulated_board::impl::begin_tick(unsigned series) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ticking_ = series == series_;
    return ticking_;
}

bool simulated_board::impl::end_tick(unsigned series) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ticking_ = false;
    tick_ended_.notify_all(); // under the lock: whoever waits may destroy the board next
    return series == series_;
}

simulated_board::simulated_board(std::string serial_number) : impl_(std::make_shared<impl>(std::move(serial_number))) {}

simulated_board::~simulated_board() {
    impl_->shut_down();
}

void simulated_board::attach_link(board_link* link) {
    impl_->attach_link(link);
}

void simulated_board::from_host(const std::uint8_t* bytes, std::size_t count) {
    impl_->from_host(bytes, count);
}

void simulated_board::plan_next(reply_plan plan) {
    impl_->with_state([&](impl& board) { board.next_plans_.push_back(std::move(plan)); });
}

void simulated_board::plan_all(reply_plan plan) {
    impl_->with_state([&](impl& board) { board.usual_plan_ = plan; });
}

void simulated_board::send_event(const board_event& event, const output_pacing& pacing) {
    impl_->send_event(event, pacing);
}

void simulated_board::lose_events(unsigned count) {
    impl_->with_state([=](impl& board) { board.model_.skip_sequences(count); });
}

void simulated_board::start_events(std::chrono::microseconds period, const board_event& event) {
    impl_->start_events(period, event);
}

void simulated_board::stop_events() {
    impl_->stop_events();
}

void simulated_board::send_raw(const byte_vector& bytes, const output_pacing& pacing) {
    impl_->send_raw(bytes, pacing);
}

void simulated_board::unplug(std::chrono::milliseconds delay) {
    impl_->unplug(delay);
}

void simulated_board::set_memory(std::size_t address, const byte_vector& bytes) {
    impl_->with_state([&](impl& board) { board.model_.set_memory(address, bytes); });
}

byte_vector simulated_board::memory(std::size_t address, std::size_t count) const {
    return impl_->with_state([=](impl& board) { return board.model_.memory(address, count); });
}

void simulated_board::set_identifier(std::uint16_t identifier, const byte_vector& bytes) {
    impl_->with_state([&](impl& board) { board.model_.set_identifier(identifier, bytes); });
}

std::optional<byte_vector> simulated_board::identifier(std::uint16_t identifier) const {
    return impl_->with_state([=](impl& board) { return board.model_.identifier(identifier); });
}

void simulated_board::add_error(std::uint16_t status) {
    impl_->with_state([=](impl& board) { board.model_.add_error(status); });
}

std::uint8_t simulated_board::mode() const {
    return impl_->with_state([](impl& board) { return board.model_.mode(); });
}

std::vector<board_request> simulated_board::requests() const {
    return impl_->requests();
}

std::size_t simulated_board::stray_bytes() const {
    return impl_->with_state([](impl& board) { return board.stray_bytes_; });
}

} // namespace jorvet::sim
