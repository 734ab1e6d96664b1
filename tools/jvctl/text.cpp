// Reading and writing bytes, numbers and status codes as text.
#include "text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <stdexcept>

#include "jorvet/base/status.h"

namespace jorvet::tool {

namespace {

bool starts_with_0x(const std::string& text, std::size_t at = 0) {
    return text.size() >= at + 2 && text[at] == '0' && (text[at + 1] == 'x' || text[at + 1] == 'X');
}

bool is_hex_digit(char c) {
    return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}

std::uint8_t hex_value(char high, char low) {
    return static_cast<std::uint8_t>(std::stoul(std::string{high, low}, nullptr, 16));
}

std::string dump_line(const std::uint8_t* first, std::size_t count, std::size_t offset) {
    const std::string pairs = hex(bytes(first, first + count));
    std::string line = hex_number(static_cast<unsigned long>(offset), 4).substr(2) + "  " + pairs +
                       std::string(49 - pairs.size(), ' ');
    std::transform(first, first + count, std::back_inserter(line),
                   [](std::uint8_t byte) { return std::isprint(byte) ? static_cast<char>(byte) : '.'; });
    return line;
}

} // namespace

unsigned long parse_number(const std::string& text, unsigned long largest) {
    const bool is_hex = starts_with_0x(text);
    const std::string digits = is_hex ? text.substr(2) : text;
    const auto is_digit = [is_hex](char c) { return is_hex ? is_hex_digit(c) : c >= '0' && c <= '9'; };
    // Nine digits hold every number that is asked for, and overflow nothing.
    const bool readable = !digits.empty() && digits.size() <= 9 && std::all_of(digits.begin(), digits.end(), is_digit);
    const unsigned long value = readable ? std::stoul(digits, nullptr, is_hex ? 16 : 10) : 0;
    if (!readable || value > largest)
        throw std::invalid_argument("'" + text + "' is not a number from 0 to " + std::to_string(largest));
    return value;
}

bytes parse_hex(const std::string& text) {
    bytes data;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ' || text[at] == ':') {
            ++at;
        } else if (starts_with_0x(text, at)) {
            at += 2;
            if (at >= text.size() || !is_hex_digit(text[at]))
                throw std::invalid_argument("no digits follow a 0x in '" + text + "'");
        } else if (!is_hex_digit(text[at])) {
            throw std::invalid_argument(std::string("'") + text[at] + "' is not a hexadecimal digit");
        } else if (at + 1 == text.size() || !is_hex_digit(text[at + 1]) || starts_with_0x(text, at + 1)) {
            throw std::invalid_argument("'" + text + "' has an odd number of digits: two make a byte");
        } else {
            data.push_back(hex_value(text[at], text[at + 1]));
            at += 2;
        }
    }
    return data;
}

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
