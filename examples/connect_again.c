/* Loses the device and comes back: how a lost link shows, and that the same instance connects again. */
#include <stdio.h>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/sim/sim.h"

static unsigned int ask(CJorvet* board, const char* when) {
    const unsigned int status = JVReadSnRq(board, 1, false);
    printf("%s: %s\n", when, jv_status_name(status));
    return status;
}

int main(void) {
    jv_sim* sim = jv_sim_attach_bridge(NULL, NULL);
    CJorvet* board = JVGetInstance(JV_KIND_FTDI);
    unsigned int status = JVConnect(board, 0);
    if (status == JV_OK)
        status = ask(board, "connected");

    jv_sim_detach(sim); /* the plug is pulled: from now on every request fails, and JVIsOpen turns false */
    const unsigned int lost = ask(board, "unplugged");

    sim = jv_sim_attach_bridge(NULL, NULL);
    if (status == JV_OK)
        status = JVConnect(board, 0); /* disconnects first by itself */
    if (status == JV_OK)
        status = ask(board, "plugged in again");
    JVCloseInstance(board);
    jv_sim_detach(sim);
    return status == JV_OK && lost != JV_OK ? 0 : 1;
}
