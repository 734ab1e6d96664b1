// Writes bytes, numbers and status codes as text.
#include "text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>

#include "jorvet/base/status.h"

namespace jorvet::tool {

namespace {

std::string dump_line(const std::uint8_t* first, std::size_t count, std::size_t offset) {
    const std::string pairs = hex(bytes(first, first + count));
    std::string line = hex_number(static_cast<unsigned long>(offset), 4).substr(2) + "  " + pairs +
                       std::string(49 - pairs.size(), ' ');
    std::transform(first, first + count, std::back_inserter(line),
                   [](std::uint8_t byte) { return std::isprint(byte) ? static_cast<char>(byte) : '.'; });
    return line;
}

} // namespace

std::string hex(const bytes& data, const std::string& separator) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : data) {
        text += text.empty() ? "" : separator;
        text += {digits[byte >> 4], digits[byte & 0xF]};
    }
    return text;
}

std::string hex_number(unsigned long value, int digits) {
    char text[2 + 2 * sizeof value + 1];
    std::snprintf(text, sizeof text, "0x%0*lX", digits, value);
    return text;
}

std::string hex_dump(const bytes& data, const std::string& indent) {
    std::string text;
    for (std::size_t offset = 0; offset < data.size(); offset += 16)
        text += indent + dump_line(&data[offset], std::min<std::size_t>(16, data.size() - offset), offset) + '\n';
    return text;
}

std::string counted(std::size_t number, const std::string& noun) {
    return std::to_string(number) + ' ' + noun + (number == 1 ? "" : "s");
}

std::string status_line(unsigned int status) {
    return hex_number(status, 8) + ' ' + jv_status_name(status) + ": " + jv_status_text(status);
}

exit_status exit_status_of(unsigned int status) {
    if (status == JV_OK)
        return exit_status::success;
    if (is_reply(status))
        return exit_status::refused;
    const bool request_timed_out = status >= JV_ERR_TIMEOUT_READ_MEMORY && status <= JV_ERR_TIMEOUT_GET_MODE;
    if (request_timed_out || status == JV_ERR_REPLY_TIMEOUT || status == JV_ERR_EVENT_TIMEOUT)
        return exit_status::timed_out;
    return exit_status::link_failed;
}

bool is_reply(unsigned int status) {
    return status == JV_OK || status >> 8 == 0x700000;
}

} // namespace jorvet::tool
