/* libjorvet: what an application needs beside the functions of jorvet_api.h. This header is the manual of the session
 * functions; it is strict C99, and C++.
 *
 * They work on the instance that JVGetInstance made, over the same link and the same queues as the functions of
 * jorvet_api.h and the class CJorvet, and may be mixed with them. They add: devices chosen by what they are instead of
 * by a place in a list that changes; whole answers; events; the state of the link; an end to every wait; and insight
 * into what the link does.
 *
 * Results are the status codes of jorvet/base/status.h. Besides the codes listed with each function, each returns
 *   JV_ERR_NO_COM          the instance is null or has no link,
 *   JV_ERR_BAD_ARGUMENT    a pointer that must not be null is null, a record's `size` is none that this library knows,
 *                          or a number is out of its range; nothing was done,
 *   JV_ERR_NO_RESOURCES    memory, a thread or a kernel object could not be allocated,
 *   JV_ERR_IN_CALLBACK     it blocks, connects or sets a callback and was called from inside a callback of this
 *                          instance; nothing was done. JVConnect and JVDisconnect answer so, too, and JVCloseInstance
 *                          does nothing then.
 *
 * Records begin with their size: set `size` to sizeof the record before the call. Records only grow at their end.
 * Texts in records end with a zero and are cut to fit. Buffers belong to the caller, who keeps them valid during the
 * call; no function writes beyond a capacity.
 *
 * Time-outs are in milliseconds: 0 does not wait at all, JV_NO_LIMIT waits without limit. Whatever the time-out, a wait
 * ends at once when jv_cancel is called or when the link is lost.
 *
 * Times are in nanoseconds: `monotonic_ns` on the system's monotonic clock, whose zero means nothing, and `utc_ns`
 * since 1970-01-01 00:00 UTC.
 *
 * Threads: any function may be called on one instance from several threads at once, except that connecting
 * (jv_connect_to, jv_reconnect, JVConnect), JVDisconnect and JVCloseInstance must not overlap any other call on the
 * same instance. To end a program's waits first, call jv_cancel: it returns when every session function has left.
 * Callbacks run on the library's threads or inside the caller's own calls, one at a time for each kind of callback;
 * they must not throw. */
#ifndef JORVET_API_JV_SESSION_H
#define JORVET_API_JV_SESSION_H

#include <stddef.h>

#include "jorvet/api/jorvet_api.h"
#include "jorvet/base/session_numbers.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Devices ---- */

/* One attached device. What is not known is empty, 0, JV_UNKNOWN or JV_SPEED_UNKNOWN. */
typedef struct jv_device {
    uint32_t size;
    uint32_t kind;          /* JV_KIND_FTDI or JV_KIND_CYPRESS; JV_KIND_NONE: no device */
    uint32_t index;         /* the place in its link's own list just then, as JVConnect takes it */
    uint32_t in_use;        /* JV_YES: some program has it open; JV_NO; JV_UNKNOWN */
    uint32_t not_permitted; /* JV_YES: the system refuses to open it; JV_NO; JV_UNKNOWN */
    uint32_t speed;         /* enum jv_device_speed */
    uint16_t vendor_id;     /* USB IDs; 0: unknown */
    uint16_t product_id;
    char serial_number[64];
    char description[128]; /* the product's name */
    char place[256];       /* where it is plugged in, in the words of its driver: for a bridge its location number in
                              hexadecimal, "0x11"; for a Cypress device the path of its driver's interface */
} jv_device;

/* Which device: each member that is set must fit. */
typedef struct jv_device_choice {
    uint32_t size;
    uint16_t vendor_id;        /* 0: any */
    uint16_t product_id;       /* 0: any */
    const char* serial_number; /* null: any; compared exactly, but for a Cypress device without regard to case */
    const char* place;         /* null: any; as jv_device.place, compared in the same way */
} jv_device_choice;

/* Writes up to `capacity` of the attached devices of that kind (JV_KIND_FTDI, JV_KIND_CYPRESS; JV_KIND_NONE: of both,
 * bridges first) to `list`, and the number of all that are attached to `*count`. `list[0].size` must be set unless
 * `capacity` is 0, where `list` may be null. A driver that does not answer lists nothing. Needs no instance. Blocks as
 * long as the drivers take; listing opens each Cypress device for a moment. */
