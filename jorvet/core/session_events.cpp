// Waiting for events, and the event loop's view of them. On the application's threads.
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"

namespace jorvet::core {

namespace {

using lock = boost::unique_lock<boost::mutex>;

} // namespace

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
        const counted waiting(event_watchers_);
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
        ++event_watchers_; // for good
        events_changed();
    }
    return object;
}

} // namespace jorvet::core
