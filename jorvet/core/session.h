// What an instance has for the session functions (jorvet/api/jv_session.h), beside the requests and queues that its
// class offers: the state of the link, waits that can be cancelled, events with what is known of them, counters and
// callbacks. CJorvet holds one by its last member and tells it what happens.
//
// Locks: `mutex_` guards the state, the threads inside, and the device; it is a leaf, held over no call but those of
// the condition variable and the readiness object. The waits for replies and events sleep on condition variables of
// their own under CJorvet's mutexes, so that no wake-up meant for one kind of wait is taken by another.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "jorvet/base/export.h"
#include "jorvet/base/session_numbers.h"
#include "jorvet/com/attached_devices.h"
#include "jorvet/com/link_extras.h"
#include "jorvet/core/callback_slot.h"
#include "jorvet/core/clock.h"
#include "jorvet/core/deadline.h"
#include "jorvet/core/event_queue.h"
#include "jorvet/core/readiness_flag.h"
#include "jorvet/protocol/request_frame.h"

class CJorvet;

namespace jorvet::core {

constexpr unsigned char deaf_mode = 3; // in this mode the board's bytes are ignored

struct session_state {
    jv_link_state link = JV_LINK_CLOSED;
    std::uint64_t changes = 0;
    stamp since;
    std::string cause;
};

// Since the instance was made. Each is written by whoever causes it.
struct session_counters {
    std::atomic<std::uint64_t> bytes_received{0}, bytes_sent{0}, replies{0}, events{0}, requests{0},
        request_timeouts{0}, wrong_crcs{0}, stale_replies{0}, discarded_frames{0}, lost_events{0}, stream_losses{0},
        resynchronisations{0}, unread_bytes{0};
};

using log_function = void(JV_CALL*)(void* context, unsigned int level, const char* text);
using tap_function = void(JV_CALL*)(void* context, unsigned int direction, const void* bytes, std::size_t count,
                                    std::int64_t monotonic_ns, std::int64_t utc_ns);

// The answer to a request.
struct answer {
    boost::shared_ptr<IProtocol::REPLY_FRAME> reply;
    unsigned status = JV_OK; // the code of its status word
    jv_crc crc = JV_CRC_NONE;
    std::uint64_t stale = 0;
};

class session final : public com::link_observer {
  public:
    explicit session(CJorvet& owner);
    ~session();
    session(const session&) = delete;
    session& operator=(const session&) = delete;

    // ---- Told by CJorvet ----

    // An opening begins; then either `opened`, before anything is received, or `closed`.
    void opening();
    void opened();
    void closed(); // also when nothing was open
    void deaf() { change(JV_LINK_DEAF, ""); }
    void stream_lost(const std::string& cause) { change(JV_LINK_STREAM_LOST, cause); }
    void stream_found();
    void out_of_memory() { change(JV_LINK_OUT_OF_MEMORY, "memory ran out while frames were received"); }
    void link_ended(com::link_end why, const std::string& detail) override;
    // A packet was taken from the link; before its frames are queued.
    void packet_received(const std::vector<unsigned char>& packet);
    // The frames of a packet have been queued.
    void packet_done();
    // Sends a request's frame, counts it and shows it; the link's status.
    unsigned send(std::vector<unsigned char>& frame);
    // Gives a request's turn back when it goes out of scope.
    struct turn_end {
        session& of;
        boost::unique_lock<boost::mutex>& held;
        ~turn_end();
    };
    void remember(com::attached_device device); // that was opened
    void log(jv_log_level level, const std::string& text);
    bool logs(jv_log_level level) const { return log_.is_set() && level <= log_level_; }

    // Whether session functions wait for the reply that is being queued; under m_reply_mutex.
    bool awaits_reply() const { return reply_waiters_ > 0; }
    void reply_queued() { reply_cond_.notify_all(); } // after that was released
    // Events have been queued, and the queue is not plain; under m_event_mutex.
    void event_queued() {
        events_changed();
        if (event_waiters_ > 0)
            event_cond_.notify_all();
    }
    // The number of queued events may have become 0, or more than 0; under m_event_mutex.
    void events_changed() {
        if (readiness_.in_use())
            readiness_.update(readiness_flag::event_queued, events.size() > 0);
    }
    // A reply was queued; under m_reply_mutex.
    void reply_came() {
        ++counters.replies;
        if (timed_out_)
            silent_since_ = boost::chrono::steady_clock::now();
    }

