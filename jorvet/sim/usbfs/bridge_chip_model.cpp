// The chip's two directions, each with a thread: the bridge's write blocks, and its latency timer runs.
#include "jorvet/sim/usbfs/bridge_chip_model.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace jorvet::sim {

namespace {

using ports::port_status;

constexpr std::size_t status_size = 2;
constexpr std::uint8_t modem_status = 0x01, line_status = 0x60; // as an idle chip sends them
constexpr unsigned write_step_ms = 5;                           // how long an abort of a blocked write may take

enum : std::uint8_t {
    request_reset = 0,
    request_modem = 1,
    request_flow,
    request_baud,
    request_format,
    request_latency = 9
};

void end(const ports::usb_completion& done, ports::usb_end how, std::size_t count = 0,
         const std::uint8_t* data = nullptr) {
    ports::usb_result result;
    result.end = how;
    result.count = count;
    result.data = data;
    done(result);
}

// The rate that a divisor of a high-speed chip is meant to make: the usual one next to it, which it never makes
// exactly.
std::uint32_t rate_of(std::uint32_t code) {
    constexpr std::uint32_t eighths[] = {0, 4, 2, 1, 3, 5, 6, 7}; // by their codes
    const bool fast = (code >> 17 & 1) != 0;
    std::uint32_t divisor = (code & 0x3FFF) * 8 + eighths[code >> 14 & 7];
    if ((code & 0x1FFFF) < 2)
        divisor = (code & 1) != 0 ? 12 : 8;
    const std::uint32_t made = (fast ? 96000000 : 24000000) / divisor;
    for (const std::uint32_t usual : {300u, 1200u, 9600u, 19200u, 38400u, 57600u, 115200u, 230400u, 460800u, 921600u})
        if (made > usual - usual / 100 && made < usual + usual / 100)
            return usual;
    return made;
}

} // namespace

bridge_chip_model::bridge_chip_model(std::shared_ptr<simulated_bridge> bridge)
    : bridge_(std::move(bridge)), server_([this] { serve(); }), writer_([this] { write_all(); }) {}

