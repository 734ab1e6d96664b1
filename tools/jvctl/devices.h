// The attached devices, as rows of a table and as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "jorvet/api/jorvet_api.h"

namespace jorvet::tool {

// What is attached now, in the library's order.
std::vector<COM_INFO> attached_devices();

// What the record of the device at that place of its link's own list says; nothing when there is none.
std::optional<COM_INFO> listed_device(unsigned int link, unsigned int index);

// What tells a device from others of its link: a bridge's serial number, a Cypress device's description.
std::string name_of(const COM_INFO& device);

// Cells in aligned columns, two spaces apart, each line after `indent`.
std::string aligned(const std::vector<std::vector<std::string>>& rows, const std::string& indent = "");

std::string device_table(const std::vector<COM_INFO>& devices, const std::string& indent = "");

nlohmann::ordered_json device_json(const COM_INFO& device);

} // namespace jorvet::tool
