// Makes the record of each frame that the engine finds, and queues it in the instance. Runs on the background thread.
//
// Replies are queued one by one. Events are held back until there are enough of them, a reply or a loss follows, or the
// packet ends: one lock and one notification serve all of them.
#pragma once

#include <vector>

#include "jorvet/core/event_queue.h"
#include "jorvet/core/receive_engine.h"

class CJorvet;

namespace jorvet::core {

class session;

class receiver final : public receive_sink {
  public:
    static constexpr std::size_t most_events = 64; // held back at once
    static constexpr std::size_t most_data = 4096; // bytes from which on they are queued at once

    explicit receiver(CJorvet& instance);
    ~receiver(); // queues what is held back
    receiver(const receiver&) = delete;
    receiver& operator=(const receiver&) = delete;

    void event(event_view frame, unsigned lost) override;
    void reply(reply_view frame) override;
    void context_lost(const context_loss& loss) override;
    bool wants_reports() const override;
    void frame_discarded() override;
    void stream_broken(bool goes_on) override;
    void packet_ended() override { queue_events(); }

  private:
    void queue_events();
    void learn_mode(unsigned char mode);

    CJorvet& jorvet_;
    session& session_;
    event_queue& events_;
    std::vector<event_record> held_; // oldest first
    std::size_t held_data_ = 0;      // bytes
    unsigned lost_ = 0;              // before the oldest; none are missing between the others
};

} // namespace jorvet::core
