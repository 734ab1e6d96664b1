// The subcommands.
#pragma once

#include "bench.h"
#include "outcome.h"
#include "settings.h"

namespace jorvet::tool {

// Runs the chosen subcommand to its end. Throws usage_error for a script line that is not understood, and
// std::exception when resources cannot be allocated.
outcome run(const settings& chosen);

// One for each subcommand; the requests share run_request.
outcome run_list(const settings& chosen, bench& boards);
outcome run_info(const settings& chosen, bench& boards);
// The report goes through std::cout, which stays in hexadecimal.
outcome run_describe(const settings& chosen, bench& boards);
// Shows progress on stderr, and asks on the terminal before it overwrites what stays.
outcome run_flash(const settings& chosen, bench& boards);
outcome run_request(const settings& chosen, bench& boards);
// Prints the events as they come; ends early on SIGINT and SIGTERM.
outcome run_monitor(const settings& chosen, bench& boards);
// Brings its own simulated boards, and prints as it goes.
outcome run_demo(const settings& chosen);

} // namespace jorvet::tool
