// jvctl monitor: events as they come, lost ones counted, until its end or an interruption.
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <utility>

#include "commands.h"
#include "connection.h"

namespace jorvet::tool {

namespace {

using clock = std::chrono::steady_clock;

constexpr unsigned short look_around_ms = 50; // how long an interruption or a lost link may go unnoticed

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void interrupt(int) {
    interrupted = true;
}

class monitor {
  public:
    monitor(const settings& chosen, CJorvet* board) : chosen_(chosen), board_(board) {}

    // Returns how it ended: JV_OK, JV_ERR_EVENT_TIMEOUT for too few events in time, or the code of the lost link.
    unsigned int watch();
    outcome summary(unsigned int status) const;

  private:
    bool enough() const { return chosen_.event_count && shown_ >= *chosen_.event_count; }
    bool time_is_up() const { return chosen_.duration_ms && elapsed_ms() >= *chosen_.duration_ms; }
    unsigned long elapsed_ms() const;
    unsigned short next_wait_ms() const;
    void show_new();
    void show(const IProtocol::EVENT_FRAME& frame);
    unsigned int lost_before(unsigned char sequence);
    std::string as_json(const IProtocol::EVENT_FRAME& frame, unsigned int lost) const;
    std::string as_text(const IProtocol::EVENT_FRAME& frame, unsigned int lost) const;

    const settings& chosen_;
    CJorvet* const board_;
    const clock::time_point start_ = clock::now();
    unsigned long shown_ = 0;
    unsigned char last_sequence_ = 0;
};

unsigned long monitor::elapsed_ms() const {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - start_);
    return static_cast<unsigned long>(elapsed.count());
}

unsigned short monitor::next_wait_ms() const {
    const unsigned long elapsed = elapsed_ms();
    if (!chosen_.duration_ms || *chosen_.duration_ms >= elapsed + look_around_ms)
        return look_around_ms;
    return static_cast<unsigned short>(*chosen_.duration_ms > elapsed ? *chosen_.duration_ms - elapsed : 0);
}

unsigned int monitor::watch() {
    while (!enough() && !time_is_up() && !interrupted && std::cout) {
        board_->set_timeout_for_event(next_wait_ms());
        const bool open = JVIsOpen(board_);
        board_->wait_for_event();
        show_new();
        // Asked before the events were taken, so that those of a link now lost are still shown.
        if (!open && !enough())
            return JV_ERR_COM_NOT_OPEN;
    }
    const bool too_few = chosen_.event_count && !enough() && !interrupted && std::cout;
    return too_few ? JV_ERR_EVENT_TIMEOUT : JV_OK;
}

void monitor::show_new() {
    for (const auto& frame : board_->read_event_frames())
        if (!enough())
            show(*frame);
    std::cout << std::flush;
}

void monitor::show(const IProtocol::EVENT_FRAME& frame) {
    const unsigned int lost = lost_before(frame.seq);
    ++shown_;
    std::cout << (chosen_.json ? as_json(frame, lost) : as_text(frame, lost));
}

// Says where events are missing; the library, which goes by the same rule, has the number in all.
unsigned int monitor::lost_before(unsigned char sequence) {
    const unsigned char last = std::exchange(last_sequence_, sequence);
    return sequence == last ? 0 : static_cast<unsigned char>(sequence - last - 1);
}

std::string monitor::as_json(const IProtocol::EVENT_FRAME& frame, unsigned int lost) const {
    nlohmann::ordered_json event{{"time_ms", elapsed_ms()},
                                 {"id", frame.id},
                                 {"sequence", frame.seq},
                                 {"lost_before", lost},
                                 {"status_word", hex_number(frame.status, 4)},
                                 {"length", frame.length},
                                 {"data", hex(frame.data, "")}};
    if ((frame.type & 1) != 0)
        event["crc"] = hex_number(frame.crc, 4);
    return json_line({{"event", event}});
}

std::string monitor::as_text(const IProtocol::EVENT_FRAME& frame, unsigned int lost) const {
    const std::string indent(14, ' ');
    char head[80];
    std::snprintf(head, sizeof head, "%10.3f s  event 0x%02X  seq %3u  status 0x%04X  ",
                  static_cast<double>(elapsed_ms()) / 1000, frame.id, frame.seq, frame.status);
    return (lost > 0 ? indent + "-- " + counted(lost, "event") + " lost\n" : "") + head +
           counted(frame.length, "byte") + ((frame.type & 1) != 0 ? ", CRC " + hex_number(frame.crc, 4) : "") + '\n' +
           hex_dump(frame.data, indent);
}

outcome monitor::summary(unsigned int status) const {
    outcome result = concluded(chosen_.command, status);
    const unsigned long ms = elapsed_ms();
    const unsigned int lost = board_->lost_events();
    result.json["events"] = shown_;
    result.json["lost_events"] = lost;
    result.json["time_ms"] = ms;
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f s", static_cast<double>(ms) / 1000);
    result.text = counted(shown_, "event") + ", " + std::to_string(lost) + " lost, in " + seconds + '\n';
    return result;
}

} // namespace

outcome run_monitor(const settings& chosen, bench& boards) {
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    const instance board = make_instance(chosen);
    const unsigned int status = open_device(board.get(), chosen, boards);
    if (status != JV_OK)
        return concluded(chosen.command, status);
    monitor watched(chosen, board.get());
    return watched.summary(watched.watch());
}

} // namespace jorvet::tool
