// The link to a board behind an FTDI bridge, through the D2XX driver library: 115200 baud, 8 data bits, one stop bit,
// no parity, no flow control.
//
// One listening thread per open link waits for the driver's receive event and moves what came into the receive buffer.
// When the bridge fails or is unplugged it closes the link by itself, within about 50 ms.
#pragma once

#include <map>

#include <boost/thread/thread.hpp>

#include "jorvet/com/abstract_com.h"
#include "jorvet/system/win32.h"

// Besides the statuses listed, JV_ERR_FTDI_… stand for the D2XX status of the call that failed. Threads: as in the
// base.
class JV_API CUsbFtd2xxCom final : public CAbstractCom {
  public:
    CUsbFtd2xxCom();
    ~CUsbFtd2xxCom(); // closes the device if it is open

    // Fills the table of D2XX statuses, once; 0.
    unsigned int load() override;
    // JV_ERR_FTDI_… of the step that failed; a step after the opening leaves the device open, for close(). Blocks for
    // some 10 ms. Throws boost::thread_resource_error when an event or a thread cannot be had; the device stays open
    // then, too.
    unsigned int open_by_index(unsigned char index) override;
    unsigned int open_by_name(std::string& description) override;
    unsigned int open_by_sn(std::string& serial_number) override;
    unsigned int open_by_location(unsigned int location) override;
    unsigned int open_by_tcpip(std::string& address, int port) override;
    // JV_ERR_COM_NOT_OPEN; JV_ERR_FTDI_… when the driver does not close the device, which then counts as open without a
    // listening thread. Blocks for at most about 50 ms, plus the driver.
    unsigned int close() override;
    // Waits until the driver has `size` bytes. JV_ERR_COM_NOT_OPEN, JV_ERR_FTDI_….
    unsigned int read(void* buffer, unsigned int size) override;
    // Blocks for at most 100 ms. JV_ERR_COM_NOT_OPEN, JV_ERR_FTDI_…, or JV_ERR_FTDI_SHORT_WRITE when the bridge did not
    // take all in that time.
    unsigned int write(void* buffer, unsigned int size) override;
    // These two return the D2XX status as it is.
    unsigned int purge_tx() override;
    unsigned int purge_rx() override;

    void init_mapping_error();

    // The listening thread: its body; starting it (JV_ERR_COM_NOT_OPEN; JV_ERR_FTDI_… when the driver refuses its
    // receive event), which discards what was received before and returns once the thread listens; stopping it (0, at
    // most about 50 ms, harmless when it does not run).
    void listening_loop();
    unsigned int start_listening_thread();
    unsigned int stop_listening_thread();
    // How often the thread went round since it started, and how often it delivered bytes; both wrap at 65,536.
    unsigned short get_cp_listening_loop();
    unsigned short get_cp_listening_loop_with_data();

    // What is attached now, in the driver's order, each call anew; empty when the driver does not answer. The
    // single-record forms give a record of no device (com_type 0xFF) when nothing matches; texts match exactly; of
    // several at one location the last one counts.
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_all_com_info_list();
    static boost::shared_ptr<CUsbFtd2xxComInfo> get_com_info_by_index(unsigned char index);
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_com_info_by_id(unsigned int id);
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_com_info_by_name(std::string description);
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_com_info_by_sn(std::string serial_number);
    static boost::shared_ptr<CUsbFtd2xxComInfo> get_com_info_by_locid(unsigned int loc_id);

  private:
    JV_LOCAL unsigned int mapped(unsigned int d2xx_status) const;
    JV_LOCAL unsigned int configure();
    JV_LOCAL bool prepare_listening();
    JV_LOCAL bool listen_once();
    JV_LOCAL bool deliver(std::size_t& count);
    JV_LOCAL void join_listening_thread();
    JV_LOCAL void shut_down();
    JV_LOCAL void forget_received();

    std::map<unsigned short, unsigned int> m_mapping_error; // D2XX status to status code
    bool m_mapping_error_done = false;
    HANDLE m_rx_event = nullptr; // the listening thread's
    boost::shared_ptr<boost::thread> m_listening_thread;
    std::atomic<bool> m_listening_stopped{true};
    std::atomic<bool> m_listening_ready{false}; // the thread listens, or has ended: its starter need not wait longer
    std::atomic<unsigned int> m_listening_failure{0}; // why the thread could not begin to listen
    std::atomic<unsigned short> m_cp_listening_loop{0};
    std::atomic<unsigned short> m_cp_listening_loop_with_data{0};
};
