// The board's parser of the host's byte stream: finds the request frames in it, however it is split. It shares no code
// with the library that builds them, so that a mistake on one side shows. No thread, no lock.
#pragma once

#include "jorvet/sim/board/request.h"

namespace jorvet::sim {

class request_parser {
  public:
    // Consumes bytes from the front of `bytes` and `count`, up to the end of the next request frame, and returns the
    // request, which is valid until the next call; null once the bytes are used up.
    const board_request* next(const std::uint8_t*& bytes, std::size_t& count);

    std::size_t stray_bytes() const { return stray_bytes_; } // skipped so far, because they start no request

  private:
    std::size_t frame_size() const; // as far as the bytes received determine it
    void decode();

    byte_vector frame_; // of the request being received
    board_request request_;
    std::size_t stray_bytes_ = 0;
};

} // namespace jorvet::sim
