/* Simulated boards for programs in any language: plug a device with a board in, script it, unplug it. Strict C. The
 * boards' own behaviour is described in board.h, that of a USB controller's endpoints in controller.h. Any thread may
 * call anything; no function throws. */
#ifndef JORVET_SIM_SIM_H
#define JORVET_SIM_SIM_H

#include <stddef.h>

#include "jorvet/sim/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct jv_sim jv_sim;

/* Plugs a serial bridge with a board in, last in the device list. Texts are copied; null gives a default. The caller
 * owns the result and gives it to jv_sim_detach. Null when memory or a thread could not be had. */
JV_SIM_API jv_sim* jv_sim_attach_bridge(const char* serial_number, const char* description);

typedef enum jv_sim_speed { JV_SIM_FULL_SPEED, JV_SIM_HIGH_SPEED, JV_SIM_SUPER_SPEED } jv_sim_speed;

/* Plugs a USB controller with a board in, likewise; it has a boot loader, too, which is described in boot_loader.h.
 * Controllers that are plugged in at the same time have different serial numbers. Null also when there is no such
 * speed. When its port is cycled, what follows is about the controller that has taken its place, which has no trace at
 * first. */
JV_SIM_API jv_sim* jv_sim_attach_controller(const char* serial_number, const char* friendly_name, jv_sim_speed speed);

/* Unplugs it (if it still is plugged in), ends its trace and frees it; null is ignored. */
JV_SIM_API void jv_sim_detach(jv_sim* sim);

/* Runs script lines, separated by newlines or semicolons, in order, up to the first one that is not understood. Numbers
 * are decimal, or hexadecimal after 0x; BYTES are hexadecimal digits; times are milliseconds. Lines:
 *
 *   reply [CHANGE …]        how the next answer goes; several such lines queue up
 *   replies [CHANGE …]      how every answer goes that has no line of its own; without changes: as usual again
 *       changes: silent | status N | data BYTES | crc | no-crc | wrong-crc | delay T | fragment N | gap T |
 *                before BYTES | after BYTES | unplug-after N
 *   event ID [BYTES]        sends an event, status 0xA000
 *   events T ID [BYTES]     sends one every T (0: stops)
 *   lose N                  lets N sequence numbers of events pass
 *   raw BYTES               sends bytes as they are
 *   memory ADDRESS BYTES    sets memory
 *   identifier ID BYTES     sets an identifier
 *   error N                 adds to the error list
 *   stall N                 takes only N more bytes of what the host writes; "stall off" ends that
 *   unplug [T]              pulls the plug, now or T from now
 *
 * For a USB controller only:
 *
 *   transfer ENDPOINT [CHANGE …]   how one transfer on that endpoint (0: control) goes, the oldest pending one or else
 *                           the next; several such lines queue up
 *       changes: stall | babble | fail [N] (after N bytes) | silent | short N (ends after N bytes) |
 *                data BYTES (instead of the device's own) | delay T
 *   refuse                  refuses to be opened; "refuse off" ends that
 *   firmware fail N [always]   its boot loader stalls the Nth firmware request from now, and all after it
 *   firmware corrupt-readback [N]   the next N answers with memory in them, or all, have a wrong byte
 *   firmware erase-never-ends   its SPI flash is never ready again once it erases
 *
 * Returns 0, or the number (from 1) of the line that was not understood, empty ones counted: jv_sim_error says why. -1
 * when a resource could not be had or an argument is null. */
JV_SIM_API int jv_sim_script(jv_sim* sim, const char* lines);

/* Why the last jv_sim_script of this thread failed; valid until its next one. "" after success. */
JV_SIM_API const char* jv_sim_error(void);

/* Has `trace` called with the bytes that cross the link, `to_host` 0 towards the board and 1 from it, on the thread
 * that moves them, one call at a time. Null ends it; once this returns, the trace before is not called any more. */
JV_SIM_API void jv_sim_set_trace(jv_sim* sim,
                                 void (*trace)(void* context, int to_host, const unsigned char* bytes, size_t count),
                                 void* context);

#ifdef __cplusplus
}
#endif

#endif
