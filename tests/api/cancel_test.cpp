// A thread that is cancelled inside a C function ends, and leaves an instance that works.
#include <pthread.h>

#include "jorvet/api/jorvet_api.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {
namespace {

using CancelledThread = ConnectedBoard;

TEST_F(CancelledThread, EndsInsideARequest) {
    board->plan_next({true, {}, {}, {}, false, {}, {}, {}, {}}); // silent
    const auto request = [](void* instance) -> void* {
        return JVReadSnRq(static_cast<CJorvet*>(instance), 1, false), nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, request, &jorvet), 0);
    ASSERT_TRUE(eventually([&] { return board->requests().size() == 1; }));
    pthread_cancel(thread);
    void* result = nullptr;
    EXPECT_TRUE(pthread_join(thread, &result) == 0 && result == PTHREAD_CANCELED);
    EXPECT_EQ(JVReadSnRq(&jorvet, 1, false), JV_OK);
}

} // namespace
} // namespace jorvet::testing
