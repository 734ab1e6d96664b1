// How one transfer on the simulated controller differs from what the device would do by itself.
#pragma once

#include <chrono>
#include <optional>

#include "jorvet/ports/ports.h"
#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

struct transfer_plan {
    // `stalled` halts a bulk or interrupt endpoint until it is reset: its later transfers end as stalled, too.
    ports::usb_end end = ports::usb_end::ok;
    // The transfer ends after so many bytes have moved; a transfer from the device ends with the next piece at the
    // latest. Without it, an end other than ok comes at once, without bytes.
    std::optional<std::size_t> after;
    bool silent = false; // stays pending until the host ends it
    // Sent by the device at once instead of its own data; babble if it is more than there is room for. On endpoint 0:
    // the answer.
    std::optional<byte_vector> data;
    std::chrono::milliseconds delay{0}; // until any of this happens; later transfers on the endpoint wait, too
};

} // namespace jorvet::sim
