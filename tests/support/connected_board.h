// A fixture: one board, and an instance that is connected to it; and what the library's diagnostics said.
#pragma once

#include "jorvet/base/diagnostics.h"
#include "jorvet/base/status.h"
#include "jorvet/core/jorvet.h"
#include "tests/support/simulated_board.h"

namespace jorvet::testing {

// Only where a time-out is expected is the reply time-out shortened: a busy machine may be slow.
class ConnectedBoard : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(jorvet.connect(0), JV_OK);
        jorvet.set_timeout_for_reply(10000);
        jorvet.set_timeout_for_event(10000);
    }
    void receive_reply(const char* hex) {
        board.send(hex);
        ASSERT_EQ(jorvet.wait_for_reply(), JV_OK);
    }
    // Whether the board answers again, after whatever happened.
    void expect_working() {
        jorvet.set_timeout_for_reply(10000);
        EXPECT_EQ(jorvet.rq_read_sn(1, true), JV_OK);
    }

    plugged_board board;
    CJorvet jorvet{0};
};

// Takes what the diagnostics say, for as long as this lives.
class diagnostics_recorder {
  public:
    diagnostics_recorder() { diagnostics::set_writer(note); }
    ~diagnostics_recorder() {
        diagnostics::set_writer(nullptr);
        take();
    }
    static std::vector<std::string> take() {
        const std::lock_guard<std::mutex> lock(mutex);
        return std::move(texts);
    }

  private:
    static void note(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex);
        texts.push_back(text);
    }
    static inline std::mutex mutex;
    static inline std::vector<std::string> texts;
};

} // namespace jorvet::testing
