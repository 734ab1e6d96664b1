// The FTDI link: opening, closing and writing on the application's threads, receiving on the listening thread.
#include "jorvet/com/usb_ftd2xx_com.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "jorvet/base/status.h"
#include "jorvet/system/d2xx.h"

namespace {

constexpr ULONG baud_rate = 115200;
constexpr ULONG in_transfer_size = 8192;
constexpr ULONG out_transfer_size = 16384;
constexpr ULONG no_read_timeout = 0;
constexpr ULONG write_timeout_ms = 100;
constexpr UCHAR latency_ms = 10;
constexpr DWORD pipe_retries = 100;
constexpr DWORD listening_wait_ms = 50;       // how long a stop or an unplugged bridge may go unnoticed
constexpr int ready_poll_ms = 5;              // while the opening thread waits for the listening thread
constexpr unsigned char unread_filler = 0xEE; // makes bytes that a driver claims but does not write stand out
constexpr ULONG purge_both = FT_PURGE_RX | FT_PURGE_TX;
constexpr FT_STATUS d2xx_statuses = FT_DEVICE_LIST_NOT_READY + 1;

} // namespace

CUsbFtd2xxCom::CUsbFtd2xxCom() = default;

CUsbFtd2xxCom::~CUsbFtd2xxCom() {
    if (is_open())
        close();
    join_and_close_event(); // of a link that closed itself
}

unsigned int CUsbFtd2xxCom::load() {
    init_mapping_error();
    return JV_OK;
}

void CUsbFtd2xxCom::init_mapping_error() {
    if (m_mapping_error_done)
        return;
    for (FT_STATUS status = FT_INVALID_HANDLE; status < d2xx_statuses; ++status)
        m_mapping_error[static_cast<unsigned short>(status)] =
            JV_ERR_FTDI_INVALID_HANDLE + (status - FT_INVALID_HANDLE);
    m_mapping_error_done = true;
}

// A status that the table lacks, FT_OK among them, counts as success.
unsigned int CUsbFtd2xxCom::mapped(unsigned int d2xx_status) const {
    const auto found = m_mapping_error.find(static_cast<unsigned short>(d2xx_status & 0xFFFF));
    return found != m_mapping_error.end() ? found->second : static_cast<unsigned int>(JV_OK);
}

// As `mapped`, and leaves a sentence about a failure for people.
unsigned int CUsbFtd2xxCom::noted(const char* call, unsigned int d2xx_status) const {
    const unsigned int status = mapped(d2xx_status);
    if (d2xx_status != FT_OK)
        m_extras->note(std::string(call) + ": " +
                       (status != JV_OK ? jv_status_text(status) : "D2XX status " + std::to_string(d2xx_status)));
    return status;
}

unsigned int CUsbFtd2xxCom::open_by_index(unsigned char index) {
    unsigned int status = JV_OK;
    if (!open_handle(index, status) || !configure(status))
        return status;
    status = start_listening_thread();
    m_com_info = get_com_info_by_index(index);
    return status;
}

unsigned int CUsbFtd2xxCom::open_checked(unsigned char index, const jorvet::com::device_check& wanted) {
    unsigned int status = JV_OK;
    if (!open_handle(index, status))
        return status;
    const auto opened = jorvet::com::bridge_with_handle(m_com_handle);
    if (!wanted(jorvet::com::describe(*opened))) {
        FT_Close(m_com_handle.exchange(nullptr));
        return JV_ERR_NO_DEVICE;
    }
    if (!configure(status))
        return status;
    m_com_info = opened;
    return start_listening_thread();
}

jorvet::com::attached_device CUsbFtd2xxCom::opened_device() const {
    if (m_com_info->com_type != JV_KIND_FTDI)
        return {};
    return jorvet::com::describe(static_cast<const CUsbFtd2xxComInfo&>(*m_com_info));
}

// Opens the bridge and does nothing else to it. False with the status when that fails, or when the open one does not
// close.
bool CUsbFtd2xxCom::open_handle(unsigned char index, unsigned int& status) {
    if (is_open()) {
        status = close();
        if (is_open())
            return false;
    }
    FT_HANDLE handle = nullptr;
    const FT_STATUS opened = FT_Open(index, &handle);
    status = noted("FT_Open", opened);
    if (opened != FT_OK)
        return false;
    m_com_handle = handle;
    return true;
}

