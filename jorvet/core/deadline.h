// When a wait ends, and who waits.
#pragma once

#include <cstdint>
#include <optional>

#include <boost/chrono/duration.hpp>
#include <boost/chrono/system_clocks.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include "jorvet/base/session_numbers.h"

namespace jorvet::core {

// Counts a waiter for as long as it lives.
class counted {
  public:
    explicit counted(unsigned& count) : count_(count) { ++count_; }
    ~counted() { --count_; }
    counted(const counted&) = delete;
    counted& operator=(const counted&) = delete;

  private:
    unsigned& count_;
};

using moment = boost::chrono::steady_clock::time_point;

class deadline {
  public:
    explicit deadline(std::uint32_t timeout_ms) : deadline(clock::now(), timeout_ms) {}
    deadline(moment start, std::uint32_t timeout_ms) {
        if (timeout_ms != JV_NO_LIMIT)
            end_ = start + boost::chrono::milliseconds(timeout_ms);
    }

    bool passed() const { return end_ && clock::now() >= *end_; }

    // Waits until `condition` is notified or the deadline passes; may return early. False when it has passed.
    bool wait(boost::condition_variable& condition, boost::unique_lock<boost::mutex>& lock) const {
        if (!end_)
            condition.wait(lock);
        else if (passed() || condition.wait_until(lock, *end_) == boost::cv_status::timeout)
            return false;
        return true;
    }

    // The earlier of this and `other`.
    deadline or_earlier(const deadline& other) const {
        return !end_ || (other.end_ && *other.end_ < *end_) ? other : *this;
    }

  private:
    using clock = boost::chrono::steady_clock;
    std::optional<moment> end_; // none: never
};

} // namespace jorvet::core
