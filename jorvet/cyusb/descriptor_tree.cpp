// The walks over configuration and BOS descriptors, and the life of the trees that they build. Any thread.
#include "jorvet/cyusb/descriptor_tree.h"

#include <algorithm>
#include <iterator>

#include "jorvet/cyusb/descriptor_fields.h"

using namespace jorvet::cyusb;

namespace {

constexpr unsigned max_entries = 255;
constexpr unsigned max_endpoints = 31;
constexpr unsigned max_other_descriptors = 11; // among the endpoints of one entry

// The descriptors that a walk has not reached yet.
struct descriptor_range {
    const BYTE* bytes;
    std::size_t size;

    // Whether a whole descriptor is at the beginning: the condition for calling the others.
    bool has_next() const { return size >= 2 && bytes[0] >= 2 && bytes[0] <= size; }
    BYTE length() const { return bytes[0]; }
    BYTE type() const { return bytes[1]; }
    // That descriptor as its record; null when it is too short for one.
    template <class Record>
    const Record* as() const {
        return length() >= sizeof(Record) ? reinterpret_cast<const Record*>(bytes) : nullptr;
    }
    descriptor_range after(std::size_t count) const { return {bytes + count, size - count}; }
    descriptor_range rest() const { return after(length()); }
};

template <class Descriptor>
const BYTE* bytes_of(const Descriptor* descriptor) {
    return reinterpret_cast<const BYTE*>(descriptor);
}

// The companion after the endpoint descriptor at the beginning of `range`, if there is one.
const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR* companion_in(const descriptor_range& range) {
    const descriptor_range next = range.rest();
    const bool companion = next.has_next() && next.type() == descriptor_type::endpoint_companion;
    return companion ? next.as<USB_SS_ENDPOINT_COMPANION_DESCRIPTOR>() : nullptr;
}

// One walk over the endpoints of an entry.
class endpoint_walk {
  public:
    endpoint_walk(CCyUSBInterface& entry, HANDLE device, CCyCompanions companions)
        : entry_(entry), device_(device), companions_(companions) {}

    void run(descriptor_range range) {
        const unsigned wanted = std::min<unsigned>(entry_.bNumEndpoints, max_endpoints);
        while (built_ < wanted && range.has_next()) {
            const std::size_t taken = take(range);
            if (taken == 0)
                return;
            entry_.TotalLength = static_cast<USHORT>(entry_.TotalLength + taken);
            range = range.after(taken);
        }
    }

  private:
    // How many bytes the next descriptor takes, with its companion; 0 ends the walk.
    std::size_t take(const descriptor_range& range) {
        if (range.type() == descriptor_type::endpoint)
            return take_endpoint(range);
        if (range.type() == descriptor_type::interface_setting || ++others_ > max_other_descriptors)
            return 0;
        return range.length();
    }

    std::size_t take_endpoint(const descriptor_range& range) {
        const auto* descriptor = range.as<USB_ENDPOINT_DESCRIPTOR>();
        if (descriptor == nullptr)
            return 0;
        const auto* companion = companions_ == CCyCompanions::Parsed ? companion_in(range) : nullptr;
        entry_.EndPoints[built_ + 1] = new_endpoint(device_, *descriptor, companion);
        ++built_;
        return range.length() + std::size_t{companion != nullptr ? companion->bLength : BYTE{0}};
    }

    CCyUSBInterface& entry_;
    HANDLE device_;
    CCyCompanions companions_;
    unsigned built_ = 0;
    unsigned others_ = 0;
};

void count_alternates(CCyUSBConfig& config) {
    UCHAR counts[256] = {};
    for (unsigned i = 0; i < config.AltInterfaceCount; ++i)
        ++counts[config.Interfaces[i]->bInterfaceNumber];
    for (unsigned i = 0; i < config.AltInterfaceCount; ++i)
        config.Interfaces[i]->AlternateCount = counts[config.Interfaces[i]->bInterfaceNumber];
}

// All but what the objects own.
void copy_entry(CCyUSBInterface& to, const CCyUSBInterface& from) {
    copy_interface_fields(to, from);
    to.AlternateCount = from.AlternateCount;
    to.TotalLength = from.TotalLength;
}

void copy_configuration(CCyUSBConfig& to, const CCyUSBConfig& from) {
    copy_configuration_fields(to, from);
    to.AltInterfaceCount = from.AltInterfaceCount;
}

// Builds a capability record into `slot`; false when the descriptor is too short for it.
template <class Descriptor, class Record>
bool build_capability(Record*& slot, HANDLE device, const descriptor_range& range) {
    const auto* descriptor = range.as<Descriptor>();
    if (descriptor == nullptr)
        return false;
    auto* const record = new Record(device, descriptor);
    delete slot;
    slot = record;
    return true;
}

bool take_capability(CCyUSBBOS& bos, HANDLE device, const descriptor_range& range) {
    constexpr std::size_t header_size = 3; // up to bDevCapabilityType
    if (range.length() < header_size)
        return false;
    switch (range.bytes[2]) {
    case capability_type::usb20_extension:
        return build_capability<USB_BOS_USB20_DEVICE_EXTENSION>(bos.Usb20Extension, device, range);
    case capability_type::super_speed:
        return build_capability<USB_BOS_SS_DEVICE_CAPABILITY>(bos.SsCapability, device, range);
    case capability_type::container_id:
        return build_capability<USB_BOS_CONTAINER_ID>(bos.ContainerId, device, range);
    default:
        return true;
    }
}

} // namespace

namespace jorvet::cyusb {

void forget_endpoint0(CCyUSBConfig& config, const CCyUSBEndPoint* endpoint) {
    for (CCyUSBInterface* entry : config.Interfaces) {
        if (entry != nullptr && entry->EndPoints[0] == endpoint)
            entry->EndPoints[0] = nullptr;
    }
}

} // namespace jorvet::cyusb

