// What every simulated device has, whatever the driver sees of it: a board, a trace of its link, a plug to pull. Any
// thread may call anything.
#pragma once

#include <functional>
#include <memory>

#include "jorvet/sim/board/board.h"

namespace jorvet::sim {

enum class Direction { to_board, to_host };

// Sees the bytes that cross the link, on the thread that moves them, one call at a time per link. It may pull the plug
// and look at things, but neither make the board send nor wait for a thread that does.
using Trace = std::function<void(Direction direction, const std::uint8_t* bytes, std::size_t count)>;

class JV_SIM_API Plug {
  public:
    virtual ~Plug();

    virtual Board& board() = 0;
    virtual void set_trace(Trace trace) = 0; // returns once no call of the trace before is under way

    // Pulls the plug: the device leaves the bus, and every operation on it fails from now on. Harmless the second time.
    virtual void unplug() = 0;
    virtual bool plugged_in() const = 0;

    // The board takes only `bytes` more of what the host writes, then none, until `accept_writes` ends that and what
    // waits goes on.
    virtual void stall_writes_after(std::size_t bytes) = 0;
    virtual void accept_writes() = 0;

    // The device that has taken this one's place on the bus; null while none has.
    virtual std::shared_ptr<Plug> successor() const;
};

} // namespace jorvet::sim
