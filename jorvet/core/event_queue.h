// What is known of the queued events beside their records: since when, what is missing before each, how many at most;
// and taking them from either end. It works on the vector of records that CJorvet has, whose m_event_mutex guards all
// of this, too.
//
// Facts stand beside the queue, in order, for those places alone that have any: a time for each packet that completed
// an event, a number for each event that some are missing before. Places are numbered on for ever.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "jorvet/core/clock.h"
#include "jorvet/protocol/frames.h"

namespace jorvet::core {

using event_record = boost::shared_ptr<IProtocol::EVENT_FRAME>;

struct event_facts {
    stamp arrival;
    std::uint64_t lost = 0;    // missing right before it, by the sequence bytes
    std::uint64_t dropped = 0; // by the limit, since the event taken before it
};

class event_queue {
  public:
    explicit event_queue(std::vector<event_record>& records) : records_(records) {}

    std::size_t size() const { return records_.size() - head_; }

    // The stamp of the events that are pushed next; from the first call on, events have stamps.
    void packet_arrived(const stamp& arrival);
    // Have `count` records of one packet been appended, then `noted` takes down what is known of them, and keeps the
    // limit; `lost` events are missing before the first of them. It need not be called when none is missing and the
    // queue is plain.
    void noted(std::size_t count, unsigned lost);
    bool plain() const { return demands_ == 0; }
    // One more, or one less, who is to be told of each event.
    void watched() { ++demands_; }
    void unwatched() { --demands_; }

    const IProtocol::EVENT_FRAME& oldest() const { return *records_[head_]; }
    // Each takes from a queue that is not empty.
    event_record take_oldest(event_facts& facts);
    event_record take_newest();
    // All, oldest first.
    std::vector<event_record> take_all();
    // At most `events` from now on; the oldest go.
    void set_limit(std::size_t events);
    std::uint64_t dropped() const { return dropped_; } // by the limit, ever

  private:
    struct packet {
        std::uint64_t first = 0; // place of its first event
        stamp arrival;
    };
    struct gap {
        std::uint64_t place = 0; // of the event behind it
        unsigned lost = 0;
    };

    std::uint64_t end() const { return base_ + records_.size(); }
    void drop_oldest();
    void forget_taken();

    std::vector<event_record>& records_;
    std::size_t head_ = 0;   // records before it have been taken
    std::uint64_t base_ = 0; // place of records_[0]
    std::deque<packet> packets_;
    std::deque<gap> gaps_;
    stamp arrival_;        // of the packet that is being taken
    bool stamped_ = false; // the events to come have a stamp
    std::size_t limit_ = SIZE_MAX;
    unsigned demands_ = 0; // stamps, a limit, and those who watch
    std::uint64_t dropped_ = 0;
    event_facts carried_; // of events that were dropped: what is told with the next one
};

} // namespace jorvet::core
