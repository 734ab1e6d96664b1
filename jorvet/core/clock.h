// A moment, on both clocks that applications ask for.
#pragma once

#include <chrono>
#include <cstdint>

namespace jorvet::core {

struct stamp {
    std::int64_t monotonic_ns = 0; // both 0: unknown, or never
    std::int64_t utc_ns = 0;       // since 1970-01-01 00:00 UTC

    static stamp now() {
        const auto ns = [](auto since) { return std::chrono::nanoseconds(since).count(); };
        return {ns(std::chrono::steady_clock::now().time_since_epoch()),
                ns(std::chrono::system_clock::now().time_since_epoch())};
    }
};

} // namespace jorvet::core
