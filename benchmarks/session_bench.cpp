// Whole requests over a simulated bridge without delay, against a floor of bare thread hand-overs.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <benchmark/benchmark.h>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "jorvet/api/jv_session.h"
#include "jorvet/base/kinds.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/sim/bridge.h"
#include "jorvet/sim/usb/controller.h"

namespace {

using clock_type = std::chrono::steady_clock;
using byte_vector = std::vector<unsigned char>;

// In a counter: the mean is at the mercy of the scheduler.
void leave_median(benchmark::State& state, std::vector<double>& times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    state.counters["median_seconds"] = *middle;
}

// Times each call of `once`.
template <typename Once>
void time_each(benchmark::State& state, Once once) {
    std::vector<double> times;
    for (auto _ : state) {
        const auto begin = clock_type::now();
        once();
        times.push_back(std::chrono::duration<double>(clock_type::now() - begin).count());
    }
    leave_median(state, times);
}

// One place to wait at, as the library has them: a mutex, a condition, a flag.
struct station {
    boost::mutex mutex;
    boost::condition_variable arrived;
    bool ready = false;

    void signal() {
        {
            const boost::unique_lock<boost::mutex> lock(mutex);
            ready = true;
        }
        arrived.notify_one();
    }
    void wait() {
        boost::unique_lock<boost::mutex> lock(mutex);
        while (!ready)
            arrived.wait_for(lock, boost::chrono::milliseconds(50));
        ready = false;
    }
};

// The caller wakes one thread, that one the next, and that one the caller: as listening and background thread do.
void handover_floor(benchmark::State& state) {
    station listening, background, caller;
    std::atomic<bool> stop{false};
    const auto pass_on = [&](station& from, station& to) {
        for (from.wait(); !stop; from.wait())
            to.signal();
    };
    boost::thread first([&] { pass_on(listening, background); });
    boost::thread second([&] { pass_on(background, caller); });
    time_each(state, [&] {
        listening.signal();
        caller.wait();
    });
    stop = true;
    listening.signal();
    background.signal();
    first.join();
    second.join();
}
BENCHMARK(handover_floor)->UseRealTime();

// A board and an instance connected to it; instances connect in the order in which they are made.
struct session {
    std::shared_ptr<jorvet::sim::simulated_bridge> bridge = jorvet::sim::simulated_bridge::plug_in();
    CJorvet instance{0};
    unsigned int status;

