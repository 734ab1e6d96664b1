// Readiness as a Linux event descriptor: its counter is 1 while ready.
#include "jorvet/system/readiness.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include "jorvet/compat/faults.h"

namespace jorvet::readiness {

std::intptr_t create() {
    if (compat::faults::due("readiness"))
        return none;
    return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void destroy(std::intptr_t object) {
    close(static_cast<int>(object));
}

void set(std::intptr_t object) {
    eventfd_write(static_cast<int>(object), 1);
}

void clear(std::intptr_t object) {
    eventfd_t count = 0;
    eventfd_read(static_cast<int>(object), &count);
}

} // namespace jorvet::readiness
