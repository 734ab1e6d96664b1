// The observer of the bytes on a link. It is called for one piece of bytes at a time, and may be replaced at any time,
// also by itself. The lock is held while the observer runs.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

enum class link_direction { to_board, to_host };

// Called with the bytes that cross the link, on the thread that moves them, one call at a time per link. It may unplug
// the device and query it, but must not make the board send, nor wait for a thread that does.
using trace_function = std::function<void(link_direction direction, const std::uint8_t* bytes, std::size_t count)>;

class link_trace {
  public:
    // Returns when no call of the previous trace is running on another thread.
    void set(trace_function trace) {
        auto next = trace ? std::make_shared<const trace_function>(std::move(trace)) : nullptr;
        const std::lock_guard<std::recursive_mutex> order(order_);
        trace_.swap(next);
    }

    void call(link_direction direction, const std::uint8_t* bytes, std::size_t count) {
        const std::lock_guard<std::recursive_mutex> order(order_);
        if (const std::shared_ptr<const trace_function> current = trace_)
            (*current)(direction, bytes, count);
    }

  private:
    std::recursive_mutex order_; // recursive: a trace may replace itself
    std::shared_ptr<const trace_function> trace_;
};

} // namespace jorvet::sim
