// jvctl: reads the command line, runs the subcommand, prints what it ended with.
#include <exception>
#include <iostream>

#include "command_line.h"
#include "commands.h"

int main(int argc, char** argv) {
    using namespace jorvet::tool;
    settings chosen;
    outcome result;
    try {
        const std::string information = parse_command_line(argc, argv, &chosen);
        if (!information.empty()) {
            return print_text(information) ? exit_status::success : exit_status::link_failed;
        }
        result = run(chosen);
    } catch (const usage_error& error) {
        result = failed(chosen.command, exit_status::wrong_usage, error.what());
    } catch (const std::exception& error) {
        result = failed(chosen.command, exit_status::link_failed, error.what());
    }
    return print(result, chosen.json);
}