bridge_chip_model::~bridge_chip_model() {
    {
        const lock held(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
    server_.join();
    writer_.join();
}

byte_vector bridge_chip_model::descriptors(std::uint32_t id) {
    const auto byte = [id](unsigned shift) { return static_cast<std::uint8_t>(id >> shift & 0xFF); };
    return {18, 1, 0,  2, 0, 0,    0,    64,   byte(16), byte(24), byte(0), byte(8), 0, 9, 1, 2, 3, 1, // the device
            9,  2, 32, 0, 1, 1,    0,    0x80, 50, // its configuration
            9,  4, 0,  0, 2, 0xFF, 0xFF, 0xFF, 2,  // its interface
            7,  5, in, 2, 0, 2,    0,    7,    5,        out,      2,       0,       2, 0};
}

void bridge_chip_model::claimed() {
    bridge_->open([this] {
        {
            const lock held(mutex_);
            ++news_;
        }
        changed_.notify_all();
    });
}

void bridge_chip_model::released() {
    close();
    bridge_->close();
}

void bridge_chip_model::close() {
    abort(in);
    abort(out);
}

void bridge_chip_model::control(const ports::usb_setup& setup, const std::uint8_t*, unsigned,
                                ports::usb_completion done) {
    if (!bridge_->plugged_in())
        return end(done, ports::usb_end::gone);
    end(done,
        setup.request_type == 0x40 && set(setup) == port_status::ok ? ports::usb_end::ok : ports::usb_end::stalled);
}

port_status bridge_chip_model::set(const ports::usb_setup& setup) {
    switch (setup.request) {
    case request_reset: // of the chip, or of what it holds in one direction: the first is the host's own
        return setup.value == 0 ? bridge_->reset() : bridge_->purge(setup.value == 2, setup.value == 1);
    case request_flow:
        return bridge_->set_flow_control(setup.index & 0xFF00u, static_cast<std::uint8_t>(setup.value & 0xFF),
                                         static_cast<std::uint8_t>(setup.value >> 8));
    case request_baud:
        return bridge_->set_baud_rate(rate_of(setup.value | (setup.index & 0xFF00u) << 8));
    case request_format:
        return bridge_->set_data_format(setup.value & 0xFFu, (setup.value >> 11 & 3) == 2 ? 2 : 1,
                                        setup.value >> 8 & 7);
    case request_latency: {
        const lock held(mutex_);
        latency_ms_ = setup.value;
        return bridge_->set_latency_ms(setup.value);
    }
    default:
        return port_status::bad_value;
    }
}

void bridge_chip_model::submit(const ports::usb_transfer& transfer, ports::usb_completion done) {
    if (!bridge_->plugged_in())
        return end(done, ports::usb_end::gone);
    {
        const lock held(mutex_);
        if (transfer.endpoint == in)
            in_.push_back({transfer.length, std::move(done)});
        else if (transfer.endpoint == out)
            out_.push_back({{transfer.data, transfer.data + transfer.length}, std::move(done)});
        else
            return end(done, ports::usb_end::no_endpoint);
    }
    changed_.notify_all();
}

port_status bridge_chip_model::abort(std::uint8_t endpoint) {
    lock held(mutex_);
    std::deque<inbound> reads;
    std::deque<outbound> writes;
    if (endpoint == in) {
        reads.swap(in_);
    } else if (endpoint == out) {
        aborting_out_ = true;
        changed_.wait(held, [this] { return !writing_; });
        aborting_out_ = false;
        writes.swap(out_);
    }
    held.unlock();
    for (const inbound& each : reads)
        end(each.done, ports::usb_end::cancelled);
    for (const outbound& each : writes)
        end(each.done, ports::usb_end::cancelled);
    return port_status::ok;
}

// Ends inbound transfers: at once with bytes, else when the latency timer has run out, or when the plug is pulled.
void bridge_chip_model::serve() {
    lock held(mutex_);
    while (!stopped_) {
        const unsigned seen = news_;
        const auto wanted = [&] { return stopped_ || news_ != seen; };
        serve_inbound(held, false);
        if (news_ == seen && !changed_.wait_for(held, std::chrono::milliseconds(latency_ms_), wanted))
            serve_inbound(held, true);
    }
}

void bridge_chip_model::serve_inbound(lock& held, bool idle) {
    while (!in_.empty()) {
        const std::size_t packets = std::max<std::size_t>(in_.front().room / packet_size, 1);
        byte_vector bytes(packets * (packet_size - status_size));
        std::size_t count = 0;
        const bool gone = bridge_->read(bytes.data(), bytes.size(), &count) == port_status::gone;
        if (!gone && count == 0 && !idle)
            return;
        idle = false;
        const inbound first = std::move(in_.front());
        in_.pop_front();
        held.unlock();
        byte_vector packed;
        for (std::size_t at = 0; at == 0 || at < count; at += packet_size - status_size) {
            packed.insert(packed.end(), {modem_status, line_status});
            const std::size_t next = std::min(count, at + packet_size - status_size);
            packed.insert(packed.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                          bytes.begin() + static_cast<std::ptrdiff_t>(next));
        }
        if (gone)
            end(first.done, ports::usb_end::gone);
        else
            end(first.done, ports::usb_end::ok, packed.size(), packed.data());
        held.lock();
    }
}

void bridge_chip_model::write_all() {
    lock held(mutex_);
    for (;;) {
        changed_.wait(held, [this] { return stopped_ || (!out_.empty() && !aborting_out_); });
        if (stopped_)
            return;
        const outbound first = std::move(out_.front());
        out_.pop_front();
        writing_ = true;
        std::size_t total = 0;
        port_status status = port_status::ok;
        while (status == port_status::ok && total < first.bytes.size() && !aborting_out_ && !stopped_) {
            held.unlock();
            std::size_t written = 0;
            status = bridge_->write(first.bytes.data() + total, first.bytes.size() - total, write_step_ms, &written);
            total += written;
            held.lock();
        }
        const bool cut = total < first.bytes.size();
        held.unlock();
        end(first.done,
            status == port_status::gone ? ports::usb_end::gone
            : status != port_status::ok ? ports::usb_end::failed
            : cut                       ? ports::usb_end::cancelled
                                        : ports::usb_end::ok,
            total);
        held.lock();
        writing_ = false;
        changed_.notify_all();
    }
}

port_status bridge_chip_model::select_alternate(std::uint8_t setting) {
    return setting == 0 ? port_status::ok : port_status::bad_value;
}

port_status bridge_chip_model::alternate(std::uint8_t* setting) {
    *setting = 0;
    return port_status::ok;
}

port_status bridge_chip_model::speed(ports::usb_speed* speed) {
    *speed = ports::usb_speed::high;
    return port_status::ok;
}

} // namespace jorvet::sim
