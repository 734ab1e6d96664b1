// What leaves libjorvet-platform besides the two faces.
#pragma once

#if defined(__GNUC__) && !defined(__MINGW32__)
#define JV_PLATFORM_API __attribute__((visibility("default")))
#else
#define JV_PLATFORM_API
#endif
