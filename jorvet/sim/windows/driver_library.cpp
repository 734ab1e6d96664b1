// A program that asks Windows for FTD2XX.dll gets the one that the process has loaded already, whatever its folder. So
// the one in the folder `simulation` beside this DLL, which forwards to this DLL, is loaded first; programs that plug
// nothing in get that of the real driver.
#include "jorvet/sim/windows/driver_library.h"

#include <stdexcept>
#include <string>

#include "jorvet/system/win32.h"

namespace jorvet::sim {

namespace {

std::wstring own_folder() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&take_the_drivers_place), &self);
    std::wstring path(32768, L'\0'); // the longest there is
    path.resize(GetModuleFileNameW(self, path.data(), static_cast<DWORD>(path.size())));
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

} // namespace

void take_the_drivers_place() {
    static const HMODULE in_place = LoadLibraryW((own_folder() + L"simulation\\FTD2XX.dll").c_str());
    if (in_place == nullptr)
        throw std::runtime_error("there is no simulation\\FTD2XX.dll beside the simulation's DLL");
}

} // namespace jorvet::sim
