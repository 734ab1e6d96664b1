/* One request with data both ways, through the C functions alone. Each step that fails has its own exit status. */
#include <string.h>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/sim/sim.h"

static int talk(CJorvet* board) {
    unsigned char sent[3] = {1, 2, 3};
    unsigned char received[65535] = {0};
    unsigned short length = 0;
    COM_INFO info;
    memset(&info, 0, sizeof info);
    if (JVConnect(board, 0) != JV_OK || !JVIsOpen(board))
        return 2;
    JVGetComInfo(board, &info);
    if (strcmp(info.serial_number, "CONSUMER") != 0 || info.com_type != JV_KIND_FTDI)
        return 3;
    if (JVExecByIdRq(board, 0, 1, 3, sent, &length, received, true) != JV_OK)
        return 4;
    if (length != 3 || memcmp(received, "\3\2\1", 3) != 0)
        return 5;
    return JVDisconnect(board) == JV_OK ? 0 : 6;
}

int main(void) {
    jv_sim* sim = jv_sim_attach_bridge("CONSUMER", NULL);
    CJorvet* board = JVGetInstance(JV_KIND_FTDI);
    const int result = sim != NULL && board != NULL ? talk(board) : 1;
    JVCloseInstance(board);
    jv_sim_detach(sim);
    return result;
}
