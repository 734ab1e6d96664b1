/* What leaves the library: JV_API marks a function or class that applications may link against, JV_LOCAL a member of
 * such a class that they may not. JV_CALL is the calling convention of the C functions. */
#ifndef JORVET_BASE_EXPORT_H
#define JORVET_BASE_EXPORT_H

#if defined(_WIN32)
#define JV_CALL __cdecl
#define JV_LOCAL
/* By MinGW-w64 the library is linked by cmake/exports.txt, which names what leaves. */
#if defined(JORVET_STATIC) || (defined(JORVET_BUILDING) && defined(__MINGW32__))
#define JV_API
#elif defined(JORVET_BUILDING)
#define JV_API __declspec(dllexport)
#else
#define JV_API __declspec(dllimport)
#endif
#else
#define JV_CALL
#define JV_API __attribute__((visibility("default")))
#define JV_LOCAL __attribute__((visibility("hidden")))
#endif

#endif
