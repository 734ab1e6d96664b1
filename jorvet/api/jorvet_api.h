/* libjorvet: talking to a board over USB. This header is the manual of the C interface; it is strict C99, and C++.
 *
 * In order: JVGetComInfoList (optional) shows what is attached; JVGetInstance makes an instance for one kind of link;
 * JVConnect opens the board at a place of that link's own list; then any number of requests; JVDisconnect; and
 * JVCloseInstance. An instance may be connected again and again.
 *
 * Results are the status codes of jorvet/base/status.h, 0 (JV_OK) for success; jv_status_name and jv_status_text give
 * each a name and a line of text. No function throws. Besides the codes listed with each function, any function that
 * returns a status answers JV_ERR_NO_COM to a null instance or one without a link, and JV_ERR_NO_RESOURCES when memory,
 * a thread or a kernel object cannot be had.
 *
 * Threads: requests may be issued on one instance from several threads at once; they run one at a time. JVConnect,
 * JVDisconnect and JVCloseInstance must not overlap any other call on the same instance. Calls on different instances
 * are independent.
 *
 * Buffers belong to the caller, who keeps them valid during the call. */
#ifndef JORVET_API_JORVET_API_H
#define JORVET_API_JORVET_API_H

#include <stdbool.h>
#include <stdint.h>

#include "jorvet/base/export.h"
#include "jorvet/base/kinds.h"
#include "jorvet/base/status.h"

/* One attached device: 268 bytes, little-endian, without padding. The two texts are not terminated when they fill their
 * field, and a shorter one leaves the bytes after it as they were: pass zeroed memory to read them as C strings. */
typedef struct COM_INFO {
    char serial_number[128]; /* of an FTDI bridge; empty for a Cypress device */
    char description[128];   /* of an FTDI bridge, or the friendly name of a Cypress device */
    uint32_t index;          /* place in its link's own list, from 0: what JVConnect takes */
    uint8_t in_use;          /* 1: some program has it open */
    uint8_t com_type;        /* JV_KIND_FTDI, JV_KIND_CYPRESS or JV_KIND_NONE */
    uint16_t vendor_id;      /* USB vendor ID of a Cypress device; 0 for a bridge */
    uint16_t product_id;     /* USB product ID of a Cypress device; 0 for a bridge */
    uint8_t reserved[2];     /* never written */
} COM_INFO;

