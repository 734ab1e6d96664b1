// Reads numbers and bytes written by a person, by the same rules on the command line and in scripts. Throws
// std::invalid_argument with a sentence about `text`. Any thread.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace jorvet {

inline bool starts_with_0x(std::string_view text) {
    return text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

// Decimal digits, or hexadecimal ones after 0x. No sign and no blank.
inline std::uint64_t read_number(std::string_view text, std::uint64_t maximum) {
    const bool hexadecimal = starts_with_0x(text);
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + text.size();
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(first, last, value, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != last || value > maximum)
        throw std::invalid_argument("'" + std::string(text) + "' is not a number from 0 to " + std::to_string(maximum));
    return value;
}

// Pairs of hexadecimal digits; blanks and colons between the bytes and 0x before a byte are skipped.
inline std::vector<std::uint8_t> read_bytes(std::string_view text) {
    constexpr std::string_view hexadecimal_digits = "0123456789abcdefABCDEF";
    const std::string quoted = "'" + std::string(text) + "'";
    std::vector<std::uint8_t> bytes;
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r:"), text.size()));
        if (text.empty())
            return bytes;
        const bool marked = starts_with_0x(text);
        if (marked)
            text.remove_prefix(2);
        const std::size_t digits = std::min(text.find_first_not_of(hexadecimal_digits), text.size());
        if (digits == 0 && marked)
            throw std::invalid_argument("no digits follow a 0x in " + quoted);
        if (digits == 0)
            throw std::invalid_argument("'" + std::string(text.substr(0, 1)) + "' is not a hexadecimal digit");
        if (digits == 1 || starts_with_0x(text.substr(1)))
            throw std::invalid_argument(quoted + " has an odd number of digits: two make a byte");
        std::uint8_t value = 0;
        std::from_chars(text.data(), text.data() + 2, value, 16);
        bytes.push_back(value);
        text.remove_prefix(2);
    }
}

} // namespace jorvet
