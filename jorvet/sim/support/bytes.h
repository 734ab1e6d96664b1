// Bytes, owned and viewed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace jorvet::sim {

using byte_vector = std::vector<std::uint8_t>;

// A view of bytes that somebody else owns.
struct byte_view {
    const std::uint8_t* bytes = nullptr;
    std::size_t count = 0;

    void skip(std::size_t taken) {
        if (taken > 0) // `bytes` may be null
            bytes += taken;
        count -= taken;
    }
};

} // namespace jorvet::sim
