// What all simulated devices have in common: a board, a trace of its link, a plug to pull. Any
// thread may call anything.
#pragma once

#include <functional>
#include <memory>

#include "jorvet/sim/board/board.h"
#include "jorvet/sim/support/link_trace.h"

namespace jorvet::sim {

class JV_SIM_API simulated_device {
  public:
    virtual ~simulated_device();

    virtual simulated_board& board() = 0;
    virtual void set_trace(trace_function trace) = 0; // returns once no call of the previous trace is in progress

    // Pulls the plug: the device leaves the bus, and every operation on it fails from now on. Harmless the second time.
    virtual void unplug() = 0;
    virtual bool plugged_in() const = 0;

    // The board takes only `bytes` more of what the host writes, then none, until `accept_writes`; waiting bytes are
    // taken then.
    virtual void stall_writes_after(std::size_t bytes) = 0;
    virtual void accept_writes() = 0;

    // The device that has replaced this one on the bus; null if none has.
    virtual std::shared_ptr<simulated_device> successor() const;
};

} // namespace jorvet::sim
