// jvctl demo: a tour over each kind of link, and what to make of the findings.
#include <iostream>

#include "commands.h"
#include "tour.h"

namespace jorvet::tool {

namespace {

std::vector<tour::finding> take_tour(settings chosen, unsigned int link, std::ostream& out) {
    chosen.link = link;
    out << "==== A board behind the link: " << link_name(link) << '\n' << std::endl;
    tour taken(chosen, out);
    taken.run();
    out << std::endl;
    return taken.findings();
}

} // namespace

outcome run_demo(const settings& chosen) {
    std::ostream nowhere(nullptr);
    std::size_t checks = 0, mistakes = 0;
    nlohmann::ordered_json findings = nlohmann::ordered_json::array();
    for (const unsigned int link : simulated_links()) {
        if (chosen.link_given && link != chosen.link)
            continue;
        for (const tour::finding& found : take_tour(chosen, link, chosen.json ? nowhere : std::cout)) {
            ++checks;
            mistakes += found.right ? 0 : 1;
            findings.push_back({{"link", link_name(link)}, {"what", found.what}, {"ok", found.right}});
        }
    }
    outcome result = concluded(chosen.command, JV_OK);
    if (mistakes > 0)
        result = failed(chosen.command, exit_status::link_failed,
                        "demo: " + std::to_string(mistakes) + " of " + counted(checks, "check") + " went wrong");
    result.text = mistakes > 0 ? "" : counted(checks, "check") + ", all right\n";
    result.json["checks"] = findings;
    return result;
}

} // namespace jorvet::tool
