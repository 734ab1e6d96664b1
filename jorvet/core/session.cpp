// The state of the link, cancelling, callbacks and counters; see the header for locks.
#include "jorvet/core/session.h"

#include <algorithm>
#include <utility>

#include "jorvet/core/jorvet.h"

namespace jorvet::core {

namespace {

using lock = boost::unique_lock<boost::mutex>;

constexpr std::uint32_t write_poll_ms = 20; // while a cancel waits for a write that may begin yet

// Whether a link in one state can come to be in the other without being opened anew.
bool leads_to(jv_link_state from, jv_link_state to) {
    switch (from) {
    case JV_LINK_RECEIVING:
        return to != JV_LINK_RECEIVING;
    case JV_LINK_STREAM_LOST:
        return to != JV_LINK_STREAM_LOST && to != JV_LINK_DEAF;
    case JV_LINK_DEAF:
        return to == JV_LINK_DEVICE_LOST || to == JV_LINK_OUT_OF_MEMORY;
    default:
        return false;
    }
}

const char* text_of(jv_link_state link) {
    switch (link) {
    case JV_LINK_RECEIVING:
        return "frames are received";
    case JV_LINK_STREAM_LOST:
        return "the stream is lost";
    case JV_LINK_DEVICE_LOST:
        return "the device is lost";
    case JV_LINK_OUT_OF_MEMORY:
        return "out of memory";
    case JV_LINK_DEAF:
        return "the board is in mode 3, and what it sends is ignored";
    default:
        return "the link is closed";
    }
}

bool is_loss(jv_link_state link) {
    return link == JV_LINK_STREAM_LOST || link == JV_LINK_DEVICE_LOST || link == JV_LINK_OUT_OF_MEMORY;
}

} // namespace

session::session(CJorvet& owner) : events(owner.m_event_frames), owner_(owner), log_(this), tap_(this) {
    if (owner_.m_com)
        owner_.m_com->extras().observer = this;
}

session::~session() {
    if (owner_.m_com)
        owner_.m_com->extras().observer = nullptr; // the link may live on
}

session& session::of(CJorvet& instance) {
    return *instance.m_session;
}

// ---- State ----

void session::opening() {
    const lock held(mutex_);
    opening_ = true;
    early_ = JV_LINK_CLOSED;
}

void session::opened() {
    counted_events_ = counted_lost_ = 0;
    const bool is_deaf = owner_.m_mode == deaf_mode;
    {
        const lock held(mutex_);
        opening_ = false;
        set_state(is_deaf ? JV_LINK_DEAF : JV_LINK_RECEIVING, "");
        if (early_ != JV_LINK_CLOSED)
            set_state(early_, early_cause_);
    }
    log(JV_LOG_NOTES, "connected");
}

void session::closed() {
    {
        const lock held(mutex_);
        opening_ = false;
        kept_ticket_ = 0;
        if (state_.link == JV_LINK_CLOSED)
            return;
        set_state(JV_LINK_CLOSED, "");
    }
    wake_all();
    log(JV_LOG_NOTES, "disconnected");
}

void session::stream_found() {
    ++counters.resynchronisations;
    change(JV_LINK_RECEIVING, "frames were found again");
}

void session::link_ended(com::link_end why, const std::string& detail) {
    if (why == com::link_end::out_of_memory)
        out_of_memory();
    else
        change(JV_LINK_DEVICE_LOST, detail);
}

void session::change(jv_link_state link, const std::string& cause) {
    {
        const lock held(mutex_);
        if (opening_) {
            early_ = link;
            early_cause_ = cause;
        }
        if (!leads_to(state_.link, link))
            return;
        set_state(link, cause);
    }
    wake_all();
    log(is_loss(link) ? JV_LOG_ERRORS : JV_LOG_NOTES, std::string(text_of(link)) + (cause.empty() ? "" : ": " + cause));
}

void session::set_state(jv_link_state link, const std::string& cause) {
    state_.link = link;
    ++state_.changes;
    state_.since = stamp::now();
    state_.cause = cause;
    link_ = link;
    readiness_.update(readiness_flag::state_unseen, true);
}

session_state session::see_state() {
    const lock held(mutex_);
    readiness_.update(readiness_flag::state_unseen, false);
    return state_;
}

std::string session::last_detail() const {
    return owner_.m_com->extras().detail();
}

unsigned session::why_not_receiving() const {
    switch (link_.load()) {
    case JV_LINK_CLOSED:
        return JV_ERR_COM_NOT_OPEN;
    case JV_LINK_STREAM_LOST:
        return longest_recovered != 0 ? JV_OK : JV_ERR_CONTEXT_LOSS;
    case JV_LINK_DEVICE_LOST:
        return JV_ERR_DEVICE_LOST;
    case JV_LINK_OUT_OF_MEMORY:
        return JV_ERR_NO_RESOURCES;
    default:
        return JV_OK;
    }
}

// ---- Ending waits ----

bool session::enter() {
    const lock held(mutex_);
    if (cancelled_)
        return false;
    ++inside_;
    return true;
}

session::visit::visit(session& visited) : session_(visited), entered_(visited.enter()) {}

session::visit::~visit() {
    if (!entered_)
        return;
    {
        const lock held(session_.mutex_);
        --session_.inside_;
    }
    session_.changed_.notify_all();
}

void session::cancel() {
    {
        const lock held(mutex_);
        cancelled_ = true;
    }
    wake_all();
    lock held(mutex_);
    while (inside_ > 0) {
        if (writing_ && owner_.m_com_type == JV_KIND_CYPRESS) {
            held.unlock();
            owner_.m_com->purge_tx(); // ends the write; one to a bridge ends soon by itself
            held.lock();
        }
        deadline(write_poll_ms).wait(changed_, held);
    }
}

void session::resume() {
    const lock held(mutex_);
    cancelled_ = false;
}

// Each lock is taken once, so that no waiter is between its look at the state and its sleep.
void session::wake_all() {
    { const lock held(mutex_); }
    changed_.notify_all();
    { const lock held(owner_.m_event_mutex); }
    event_cond_.notify_all();
    { const lock held(owner_.m_reply_mutex); }
    reply_cond_.notify_all();
}

bool session::pause(deadline until, std::uint32_t milliseconds) {
    lock held(mutex_);
    const deadline end = until.or_earlier(deadline(milliseconds));
    while (!cancelled_ && end.wait(changed_, held)) {
    }
    return !cancelled_;
}

// ---- Insight ----

void session::packet_received(const std::vector<unsigned char>& packet) {
    counters.bytes_received += packet.size();
    if (!in_use_ && !tap_.is_set())
        return;
    const stamp arrival = stamp::now();
    {
        const lock held(owner_.m_event_mutex);
        events.packet_arrived(arrival);
    }
    tap_.call(unsigned{JV_TO_HOST}, static_cast<const void*>(packet.data()), packet.size(), arrival.monotonic_ns,
              arrival.utc_ns);
}

// Whole counts, of numbers that wrap.
void session::packet_done() {
    const unsigned all_events = owner_.m_event_count, all_lost = owner_.m_lost_events;
    counters.events += all_events - std::exchange(counted_events_, all_events);
    counters.lost_events += all_lost - std::exchange(counted_lost_, all_lost);
}

unsigned session::send(std::vector<unsigned char>& frame) {
    ++counters.requests;
    if (tap_.is_set()) { // before its reply can come
        const stamp now = stamp::now();
        tap_.call(unsigned{JV_TO_BOARD}, static_cast<const void*>(frame.data()), frame.size(), now.monotonic_ns,
                  now.utc_ns);
    }
    const unsigned status = owner_.m_com->write(frame.data(), static_cast<unsigned>(frame.size()));
    if (status == JV_OK)
        counters.bytes_sent += frame.size();
    return status;
}

void session::set_log(unsigned level, log_function function, void* context) {
    log_.replace(level == JV_LOG_NOTHING ? nullptr : function, context);
    log_level_ = level;
}

void session::log(jv_log_level level, const std::string& text) {
    if (logs(level))
        log_.call(unsigned{level}, text.c_str());
}

void session::set_tap(tap_function tap, void* context) {
    tap_.replace(tap, context);
}

} // namespace jorvet::core
