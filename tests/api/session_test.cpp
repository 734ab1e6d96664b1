// The session functions behind both links: the state, requests, events, cancelling, callbacks.
#include <future>
#include <numeric>

#include "jorvet/system/readiness.h"
#include "jorvet/system/win32.h"
#include "tests/support/session_records.h"

#ifndef _WIN32
#include <poll.h>
#endif

namespace jorvet::testing {
namespace {

using Session = EachLink;
INSTANTIATE_TEST_SUITE_P(, Session, ::testing::Values(Behind::bridge, Behind::high_speed_controller));

TEST_P(Session, TellsItsStateThroughConnectsAndLosses) {
    CJorvet other(kind_of(GetParam()));
    const auto expect = [&](jv_link_state state, std::uint64_t changes, const char* cause, unsigned int code) {
        EXPECT_TRUE(eventually([&] { return state_of(other).changes >= changes; }));
        const jv_state_record now = state_of(other);
        EXPECT_TRUE(now.state == state && now.changes == changes) << now.state << ' ' << now.changes;
        EXPECT_TRUE(std::string(now.cause).find(cause) != std::string::npos && std::strchr(now.cause, '#') == nullptr);
        EXPECT_EQ(now.monotonic_ns != 0 && now.utc_ns > 1700000000ll * 1000000000, changes > 0);
        EXPECT_EQ(taken().from(other, 0), code);
        EXPECT_EQ(asked(JV_READ_SN).of(other), code == JV_ERR_EVENT_TIMEOUT ? 0u : code);
    };
    jorvet.disconnect();
    expect(JV_LINK_CLOSED, 0, "", JV_ERR_COM_NOT_OPEN);
    EXPECT_NE(other.connect(7), JV_OK);
    EXPECT_EQ(other.connect(0), JV_OK);
    EXPECT_EQ(state_of(other).state, unsigned{JV_LINK_RECEIVING}) << "at once";
    expect(JV_LINK_RECEIVING, 1, "", JV_ERR_EVENT_TIMEOUT);
    EXPECT_EQ(other.disconnect(), JV_OK);
    expect(JV_LINK_CLOSED, 2, "", JV_ERR_COM_NOT_OPEN);
    EXPECT_EQ(other.connect(0), JV_OK);
    board.send("00 00");
    expect(JV_LINK_STREAM_LOST, 4, "no longer make sense", JV_ERR_CONTEXT_LOSS);
    EXPECT_EQ(other.connect(0), JV_OK);
    board.send("00 00");
    expect(JV_LINK_STREAM_LOST, 7, "", JV_ERR_CONTEXT_LOSS);
    board.device->unplug();
    expect(JV_LINK_DEVICE_LOST, 8, GetParam() == Behind::bridge ? "FT_IO_ERROR" : "0xc000009d", JV_ERR_DEVICE_LOST);
    char detail[10];
    EXPECT_EQ(jv_last_detail(&other, detail, sizeof(detail)), JV_OK);
    EXPECT_STREQ(detail, GetParam() == Behind::bridge ? "FT_GetSta" : "the bulk ");
    const plugged_board another(GetParam());
    EXPECT_EQ(other.connect(0), JV_OK);
    another->plan_next(reply(0xA000, "03"));
    EXPECT_EQ(other.rq_get_mode(0, false), JV_OK);
    EXPECT_EQ(state_of(other).state, unsigned{JV_LINK_DEAF});
    EXPECT_EQ(asked(JV_GET_MODE, 20).of(other), JV_ERR_TIMEOUT_GET_MODE);
    EXPECT_TRUE(other.connect(0) == JV_OK && state_of(other).state == JV_LINK_DEAF);
}

TEST(SessionState, IsThatOfALinkThatWasLostWhileItOpened) {
    CJorvet jorvet(0);
    {
        const plugged_board board;
        compat::faults::run_before("FT_GetDeviceInfoList", [&] { // when the link listens already
            board.device->unplug();
            EXPECT_TRUE(eventually([&] { return !jorvet.is_open(); }));
        });
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_EQ(state_of(jorvet).state, unsigned{JV_LINK_DEVICE_LOST});
    }
    const plugged_board another;
    EXPECT_EQ(jorvet.connect(0), JV_OK);
    EXPECT_EQ(state_of(jorvet).state, unsigned{JV_LINK_RECEIVING});
}

TEST_P(Session, IsOutOfMemoryWhereItsThreadFailed) {
    diagnostics::set_writer([](const std::string&) { throw std::bad_alloc(); });
    board.send("00 00");
    EXPECT_TRUE(eventually([&] { return state_of(jorvet).state == JV_LINK_OUT_OF_MEMORY; }));
    diagnostics::set_writer(nullptr);
    EXPECT_EQ(taken().from(jorvet), JV_ERR_NO_RESOURCES);
    std::this_thread::sleep_for(milliseconds(60)); // a bridge's link closes itself meanwhile
    EXPECT_EQ(state_of(jorvet).state, unsigned{JV_LINK_OUT_OF_MEMORY});
}

TEST_P(Session, RequestsBringBackTheWholeAnswer) {
    const struct {
        std::uint32_t kind;
        const char* data;
        unsigned status;
        void (*plan)(sim::reply_plan&);
        unsigned code, crc_verdict;
    } rows[] = {
        {JV_READ_MEMORY, "", 0xA000, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
        {JV_READ_BY_ID, "", 0x2001, [](sim::reply_plan& p) { p.with_crc = false; }, JV_ERR_BOARD_2001, JV_CRC_NONE},
        {JV_READ_SN, "", 0xA000, [](sim::reply_plan& p) { p.wrong_crc = true; }, 0, JV_CRC_WRONG},
        {JV_READ_LAST_SW, "", 0xA000, [](sim::reply_plan& p) { p.shifted_crc = true; }, 0, JV_CRC_SHIFTED},
        {JV_READ_ERROR, "", 0x1234, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
        {JV_WRITE_MEMORY, "ABCD", 0xA000, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
        {JV_WRITE_BY_ID, "01", 0xA000, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
        {JV_EXEC_BY_ID, "02", 0xB000, [](sim::reply_plan&) {}, JV_ERR_BOARD_B000, JV_CRC_RIGHT},
        {JV_RESET, "", 0xA000, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
        {JV_SET_MODE, "", 0xA000, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
        {JV_GET_MODE, "", 0xA000, [](sim::reply_plan&) {}, 0, JV_CRC_RIGHT},
    };
    for (const auto& row : rows) {
        sim::reply_plan plan = reply(row.status, "0A0B0C");
        row.plan(plan);
        board->plan_next(plan);
        const byte_vector sent = from_hex(row.data);
        asked rq(row.kind);
        rq.request.p[0] = 1, rq.request.p[1] = 2, rq.request.p[2] = 3;
        rq.request.with_crc = 1;
        rq.request.data = sent.data();
        rq.request.length = sent.size();
        EXPECT_EQ(rq.of(jorvet), row.code) << row.kind;
        EXPECT_TRUE(rq.answer.status_word == row.status && rq.answer.crc_verdict == row.crc_verdict) << row.kind;
        EXPECT_TRUE(rq.data() == (byte_vector{10, 11, 12}) && rq.answer.ticket == 0 && rq.answer.stale == 0);
        const sim::board_request seen = board->requests().back();
        EXPECT_TRUE(seen.command == row.kind && seen.data == sent && seen.with_crc);
        EXPECT_TRUE(seen.parameters[0] == 1 && seen.parameters[1] == 2 && seen.parameters[2] == 3);
    }
    const jv_counters counted = counters_of(jorvet);
    EXPECT_TRUE(counted.requests == 11 && counted.replies == 11 && counted.wrong_crcs == 1);
    EXPECT_TRUE(counted.bytes_sent == 11 * 9 + 4 && counted.bytes_received == 11 * 10 - 2);
}

TEST_P(Session, KeepsAnAnswerThatDidNotFitForItsTicket) {
    board->plan_next(reply(0x2001, "0102030405"));
    asked small(JV_READ_BY_ID, 10000, 4), more(JV_READ_BY_ID, 0, 5);
    EXPECT_EQ(small.of(jorvet), JV_ERR_BUFFER_TOO_SMALL);
    const std::uint64_t ticket = small.answer.ticket;
    EXPECT_TRUE(ticket != 0 && small.answer.length == 5 && small.bytes == byte_vector(4));
    EXPECT_EQ(jv_take_answer(&jorvet, ticket + 1, &more.answer), JV_ERR_NO_ANSWER);
    EXPECT_EQ(jv_take_answer(&jorvet, ticket, &small.answer), JV_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(jv_take_answer(&jorvet, ticket, &more.answer), JV_ERR_BOARD_2001);
    EXPECT_TRUE(more.data() == (byte_vector{1, 2, 3, 4, 5}) && more.answer.status_word == 0x2001);
    EXPECT_EQ(jv_take_answer(&jorvet, ticket, &more.answer), JV_ERR_NO_ANSWER);
    void (*const replacing[])(CJorvet&) = {[](CJorvet& jv) { EXPECT_EQ(asked(JV_READ_SN).of(jv), JV_OK); },
                                           [](CJorvet& jv) { EXPECT_EQ(jv.connect(0), JV_OK); }};
    for (const auto replace : replacing) {
        asked none(JV_READ_SN, 10000, 0);
        none.answer.data = nullptr;
        EXPECT_EQ(none.of(jorvet), JV_ERR_BUFFER_TOO_SMALL);
        replace(jorvet);
        EXPECT_EQ(jv_take_answer(&jorvet, none.answer.ticket, &more.answer), JV_ERR_NO_ANSWER);
    }
}

TEST_P(Session, WaitsForSilenceAfterATimeoutAndDropsWhatComesLate) {
    const struct {
        std::uint32_t quiet_ms;
        const char* answer;
        std::uint64_t stale;
    } rows[] = {{0, "01", 0}, {300, "02", 1}};
    for (const auto& row : rows) {
        ASSERT_EQ(jorvet.connect(0), JV_OK);
        EXPECT_EQ(jv_set_quiet_time(&jorvet, row.quiet_ms), JV_OK);
        board->plan_next(reply(0xA000, "01", milliseconds(150)));
        EXPECT_EQ(asked(JV_READ_BY_ID, 10).of(jorvet), JV_ERR_TIMEOUT_READ_BY_ID);
        board->plan_next(reply(0xA000, "02", milliseconds(200)));
        asked second(JV_READ_BY_ID);
        EXPECT_EQ(second.of(jorvet), JV_OK);
        EXPECT_TRUE(second.data() == from_hex(row.answer) && second.answer.stale == row.stale) << row.quiet_ms;
        EXPECT_EQ(counters_of(jorvet).stale_replies, row.stale);
        std::this_thread::sleep_for(milliseconds(row.quiet_ms == 0 ? 300 : 0));
    }
    jv_set_quiet_time(&jorvet, 0);
    board.send("80 A000 0000 80 A000 0000");
    EXPECT_TRUE(eventually([&] { return counters_of(jorvet).replies == 6; }));
    asked next(JV_READ_SN);
    EXPECT_TRUE(next.of(jorvet) == JV_OK && next.answer.stale == 2) << "what nobody took";
}

TEST_P(Session, EndsWaitsByTheirTimeouts) {
    sim::reply_plan silence;
    silence.silent = true;
    board->plan_all(silence);
    EXPECT_EQ(asked(JV_RESET, 0).of(jorvet), JV_ERR_TIMEOUT_RESET);
    EXPECT_EQ(counters_of(jorvet).request_timeouts, 1u);
    steady::time_point start = steady::now();
    EXPECT_EQ(taken().from(jorvet, 30), JV_ERR_EVENT_TIMEOUT);
    EXPECT_GE(milliseconds_since(start), 30);
    auto longer = std::async(std::launch::async, [&] { return asked(JV_READ_SN, 300).of(jorvet); });
    EXPECT_TRUE(eventually([&] { return board->requests().size() == 2; }));
    EXPECT_EQ(asked(JV_RESET, 20).of(jorvet), JV_ERR_BUSY);
    board->plan_next(reply(0xA000, "01"));
    start = steady::now();
    EXPECT_EQ(asked(JV_READ_SN, 5000).of(jorvet), JV_OK) << "in its turn";
    EXPECT_LT(milliseconds_since(start), 2500);
    EXPECT_EQ(longer.get(), JV_ERR_TIMEOUT_READ_SN);
    board->plan_next(reply(0xA000, "01", milliseconds(50)));
    board->send_event({}, {milliseconds(100)});
    EXPECT_EQ(asked(JV_READ_SN, JV_NO_LIMIT).of(jorvet), JV_OK);
    EXPECT_EQ(taken().from(jorvet, JV_NO_LIMIT), JV_OK);
}

TEST_P(Session, IsCancelledInEveryWaitUntilItIsResumed) {
    sim::reply_plan silence;
    silence.silent = true;
    board->plan_all(silence);
    const auto request = [&] { return asked(JV_READ_SN, JV_NO_LIMIT).of(jorvet); };
    const auto event = [&] { return taken().from(jorvet, JV_NO_LIMIT); };
    const auto connect = [&] {
        auto choice = sized<jv_device_choice>();
        choice.serial_number = "none such";
        return jv_connect_to(&jorvet, &choice, JV_NO_LIMIT);
    };
    const auto batch = [&] {
        alignas(8) char room[256];
        std::size_t count = 0;
        return jv_next_events(&jorvet, room, sizeof(room), &count, JV_NO_LIMIT);
    };
    const std::vector<std::vector<std::function<unsigned int()>>> rows = {
        {request}, {request, request}, {event, event, batch}, {request, event}, {request}, {connect}};
    for (const auto& row : rows) {
        const bool writing = &row == &rows[4];
        writing ? board.device->stall_writes_after(2) : board.device->accept_writes();
        const std::uint64_t before = counters_of(jorvet).requests;
        std::vector<std::future<unsigned int>> waits;
        for (const auto& wait : row)
            waits.push_back(std::async(std::launch::async, wait));
        eventually([&] { return counters_of(jorvet).requests > before; }, 30);
        std::this_thread::sleep_for(milliseconds(10)); // into their waits; any moment will do
        const auto aborts = [&] { return board.controller ? board.controller->state().aborts : 0; };
        const unsigned aborted = aborts();
        const steady::time_point start = steady::now();
        EXPECT_EQ(jv_cancel(&jorvet), JV_OK);
        EXPECT_LT(milliseconds_since(start), 2000) << "a write to a controller would take 5 s";
        EXPECT_TRUE(writing || aborts() == aborted) << "only a write";
        for (auto& wait : waits)
            EXPECT_EQ(wait.get(), JV_ERR_CANCELLED) << "row " << &row - rows.data();
        EXPECT_TRUE(request() == JV_ERR_CANCELLED && event() == JV_ERR_CANCELLED && batch() == JV_ERR_CANCELLED);
        EXPECT_EQ(jv_resume(&jorvet), JV_OK);
    }
    board.device->accept_writes();
    const auto choice = sized<jv_device_choice>();
    const std::function<unsigned int()> connects[] = {[&] { return jorvet.connect(0); },
                                                      [&] { return jv_connect_to(&jorvet, &choice, 0); },
                                                      [&] { return jv_reconnect(&jorvet, 0); }};
    for (const auto& resuming : connects) {
        EXPECT_EQ(jv_cancel(&jorvet), JV_OK);
        EXPECT_EQ(resuming(), JV_OK);
        EXPECT_EQ(taken().from(jorvet, 0), JV_ERR_EVENT_TIMEOUT);
    }
}

TEST_P(Session, EndsItsWaitsWhenTheDeviceGoes) {
    auto event = std::async(std::launch::async, [&] { return taken().from(jorvet, JV_NO_LIMIT); });
    board->plan_next({true, {}, {}, {}, false, {}, {}, {}, {}});
    board->unplug(milliseconds(50));
    EXPECT_EQ(asked(JV_READ_SN, JV_NO_LIMIT).of(jorvet), JV_ERR_DEVICE_LOST);
    EXPECT_EQ(event.get(), JV_ERR_DEVICE_LOST);
}

TEST_P(Session, HandsOutEventsOldestFirstWithAllThatIsKnownOfThem) {
    EXPECT_EQ(taken().from(jorvet, 0), JV_ERR_EVENT_TIMEOUT); // from now on arrivals are noted
    board.send("40 07 00 A000 0000 41 08 03 8001 0002 0A0B 1234");
    receive_reply();
    board.send("40 09 04 A000 0000");
    taken small(1), exact(2), one;
    ASSERT_EQ(one.from(jorvet), JV_OK);
    EXPECT_TRUE(one.event.type == 0x40 && one.event.id == 7 && one.event.seq == 0 && one.event.crc == 0xEEEE);
    EXPECT_TRUE(one.event.length == 0 && one.event.lost == 0 && one.event.status_word == 0xA000);
    const std::int64_t first = one.event.monotonic_ns;
    EXPECT_EQ(small.from(jorvet), JV_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(small.event.length, 2u);
    ASSERT_EQ(exact.from(jorvet), JV_OK);
    const jv_event& second = exact.event;
    EXPECT_TRUE(second.type == 0x41 && second.id == 8 && second.seq == 3 && second.crc == 0x1234);
    EXPECT_TRUE(second.length == 2 && exact.bytes == (byte_vector{10, 11}) && second.lost == 2);
    EXPECT_TRUE(second.status_word == 0x8001 && second.dropped == 0);
    EXPECT_TRUE(first > 0 && second.monotonic_ns == first && second.utc_ns > 0) << "of one packet";
    ASSERT_EQ(one.from(jorvet), JV_OK);
    EXPECT_TRUE(one.event.monotonic_ns > first && one.event.lost == 0 && one.event.id == 9);
    EXPECT_TRUE(counts(jorvet, [](const jv_counters& c) { return c.events == 3 && c.lost_events == 2; }));
}

TEST_P(Session, PacksManyEventsIntoOneBuffer) {
    state_of(jorvet); // from now on arrivals are noted
    board.send("40 01 00 A000 0000 40 01 02 A000 0003 010203 40 01 03 A000 0010 00010203040506070809101112131415");
    receive_reply();
    alignas(8) unsigned char room[200];
    std::size_t count = 0;
    EXPECT_EQ(jv_next_events(&jorvet, room, sizeof(jv_packed_event) - 1, &count, 0), JV_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, sizeof(jv_packed_event));
    ASSERT_EQ(jv_next_events(&jorvet, room, 48 + 56 + 56, &count, 0), JV_OK);
    ASSERT_EQ(count, 2u) << "the third needs 64 bytes";
    jv_packed_event heads[2];
    std::memcpy(&heads[0], room, sizeof(heads[0]));
    EXPECT_TRUE(heads[0].length == 0 && heads[0].record_size == 48 && heads[0].id == 1 && heads[0].type == 0x40);
    std::memcpy(&heads[1], room + heads[0].record_size, sizeof(heads[1]));
    EXPECT_TRUE(heads[1].length == 3 && heads[1].record_size == 56 && heads[1].seq == 2 && heads[1].lost == 1);
    EXPECT_TRUE(heads[1].crc == 0xEEEE && heads[1].status_word == 0xA000 && room[48 + sizeof(heads[1]) + 2] == 3);
    EXPECT_TRUE(heads[0].monotonic_ns > 0 && heads[1].utc_ns > 0 && heads[1].dropped == 0);
    ASSERT_EQ(jv_next_events(&jorvet, room, 64, &count, 0), JV_OK);
    EXPECT_TRUE(count == 1 && jv_next_events(&jorvet, room, sizeof(room), &count, 0) == JV_ERR_EVENT_TIMEOUT);
}

TEST_P(Session, KeepsNoMoreEventsThanItsLimitAndCountsTheRest) {
    EXPECT_EQ(jv_set_event_limit(&jorvet, 3), JV_OK);
    board.send("40 01 05 A000 0000 40 02 06 A000 0000 40 03 09 A000 0000 40 04 0A A000 0000 40 05 0B A000 0000");
    receive_reply();
    taken one;
    ASSERT_EQ(one.from(jorvet), JV_OK);
    EXPECT_TRUE(one.event.id == 3 && one.event.dropped == 2 && one.event.lost == 4 + 2);
    EXPECT_EQ(jv_set_event_limit(&jorvet, 1), JV_OK);
    jv_packed_event packed[2];
    std::size_t count = 0;
    ASSERT_EQ(jv_next_events(&jorvet, packed, sizeof(packed), &count, 0), JV_OK);
    EXPECT_TRUE(count == 1 && packed[0].id == 5 && packed[0].dropped == 1 && packed[0].lost == 0);
    EXPECT_TRUE(counts(jorvet, [](const jv_counters& c) { return c.dropped_events == 3 && c.events == 5; }));
    EXPECT_EQ(jv_set_event_limit(&jorvet, JV_NO_LIMIT), JV_OK);
    board.send("40 01 0C A000 0000 40 02 0D A000 0000 40 03 0E A000 0000");
    receive_reply();
    EXPECT_EQ(jorvet.read_event_frames().size(), 3u);
}

bool is_ready(CJorvet& instance) {
#ifdef _WIN32
    void* handle = nullptr;
    EXPECT_EQ(jv_event_handle(&instance, &handle), JV_OK);
    return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
#else
    pollfd entry{-1, POLLIN, 0};
    EXPECT_EQ(jv_event_fd(&instance, &entry.fd), JV_OK);
    return poll(&entry, 1, 0) == 1;
#endif
}

TEST_P(Session, IsReadyForAnEventLoopWhileThereIsSomethingToSee) {
    void (*const takes_all_of_two[])(CJorvet&) = {
        [](CJorvet& jv) { jv.read_event_frames(); },
        [](CJorvet& jv) { jv.purge_event_frame(); },
        [](CJorvet& jv) {
            jv.get_last_event_frame();
            EXPECT_TRUE(is_ready(jv));
            jv.get_last_event_frame();
        },
        [](CJorvet& jv) {
            taken().from(jv);
            EXPECT_TRUE(is_ready(jv));
            taken().from(jv);
        },
        [](CJorvet& jv) { taken().from(jv), jv.get_last_event_frame(); },
        [](CJorvet& jv) {
            alignas(8) char room[256];
            std::size_t count = 0;
            EXPECT_TRUE(jv_next_events(&jv, room, sizeof(room), &count, 0) == JV_OK && count == 2);
        },
        [](CJorvet& jv) {
            EXPECT_TRUE(jv.disconnect() == JV_OK && jv.connect(0) == JV_OK);
            state_of(jv);
        }};
    EXPECT_TRUE(is_ready(jorvet)) << "the connect has not been seen";
    state_of(jorvet);
    for (const auto take : takes_all_of_two) {
        EXPECT_FALSE(is_ready(jorvet));
        board.send("40 01 00 A000 0000 40 01 01 A000 0000");
        receive_reply();
        EXPECT_TRUE(is_ready(jorvet));
        take(jorvet);
        EXPECT_FALSE(is_ready(jorvet));
    }
    jorvet.disconnect();
    EXPECT_TRUE(is_ready(jorvet));
    state_of(jorvet);
    EXPECT_FALSE(is_ready(jorvet));
    int descriptor = 0;
    void* handle = nullptr;
    EXPECT_EQ(readiness::is_descriptor ? jv_event_handle(&jorvet, &handle) : jv_event_fd(&jorvet, &descriptor),
              JV_ERR_NOT_SUPPORTED);
}

struct told {
    CJorvet* jorvet;
    std::string text;
    std::string refusals; // of calls from inside a callback
};

void JV_CALL log_it(void* context, unsigned int level, const char* text) {
    auto& heard = *static_cast<told*>(context);
    heard.text += std::to_string(level) + std::string(text, std::strcspn(text, "\n")) + "; ";
    const unsigned int codes[] = {jv_set_log(heard.jorvet, 0, nullptr, nullptr),
                                  jv_set_tap(heard.jorvet, nullptr, nullptr),
                                  jv_cancel(heard.jorvet),
                                  taken().from(*heard.jorvet, 0),
                                  asked(JV_READ_SN, 0).of(*heard.jorvet),
                                  JVDisconnect(heard.jorvet),
                                  JVConnect(heard.jorvet, 0),
                                  jv_reconnect(heard.jorvet, 0)};
    JVCloseInstance(heard.jorvet); // does nothing
    for (const unsigned int code : codes)
        heard.refusals += code == JV_ERR_IN_CALLBACK ? 'x' : '.';
}

void JV_CALL tap_it(void* context, unsigned int direction, const void* bytes, std::size_t count, std::int64_t monotonic,
                    std::int64_t utc) {
    auto& heard = *static_cast<told*>(context);
    heard.text += direction == JV_TO_BOARD ? '>' : '<';
    for (std::size_t i = 0; i < count; ++i)
        heard.text += "0123456789abcdef"[static_cast<const unsigned char*>(bytes)[i] & 15];
    EXPECT_TRUE(monotonic > 0 && utc > 0);
}

TEST_P(Session, LogsToItsCallbackFromWhichItCannotBeEnded) {
    const char* const expected[] = {"", "1the stream is lost", "1Jorvet - Error", "2Jorvet - Warning", "3connected; "};
    for (const unsigned level : {0u, 1u, 2u, 3u}) {
        told heard{&jorvet, "", ""};
        EXPECT_EQ(jv_set_log(&jorvet, level, log_it, &heard), JV_OK);
        EXPECT_EQ(jorvet.connect(0), JV_OK);
        const std::uint64_t before = counters_of(jorvet).replies;
        board.send("80 A000 0000 80 A000 0000");
        EXPECT_TRUE(eventually([&] { return counters_of(jorvet).replies == before + 2; }));
        jorvet.get_last_reply_frame();
        board.send("00 00");
        EXPECT_TRUE(eventually([&] { return state_of(jorvet).state == JV_LINK_STREAM_LOST; }));
        EXPECT_EQ(jv_set_log(&jorvet, 0, nullptr, nullptr), JV_OK);
        for (unsigned i = 1; i < 5; ++i)
            EXPECT_EQ(heard.text.find(expected[i]) != std::string::npos, level >= (i == 1 ? 1 : i - 1)) << heard.text;
        EXPECT_EQ(heard.refusals.find('.'), std::string::npos) << heard.refusals;
    }
}

TEST_P(Session, ShowsItsTapWhatCrossesTheLink) {
    told heard{&jorvet, "", ""};
    EXPECT_EQ(jv_set_tap(&jorvet, tap_it, &heard), JV_OK);
    EXPECT_TRUE(jorvet.rq_get_mode(0, false) == JV_OK && asked(JV_GET_MODE).of(jorvet) == JV_OK);
    EXPECT_EQ(jv_set_tap(&jorvet, nullptr, nullptr), JV_OK);
    EXPECT_EQ(jorvet.rq_get_mode(0, false), JV_OK);
    EXPECT_EQ(heard.text, ">0200000<000012>0200000<000012");
}

TEST_P(Session, RefusesArgumentsThatCannotBe) {
    asked no_kind(0x99), no_data(JV_WRITE_BY_ID), too_long(JV_WRITE_BY_ID), no_room(JV_READ_SN), old(JV_READ_SN);
    no_data.request.length = 1;
    too_long.request.data = too_long.bytes.data(), too_long.request.length = 65536;
    no_room.answer.data = nullptr;
    old.request.size -= 4;
    auto state = sized<jv_state_record>();
    state.size = 4;
    alignas(8) char room[16];
    std::size_t count = 0;
    for (const unsigned int status : {no_kind.of(jorvet),
                                      no_data.of(jorvet),
                                      too_long.of(jorvet),
                                      no_room.of(jorvet),
                                      old.of(jorvet),
                                      jv_state(&jorvet, &state),
                                      jv_state(&jorvet, nullptr),
                                      jv_next_event(&jorvet, nullptr, 0),
                                      jv_next_events(&jorvet, room + 1, 8, &count, 0),
                                      jv_next_events(&jorvet, nullptr, 8, &count, 0),
                                      jv_set_event_limit(&jorvet, 0),
                                      jv_set_log(&jorvet, 4, log_it, nullptr),
                                      jv_set_recovery(&jorvet, 65536),
                                      jv_last_detail(&jorvet, room, 0),
                                      jv_connect_to(&jorvet, nullptr, 0),
                                      jv_device_of(&jorvet, nullptr),
                                      jv_event_fd(&jorvet, nullptr),
                                      jv_count(&jorvet, nullptr),
                                      jv_list(7, nullptr, 0, &count),
                                      jv_list(JV_KIND_NONE, nullptr, 1, &count),
                                      jv_list(JV_KIND_NONE, nullptr, 0, nullptr)})
        EXPECT_EQ(status, JV_ERR_BAD_ARGUMENT);
    CJorvet linkless(7);
    for (CJorvet* const instance : {static_cast<CJorvet*>(nullptr), &linkless})
        EXPECT_TRUE(jv_cancel(instance) == JV_ERR_NO_COM && jv_resume(instance) == JV_ERR_NO_COM);
    EXPECT_EQ(board->requests().size(), 0u) << "something was sent";
}

} // namespace
} // namespace jorvet::testing
