// Printing what a command ended with.
#include "outcome.h"

#include <iostream>

#include "jorvet/base/status.h"

namespace jorvet::tool {

nlohmann::ordered_json status_json(unsigned int status) {
    return {{"code", hex_number(status, 8)}, {"name", jv_status_name(status)}, {"text", jv_status_text(status)}};
}

outcome concluded(const std::string& command, unsigned int status) {
    outcome result;
    result.exit = exit_status_of(status);
    result.json = {{"command", command}, {"status", status_json(status)}, {"exit_status", result.exit}};
    if (result.exit != exit_status::success)
        result.error = command + ": " + status_line(status);
    return result;
}

outcome failed(const std::string& command, exit_status exit, const std::string& sentence) {
    return {
        exit, {{"command", command}, {"status", nullptr}, {"exit_status", exit}, {"error", sentence}}, "", sentence};
}

std::string json_line(const nlohmann::ordered_json& value) {
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

int print(const outcome& result, bool json) {
    const bool written = print_text(json ? json_line(result.json) : result.text);
    if (!result.error.empty())
        std::cerr << "jvctl: " << result.error << '\n';
    return written ? result.exit : exit_status::link_failed;
}

bool print_text(const std::string& text) {
    std::cout << text << std::flush;
    if (!std::cout)
        std::cerr << "jvctl: standard output cannot be written\n";
    return !!std::cout;
}

} // namespace jorvet::tool