JV_API unsigned int JV_CALL jv_list(unsigned int kind, jv_device* list, size_t capacity, size_t* count);

/* Connects to the one device of the instance's kind that fits `choice`, as JVConnect does. What is opened is checked
 * against the choice before anything is sent to it or set on it: when a device was replugged meanwhile and another one
 * has its place, that one is closed again untouched, and the list is read anew. While no device fits, waits for one
 * until the time-out.
 * JV_ERR_NO_DEVICE; JV_ERR_SEVERAL_DEVICES, at once; JV_ERR_CANCELLED; otherwise as JVConnect. Ends a jv_cancel. */
JV_API unsigned int JV_CALL jv_connect_to(CJorvet* instance, const jv_device_choice* choice, uint32_t timeout_ms);

/* Connects to the device that the instance was connected to last: the same serial number or, if it has none, the same
 * place, as jv_connect_to does it, on the caller's thread. JV_ERR_NO_DEVICE also when the instance was never connected;
 * otherwise as jv_connect_to. */
JV_API unsigned int JV_CALL jv_reconnect(CJorvet* instance, uint32_t timeout_ms);

/* Describes the device that the instance is connected to, or was connected to last: `kind` is JV_KIND_NONE before the
 * first connect. After jv_connect_to and jv_reconnect it is the device that is open; after JVConnect it is what the
 * list showed at that place. */
JV_API unsigned int JV_CALL jv_device_of(CJorvet* instance, jv_device* device);

/* ---- State ---- */

typedef struct jv_state_record {
    uint32_t size;
    uint32_t state;       /* enum jv_link_state */
    uint64_t changes;     /* how often the state has changed since the instance was made */
    int64_t monotonic_ns; /* when it changed last; 0 if never */
    int64_t utc_ns;
    char cause[256]; /* of the last change, for people; empty for connects and disconnects */
} jv_state_record;

/* The state of the link. The change counts as seen from then on (jv_event_fd). Right after a successful connect the
 * state is JV_LINK_RECEIVING, or JV_LINK_DEAF; right after a disconnect, and after a connect that failed, it is
 * JV_LINK_CLOSED. Never blocks. */
JV_API unsigned int JV_CALL jv_state(CJorvet* instance, jv_state_record* state);

/* Copies a sentence about the last failure into `text`, cut to `capacity` with its zero: which call of the driver or
 * the system failed, and what it said. For people; programs go by the codes. Empty before the first failure. */
JV_API unsigned int JV_CALL jv_last_detail(CJorvet* instance, char* text, size_t capacity);

/* ---- Requests ---- */

typedef struct jv_request_record {
    uint32_t size;
    uint32_t kind;          /* enum jv_request_kind */
    unsigned char p[3];     /* the parameter bytes; those that the request does not have are sent as they are */
    unsigned char with_crc; /* 1: send a CRC with it, which the board checks */
    uint32_t timeout_ms;    /* for its turn, and then for the reply */
    const void* data;       /* `length` bytes to send; may be null when `length` is 0 */
    size_t length;          /* at most 65,535 */
} jv_request_record;

typedef struct jv_answer {
    uint32_t size;
    uint32_t status_word; /* as the board sent it; 0xA000 is its success */
    void* data;           /* in: where the data of the reply go, or null */
    size_t capacity;      /* in: the room there, in bytes */
    size_t length;        /* the length of the reply's data, also when it did not fit */
    uint64_t ticket;      /* for jv_take_answer, when it did not fit; else 0 */
    uint32_t crc_verdict; /* enum jv_crc */
    uint32_t crc;         /* the CRC as received; 0xEEEE for a frame without one */
    uint64_t stale;       /* replies that were queued when the request was sent, and were dropped */
} jv_answer;

