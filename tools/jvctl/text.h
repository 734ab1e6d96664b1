// Writing bytes, numbers and status codes as text. Nothing here waits or keeps state; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace jorvet::tool {

using bytes = std::vector<std::uint8_t>;

// The most data that a request or a reply can carry, in bytes.
constexpr std::size_t max_data = 65535;

// "0A 0B 0C"; `separator` may be empty.
std::string hex(const bytes& data, const std::string& separator = " ");
// "0x0A", with `digits` digits.
std::string hex_number(unsigned long value, int digits);

// Lines of offset, sixteen bytes and their characters, each after `indent`; "" without data.
std::string hex_dump(const bytes& data, const std::string& indent = "");

// "1 byte", "2 bytes".
std::string counted(std::size_t number, const std::string& noun);

// "0x30100004 JV_ERR_TIMEOUT_READ_SN: no reply …"
std::string status_line(unsigned int status);

// What the program ends with.
enum exit_status : int { success = 0, refused = 1, wrong_usage = 2, timed_out = 3, link_failed = 4 };
exit_status exit_status_of(unsigned int status);

// Whether a reply came from the board: it did what was asked, or refused.
bool is_reply(unsigned int status);

} // namespace jorvet::tool
