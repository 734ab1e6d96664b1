// Plugging in, scripting and tracing simulated boards, over the C face of the simulation.
#include "bench.h"

#include <cstdio>
#include <iostream>

namespace jorvet::tool {

void print_crossing(bool to_host, const bytes& data) {
    std::cerr << (to_host ? "< " : "> ") + hex(data) + '\n';
}

bench::bench(const settings& chosen, crossing seen) : chosen_(chosen.index), seen_(std::move(seen)) {
    while (boards_.size() < chosen.simulated)
        boards_.push_back(plug_in(boards_.size()));
}

bench::board bench::plug_in(std::size_t place) {
    char serial_number[16];
    std::snprintf(serial_number, sizeof serial_number, "JV-%04u", static_cast<unsigned int>(place) + 1);
    board made(jv_sim_attach_bridge(serial_number, nullptr));
    if (!made)
        throw std::runtime_error("a simulated board could not be made: free some memory and try again");
    if (place == chosen_ && seen_)
        jv_sim_set_trace(made.get(), &bench::trace, this);
    return made;
}

void bench::trace(void* self, int to_host, const unsigned char* data, std::size_t count) {
    static_cast<bench*>(self)->seen_(to_host != 0, bytes(data, data + count));
}

void bench::run(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const int result = jv_sim_script(boards_.at(chosen_).get(), line.c_str());
        if (result > 0)
            throw usage_error("--script '" + line + "' is not understood: " + jv_sim_error() + " (see jvctl --help)");
        if (result < 0)
            throw std::runtime_error("a script line could not be run: free some memory and try again");
    }
}

void bench::replace_board() {
    boards_.at(chosen_).reset();
    boards_[chosen_] = plug_in(chosen_);
}

} // namespace jorvet::tool
