// The byte stream of a connected board: the receive engine and, when recovery is switched on, the scanner that finds
// frames again after the engine has stopped. Runs on the background thread.
#pragma once

#include <optional>
#include <vector>

#include "jorvet/core/receive_engine.h"
#include "jorvet/core/recovery_scanner.h"
#include "jorvet/core/session.h"

namespace jorvet::core {

class frame_stream {
  public:
    frame_stream(receive_sink& sink, session& told) : sink_(sink), session_(told) { engine_.emplace(sink_); }

    // One packet; leaves memory to be filled again in its place. False: the stream is lost for good.
    bool take(std::vector<unsigned char>& packet) {
        if (scanning_) {
            scanner_.add(packet);
            return scan();
        }
        return feed(packet) || recover();
    }

  private:
    // False when the stream is lost. With recovery on, the beginning of a frame that is too long is a loss as well:
    // waiting for its end would swallow the frames in it.
    bool feed(std::vector<unsigned char>& packet) {
        if (!engine_->take(packet))
            return false;
        const std::size_t longest = session_.longest_recovered;
        if (longest == 0 || engine_->pending_length() <= longest)
            return true;
        ++session_.counters.stream_losses;
        return false;
    }

    bool recover() {
        session_.stream_lost("the received bytes no longer make sense as frames");
        std::vector<unsigned char> rest = engine_->rest();
        longest_ = session_.longest_recovered;
        if (longest_ == 0) {
            session_.counters.unread_bytes += rest.size();
            return false;
        }
        scanner_.begin(std::move(rest));
        scanning_ = true;
        return scan();
    }

    // Goes on with each frame that is found, as often as the stream is lost again behind it.
    bool scan() {
        std::vector<unsigned char> bytes;
        std::size_t skipped = 0;
        while (scanning_ && scanner_.find(longest_, bytes, skipped)) {
            engine_.emplace(sink_, engine_->last_seq());
            session_.stream_found();
            scanning_ = !feed(bytes);
            if (scanning_) {
                session_.stream_lost("the received bytes no longer make sense as frames");
                scanner_.begin(engine_->rest());
            }
        }
        session_.counters.unread_bytes += skipped;
        return true;
    }

    receive_sink& sink_;
    session& session_;
    std::optional<receive_engine> engine_;
    recovery_scanner scanner_;
    bool scanning_ = false;
    std::size_t longest_ = 0; // while scanning
};

} // namespace jorvet::core
