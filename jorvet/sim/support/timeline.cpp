// The thread of delayed output.
#include "jorvet/sim/support/timeline.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

namespace jorvet::sim {

struct Timeline::State {
    std::mutex mutex;
    std::condition_variable wake;
    std::multimap<Clock::time_point, Task> tasks; // by due time
    bool stopped = false;
};

Timeline::Timeline() : state_(std::make_shared<State>()) {}

Timeline::~Timeline() {
    stop();
}

void Timeline::run_at(Clock::time_point due, Task task) {
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->stopped)
            return;
        if (!thread_.joinable())
            thread_ = std::thread([state = state_] { loop(*state); });
        state_->tasks.emplace(due, std::move(task));
    }
    state_->wake.notify_one();
}

void Timeline::stop() {
    std::multimap<Clock::time_point, Task> dropped; // destroyed without the lock: a task may own what owns the timeline
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        state_->stopped = true;
        dropped.swap(state_->tasks);
        thread.swap(thread_);
    }
    state_->wake.notify_one();
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else if (thread.joinable())
        thread.join();
}

bool Timeline::on_own_thread() const {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    return thread_.get_id() == std::this_thread::get_id();
}

void Timeline::loop(State& state) {
    std::unique_lock<std::mutex> lock(state.mutex);
    while (!state.stopped) {
        if (state.tasks.empty()) {
            state.wake.wait(lock);
            continue;
        }
        const Clock::time_point due = state.tasks.begin()->first;
        if (Clock::now() < due) {
            state.wake.wait_until(lock, due);
            continue;
        }
        auto task = state.tasks.extract(state.tasks.begin());
        lock.unlock();
        task.mapped()();
        task = {};
        lock.lock();
    }
}

} // namespace jorvet::sim
