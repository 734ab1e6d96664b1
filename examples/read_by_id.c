/* Reads the identifier 0x0001 of a board. The same text stands in README.md. */
#include <stdio.h>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/sim/sim.h"

int main(void) {
    jv_sim* sim = jv_sim_attach_bridge("JV-0001", "simulated board"); /* leave this out with a real board */
    CJorvet* board = JVGetInstance(JV_KIND_FTDI);
    static unsigned char data[65535];
    unsigned short length = 0;
    unsigned int status = JVConnect(board, 0);
    if (status == JV_OK)
        status = JVReadByIdRq(board, 0x00, 0x01, 0x00, &length, data, true);
    printf("%s: %s\n", jv_status_name(status), jv_status_text(status));
    if (status == JV_OK)
        printf("identifier 0x0001 holds %u bytes: %.*s\n", length, length, (const char*)data);
    JVCloseInstance(board);
    jv_sim_detach(sim);
    return status == JV_OK ? 0 : 1;
}
