// jvctl demo: the tour, and what to make of its findings.
#include <iostream>

#include "commands.h"
#include "tour.h"

namespace jorvet::tool {

outcome run_demo(const settings& chosen) {
    std::ostream nowhere(nullptr);
    tour taken(chosen, chosen.json ? nowhere : std::cout);
    taken.run();

    const std::size_t checks = taken.findings().size();
    const unsigned int mistakes = taken.mistakes();
    outcome result;
    if (mistakes > 0)
        result = failed(chosen.command, exit_status::link_failed,
                        "demo: " + std::to_string(mistakes) + " of " + counted(checks, "check") + " went wrong");
    else
        result = concluded(chosen.command, JV_OK);
    result.text = mistakes > 0 ? "" : "\n" + counted(checks, "check") + ", all right\n";
    result.json["link"] = link_name(chosen.link);
    result.json["checks"] = nlohmann::ordered_json::array();
    for (const tour::finding& found : taken.findings())
        result.json["checks"].push_back({{"what", found.what}, {"ok", found.right}});
    return result;
}

} // namespace jorvet::tool
