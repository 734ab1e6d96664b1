// CJorvet: the instance through which an application talks to one board. It owns the link, the background thread that
// receives, and the two queues of received frames. The C functions of jorvet/api/jorvet_api.h are thin wrappers around
// it.
//
// Statuses are the codes of jorvet/base/status.h, 0 for success. Threads: connect, disconnect and destruction must not
// overlap any other call on the instance; everything else may run on any thread, several at once.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "jorvet/base/export.h"
#include "jorvet/com/abstract_com.h"
#include "jorvet/protocol/frames.h"

namespace jorvet::protocol {
struct request;
}
namespace jorvet::com {
struct attached_device;
}
namespace jorvet::core {
class receiver;
class session;
} // namespace jorvet::core

class JV_API CJorvet {
  public:
    // An instance for one kind of link: 0 FTDI, 1 Cypress. Any other kind makes an instance without a link, which
    // connect refuses.
    explicit CJorvet(unsigned int kind);
    ~CJorvet(); // disconnects
    CJorvet(const CJorvet&) = delete;
    CJorvet& operator=(const CJorvet&) = delete;

    // Opens the device at place `index` of the link's own list and starts receiving; a connected instance is
    // disconnected first. JV_ERR_NO_COM without a link; otherwise what the link's load or open_by_index returns (a
    // device that opened, but could not be configured, stays open: disconnect closes it). Throws
    // boost::thread_resource_error when a thread or a kernel object cannot be created; the device stays open then, too.
    unsigned int connect(unsigned char index);
    // The same over a network. A connected instance is disconnected first, even though the answer is
    // JV_ERR_NOT_SUPPORTED with every link of this library.
    unsigned int connect(std::string& address, int port);
    // Closes the device, waits for the background thread and empties both queues; harmless when not connected. What the
    // link's close returns, or 0. JV_OK without a link. Blocks for at most about 0.1 s, plus the driver.
    unsigned int disconnect();
    // Whether the device is open; false without a link. Never blocks.
    bool is_open();
    // Discard what the device and driver received and nobody has read, and what waits to be sent: the link's own
    // result; JV_ERR_NO_COM without a link.
    unsigned int purge_rx();
    unsigned int purge_tx();
    // The link; empty without one.
    boost::shared_ptr<CAbstractCom> get_com();

    // Always empty: nothing sets bytes aside. Kept for programs that call it.
    std::vector<unsigned char> get_garbage();
    void purge_garbage();

    // How long a wait for a frame lasts: initially 1,000 ms for a reply and 500 ms for an event. A wait in progress
    // uses the new value when it starts again.
    void set_timeout_for_reply(unsigned short milliseconds);
    void set_timeout_for_event(unsigned short milliseconds);
    // Wait until a frame has been queued since the request was armed (a reply), or since the last such wait returned
    // (an event). 0; JV_ERR_REPLY_TIMEOUT or JV_ERR_EVENT_TIMEOUT; or JV_ERR_CONTEXT_LOSS when receiving stopped during
    // the wait and a frame had arrived. The frame stays queued. When another thread takes the frame first, the wait
    // starts again with the full time.
    unsigned int wait_for_reply();
    unsigned int wait_for_event();
    // Take the newest frame; a default record (all 0) when there is none, never an empty pointer.
    boost::shared_ptr<IProtocol::REPLY_FRAME> get_last_reply_frame();
    boost::shared_ptr<IProtocol::EVENT_FRAME> get_last_event_frame();
    // Take all frames, oldest first. Neither these nor the purges touch what a wait looks at.
    std::vector<boost::shared_ptr<IProtocol::REPLY_FRAME>> read_reply_frames();
    std::vector<boost::shared_ptr<IProtocol::EVENT_FRAME>> read_event_frames();
    void purge_reply_frame();
    void purge_event_frame();

    // Whether a reply's CRC is right, over its fields as the board counts them: of the status and the length, bits 4 to
    // 11 stand for the high byte. For a frame received with a CRC; `frame` must not be null.
    bool crc_calc(IProtocol::REPLY_FRAME* frame);
    // Fills the table of board status words, once. connect does it.
    void init_mapping_error();
    // The body of the background thread; connect starts it.
    void m_bkgd_thread_loop();

