// What a configuration of a USB device says, as lines of text. No device, no state; any thread.
#pragma once

#include <iosfwd>

#include "jorvet/cyusb/descriptor_tree.h"

namespace jorvet::com {

// Writes the configuration's header, then for each of its interface entries the entry, the two bulk endpoints in use
// (null where there is none) and the entry's own endpoints; each line is flushed. Numbers are hexadecimal, bytes with
// two digits. `out` stays in hexadecimal, with fill character '0'.
void write_descriptor_report(std::ostream& out, const CCyUSBConfig& config, const CCyUSBEndPoint* bulk_in,
                             const CCyUSBEndPoint* bulk_out);

} // namespace jorvet::com
