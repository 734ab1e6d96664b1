// Linux: a folder of /proc.
#include <filesystem>

#include "tests/support/process_resources.h"

namespace jorvet::testing {

std::ptrdiff_t threads_in_process() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
}

} // namespace jorvet::testing
