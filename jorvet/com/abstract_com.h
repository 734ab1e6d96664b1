// The transport through which an instance reaches one board: what every link offers, and the receive buffer between the
// link's listening thread (the only producer) and the instance's background thread (the only consumer).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "jorvet/base/export.h"
#include "jorvet/com/com_info.h"

// Statuses are the codes of jorvet/base/status.h, 0 for success. A transport is made as its concrete class and held by
// a boost::shared_ptr made from the concrete pointer; there is no virtual destructor.
//
// Threads: open, close and destruction are kept apart from one another by the caller; the rest may run on any thread at
// any time.
class JV_API CAbstractCom {
  public:
    CAbstractCom();
    CAbstractCom(const CAbstractCom&) = delete;
    CAbstractCom& operator=(const CAbstractCom&) = delete;

    // One-time preparation before the first open.
    virtual unsigned int load() = 0;
    // Opens and configures the device at `index` of this link's own list and starts the listening thread; an open
    // device is closed first.
    virtual unsigned int open_by_index(unsigned char index) = 0;
    // Other ways to open; no link of this library has them (JV_ERR_NOT_SUPPORTED, nothing done).
    virtual unsigned int open_by_name(std::string& description) = 0;
    virtual unsigned int open_by_sn(std::string& serial_number) = 0;
    virtual unsigned int open_by_location(unsigned int location) = 0;
    virtual unsigned int open_by_tcpip(std::string& address, int port) = 0;
    // Whether the device is open. Never blocks.
    virtual bool is_open();
    // Stops the listening thread, closes the device and drops what was received. JV_ERR_COM_NOT_OPEN when not open.
    virtual unsigned int close() = 0;
    // Bytes of the latest delivery of the listening thread; 0 once it has stopped.
    virtual unsigned int get_rx_bytes();
    // Reads `size` bytes from the device into `buffer` now, beside the receive buffer. For the listening thread.
    virtual unsigned int read(void* buffer, unsigned int size) = 0;
    // Sends `size` bytes; 0 when all were sent. JV_ERR_COM_NOT_OPEN when not open.
    virtual unsigned int write(void* buffer, unsigned int size) = 0;
    // Discard what waits to be sent, and what the device and driver received and nobody has read.
    virtual unsigned int purge_tx() = 0;
    virtual unsigned int purge_rx() = 0;

    // The driver's handle; null while closed. It stays the transport's.
    void* get_com_handle();
    // The record of the device opened last; a record of no device before. Not while open_by_index runs.
    boost::shared_ptr<CComInfo> get_com_info();
    // Takes every received byte, oldest first; empty when there is none.
    std::vector<unsigned char> read_input_data();
    // Waits for bytes to arrive, at most 30 ms anew after each wake-up. True when some came since the last true; false
    // on a time-out, and at once while the listening thread is being stopped.
    bool wait_for_rx_bytes();

  protected:
    ~CAbstractCom() = default;

    boost::shared_ptr<CComInfo> m_com_info;
    std::atomic<void*> m_com_handle{nullptr};
    std::vector<unsigned char> m_rx_buffer; // guarded by m_rx_mutex
    bool m_rx_ready = false;             // bytes came since the last true of wait_for_rx_bytes; guarded by m_rx_mutex
    std::atomic<bool> m_rx_abort{false}; // the listening thread is being stopped
    const std::int64_t m_rx_timeout = 30000; // microseconds
    boost::condition_variable m_rx_cond;     // notified after each delivery, unlocked
    boost::mutex m_rx_mutex;
    unsigned int m_rx_bytes = 0; // guarded by m_rx_mutex

    // The largest delivery of a listening thread, in bytes.
    JV_LOCAL static constexpr std::size_t max_delivery = 65536;
};

// A network link: declared, with no operations of its own; nothing makes one.
class JV_API CTcpIpCom : public CAbstractCom {
  protected:
    ~CTcpIpCom() = default;
};
