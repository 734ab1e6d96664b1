// The simulated boards that the tool plugs in: they are there as long as the bench is.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jorvet/sim/sim.h"
#include "settings.h"

namespace jorvet::tool {

// Sees the bytes that cross the link of the chosen board, on the thread that moves them, one call at a time.
using crossing = std::function<void(bool to_host, const bytes& data)>;

// Prints them to stderr: "> 90 15 …" to the board, "< 80 A0 …" to the host.
void print_crossing(bool to_host, const bytes& data);

// The kinds of link that boards can be simulated behind.
const std::vector<unsigned int>& simulated_links();

// What tells the simulated board at `place` of a link's list apart: a bridge's serial number, a controller's friendly
// name.
std::string simulated_name(unsigned int link, unsigned int place);

class bench {
  public:
    // Plugs in as many boards behind each kind of link as `chosen` says. `seen` may be empty. Throws std::runtime_error
    // when one could not be made.
    bench(const settings& chosen, crossing seen);
    bench(const bench&) = delete;
    bench& operator=(const bench&) = delete;

    // Runs script lines for the chosen board; throws usage_error for one that is not understood.
    void run(const std::vector<std::string>& lines);

    // Unplugs the chosen board and plugs a new one in with the same names, last in its link's device list.
    void replace_board();

  private:
    struct detach {
        void operator()(jv_sim* sim) const { jv_sim_detach(sim); }
    };
    using board = std::unique_ptr<jv_sim, detach>;

    board plug_in(unsigned int link, unsigned int place);
    board& chosen_board() { return boards_[chosen_.link].at(chosen_.index); }
    static void trace(void* self, int to_host, const unsigned char* data, std::size_t count);

    const settings& chosen_;
    const crossing seen_;
    std::vector<board> boards_[2]; // by kind of link
};

} // namespace jorvet::tool
