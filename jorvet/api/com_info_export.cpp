// The layout of COM_INFO is part of the binary interface: it is checked here.
#include "jorvet/api/com_info_export.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

static_assert(sizeof(COM_INFO) == 268 && offsetof(COM_INFO, index) == 0x100 && offsetof(COM_INFO, vendor_id) == 0x106 &&
              offsetof(COM_INFO, reserved) == 0x10A);

namespace jorvet::api {

namespace {
template <std::size_t N>
void copy_characters(const std::string& text, char (&field)[N]) {
    std::memcpy(field, text.data(), std::min(text.size(), N));
}
} // namespace

void export_com_info(const CComInfo& record, COM_INFO* out) {
    copy_characters(record.serial_number, out->serial_number);
    copy_characters(record.description, out->description);
    out->index = record.index;
    out->in_use = record.in_use;
    out->com_type = record.com_type;
    out->vendor_id = 0;
    out->product_id = 0;
    if (record.com_type == JV_KIND_CYPRESS) {
        const auto& cypress = static_cast<const CUsbCypComInfo&>(record);
        out->vendor_id = cypress.vendor_id;
        out->product_id = cypress.product_id;
    }
}

} // namespace jorvet::api
