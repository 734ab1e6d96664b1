/* Every status code of the library, once: JV_STATUS_LIST has its code, name and one-line text (what happened, what to
 * do). Constants, names and texts come from that list. C and C++; header only; nothing here blocks or allocates. */
#ifndef JORVET_BASE_STATUS_H
#define JORVET_BASE_STATUS_H

/* X(code, name, text). Library codes are 0x3010xxxx: the instance and its requests 0x301000nn, any link 0x30101000,
 * the FTDI link 0x301020nn, the Cypress link 0x301030nn. Codes of the board are 0x700000nn. */
/* clang-format off */
#define JV_STATUS_LIST(X)                                                                                              \
    X(0x00000000, JV_OK, "success")                                                                                    \
    X(0x30100001, JV_ERR_NO_COM, "the instance has no link: create it with kind 0 (FTDI) or 1 (Cypress)")              \
    X(0x30100002, JV_ERR_TIMEOUT_READ_MEMORY, "no reply to read-memory in time: check the board and the cable")        \
    X(0x30100003, JV_ERR_TIMEOUT_READ_BY_ID, "no reply to read-by-id in time: check the board and the cable")          \
    X(0x30100004, JV_ERR_TIMEOUT_READ_SN, "no reply to read-sn in time: check the board and the cable")                \
    X(0x30100005, JV_ERR_TIMEOUT_READ_LAST_SW, "no reply to read-last-sw in time: check the board and the cable")      \
    X(0x30100006, JV_ERR_TIMEOUT_READ_ERROR, "no reply to read-error in time: check the board and the cable")          \
    X(0x30100007, JV_ERR_TIMEOUT_WRITE_MEMORY, "no reply to write-memory in time: the write may have been done")       \
    X(0x30100008, JV_ERR_TIMEOUT_WRITE_BY_ID, "no reply to write-by-id in time: the write may have been done")         \
    X(0x30100009, JV_ERR_TIMEOUT_EXEC_BY_ID, "no reply to exec-by-id in time: the command may have been run")          \
    X(0x3010000A, JV_ERR_TIMEOUT_RESET, "no reply to reset in time: the board may be restarting")                      \
    X(0x3010000B, JV_ERR_TIMEOUT_SET_MODE, "no reply to set-mode in time: the mode may have changed")                  \
    X(0x3010000C, JV_ERR_TIMEOUT_GET_MODE, "no reply to get-mode in time: check the board and the cable")              \
    X(0x3010000E, JV_ERR_REPLY_TIMEOUT, "no reply frame within the reply time-out")                                    \
    X(0x3010000F, JV_ERR_CONTEXT_LOSS, "the byte stream lost its frames and receiving stopped: disconnect and connect")\
    X(0x30100011, JV_ERR_NOT_SUPPORTED, "this link cannot be opened that way: open it by its place in the list")       \
    X(0x30100012, JV_ERR_EVENT_TIMEOUT, "no event frame within the event time-out")                                    \
    X(0x30100013, JV_ERR_NO_RESOURCES, "memory, a thread or a kernel object could not be allocated: try again")        \
    X(0x30100014, JV_ERR_CANCELLED, "jv_cancel was called: call jv_resume, or connect again")                          \
    X(0x30100015, JV_ERR_BUSY, "another request was still running at the end of the time-out: nothing was sent")       \
    X(0x30100016, JV_ERR_BUFFER_TOO_SMALL, "the buffer is too small: the length that is needed was returned")          \
    X(0x30100017, JV_ERR_BAD_ARGUMENT, "an argument is null or out of its range: see the function's manual")           \
    X(0x30100018, JV_ERR_IN_CALLBACK, "not from inside a callback of the same instance: call it afterwards")           \
    X(0x30100019, JV_ERR_NO_DEVICE, "no attached device fits the description: check it, the cable and the driver")     \
    X(0x3010001A, JV_ERR_SEVERAL_DEVICES, "several attached devices fit the description: name a serial number")        \
    X(0x3010001B, JV_ERR_NO_ANSWER, "no answer is kept for that ticket: a later request has taken its place")          \
    X(0x3010001C, JV_ERR_DEVICE_LOST, "the device was unplugged or its link failed: jv_reconnect opens it again")      \
    X(0x30101000, JV_ERR_COM_NOT_OPEN, "the link is not open: connect, or connect again after the device came back")   \
    X(0x30102002, JV_ERR_FTDI_SHORT_WRITE, "the bridge took only part of the request in time: check the board")        \
    X(0x3010203D, JV_ERR_FTDI_INVALID_HANDLE, "FT_INVALID_HANDLE: the bridge was closed meanwhile: connect again")     \
    X(0x3010203E, JV_ERR_FTDI_DEVICE_NOT_FOUND, "FT_DEVICE_NOT_FOUND: no bridge at that place of the list: list again")\
    X(0x3010203F, JV_ERR_FTDI_DEVICE_NOT_OPENED, "FT_DEVICE_NOT_OPENED: the bridge is in use, or refused to open")     \
    X(0x30102040, JV_ERR_FTDI_IO_ERROR, "FT_IO_ERROR: the bridge does not answer: check the cable, connect again")     \
    X(0x30102041, JV_ERR_FTDI_INSUFFICIENT_RESOURCES, "FT_INSUFFICIENT_RESOURCES: the driver is out of resources")     \
    X(0x30102042, JV_ERR_FTDI_INVALID_PARAMETER, "FT_INVALID_PARAMETER: the driver refused a setting")                 \
    X(0x30102043, JV_ERR_FTDI_INVALID_BAUD_RATE, "FT_INVALID_BAUD_RATE: the bridge cannot run at 115200 baud")         \
    X(0x30102044, JV_ERR_FTDI_NOT_OPENED_FOR_ERASE, "FT_DEVICE_NOT_OPENED_FOR_ERASE")                                  \
    X(0x30102045, JV_ERR_FTDI_NOT_OPENED_FOR_WRITE, "FT_DEVICE_NOT_OPENED_FOR_WRITE")                                  \
    X(0x30102046, JV_ERR_FTDI_FAILED_TO_WRITE_DEVICE, "FT_FAILED_TO_WRITE_DEVICE: the bridge refused the data")        \
    X(0x30102047, JV_ERR_FTDI_EEPROM_READ_FAILED, "FT_EEPROM_READ_FAILED")                                             \
    X(0x30102048, JV_ERR_FTDI_EEPROM_WRITE_FAILED, "FT_EEPROM_WRITE_FAILED")                                           \
    X(0x30102049, JV_ERR_FTDI_EEPROM_ERASE_FAILED, "FT_EEPROM_ERASE_FAILED")                                           \
    X(0x3010204A, JV_ERR_FTDI_EEPROM_NOT_PRESENT, "FT_EEPROM_NOT_PRESENT")                                             \
    X(0x3010204B, JV_ERR_FTDI_EEPROM_NOT_PROGRAMMED, "FT_EEPROM_NOT_PROGRAMMED")                                       \
    X(0x3010204C, JV_ERR_FTDI_INVALID_ARGS, "FT_INVALID_ARGS: the driver refused an argument")                         \
    X(0x3010204D, JV_ERR_FTDI_NOT_SUPPORTED, "FT_NOT_SUPPORTED: the driver or the bridge is too old for a setting")    \
    X(0x3010204E, JV_ERR_FTDI_OTHER_ERROR, "FT_OTHER_ERROR: the driver gives no reason: plug the bridge in again")     \
    X(0x3010204F, JV_ERR_FTDI_DEVICE_LIST_NOT_READY, "FT_DEVICE_LIST_NOT_READY: the driver is busy: try again")        \
    X(0x30103000, JV_ERR_CYP_NO_ENDPOINT, "the device has no bulk endpoint pair: it is not a board, or has no firmware")\
    X(0x30103001, JV_ERR_CYP_READ, "the bulk-in transfer failed: check the cable, connect again")                      \
    X(0x30103002, JV_ERR_CYP_WRITE, "the bulk-out transfer failed or did not end in time: check the board")            \
    X(0x30103003, JV_ERR_CYP_OPEN, "the device did not open, also after a reset: is it there, and free?")              \
    X(0x70000001, JV_ERR_BOARD_B000, "the board refused: status word 0xB000")                                          \
    X(0x70000002, JV_ERR_BOARD_B001, "the board refused: status word 0xB001")                                          \
    X(0x70000003, JV_ERR_BOARD_2000, "the board refused: status word 0x2000")                                          \
    X(0x70000004, JV_ERR_BOARD_2001, "the board refused: status word 0x2001")                                          \
    X(0x70000005, JV_ERR_BOARD_2002, "the board refused: status word 0x2002")                                          \
    X(0x70000006, JV_ERR_BOARD_2003, "the board refused: status word 0x2003")                                          \
    X(0x70000007, JV_ERR_BOARD_3000, "the board refused: status word 0x3000")                                          \
    X(0x70000008, JV_ERR_BOARD_3001, "the board refused: status word 0x3001")                                          \
    X(0x70000009, JV_ERR_BOARD_3002, "the board refused: status word 0x3002")                                          \
    X(0x7000000A, JV_ERR_BOARD_3004, "the board refused: status word 0x3004")                                          \
    X(0x7000000B, JV_ERR_BOARD_3005, "the board refused: status word 0x3005")                                          \
    X(0x7000000C, JV_ERR_BOARD_3006, "the board refused: status word 0x3006")                                          \
    X(0x7000000D, JV_ERR_BOARD_3007, "the board refused: status word 0x3007")                                          \
    X(0x7000000E, JV_ERR_BOARD_3008, "the board refused: status word 0x3008")                                          \
    X(0x7000000F, JV_ERR_BOARD_3101, "the board refused: status word 0x3101")                                          \
    X(0x70000010, JV_ERR_BOARD_4000, "the board refused: status word 0x4000")                                          \
    X(0x70000011, JV_ERR_BOARD_4001, "the board refused: status word 0x4001")                                          \
    X(0x70000012, JV_ERR_BOARD_3003, "the board refused: status word 0x3003")
/* clang-format on */

enum jv_status {
#define JV_STATUS_CONSTANT(code, name, text) name = code,
    JV_STATUS_LIST(JV_STATUS_CONSTANT)
#undef JV_STATUS_CONSTANT
};

/* The name of a status code, for example "JV_ERR_TIMEOUT_RESET"; "JV_UNKNOWN" for a number that is none. */
static inline const char* jv_status_name(unsigned int status) {
    switch (status) {
#define JV_STATUS_NAME(code, name, text)                                                                               \
    case code:                                                                                                         \
        return #name;
        JV_STATUS_LIST(JV_STATUS_NAME)
#undef JV_STATUS_NAME
    default:
        return "JV_UNKNOWN";
    }
}

/* One line for a person: what happened and, where something can be done, what to do. */
static inline const char* jv_status_text(unsigned int status) {
    switch (status) {
#define JV_STATUS_TEXT(code, name, text)                                                                               \
    case code:                                                                                                         \
        return text;
        JV_STATUS_LIST(JV_STATUS_TEXT)
#undef JV_STATUS_TEXT
    default:
        return "not a status code of this library";
    }
}

#endif
