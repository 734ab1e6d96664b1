/* Simulated boards for programs in any language: plug in a device with a board, script it, unplug it. Strict C. The
 * boards' own behaviour is described in board.h, that of a USB controller's endpoints in controller.h. Any thread may
 * call anything; no function throws. */
#ifndef JORVET_SIM_SIM_H
#define JORVET_SIM_SIM_H

#include <stddef.h>

#include "jorvet/base/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct jv_sim jv_sim;

/* Plugs in a serial bridge with a board, last in the device list. Texts are copied; null gives a default. The caller
 * owns the result and passes it to jv_sim_detach. Null when memory or a thread cannot be allocated. */
JV_SIM_API jv_sim* jv_sim_attach_bridge(const char* serial_number, const char* description);

typedef enum jv_sim_speed { JV_SIM_FULL_SPEED, JV_SIM_HIGH_SPEED, JV_SIM_SUPER_SPEED } jv_sim_speed;

/* Plugs in a USB controller with a board, likewise; it has a boot loader, too, which is described in boot_loader.h.
 * Controllers that are plugged in at the same time have different serial numbers. Null also when there is no such
 * speed. When its port is cycled, the functions below act on the controller that replaces it, which has no trace at
 * first. */
JV_SIM_API jv_sim* jv_sim_attach_controller(const char* serial_number, const char* friendly_name, jv_sim_speed speed);

/* Unplugs the device (if it still is plugged in), ends its trace and frees it; null is ignored. */
JV_SIM_API void jv_sim_detach(jv_sim* sim);

/* Runs script lines, separated by newlines or semicolons, in order, up to the first one that is not understood or is
 * not for this kind of device. These are the lines; jv_sim_script_help returns the same list:
 *
 * Numbers are decimal, or hexadecimal after 0x. BYTES are pairs of hexadecimal digits, with or without blanks.
 * Times T are in milliseconds.
 *   reply [CHANGE ...]              how the next answer goes; several such lines queue up
 *   replies [CHANGE ...]            how every answer without such a line goes; no change: as usual again
 *       CHANGE: silent | status N | data BYTES | crc | no-crc | wrong-crc | shifted-crc | delay T | fragment N |
 *               gap T | before BYTES | after BYTES | unplug-after N
 *   event ID [BYTES]                sends an event with status 0xA000
 *   events T ID [BYTES]             sends one every T; 'events 0' ends that
 *   lose N                          skips N sequence numbers of events, as if they had been lost
 *   raw BYTES                       sends bytes as they are
 *   memory ADDRESS BYTES            sets memory
 *   identifier ID BYTES             sets what an identifier holds
 *   error N                         adds a status word to the error list
 *   stall N                         accepts only N more bytes from the host; 'stall off' ends that
 *   unplug [T]                      pulls the plug, now or after T
 * Behind a USB controller only:
 *   transfer ENDPOINT [CHANGE ...]  how one transfer on that endpoint address goes (0: a control request)
 *       CHANGE: stall | babble | fail [N] | silent | short N | data BYTES | delay T
 *   refuse [off]                    refuses to be opened
 *   zero-length [off]               off: sends no zero-length packet after bytes that fill a packet
 *   firmware CHANGE                 how the boot loader treats firmware requests
 *       CHANGE: fail N [always] | corrupt-readback [N] | erase-never-ends
 *
 * Returns 0, or the number (from 1) of the line that was not run, empty ones counted; jv_sim_error says why. Returns -1
 * when memory or a thread cannot be allocated or an argument is null. */
JV_SIM_API int jv_sim_script(jv_sim* sim, const char* lines);

/* The list of script lines above, each ended by a newline. Valid until the process ends; "" when memory cannot be
 * allocated. */
JV_SIM_API const char* jv_sim_script_help(void);

/* Why the last jv_sim_script of this thread failed; valid until its next one. "" after success. */
JV_SIM_API const char* jv_sim_error(void);

/* From now on `trace` is called with the bytes that cross the link, `to_host` 0 towards the board and 1 from it, on the
 * thread that moves them, one call at a time. Null ends it; once this returns, the trace before is not called any more.
 */
JV_SIM_API void jv_sim_set_trace(jv_sim* sim,
                                 void (*trace)(void* context, int to_host, const unsigned char* bytes, size_t count),
                                 void* context);

#ifdef __cplusplus
}
#endif

#endif
