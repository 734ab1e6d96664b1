// What the simulated board sends: events, and how a reply differs from the board's own.
#pragma once

#include <chrono>
#include <optional>

#include "jorvet/base/export.h"
#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

// How bytes are sent: in pieces of `fragment` bytes (0: in one piece), at least `gap` apart, the first one `delay` from
// now. Other output may be sent during a gap.
struct output_pacing {
    std::chrono::milliseconds delay{0};
    std::size_t fragment = 0;
    std::chrono::milliseconds gap{0};
};

// How one reply differs from what the board would send by itself.
struct JV_SIM_API reply_plan {
    bool silent = false;                   // no reply; stray bytes are sent all the same
    std::optional<std::uint16_t> status;   // this status word instead of the board's
    std::optional<byte_vector> data;       // these data instead of the board's
    std::optional<bool> with_crc;          // instead of following the request
    bool wrong_crc = false;                // the CRC, if there is one, has a wrong bit
    byte_vector stray_before, stray_after; // bytes of no frame around the reply
    output_pacing pacing;
    // The link is unplugged after so many bytes of the reply have been sent, stray bytes not counted; nothing is sent
    // afterwards. Never, if the reply has fewer.
    std::optional<std::size_t> unplug_after;
    bool shifted_crc = false; // the CRC takes bits 4 to 11 of the status and of the length for their high bytes

    ~reply_plan(); // not inline: gcc would warn in callers that `data` may be used uninitialised
};

// One event, without its sequence byte, which the board counts when the event is sent.
struct board_event {
    std::uint8_t id = 1;
    std::uint16_t status = 0xA000;
    byte_vector data;
    bool with_crc = false;
};

} // namespace jorvet::sim
