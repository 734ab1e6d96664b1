// Bytes on their way to the host, in the pieces in which the board sent them. No thread, no lock.
#pragma once

#include <algorithm>
#include <deque>

#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

class byte_pieces {
  public:
    explicit byte_pieces(std::size_t capacity) : capacity_(capacity) {}

    bool empty() const { return pieces_.empty(); }
    // The rest of the oldest piece.
    byte_view front() const { return {pieces_.front().data() + taken_, pieces_.front().size() - taken_}; }

    // Appends as many bytes as there is room for, as one piece, and returns their number.
    std::size_t push(byte_view piece) {
        const std::size_t count = std::min(piece.count, capacity_ - size_);
        if (count > 0)
            pieces_.emplace_back(piece.bytes, piece.bytes + count);
        size_ += count;
        return count;
    }

    void pop(std::size_t count) { // of the oldest piece
        size_ -= count;
        taken_ += count;
        if (taken_ < pieces_.front().size())
            return;
        pieces_.pop_front();
        taken_ = 0;
    }

    void clear() {
        pieces_.clear();
        size_ = taken_ = 0;
    }

  private:
    const std::size_t capacity_;
    std::deque<byte_vector> pieces_; // none is empty
    std::size_t size_ = 0;           // of all that is left
    std::size_t taken_ = 0;          // of the oldest piece
};

} // namespace jorvet::sim
