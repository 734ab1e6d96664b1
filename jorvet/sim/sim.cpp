// The C face: a bridge behind an opaque pointer, scripts run on it line by line on the caller's thread.
#include "jorvet/sim/sim.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "jorvet/sim/bridge.h"
#include "jorvet/sim/script.h"

using namespace jorvet::sim;

struct jv_sim {
    std::shared_ptr<Bridge> bridge;
};

namespace {

thread_local std::string error_text;
thread_local const char* error = "";

// Runs lines up to the first one that is not understood, and gives its number, 0 for none.
int run_lines(Bridge& bridge, std::string_view lines) {
    for (int number = 1;; ++number) {
        const std::size_t end = std::min(lines.find_first_of("\n;"), lines.size());
        try {
            parse_script_line(lines.substr(0, end))(bridge);
        } catch (const ScriptError& wrong) {
            error_text = wrong.what();
            error = error_text.c_str();
            return number;
        }
        if (end == lines.size())
            return 0;
        lines.remove_prefix(end + 1);
    }
}

} // namespace

jv_sim* jv_sim_attach_bridge(const char* serial_number, const char* description) try {
    BridgeOptions options;
    if (serial_number != nullptr)
        options.serial_number = serial_number;
    if (description != nullptr)
        options.description = description;
    auto sim = std::make_unique<jv_sim>();
    sim->bridge = Bridge::plug_in(options);
    return sim.release();
} catch (...) {
    return nullptr;
}

void jv_sim_detach(jv_sim* sim) {
    if (sim == nullptr)
        return;
    sim->bridge->unplug();
    sim->bridge->set_trace(nullptr);
    delete sim;
}

int jv_sim_script(jv_sim* sim, const char* lines) try {
    error = "";
    if (sim == nullptr || lines == nullptr) {
        error = "there is no bridge or no script";
        return -1;
    }
    return run_lines(*sim->bridge, lines);
} catch (...) {
    error = "memory or a thread could not be had";
    return -1;
}

const char* jv_sim_error(void) {
    return error;
}

void jv_sim_set_trace(jv_sim* sim, void (*trace)(void* context, int to_host, const unsigned char* bytes, size_t count),
                      void* context) {
    if (sim == nullptr)
        return;
    if (trace == nullptr)
        return sim->bridge->set_trace(nullptr);
    sim->bridge->set_trace([=](Direction direction, const std::uint8_t* bytes, std::size_t count) {
        trace(context, direction == Direction::to_host ? 1 : 0, bytes, count);
    });
}
