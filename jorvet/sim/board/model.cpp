// How the board carries out requests.
#include "jorvet/sim/board/model.h"

#include <algorithm>

namespace jorvet::sim {

namespace {

constexpr std::size_t memory_size = 0x10000;
constexpr std::size_t max_errors = 256;
constexpr std::uint8_t first_mode = 2;

namespace status {
constexpr std::uint16_t success = 0xA000;
constexpr std::uint16_t beyond_memory = 0x2001;
constexpr std::uint16_t unknown_identifier = 0x3001;
constexpr std::uint16_t unknown_command = 0xB000;
constexpr std::uint16_t wrong_crc = 0xB001;
} // namespace status

// Parameters 1 and 2: an address or an identifier.
std::uint16_t first_word(const board_request& request) {
    return static_cast<std::uint16_t>(request.parameters[0] << 8 | request.parameters[1]);
}

void append_word(byte_vector& data, std::uint16_t word) {
    data.push_back(static_cast<std::uint8_t>(word >> 8));
    data.push_back(static_cast<std::uint8_t>(word));
}

byte_vector ascii(const std::string& text) {
    return byte_vector(text.begin(), text.end());
}

} // namespace

board_model::board_model(std::string serial_number)
    : serial_number_(std::move(serial_number)), memory_(memory_size), identifiers_{{0x0001, ascii("jorvet")}},
      last_status_(status::success), mode_(first_mode) {}

void board_model::execute(const board_request& request, board_answer& answer) {
    answer.data.clear();
    answer.status = request.crc_matches ? carry_out(request, answer.data) : status::wrong_crc;
}

std::uint16_t board_model::carry_out(const board_request& request, byte_vector& data) {
    switch (request.command) {
    case 0x10:
        return read_memory(request, data);
    case 0x11:
        return read_by_id(request, data);
    case 0x15:
        data.assign(serial_number_.begin(), serial_number_.end());
        return status::success;
    case 0x16:
        append_word(data, last_status_);
        return status::success;
    case 0x17:
        return read_error(data);
    case 0x20:
        return write_memory(request);
    case 0x21:
        identifiers_[first_word(request)] = request.data;
        return status::success;
    case 0x30:
        return reset();
    case 0x31:
        mode_ = request.parameters[0];
        return status::success;
    case 0x32:
        data.push_back(mode_);
        return status::success;
    case 0x40:
        return exec_by_id(request, data);
    default:
        return status::unknown_command;
    }
}

std::uint16_t board_model::read_memory(const board_request& request, byte_vector& data) const {
    const std::size_t address = first_word(request);
    const std::size_t count = request.parameters[2];
    if (address + count > memory_size)
        return status::beyond_memory;
    data.assign(memory_.data() + address, memory_.data() + address + count);
    return status::success;
}

std::uint16_t board_model::write_memory(const board_request& request) {
    const std::size_t address = first_word(request);
    if (address + request.data.size() > memory_size)
        return status::beyond_memory;
    set_memory(address, request.data);
    return status::success;
}

std::uint16_t board_model::read_by_id(const board_request& request, byte_vector& data) const {
    const auto found = identifiers_.find(first_word(request));
    if (found == identifiers_.end())
        return status::unknown_identifier;
    data = found->second;
    return status::success;
}

std::uint16_t board_model::exec_by_id(const board_request& request, byte_vector& data) const {
    if (identifiers_.count(first_word(request)) == 0)
        return status::unknown_identifier;
    data.assign(request.data.rbegin(), request.data.rend());
    return status::success;
}

std::uint16_t board_model::read_error(byte_vector& data) {
    for (const std::uint16_t error : errors_)
        append_word(data, error);
    errors_.clear();
    return status::success;
}

std::uint16_t board_model::reset() {
    mode_ = first_mode;
    errors_.clear();
    sequence_ = 0;
    return status::success;
}

void board_model::note_status(std::uint16_t status) {
    last_status_ = status;
    if (status != status::success)
        add_error(status);
}

void board_model::add_error(std::uint16_t status) {
    errors_.push_front(status);
    if (errors_.size() > max_errors)
        errors_.pop_back();
}

void board_model::set_memory(std::size_t address, const byte_vector& bytes) {
    const std::size_t begin = std::min(address, memory_size);
    std::copy_n(bytes.data(), std::min(bytes.size(), memory_size - begin), memory_.data() + begin);
}

byte_vector board_model::memory(std::size_t address, std::size_t count) const {
    const std::size_t begin = std::min(address, memory_size);
    return byte_vector(memory_.data() + begin, memory_.data() + begin + std::min(count, memory_size - begin));
}

std::optional<byte_vector> board_model::identifier(std::uint16_t identifier) const {
    const auto found = identifiers_.find(identifier);
    return found == identifiers_.end() ? std::nullopt : std::optional<byte_vector>(found->second);
}

} // namespace jorvet::sim
