/* Lists what is attached. Simulated devices are plugged in first, so that there is something to see. */
#include <stdio.h>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/sim/sim.h"

int main(void) {
    jv_sim* first = jv_sim_attach_bridge("JV-0001", "left board");
    jv_sim* second = jv_sim_attach_bridge("JV-0002", "right board");
    jv_sim* third = jv_sim_attach_controller("JV-1001", "board behind a USB controller", JV_SIM_SUPER_SPEED);

    /* Room for every device of either kind, and zeroed: the texts of a record are not terminated. */
    static COM_INFO list[2 * JV_MAX_DEVICES];
    unsigned char count = 0;
    JVGetComInfoList(list, &count);
    for (unsigned int i = 0; i < count; ++i)
        printf("%s %u  %.128s  %.128s%s\n", list[i].com_type == JV_KIND_FTDI ? "ftdi" : "cypress",
               (unsigned int)list[i].index, list[i].serial_number, list[i].description,
               list[i].in_use ? "  (in use)" : "");

    jv_sim_detach(third);
    jv_sim_detach(second);
    jv_sim_detach(first);
    return count >= 3 ? 0 : 1;
}