/* Sends one request and waits for its reply. The outputs of `answer` are written only with JV_OK, JV_ERR_BOARD_... and
 * JV_ERR_BUFFER_TOO_SMALL. One request of the instance runs at a time, those of jorvet_api.h included.
 *
 * Replies that are queued when the request is sent belong to earlier ones; they are dropped and counted. A reply that
 * is still under way then cannot be told from the answer: see jv_set_quiet_time. A reply with a wrong CRC is an answer
 * like any other; its `crc_verdict` tells.
 *
 * A write that the device does not take ends by the link's own limit, whatever the time-out: 100 ms for a bridge, 5 s
 * for a Cypress device. jv_cancel ends that of a Cypress device at once.
 *
 *   JV_OK                      the board answered 0xA000, or a word that the library does not know
 *   JV_ERR_BOARD_...           the board refused
 *   JV_ERR_BUFFER_TOO_SMALL    the data do not fit; nothing was copied, and the answer is kept for `ticket`
 *   JV_ERR_TIMEOUT_...         the request was sent and no reply came in time
 *   JV_ERR_BUSY                another request was still running at the end of the time-out; nothing was sent
 *   JV_ERR_CANCELLED, JV_ERR_CONTEXT_LOSS, JV_ERR_DEVICE_LOST, JV_ERR_COM_NOT_OPEN
 *   JV_ERR_FTDI_..., JV_ERR_CYP_...   the request could not be sent */
JV_API unsigned int JV_CALL jv_request(CJorvet* instance, const jv_request_record* request, jv_answer* answer);

/* Copies the answer that was too large for its request, as jv_request would have. It is kept until it was taken, the
 * next jv_request begins, or the instance is connected or disconnected. JV_ERR_NO_ANSWER; JV_ERR_BUFFER_TOO_SMALL, with
 * `length` and the answer still kept; otherwise what the request would have returned. Never blocks. */
JV_API unsigned int JV_CALL jv_take_answer(CJorvet* instance, uint64_t ticket, jv_answer* answer);

/* After a request has timed out, the next jv_request waits, before it sends, until no reply has come for that long;
 * what comes meanwhile is dropped and counted as stale. 0, as at first: it does not wait. */
JV_API unsigned int JV_CALL jv_set_quiet_time(CJorvet* instance, uint32_t milliseconds);

/* ---- Events ---- */

typedef struct jv_event {
    uint32_t size;
    uint32_t status_word;
    unsigned char type; /* the start byte: 0x41 with a CRC, 0x40 without */
    unsigned char id;
    unsigned char seq;
    unsigned char reserved;
    uint32_t crc;         /* as received; 0xEEEE for a frame without one */
    int64_t monotonic_ns; /* when the packet that completed the frame was taken; 0: before the first session function
                             was called on the instance */
    int64_t utc_ns;
    uint64_t lost;    /* events missing right before it, by the sequence bytes (modulo 256) */
    uint64_t dropped; /* events dropped by the limit since the one taken before it */
    void* data;       /* in: where the data go, or null */
    size_t capacity;  /* in: the room there, in bytes */
    size_t length;    /* the length of the data, also when they did not fit */
} jv_event;

/* Takes the oldest event. Queued events come first; when there is none, waits for one.
 * JV_ERR_BUFFER_TOO_SMALL: only `length` was written, and the event stays. JV_ERR_EVENT_TIMEOUT; JV_ERR_CANCELLED; and,
 * at once when no event is queued, JV_ERR_CONTEXT_LOSS, JV_ERR_DEVICE_LOST, JV_ERR_NO_RESOURCES or JV_ERR_COM_NOT_OPEN,
 * according to the state of the link. */
JV_API unsigned int JV_CALL jv_next_event(CJorvet* instance, jv_event* event, uint32_t timeout_ms);

/* What stands in front of each event of jv_next_events. The data follow it; the next record begins `record_size` bytes
 * after the beginning of this one, which is a multiple of 8. */
typedef struct jv_packed_event {
    uint32_t record_size;
    uint32_t length; /* of the data */
    int64_t monotonic_ns;
    int64_t utc_ns;
    uint64_t lost;
    uint64_t dropped;
    uint16_t status_word;
    uint16_t crc;
    unsigned char type;
    unsigned char id;
    unsigned char seq;
    unsigned char reserved;
} jv_packed_event;

/* Takes as many events as fit into `capacity` bytes at `buffer` (aligned to 8), oldest first, and writes their number
 * to
 * `*count`. Waits for the first one only. JV_ERR_BUFFER_TOO_SMALL: not even the first fits, and `*count` is the number
 * of bytes that it needs. Otherwise as jv_next_event. */
JV_API unsigned int JV_CALL jv_next_events(CJorvet* instance, void* buffer, size_t capacity, size_t* count,
                                           uint32_t timeout_ms);

