// What the board knows and how it carries requests out: memory, identifiers, errors, mode, sequence number. It decides
// and does not wait: no thread, no lock.
#pragma once

#include <deque>
#include <map>

#include "jorvet/sim/board/board.h"

namespace jorvet::sim {

// What a request is answered with.
struct Answer {
    std::uint16_t status = 0;
    Bytes data;
};

class BoardModel {
  public:
    explicit BoardModel(std::string serial_number);

    // Carries `request` out and puts the answer in `answer`, whatever that held before.
    void execute(const Request& request, Answer& answer);
    // Takes note of the status word that an answer goes out with.
    void note_status(std::uint16_t status);

    std::uint8_t take_sequence() { return sequence_++; }
    void skip_sequences(unsigned count) { sequence_ = static_cast<std::uint8_t>(sequence_ + count); }

    void set_memory(std::size_t address, const Bytes& bytes);
    Bytes memory(std::size_t address, std::size_t count) const;
    void set_identifier(std::uint16_t identifier, const Bytes& bytes) { identifiers_[identifier] = bytes; }
    std::optional<Bytes> identifier(std::uint16_t identifier) const;
    void add_error(std::uint16_t status);
    std::uint8_t mode() const { return mode_; }

  private:
    std::uint16_t carry_out(const Request& request, Bytes& data);
    std::uint16_t read_memory(const Request& request, Bytes& data) const;
    std::uint16_t write_memory(const Request& request);
    std::uint16_t read_by_id(const Request& request, Bytes& data) const;
    std::uint16_t exec_by_id(const Request& request, Bytes& data) const;
    std::uint16_t read_error(Bytes& data);
    std::uint16_t reset();

    std::string serial_number_;
    Bytes memory_;
    std::map<std::uint16_t, Bytes> identifiers_;
    std::deque<std::uint16_t> errors_; // newest first
    std::uint16_t last_status_;
    std::uint8_t mode_;
    std::uint8_t sequence_ = 0;
};

} // namespace jorvet::sim
