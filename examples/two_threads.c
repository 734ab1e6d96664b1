/* Requests on one thread and events on another, until the board is unplugged; then the same with the board that comes
 * back; and a clean end while both threads wait. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "jorvet/api/jv_session.h"
#include "jorvet/sim/sim.h"

enum { wanted = 20 }; /* of each, from each connection */

static CJorvet* board;
/* Prints why a thread stops, and returns whether that was to be expected: a request may have met the unplugging first,
 * and then tells what its driver said. */
static int ended_well(const char* who, unsigned int status) {
    printf("%s: %s\n", who, jv_status_name(status));
    return status == JV_ERR_CANCELLED || status == JV_ERR_DEVICE_LOST || status == JV_ERR_FTDI_IO_ERROR;
}

static void* take_events(void* well) {
    unsigned char data[64];
    jv_event event;
    unsigned int status = JV_OK;
    memset(&event, 0, sizeof event);
    event.size = sizeof event;
    event.data = data;
    event.capacity = sizeof data;
    while ((status = jv_next_event(board, &event, JV_NO_LIMIT)) == JV_OK)
        ; /* here the program would look at the event */
    *(int*)well = ended_well("events", status);
    return NULL;
}

static void* ask(void* well) {
    unsigned char data[64];
    jv_request_record request;
    jv_answer answer;
    unsigned int status = JV_OK;
    memset(&request, 0, sizeof request);
    memset(&answer, 0, sizeof answer);
    request.size = sizeof request;
    request.kind = JV_READ_SN;
    request.with_crc = 1;
    request.timeout_ms = 1000;
    answer.size = sizeof answer;
    answer.data = data;
    answer.capacity = sizeof data;
    while ((status = jv_request(board, &request, &answer)) == JV_OK && answer.crc_verdict == JV_CRC_RIGHT)
        ; /* and here at the answer */
    *(int*)well = ended_well("requests", status);
    return NULL;
}

/* Waits until both threads have got something. */
static int wait_for_both(void) {
    const struct timespec moment = {0, 1000000};
    jv_counters counters;
    uint64_t events = 0, replies = 0;
    counters.size = sizeof counters;
    if (jv_count(board, &counters) != JV_OK)
        return 0;
    events = counters.events + wanted;
    replies = counters.replies + wanted;
    while (jv_count(board, &counters) == JV_OK && (counters.events < events || counters.replies < replies))
        nanosleep(&moment, NULL);
    return 1;
}

/* Runs both threads until the script line `end` ends them or, without one, a cancel. */
static int run(jv_sim* sim, const char* end) {
    pthread_t threads[2];
    int events_well = 0, requests_well = 0, both = 0;
    jv_sim_script(sim, "events 1 7 0102");
    if (pthread_create(&threads[0], NULL, take_events, &events_well) != 0 ||
        pthread_create(&threads[1], NULL, ask, &requests_well) != 0)
        return 0;
    both = wait_for_both();
    if (end != NULL)
        jv_sim_script(sim, end);
    else
        jv_cancel(board); /* returns when both have left */
    pthread_join(threads[0], NULL);
    pthread_join(threads[1], NULL);
    return both && events_well && requests_well;
}

static unsigned int state(void) {
    jv_state_record record;
    record.size = sizeof record;
    return jv_state(board, &record) == JV_OK ? record.state : JV_LINK_CLOSED;
}

int main(void) {
    jv_sim* sim = jv_sim_attach_bridge("JV-0007", NULL);
    jv_device_choice choice;
    int well = 0;
    memset(&choice, 0, sizeof choice);
    choice.size = sizeof choice;
    choice.serial_number = "JV-0007";
    board = JVGetInstance(JV_KIND_FTDI);
    well = jv_connect_to(board, &choice, 0) == JV_OK && run(sim, "unplug") && state() == JV_LINK_DEVICE_LOST;
    jv_sim_detach(sim);

    sim = jv_sim_attach_bridge("JV-0007", NULL); /* plugged in again, at whatever place */
    well = well && jv_reconnect(board, 5000) == JV_OK && state() == JV_LINK_RECEIVING && run(sim, NULL);
    JVCloseInstance(board);
    jv_sim_detach(sim);
    return well ? 0 : 1;
}
