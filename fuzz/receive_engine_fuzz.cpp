// Feeds the receive engine arbitrary packets. It must end, stay inside its memory, find no more frames than the bytes
// allow, and find what the reference receiver finds.
//
// Input: packets, each a length byte and that many bytes (the last one as many as there are).
#include <algorithm>
#include <cstdlib>

#include "tests/support/reference_receiver.h"

namespace {
void require(bool condition) {
    if (!condition)
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    constexpr std::size_t smallest_frame = 5;
    jorvet::testing::recorded_engine engine;
    jorvet::testing::reference_receiver reference;
    std::size_t fed = 0;
    for (std::size_t at = 0; at < size;) {
        const std::size_t length = std::min<std::size_t>(bytes[at], size - at - 1);
        const jorvet::testing::byte_vector packet(bytes + at + 1, bytes + at + 1 + length);
        at += 1 + length;
        fed += length;
        engine.take(packet);
        reference.take(packet);
    }
    // A search may go over a frame's inside once more, but never over the same start: each start byte gives one frame.
    require(engine.result.frame_count <= fed);
    require(engine.result.reports.size() > 0 || engine.result.frame_count <= fed / smallest_frame);
    require(engine.result.frames == reference.result.frames);
    require(engine.result.reports.size() == reference.result.reports.size());
    for (std::size_t i = 0; i < engine.result.reports.size(); ++i)
        require(jorvet::testing::same_report(engine.result.reports[i], reference.result.reports[i]));
    return 0;
}
