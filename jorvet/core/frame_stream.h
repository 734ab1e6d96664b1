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

    // One packet. False: the stream is lost for good.
    bool take(std::vector<unsigned char> packet) {
        if (scanning_) {
            scanner_.add(packet);
            return scan();
        }
        return engine_->take(std::move(packet)) || recover();
    }

  private:
    bool recover() {
        session_.stream_lost("the received bytes no longer make sense as frames");
        std::vector<unsigned char> rest = engine_->rest();
        if (session_.longest_recovered == 0) {
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
        while (scanning_ && scanner_.find(session_.longest_recovered, bytes, skipped)) {
            engine_.emplace(sink_, engine_->last_seq());
            session_.stream_found();
            scanning_ = !engine_->take(std::move(bytes));
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
};

} // namespace jorvet::core
