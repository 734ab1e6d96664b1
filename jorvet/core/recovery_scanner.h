// Finds frames again in a stream that has lost them. Pure computation.
//
// A frame counts as found when it is whole, its data are not longer than the limit, and behind it, or behind a
// separator there, stands the header of another such frame. Of several the first is taken; one that is not whole yet
// does not hold up a later one that is confirmed.
#pragma once

#include <cstddef>
#include <vector>

namespace jorvet::core {

class recovery_scanner {
  public:
    // Begins anew with the bytes in which frames may stand again.
    void begin(std::vector<unsigned char> bytes);
    void add(const std::vector<unsigned char>& bytes);

    // Looks for a frame with at most `longest` bytes of data. When there is one, `bytes` becomes all that came from its
    // start byte on, and the scanner is empty. Adds to `skipped` the bytes that turned out to belong to no frame. Keeps
    // no more than two frames of that length.
    bool find(std::size_t longest, std::vector<unsigned char>& bytes, std::size_t& skipped);

  private:
    std::vector<unsigned char> bytes_;
};

} // namespace jorvet::core
