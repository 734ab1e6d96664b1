// What a link has behind its last member, so that the exported classes need not grow again: who is told of its end, and
// what its driver said last.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <boost/thread/mutex.hpp>

namespace jorvet::com {

// Why a listening thread ended by itself.
enum class link_end { device_lost, out_of_memory };

class link_observer {
  public:
    // On the listening thread, which then ends; not when it was asked to stop.
    virtual void link_ended(link_end why, const std::string& detail) = 0;

  protected:
    ~link_observer() = default;
};

class link_extras {
  public:
    link_observer* observer = nullptr;            // set before the first opening
    std::atomic<std::uint64_t> dropped_unread{0}; // bytes dropped from the receive buffer while nobody takes them

    // A sentence about a failure: what failed, and how.
    void note(std::string detail) {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        detail_ = std::move(detail);
    }
    std::string detail() const {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        return detail_;
    }

    // Tells the observer of an end, with the last sentence.
    void ended(link_end why) const {
        if (observer != nullptr)
            observer->link_ended(why, detail());
    }

  private:
    mutable boost::mutex mutex_;
    std::string detail_;
};

} // namespace jorvet::com
