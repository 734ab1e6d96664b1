// A bridge whose far end is the test: it receives what the test has arrive and takes as much as the test gives room.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "jorvet/platform/ports.h"
#include "jorvet/platform/win32.h"

namespace jorvet::platform {

class fake_bridge final : public BridgePort {
  public:
    explicit fake_bridge(std::string serial) : serial_(std::move(serial)) {}

    std::size_t room = 9; // how much of a write is taken
    std::string answer;   // arrives inside write(), on the thread that writes
    PortStatus opening = PortStatus::ok;
    HANDLE held_up = CreateEventA(nullptr, FALSE, FALSE, nullptr); // a read finds too little, or a write waits

    void arrive(const std::string& bytes, PortStatus state = PortStatus::ok) {
        become(state, bytes);
        const std::lock_guard<std::mutex> lock(notifying_);
        if (notify_)
            notify_();
    }
    void go_away() { arrive("", PortStatus::gone); }

    BridgeIdentity identity() const override { return {serial_, "fake " + serial_, 8, 0x04036014, 0x21}; }
    PortStatus open(std::function<void()> notify) override {
        const std::lock_guard<std::mutex> lock(notifying_);
        notify_ = std::move(notify);
        return become(opening, "");
    }
    void close() override {
        become(PortStatus::failed, "");
        const std::lock_guard<std::mutex> lock(notifying_);
        notify_ = nullptr;
    }
    PortStatus set_baud_rate(std::uint32_t) override { return state(); }
    PortStatus set_data_format(unsigned, unsigned, unsigned) override { return state(); }
    PortStatus set_flow_control(unsigned, std::uint8_t, std::uint8_t) override { return state(); }
    PortStatus set_latency_ms(unsigned) override { return state(); }
    PortStatus set_transfer_sizes(std::uint32_t, std::uint32_t) override { return state(); }
    PortStatus reset() override { return state(); }
    PortStatus purge(bool, bool) override { return state(); }
    PortStatus write(const std::uint8_t*, std::size_t count, unsigned timeout_ms, std::size_t* written) override {
        if (!answer.empty())
            arrive(answer);
        std::unique_lock<std::mutex> lock(mutex_);
        *written = std::min(count, room);
        if (*written < count && SetEvent(held_up))
            changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return state_ != PortStatus::ok; });
        return state_;
    }
    PortStatus received(std::size_t* count) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        *count = queue_.size();
        return state_;
    }
    PortStatus read(std::uint8_t* bytes, std::size_t count, std::size_t* taken) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        *taken = queue_.copy(reinterpret_cast<char*>(bytes), count);
        queue_.erase(0, *taken);
        if (*taken < count)
            SetEvent(held_up);
        return state_;
    }

  private:
    PortStatus become(PortStatus state, const std::string& more) {
        const std::lock_guard<std::mutex> lock(mutex_);
        queue_ += more;
        changed_.notify_all();
        return state_ = state;
    }
    PortStatus state() {
        std::size_t ignored = 0;
        return received(&ignored);
    }

    const std::string serial_;
    std::mutex mutex_, notifying_;
    std::condition_variable changed_;
    std::string queue_;
    PortStatus state_ = PortStatus::failed;
    std::function<void()> notify_;
};

} // namespace jorvet::platform
