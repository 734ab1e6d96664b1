// Tasks that run later, in the order of their due times (equal ones in the order of arrival), on one thread that starts
// with the first task. Any thread may call anything.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

namespace jorvet::sim {

class task_timeline {
  public:
    using clock = std::chrono::steady_clock;
    using task_function = std::function<void()>;

    task_timeline();
    ~task_timeline(); // stops
    task_timeline(const task_timeline&) = delete;
    task_timeline& operator=(const task_timeline&) = delete;

    // Runs `task` on the thread once `due` has been reached; drops it after stop(). Throws std::system_error when the
    // thread cannot be created.
    void run_at(clock::time_point due, task_function task);
    // Drops the tasks that have not begun and waits for the one that runs. Called by a task, it does not wait: that
    // task may outlive the timeline.
    void stop();
    bool on_own_thread() const;

  private:
    struct shared_state;
    static void loop(shared_state& state);

    const std::shared_ptr<shared_state> state_; // the thread holds it too
    std::thread thread_;                        // under the state's lock
};

} // namespace jorvet::sim
