// The board alone, behind a link that records.
#include <gtest/gtest.h>

#include "tests/sim/recording_link.h"

namespace jorvet::sim {
namespace {

using std::chrono::milliseconds;

const std::string get_mode = "90320000000000";
const std::string answer = "80A000000102"; // to get_mode

output_pacing paced(int delay, std::size_t fragment, int gap) {
    return {milliseconds(delay), fragment, milliseconds(gap)};
}

class BoardTest : public ::testing::Test {
  protected:
    BoardTest() { board.attach_link(&link); }
    void send(const std::string& bytes) { board.from_host(from_hex(bytes).data(), from_hex(bytes).size()); }

    RecordingLink link;
    simulated_board board{"SN7"};
};

TEST_F(BoardTest, AnAnswerEndsWhereItsPlanPullsThePlugAndTheNextOneIsAsUsual) {
    const struct {
        void (*change)(reply_plan& plan);
        Pieces pieces;
    } table[] = {
        {[](reply_plan& p) { p.unplug_after = 0; }, {"unplug"}},
        {[](reply_plan& p) { p.unplug_after = 3, p.stray_before = {0x11}; }, {"1180A000", "unplug"}},
        {[](reply_plan& p) { p.unplug_after = 3, p.pacing = paced(0, 2, 1); }, {"80A0", "00", "unplug"}},
        {[](reply_plan& p) { p.unplug_after = 6, p.stray_after = {0xFF}; }, {answer, "unplug"}},
        {[](reply_plan& p) { p.unplug_after = 7; }, {answer}},
    };
    reply_plan usual;
    usual.status = 2;
    board.plan_all(usual);
    for (const auto& row : table) {
        reply_plan plan;
        row.change(plan);
        board.plan_next(plan);
        send(get_mode);
        EXPECT_EQ(link.take(row.pieces.size()), row.pieces) << "row " << &row - table;
        send(get_mode);
        EXPECT_EQ(link.take(1), Pieces{"800002000102"});
    }
}

TEST_F(BoardTest, EventsAreInSequenceAsTheyLeaveButForLostOnes) {
    board.send_event({6, 0xA000, {}, false}, {milliseconds(100)});
    board.send_event({5, 0x0102, {9}, true});
    EXPECT_EQ(link.take(2), (Pieces{"41050001020001091CBB", "400601A0000000"}));
    board.lose_events(253);
    for (int i = 0; i < 3; ++i)
        board.send_event({});
    EXPECT_EQ(link.take(3), (Pieces{"4001FFA0000000", "400100A0000000", "400101A0000000"}));
    send("90300000000000"); // reset
    board.send_event({});
    EXPECT_EQ(link.take(2), (Pieces{"80A0000000", "400100A0000000"}));
}

} // namespace
} // namespace jorvet::sim
