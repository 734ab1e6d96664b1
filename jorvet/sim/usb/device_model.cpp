// Reading the device's own descriptors, and the standard requests.
#include "jorvet/sim/usb/device_model.h"

#include <algorithm>
#include <utility>

namespace jorvet::sim {

using ports::usb_end;
using ports::usb_setup;

namespace {

constexpr std::uint8_t number_mask = 0x0F;
constexpr std::size_t numbers = 16;
constexpr std::size_t longest_string = 126; // characters

// Calls `use` for each descriptor of a configuration as long as they are complete, with the one after it or null.
template <class Use>
void for_each_descriptor(const byte_vector& bytes, Use use) {
    const auto at = [&](std::size_t place) -> const std::uint8_t* {
        const bool whole = place + 2 <= bytes.size() && bytes[place] >= 2 && bytes[place] <= bytes.size() - place;
        return whole ? &bytes[place] : nullptr;
    };
    for (std::size_t place = 0; at(place) != nullptr; place += bytes[place])
        use(at(place), at(place + bytes[place]));
}

bool is(const std::uint8_t* descriptor, usb::descriptor_type type, std::size_t size) {
    return descriptor != nullptr && descriptor[0] >= size && descriptor[1] == type;
}

// Calls `use` for each endpoint descriptor of an alternate setting of the first interface, with its companion or null.
// Returns whether there is such a setting.
template <class Use>
bool for_each_endpoint_of(const byte_vector& configuration, std::uint16_t setting, Use use) {
    std::optional<std::uint8_t> first_interface;
    bool found = false, inside = false;
    for_each_descriptor(configuration, [&](const std::uint8_t* here, const std::uint8_t* next) {
        if (is(here, usb::interface_descriptor, usb::interface_size)) {
            first_interface = first_interface.value_or(here[usb::interface_number]);
            inside = here[usb::interface_number] == *first_interface && here[usb::interface_setting] == setting;
            found = found || inside;
        }
        if (inside && is(here, usb::endpoint_descriptor, usb::endpoint_size))
            use(here, is(next, usb::companion_descriptor, usb::companion_size) ? next : nullptr);
    });
    return found;
}

std::size_t two_bytes(const std::uint8_t* bytes) {
    return bytes[0] + std::size_t{bytes[1]} * 256;
}

// Bytes of a packet; of an isochronous endpoint, all bytes that move in one interval.
std::size_t packet_size(const std::uint8_t* endpoint, const std::uint8_t* companion, endpoint_kind kind) {
    const std::size_t word = two_bytes(endpoint + usb::endpoint_packet_size);
    if (kind != endpoint_kind::isochronous)
        return word & 0x7FF;
    const std::size_t size = (word & 0x7FF) * ((word >> 11 & 3) + 1);
    if (companion == nullptr)
        return size;
    return size * (companion[usb::companion_burst] + 1u) * ((companion[usb::companion_attributes] & 3u) + 1);
}

byte_vector string_head(std::size_t characters) {
    return {static_cast<std::uint8_t>(2 + 2 * characters), usb::string_descriptor};
}

void append_character(byte_vector& bytes, unsigned character) {
    bytes.push_back(static_cast<std::uint8_t>(character));
    bytes.push_back(static_cast<std::uint8_t>(character >> 8));
}

std::uint8_t value_of(const byte_vector& configuration) {
    return configuration.size() < usb::configuration_size ? std::uint8_t{0} : configuration[usb::configuration_value];
}

std::optional<byte_vector> status_of(const simulated_endpoint* endpoint) {
    if (endpoint == nullptr)
        return std::nullopt;
    return byte_vector{endpoint->halted() ? std::uint8_t{1} : std::uint8_t{0}, 0};
}

std::optional<byte_vector> done_if(bool done) {
    return done ? std::optional<byte_vector>(byte_vector()) : std::nullopt;
}

} // namespace

usb_device_model::usb_device_model(usb_descriptors descriptors) : descriptors_(std::move(descriptors)) {
    endpoints_[0].appear(endpoint_kind::control, 0);
    if (!descriptors_.configurations.empty())
        configuration_ = &descriptors_.configurations.front();
    make_endpoints();
}

const std::vector<std::uint8_t>& usb_device_model::addresses() {
    static const std::vector<std::uint8_t> all = [] {
        std::vector<std::uint8_t> result{0};
        for (std::uint8_t number = 1; number < numbers; ++number)
            result.insert(result.end(), {number, static_cast<std::uint8_t>(number | usb::inbound)});
        return result;
    }();
    return all;
}

simulated_endpoint& usb_device_model::place_of(std::uint8_t address) {
    return endpoints_[(address & number_mask) + ((address & usb::inbound) != 0 ? numbers : 0)];
}

simulated_endpoint* usb_device_model::find(std::uint8_t address) {
    simulated_endpoint& endpoint = place_of(address);
    const bool is_address = (address & ~(usb::inbound | number_mask)) == 0;
    return is_address && endpoint.exists() ? &endpoint : nullptr;
}

bool usb_device_model::select_alternate(std::uint8_t setting) {
    if (!has_setting(setting))
        return false;
    clear_endpoints();
    alternate_ = setting;
    make_endpoints();
    return true;
}

bool usb_device_model::has_setting(std::uint16_t setting) const {
    return configuration_ != nullptr && for_each_endpoint_of(*configuration_, setting, [](auto...) {});
}

void usb_device_model::clear_endpoints() {
    for (simulated_endpoint& endpoint : endpoints_)
        if (endpoint.kind() != endpoint_kind::control)
            endpoint.disappear();
    board_in_ = board_out_ = nullptr;
}

void usb_device_model::make_endpoints() {
    if (configuration_ == nullptr)
        return;
    for_each_endpoint_of(*configuration_, alternate_, [this](const std::uint8_t* here, const std::uint8_t* companion) {
        const std::uint8_t address = here[usb::endpoint_address];
        const auto kind = static_cast<endpoint_kind>(here[usb::endpoint_attributes] & 3);
        if ((address & number_mask) == 0 || kind == endpoint_kind::control)
            return;
        simulated_endpoint& endpoint = place_of(address);
        endpoint.appear(kind, packet_size(here, companion, kind));
        simulated_endpoint*& board = (address & usb::inbound) != 0 ? board_in_ : board_out_;
        if (kind == endpoint_kind::bulk && board == nullptr)
            board = &endpoint;
    });
}

std::optional<byte_vector> usb_device_model::answer(const usb_setup& setup) {
    const auto endpoint_number = static_cast<std::uint8_t>(setup.index);
    switch (setup.request_type << 8 | setup.request) {
    case usb::get_descriptor:
        return descriptor(setup.value >> 8, setup.value & 0xFF, setup.index);
    case usb::get_device_status:
    case usb::get_interface_status:
        return byte_vector{0, 0}; // powered by the bus, no remote wake-up
    case usb::get_endpoint_status:
        return status_of(find(endpoint_number));
    case usb::clear_endpoint_feature:
        return done_if(set_halted(setup, false));
    case usb::set_endpoint_feature:
        return done_if(set_halted(setup, true));
    case usb::get_configuration:
        return byte_vector{configuration_ == nullptr ? std::uint8_t{0} : value_of(*configuration_)};
    case usb::set_configuration:
        return done_if(configure(setup.value));
    case usb::get_interface:
        return configuration_ == nullptr ? std::nullopt : std::optional<byte_vector>(byte_vector{alternate_});
    case usb::set_interface:
        return done_if(setup.value <= 0xFF && select_alternate(static_cast<std::uint8_t>(setup.value)));
    default:
        return std::nullopt;
    }
}

std::optional<byte_vector> usb_device_model::descriptor(unsigned type, std::size_t index,
                                                        std::uint16_t language) const {
    const auto& configurations = descriptors_.configurations;
    switch (type) {
    case usb::device_descriptor:
        return descriptors_.device;
    case usb::configuration_descriptor:
        return index < configurations.size() ? std::optional<byte_vector>(configurations[index]) : std::nullopt;
    case usb::string_descriptor:
        return string(index, language);
    case usb::bos_descriptor:
        return descriptors_.bos.empty() ? std::nullopt : std::optional<byte_vector>(descriptors_.bos);
    default:
        return std::nullopt;
    }
}

// Index 0 is the table of languages, whatever language is asked for.
std::optional<byte_vector> usb_device_model::string(std::size_t index, std::uint16_t language) const {
    const auto& languages = descriptors_.languages;
    if (index == 0) {
        byte_vector table = string_head(languages.size());
        for (const usb_language& known : languages)
            append_character(table, known.id);
        return table;
    }
    const auto known =
        std::find_if(languages.begin(), languages.end(), [&](const auto& l) { return l.id == language; });
    if (known == languages.end() || index > known->texts.size())
        return std::nullopt;
    const std::u16string text = known->texts[index - 1].substr(0, longest_string);
    byte_vector result = string_head(text.size());
    for (const char16_t character : text)
        append_character(result, character);
    return result;
}

bool usb_device_model::set_halted(const usb_setup& setup, bool halted) {
    simulated_endpoint* const endpoint = find(static_cast<std::uint8_t>(setup.index));
    if (endpoint == nullptr || endpoint->kind() == endpoint_kind::control || setup.value != usb::endpoint_halt)
        return false;
    endpoint->set_halted(halted);
    return true;
}

bool usb_device_model::configure(std::uint16_t value) {
    const auto& all = descriptors_.configurations; // their values are not 0, which selects none
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const byte_vector& bytes) { return value_of(bytes) == value; });
    if (value != 0 && found == all.end())
        return false;
    clear_endpoints();
    configuration_ = value == 0 ? nullptr : &*found;
    alternate_ = 0;
    make_endpoints();
    return true;
}

} // namespace jorvet::sim
