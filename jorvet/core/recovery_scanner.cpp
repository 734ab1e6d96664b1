// The recovery scanner; see the header. Runs on the background thread.
#include "jorvet/core/recovery_scanner.h"

#include "jorvet/protocol/frames.h"

namespace jorvet::core {

using namespace jorvet::protocol;

namespace {

enum class finding { frame, no_frame, needs_more };

// The header at `at` of a frame that is not too long.
finding header_at(const std::vector<unsigned char>& bytes, std::size_t at, std::size_t longest) {
    if (at >= bytes.size())
        return finding::needs_more;
    if (!is_board_start(bytes[at]))
        return finding::no_frame;
    if (bytes.size() - at < header_size(bytes[at]))
        return finding::needs_more;
    return length_of(bytes.data() + at) <= longest ? finding::frame : finding::no_frame;
}

finding frame_at(const std::vector<unsigned char>& bytes, std::size_t at, std::size_t longest) {
    const finding first = header_at(bytes, at, longest);
    if (first != finding::frame)
        return first;
    std::size_t next = at + frame_size(bytes.data() + at);
    if (next < bytes.size() && bytes[next] == separator)
        ++next;
    return header_at(bytes, next, longest);
}

} // namespace

void recovery_scanner::begin(std::vector<unsigned char> bytes) {
    bytes_ = std::move(bytes);
}

void recovery_scanner::add(const std::vector<unsigned char>& bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

bool recovery_scanner::find(std::size_t longest, std::vector<unsigned char>& bytes, std::size_t& skipped) {
    std::size_t first_open = bytes_.size(); // the first place that more bytes may confirm
    std::size_t at = 0;
    finding found = finding::no_frame;
    for (; at < bytes_.size() && found != finding::frame; ++at) {
        found = frame_at(bytes_, at, longest);
        if (found == finding::needs_more && first_open == bytes_.size())
            first_open = at;
    }
    const std::size_t kept = found == finding::frame ? at - 1 : first_open;
    skipped += kept;
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(kept));
    if (found != finding::frame)
        return false;
    bytes = std::move(bytes_);
    bytes_.clear();
    return true;
}

} // namespace jorvet::core
