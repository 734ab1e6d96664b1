// A program elsewhere than on Windows keeps the names of Windows for itself: this does not compile if these headers
// take them.
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/core/jorvet.h"

#if defined(TRUE) || defined(FALSE) || defined(WINAPI)
#error "a public header defines macros of Windows"
#endif
struct BOOL {};
struct DWORD {};
struct HANDLE {};
struct ULONG {};
struct OVERLAPPED {};
