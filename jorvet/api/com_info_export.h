// Copying a device record into the caller's memory.
#pragma once

#include "jorvet/api/jorvet_api.h"
#include "jorvet/com/com_info.h"

namespace jorvet::api {

// Fills `*out` from `record`: each text as its characters alone, at most 128 and not terminated, the bytes after them
// left as they were; the vendor and product ID of a Cypress record, 0 for any other. `out->reserved` is not touched.
void export_com_info(const CComInfo& record, COM_INFO* out);

} // namespace jorvet::api
