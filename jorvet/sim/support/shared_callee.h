// A target that several threads call and that may be replaced at any time; no lock is held during the calls. Any thread
// may call anything, even from inside a call.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace jorvet::sim {

// `Target` is a pointer type, null for no target. Copies of a smart pointer keep the target alive during a call.
template <class Target>
class shared_callee {
  public:
    // Runs `use(target)` on this thread if there is a target.
    template <class Use>
    void call(Use use) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!target_)
            return;
        callers_.push_back(std::this_thread::get_id());
        const call_end leaving{*this};
        const Target target = target_; // destroyed before the call counts as ended
        lock.unlock();
        use(target);
    }

    // Returns once no call is in progress except those of this thread itself.
    void replace(Target target) {
        std::unique_lock<std::mutex> lock(mutex_);
        std::swap(target_, target);
        idle_.wait(lock, [this] { return only_called_by(std::this_thread::get_id()); });
    }

  private:
    struct call_end {
        shared_callee& callee;
        ~call_end() { callee.leave(); }
    };

    bool only_called_by(std::thread::id thread) const {
        return std::all_of(callers_.begin(), callers_.end(), [&](std::thread::id id) { return id == thread; });
    }

    void leave() {
        const std::lock_guard<std::mutex> lock(mutex_);
        callers_.erase(std::find(callers_.begin(), callers_.end(), std::this_thread::get_id()));
        idle_.notify_all(); // under the lock, because the waiting thread may destroy this object next
    }

    std::mutex mutex_;
    std::condition_variable idle_;
    Target target_{};
    std::vector<std::thread::id> callers_;
};

} // namespace jorvet::sim
