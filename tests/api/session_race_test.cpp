// Any calls from three threads on one instance, while its board misbehaves; connecting and closing only while the
// others are out.
#include <optional>
#include <random>

#include "tests/support/process_resources.h"
#include "tests/support/session_records.h"

namespace jorvet::testing {
namespace {

struct dice {
    explicit dice(unsigned seed) : engine(seed) {}
    unsigned operator()() { return static_cast<unsigned>(engine()); }
    std::mt19937 engine;
};

int rounds() { // as many as asked for, for a long run
    const char* const asked_for = std::getenv("JORVET_TEST_RACE_ROUNDS");
    return asked_for != nullptr ? std::atoi(asked_for) : 12;
}

using call = void (*)(CJorvet&, dice&);
const call calls[] = {
    [](CJorvet& jv, dice& random) { jv_set_event_limit(&jv, 1 + random() % 50); },
    [](CJorvet& jv, dice& random) { jv_set_quiet_time(&jv, random() % 5); },
    [](CJorvet& jv, dice& random) { jv_set_recovery(&jv, random() % 2 * 256); },
    [](CJorvet& jv, dice&) { jv.get_last_event_frame(), jv.rq_get_mode(0, true), jv.read_event_frames(); },
    [](CJorvet& jv, dice&) { state_of(jv), counters_of(jv); },
    [](CJorvet& jv, dice& random) {
        alignas(8) unsigned char room[300];
        std::size_t count = 0;
        jv_next_events(&jv, room, random() % sizeof(room), &count, random() % 3);
    },
    [](CJorvet& jv, dice&) {
        int descriptor = 0;
        char text[40];
        auto device = sized<jv_device>();
        jv_event_fd(&jv, &descriptor), jv_last_detail(&jv, text, sizeof(text)), jv_device_of(&jv, &device);
    },
    [](CJorvet& jv, dice& random) {
        asked small(JV_READ_BY_ID, 3, random() % 8);
        if (small.of(jv) == JV_ERR_BUFFER_TOO_SMALL)
            jv_take_answer(&jv, small.answer.ticket, &small.answer);
    },
    [](CJorvet& jv, dice&) {
        jv_set_tap(
            &jv, [](void*, unsigned, const void*, std::size_t, std::int64_t, std::int64_t) {}, nullptr);
        jv_set_log(
            &jv, JV_LOG_NOTES, [](void*, unsigned, const char*) {}, nullptr);
    },
    [](CJorvet& jv, dice&) { asked(JV_READ_SN, 3).of(jv); },
    [](CJorvet& jv, dice&) { taken().from(jv, 2); },
};

void misbehave(plugged_board& board, dice& random) {
    board->start_events(std::chrono::microseconds(100 + random() % 900), {7, 0xA000, {1, 2, 3}, true});
    sim::reply_plan plan;
    plan.silent = random() % 4 == 0;
    plan.pacing.delay = milliseconds(random() % 5);
    plan.wrong_crc = plan.with_crc.emplace(random() % 2 == 0);
    board->plan_all(plan);
    if (random() % 2 == 0)
        board->send_raw({0x80, 0, 0, 0, 9, 1, 0x55, 0x55});
    if (random() % 3 == 0)
        board->unplug(milliseconds(random() % 40));
}

class SessionRace : public ::testing::TestWithParam<Behind> {};
INSTANTIATE_TEST_SUITE_P(, SessionRace, ::testing::Values(Behind::bridge, Behind::super_speed_controller));

TEST_P(SessionRace, HasNoOrderOfCallsThatHangsOrBreaks) {
    dice random(4711);
    std::thread([] {}).join(); // brings a sanitizer's own thread to life
    std::thread([] {}).join(); // a sanitizer starts a thread of its own beside the first one
    const DWORD handles = handles_in_process();
    const std::ptrdiff_t threads = threads_in_process();
    std::optional<CJorvet> instance(std::in_place, kind_of(GetParam()));
    CJorvet& jorvet = *instance;
    jorvet.set_timeout_for_reply(5);
    for (int round = 0; round < rounds(); ++round) {
        plugged_board board(GetParam());
        const auto choice = sized<jv_device_choice>();
        round % 2 == 0 ? jv_connect_to(&jorvet, &choice, 0) : jv_reconnect(&jorvet, 0);
        misbehave(board, random);
        std::atomic<bool> over{false};
        std::vector<std::thread> callers;
        for (int caller = 0; caller < 3; ++caller)
            callers.emplace_back([&, seed = random()] {
                dice own(seed);
                while (!over)
                    calls[own() % std::size(calls)](jorvet, own);
            });
        std::this_thread::sleep_for(milliseconds(20 + random() % 60));
        over = random() % 2 == 0;
        const steady::time_point start = steady::now();
        EXPECT_EQ(jv_cancel(&jorvet), JV_OK);
        EXPECT_LT(milliseconds_since(start), 8000);
        over = true;
        for (std::thread& caller : callers)
            caller.join();
        if (round % 3 == 0) {
            EXPECT_STRNE(jv_status_name(jorvet.disconnect()), "JV_UNKNOWN");
            EXPECT_FALSE(jorvet.is_open());
        }
    }
    instance.reset();
    EXPECT_EQ(handles_in_process(), handles);
    EXPECT_TRUE(eventually([&] { return threads_in_process() == threads; })) << "threads left";
}

} // namespace
} // namespace jorvet::testing
