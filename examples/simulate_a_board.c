/* Tests a program against a simulated board that misbehaves on command, and shows the bytes on the link. */
#include <stdio.h>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/sim/sim.h"

static void show(void* context, int to_host, const unsigned char* bytes, size_t count) {
    FILE* out = context;
    fputs(to_host ? "<" : ">", out);
    for (size_t i = 0; i < count; ++i)
        fprintf(out, " %02X", bytes[i]);
    fputc('\n', out);
}

/* Runs a script line, then one request, and tells whether it ended as expected. */
static int expect(jv_sim* sim, CJorvet* board, const char* script, unsigned int expected) {
    if (jv_sim_script(sim, script) != 0) {
        printf("%s: %s\n", script, jv_sim_error());
        return 0;
    }
    const unsigned int status = JVReadSnRq(board, 1, false);
    printf("%-26s %s\n", script, jv_status_name(status));
    return status == expected;
}

int main(void) {
    jv_sim* sim = jv_sim_attach_bridge("JV-0001", "simulated board");
    CJorvet* board = JVGetInstance(JV_KIND_FTDI);
    jv_sim_set_trace(sim, show, stdout);
    const int right = JVConnect(board, 0) == JV_OK && expect(sim, board, "", JV_OK) &&
                      expect(sim, board, "reply fragment 2 gap 5", JV_OK) &&
                      expect(sim, board, "reply status 0x2001", JV_ERR_BOARD_2001) &&
                      expect(sim, board, "reply silent", JV_ERR_TIMEOUT_READ_SN) &&
                      expect(sim, board, "stall 3", JV_ERR_FTDI_SHORT_WRITE);
    JVCloseInstance(board);
    jv_sim_detach(sim);
    return right ? 0 : 1;
}
