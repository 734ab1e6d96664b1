// The object that event loops wait for, ready while any of its reasons holds. Any thread.
#pragma once

#include <atomic>
#include <cstdint>

#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include "jorvet/system/readiness.h"

namespace jorvet::core {

class readiness_flag {
  public:
    enum reason : unsigned { event_queued = 1, state_unseen = 2 };

    readiness_flag() = default;
    ~readiness_flag() {
        if (object_ != readiness::none)
            readiness::destroy(object_);
    }
    readiness_flag(const readiness_flag&) = delete;
    readiness_flag& operator=(const readiness_flag&) = delete;

    bool in_use() const { return in_use_.load(std::memory_order_relaxed); }

    // Makes the object at the first call; `none` when it cannot be made.
    std::intptr_t get() {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        if (object_ == readiness::none) {
            object_ = readiness::create();
            if (object_ != readiness::none && reasons_ != 0)
                readiness::set(object_);
            in_use_ = object_ != readiness::none;
        }
        return object_;
    }

    void update(reason which, bool holds) {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        const unsigned before = reasons_;
        reasons_ = holds ? before | which : before & ~static_cast<unsigned>(which);
        if (object_ == readiness::none || (before == 0) == (reasons_ == 0))
            return;
        reasons_ != 0 ? readiness::set(object_) : readiness::clear(object_);
    }

  private:
    std::atomic<bool> in_use_{false};
    boost::mutex mutex_;
    std::intptr_t object_ = readiness::none;
    unsigned reasons_ = 0;
};

} // namespace jorvet::core