// Makes the fixed settings of the link. False with the status of the first one that fails.
bool CUsbFtd2xxCom::configure(unsigned int& status) {
    const FT_HANDLE handle = m_com_handle;
    const auto made = [&](const char* call, FT_STATUS answer) {
        status = noted(call, answer);
        return answer == FT_OK;
    };
    return made("FT_ResetDevice", FT_ResetDevice(handle)) && made("FT_Purge", FT_Purge(handle, purge_both)) &&
           made("FT_SetUSBParameters", FT_SetUSBParameters(handle, in_transfer_size, out_transfer_size)) &&
           made("FT_SetBaudRate", FT_SetBaudRate(handle, baud_rate)) &&
           made("FT_SetTimeouts", FT_SetTimeouts(handle, no_read_timeout, write_timeout_ms)) &&
           made("FT_SetDataCharacteristics", FT_SetDataCharacteristics(handle, 8, 0, 0)) &&
           made("FT_SetFlowControl", FT_SetFlowControl(handle, 0, 0x11, 0x13)) &&
           made("FT_Purge", FT_Purge(handle, purge_both)) &&
           made("FT_SetLatencyTimer", FT_SetLatencyTimer(handle, latency_ms)) &&
           made("FT_SetResetPipeRetryCount", FT_SetResetPipeRetryCount(handle, pipe_retries));
}

unsigned int CUsbFtd2xxCom::open_by_name(std::string&) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbFtd2xxCom::open_by_sn(std::string&) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbFtd2xxCom::open_by_location(unsigned int) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbFtd2xxCom::open_by_tcpip(std::string&, int) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbFtd2xxCom::close() {
    if (!is_open())
        return JV_ERR_COM_NOT_OPEN;
    // Stopping the thread first keeps it from calling the driver with a closed handle.
    stop_listening_thread();
    forget_received();
    const FT_HANDLE handle = m_com_handle;
    if (handle == nullptr) // the bridge failed in the meantime, and the listening thread closed it
        return JV_ERR_COM_NOT_OPEN;
    FT_Purge(handle, purge_both);
    FT_ResetDevice(handle);
    const unsigned int status = noted("FT_Close", FT_Close(handle));
    if (status == JV_OK)
        m_com_handle = nullptr;
    return status;
}

unsigned int CUsbFtd2xxCom::read(void* buffer, unsigned int size) {
    const FT_HANDLE handle = m_com_handle;
    if (handle == nullptr)
        return JV_ERR_COM_NOT_OPEN;
    DWORD count = 0;
    return noted("FT_Read", FT_Read(handle, buffer, size, &count));
}

unsigned int CUsbFtd2xxCom::write(void* buffer, unsigned int size) {
    const FT_HANDLE handle = m_com_handle;
    if (handle == nullptr)
        return JV_ERR_COM_NOT_OPEN;
    DWORD written = 0;
    const FT_STATUS status = FT_Write(handle, buffer, size, &written);
    if (status != FT_OK)
        return noted("FT_Write", status);
    if (written == size)
        return JV_OK;
    m_extras->note("FT_Write: " + std::to_string(written) + " of " + std::to_string(size) + " bytes left in time");
    return JV_ERR_FTDI_SHORT_WRITE;
}

unsigned int CUsbFtd2xxCom::purge_tx() {
    return FT_Purge(m_com_handle, FT_PURGE_TX);
}

// The lock keeps it out from between the listening thread's query of the driver's queue and its read, which would then
// wait for bytes that are gone.
unsigned int CUsbFtd2xxCom::purge_rx() {
    const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    return FT_Purge(m_com_handle, FT_PURGE_RX);
}

unsigned int CUsbFtd2xxCom::start_listening_thread() {
    if (!is_open())
        return JV_ERR_COM_NOT_OPEN;
    purge_tx();
    purge_rx();
    m_listening_stopped = true;
    join_and_close_event();
    return run_listening_thread([this] { listening_loop(); }, ready_poll_ms);
}

unsigned int CUsbFtd2xxCom::stop_listening_thread() {
    m_rx_abort = true;
    purge_tx();
    purge_rx();
    m_listening_stopped = true;
    if (m_rx_event != nullptr)
        SetEvent(m_rx_event); // ends its wait
    join_and_close_event();
    end_receiving();
    return JV_OK;
}

