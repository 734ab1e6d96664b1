// The command line: options and subcommands, their help, and what is wrong with a wrong one.
#pragma once

#include <string>

#include "settings.h"

namespace jorvet::tool {

// Reads the arguments into `*chosen`. Returns the text that --help or --version asks for, else "". Throws usage_error,
// its text saying also how to call the tool; `chosen->json` and `chosen->command` are then what was seen of them.
std::string parse_command_line(int argc, char** argv, settings* chosen);

} // namespace jorvet::tool
