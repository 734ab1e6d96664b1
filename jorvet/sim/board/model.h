// The board's state (memory, identifiers, errors, mode, sequence number) and how it carries out requests. No thread, no
// lock.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>

#include "jorvet/sim/board/request.h"

namespace jorvet::sim {

// The answer to a request.
struct board_answer {
    std::uint16_t status = 0;
    byte_vector data;
};

class board_model {
  public:
    explicit board_model(std::string serial_number);

    // Carries out `request` and overwrites `answer` with the answer.
    void execute(const board_request& request, board_answer& answer);
    // Records the status word with which an answer is sent.
    void note_status(std::uint16_t status);

    std::uint8_t take_sequence() { return sequence_++; }
    void skip_sequences(unsigned count) { sequence_ = static_cast<std::uint8_t>(sequence_ + count); }

    void set_memory(std::size_t address, const byte_vector& bytes);
    byte_vector memory(std::size_t address, std::size_t count) const;
    void set_identifier(std::uint16_t identifier, const byte_vector& bytes) { identifiers_[identifier] = bytes; }
    std::optional<byte_vector> identifier(std::uint16_t identifier) const;
    void add_error(std::uint16_t status);
    std::uint8_t mode() const { return mode_; }

  private:
    std::uint16_t carry_out(const board_request& request, byte_vector& data);
    std::uint16_t read_memory(const board_request& request, byte_vector& data) const;
    std::uint16_t write_memory(const board_request& request);
    std::uint16_t read_by_id(const board_request& request, byte_vector& data) const;
    std::uint16_t exec_by_id(const board_request& request, byte_vector& data) const;
    std::uint16_t read_error(byte_vector& data);
    std::uint16_t reset();

    std::string serial_number_;
    byte_vector memory_;
    std::map<std::uint16_t, byte_vector> identifiers_;
    std::deque<std::uint16_t> errors_; // newest first
    std::uint16_t last_status_;
    std::uint8_t mode_;
    std::uint8_t sequence_ = 0;
};

} // namespace jorvet::sim
