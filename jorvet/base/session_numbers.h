/* The numbers of the session functions (jorvet/api/jv_session.h): what a state, a CRC, a level and the like may be. C
 * and C++. */
#ifndef JORVET_BASE_SESSION_NUMBERS_H
#define JORVET_BASE_SESSION_NUMBERS_H

#define JV_NO_LIMIT 0xFFFFFFFFu /* a time-out that never ends, and a queue without a limit */

/* What becomes of received bytes. */
enum jv_link_state {
    JV_LINK_CLOSED = 0,        /* no connect, or a disconnect since */
    JV_LINK_RECEIVING = 1,     /* frames are received */
    JV_LINK_STREAM_LOST = 2,   /* the bytes no longer made sense as frames: nothing is received, or, with recovery
                                  switched on, nothing until frames are found again */
    JV_LINK_DEVICE_LOST = 3,   /* the device was unplugged, or its link failed: nothing will be received */
    JV_LINK_OUT_OF_MEMORY = 4, /* receiving ended for want of memory */
    JV_LINK_DEAF = 5           /* the board is in mode 3: all that it sends is ignored until the next disconnect */
};

/* An answer that may be unknown. */
enum jv_answer_known { JV_NO = 0, JV_YES = 1, JV_UNKNOWN = 2 };

enum jv_device_speed {
    JV_SPEED_UNKNOWN = 0,
    JV_SPEED_UP_TO_HIGH = 1, /* USB 1.1 or 2.0 */
    JV_SPEED_SUPER = 2       /* USB 3 */
};

/* What the CRC of a received frame was. */
enum jv_crc {
    JV_CRC_NONE = 0,    /* the frame had none */
    JV_CRC_RIGHT = 1,   /* CRC-16/CCITT-FALSE over all bytes of the frame before it */
    JV_CRC_SHIFTED = 2, /* right as CJorvet::crc_calc counts: of the status and the length, bits 4 to 11 stand for the
                           high byte; some boards send this one */
    JV_CRC_WRONG = 3
};

enum jv_log_level { JV_LOG_NOTHING = 0, JV_LOG_ERRORS = 1, JV_LOG_WARNINGS = 2, JV_LOG_NOTES = 3 };

enum jv_direction { JV_TO_HOST = 0, JV_TO_BOARD = 1 };

/* The requests, by their command bytes. */
enum jv_request_kind {
    JV_READ_MEMORY = 0x10,
    JV_READ_BY_ID = 0x11,
    JV_READ_SN = 0x15,
    JV_READ_LAST_SW = 0x16,
    JV_READ_ERROR = 0x17,
    JV_WRITE_MEMORY = 0x20,
    JV_WRITE_BY_ID = 0x21,
    JV_RESET = 0x30,
    JV_SET_MODE = 0x31,
    JV_GET_MODE = 0x32,
    JV_EXEC_BY_ID = 0x40
};

#endif
