// A callback that an application sets and replaces while other threads call it. One call runs at a time; when it has
// been replaced, no call of the previous one is running.
#pragma once

#include <atomic>

#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

namespace jorvet::core {

// Marks that this thread runs a callback of `owner`, for as long as it lives.
class inside_callback {
  public:
    explicit inside_callback(const void* owner) : outer_(current()) { current() = owner; }
    ~inside_callback() { current() = outer_; }
    inside_callback(const inside_callback&) = delete;
    inside_callback& operator=(const inside_callback&) = delete;

    static bool of(const void* owner) { return current() == owner; }

  private:
    static const void*& current() {
        static thread_local const void* owner = nullptr;
        return owner;
    }
    const void* const outer_;
};

// `Function` is a pointer to a function whose first argument is the application's own pointer.
template <typename Function>
class callback_slot {
  public:
    explicit callback_slot(const void* owner) : owner_(owner) {}

    // Costs a load; for skipping the work of composing the arguments.
    bool is_set() const { return set_.load(std::memory_order_relaxed); }

    // Not from inside a callback of the owner. Blocks while a call runs.
    void replace(Function function, void* context) {
        const boost::unique_lock<boost::mutex> lock(mutex_);
        function_ = function;
        context_ = context;
        set_ = function != nullptr;
    }

    template <typename... Arguments>
    void call(Arguments... arguments) {
        if (!is_set() || inside_callback::of(owner_)) // a callback that causes a call of itself is not told of it
            return;
        const boost::unique_lock<boost::mutex> lock(mutex_);
        const inside_callback mark(owner_);
        if (function_ != nullptr)
            function_(context_, arguments...);
    }

  private:
    const void* const owner_;
    std::atomic<bool> set_{false};
    boost::mutex mutex_; // held during calls
    Function function_ = nullptr;
    void* context_ = nullptr;
};

} // namespace jorvet::core
