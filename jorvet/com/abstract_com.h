// The transport through which an instance reaches one board: what every link offers, and the receive buffer between the
// link's listening thread (the only producer) and the instance's background thread (the only consumer).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include "jorvet/base/export.h"
#include "jorvet/com/com_info.h"

namespace jorvet::com {
class link_extras;
}

// Statuses are the codes of jorvet/base/status.h, 0 for success. A transport is created as its concrete class and held
// by a boost::shared_ptr made from the concrete pointer; there is no virtual destructor.
//
// Threads: load, the open functions, close and destruction must not overlap any other call on the same transport. While
// it stays open, `write`, the queries and the purges may be called from any thread; `read`, `read_input_data` and
// `wait_for_rx_bytes` belong to one thread each, as stated below.
class JV_API CAbstractCom {
  public:
    CAbstractCom();
    CAbstractCom(const CAbstractCom&) = delete;
    CAbstractCom& operator=(const CAbstractCom&) = delete;

    // One-time preparation before the first open.
    virtual unsigned int load() = 0;
    // Opens and configures the device at `index` of this link's own list and starts the listening thread. An open
    // device is closed first.
    virtual unsigned int open_by_index(unsigned char index) = 0;
    // Other ways to open. No link of this library supports them: each returns JV_ERR_NOT_SUPPORTED and does nothing.
    virtual unsigned int open_by_name(std::string& description) = 0;
    virtual unsigned int open_by_sn(std::string& serial_number) = 0;
    virtual unsigned int open_by_location(unsigned int location) = 0;
    virtual unsigned int open_by_tcpip(std::string& address, int port) = 0;
    // Whether the device is open. Never blocks; any thread, at any time.
    virtual bool is_open();
    // Stops the listening thread, closes the device and drops received bytes. JV_ERR_COM_NOT_OPEN when not open.
    virtual unsigned int close() = 0;
    // Bytes of the latest delivery of the listening thread; 0 after it was stopped.
    virtual unsigned int get_rx_bytes();
    // Reads `size` bytes from the device into `buffer`, bypassing the receive buffer. Only the listening thread may
    // call it: a second reader takes the bytes that the listening thread waits for, and `close` may then block for
    // ever.
    virtual unsigned int read(void* buffer, unsigned int size) = 0;
    // Sends `size` bytes; 0 when all were sent. JV_ERR_COM_NOT_OPEN when not open.
    virtual unsigned int write(void* buffer, unsigned int size) = 0;
    // Discard bytes that wait to be sent, or that device and driver have received and nothing has read.
    virtual unsigned int purge_tx() = 0;
    virtual unsigned int purge_rx() = 0;

    // The driver's handle; null while closed. The transport owns it. Any thread, at any time.
    void* get_com_handle();
    // The record of the device opened last; a record of no device before the first open.
    boost::shared_ptr<CComInfo> get_com_info();
    // Takes every received byte, oldest first; empty when there is none. For the consumer.
    std::vector<unsigned char> read_input_data();
    // The same into `bytes`, which loses what it held; the receive buffer gets its memory. Without an allocation for a
    // consumer that passes the same vector again and again. Not exported.
    void take_input_data(std::vector<unsigned char>& bytes);
    // Waits for bytes, at most 30 ms; each wake-up without bytes restarts the 30 ms, which bound how long the consumer
    // goes without looking at its own stop flag. True when bytes have arrived since the last true; false on a time-out,
    // on wake_consumer, and at once while the listening thread is being stopped. For the consumer.
    bool wait_for_rx_bytes();

    // Ends the present or else the next wait of wait_for_rx_bytes at once; it returns false. For whoever stops the
    // consumer; not exported.
    void wake_consumer();
    // Nothing will take received bytes any more: the listening thread ends, which closes an FTDI link and leaves a
    // Cypress link open. For the consumer, when it fails; not exported.
    void receiving_failed() { m_rx_failed = true; }
    // Whether nobody takes received bytes: then the newest megabyte is kept, and what is dropped is counted. For the
    // consumer; not exported.
    void set_unread(bool unread) { m_rx_unread = unread; }
    // What applications do not see of a link; not exported.
    jorvet::com::link_extras& extras() { return *m_extras; }

  protected:
    ~CAbstractCom() = default;

    boost::shared_ptr<CComInfo> m_com_info;
    std::atomic<void*> m_com_handle{nullptr};
    std::vector<unsigned char> m_rx_buffer; // guarded by m_rx_mutex
    bool m_rx_wake = false;                 // the consumer is to stop waiting; guarded by m_rx_mutex
    bool m_rx_ready = false; // bytes arrived since the last true of wait_for_rx_bytes; guarded by m_rx_mutex
    std::atomic<bool> m_rx_abort{false};     // the listening thread is being stopped
    std::atomic<bool> m_rx_failed{false};    // the consumer has failed
    const std::int64_t m_rx_timeout = 30000; // microseconds
    boost::condition_variable m_rx_cond;     // notified after each delivery, unlocked
    boost::mutex m_rx_mutex;
    unsigned int m_rx_bytes = 0; // guarded by m_rx_mutex

    // ---- For the links of this library; not exported ----

    // The largest delivery of a listening thread, in bytes.
    static constexpr std::size_t max_delivery = 65536;

    // Delivers `count` bytes on the listening thread. `lock` holds m_rx_mutex; `append(m_rx_buffer)` adds the bytes, or
    // leaves the buffer as it was and returns false, which this function returns then. Unlocks before it notifies.
    template <class Append>
    bool deliver(boost::unique_lock<boost::mutex>& lock, std::size_t count, Append append) {
        m_rx_bytes = static_cast<unsigned int>(count);
        if (!append(m_rx_buffer))
            return false;
        if (m_rx_unread)
            keep_newest();
        ++m_cp_listening_loop_with_data;
        m_rx_ready = true;
        lock.unlock();
        m_rx_cond.notify_all();
        return true;
    }
    // Shortens the receive buffer. The caller holds m_rx_mutex.
    void keep_newest();
    // Ends a stop of the listening thread: waits are allowed again, and no delivery is announced any more.
    void end_receiving();
    // Drops the received bytes that nothing has taken.
    void forget_received();

    // Starts the listening thread with `body` and returns when the body has called listening_began() or has ended, by
    // `listening_ended`; until then it looks every `poll_ms`, since the body notifies nothing. Returns
    // m_listening_failure. Throws boost::thread_resource_error when no thread can be created or the failure is
    // JV_ERR_NO_RESOURCES.
    unsigned int run_listening_thread(const std::function<void()>& body, int poll_ms);
    void listening_began();
    void listening_ended();
    // Waits for the end of the listening thread; harmless when there is none.
    void join_listening_thread();

    boost::shared_ptr<boost::thread> m_listening_thread;
    std::atomic<bool> m_listening_stopped{true};      // no listening loop runs, or it has been asked to stop
    std::atomic<bool> m_listening_ready{false};       // the loop runs or has ended: its starter need not wait longer
    std::atomic<unsigned int> m_listening_failure{0}; // why the thread could not begin to listen
    std::atomic<unsigned short> m_cp_listening_loop{0};
    std::atomic<unsigned short> m_cp_listening_loop_with_data{0};
    std::atomic<bool> m_rx_unread{false};
    const boost::shared_ptr<jorvet::com::link_extras> m_extras;
};

// A network link: declared, without operations of its own; nothing creates one.
class JV_API CTcpIpCom : public CAbstractCom {
  protected:
    ~CTcpIpCom() = default;
};
