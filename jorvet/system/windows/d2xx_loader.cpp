// The D2XX functions on Windows: each is looked up in the driver's FTD2XX.dll, by its ordinal, when it is first called.
// A program therefore also runs on a PC without that driver; every function then returns FT_DEVICE_NOT_FOUND. Any
// thread.
#include <atomic>

#include "jorvet/system/d2xx.h"
#include "jorvet/system/d2xx_functions.h"

namespace {

// The driver's function at an ordinal, or null. It is returned as void* because compilers warn about a cast from one
// function type to another.
void* look_up(WORD ordinal) {
    const HMODULE driver = LoadLibraryA("FTD2XX.dll"); // stays loaded until the process ends
    return driver == nullptr ? nullptr : reinterpret_cast<void*>(GetProcAddress(driver, MAKEINTRESOURCEA(ordinal)));
}

// Calls the driver's function at `Ordinal`, which has the type of `Declared`. While it is not found, every call looks
// for it again: the driver may be installed later.
template <auto Declared, WORD Ordinal, class... Arguments>
FT_STATUS forward(Arguments... arguments) {
    static std::atomic<decltype(Declared)> found{nullptr};
    auto function = found.load();
    if (function == nullptr)
        found = function = reinterpret_cast<decltype(Declared)>(look_up(Ordinal));
    return function != nullptr ? function(arguments...) : FT_STATUS{FT_DEVICE_NOT_FOUND};
}

} // namespace

#define FORWARD(ordinal, name, parameters, arguments)                                                                  \
    FT_STATUS WINAPI name parameters {                                                                                 \
        return forward<&name, ordinal> arguments;                                                                      \
    }
JV_D2XX_FUNCTIONS(FORWARD)
#undef FORWARD
