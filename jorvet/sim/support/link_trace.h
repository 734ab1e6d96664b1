// Whoever sees the bytes on a link: one call at a time, exchanged at any time, also from inside a call. Its lock is
// held during the calls.
#pragma once

#include <mutex>
#include <utility>

#include "jorvet/sim/board/simulated_device.h"

namespace jorvet::sim {

class LinkTrace {
  public:
    void set(Trace trace) {
        auto next = trace ? std::make_shared<const Trace>(std::move(trace)) : nullptr;
        const std::lock_guard<std::recursive_mutex> order(order_);
        trace_.swap(next);
    }

    void call(Direction direction, const std::uint8_t* bytes, std::size_t count) {
        const std::lock_guard<std::recursive_mutex> order(order_);
        if (const std::shared_ptr<const Trace> current = trace_)
            (*current)(direction, bytes, count);
    }

  private:
    std::recursive_mutex order_; // recursive: a trace may replace itself
    std::shared_ptr<const Trace> trace_;
};

} // namespace jorvet::sim
