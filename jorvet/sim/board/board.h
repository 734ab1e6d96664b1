// A simulated board: it takes request frames, keeps memory, identifiers, errors and a mode, answers with reply frames
// and sends event frames, and misbehaves when told to. It knows the device that it is part of as a `board_link` only.
//
// Its own behaviour:
//
//   request        parameters and data           answer (status 0xA000 where none is given)
//   read-memory    p1 p2 address (big-endian),   the bytes; 0x2001 beyond the end of memory
//                  p3 count
//   write-memory   p1 p2 address, data           none; 0x2001 beyond the end of memory
//   read-by-id     p1 p2 identifier, p3 unused   its bytes; 0x3001 for an unknown identifier
//   write-by-id    p1 p2 identifier, data        none; makes or replaces the identifier
//   exec-by-id     p1 p2 identifier, data        the data, byte order reversed; 0x3001 for an unknown identifier
//   read-sn        p1 unused                     the serial number, ASCII
//   read-last-sw   p1 unused                     the status word of the answer before (0xA000 at first), two bytes
//   read-error     p1 unused                     the error list, two bytes each, newest first; clears it
//   reset          p1 p2 unused                  none; afterwards mode 2, no errors, sequence 0
//   set-mode       p1 mode, p2 unused            none
//   get-mode       p1 unused                     one byte, the mode
//
// An unknown command is answered with 0xB000, a wrong CRC trailer with 0xB001; every answer's status other than 0xA000
// is added to the error list, which keeps the last 256. Bytes that start no request frame are counted and skipped. An
// answer carries a CRC when its request did. The data of a frame are cut after 65,535 bytes.
//
// Any thread may call anything. An answer or event without delay is sent on the calling thread, before the call
// returns; delayed ones are sent on a thread of the board's own, in the order of due times.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "jorvet/base/export.h"
#include "jorvet/sim/board/output.h"
#include "jorvet/sim/board/request.h"

namespace jorvet::sim {

// The device that the board is part of. Called on the thread that sends the bytes. During a call a link may query the
// board and pull the plug, but must not make the board send or receive: its output waits until the call returns.
class JV_SIM_API board_link {
  public:
    virtual ~board_link();
    virtual void to_host(const std::uint8_t* bytes, std::size_t count) = 0;
    virtual void unplug() = 0;
};

class JV_SIM_API simulated_board {
  public:
    explicit simulated_board(std::string serial_number = "JV-0001");
    ~simulated_board(); // ends delayed output and waits for its thread, unless it runs there
    simulated_board(const simulated_board&) = delete;
    simulated_board& operator=(const simulated_board&) = delete;

    // The link's side. `attach_link` returns once no call into the previous link is in progress on another thread.
    void attach_link(board_link* link);
    void from_host(const std::uint8_t* bytes, std::size_t count); // any piece of the byte stream

    // How later answers are changed: `plan_next` queues a plan for one answer each; `plan_all` holds for every answer
    // that has none of its own.
    void plan_next(reply_plan plan);
    void plan_all(reply_plan plan);

    // Sends an event; `lose_events` skips that many sequence numbers before the next one. `start_events` sends
    // `event` every `period`, in place of what was started before, until `stop_events`, which returns once none is
    // being sent. An event that is late by a whole period is left out; a period of 0 starts nothing.
    void send_event(const board_event& event, const output_pacing& pacing = {});
    void lose_events(unsigned count);
    void start_events(std::chrono::microseconds period, const board_event& event);
    void stop_events();
    // Sends bytes as they are: garbage, half a frame, several frames in one piece.
    void send_raw(const byte_vector& bytes, const output_pacing& pacing = {});
    // Pulls the plug `delay` from now; at once, on the calling thread, with 0.
    void unplug(std::chrono::milliseconds delay = std::chrono::milliseconds{0});

    // The board's state. Memory is 65,536 bytes, initially 0; bytes beyond its end are dropped.
    void set_memory(std::size_t address, const byte_vector& bytes);
    byte_vector memory(std::size_t address, std::size_t count) const;
    void set_identifier(std::uint16_t identifier, const byte_vector& bytes); // 0x0001 holds "jorvet" at first
    std::optional<byte_vector> identifier(std::uint16_t identifier) const;
    void add_error(std::uint16_t status);
    std::uint8_t mode() const; // 2 at first

    // What was received so far: the requests understood (the last 1,024), and the number of bytes that belonged to
    // none.
    std::vector<board_request> requests() const;
    std::size_t stray_bytes() const;

  private:
    class impl;
    std::shared_ptr<impl> impl_; // shared with delayed output, which may outlive the board by one step
};

} // namespace jorvet::sim