/* Keeps at most that many events queued: each one more drops the oldest, which is counted. JV_NO_LIMIT, as at first:
 * all are kept. 0 is JV_ERR_BAD_ARGUMENT. */
JV_API unsigned int JV_CALL jv_set_event_limit(CJorvet* instance, uint32_t events);

/* What an event loop can wait for: a file descriptor (poll, epoll, select) or, on Windows, the HANDLE of an event
 * object. It is readable, or signalled, while an event is queued or the state of the link has changed since jv_state
 * was called last. Wait for it only; do not read, reset or close it. It belongs to the instance and lives as long.
 * JV_ERR_NOT_SUPPORTED: the system has the other one. */
JV_API unsigned int JV_CALL jv_event_fd(CJorvet* instance, int* descriptor);
JV_API unsigned int JV_CALL jv_event_handle(CJorvet* instance, void** handle);

/* ---- Ending waits ---- */

/* Ends every session function that waits on the instance, and those that follow, with JV_ERR_CANCELLED, until jv_resume
 * or the next connect, and returns when all have left. The waits of jorvet_api.h and of CJorvet are not ended: they end
 * by their own time-outs. A request that is being written to a bridge ends within its 100 ms. So a program ends an
 * instance: jv_cancel, then join the threads that used it, then JVCloseInstance, after which no call may enter. */
JV_API unsigned int JV_CALL jv_cancel(CJorvet* instance);
JV_API unsigned int JV_CALL jv_resume(CJorvet* instance);

/* ---- Insight ---- */

/* Counts since the instance was made. They may be behind by the packet that is just being taken. */
typedef struct jv_counters {
    uint32_t size;
    uint32_t reserved;
    uint64_t bytes_received;
    uint64_t bytes_sent;
    uint64_t replies;
    uint64_t events;
    uint64_t requests; /* sent, or tried to */
    uint64_t request_timeouts;
    uint64_t wrong_crcs;         /* of answers to jv_request */
    uint64_t stale_replies;      /* dropped by jv_request */
    uint64_t discarded_frames;   /* complete, but followed by a byte that cannot follow a frame */
    uint64_t lost_events;        /* by the sequence bytes */
    uint64_t dropped_events;     /* by the limit */
    uint64_t stream_losses;      /* a byte came that belongs to no frame */
    uint64_t resynchronisations; /* after which frames were found again */
    uint64_t unread_bytes;       /* received after a loss and belonging to no frame, or to frames that nobody reads */
} jv_counters;

JV_API unsigned int JV_CALL jv_count(CJorvet* instance, jv_counters* counters);

/* `level` is of the message, an enum jv_log_level; `text` may have several lines and is valid during the call. */
typedef void(JV_CALL* jv_log_function)(void* context, unsigned int level, const char* text);
/* Tells `log` of what the library notices up to that level: errors (a lost stream with its report, a lost device),
 * warnings (several replies queued at a request) and notes (connects, resynchronisations). A null function or
 * JV_LOG_NOTHING ends it. When this returns, no call of the previous function is running. */
JV_API unsigned int JV_CALL jv_set_log(CJorvet* instance, unsigned int level, jv_log_function log, void* context);

/* `direction` is an enum jv_direction; `bytes` are valid during the call. */
typedef void(JV_CALL* jv_tap_function)(void* context, unsigned int direction, const void* bytes, size_t count,
                                       int64_t monotonic_ns, int64_t utc_ns);
/* Shows `tap` each packet: of the board as the receive engine gets it, before its frames are queued, and each request
 * right before it is sent, so that it stands before its reply. Null ends it. Otherwise as jv_set_log. */
JV_API unsigned int JV_CALL jv_set_tap(CJorvet* instance, jv_tap_function tap, void* context);

/* ---- Recovery ---- */

/* With `longest` not 0, a lost stream does not end receiving: the library looks for a whole frame of at most `longest`
 * bytes of data that is followed by the beginning of another such frame, and goes on from it. Until then the state is
 * JV_LINK_STREAM_LOST. Each loss is counted and logged; events that were lost show in the sequence bytes. 0, as at
 * first: receiving ends. 4,096 suits boards whose frames are not longer. Takes effect with the next loss. */
JV_API unsigned int JV_CALL jv_set_recovery(CJorvet* instance, uint32_t longest);

#ifdef __cplusplus
}
#endif

#endif
