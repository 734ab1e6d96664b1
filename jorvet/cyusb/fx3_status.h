// The statuses of a firmware download, once: value, name and a one-line text come from FX3_STATUS_LIST. Header only;
// nothing here blocks or allocates.
#pragma once

// X(value, name, text)
#define FX3_STATUS_LIST(X)                                                                                             \
    X(0, FX3_OK, "success")                                                                                            \
    X(1, FX3_TRANSFER_FAILED, "a transfer to or from the device failed, or memory read back differs from the image")   \
    X(2, FX3_NO_SUCH_MEDIUM, "the medium is none of RAM, I2C EEPROM and SPI flash")                                    \
    X(3, FX3_NOT_AN_IMAGE, "the image does not begin with the letters CY: it is not firmware for this controller")     \
    X(5, FX3_IMAGE_TRUNCATED, "a section of the image runs past its end: the file is truncated or damaged")            \
    X(6, FX3_NO_FILE, "the file cannot be opened or read, or is empty")                                                \
    X(7, FX3_ERASE_FAILED, "a sector of the SPI flash could not be erased, or did not get ready in time")              \
    X(8, FX3_SECTION_TOO_LONG, "a section claims more data than the whole image has: the file is damaged")             \
    X(9, FX3_NO_EEPROM_SIZE, "the image names no EEPROM size: it was not made for booting from I2C")

enum FX3_STATUS : int {
#define FX3_STATUS_CONSTANT(value, name, text) name = value,
    FX3_STATUS_LIST(FX3_STATUS_CONSTANT)
#undef FX3_STATUS_CONSTANT
};

namespace jorvet::cyusb {

struct fx3_status_entry {
    int value;
    const char* name;
    const char* text; // for a person
};

// Value, name and text of a download's result; FX3_UNKNOWN for a number that is none.
inline fx3_status_entry fx3_status(int value) {
    static constexpr fx3_status_entry entries[] = {
#define FX3_STATUS_ENTRY(value, name, text) {value, #name, text},
        FX3_STATUS_LIST(FX3_STATUS_ENTRY)
#undef FX3_STATUS_ENTRY
    };
    for (const fx3_status_entry& entry : entries)
        if (entry.value == value)
            return entry;
    return {value, "FX3_UNKNOWN", "not a status of a firmware download"};
}

} // namespace jorvet::cyusb