    // The requests: each sends one frame, waits for a reply, and returns 0, JV_ERR_BOARD_…, its own JV_ERR_TIMEOUT_…,
    // or what the link's write returned. One runs at a time; see jorvet_api.h for the arguments.
    unsigned int rq_read_memory(unsigned char p1, unsigned char p2, unsigned char p3, bool with_crc);
    unsigned int rq_read_by_id(unsigned char p1, unsigned char p2, unsigned char p3, unsigned short* out_length,
                               unsigned char* out_data, bool with_crc);
    unsigned int rq_read_sn(unsigned char p1, bool with_crc);
    unsigned int rq_read_last_sw(unsigned char p1, bool with_crc);
    unsigned int rq_read_error(unsigned char p1, bool with_crc);
    unsigned int rq_write_memory(unsigned char p1, unsigned char p2, unsigned short length, unsigned char* data,
                                 bool with_crc);
    unsigned int rq_write_by_id(unsigned char p1, unsigned char p2, unsigned short length, unsigned char* data,
                                bool with_crc);
    unsigned int rq_exec_by_id(unsigned char p1, unsigned char p2, unsigned short length, unsigned char* data,
                               unsigned short* out_length, unsigned char* out_data, bool with_crc);
    unsigned int rq_reset(unsigned char p1, unsigned char p2, bool with_crc);
    unsigned int rq_set_mode(unsigned char p1, unsigned char p2, bool with_crc);
    unsigned int rq_get_mode(unsigned char p1, bool with_crc);

    // Since the last connect: events that are missing by their sequence bytes, and events received. Any thread.
    unsigned int lost_events() const { return m_lost_events; }
    unsigned int event_count() const { return m_event_count; }
    // The board's mode as learned from the last good get-mode reply; 2 at first.
    unsigned char mode() const { return m_mode; }

  private:
    friend class jorvet::core::receiver; // queues what the receive engine finds
    friend class jorvet::core::session;

    unsigned int connect_checked(unsigned char index,
                                 const std::function<bool(const jorvet::com::attached_device&)>& ok);
    unsigned int prepare_connect();
    unsigned int open_and_receive(const std::function<unsigned int()>& open);
    void arm_reply(unsigned char command);
    unsigned int code_of(unsigned short board_status) const;
    void start_receiving();
    void stop_receiving();
    unsigned int run_request(const jorvet::protocol::request& rq, bool with_crc, unsigned short* out_length = nullptr,
                             unsigned char* out_data = nullptr);

    const unsigned int m_com_type;
    boost::shared_ptr<CAbstractCom> m_com;
    std::vector<unsigned char> m_garbage;
    std::vector<boost::shared_ptr<IProtocol::EVENT_FRAME>> m_event_frames; // oldest first; guarded by m_event_mutex
    std::vector<boost::shared_ptr<IProtocol::REPLY_FRAME>> m_reply_frames; // oldest first; guarded by m_reply_mutex
    std::uint64_t m_reply_frames_reported = 0;  // queue length last warned of; guarded by m_reply_mutex
    unsigned char m_rq_cmd = 0;                 // of the request in progress; guarded by m_reply_mutex
    std::atomic<unsigned int> m_last_status{0}; // of the last wait, or left by the receive engine
    std::atomic<unsigned int> m_lost_events{0};
    std::atomic<unsigned int> m_event_count{0};
    std::atomic<unsigned char> m_mode{2};
    std::atomic<unsigned short> m_reply_status{0}; // of the reply queued last
    std::atomic<bool> m_stop_thread{true};         // no background thread runs, or it has been asked to stop
    boost::shared_ptr<boost::thread> m_bkgd_thread;
    boost::mutex m_rq_mutex;                                // held by a request from its first step to its last
    std::atomic<std::int64_t> m_timeout_for_reply{1000000}; // microseconds
    bool m_reply_ready = false; // a reply came since the request was armed; guarded by m_reply_mutex
    boost::condition_variable m_reply_cond;
    boost::mutex m_reply_mutex;                            // taken inside m_rq_mutex, never the other way round
    std::atomic<std::int64_t> m_timeout_for_event{500000}; // microseconds
    bool m_event_ready = false; // an event came since the last wait; guarded by m_event_mutex
    boost::condition_variable m_event_cond;
    boost::mutex m_event_mutex;                           // never held together with the other two
    std::map<unsigned int, unsigned int> m_mapping_error; // board status word to status code
    bool m_mapping_error_done = false;
    std::unique_ptr<jorvet::core::session> m_session; // what has come since; grows behind this pointer
};
