// Bytes as hexadecimal text, and a link that writes down what a board does with it. Any thread.
#pragma once

#include <condition_variable>
#include <mutex>

#include "jorvet/base/read_text.h"
#include "jorvet/sim/bridge.h"

namespace jorvet::sim {

inline byte_vector from_hex(const std::string& text) {
    return read_bytes(text);
}

inline std::string to_hex(const std::uint8_t* bytes, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < 2 * count; ++i)
        text += "0123456789ABCDEF"[(bytes[i / 2] >> (i % 2 == 0 ? 4 : 0)) & 15];
    return text;
}

using Pieces = std::vector<std::string>; // one for each call, in hexadecimal, "unplug" among them

class RecordingLink : public board_link {
  public:
    void to_host(const std::uint8_t* bytes, std::size_t count) override { add(to_hex(bytes, count)); }
    void unplug() override { add("unplug"); }

    // Waits for that many pieces, gives them all and forgets them.
    Pieces take(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        added_.wait_for(lock, std::chrono::seconds(20), [&] { return pieces_.size() >= count; });
        return std::exchange(pieces_, {});
    }

    void add(std::string piece) {
        const std::lock_guard<std::mutex> lock(mutex_);
        pieces_.push_back(std::move(piece));
        added_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable added_;
    Pieces pieces_;
};

} // namespace jorvet::sim
