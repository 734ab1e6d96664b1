// From frames to queued records; see the header. Notifies after unlocking.
#include "jorvet/core/receiver.h"

#include <algorithm>
#include <utility>

#include "jorvet/base/diagnostics.h"
#include "jorvet/core/context_report.h"
#include "jorvet/core/frame_records.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"
#include "jorvet/protocol/request_frame.h"

namespace jorvet::core {

namespace {

using lock = boost::unique_lock<boost::mutex>;

constexpr std::size_t least_room = 16; // records: a queue that was emptied does not grow in small steps again

// Moves the records over, or leaves them where they are when there is no memory for that.
void append_all(std::vector<event_record>& queue, std::vector<event_record>& records) {
    const std::size_t size = queue.size() + records.size();
    if (size > queue.capacity())
        queue.reserve(std::max({size, 2 * queue.capacity(), least_room}));
    for (event_record& record : records)
        queue.push_back(std::move(record));
    records.clear();
}

} // namespace

receiver::receiver(CJorvet& instance) : jorvet_(instance), session_(*instance.m_session), events_(session_.events) {
    held_.reserve(most_events);
}

receiver::~receiver() {
    try {
        queue_events();
    } catch (...) { // memory has run out, which the background thread tells
    }
}

void receiver::event(event_view frame, unsigned lost) {
    if (lost != 0) {
        queue_events();
        lost_ = lost;
    }
    held_.push_back(make_event(frame));
    held_data_ += frame.length();
    if (held_.size() == most_events || held_data_ >= most_data)
        queue_events();
}

void receiver::queue_events() {
    const std::size_t count = held_.size();
    if (count == 0)
        return;
    bool awaited = false;
    {
        const lock held(jorvet_.m_event_mutex);
        awaited = session_.class_waits.event > 0;
        append_all(jorvet_.m_event_frames, held_);
        jorvet_.m_event_count += static_cast<unsigned>(count);
        jorvet_.m_event_ready = true;
        if (lost_ != 0 || !events_.plain()) {
            jorvet_.m_lost_events += lost_;
            events_.noted(count, lost_);
            session_.event_queued();
        }
    }
    if (awaited && count == 1)
        jorvet_.m_event_cond.notify_one();
    else if (awaited)
        jorvet_.m_event_cond.notify_all();
    held_data_ = 0;
    lost_ = 0;
}

void receiver::reply(reply_view frame) {
    if (!held_.empty())
        queue_events();
    auto record = make_reply(frame);
    if (record->status == protocol::board_success && record->length == 1)
        learn_mode(record->data[0]);
    bool awaited = false, awaited_by_session = false;
    {
        const lock held(jorvet_.m_reply_mutex);
        awaited = session_.class_waits.reply > 0;
        jorvet_.m_reply_status = record->status;
        jorvet_.m_reply_frames.push_back(std::move(record));
        jorvet_.m_reply_ready = true;
        session_.reply_came();
        awaited_by_session = session_.awaits_reply();
    }
    if (awaited)
        jorvet_.m_reply_cond.notify_one();
    if (awaited_by_session)
        session_.reply_queued();
}

// From the data of a good reply, before whoever waits for it sees it.
void receiver::learn_mode(unsigned char mode) {
    {
        const lock held(jorvet_.m_reply_mutex);
        if (jorvet_.m_rq_cmd != protocol::requests::get_mode.command)
            return;
        jorvet_.m_mode = mode;
    }
    if (mode == deaf_mode)
        session_.deaf();
}

void receiver::context_lost(const context_loss& loss) {
    queue_events();
    const std::string text = describe(loss);
    diagnostics::write(text);
    session_.log(JV_LOG_ERRORS, text);
}

bool receiver::wants_reports() const {
    return diagnostics::listening() || session_.logs(JV_LOG_ERRORS);
}

void receiver::frame_discarded() {
    ++session_.counters.discarded_frames;
}

void receiver::stream_broken(bool goes_on) {
    queue_events();
    ++session_.counters.stream_losses;
    if (goes_on)
        ++session_.counters.resynchronisations;
}

} // namespace jorvet::core
