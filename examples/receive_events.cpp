// Takes the events that a board sends by itself, oldest first, and counts the lost ones. The C functions offer no
// events: a program that wants them uses the class behind the instance.
#include <cstdio>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/sim/sim.h"

int main() {
    jv_sim* sim = jv_sim_attach_bridge(nullptr, nullptr);
    unsigned int status = JV_OK;
    {
        CJorvet board(JV_KIND_FTDI);
        status = board.connect(0);
        jv_sim_script(sim, "event 1 0A; event 1 0B; lose 2; event 1 0C");

        board.set_timeout_for_event(1000);
        while (status == JV_OK && board.event_count() < 3)
            status = board.wait_for_event();
        for (const auto& event : board.read_event_frames())
            std::printf("event 0x%02X  sequence %u  %u bytes\n", event->id, event->seq, event->length);
        std::printf("%u lost; %s\n", board.lost_events(), jv_status_name(status));
    }
    jv_sim_detach(sim);
    return status == JV_OK ? 0 : 1;
}
