// The receive engine and the CRC against floors measured in the same run. Streams are prepared outside the timed part.
#include <chrono>
#include <functional>
#include <iterator>

#include <benchmark/benchmark.h>
#include <boost/crc.hpp>
#include <boost/make_shared.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "jorvet/base/kinds.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/core/receive_engine.h"
#include "jorvet/core/receiver.h"
#include "jorvet/protocol/crc.h"

namespace {

using namespace jorvet::core;
using byte_vector = std::vector<unsigned char>;

constexpr std::size_t delivery = 65536; // bytes: the most that a link hands over at once

// malloc and locks are cheaper in a process that has one thread, which the library's never has.
struct idle_thread {
    boost::mutex mutex;
    boost::condition_variable never;
    boost::thread thread{[this] {
        boost::unique_lock<boost::mutex> lock(mutex);
        for (;;)
            never.wait(lock);
    }};
    ~idle_thread() {
        thread.interrupt();
        thread.join();
    }
} const idle;

// What the two kinds of frames differ in here.
struct events {
    using record = IProtocol::EVENT_FRAME;
    static constexpr std::size_t header_size = 7;
    static constexpr bool batched = true;
    static auto take_all(CJorvet& instance) { return instance.read_event_frames(); }
};
struct replies {
    using record = IProtocol::REPLY_FRAME;
    static constexpr std::size_t header_size = 5;
    static constexpr bool batched = false;
    static auto take_all(CJorvet& instance) { return instance.read_reply_frames(); }
};

// Events repeat their sequence byte, so that none is missing when the packet comes again.
template <typename Kind>
byte_vector frames_of(std::size_t payload, std::size_t count) {
    byte_vector stream;
    for (std::size_t i = 0; i < count; ++i) {
        if (Kind::header_size == 7)
            stream.insert(stream.end(), {0x40, 2, 0});
        else
            stream.push_back(0x80);
        stream.insert(stream.end(),
                      {0xA0, 0, static_cast<unsigned char>(payload >> 8), static_cast<unsigned char>(payload)});
        stream.resize(stream.size() + payload, 0x5A);
    }
    return stream;
}

// As many frames as fit into one delivery.
template <typename Kind>
std::size_t frames_in_delivery(std::size_t payload) {
    return delivery / (Kind::header_size + payload);
}

// A queue as the instance has it.
template <typename Record>
struct record_queue {
    std::vector<boost::shared_ptr<Record>> frames;
    boost::mutex mutex;
    boost::condition_variable arrived;
    bool ready = false;

    template <typename Append>
    void add(Append append) {
        {
            const boost::unique_lock<boost::mutex> lock(mutex);
            append(frames);
            ready = true;
        }
        arrived.notify_one();
    }
    auto take_all() {
        std::vector<boost::shared_ptr<Record>> taken;
        const boost::unique_lock<boost::mutex> lock(mutex);
        taken.swap(frames);
        return taken;
    }
};

struct counting_sink final : receive_sink {
    std::size_t frames = 0, bytes = 0;
    void reply(reply_view) override {}
    void event(event_view frame, unsigned) override {
        ++frames;
        bytes += frame.length();
    }
    void context_lost(const context_loss&) override {}
    bool wants_reports() const override { return false; }
};

// For callgrind, which counts the instructions inside this function.
extern "C" [[gnu::noinline]] void measured_part(const std::function<void()>& work) {
    work();
    benchmark::ClobberMemory();
}

constexpr int warm_up = 4; // packets, until every buffer has its size

// Times `work` on one packet after the other, each with the bytes of `stream`; `rest` follows untimed. `work` may put
// another buffer in the place of its packet. An iteration's time is that of all frames.
template <typename Work, typename Rest>
void time_packets(benchmark::State& state, const byte_vector& stream, std::size_t frames, Work work, Rest rest) {
    byte_vector packet;
    const auto once = [&](auto measure) {
        packet.assign(stream.begin(), stream.end());
        const std::function<void()> whole = [&] { work(packet); };
        const auto begin = std::chrono::steady_clock::now();
        measure(whole);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        rest();
        return took.count();
    };
    for (int i = 0; i < warm_up; ++i)
        once([](const auto& whole) { whole(); });
    for (auto _ : state)
        state.SetIterationTime(once(measured_part));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(frames));
    state.counters["frames"] = static_cast<double>(frames);
}

