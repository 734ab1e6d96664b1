// A thread that is cancelled inside a C function ends, and leaves an instance that works.
#include <pthread.h>

#include "jorvet/api/jorvet_api.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

struct CancelledThread : ConnectedBoard {
    // Cancels a thread that runs `call` after 50 ms, in its wait.
    void expect_cancelled(void* (*call)(void*)) {
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, call, &jorvet), 0);
        std::this_thread::sleep_for(milliseconds(50));
        pthread_cancel(thread);
        void* result = nullptr;
        EXPECT_TRUE(pthread_join(thread, &result) == 0 && result == PTHREAD_CANCELED);
    }
};

TEST_F(CancelledThread, EndsInsideARequest) {
    sim::reply_plan silent;
    silent.silent = true;
    board->plan_next(silent);
    expect_cancelled([](void* instance) -> void* {
        JVReadSnRq(static_cast<CJorvet*>(instance), 1, false);
        return nullptr;
    });
    EXPECT_EQ(JVReadSnRq(&jorvet, 1, false), JV_OK);
}

} // namespace
} // namespace jorvet::testing
