// The link to a board with a Cypress USB controller, through that controller's first bulk IN and first bulk OUT
// endpoint.
//
// One listening thread per open link keeps a 64 KiB IN transfer outstanding at all times and moves what completed ones
// brought into the receive buffer. It ends by itself when a transfer fails, or cannot be started; the link then stays
// open and receives nothing more until it is closed and opened again.
#pragma once

#include <boost/thread/thread.hpp>

#include "jorvet/com/abstract_com.h"
#include "jorvet/cyusb/usb_device.h"
#include "jorvet/system/win32.h"

// Threads: as in the base; print_info and the enumerations on any thread, print_info not while the link opens.
class JV_API CUsbCypCom final : public CAbstractCom {
  public:
    CUsbCypCom();  // opens the driver's first device, if there is one, without listening to it
    ~CUsbCypCom(); // closes the link if it is open, and the driver's handle

    unsigned int load() override; // 0; there is nothing to load
    // Opens the device at that place of the driver's list, with a reset of the device held before and one more try when
    // that fails. JV_ERR_CYP_OPEN when it does not open; JV_ERR_CYP_NO_ENDPOINT when it has no bulk IN and bulk OUT
    // endpoint; the link is closed then. Blocks for some 15 ms. Throws boost::thread_resource_error when an event or a
    // thread cannot be had; the link stays open then.
    unsigned int open_by_index(unsigned char index) override;
    unsigned int open_by_name(std::string& description) override;
    unsigned int open_by_sn(std::string& serial_number) override;
    unsigned int open_by_location(unsigned int location) override;
    unsigned int open_by_tcpip(std::string& address, int port) override;
    // JV_ERR_COM_NOT_OPEN. The driver's handle stays open until the next opening or the destruction. Blocks until the
    // driver has given the outstanding transfer back, which it is asked for every 50 ms.
    unsigned int close() override;
    // Waits without limit until the device has sent `size` bytes, or a short packet. JV_ERR_COM_NOT_OPEN,
    // JV_ERR_CYP_NO_ENDPOINT, JV_ERR_CYP_READ.
    unsigned int read(void* buffer, unsigned int size) override;
    // Blocks for at most 5 s. JV_ERR_COM_NOT_OPEN, JV_ERR_CYP_NO_ENDPOINT, JV_ERR_NO_RESOURCES (no event could be had),
    // or JV_ERR_CYP_WRITE when the device did not take all in that time or the transfer failed.
    unsigned int write(void* buffer, unsigned int size) override;
    // Cancel what is pending on the endpoint and clear its halt; 0.
    unsigned int purge_tx() override;
    unsigned int purge_rx() override;

    // The listening thread: its body; starting it (JV_ERR_COM_NOT_OPEN), which discards what was pending and returns
    // once the thread listens or has ended; stopping it (0, harmless when it does not run).
    void listening_loop();
    unsigned int start_listening_thread();
    unsigned int stop_listening_thread();
    // How often the thread went round since it started, and how often it delivered bytes; both wrap at 65,536.
    unsigned short get_cp_listening_loop();
    unsigned short get_cp_listening_loop_with_data();

    // Writes what the device's configuration says to std::cout, which stays in hexadecimal with fill character '0';
    // nothing when no device is open.
    void print_info();

    // What is attached now, in the driver's order, each call anew, every device opened for a moment. The single-record
    // form gives a record of no device (com_type 0xFF) when there is none; texts match exactly, and no Cypress record
    // has a serial number.
    static std::vector<boost::shared_ptr<CUsbCypComInfo>> get_all_com_info_list();
    static boost::shared_ptr<CUsbCypComInfo> get_com_info_by_index(unsigned char index);
    static std::vector<boost::shared_ptr<CUsbCypComInfo>> get_com_info_by_name(std::string description);
    static std::vector<boost::shared_ptr<CUsbCypComInfo>> get_com_info_by_sn(std::string serial_number);

  private:
    JV_LOCAL bool open_device(unsigned char index);
    JV_LOCAL void listen();
    JV_LOCAL void deliver(const std::vector<unsigned char>& bytes, std::size_t count);

    CCyUSBDevice m_device;
    boost::thread m_listening_thread;
    std::atomic<bool> m_listening_stopped{true};
    std::atomic<bool> m_listening_ready{false};  // the thread listens, or has ended: its starter need not wait longer
    std::atomic<bool> m_listening_failed{false}; // the thread lacked an event or memory to begin with
    std::atomic<unsigned short> m_cp_listening_loop{0};
    std::atomic<unsigned short> m_cp_listening_loop_with_data{0};
};
