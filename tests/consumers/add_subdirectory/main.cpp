// The exported class: a request, an event, and the counters. Each step that fails has its own exit status.
#include "jorvet/api/jorvet_api.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/sim/sim.h"

int main() {
    jv_sim* sim = jv_sim_attach_bridge("CONSUMER", nullptr);
    CJorvet board(JV_KIND_FTDI);
    if (board.connect(0) != JV_OK)
        return 1;
    if (board.rq_set_mode(5, 0, true) != JV_OK || board.rq_get_mode(0, false) != JV_OK || board.mode() != 5)
        return 2;
    if (jv_sim_script(sim, "lose 3; event 9 CAFE") != 0 || board.wait_for_event() != JV_OK)
        return 3;
    const auto event = board.get_last_event_frame();
    if (event->id != 9 || event->data != std::vector<unsigned char>{0xCA, 0xFE} || board.lost_events() != 2)
        return 4;
    jv_sim_detach(sim);
    return board.rq_read_sn(1, false) == JV_OK ? 5 : 0;
}
