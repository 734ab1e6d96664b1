// The armed fault. Any thread: a flag that is read without a lock while nothing is armed, a mutex for the rest.
#include "jorvet/compat/faults.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "jorvet/base/never_destroyed.h"

namespace jorvet::compat::faults {

namespace {

std::atomic<bool> armed{false};
std::atomic<bool> hook_set{false};
std::atomic<unsigned> delay_of_answers{0};

struct plan {
    std::mutex mutex;
    std::string beginning; // of the name, or all of it
    bool whole_name = true;
    unsigned nth = 0;
    std::uint32_t error = 0;
    bool from_then_on = false;
    unsigned seen = 0;
    std::string hooked; // the function whose next call runs `action` first
    std::function<void()> action;

    bool matches(const std::string& function) const {
        return whole_name ? function == beginning : function.compare(0, beginning.size(), beginning) == 0;
    }
};

plan& current() {
    return never_destroyed<plan>();
}

} // namespace

void fail(const std::string& function, unsigned nth, std::uint32_t error, bool from_then_on) {
    plan& p = current();
    const std::lock_guard<std::mutex> lock(p.mutex);
    p.whole_name = function.empty() || function.back() != '*';
    p.beginning = p.whole_name ? function : function.substr(0, function.size() - 1);
    p.nth = nth;
    p.error = error;
    p.from_then_on = from_then_on;
    p.seen = 0;
    armed = true;
}

void run_before(const std::string& function, std::function<void()> action) {
    plan& p = current();
    const std::lock_guard<std::mutex> lock(p.mutex);
    p.hooked = function;
    p.action = std::move(action);
    hook_set = true;
}

void clear() {
    const std::lock_guard<std::mutex> lock(current().mutex);
    armed = false;
}

unsigned calls_seen() {
    const std::lock_guard<std::mutex> lock(current().mutex);
    return current().seen;
}

namespace {

void run_hook(const char* function) {
    plan& p = current();
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(p.mutex);
        if (p.hooked != function)
            return;
        p.hooked.clear();
        action = std::exchange(p.action, {});
        hook_set = false;
    }
    action();
}

} // namespace

std::optional<std::uint32_t> due(const char* function) {
    if (hook_set.load(std::memory_order_relaxed))
        run_hook(function);
    if (!armed.load(std::memory_order_relaxed))
        return std::nullopt;
    plan& p = current();
    const std::lock_guard<std::mutex> lock(p.mutex);
    if (!armed || !p.matches(function))
        return std::nullopt;
    ++p.seen;
    if (p.seen == p.nth || (p.from_then_on && p.seen > p.nth))
        return p.error;
    return std::nullopt;
}

void delay_answers(unsigned milliseconds) {
    delay_of_answers = milliseconds;
}

unsigned answer_delay() {
    return delay_of_answers.load(std::memory_order_relaxed);
}

} // namespace jorvet::compat::faults
