// Linux: the folders of /proc.
#include <filesystem>

#include "tests/support/process_resources.h"

namespace jorvet::testing {
namespace {

std::ptrdiff_t entries(const char* folder) {
    const std::filesystem::directory_iterator all(folder);
    return std::distance(begin(all), end(all));
}

} // namespace

std::ptrdiff_t threads_in_process() {
    return entries("/proc/self/task");
}

std::ptrdiff_t handles_in_process() {
    return entries("/proc/self/fd");
}

} // namespace jorvet::testing