// ---- Interface entries ---------------------------------------------------------------------------------------------
// The constructors below delegate first, so that what they have built is destroyed if memory runs out half-way.

CCyUSBInterface::CCyUSBInterface(HANDLE device, const USB_INTERFACE_DESCRIPTOR* descriptor, std::size_t size,
                                 CCyCompanions companions)
    : CCyUSBInterface() {
    if (size < sizeof(*descriptor))
        return;
    copy_interface_fields(*this, *descriptor);
    TotalLength = bLength;
    const descriptor_range range{bytes_of(descriptor), std::min<std::size_t>(size, 0xFFFF)}; // TotalLength has 16 bits
    if (range.has_next())
        endpoint_walk(*this, device, companions).run(range.rest());
}

CCyUSBInterface::CCyUSBInterface(const CCyUSBInterface& other) : CCyUSBInterface() {
    copy_entry(*this, other);
    for (std::size_t slot = 0; slot < std::size(EndPoints); ++slot) {
        if (other.EndPoints[slot] != nullptr)
            EndPoints[slot] = copy_endpoint(*other.EndPoints[slot]);
    }
}

CCyUSBInterface::~CCyUSBInterface() {
    for (CCyUSBEndPoint* endpoint : EndPoints)
        destroy_endpoint(endpoint);
}

// ---- Configurations ------------------------------------------------------------------------------------------------

CCyUSBConfig::CCyUSBConfig(HANDLE device, const USB_CONFIGURATION_DESCRIPTOR* descriptor, CCyCompanions companions)
    : CCyUSBConfig(device, bytes_of(descriptor), std::max<std::size_t>(descriptor->wTotalLength, sizeof(*descriptor)),
                   companions) {}

CCyUSBConfig::CCyUSBConfig(HANDLE device, const BYTE* bytes, std::size_t size, CCyCompanions companions)
    : CCyUSBConfig() {
    if (size < sizeof(USB_CONFIGURATION_DESCRIPTOR))
        return;
    const auto* header = reinterpret_cast<const USB_CONFIGURATION_DESCRIPTOR*>(bytes);
    copy_configuration_fields(*this, *header);

    descriptor_range range{bytes, std::min<std::size_t>(size, wTotalLength)};
    if (!range.has_next() || bLength < sizeof(*header))
        return;
    for (range = range.rest(); range.has_next() && AltInterfaceCount < max_entries;) {
        std::size_t taken = range.length();
        if (range.type() == descriptor_type::interface_setting) {
            const auto* descriptor = range.as<USB_INTERFACE_DESCRIPTOR>();
            if (descriptor == nullptr)
                break;
            auto* const entry = new CCyUSBInterface(device, descriptor, range.size, companions);
            Interfaces[AltInterfaceCount++] = entry;
            taken = entry->TotalLength;
        }
        range = range.after(taken);
    }
    count_alternates(*this);
}

CCyUSBConfig::CCyUSBConfig(const CCyUSBConfig& other) : CCyUSBConfig() {
    copy_configuration(*this, other);
    for (std::size_t slot = 0; slot < std::size(Interfaces); ++slot) {
        if (other.Interfaces[slot] != nullptr)
            Interfaces[slot] = new CCyUSBInterface(*other.Interfaces[slot]);
    }
}

CCyUSBConfig::~CCyUSBConfig() {
    for (const CCyUSBInterface* entry : Interfaces) {
        CCyUSBEndPoint* const shared = entry != nullptr ? entry->EndPoints[0] : nullptr;
        if (shared != nullptr) {
            forget_endpoint0(*this, shared);
            destroy_endpoint(shared);
        }
    }
    for (const CCyUSBInterface* entry : Interfaces)
        delete entry;
}

// ---- BOS -----------------------------------------------------------------------------------------------------------

CCyBosUSB20Extesnion::CCyBosUSB20Extesnion(HANDLE, const USB_BOS_USB20_DEVICE_EXTENSION* descriptor) {
    copy_usb20_extension_fields(*this, *descriptor);
}

CCyBosSuperSpeedCapability::CCyBosSuperSpeedCapability(HANDLE, const USB_BOS_SS_DEVICE_CAPABILITY* descriptor) {
    copy_super_speed_fields(*this, *descriptor);
}

CCyBosContainerID::CCyBosContainerID(HANDLE, const USB_BOS_CONTAINER_ID* descriptor) {
    copy_container_id_fields(*this, *descriptor);
}

CCyUSBBOS::CCyUSBBOS(HANDLE device, const USB_BOS_DESCRIPTOR* descriptor)
    : CCyUSBBOS(device, bytes_of(descriptor), std::max<std::size_t>(descriptor->wTotalLength, sizeof(*descriptor))) {}

CCyUSBBOS::CCyUSBBOS(HANDLE device, const BYTE* bytes, std::size_t size) : CCyUSBBOS() {
    if (size < sizeof(USB_BOS_DESCRIPTOR))
        return;
    const auto* header = reinterpret_cast<const USB_BOS_DESCRIPTOR*>(bytes);
    copy_bos_fields(*this, *header);

    descriptor_range range{bytes, std::min<std::size_t>(size, wTotalLength)};
    if (!range.has_next() || bLength < sizeof(*header))
        return;
    for (unsigned i = 0; i < bNumDeviceCaps; ++i) {
        range = range.rest();
        if (!range.has_next() || !take_capability(*this, device, range))
            return;
    }
}

CCyUSBBOS::~CCyUSBBOS() {
    delete ContainerId;
    delete Usb20Extension;
    delete SsCapability;
}
