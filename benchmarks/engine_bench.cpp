// The receive engine and the CRC against floors measured in the same run. Streams are prepared outside the timed part.
#include <chrono>

#include <benchmark/benchmark.h>
#include <boost/crc.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "jorvet/core/frame_records.h"
#include "jorvet/core/receive_engine.h"
#include "jorvet/protocol/crc.h"

namespace {

using namespace jorvet::core;
using byte_vector = std::vector<unsigned char>;

constexpr std::size_t header_size = 7;
constexpr std::size_t delivery = 65536; // bytes: the most that a link hands over at once

// As many frames as fit into one delivery.
std::size_t frames_in_delivery(std::size_t payload) {
    return delivery / (header_size + payload);
}

byte_vector event_frames(std::size_t payload, std::size_t count) {
    byte_vector stream;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char header[header_size] = {0x40,
                                                   2,
                                                   static_cast<unsigned char>(i),
                                                   0xA0,
                                                   0,
                                                   static_cast<unsigned char>(payload >> 8),
                                                   static_cast<unsigned char>(payload)};
        stream.insert(stream.end(), header, header + header_size);
        stream.resize(stream.size() + payload, 0x5A);
    }
    return stream;
}

// A queue as the instance has it.
struct event_queue {
    std::vector<boost::shared_ptr<IProtocol::EVENT_FRAME>> frames;
    boost::mutex mutex;
    boost::condition_variable arrived;
    bool ready = false;

    void push(boost::shared_ptr<IProtocol::EVENT_FRAME> record) {
        {
            const boost::unique_lock<boost::mutex> lock(mutex);
            frames.push_back(std::move(record));
            ready = true;
        }
        arrived.notify_one();
    }
};

struct queueing_sink final : receive_sink {
    event_queue queue;
    void reply(reply_view) override {}
    void event(event_view frame, unsigned) override { queue.push(make_event(frame)); }
    void context_lost(const context_loss&) override {}
    bool wants_reports() const override { return false; }
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

// Runs `work` on a fresh copy of `stream` per iteration and times it alone; an iteration's time is that of all frames.
template <typename Work, typename Rest>
void time_on_copies(benchmark::State& state, std::size_t frames, Work work, Rest rest) {
    const byte_vector stream = event_frames(static_cast<std::size_t>(state.range(0)), frames);
    for (auto _ : state) {
        byte_vector packet;
        packet.reserve(delivery); // the same block whatever the frames carry: allocating is not what is compared
        packet.assign(stream.begin(), stream.end());
        const auto begin = std::chrono::steady_clock::now();
        work(packet);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        rest();
        state.SetIterationTime(took.count());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(frames));
}

// The floor: what has to be done for each frame, its place known beforehand.
void record_floor(benchmark::State& state) {
    const auto payload = static_cast<std::size_t>(state.range(0));
    event_queue queue;
    const auto work = [&](const byte_vector& packet) {
        for (std::size_t at = header_size; at <= packet.size(); at += payload + header_size) {
            auto record = boost::make_shared<IProtocol::EVENT_FRAME>();
            record->data.assign(packet.data() + at, packet.data() + at + payload);
            queue.push(std::move(record));
        }
    };
    time_on_copies(state, frames_in_delivery(payload), work, [&] { queue.frames.clear(); });
}

void engine(benchmark::State& state) {
    queueing_sink sink;
    receive_engine receiver(sink);
    const auto work = [&](byte_vector& packet) { receiver.take(std::move(packet)); };
    time_on_copies(state, frames_in_delivery(static_cast<std::size_t>(state.range(0))), work,
                   [&] { sink.queue.frames.clear(); });
}

void parse(benchmark::State& state, std::size_t frames) {
    counting_sink sink;
    receive_engine receiver(sink);
    const auto work = [&](byte_vector& packet) { receiver.take(std::move(packet)); };
    time_on_copies(state, frames, work, [] {});
    benchmark::DoNotOptimize(sink.bytes);
}

void parse_only(benchmark::State& state) {
    parse(state, frames_in_delivery(static_cast<std::size_t>(state.range(0))));
}

// The same few frames a packet whatever they carry, so that payloads can be compared.
void parse_few(benchmark::State& state) {
    parse(state, frames_in_delivery(16384));
}

// One frame, arriving in packets of 64 bytes: time for the whole frame.
void cut_frame(benchmark::State& state) {
    const byte_vector stream = event_frames(static_cast<std::size_t>(state.range(0)) - header_size, 1);
    counting_sink sink;
    receive_engine receiver(sink);
    for (auto _ : state) {
        std::vector<byte_vector> packets;
        for (std::size_t at = 0; at < stream.size(); at += 64)
            packets.emplace_back(stream.begin() + static_cast<std::ptrdiff_t>(at),
                                 stream.begin() + static_cast<std::ptrdiff_t>(std::min(at + 64, stream.size())));
        const auto begin = std::chrono::steady_clock::now();
        for (byte_vector& packet : packets)
            receiver.take(std::move(packet));
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
        benchmark::RegisterBenchmark("record_floor", record_floor)->Arg(payload)->UseManualTime();
        benchmark::RegisterBenchmark("engine", engine)->Arg(payload)->UseManualTime();
    }
    return true;
}();
BENCHMARK(parse_only)->Arg(64)->UseManualTime();
BENCHMARK(parse_few)->Arg(0)->Arg(16384)->UseManualTime();
BENCHMARK(cut_frame)->Arg(4096)->Arg(65536)->UseManualTime();
BENCHMARK(crc);
BENCHMARK(crc_boost);

} // namespace
