// The record of one overlapped request, with an event of its own. One thread at a time.
#pragma once

#include "jorvet/system/win32.h"

namespace jorvet::cyusb {

class pending_record {
  public:
    pending_record() { record_.hEvent = CreateEventA(nullptr, FALSE, FALSE, ""); }
    ~pending_record() {
        if (valid())
            CloseHandle(record_.hEvent);
    }
    pending_record(const pending_record&) = delete;
    pending_record& operator=(const pending_record&) = delete;

    // Whether the event could be created; otherwise the record cannot be used, and the last error says why.
    bool valid() const { return record_.hEvent != nullptr; }
    OVERLAPPED* get() { return &record_; }
    HANDLE event() const { return record_.hEvent; }

  private:
    OVERLAPPED record_{};
};

} // namespace jorvet::cyusb
