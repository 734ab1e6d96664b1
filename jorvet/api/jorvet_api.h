/* libjorvet: talking to a board over USB. This header is the manual of the C interface; it is strict C99, and C++.
 *
 * What an application needs beyond these functions (devices by serial number, whole answers, events, the state of the
 * link, an end to waits) is in jorvet/api/jv_session.h, for the same instances.
 *
 * In order: JVGetComInfoList (optional) shows what is attached; JVGetInstance makes an instance for one kind of link;
 * JVConnect opens the board at a place of that link's own list; then any number of requests; JVDisconnect; and
 * JVCloseInstance. An instance may be connected again and again.
 *
 * Results are the status codes of jorvet/base/status.h, 0 (JV_OK) for success; jv_status_name and jv_status_text give
 * each a name and a line of text. No function throws. Besides the codes listed with each function, any function that
 * returns a status returns JV_ERR_NO_COM for a null instance or one without a link, and JV_ERR_NO_RESOURCES when
 * memory, a thread or a kernel object cannot be allocated.
 *
 * Threads: requests may be issued on one instance from several threads at once; they run one at a time. JVConnect,
 * JVDisconnect and JVCloseInstance must not overlap any other call on the same instance. Calls on different instances
 * are independent.
 *
 * Pointers: buffers belong to the caller, who keeps them valid during the call. `info`, `list`, `count`, `out_length`
 * and `out_data` must not be null, nor `data` unless `length` is 0; no function checks that. A null instance is safe
 * everywhere.
 *
 * Events: the board's unasked frames queue up in the instance, without limit, until a program takes them
 * (jv_next_event of jv_session.h, or CJorvet::read_event_frames from C++), or JVConnect or JVDisconnect drops them. A
 * program that does not want them sets a limit (jv_set_event_limit).
 *
 * A lost stream: when the received bytes no longer make sense as frames, receiving stops, for good, until the next
 * JVConnect. JVIsOpen stays true meanwhile and every request ends with its JV_ERR_TIMEOUT_..., so after repeated
 * time-outs call JVDisconnect and JVConnect, or ask for the state (jv_state of jv_session.h).
 *
 * A late reply: after a time-out the board may answer all the same. Frames carry no number that ties a reply to its
 * request, so a reply that arrives during the next request is taken as that one's. Wait for the board to fall silent,
 * or disconnect and connect, before a request whose answer matters.
 *
 * Time: an FTDI bridge runs at 115,200 baud, 11,520 bytes a second each way. A frame must leave within the 100 ms of
 * the write time-out, which is time for 1,152 bytes plus what the bridge buffers; a longer one may end with
 * JV_ERR_FTDI_SHORT_WRITE, part of it sent. A reply with its full 65,535 bytes takes 5.7 s on that line and so never
 * arrives within the one-second reply time-out, in which 11,520 bytes fit. */
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
    uint8_t in_use;          /* 1: FTDI, any program has it open; Cypress, it did not open when it was listed */
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

/* Makes an instance for one kind of link (JV_KIND_FTDI, JV_KIND_CYPRESS). Any other kind makes an instance without a
 * link, which JVConnect refuses. The caller owns it and frees it with JVCloseInstance. Null when memory or a kernel
 * object cannot be allocated. */
JV_API CJorvet* JV_CALL JVGetInstance(unsigned int kind);

/* Disconnects the instance if it is connected, and frees it. Null is ignored. Blocks as JVDisconnect does. */
JV_API void JV_CALL JVCloseInstance(CJorvet* instance);

/* Opens the device at place `index` of the link's own list (COM_INFO.index) and starts receiving. A connected instance
 * is disconnected first. Blocks for about 10 ms; up to 0.1 s when it disconnects first. JV_OK says that the device was
 * opened and configured; it may have been unplugged since. FTDI:
 * JV_ERR_FTDI_DEVICE_NOT_FOUND at a place that does not exist, JV_ERR_FTDI_DEVICE_NOT_OPENED for a bridge in use, else
 * the code of the setting that failed (JV_ERR_FTDI_...); the bridge may then be open: JVDisconnect closes it. Cypress:
 * JV_ERR_CYP_OPEN when there is no such device or it does not open, JV_ERR_CYP_NO_ENDPOINT when it lacks the bulk
 * endpoints of a board; nothing is open then. JV_ERR_NO_COM for an instance of another kind; JV_ERR_NO_RESOURCES. */