// The floor: what has to be done for each frame, its place known beforehand. A lock and a notification for each reply,
// and for 64 events.
template <typename Kind>
void floor_of(benchmark::State& state) {
    constexpr std::size_t batch = 64;
    const auto payload = static_cast<std::size_t>(state.range(0));
    const std::size_t frames = frames_in_delivery<Kind>(payload);
    record_queue<typename Kind::record> queue;
    std::vector<boost::shared_ptr<typename Kind::record>> made;
    made.reserve(batch);
    const auto work = [&](const byte_vector& packet) {
        const unsigned char* data = packet.data() + Kind::header_size;
        for (std::size_t frame = 0; frame < frames; ++frame, data += payload + Kind::header_size) {
            auto record = boost::make_shared<typename Kind::record>();
            record->data.assign(data, data + payload);
            if constexpr (!Kind::batched) {
                queue.add([&](auto& all) { all.push_back(std::move(record)); });
                continue;
            }
            made.push_back(std::move(record));
            if (made.size() < batch && frame + 1 < frames)
                continue;
            queue.add([&](auto& all) {
                all.insert(all.end(), std::make_move_iterator(made.begin()), std::make_move_iterator(made.end()));
            });
            made.clear();
        }
    };
    time_packets(state, frames_of<Kind>(payload, frames), frames, work, [&] { queue.take_all(); });
}

// The engine and the records of an instance, which is not connected.
template <typename Kind>
void engine(benchmark::State& state) {
    const auto payload = static_cast<std::size_t>(state.range(0));
    const std::size_t frames = frames_in_delivery<Kind>(payload);
    CJorvet instance(JV_KIND_FTDI);
    receiver sink(instance);
    receive_engine engine(sink);
    std::size_t taken = 0;
    time_packets(
        state, frames_of<Kind>(payload, frames), frames, [&](byte_vector& packet) { engine.take(packet); },
        [&] { taken = Kind::take_all(instance).size(); });
    if (taken != frames)
        state.SkipWithError("frames were lost");
}

void parse(benchmark::State& state, std::size_t frames) {
    counting_sink sink;
    receive_engine receiver(sink);
    time_packets(
        state, frames_of<events>(static_cast<std::size_t>(state.range(0)), frames), frames,
        [&](byte_vector& packet) { receiver.take(packet); }, [] {});
    benchmark::DoNotOptimize(sink.bytes);
}

void parse_only(benchmark::State& state) {
    parse(state, frames_in_delivery<events>(static_cast<std::size_t>(state.range(0))));
}

// The same few frames a packet whatever they carry, so that payloads can be compared.
void parse_few(benchmark::State& state) {
    parse(state, frames_in_delivery<events>(16384));
}

// One frame, arriving in packets of 64 bytes: time for the whole frame.
void cut_frame(benchmark::State& state) {
    const byte_vector stream = frames_of<events>(static_cast<std::size_t>(state.range(0)) - events::header_size, 1);
    counting_sink sink;
    receive_engine receiver(sink);
    for (auto _ : state) {
        std::vector<byte_vector> packets;
        for (std::size_t at = 0; at < stream.size(); at += 64)
            packets.emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                 stream.begin() + static_cast<std::ptrdiff_t>(std::min(at + 64, stream.size())));
        const auto begin = std::chrono::steady_clock::now();
        for (byte_vector& packet : packets)
            receiver.take(packet);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    if (sink.frames != static_cast<std::size_t>(state.iterations()))
        state.SkipWithError("frames were lost");
}

const byte_vector crc_input(65536, 0xC3);

void crc(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(jorvet::protocol::crc_ccitt(crc_input.data(), crc_input.size()));
}

void crc_boost(benchmark::State& state) {
    for (auto _ : state) {
        boost::crc_optimal<16, 0x1021, 0xFFFF, 0, false, false> sum;
        sum.process_bytes(crc_input.data(), crc_input.size());
        benchmark::DoNotOptimize(sum.checksum());
    }
}

// Side by side, so that a slow stretch of the machine meets both.
const bool registered = [] {
    for (const int payload : {0, 8, 64, 1024, 16384}) {
        benchmark::RegisterBenchmark("batch_floor", floor_of<events>)->Arg(payload)->UseManualTime();
        benchmark::RegisterBenchmark("engine_events", engine<events>)->Arg(payload)->UseManualTime();
        benchmark::RegisterBenchmark("record_floor", floor_of<replies>)->Arg(payload)->UseManualTime();
        benchmark::RegisterBenchmark("engine_replies", engine<replies>)->Arg(payload)->UseManualTime();
    }
    return true;
}();
BENCHMARK(parse_only)->Arg(64)->UseManualTime();
BENCHMARK(parse_few)->Arg(0)->Arg(16384)->UseManualTime();
BENCHMARK(cut_frame)->Arg(4096)->Arg(65536)->UseManualTime();
BENCHMARK(crc);
BENCHMARK(crc_boost);

} // namespace
