// Walks arbitrary bytes as a BOS descriptor. The walk must end, stay inside its range, and find whole records only.
//
// Input: the descriptor.
#include <cstdlib>
#include <vector>

#include "jorvet/cyusb/descriptor_tree.h"

namespace {

template <class Descriptor, class Record>
std::size_t length_of(const Record* record, BYTE type) {
    if (record == nullptr)
        return 0;
    if (record->bDevCapabilityType != type || record->bLength < sizeof(Descriptor))
        std::abort();
    return record->bLength;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size) {
    using namespace jorvet::cyusb;
    const std::vector<BYTE> exact(bytes, bytes + size); // on its own, so that a read past the end is seen
    const CCyUSBBOS bos(nullptr, exact.data(), exact.size());
    const std::size_t taken =
        length_of<USB_BOS_USB20_DEVICE_EXTENSION>(bos.Usb20Extension, capability_type::usb20_extension) +
        length_of<USB_BOS_SS_DEVICE_CAPABILITY>(bos.SsCapability, capability_type::super_speed) +
        length_of<USB_BOS_CONTAINER_ID>(bos.ContainerId, capability_type::container_id);
    if (taken + (taken > 0 ? bos.bLength : 0) > exact.size())
        std::abort();
    return 0;
}