/* The instance: to a C program an opaque pointer, to a C++ program the object of jorvet/core/jorvet.h. */
#ifdef __cplusplus
class CJorvet;
extern "C" {
#else
typedef struct CJorvet CJorvet;
#endif

/* Makes an instance for one kind of link (JV_KIND_FTDI, JV_KIND_CYPRESS). Any other kind gives an instance without a
 * link, which JVConnect refuses. The caller owns it and gives it to JVCloseInstance. Null when resources cannot be had.
 */
JV_API CJorvet* JV_CALL JVGetInstance(unsigned int kind);

/* Disconnects the instance if need be and frees it. Null is ignored. Blocks as JVDisconnect does. */
JV_API void JV_CALL JVCloseInstance(CJorvet* instance);

/* Opens the device at place `index` of the link's own list (COM_INFO.index) and starts receiving. A connected instance
 * is disconnected first. Blocks for some 10 ms; up to 0.1 s when it disconnects first. FTDI:
 * JV_ERR_FTDI_DEVICE_NOT_FOUND at a place that does not exist, JV_ERR_FTDI_DEVICE_NOT_OPENED for a bridge in use, else
 * the code of the setting that failed (JV_ERR_FTDI_…); the bridge may then be open: JVDisconnect closes it. Cypress:
 * JV_ERR_CYP_OPEN when there is no such device or it does not open, JV_ERR_CYP_NO_ENDPOINT when it lacks the bulk
 * endpoints of a board; nothing is open then. JV_ERR_NO_COM for an instance of another kind; JV_ERR_NO_RESOURCES. */
JV_API unsigned int JV_CALL JVConnect(CJorvet* instance, unsigned char index);

/* Closes the device, stops receiving and drops the frames that nobody took. JV_OK also when it was not connected or the
 * link is lost; JV_ERR_COM_NOT_OPEN when the link is lost just now; the code of the driver (JV_ERR_FTDI_…) when the
 * device does not close, receiving having stopped all the same. Blocks for at most 0.1 s, plus what the driver takes.
 */
JV_API unsigned int JV_CALL JVDisconnect(CJorvet* instance);

/* Whether the device is open: false before JVConnect, after JVDisconnect, and within 150 ms after an FTDI bridge was
 * unplugged. The loss of a Cypress device leaves it true; requests then end with JV_ERR_CYP_WRITE. Never blocks. */
JV_API bool JV_CALL JVIsOpen(CJorvet* instance);

/* The driver's handle of the open device, for calls of the driver that this library does not make; null while closed.
 * It stays the library's: do not close it. Never blocks. */
JV_API void* JV_CALL JVGetComHandle(CJorvet* instance);

/* Describes the device that the instance opened last, by its record at that moment; a record of no device (com_type
 * JV_KIND_NONE) before. An open Cypress device has such a record, too, with in_use 1. `info` must not be null; it is
 * not touched when the instance is null or has no link. */
JV_API void JV_CALL JVGetComInfo(CJorvet* instance, COM_INFO* info);

/* Lists what is attached: all FTDI bridges, then all Cypress devices, one record each from `list` on, and their number
 * (modulo 256) into `*count`. There is no capacity argument: `list` must have room for every attached device. A driver
 * that does not answer lists nothing. Without memory, too, nothing is listed and `*count` is 0. Needs no instance.
 * Blocks as long as the drivers take. */
JV_API void JV_CALL JVGetComInfoList(COM_INFO* list, unsigned char* count);

/* The eleven requests. Each sends one frame, with a CRC if `with_crc` is true, and waits for the board's reply, one
 * second unless CJorvet::set_timeout_for_reply says otherwise. What the parameter bytes p1, p2, p3 mean is the board's
 * affair.
 *
 * Each returns JV_OK; or JV_ERR_BOARD_… as the board's status word says (a word unknown to the library counts as
 * success); or its own JV_ERR_TIMEOUT_… without a reply in time; or, when the frame could not be sent,
 * JV_ERR_COM_NOT_OPEN, JV_ERR_FTDI_SHORT_WRITE, another JV_ERR_FTDI_…, JV_ERR_CYP_NO_ENDPOINT or JV_ERR_CYP_WRITE. It
 * blocks while another request of the instance runs, while the frame is written (FTDI: at most 100 ms, Cypress: 5 s)
 * and for the reply time-out.
 *
 * `data` holds `length` bytes to send, and may be null when `length` is 0. `out_data` receives the data of the reply,
 * as many bytes as `*out_length` then says: there is no capacity argument, a reply carries up to 65,535 bytes. Both are
 * written only when a reply came, whatever its status, and must not be null. */
JV_API unsigned int JV_CALL JVReadMemoryRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned char p3,
                                           bool with_crc);
JV_API unsigned int JV_CALL JVReadByIdRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned char p3,
                                         unsigned short* out_length, unsigned char* out_data, bool with_crc);
JV_API unsigned int JV_CALL JVReadSnRq(CJorvet* instance, unsigned char p1, bool with_crc);
JV_API unsigned int JV_CALL JVReadLastSwRq(CJorvet* instance, unsigned char p1, bool with_crc);
JV_API unsigned int JV_CALL JVReadErrorRq(CJorvet* instance, unsigned char p1, bool with_crc);
JV_API unsigned int JV_CALL JVWriteMemoryRq(CJorvet* instance, unsigned char p1, unsigned char p2,
                                            unsigned short length, unsigned char* data, bool with_crc);
JV_API unsigned int JV_CALL JVWriteByIdRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned short length,
                                          unsigned char* data, bool with_crc);
JV_API unsigned int JV_CALL JVExecByIdRq(CJorvet* instance, unsigned char p1, unsigned char p2, unsigned short length,
                                         unsigned char* data, unsigned short* out_length, unsigned char* out_data,
                                         bool with_crc);
JV_API unsigned int JV_CALL JVResetRq(CJorvet* instance, unsigned char p1, unsigned char p2, bool with_crc);
JV_API unsigned int JV_CALL JVSetModeRq(CJorvet* instance, unsigned char p1, unsigned char p2, bool with_crc);
/* A good reply with exactly one byte also teaches the library the board's mode; in mode 3 it ignores all that the board
 * sends until the instance is closed. */
JV_API unsigned int JV_CALL JVGetModeRq(CJorvet* instance, unsigned char p1, bool with_crc);

#ifdef __cplusplus
}
#endif

#endif
