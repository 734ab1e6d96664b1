// The C face: a device behind an opaque pointer, scripts run on it line by line on the caller's thread.
#include "jorvet/sim/sim.h"

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "jorvet/sim/bridge.h"
#include "jorvet/sim/script.h"
#include "jorvet/sim/usb/boot_loader.h"
#include "jorvet/sim/usb/controller.h"

using namespace jorvet::sim;

struct jv_sim {
    std::shared_ptr<simulated_device> first; // the device plugged in at first; cycling its port replaces it by others
};

namespace {

thread_local std::string error_text;
thread_local const char* error = "";

// Runs lines up to the first one that is not understood, and returns its number, 0 for none.
int run_lines(simulated_device& plug, std::string_view lines) {
    for (int number = 1;; ++number) {
        const std::size_t end = std::min(lines.find_first_of("\n;"), lines.size());
        try {
            parse_script_line(lines.substr(0, end))(plug);
        } catch (const script_error& wrong) {
            error_text = wrong.what();
            error = error_text.c_str();
            return number;
        }
        if (end == lines.size())
            return 0;
        lines.remove_prefix(end + 1);
    }
}

std::shared_ptr<simulated_device> plug_of(const jv_sim& sim) {
    std::shared_ptr<simulated_device> plug = sim.first;
    while (std::shared_ptr<simulated_device> next = plug->successor())
        plug = std::move(next);
    return plug;
}

// Makes a C handle of the device that `plug_in` returns; null when it throws.
template <class PlugIn>
jv_sim* make_sim(PlugIn plug_in) try {
    auto sim = std::make_unique<jv_sim>();
    sim->first = plug_in();
    return sim.release();
} catch (...) {
    return nullptr;
}

// The caller's text, or the default.
std::string text_or(const char* text, const std::string& otherwise) {
    return text == nullptr ? otherwise : text;
}

} // namespace

jv_sim* jv_sim_attach_bridge(const char* serial_number, const char* description) {
    return make_sim([=] {
        bridge_options options;
        options.serial_number = text_or(serial_number, options.serial_number);
        options.description = text_or(description, options.description);
        return simulated_bridge::plug_in(options);
    });
}

jv_sim* jv_sim_attach_controller(const char* serial_number, const char* friendly_name, jv_sim_speed speed) {
    constexpr jorvet::ports::usb_speed speeds[] = {jorvet::ports::usb_speed::full, jorvet::ports::usb_speed::high,
                                                   jorvet::ports::usb_speed::super};
    if (speed < JV_SIM_FULL_SPEED || speed > JV_SIM_SUPER_SPEED)
        return nullptr;
    return make_sim([=] {
        controller_options options;
        options.serial_number = text_or(serial_number, options.serial_number);
        options.friendly_name = text_or(friendly_name, options.friendly_name);
        options.speed = speeds[speed];
        options.boot_loader = std::make_shared<fx3_boot_loader>();
        return simulated_controller::plug_in(options);
    });
}

void jv_sim_detach(jv_sim* sim) {
    if (sim == nullptr)
        return;
    for (std::shared_ptr<simulated_device> plug = sim->first; plug != nullptr; plug = plug->successor()) {
        plug->unplug();
        plug->set_trace(nullptr);
    }
    delete sim;
}

int jv_sim_script(jv_sim* sim, const char* lines) try {
    error = "";
    if (sim == nullptr || lines == nullptr) {
        error = "there is no device or no script";
        return -1;
    }
    return run_lines(*plug_of(*sim), lines);
} catch (...) {
    error = "out of memory or threads";
    return -1;
}

const char* jv_sim_script_help(void) try { return script_help().c_str(); } catch (...) {
    return "";
}

const char* jv_sim_error(void) {
    return error;
}

void jv_sim_set_trace(jv_sim* sim, void (*trace)(void* context, int to_host, const unsigned char* bytes, size_t count),
                      void* context) {
    if (sim == nullptr)
        return;
    if (trace == nullptr)
        return plug_of(*sim)->set_trace(nullptr);
    plug_of(*sim)->set_trace([=](link_direction direction, const std::uint8_t* bytes, std::size_t count) {
        trace(context, direction == link_direction::to_host ? 1 : 0, bytes, count);
    });
}
