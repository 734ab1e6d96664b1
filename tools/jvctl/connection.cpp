// Making an instance and opening the chosen device.
#include "connection.h"

#include <stdexcept>

#include "jorvet/api/jv_session.h"

namespace jorvet::tool {

instance make_instance(const settings& chosen) {
    instance made(JVGetInstance(chosen.link));
    if (!made)
        throw std::runtime_error("the library could not be set up: free some memory and try again");
    if (chosen.timeout_ms)
        made->set_timeout_for_reply(*chosen.timeout_ms);
    return made;
}

namespace {

unsigned int connect(CJorvet* board, const settings& chosen) {
    if (!chosen.serial_number && !chosen.place)
        return JVConnect(board, chosen.index);
    const auto text = [](const std::optional<std::string>& given) { return given ? given->c_str() : nullptr; };
    jv_device_choice choice{};
    choice.size = sizeof(choice);
    choice.serial_number = text(chosen.serial_number);
    choice.place = text(chosen.place);
    return jv_connect_to(board, &choice, chosen.wait_ms);
}

} // namespace

unsigned int open_device(CJorvet* board, const settings& chosen, bench& boards) {
    const unsigned int status = connect(board, chosen);
    // Opening discards what the device sent before, so the script comes after.
    if (status == JV_OK)
        boards.run(chosen.script);
    return status;
}

} // namespace jorvet::tool
