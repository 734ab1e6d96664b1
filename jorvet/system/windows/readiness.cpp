// Readiness as an event object of Windows.
#include "jorvet/system/readiness.h"

#include "jorvet/system/win32.h"

namespace jorvet::readiness {

namespace {
HANDLE event_of(std::intptr_t object) {
    return reinterpret_cast<HANDLE>(object);
}
} // namespace

std::intptr_t create() {
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    return event != nullptr ? reinterpret_cast<std::intptr_t>(event) : none;
}

void destroy(std::intptr_t object) {
    CloseHandle(event_of(object));
}

void set(std::intptr_t object) {
    SetEvent(event_of(object));
}

void clear(std::intptr_t object) {
    ResetEvent(event_of(object));
}

} // namespace jorvet::readiness
