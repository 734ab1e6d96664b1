// Walks arbitrary bytes as a configuration descriptor. The walk must end, stay inside its range, take no more bytes
// than there are, and build a tree that can be copied and destroyed.
//
// Input: a byte whose lowest bit asks for companions, then the descriptor.
#include <cstdlib>
#include <vector>

#include "jorvet/cyusb/descriptor_tree.h"

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

void check_entry(const CCyUSBInterface& entry) {
    unsigned built = 0;
    for (unsigned slot = 1; slot < 32 && entry.EndPoints[slot] != nullptr; ++slot)
        ++built;
    require(entry.EndPoints[0] == nullptr);
    require(built <= entry.bNumEndpoints);
    require(entry.TotalLength >= entry.bLength + built * sizeof(USB_ENDPOINT_DESCRIPTOR));
    require(entry.AlternateCount >= 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    if (size == 0)
        return 0;
    const auto companions = (bytes[0] & 1) != 0 ? CCyCompanions::Parsed : CCyCompanions::Ignored;
    const std::vector<BYTE> exact(bytes + 1, bytes + size); // on its own, so that a read past the end is seen
    const CCyUSBConfig config(nullptr, exact.data(), exact.size(), companions);
    const CCyUSBConfig copy(config);
    std::size_t taken = 0;
    for (unsigned i = 0; i < config.AltInterfaceCount; ++i) {
        check_entry(*config.Interfaces[i]);
        check_entry(*copy.Interfaces[i]);
        taken += config.Interfaces[i]->TotalLength;
    }
    require(taken <= exact.size());
    return 0;
}
