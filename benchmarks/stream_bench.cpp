// Streams of events over a link with a simulated device, against floors of what has to be done with the bytes: chunks
// appended to a guarded vector, taken, and turned into records at places known beforehand, which are queued one by one
// or 64 at a time.
#include <atomic>
#include <iterator>
#include <thread>

#include <benchmark/benchmark.h>
#include <boost/make_shared.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "jorvet/base/kinds.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/sim/bridge.h"
#include "jorvet/sim/usb/controller.h"

namespace {

using byte_vector = std::vector<unsigned char>;
using record = boost::shared_ptr<IProtocol::EVENT_FRAME>;

constexpr std::size_t header_size = 7;
constexpr std::size_t frames_in_chunk = 64;
constexpr std::size_t chunks = 1024; // in one iteration
constexpr std::size_t frames = chunks * frames_in_chunk;
constexpr std::size_t most_ahead = 32 * frames_in_chunk; // frames sent and not yet taken; the device queues 64 chunks

// Chunks of whole frames; after the last one the sequence bytes begin anew.
std::vector<byte_vector> make_chunks(std::size_t frame_size) {
    std::vector<byte_vector> all(256 / frames_in_chunk);
    unsigned char sequence = 0;
    for (byte_vector& chunk : all) {
        for (std::size_t i = 0; i < frames_in_chunk; ++i) {
            const std::size_t data = frame_size - header_size;
            const unsigned char header[header_size] = {
                0x40, 2, sequence++, 0xA0, 0, static_cast<unsigned char>(data >> 8), static_cast<unsigned char>(data)};
            chunk.insert(chunk.end(), header, header + header_size);
            chunk.resize(chunk.size() + data, 0x5A);
        }
    }
    return all;
}

// Sends the chunks of one iteration, as fast as they are taken.
template <class Send>
void send_all(const std::vector<byte_vector>& all, const std::atomic<std::size_t>& taken, Send send) {
    for (std::size_t i = 0; i < chunks; ++i) {
        while (i * frames_in_chunk > taken + most_ahead)
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        send(all[i % all.size()]);
    }
}

// Runs one iteration: `send` on a thread of its own, `take` here until all frames came.
template <class Send, class Take>
void stream(benchmark::State& state, Send send, Take take) {
    const std::vector<byte_vector> all = make_chunks(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::atomic<std::size_t> taken{0};
        std::thread sender([&] { send_all(all, taken, send); });
        while (taken < frames)
            taken += take();
        sender.join();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(frames));
}

template <class Element>
struct guarded_vector {
    boost::mutex mutex;
    boost::condition_variable arrived;
    std::vector<Element> elements;

    template <class Append>
    void add(Append append) {
        {
            const boost::unique_lock<boost::mutex> lock(mutex);
            append(elements);
        }
        arrived.notify_one();
    }
    std::vector<Element> take() {
        std::vector<Element> taken;
        boost::unique_lock<boost::mutex> lock(mutex);
        if (elements.empty())
            arrived.wait_for(lock, boost::chrono::milliseconds(30));
        taken.swap(elements);
        return taken;
    }
};

void stream_floor(benchmark::State& state, std::size_t batch) {
    const auto frame_size = static_cast<std::size_t>(state.range(0));
    guarded_vector<unsigned char> received;
    guarded_vector<record> records;
    std::atomic<bool> stop{false};
    std::thread background([&] {
        std::vector<record> made;
        while (!stop) {
            const byte_vector bytes = received.take();
            for (std::size_t at = header_size; at < bytes.size(); at += frame_size) {
                made.push_back(boost::make_shared<IProtocol::EVENT_FRAME>());
                made.back()->data.assign(&bytes[at], &bytes[at] + frame_size - header_size);
                if (made.size() < batch && at + frame_size < bytes.size())
                    continue;
                records.add([&](std::vector<record>& all) {
                    all.insert(all.end(), std::make_move_iterator(made.begin()), std::make_move_iterator(made.end()));
                });
                made.clear();
            }
        }
    });
    stream(
        state,
        [&](const byte_vector& chunk) {
            received.add([&](byte_vector& bytes) { bytes.insert(bytes.end(), chunk.begin(), chunk.end()); });
        },
        [&] { return records.take().size(); });
    stop = true;
    background.join();
}

template <class Device>
void link_stream(benchmark::State& state, unsigned int kind) {
    const auto device = Device::plug_in();
    CJorvet instance(kind);
    const unsigned int status = instance.connect(0);
    instance.set_timeout_for_event(30);
    stream(
        state, [&](const byte_vector& chunk) { device->board().send_raw(chunk); },
        [&] {
            auto events = instance.read_event_frames();
            if (events.empty())
                instance.wait_for_event();
            return events.size();
        });
    if (status != 0 || instance.lost_events() != 0)
        state.SkipWithError("the stream was not whole");
    instance.disconnect();
    device->unplug();
}
void ftdi_stream(benchmark::State& state) {
    link_stream<jorvet::sim::simulated_bridge>(state, JV_KIND_FTDI);
}
void cypress_stream(benchmark::State& state) {
    link_stream<jorvet::sim::simulated_controller>(state, JV_KIND_CYPRESS);
}

BENCHMARK_CAPTURE(stream_floor, single, 1)->Arg(1024)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(cypress_stream)->Arg(1024)->Arg(27)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(stream_floor, batch, 64)->Arg(27)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ftdi_stream)->Arg(27)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
