// Any calls from three threads on one instance, while its board misbehaves; connecting and closing only while the
// others are out.
#include <random>

#include "tests/support/session_records.h"

namespace jorvet::testing {
namespace {

struct dice {
    explicit dice(unsigned seed) : engine(seed) {}
    unsigned operator()() { return static_cast<unsigned>(engine()); }
    std::mt19937 engine;
};

int rounds() {
    const char* const asked_for = std::getenv("JORVET_TEST_RACE_ROUNDS");
    return asked_for != nullptr ? std::atoi(asked_for) : 12;
}

void call_anything(CJorvet& instance, dice& random) {
    alignas(8) unsigned char room[300];
    std::size_t count = 0;
    switch (random() % 16) {
    case 0:
        jv_set_event_limit(&instance, 1 + random() % 50);
        break;
    case 1:
        jv_set_quiet_time(&instance, random() % 5);
        break;
    case 2:
        jv_set_recovery(&instance, random() % 2 == 0 ? 256 : 0);
        break;
    case 3:
        jv_next_events(&instance, room, random() % sizeof(room), &count, random() % 3);
        break;
    case 4:
        instance.get_last_event_frame();
        break;
    case 5:
        instance.read_event_frames();
        break;
    case 6: {
        int descriptor = 0;
        jv_event_fd(&instance, &descriptor);
        break;
    }
    case 7:
        state_of(instance), counters_of(instance);
        break;
    case 8: {
        asked small(JV_READ_BY_ID, 3, random() % 8);
        if (small.of(instance) == JV_ERR_BUFFER_TOO_SMALL)
            jv_take_answer(&instance, small.answer.ticket, &small.answer);
        break;
    }
    case 9:
        instance.rq_get_mode(0, true);
        break;
    case 10:
        jv_set_tap(
            &instance, [](void*, unsigned, const void*, std::size_t, std::int64_t, std::int64_t) {}, nullptr);
        break;
    case 11:
        jv_set_log(
            &instance, JV_LOG_NOTES, [](void*, unsigned, const char*) {}, nullptr);
        break;
    case 12: {
        char text[40];
        auto device = sized<jv_device>();
        jv_last_detail(&instance, text, sizeof(text)), jv_device_of(&instance, &device);
        break;
    }
    default:
        random() % 2 == 0 ? asked(JV_READ_SN, 3).of(instance) : taken().from(instance, 2);
    }
}

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
    CJorvet jorvet(kind_of(GetParam()));
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
                    call_anything(jorvet, own);
            });
        std::this_thread::sleep_for(milliseconds(20 + random() % 60));
        over = random() % 2 == 0;
        const steady::time_point start = steady::now();
        EXPECT_EQ(jv_cancel(&jorvet), JV_OK);
        EXPECT_LT(milliseconds_since(start), 8000);
        over = true;
        for (std::thread& caller : callers)
            caller.join();
        if (round % 3 == 0)
            jorvet.disconnect();
    }
}

} // namespace
} // namespace jorvet::testing