    event_queue events; // guarded by CJorvet's m_event_mutex
    // The threads in CJorvet's own waits: without any, nobody is notified.
    struct {
        unsigned reply = 0; // guarded by m_reply_mutex
        unsigned event = 0; // guarded by m_event_mutex
    } class_waits;
    session_counters counters;
    std::atomic<std::uint32_t> longest_recovered{0}; // data bytes of a frame; 0: no recovery

    // ---- For the session functions ----

    static session& of(CJorvet& instance);
    CJorvet& owner() { return owner_; }
    // From the first session function on.
    void use() { in_use_ = true; }
    bool in_callback() const { return inside_callback::of(this); }

    // A thread inside a session function that may wait; JV_ERR_CANCELLED instead while cancelled.
    class visit {
      public:
        explicit visit(session& visited);
        ~visit();
        visit(const visit&) = delete;
        visit& operator=(const visit&) = delete;
        unsigned refused() const { return entered_ ? JV_OK : JV_ERR_CANCELLED; }

      private:
        session& session_;
        const bool entered_;
    };
    void cancel();
    void resume();
    bool cancelled() const { return cancelled_; }

    session_state see_state(); // the change counts as seen
    std::string last_detail() const;

    // Each is called inside a visit.
    unsigned connect_to(const com::device_check& fits, deadline until);
    unsigned reconnect(deadline until);
    com::attached_device device() const;
    unsigned request(const protocol::request& rq, bool with_crc, std::uint32_t timeout_ms, answer& result);
    // Waits until an event is queued. With JV_OK `lock` holds m_event_mutex.
    unsigned await_event(boost::unique_lock<boost::mutex>& lock, deadline until);

    void set_event_limit(std::size_t events);
    std::uint64_t dropped_events() const;
    void set_quiet_time(std::uint32_t milliseconds) { quiet_ms_ = milliseconds; }
    std::intptr_t readiness();
    void set_log(unsigned level, log_function function, void* context);
    void set_tap(tap_function tap, void* context);

    // The answer that did not fit, if any, and its ticket; for one thread at a time.
    std::uint64_t keep(const answer& too_large);
    bool kept(std::uint64_t ticket, answer& result) const;
    void drop_kept();

  private:
    class event_wait;

    bool enter();

    void change(jv_link_state link, const std::string& cause);
    void set_state(jv_link_state link, const std::string& cause); // under mutex_
    void wake_all();
    unsigned why_not_receiving() const;
    unsigned take_turn(boost::unique_lock<boost::mutex>& turn, deadline until);
    unsigned arm_in_silence(unsigned char command, std::uint64_t& stale);
    unsigned await_reply(deadline until, unsigned timeout_status, answer& result);
    unsigned try_connect(const com::device_check& fits, bool& mistaken);
    bool pause(deadline until, std::uint32_t milliseconds);

    CJorvet& owner_;
    std::atomic<bool> in_use_{false};
    std::atomic<bool> cancelled_{false};

    mutable boost::mutex mutex_;
    boost::condition_variable changed_; // the state, the turn, the threads inside, cancelling
    session_state state_;
    bool opening_ = false; // a loss counts once `opened` is called
    jv_link_state early_ = JV_LINK_CLOSED;
    std::string early_cause_;
    std::atomic<jv_link_state> link_{JV_LINK_CLOSED}; // state_.link, for waits under other locks
    unsigned inside_ = 0;
    com::attached_device device_;
    answer kept_;
    std::uint64_t kept_ticket_ = 0; // 0: none is kept
    std::uint64_t last_ticket_ = 0;

    boost::condition_variable event_cond_; // with m_event_mutex
    unsigned event_waiters_ = 0;           // guarded by m_event_mutex
    boost::condition_variable reply_cond_; // with m_reply_mutex
    unsigned reply_waiters_ = 0;           // guarded by m_reply_mutex
    std::atomic<bool> writing_{false};     // a request is being written
    std::atomic<std::uint32_t> quiet_ms_{0};
    moment silent_since_{};  // the last request timed out then, or a reply came since; guarded by m_reply_mutex
    bool timed_out_ = false; // the last request; guarded by m_reply_mutex
    unsigned counted_events_ = 0, counted_lost_ = 0; // of CJorvet's counters; for the background thread

    readiness_flag readiness_;
    callback_slot<log_function> log_;
    std::atomic<unsigned> log_level_{JV_LOG_NOTHING};
    callback_slot<tap_function> tap_;
};

} // namespace jorvet::core
