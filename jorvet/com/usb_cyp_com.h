// The link to a board with a Cypress USB controller, through the controller's first bulk IN and first bulk OUT
// endpoint.
//
// One listening thread per open link keeps a 64 KiB IN transfer pending at all times and moves the bytes of completed
// transfers into the receive buffer. It ends when a transfer fails or cannot be started; the link then stays open and
// receives nothing until it is closed and opened again.
#pragma once

#include "jorvet/com/abstract_com.h"
#include "jorvet/com/attached_devices.h"
#include "jorvet/cyusb/usb_device.h"
#include "jorvet/system/win32.h"

// Threads: as in the base class. `write` beside open_by_index, close or the destructor of the same link uses endpoints
// that are being destroyed; the caller keeps them apart.
class JV_API CUsbCypCom final : public CAbstractCom {
  public:
    CUsbCypCom();  // opens the driver's first device, if there is one, without listening to it
    ~CUsbCypCom(); // closes the link if it is open, and the driver's handle

    unsigned int load() override; // returns 0; there is nothing to load
    // Opens the device at that place of the driver's list. When that fails, resets the port of the device that is open,
    // if any, and tries once more. JV_ERR_CYP_OPEN when the device does not open; JV_ERR_CYP_NO_ENDPOINT when it lacks
    // a bulk IN or bulk OUT endpoint; the link is closed then. Blocks for about 15 ms. Throws
    // boost::thread_resource_error when an event or a thread cannot be created; the link then stays open.
    unsigned int open_by_index(unsigned char index) override;
    unsigned int open_by_name(std::string& description) override;
    unsigned int open_by_sn(std::string& serial_number) override;
    unsigned int open_by_location(unsigned int location) override;
    unsigned int open_by_tcpip(std::string& address, int port) override;
    // JV_ERR_COM_NOT_OPEN. The driver's handle stays open until the next opening or the destruction. Blocks until the
    // driver has ended the pending transfer; the link asks it to every 50 ms.
    unsigned int close() override;
    // Blocks until the device has sent `size` bytes or a short packet, without a time-out. JV_ERR_COM_NOT_OPEN,
    // JV_ERR_CYP_NO_ENDPOINT, JV_ERR_CYP_READ.
    unsigned int read(void* buffer, unsigned int size) override;
    // Aborts the transfer after 5 s and returns when the driver has ended it; a driver that refuses the abort makes it
    // block longer. JV_ERR_COM_NOT_OPEN, JV_ERR_CYP_NO_ENDPOINT, JV_ERR_NO_RESOURCES (no event could be created), or
    // JV_ERR_CYP_WRITE when the device did not take all bytes in that time or the transfer failed.
    unsigned int write(void* buffer, unsigned int size) override;
    // Cancel pending transfers on the endpoint and clear its halt; return 0. With a driver that reports a cancelled
    // transfer in the status words, purge_rx ends receiving.
    unsigned int purge_tx() override;
    unsigned int purge_rx() override;

    // The body of the listening thread.
    void listening_loop();
    // Cancels pending transfers, starts the listening thread and returns once it listens or has ended.
    // JV_ERR_COM_NOT_OPEN. Throws as open_by_index.
    unsigned int start_listening_thread();
    // Stops the listening thread and waits for its end, as close does. Returns 0; harmless when none runs.
    unsigned int stop_listening_thread();
    // Passes of the listening thread since it started, and passes that delivered bytes; both wrap at 65,536.
    unsigned short get_cp_listening_loop();
    unsigned short get_cp_listening_loop_with_data();

    // Writes the descriptors of the open device's configuration to std::cout, which stays in hexadecimal with fill
    // character '0'; nothing when no device is open. Not while the link opens.
    void print_info();

    // The devices attached now, in the driver's order; each call opens every device for a moment. The single-record
    // form returns a record of no device (com_type 0xFF) past the end. Texts match exactly; Cypress records have no
    // serial number. Any thread.
    static std::vector<boost::shared_ptr<CUsbCypComInfo>> get_all_com_info_list();
    static boost::shared_ptr<CUsbCypComInfo> get_com_info_by_index(unsigned char index);
    static std::vector<boost::shared_ptr<CUsbCypComInfo>> get_com_info_by_name(std::string description);
    static std::vector<boost::shared_ptr<CUsbCypComInfo>> get_com_info_by_sn(std::string serial_number);

    // As open_by_index, but goes on only when the device that was opened is `wanted`, if that is not empty; otherwise
    // closes it again, having read its descriptors alone, and returns JV_ERR_NO_DEVICE. Not exported.
    unsigned int open_checked(unsigned char index, const jorvet::com::device_check& wanted);
    // What was opened last. Not exported.
    jorvet::com::attached_device opened_device() const { return jorvet::com::describe(m_device); }

  private:
    unsigned int open_device(unsigned char index, const jorvet::com::device_check& wanted);
    void listen();
    void deliver_from(std::vector<unsigned char>& bytes, std::size_t count);

    CCyUSBDevice m_device;
};
