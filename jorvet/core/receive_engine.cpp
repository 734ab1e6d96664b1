// The receive engine: see the header for the rules. Pure computation, on whatever thread calls take().
#include "jorvet/core/receive_engine.h"

#include <algorithm>
#include <utility>

namespace jorvet::core {

using namespace jorvet::protocol;

namespace {

template <typename View>
std::size_t size_if_whole(View frame, std::size_t available) {
    return available >= View::header_size && available >= frame.size() ? frame.size() : 0;
}

// The size of the frame at `bytes`, or 0 when the `available` bytes do not hold all of it. A branch selects the place
// of the length because the processor predicts it; a place computed from the start byte would delay the load of the
// length.
std::size_t size_if_whole(const unsigned char* bytes, std::size_t available) {
    if (is_event_start(*bytes))
        return size_if_whole(event_view(bytes), available);
    return size_if_whole(reply_view(bytes), available);
}

// Whether a complete frame counts when this byte follows it.
bool may_follow(unsigned char byte) {
    return is_board_start(byte) || byte == separator;
}

// Whether eight bytes or more at `bytes` look like the start of an event frame worth going on from.
bool is_fresh_start(const unsigned char* bytes) {
    if (!is_event_start(bytes[0]) || bytes[event_id] != 0x01)
        return false;
    const unsigned short status = status_of(bytes);
    return status == 0x8001 || status == board_success;
}

} // namespace

bool receive_engine::take(std::vector<unsigned char>& packet) {
    if (stopped_)
        return false;
    packet_.swap(packet);
    joined_ = false;
    dropped_ = 0;
    run_start_ = 0;
    if (!spanning_)
        last_frame_start_ = 0;

    for (std::size_t i = 0; i < packet_.size() && !stopped_;)
        stopped_ = !examine(i);
    sink_.packet_ended();
    if (!stopped_)
        keep_packet();
    return !stopped_;
}

bool receive_engine::examine(std::size_t& i) {
    if (in_frame_)
        extend_frame(i);
    else if (is_board_start(packet_[i]))
        i = take_frames(i);
    else
        return lose_context(i);
    return true;
}

// Takes the frame that starts at `i` and those that follow it directly, as long as they lie in the packet. Returns
// where to continue. The state is updated once, after the loop.
std::size_t receive_engine::take_frames(std::size_t i) {
    const unsigned char* const bytes = packet_.data();
    const std::size_t end = packet_.size();
    const std::size_t first = i;
    std::size_t start = first;       // of the frame begun last
    std::size_t handed_over = first; // all that stands before it has been
    spanning_ = false;
    partial_.clear();
    do {
        start = i;
        const std::size_t size = size_if_whole(bytes + start, end - start);
        if (size == 0) {
            keep_partial(start);
            i = end;
            break;
        }
        i = start + size;
        if (i < end && !may_follow(bytes[i])) {
            sink_.frame_discarded(); // the byte there is a context loss
            break;
        }
        hand_over(bytes + start);
        if (i < end && bytes[i] == separator)
            ++i;
        handed_over = i;
    } while (i < end && is_board_start(bytes[i]));
    last_frame_start_ = dropped_ + start;
    if (handed_over > first)
        forget_examined(handed_over);
    return i;
}

void receive_engine::keep_partial(std::size_t i) {
    const unsigned char* frame = packet_.data() + i;
    const std::size_t available = packet_.size() - i;
    if (available >= header_size(*frame))
        partial_.reserve(frame_size(frame));
    partial_.assign(frame, frame + available);
    in_frame_ = true;
    spanning_ = true;
}

// Takes the packet's part of the frame that began in an earlier one: first the header, which holds the size.
void receive_engine::extend_frame(std::size_t& i) {
    const auto take_up_to = [&](std::size_t size) {
        const std::size_t count = std::min(size - partial_.size(), packet_.size() - i);
        const auto from = packet_.begin() + static_cast<std::ptrdiff_t>(i);
        partial_.insert(partial_.end(), from, from + static_cast<std::ptrdiff_t>(count));
        i += count;
        return partial_.size() == size;
    };
    const std::size_t header = header_size(partial_[0]);
    if (partial_.size() < header && !take_up_to(header))
        return;
    const std::size_t size = frame_size(partial_.data());
    partial_.reserve(size);
    if (!take_up_to(size))
        return;
    in_frame_ = false;
    if (i < packet_.size() && !may_follow(packet_[i]))
        return sink_.frame_discarded();
    hand_over(partial_.data());
    partial_.clear();
    if (i < packet_.size() && packet_[i] == separator)
        ++i;
    forget_examined(i);
}

void receive_engine::hand_over(const unsigned char* frame) {
    if (is_event_start(frame[0])) {
        const event_view event(frame);
        const unsigned char seq = event.seq();
        const unsigned lost = seq == last_seq_ ? 0 : static_cast<unsigned char>(seq - last_seq_ - 1);
        last_seq_ = seq;
        sink_.event(event, lost);
    } else {
        sink_.reply(reply_view(frame));
    }
}

// A frame has been handed over, and what is examined counts anew from `i` on.
void receive_engine::forget_examined(std::size_t i) {
    run_start_ = static_cast<std::ptrdiff_t>(i);
    examined_.clear();
    forgotten_ = 0;
}

bool receive_engine::lose_context(std::size_t& i) {
    const std::size_t packet_size = dropped_ + packet_.size();
    const std::size_t behind_rest = packet_.size() - discarded_start(i);
    if (spanning_)
        put_previous_in_front(i);
    examined_.push_back({run_start_, static_cast<std::ptrdiff_t>(i) + 1});
    if (sink_.wants_reports())
        report_loss(i, packet_size);
    const bool goes_on = find_fresh_start(i);
    sink_.stream_broken(goes_on);
    rest_ = packet_.size() - behind_rest;
    if (!goes_on)
        return false;
    run_start_ = static_cast<std::ptrdiff_t>(i) + 1; // the start byte itself is not examined a second time
    i = take_frames(i);
    return true;
}

// Where to look for frames after a byte at `i` that belongs to none, before the packet before is put in front.
std::size_t receive_engine::discarded_start(std::size_t i) const {
    const auto last_start = static_cast<std::ptrdiff_t>(last_frame_start_) - static_cast<std::ptrdiff_t>(dropped_);
    const bool discarded = !spanning_ && last_start >= std::max<std::ptrdiff_t>(run_start_, 0) &&
                           last_start < static_cast<std::ptrdiff_t>(i);
    return discarded ? static_cast<std::size_t>(last_start) + 1 : i;
}

std::vector<unsigned char> receive_engine::rest() const {
    std::vector<unsigned char> bytes;
    if (!partial_.empty())
        bytes.assign(partial_.begin() + 1, partial_.end());
    if (stopped_)
        bytes.insert(bytes.end(), packet_.begin() + static_cast<std::ptrdiff_t>(rest_), packet_.end());
    return bytes;
}

std::size_t receive_engine::pending_length() const {
    const bool known = in_frame_ && partial_.size() >= header_size(partial_[0]);
    return known ? length_of(partial_.data()) : 0;
}

void receive_engine::put_previous_in_front(std::size_t& i) {
    const std::size_t shift = before_.size();
    before_.insert(before_.end(), packet_.begin(), packet_.end());
    packet_.swap(before_);
    before_.clear();
    dropped_ = dropped_before_;
    joined_ = true;
    i += shift;
    run_start_ += static_cast<std::ptrdiff_t>(shift);
    for (context_loss::run& run : examined_) {
        run.first += static_cast<std::ptrdiff_t>(shift);
        run.last += static_cast<std::ptrdiff_t>(shift);
    }
}

void receive_engine::report_loss(std::size_t i, std::size_t packet_size) {
    context_loss loss;
    loss.spanning = spanning_;
    loss.last_frame_start = last_frame_start_;
    loss.packet_size = packet_size;
    loss.index = dropped_ + i;
    loss.bytes = packet_.data();
    if (spanning_) {
        loss.runs = {{0, static_cast<std::ptrdiff_t>(packet_.size() - packet_size)}};
        loss.forgotten = dropped_;
    } else {
        loss.runs = examined_;
        loss.forgotten = forgotten_;
    }
    sink_.context_lost(loss);
}

// Leaves in `u` the first likely event start after the start of the frame begun last.
bool receive_engine::find_fresh_start(std::size_t& u) const {
    for (u = last_frame_start_ + 1 - dropped_; u + event_header_size < packet_.size(); ++u) {
        if (is_fresh_start(packet_.data() + u))
            return true;
    }
    return false;
}

// Makes the packet the one before. Of joined packets only what a later search can reach is kept, so that a stream that
// loses its context in every packet does not accumulate.
void receive_engine::keep_packet() {
    const auto size = static_cast<std::ptrdiff_t>(packet_.size());
    if (run_start_ < size)
        examined_.push_back({run_start_, size});
    const std::size_t unreachable = joined_ ? std::min(last_frame_start_ - dropped_, packet_.size()) : 0;
    packet_.erase(packet_.begin(), packet_.begin() + static_cast<std::ptrdiff_t>(unreachable));
    dropped_before_ = dropped_ + unreachable;
    before_.swap(packet_);

    for (context_loss::run& run : examined_)
        run = {run.first - size, run.last - size};
    forget_up_to(-static_cast<std::ptrdiff_t>(before_.size()));
}

// Bytes before index `first_kept` are gone: forgets them, and what was examined before them.
void receive_engine::forget_up_to(std::ptrdiff_t first_kept) {
    const auto has_gone = [&](const context_loss::run& run) { return run.first < first_kept; };
    const auto last_gone = std::find_if(examined_.rbegin(), examined_.rend(), has_gone);
    for (auto run = last_gone; run != examined_.rend(); ++run) {
        const std::ptrdiff_t kept_from = run == last_gone ? std::min(first_kept, run->last) : run->last;
        forgotten_ += static_cast<std::size_t>(kept_from - run->first);
        run->first = kept_from;
    }
    const auto is_empty = [](const context_loss::run& run) { return run.first == run.last; };
    examined_.erase(std::remove_if(examined_.begin(), examined_.end(), is_empty), examined_.end());
}

} // namespace jorvet::core
