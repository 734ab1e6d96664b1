// The link to a board behind an FTDI bridge, through the D2XX driver library: 115200 baud, 8 data bits, one stop bit,
// no parity, no flow control.
//
// One listening thread per open link waits for the driver's receive event and moves received bytes into the receive
// buffer. When the bridge fails or is unplugged, it closes the link by itself within about 50 ms.
#pragma once

#include <map>

#include "jorvet/com/abstract_com.h"
#include "jorvet/com/attached_devices.h"
#include "jorvet/com/link_extras.h"

// Besides the statuses listed, JV_ERR_FTDI_... is the code for the D2XX status of the driver call that failed. Threads:
// as in the base class.
class JV_API CUsbFtd2xxCom final : public CAbstractCom {
  public:
    CUsbFtd2xxCom();
    ~CUsbFtd2xxCom(); // closes the device if it is open

    // Fills the table of D2XX statuses, once; returns 0.
    unsigned int load() override;
    // JV_ERR_FTDI_... of the step that failed; when a step after the opening fails, the device stays open and close()
    // closes it. Blocks for about 10 ms. Throws boost::thread_resource_error when an event or a thread cannot be
    // created; the device then stays open, too.
    unsigned int open_by_index(unsigned char index) override;
    unsigned int open_by_name(std::string& description) override;
    unsigned int open_by_sn(std::string& serial_number) override;
    unsigned int open_by_location(unsigned int location) override;
    unsigned int open_by_tcpip(std::string& address, int port) override;
    // JV_ERR_COM_NOT_OPEN; JV_ERR_FTDI_... when the driver does not close the device, which then counts as open without
    // a listening thread. Blocks for at most about 50 ms, plus the driver's own time.
    unsigned int close() override;
    // Waits until the driver has `size` bytes. JV_ERR_COM_NOT_OPEN, JV_ERR_FTDI_...
    unsigned int read(void* buffer, unsigned int size) override;
    // Blocks for at most 100 ms, the driver's write time-out. JV_ERR_COM_NOT_OPEN, JV_ERR_FTDI_..., or
    // JV_ERR_FTDI_SHORT_WRITE when the bridge did not take all bytes in that time.
    unsigned int write(void* buffer, unsigned int size) override;
    // These two return the D2XX status unchanged.
    unsigned int purge_tx() override;
    unsigned int purge_rx() override;

    // Fills the table of D2XX statuses, once.
    void init_mapping_error();

    // The body of the listening thread.
    void listening_loop();
    // Discards received bytes, starts the listening thread and returns once it listens. JV_ERR_COM_NOT_OPEN;
    // JV_ERR_FTDI_... when the driver refuses the receive event. Throws as open_by_index.
    unsigned int start_listening_thread();
    // Stops the listening thread and waits for its end, at most about 50 ms. Returns 0; harmless when none runs.
    unsigned int stop_listening_thread();
    // Passes of the listening thread since it started, and passes that delivered bytes; both wrap at 65,536.
    unsigned short get_cp_listening_loop();
    unsigned short get_cp_listening_loop_with_data();

    // The bridges attached now, in the driver's order; each call asks the driver again. Empty when the driver fails.
    // The single-record forms return a record of no device (com_type 0xFF) when nothing matches. Texts match exactly.
    // Of several records with one location, the last is returned. Any thread.
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_all_com_info_list();
    static boost::shared_ptr<CUsbFtd2xxComInfo> get_com_info_by_index(unsigned char index);
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_com_info_by_id(unsigned int id);
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_com_info_by_name(std::string description);
    static std::vector<boost::shared_ptr<CUsbFtd2xxComInfo>> get_com_info_by_sn(std::string serial_number);
    static boost::shared_ptr<CUsbFtd2xxComInfo> get_com_info_by_locid(unsigned int loc_id);

    // As open_by_index, but goes on only when the bridge that was opened is `wanted`; otherwise closes it again
    // untouched and returns JV_ERR_NO_DEVICE. Not exported.
    unsigned int open_checked(unsigned char index, const jorvet::com::device_check& wanted);
    // What was opened last: after open_checked the bridge itself, otherwise what the list had at its place. Not
    // exported.
    jorvet::com::attached_device opened_device() const;

  private:
    bool open_handle(unsigned char index, unsigned int& status);
    unsigned int noted(const char* call, unsigned int d2xx_status) const;
    unsigned int mapped(unsigned int d2xx_status) const;
    bool configure(unsigned int& status);
    bool prepare_listening();
    bool listen_once(jorvet::com::link_end& why);
    bool deliver_queued(std::size_t& count);
    void shut_down(jorvet::com::link_end why);
    void join_and_close_event();

    std::map<unsigned short, unsigned int> m_mapping_error; // D2XX status to status code
    bool m_mapping_error_done = false;
    void* m_rx_event = nullptr; // an event handle, made by the listening thread; closed after its end
};