void CUsbFtd2xxCom::listening_loop() {
    m_rx_event = CreateEventA(nullptr, FALSE, FALSE, "");
    if (m_rx_event == nullptr) {
        m_listening_failure = JV_ERR_NO_RESOURCES;
        return listening_ended();
    }
    if (prepare_listening()) {
        listening_began();
        do {
            auto why = jorvet::com::link_end::device_lost;
            if (m_rx_failed || !listen_once(why)) {
                shut_down(why);
                break;
            }
            ++m_cp_listening_loop;
        } while (!m_listening_stopped);
    }
    listening_ended();
}

// The event outlives the thread, since whoever stops the thread signals it.
void CUsbFtd2xxCom::join_and_close_event() {
    join_listening_thread();
    if (const HANDLE event = std::exchange(m_rx_event, nullptr))
        CloseHandle(event);
}

// Registers the event that the driver signals when bytes arrive, and discards bytes received before. False with
// m_listening_failure set.
bool CUsbFtd2xxCom::prepare_listening() {
    const FT_STATUS status = FT_SetEventNotification(m_com_handle, FT_EVENT_RXCHAR, m_rx_event);
    if (status != FT_OK) {
        const unsigned int failure = noted("FT_SetEventNotification", status);
        m_listening_failure = failure != 0 ? failure : static_cast<unsigned int>(JV_ERR_FTDI_OTHER_ERROR);
        return false;
    }
    m_cp_listening_loop = 0;
    m_cp_listening_loop_with_data = 0;
    DWORD waiting = 0;
    FT_GetQueueStatus(m_com_handle, &waiting);
    if (waiting > 0)
        purge_rx();
    return true;
}

// One pass: waits for bytes and delivers them; without bytes, checks the bridge. False when the bridge or memory has
// failed.
bool CUsbFtd2xxCom::listen_once(jorvet::com::link_end& why) try {
    if (WaitForSingleObject(m_rx_event, listening_wait_ms) == WAIT_OBJECT_0) {
        std::size_t count = 0;
        if (!deliver_queued(count))
            return false;
        if (count == max_delivery)
            SetEvent(m_rx_event); // more bytes may be queued, so the next pass must not wait
        if (count > 0)
            return true;
    }
    DWORD unused[3]{};
    return noted("FT_GetStatus", FT_GetStatus(m_com_handle, &unused[0], &unused[1], &unused[2])) == JV_OK;
} catch (...) { // whatever it is, going on would lose bytes
    why = jorvet::com::link_end::out_of_memory;
    return false;
}

// Reads the bytes that the driver has, at most one delivery, straight into the end of the receive buffer. `count`
// becomes their number; it stays 0 once a stop was requested. False when the bridge or memory fails.
bool CUsbFtd2xxCom::deliver_queued(std::size_t& count) {
    boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    DWORD waiting = 0;
    FT_GetQueueStatus(m_com_handle, &waiting);
    if (waiting == 0 || m_listening_stopped)
        return true;
    count = std::min<std::size_t>(waiting, max_delivery);
    return deliver(lock, count, [&](std::vector<unsigned char>& buffer) {
        const std::size_t before = buffer.size();
        buffer.resize(before + count, unread_filler);
        const bool ok = read(buffer.data() + before, static_cast<unsigned int>(count)) == JV_OK;
        if (!ok)
            buffer.resize(before);
        return ok;
    });
}

// The listening thread closes a link whose bridge has failed. It clears the handle last, so that a thread that sees the
// link closed also finds it empty.
void CUsbFtd2xxCom::shut_down(jorvet::com::link_end why) {
    m_rx_abort = true;
    const FT_HANDLE handle = m_com_handle;
    FT_Purge(handle, purge_both);
    FT_ResetDevice(handle);
    FT_Close(handle);
    forget_received();
    end_receiving();
    m_com_handle = nullptr;
    m_extras->ended(why);
}

unsigned short CUsbFtd2xxCom::get_cp_listening_loop() {
    return m_cp_listening_loop;
}

unsigned short CUsbFtd2xxCom::get_cp_listening_loop_with_data() {
    return m_cp_listening_loop_with_data;
}
