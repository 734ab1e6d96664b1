// The attached devices, as rows of a table and as JSON.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "jorvet/api/jorvet_api.h"

namespace jorvet::tool {

// What is attached now, in the library's order.
std::vector<COM_INFO> attached_devices();

std::string serial_number(const COM_INFO& device);

// Cells in aligned columns, two spaces apart, each line after `indent`.
std::string aligned(const std::vector<std::vector<std::string>>& rows, const std::string& indent = "");

std::string device_table(const std::vector<COM_INFO>& devices, const std::string& indent = "");

nlohmann::ordered_json device_json(const COM_INFO& device);

} // namespace jorvet::tool
