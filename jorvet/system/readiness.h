// The face of what event loops outside the library can wait for: a file descriptor where the system has descriptors, a
// manual-reset event on Windows. Any thread.
#pragma once

#include <cstdint>

#include "jorvet/base/export.h"

namespace jorvet::readiness {

#ifdef _WIN32
constexpr bool is_descriptor = false;
#else
constexpr bool is_descriptor = true;
#endif

constexpr std::intptr_t none = -1;

// A new object that is not ready, or `none` when the system has no more. Each is released by destroy.
JV_FACE_API std::intptr_t create();
JV_FACE_API void destroy(std::intptr_t object);

// Makes it ready, or no longer ready. Neither blocks nor fails; must not be called twice in a row for one object.
JV_FACE_API void set(std::intptr_t object);
JV_FACE_API void clear(std::intptr_t object);

} // namespace jorvet::readiness
