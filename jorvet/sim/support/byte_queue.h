// A queue of bytes of limited length: a vector to which bytes are appended, and a count of those already read. No
// thread, no lock.
#pragma once

#include <algorithm>

#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

class byte_queue {
  public:
    explicit byte_queue(std::size_t capacity) : capacity_(capacity) {}

    std::size_t size() const { return bytes_.size() - read_; }

    // Appends as many as there is room for, and returns their number.
    std::size_t push(const std::uint8_t* bytes, std::size_t count) {
        const std::size_t taken = std::min(count, capacity_ - size());
        if (read_ > bytes_.size() / 2) { // moves fewer bytes than have been read since the last time
            bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(read_));
            read_ = 0;
        }
        bytes_.insert(bytes_.end(), bytes, bytes + taken);
        return taken;
    }

    std::size_t pop(std::uint8_t* bytes, std::size_t count) {
        const std::size_t taken = std::min(count, size());
        std::copy_n(bytes_.data() + read_, taken, bytes);
        read_ += taken;
        if (read_ == bytes_.size())
            clear();
        return taken;
    }

    void clear() {
        bytes_.clear();
        read_ = 0;
    }

  private:
    const std::size_t capacity_;
    byte_vector bytes_;
    std::size_t read_ = 0;
};

} // namespace jorvet::sim