JV_API unsigned int JV_CALL JVConnect(CJorvet* instance, unsigned char index);

/* Closes the device, stops receiving and drops the frames that nobody took. JV_OK also when it was not connected or the
 * link is lost; JV_ERR_COM_NOT_OPEN when the link is lost just now; the code of the driver (JV_ERR_FTDI_...) when the
 * device does not close, receiving having stopped all the same. Blocks for at most 0.1 s, plus the time that the
 * driver takes. */
JV_API unsigned int JV_CALL JVDisconnect(CJorvet* instance);

/* Whether the device is open: false before JVConnect, after JVDisconnect, and within 150 ms after an FTDI bridge was
 * unplugged. The loss of a Cypress device leaves it true; requests then end with JV_ERR_CYP_WRITE. Never blocks. */
JV_API bool JV_CALL JVIsOpen(CJorvet* instance);

/* The driver's handle of the open device, for driver functions that this library does not call; null while closed. The
 * library owns it: do not close it. Never blocks. */
JV_API void* JV_CALL JVGetComHandle(CJorvet* instance);

/* Describes the device that the instance opened last, by its record at that moment; a record of no device (com_type
 * JV_KIND_NONE) before. While a Cypress device is open, that is such a record, too, with in_use 1. `info` is not
 * touched when the instance is null or has no link. */
JV_API void JV_CALL JVGetComInfo(CJorvet* instance, COM_INFO* info);

/* Lists what is attached: all FTDI bridges, then all Cypress devices, one record each from `list` on, and their number
 * (modulo 256) into `*count`. There is no capacity argument: `list` must have room for every attached device. A driver
 * that does not answer lists nothing. When memory runs out nothing is listed and `*count` is 0. Needs no instance.
 * Blocks as long as the drivers take. */
JV_API void JV_CALL JVGetComInfoList(COM_INFO* list, unsigned char* count);

/* The requests. Each sends one frame and waits for the board's reply, one second unless CJorvet::set_timeout_for_reply
 * says otherwise. The board defines what the parameter bytes p1, p2 and p3 mean.
 *
 * `with_crc` adds a CRC-16/CCITT-FALSE to the request, which the board checks. It does not protect the reply: the
 * library does not check a reply's CRC, in either case.
 *
 * Each returns JV_OK; or JV_ERR_BOARD_... according to the board's status word (a word unknown to the library counts as
 * success); or its own JV_ERR_TIMEOUT_... without a reply in time; or, when the frame could not be sent,
 * JV_ERR_COM_NOT_OPEN, JV_ERR_FTDI_SHORT_WRITE, another JV_ERR_FTDI_..., JV_ERR_CYP_NO_ENDPOINT or JV_ERR_CYP_WRITE.
 * JV_OK tells that a reply came; the link may have been lost right after it. It blocks while another request of the
 * instance runs, while the frame is written (FTDI: at most 100 ms; Cypress: 5 s, longer when the driver refuses to
 * cancel the transfer) and for the reply time-out.
 *
 * `data` holds `length` bytes to send. `out_data` receives the data of the reply and `*out_length` their number: there
 * is no capacity argument, and a reply carries up to 65,535 bytes. Both are written only when a reply came, whatever
 * its status. Requests without these two parameters return the status alone; the data of their replies are dropped. */
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
/* From a successful reply with exactly one byte the library also learns the board's mode; in mode 3 it ignores all that
 * the board sends, until the instance is closed. */
JV_API unsigned int JV_CALL JVGetModeRq(CJorvet* instance, unsigned char p1, bool with_crc);

#ifdef __cplusplus
}
#endif

#endif
