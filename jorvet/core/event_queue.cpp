// The event queue; see the header. Runs under m_event_mutex.
#include "jorvet/core/event_queue.h"

#include <algorithm>
#include <utility>

namespace jorvet::core {

namespace {
constexpr std::size_t min_compaction = 1024; // taken records that are worth moving the others for
}

void event_queue::packet_arrived(const stamp& arrival) {
    arrival_ = arrival;
    if (!std::exchange(stamped_, true))
        ++demands_;
}

void event_queue::noted(std::size_t count, unsigned lost) {
    const std::uint64_t place = end() - count;
    if (lost != 0)
        gaps_.push_back({place, lost});
    if (stamped_ && (packets_.empty() || packets_.back().arrival.monotonic_ns != arrival_.monotonic_ns))
        packets_.push_back({place, arrival_});
    while (size() > limit_)
        drop_oldest();
}

void event_queue::drop_oldest() {
    event_facts facts;
    take_oldest(facts);
    carried_.lost = facts.lost;
    carried_.dropped = facts.dropped + 1;
    ++dropped_;
}

event_record event_queue::take_oldest(event_facts& facts) {
    const std::uint64_t place = base_ + head_;
    while (packets_.size() > 1 && packets_[1].first <= place)
        packets_.pop_front();
    facts = std::exchange(carried_, {});
    if (!packets_.empty() && packets_.front().first <= place)
        facts.arrival = packets_.front().arrival;
    if (!gaps_.empty() && gaps_.front().place == place) {
        facts.lost += gaps_.front().lost;
        gaps_.pop_front();
    }
    event_record taken = std::move(records_[head_++]);
    forget_taken();
    return taken;
}

// Moves the records up now and then, so that taking one costs the same however many are queued.
void event_queue::forget_taken() {
    if (size() > 0 && (head_ < min_compaction || 2 * head_ < records_.size()))
        return;
    records_.erase(records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(head_));
    base_ += std::exchange(head_, 0);
    if (records_.empty())
        packets_.clear();
}

event_record event_queue::take_newest() {
    event_record taken = std::move(records_.back());
    records_.pop_back();
    if (!packets_.empty() && packets_.back().first == end())
        packets_.pop_back();
    if (!gaps_.empty() && gaps_.back().place == end())
        gaps_.pop_back();
    forget_taken();
    return taken;
}

std::vector<event_record> event_queue::take_all() {
    records_.erase(records_.begin(), records_.begin() + static_cast<std::ptrdiff_t>(head_));
    base_ += head_ + records_.size();
    head_ = 0;
    packets_.clear();
    gaps_.clear();
    return std::exchange(records_, {});
}

void event_queue::set_limit(std::size_t events) {
    demands_ += (events != SIZE_MAX ? 1u : 0u) - (limit_ != SIZE_MAX ? 1u : 0u);
    limit_ = events;
    while (size() > limit_)
        drop_oldest();
}

} // namespace jorvet::core
