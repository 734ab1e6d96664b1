// The thread of delayed output.
#include "jorvet/sim/support/timeline.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

namespace jorvet::sim {

struct task_timeline::shared_state {
    std::mutex mutex;
    std::condition_variable wake;
    std::multimap<clock::time_point, task_function> tasks; // by due time
    bool stopped = false;
};

task_timeline::task_timeline() : state_(std::make_shared<shared_state>()) {}

task_timeline::~task_timeline() {
    stop();
}

void task_timeline::run_at(clock::time_point due, task_function task) {
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

void task_timeline::stop() {
    std::multimap<clock::time_point, task_function>
        dropped; // destroyed without the lock: a task may own what owns the timeline
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

bool task_timeline::on_own_thread() const {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    return thread_.get_id() == std::this_thread::get_id();
}

void task_timeline::loop(shared_state& state) {
    std::unique_lock<std::mutex> lock(state.mutex);
    while (!state.stopped) {
        if (state.tasks.empty()) {
            state.wake.wait(lock);
            continue;
        }
        const clock::time_point due = state.tasks.begin()->first;
        if (clock::now() < due) {
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
