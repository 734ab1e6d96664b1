// Makes the platform fail on purpose, so that a test can sweep over every call that the library makes. Each function
// behind the faces first asks here by its own name. Costs one atomic load while nothing is armed. Any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "jorvet/base/export.h"

namespace jorvet::compat::faults {

// From now on the `nth` call (1 is the next) of `function` ("FT_Write", "CreateEventA", …; "FT_*" any function with
// that prefix, counted together) fails with `error` (an FT_STATUS, or a last error) without doing anything; with
// `from_then_on` all later ones too. One fault is armed at a time: arming replaces the previous one and restarts the
// count.
JV_PLATFORM_API void fail(const std::string& function, unsigned nth, std::uint32_t error, bool from_then_on = false);

// The next call of `function`, by its whole name, first runs `action` on its thread, as if something happened just
// then. Once.
JV_PLATFORM_API void run_before(const std::string& function, std::function<void()> action);

// Disarms the fault. `calls_seen` keeps its value.
JV_PLATFORM_API void clear();

// How many calls have matched since the fault was armed; a sweep ends when an armed `nth` is no longer reached.
JV_PLATFORM_API unsigned calls_seen();

// From now on the driver answers each request to a USB device but bulk, interrupt and isochronous transfers so much
// later, on another thread, as real drivers may. 0 ends that.
JV_PLATFORM_API void delay_answers(unsigned milliseconds);
unsigned answer_delay();

// For the functions themselves: the error to fail with now, if this call is to fail.
JV_PLATFORM_API std::optional<std::uint32_t> due(const char* function);

// Disarms when it goes out of scope, so that a failing test leaves nothing behind.
struct scope {
    scope(const std::string& function, unsigned nth, std::uint32_t error, bool from_then_on = false) {
        fail(function, nth, error, from_then_on);
    }
    ~scope() { clear(); }
    scope(const scope&) = delete;
    scope& operator=(const scope&) = delete;
};

} // namespace jorvet::compat::faults
