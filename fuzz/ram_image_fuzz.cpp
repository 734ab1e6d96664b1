// Walks arbitrary bytes as a RAM image. The walk must end, and its pieces must lie in the image, one behind the other.
#include <cstdlib>
#include <vector>

#include "jorvet/cyusb/ram_image.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    const std::vector<std::uint8_t> exact(bytes, bytes + size); // on its own, so that a read past the end is seen
    jorvet::cyusb::ram_image image(exact.data(), exact.size());
    std::size_t behind = 4;
    for (auto step = image.next(); !step.is_last(); step = image.next()) {
        const auto offset = static_cast<std::size_t>(step.data - exact.data());
        if (offset < behind || step.size > image.longest_piece || offset + step.size > size)
            std::abort();
        behind = offset + step.size;
    }
    return 0;
}
