/* A session over each link, in a process whose first library has functions with the names of Windows and its drivers.
 */
#include "jorvet/api/jorvet_api.h"
#include "jorvet/sim/sim.h"

static int talk(unsigned int kind) {
    CJorvet* board = JVGetInstance(kind);
    const int right =
        JVConnect(board, 0) == JV_OK && JVReadSnRq(board, 1, true) == JV_OK && JVDisconnect(board) == JV_OK;
    JVCloseInstance(board);
    return right;
}

int main(void) {
    jv_sim* bridge = jv_sim_attach_bridge("BRIDGE", NULL);
    jv_sim* controller = jv_sim_attach_controller("CONTROLLER", NULL, JV_SIM_HIGH_SPEED);
    COM_INFO list[2];
    unsigned char count = 0;
    JVGetComInfoList(list, &count);
    const int right = count == 2 && talk(JV_KIND_FTDI) && talk(JV_KIND_CYPRESS);
    jv_sim_detach(controller);
    jv_sim_detach(bridge);
    return right ? 0 : 1;
}
