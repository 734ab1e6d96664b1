// Plugging in, scripting and tracing simulated boards, over the C face of the simulation.
#include "bench.h"

#include <cstdio>
#include <iostream>

namespace jorvet::tool {

void print_crossing(bool to_host, const bytes& data) {
    std::cerr << (to_host ? "< " : "> ") + hex(data) + '\n';
}

const std::vector<unsigned int>& simulated_links() {
    static const std::vector<unsigned int> links =
        JVCTL_SIMULATES_CONTROLLERS ? std::vector{JV_KIND_FTDI, JV_KIND_CYPRESS} : std::vector{JV_KIND_FTDI};
    return links;
}

std::string simulated_name(unsigned int link, unsigned int place) {
    char number[16];
    std::snprintf(number, sizeof number, "JV-%04u", place + 1);
    return link == JV_KIND_FTDI ? number : std::string("Jorvet simulated USB board ") + number;
}

bench::bench(const settings& chosen, crossing seen) : chosen_(chosen), seen_(std::move(seen)) {
    for (const unsigned int link : simulated_links())
        for (unsigned int place = 0; place < chosen.simulated; ++place)
            boards_[link].push_back(plug_in(link, place));
}

bench::board bench::plug_in(unsigned int link, unsigned int place) {
    const std::string name = simulated_name(link, place);
    const std::string serial_number = simulated_name(JV_KIND_FTDI, place);
    board made(link == JV_KIND_FTDI ? jv_sim_attach_bridge(serial_number.c_str(), nullptr)
                                    : jv_sim_attach_controller(serial_number.c_str(), name.c_str(), chosen_.speed));
    if (!made)
        throw std::runtime_error("a simulated board could not be made: free some memory and try again");
    if (link == chosen_.link && place == chosen_.index && seen_)
        jv_sim_set_trace(made.get(), &bench::trace, this);
    return made;
}

void bench::trace(void* self, int to_host, const unsigned char* data, std::size_t count) {
    static_cast<bench*>(self)->seen_(to_host != 0, bytes(data, data + count));
}

void bench::run(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const int result = jv_sim_script(chosen_board().get(), line.c_str());
        if (result > 0)
            throw usage_error("--script '" + line + "' is not understood: " + jv_sim_error() + " (see jvctl --help)");
        if (result < 0)
            throw std::runtime_error("a script line could not be run: free some memory and try again");
    }
}

void bench::replace_board() {
    chosen_board().reset();
    chosen_board() = plug_in(chosen_.link, chosen_.index);
}

} // namespace jorvet::tool
