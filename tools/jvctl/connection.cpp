// Making an instance and opening the chosen device.
#include "connection.h"

#include <stdexcept>

namespace jorvet::tool {

instance make_instance(const settings& chosen) {
    instance made(JVGetInstance(chosen.link));
    if (!made)
        throw std::runtime_error("the library could not be set up: free some memory and try again");
    if (chosen.timeout_ms)
        made->set_timeout_for_reply(*chosen.timeout_ms);
    return made;
}

unsigned int open_device(CJorvet* board, const settings& chosen, bench& boards) {
    const unsigned int status = JVConnect(board, chosen.index);
    // Opening discards what the device sent before, so the script comes after.
    if (status == JV_OK)
        boards.run(chosen.script);
    return status;
}

} // namespace jorvet::tool
