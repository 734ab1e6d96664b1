// Waiting for events, and the event loop's view of them. On the application's threads.
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"

namespace jorvet::core {

namespace {

using lock = boost::unique_lock<boost::mutex>;

} // namespace

// A thread that waits for an event, under m_event_mutex.
class session::event_wait {
  public:
    explicit event_wait(session& waited_in) : session_(waited_in) {
        ++session_.event_waiters_;
        session_.events.watched();
    }
    ~event_wait() {
        --session_.event_waiters_;
        session_.events.unwatched();
    }
    event_wait(const event_wait&) = delete;
    event_wait& operator=(const event_wait&) = delete;

  private:
    session& session_;
};

unsigned session::await_event(lock& held, deadline until) {
    held = lock(owner_.m_event_mutex);
    bool in_time = true;
    while (events.size() == 0) {
        if (cancelled_)
            return JV_ERR_CANCELLED;
        if (const unsigned status = why_not_receiving())
            return status;
        if (!in_time)
            return JV_ERR_EVENT_TIMEOUT;
        const event_wait waiting(*this);
        in_time = until.wait(event_cond_, held);
    }
    return JV_OK;
}

void session::set_event_limit(std::size_t limit) {
    const lock held(owner_.m_event_mutex);
    events.set_limit(limit);
}

std::uint64_t session::dropped_events() const {
    const lock held(owner_.m_event_mutex);
    return events.dropped();
}

std::intptr_t session::readiness() {
    const lock held(owner_.m_event_mutex);
    const bool first = !readiness_.in_use();
    const std::intptr_t object = readiness_.get();
    if (first && object != readiness::none) {
        events.watched(); // for good
        events_changed();
    }
    return object;
}

} // namespace jorvet::core
