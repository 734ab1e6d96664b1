// The board's reading of the host's byte stream: cuts request frames out of it, in whatever pieces it comes. It shares
// nothing with the library that built them, so that a mistake on one side shows. No thread, no lock.
#pragma once

#include "jorvet/sim/board/board.h"

namespace jorvet::sim {

class RequestParser {
  public:
    // Takes bytes off the front of `bytes` and `count`, up to the end of the next request frame, and gives the request,
    // which is valid until the next call; null once the bytes are used up.
    const Request* next(const std::uint8_t*& bytes, std::size_t& count);

    std::size_t stray_bytes() const { return stray_bytes_; } // skipped so far, because they start no request

  private:
    std::size_t frame_size() const; // as far as the bytes so far tell
    void decode();

    Bytes frame_; // of the request that is coming
    Request request_;
    std::size_t stray_bytes_ = 0;
};

} // namespace jorvet::sim
