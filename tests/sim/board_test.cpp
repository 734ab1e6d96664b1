// The board alone, behind a link that records.
#include <gtest/gtest.h>

#include <future>

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

TEST_F(BoardTest, AnswersEachRequestByItself) {
    const struct {
        const char *request, *answer;
    } table[] = {
        {"90 20 001000 0003 0A0B0C", "80A0000000"},       // write-memory
        {"90 10 001103 0000", "80A00000030B0C00"},        // read-memory
        {"90 10 FFFF01 0000", "80A000000100"},            // its last byte
        {"90 10 FFFF02 0000", "8020010000"},              // beyond its end
        {"90 16 000000 0000", "80A00000022001"},          // read-last-sw
        {"90 20 FFFF00 0002 0102", "8020010000"},         // write-memory beyond the end
        {"90 11 000100 0000", "80A00000066A6F72766574"},  // read-by-id
        {"90 11 777700 0000", "8030010000"},              // of an unknown one
        {"90 21 777700 0002 ABCD", "80A0000000"},         // write-by-id
        {"90 11 777700 0000", "80A0000002ABCD"},          // makes it
        {"90 40 777700 0003 010203", "80A0000003030201"}, // exec-by-id
        {"90 40 888800 0001 01", "8030010000"},           // of an unknown one
        {"90 15 000000 0000", "80A0000003534E37"},        // read-sn
        {"90 99 000000 0000", "80B0000000"},              // unknown command
        {"91 32 000000 0000 1EE0", "81B00100005F6C"},     // wrong trailer
        {"90 17 000000 0000", "80A000000CB001B0003001300120012001"},
        {"90 31 050000 0000", "80A0000000"},            // set-mode
        {"91 32 000000 0000 1EE1", "81A000000105D660"}, // get-mode
        {"90 99 000000 0000", "80B0000000"},            //
        {"90 30 000000 0000", "80A0000000"},            // reset
        {"90 17 000000 0000", "80A0000000"},            // has emptied the error list
        {"90 32 000000 0000", "80A000000102"},          // and restored the mode
    };
    for (const auto& row : table) {
        send(row.request);
        EXPECT_EQ(link.take(1), Pieces{row.answer}) << row.request;
    }
}

TEST_F(BoardTest, AnAnswerEndsWhereItsPlanPullsThePlugAndTheNextOneIsAsUsual) {
    const struct {
        void (*change)(reply_plan& plan);
        Pieces pieces;
    } table[] = {
        {[](reply_plan& p) { p.pacing = paced(1, 3, 1); }, {"80A000", "000102"}},
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

TEST_F(BoardTest, PromptOutputOvertakesDelayedAndDelayedLeavesInOrderOfDueTime) {
    reply_plan late;
    late.status = 1;
    late.pacing = paced(200, 0, 0);
    board.plan_next(late);
    send(get_mode);
    board.send_event({7, 0xA000, {}, false}, {milliseconds(100)});
    board.unplug(milliseconds(300));
    send(get_mode);
    EXPECT_EQ(link.take(4), (Pieces{answer, "400700A0000000", "800001000102", "unplug"}));
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

TEST_F(BoardTest, DetachingTheLinkWaitsForTheCallUnderWay) {
    struct BlockingLink : RecordingLink {
        std::promise<void> inside, release;
        void to_host(const std::uint8_t*, std::size_t) override {
            inside.set_value();
            release.get_future().wait();
        }
    } blocking;
    board.attach_link(&blocking);
    board.send_event({}, {milliseconds(1)});
    blocking.inside.get_future().wait();
    auto detached = std::async(std::launch::async, [this] { board.attach_link(nullptr); });
    EXPECT_EQ(detached.wait_for(milliseconds(20)), std::future_status::timeout);
    blocking.release.set_value();
    EXPECT_EQ(detached.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

} // namespace
} // namespace jorvet::sim