    explicit session(unsigned char index) : status(instance.connect(index)) {}
    ~session() {
        instance.disconnect();
        bridge->unplug();
    }
};

void round_trip(benchmark::State& state) {
    session link(0);
    unsigned int failures = link.status;
    time_each(state, [&] { failures |= link.instance.rq_read_sn(1, false); });
    if (failures != 0)
        state.SkipWithError("a request failed");
}
BENCHMARK(round_trip)->UseRealTime();

void session_request(benchmark::State& state) {
    session link(0);
    unsigned int failures = link.status;
    unsigned char data[16];
    jv_request_record request{};
    request.size = sizeof(request);
    request.kind = JV_READ_SN;
    request.timeout_ms = 1000;
    jv_answer answer{};
    answer.size = sizeof(answer);
    answer.data = data;
    answer.capacity = sizeof(data);
    time_each(state, [&] { failures |= jv_request(&link.instance, &request, &answer); });
    if (failures != 0)
        state.SkipWithError("a request failed");
}
BENCHMARK(session_request)->UseRealTime();

struct event_buffer {
    unsigned char data[64];
    jv_event event{};
    event_buffer() {
        event.size = sizeof(event);
        event.data = data;
        event.capacity = sizeof(data);
    }
};

byte_vector events_of_8_bytes(unsigned count) {
    byte_vector bytes;
    for (unsigned event = 0; event < count; ++event) {
        for (const unsigned byte : {0x40u, 7u, event & 0xFF, 0xA0u, 0u, 0u, 8u})
            bytes.push_back(static_cast<unsigned char>(byte));
        bytes.insert(bytes.end(), 8, 0x11);
    }
    return bytes;
}

// From the board's sending of `count` events at once to the return of the wait for the first of them, which has begun
// before.
void event_arrival(benchmark::State& state) {
    const auto count = static_cast<unsigned>(state.range(0));
    const byte_vector bytes = events_of_8_bytes(count);
    session link(0);
    event_buffer first;
    station sent;
    clock_type::time_point begin;
    std::atomic<bool> over{false};
    std::thread board([&] {
        for (sent.wait(); !over; sent.wait()) {
            std::this_thread::sleep_for(std::chrono::microseconds(200)); // until the other one waits
            begin = clock_type::now();
            link.bridge->board().send_raw(bytes);
        }
    });
    unsigned int failures = link.status;
    std::vector<double> times;
    for (auto _ : state) {
        sent.signal();
        failures |= jv_next_event(&link.instance, &first.event, 1000);
        times.push_back(std::chrono::duration<double>(clock_type::now() - begin).count());
        for (unsigned taken = 1; taken < count;)
            taken += static_cast<unsigned>(link.instance.read_event_frames().size());
    }
    over = true;
    sent.signal();
    board.join();
    leave_median(state, times);
    if (failures != 0)
        state.SkipWithError("an event did not arrive");
}
BENCHMARK(event_arrival)->Arg(1)->Arg(65536 / 15)->UseRealTime();

constexpr unsigned events_each = 1000;

void queue_events(session& link) {
    const unsigned before = link.instance.event_count();
    link.bridge->board().send_raw(events_of_8_bytes(events_each));
    while (link.instance.event_count() - before < events_each)
        std::this_thread::yield();
}

// What it takes to take an event of 8 bytes, of a thousand that are queued.
template <typename Take>
void take_events(benchmark::State& state, Take take) {
    session link(0);
    for (auto _ : state) {
        queue_events(link);
        const auto begin = clock_type::now();
        take(link.instance);
        state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - begin).count());
    }
    state.SetItemsProcessed(state.iterations() * events_each);
}
void take_frames(benchmark::State& state) {
    take_events(state, [](CJorvet& instance) { benchmark::DoNotOptimize(instance.read_event_frames().size()); });
}
void take_batch(benchmark::State& state) {
    alignas(8) static unsigned char room[events_each * 64];
    take_events(state, [](CJorvet& instance) {
        std::size_t count = 0;
        for (std::size_t taken = 0; taken < events_each; taken += count)
            jv_next_events(&instance, room, sizeof(room), &count, 1000);
    });
}
void take_one_by_one(benchmark::State& state) {
    take_events(state, [](CJorvet& instance) {
        event_buffer taken;
        for (unsigned event = 0; event < events_each; ++event)
            jv_next_event(&instance, &taken.event, 1000);
    });
}
BENCHMARK(take_frames)->UseManualTime();
BENCHMARK(take_batch)->UseManualTime();
BENCHMARK(take_one_by_one)->UseManualTime();

template <class Device>
void reconnect(benchmark::State& state, unsigned int kind) {
    const std::shared_ptr<Device> device = Device::plug_in();
    CJorvet instance(kind);
    unsigned int failures = 0;
    time_each(state, [&] { failures |= instance.connect(0) | instance.disconnect(); });
    device->unplug();
    if (failures != 0)
        state.SkipWithError("connecting or disconnecting failed");
}
void reconnect_ftdi(benchmark::State& state) {
    reconnect<jorvet::sim::simulated_bridge>(state, JV_KIND_FTDI);
}
void reconnect_cypress(benchmark::State& state) {
    reconnect<jorvet::sim::simulated_controller>(state, JV_KIND_CYPRESS);
}
BENCHMARK(reconnect_ftdi)->UseRealTime();
BENCHMARK(reconnect_cypress)->UseRealTime();

void many_instances(benchmark::State& state) {
    constexpr int instances = 64;
    constexpr int requests_each = 50;
    std::vector<std::unique_ptr<session>> sessions;
    for (int i = 0; i < instances; ++i)
        sessions.push_back(std::make_unique<session>(static_cast<unsigned char>(i)));
    std::atomic<unsigned int> failures{0};
    for (auto _ : state) {
        std::vector<std::thread> callers;
        for (auto& each : sessions)
            callers.emplace_back([&] {
                for (int i = 0; i < requests_each; ++i)
                    failures |= each->status | each->instance.rq_read_sn(1, false);
            });
        for (std::thread& caller : callers)
            caller.join();
    }
    state.SetItemsProcessed(state.iterations() * instances * requests_each);
    if (failures != 0)
        state.SkipWithError("a request failed");
}
BENCHMARK(many_instances)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
