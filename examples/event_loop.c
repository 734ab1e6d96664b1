/* Events in a loop of the program's own: poll waits for the board beside whatever else the program waits for, and the
 * program sees when the stream is lost and goes on by itself. */
#include <poll.h>
#include <stdio.h>
#include <string.h>

#include "jorvet/api/jv_session.h"
#include "jorvet/sim/sim.h"

/* Prints the events that are queued; how many, or -1 when the link is lost. */
static int take_events(CJorvet* board) {
    unsigned char data[64];
    jv_event event;
    unsigned int status = JV_OK;
    int count = 0;
    memset(&event, 0, sizeof event);
    event.size = sizeof event;
    event.data = data;
    event.capacity = sizeof data;
    while ((status = jv_next_event(board, &event, 0)) == JV_OK) {
        printf("event %d, %u bytes, %lu lost before it\n", event.id, (unsigned int)event.length,
               (unsigned long)event.lost);
        ++count;
    }
    return status == JV_ERR_EVENT_TIMEOUT ? count : -1;
}

static void show_state(CJorvet* board) {
    static const char* const names[] = {"closed", "receiving", "stream lost", "device lost", "out of memory", "deaf"};
    jv_state_record state;
    state.size = sizeof state;
    if (jv_state(board, &state) == JV_OK) /* from now on the change counts as seen */
        printf("%s%s%s\n", names[state.state], state.cause[0] != '\0' ? ": " : "", state.cause);
}

int main(void) {
    jv_sim* sim = jv_sim_attach_bridge(NULL, NULL);
    CJorvet* board = JVGetInstance(JV_KIND_FTDI);
    struct pollfd waits[1];
    int events = 0, failed = 0;
    waits[0].fd = -1;
    waits[0].events = POLLIN;
    failed = JVConnect(board, 0) != JV_OK || jv_set_recovery(board, 4096) != JV_OK ||
             jv_event_fd(board, &waits[0].fd) != JV_OK;
    jv_sim_script(sim, "event 7 0102");
    while (!failed && events < 3) {
        int taken = 0;
        failed = poll(waits, 1, 5000) != 1;
        show_state(board);
        taken = take_events(board);
        failed = failed || taken < 0;
        events += taken;
        if (taken == 1 && events == 1) /* the first after the garbage waits for the frame behind it */
            jv_sim_script(sim, "raw 1122; lose 3; event 8; event 9");
    }
    JVCloseInstance(board);
    jv_sim_detach(sim);
    return failed;
}
