// The receive engine: cuts the byte stream of the board into reply and event frames, and recovers when bytes arrive
// that belong to no frame. It is pure computation: no thread, lock, clock or transport. The background thread of an
// instance feeds it; it reports to a sink.
//
// Input comes in packets, and a packet's end is input too: a frame that is complete at the end of a packet is handed
// over at once; inside a packet it counts only when a board start byte or a separator (0xFF, consumed) follows, and is
// discarded otherwise. Any other byte outside a frame is a context loss: the engine searches for the start of a likely
// event after the frame begun last (in the packet before, too, when that frame began there) and goes on from it, or
// stops for good when there is none.
#pragma once

#include <cstddef>
#include <vector>

#include "jorvet/protocol/frames.h"

namespace jorvet::core {

// A whole frame as it lies in the received bytes; valid during the sink's call.
template <std::size_t HeaderSize>
class frame_view {
  public:
    static constexpr std::size_t header_size = HeaderSize;

    explicit frame_view(const unsigned char* frame) : frame_(frame) {}

    unsigned char type() const { return frame_[0]; }
    unsigned short status() const { return protocol::word_at(frame_ + HeaderSize - 4); }
    unsigned short length() const { return protocol::word_at(frame_ + HeaderSize - 2); }
    const unsigned char* data() const { return frame_ + HeaderSize; } // length() bytes
    std::size_t size() const {                                        // of the frame
        return HeaderSize + length() + ((type() & protocol::with_crc_bit) != 0 ? protocol::crc_size : 0);
    }
    // As received, never checked here; 0xEEEE for a frame without one.
    unsigned short crc() const {
        return (type() & protocol::with_crc_bit) != 0 ? protocol::word_at(data() + length()) : protocol::no_crc;
    }

  protected:
    const unsigned char* frame_;
};

using reply_view = frame_view<protocol::reply_header_size>;

class event_view : public frame_view<protocol::event_header_size> {
  public:
    using frame_view::frame_view;
    unsigned char id() const { return frame_[protocol::event_id]; }
    unsigned char seq() const { return frame_[protocol::event_seq]; }
};

// One context loss, for a report; valid during the sink's call. Indices count from the start of the packet or, when the
// packet before was put in front of it, from the start of the two joined.
struct context_loss {
    struct run { // of bytes, [first, last), in `bytes`
        std::ptrdiff_t first, last;
    };
    bool spanning = false; // the frame begun last began in an earlier packet, so the packet before was put in front
    std::size_t last_frame_start = 0; // of the frame begun last
    std::size_t packet_size = 0;      // spanning: without what was put in front
    std::size_t index = 0;            // of the byte that belongs to no frame; spanning: in the joined packets

    // Not spanning: every byte examined since the last frame was handed over. Spanning: the packet before. The runs
    // list them in order; the first `forgotten` ones lay in packets that are gone.
    const unsigned char* bytes = nullptr;
    std::vector<run> runs;
    std::size_t forgotten = 0;
};

// Receives what the engine finds, in the order of the stream, during receive_engine::take.
class receive_sink {
  public:
    virtual void reply(reply_view frame) = 0;
    // `lost`: how many events are missing between the one before and this one, by their sequence bytes.
    virtual void event(event_view frame, unsigned lost) = 0;
    virtual void context_lost(const context_loss& loss) = 0;
    // Whether anybody reads reports. Asked at each context loss; without a reader the loss is not described.
    virtual bool wants_reports() const = 0;
    // A whole frame was discarded, because a byte follows it that cannot follow a frame.
    virtual void frame_discarded() {}
    // A byte came that belongs to no frame; the engine goes on with a likely event, or it has stopped.
    virtual void stream_broken(bool /*goes_on*/) {}
    // Nothing follows before the next packet.
    virtual void packet_ended() {}

  protected:
    ~receive_sink() = default;
};

// Cost: one pass over the header bytes, nothing per data byte of a frame that lies in one packet, one copy of those of
// a frame that spans packets.
class receive_engine {
  public:
    // `last_seq`: the sequence byte of the event before the first one.
    explicit receive_engine(receive_sink& sink, unsigned char last_seq = 0) : sink_(sink), last_seq_(last_seq) {}

    // Examines one packet and keeps it; an empty one counts as a packet. Leaves in `packet` what it no longer needs of
    // an earlier one: memory to fill again. False: the stream is lost and the engine has stopped; it ignores further
    // packets.
    bool take(std::vector<unsigned char>& packet);

    unsigned char last_seq() const { return last_seq_; } // of the last event handed over
    // Of the frame that is not whole yet: its length field, 0 when there is none.
    std::size_t pending_length() const;
    // When the stream is lost, or the frame that is not whole yet is to be given up: the bytes in which frames may
    // stand yet. They begin behind the start byte of the last frame if that was discarded or is not whole, and
    // otherwise with the byte that belonged to no frame.
    std::vector<unsigned char> rest() const;

  private:
    // Each continues at index `i` and sets it to where the next one continues; false: the stream is lost.
    bool examine(std::size_t& i);
    std::size_t take_frames(std::size_t i);
    void keep_partial(std::size_t i);
    void extend_frame(std::size_t& i);
    bool lose_context(std::size_t& i);
    void put_previous_in_front(std::size_t& i);
    void report_loss(std::size_t i, std::size_t packet_size);
    bool find_fresh_start(std::size_t& u) const;
    void hand_over(const unsigned char* frame);
    std::size_t discarded_start(std::size_t i) const;
    void forget_examined(std::size_t i);
    void keep_packet();
    void forget_up_to(std::ptrdiff_t first_kept);

    receive_sink& sink_;
    std::vector<unsigned char> packet_;
    std::vector<unsigned char> before_;  // the packet before this one
    std::vector<unsigned char> partial_; // the frame being assembled, when it began in an earlier packet; else empty
    bool in_frame_ = false;
    bool spanning_ = false; // the frame begun last did not end in the packet that it began in
    bool joined_ = false;   // before_ has been put in front of packet_
    bool stopped_ = false;
    std::size_t rest_ = 0; // in packet_, once stopped
    unsigned char last_seq_;

    // Indices as reported count from where the joined packets began; the first `dropped_` bytes are no longer kept.
    std::size_t last_frame_start_ = 0;
    std::size_t dropped_ = 0;        // in front of packet_
    std::size_t dropped_before_ = 0; // in front of before_

    // What was examined since the last frame was handed over: runs of indices into packet_ (negative ones lie in the
    // packet before), then the current run from run_start_ on; and how many examined bytes are gone.
    std::vector<context_loss::run> examined_;
    std::ptrdiff_t run_start_ = 0;
    std::size_t forgotten_ = 0;
};

} // namespace jorvet::core
