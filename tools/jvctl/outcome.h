// What a command ends with, and how it is printed.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "text.h"

namespace jorvet::tool {

struct outcome {
    exit_status exit = exit_status::success;
    nlohmann::ordered_json json; // for stdout, in json mode
    std::string text;            // for stdout, in text mode
    std::string error;           // for stderr in both, one line; "" for none
};

// The outcome of `command` that ended with `status`, without text.
outcome concluded(const std::string& command, unsigned int status);
// The outcome of a command that did not come to a status (it is null in the JSON): `sentence` says why.
outcome failed(const std::string& command, exit_status exit, const std::string& sentence);

nlohmann::ordered_json status_json(unsigned int status);

// One line of JSON; bytes that are no UTF-8 become replacement characters.
std::string json_line(const nlohmann::ordered_json& value);

// Prints it and returns what the program ends with: another status when standard output cannot be written.
int print(const outcome& result, bool json);
// Writes to standard output; false, with a message on stderr, when that fails.
bool print_text(const std::string& text);

} // namespace jorvet::tool
