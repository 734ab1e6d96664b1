// The Cypress link: opening, closing and writing on the application's threads, receiving on the listening thread.
#include "jorvet/com/usb_cyp_com.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <new>
#include <string>

#include <boost/chrono/duration.hpp>
#include <boost/make_shared.hpp>

#include "jorvet/base/status.h"
#include "jorvet/com/attached_devices.h"
#include "jorvet/com/descriptor_report.h"
#include "jorvet/com/link_extras.h"
#include "jorvet/cyusb/pending_record.h"

namespace {

constexpr int open_first_device = 1;
constexpr DWORD no_limit = 0xFFFFFFFF;
constexpr DWORD usb3_wait_ms = 5; // a SuperSpeed controller may hold bytes back until its transfer is ended
constexpr DWORD write_wait_ms = 5000;
constexpr int first_transfer_wait_ms = 10; // gives the first IN transfer time to reach the device
constexpr int ready_poll_ms = 2;           // while the opening thread waits for the listening thread
constexpr int stop_wait_ms = 50;           // between two aborts, should the driver refuse the first

void cancel_and_clear(CCyUSBEndPoint* endpoint) {
    if (endpoint == nullptr)
        return;
    endpoint->Abort();
    endpoint->Reset();
}

std::string system_error(DWORD error) {
    return "system error " + std::to_string(error);
}

// What the last transfer of an endpoint ended with.
std::string transfer_error(const CCyUSBEndPoint& endpoint) {
    if (endpoint.LastError != ERROR_SUCCESS && endpoint.LastError != ERROR_IO_PENDING) // it did not start
        return system_error(endpoint.LastError);
    char text[60];
    std::snprintf(text, sizeof(text), "USB status 0x%08x, system status 0x%08x",
                  static_cast<unsigned>(endpoint.UsbdStatus), static_cast<unsigned>(endpoint.NtStatus));
    return text;
}

// The IN transfer of a listening thread. Its destructor ends the transfer, so that the buffer outlives it.
class in_transfer {
  public:
    explicit in_transfer(CCyBulkEndPoint& endpoint) : endpoint_(endpoint) {}
    ~in_transfer() {
        endpoint_.Abort();
        finish();
    }
    in_transfer(const in_transfer&) = delete;
    in_transfer& operator=(const in_transfer&) = delete;

    bool has_event() const { return record_.valid(); }
    // False when it could not be started.
    bool begin(std::vector<unsigned char>& buffer) {
        buffer_ = buffer.data();
        room_ = static_cast<LONG>(buffer.size());
        context_ = endpoint_.BeginDataXfer(buffer_, room_, record_.get());
        return context_ != nullptr && (endpoint_.LastError == ERROR_SUCCESS || endpoint_.LastError == ERROR_IO_PENDING);
    }
    // Waits for at most `milliseconds`, then cancels it.
    void wait(DWORD milliseconds) {
        if (context_ != nullptr && !endpoint_.WaitForXfer(record_.get(), milliseconds))
            endpoint_.Abort();
    }
    // True when the transfer succeeded; `*moved` becomes the bytes received either way. Waits for the end of a
    // cancelled transfer.
    bool finish(LONG* moved = nullptr) {
        LONG length = room_;
        const bool ok = endpoint_.FinishDataXfer(buffer_, length, record_.get(), context_, nullptr);
        context_ = nullptr;
        if (moved != nullptr)
            *moved = length;
        return ok;
    }

  private:
    CCyBulkEndPoint& endpoint_;
    jorvet::cyusb::pending_record record_;
    BYTE* context_ = nullptr;
    BYTE* buffer_ = nullptr;
    LONG room_ = 0;
};

} // namespace

CUsbCypCom::CUsbCypCom() : m_device(nullptr, CYUSBDRV_GUID, open_first_device) {}

CUsbCypCom::~CUsbCypCom() {
    if (is_open())
        close();
}

unsigned int CUsbCypCom::load() {
    return JV_OK;
}

unsigned int CUsbCypCom::open_by_index(unsigned char index) {
    return open_checked(index, {});
}

unsigned int CUsbCypCom::open_checked(unsigned char index, const jorvet::com::device_check& wanted) {
    if (is_open())
        close();
    unsigned int status = open_device(index, wanted);
    if (status == JV_OK && (m_device.BulkInEndPt == nullptr || m_device.BulkOutEndPt == nullptr))
        status = JV_ERR_CYP_NO_ENDPOINT;
    if (status != JV_OK) {
        m_com_info = boost::make_shared<CComInfo>();
        return status;
    }
    m_com_handle = m_device.DeviceHandle;
    m_com_info->in_use = 1;
    m_device.BulkInEndPt->TimeOut = no_limit;
    m_device.BulkOutEndPt->TimeOut = no_limit;
    return start_listening_thread();
}

// JV_OK when the device is open, which may lack a selected interface.
unsigned int CUsbCypCom::open_device(unsigned char index, const jorvet::com::device_check& wanted) try {
    const auto closed_as_unwanted = [&] {
        if (!wanted || m_device.DeviceHandle == INVALID_HANDLE_VALUE || wanted(jorvet::com::describe(m_device)))
            return false;
        m_device.Close();
        return true;
    };
    const bool usable = m_device.Open(index);
    if (closed_as_unwanted())
        return JV_ERR_NO_DEVICE;
    if (!usable) {
        m_device.Reset();
        m_device.Open(index);
        if (closed_as_unwanted())
            return JV_ERR_NO_DEVICE;
    }
    if (m_device.DeviceHandle != INVALID_HANDLE_VALUE)
        return JV_OK;
    m_extras->note("the device did not open: " + system_error(m_device.LastError));
    return JV_ERR_CYP_OPEN;
} catch (const char* message) { // the previous device does not close
    m_extras->note(message);
    return JV_ERR_CYP_OPEN;
}

unsigned int CUsbCypCom::open_by_name(std::string&) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbCypCom::open_by_sn(std::string&) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbCypCom::open_by_location(unsigned int) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbCypCom::open_by_tcpip(std::string&, int) {
    return JV_ERR_NOT_SUPPORTED;
}

unsigned int CUsbCypCom::close() {
    if (!is_open())
        return JV_ERR_COM_NOT_OPEN;
    stop_listening_thread();
    const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    m_com_handle = nullptr;
    m_rx_buffer.clear();
    return JV_OK;
}

unsigned int CUsbCypCom::read(void* buffer, unsigned int size) {
    if (!is_open())
        return JV_ERR_COM_NOT_OPEN;
    if (m_device.BulkInEndPt == nullptr)
        return JV_ERR_CYP_NO_ENDPOINT;
    LONG length = static_cast<LONG>(size);
    return m_device.BulkInEndPt->XferData(static_cast<BYTE*>(buffer), length) ? JV_OK : JV_ERR_CYP_READ;
}

unsigned int CUsbCypCom::write(void* buffer, unsigned int size) {
    if (!is_open())
        return JV_ERR_COM_NOT_OPEN;
    if (m_device.BulkOutEndPt == nullptr)
        return JV_ERR_CYP_NO_ENDPOINT;
    CCyBulkEndPoint& out = *m_device.BulkOutEndPt;
    jorvet::cyusb::pending_record record;
    if (!record.valid())
        return JV_ERR_NO_RESOURCES;
    auto* const bytes = static_cast<BYTE*>(buffer);
    LONG length = static_cast<LONG>(size);
    BYTE* const context = out.BeginDataXfer(bytes, length, record.get());
    // Without a transfer, `LastError` is still that of an earlier one.
    const bool ended = context != nullptr && out.WaitForXfer(record.get(), write_wait_ms);
    if (!ended)
        out.Abort();
    const bool finished = out.FinishDataXfer(bytes, length, record.get(), context, nullptr);
    if (!finished) {
        out.Reset();
        out.Abort();
    }
    if (ended && finished && length == static_cast<LONG>(size))
        return JV_OK;
    m_extras->note(finished ? "the bulk OUT transfer moved " + std::to_string(length) + " bytes"
                   : ended  ? "the bulk OUT transfer failed: " + transfer_error(out)
                            : "the bulk OUT transfer did not end in time");
    return JV_ERR_CYP_WRITE;
}

unsigned int CUsbCypCom::purge_tx() {
    cancel_and_clear(m_device.BulkOutEndPt);
    return JV_OK;
}

unsigned int CUsbCypCom::purge_rx() {
    cancel_and_clear(m_device.BulkInEndPt);
    return JV_OK;
}

unsigned int CUsbCypCom::start_listening_thread() {
    if (!is_open())
        return JV_ERR_COM_NOT_OPEN;
    if (m_listening_thread && m_listening_thread->joinable())
        stop_listening_thread();
    purge_tx();
    purge_rx();
    return run_listening_thread([this] { listening_loop(); }, ready_poll_ms);
}

// The flag is set before the abort: a loop that starts its next transfer after the abort sees the flag and ends that
// transfer itself.
unsigned int CUsbCypCom::stop_listening_thread() {
    const boost::this_thread::disable_interruption uninterrupted; // the thread uses this object
    m_listening_stopped = true;
    m_rx_abort = true;
    purge_tx();
    purge_rx();
    if (m_listening_thread && m_listening_thread->joinable()) {
        while (!m_listening_thread->try_join_for(boost::chrono::milliseconds(stop_wait_ms)))
            purge_rx(); // the driver refused the abort, and the thread still waits for its transfer
    }
    end_receiving();
    return JV_OK;
}

void CUsbCypCom::listening_loop() {
    try {
        if (m_device.BulkInEndPt != nullptr && m_device.BulkOutEndPt != nullptr)
            listen();
    } catch (...) { // whatever it is, going on would lose bytes
        m_listening_failure = JV_ERR_NO_RESOURCES;
        m_extras->ended(jorvet::com::link_end::out_of_memory);
    }
    listening_ended();
}

// The next transfer is pending while the bytes of the previous one are delivered.
void CUsbCypCom::listen() {
    CCyBulkEndPoint& in = *m_device.BulkInEndPt;
    std::vector<unsigned char> current(max_delivery);
    std::vector<unsigned char> next(max_delivery);
    in_transfer transfer(in);
    if (!transfer.has_event())
        throw std::bad_alloc();
    m_cp_listening_loop = 0;
    m_cp_listening_loop_with_data = 0;
    purge_rx();
    const DWORD wait_ms = jorvet::cyusb::is_usb3(m_device.BcdUsb) ? usb3_wait_ms : no_limit;
    bool started = transfer.begin(current);
    boost::this_thread::sleep_for(boost::chrono::milliseconds(first_transfer_wait_ms));
    listening_began();
    do {
        transfer.wait(wait_ms);
        LONG length = 0;
        const bool ok = transfer.finish(&length);
        // Evaluated here because the next start overwrites the status words.
        const bool failed = !started || in.NtStatus != 0 || in.UsbdStatus != 0;
        if (failed)
            m_extras->note("the bulk IN transfer failed: " + transfer_error(in));
        started = transfer.begin(next);
        if (!ok && length != 0) {
            in.Reset();
            in.Abort();
        }
        if (length != 0 && !m_rx_failed)
            deliver_from(current, static_cast<std::size_t>(length));
        ++m_cp_listening_loop;
        current.swap(next);
        if (m_rx_failed)
            m_listening_stopped = true;
        if (failed && !m_listening_stopped.exchange(true))
            m_extras->ended(jorvet::com::link_end::device_lost);
    } while (!m_listening_stopped);
}

// Hands `bytes` over when nothing is untaken, which leaves the memory that the consumer is done with in their place,
// and copies them otherwise and when they are few. `bytes` are zeros again afterwards, so that bytes that a driver
// claims but does not write read as 0.
void CUsbCypCom::deliver_from(std::vector<unsigned char>& bytes, std::size_t count) {
    boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    deliver(lock, count, [&](std::vector<unsigned char>& buffer) {
        if (buffer.empty() && count > max_delivery / 2) { // copying and clearing them would cost more than all zeros
            bytes.resize(count);
            buffer.swap(bytes);
            return true;
        }
        buffer.insert(buffer.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
        return true;
    });
    if (bytes.size() == max_delivery)
        std::fill_n(bytes.begin(), count, static_cast<unsigned char>(0));
    else
        bytes.assign(max_delivery, 0);
}

unsigned short CUsbCypCom::get_cp_listening_loop() {
    return m_cp_listening_loop;
}

unsigned short CUsbCypCom::get_cp_listening_loop_with_data() {
    return m_cp_listening_loop_with_data;
}

void CUsbCypCom::print_info() {
    const auto index = m_com_info->index;
    if (index >= m_device.ConfigCount())
        return;
    jorvet::com::write_descriptor_report(std::cout, m_device.GetUSBConfig(static_cast<int>(index)),
                                         m_device.BulkInEndPt, m_device.BulkOutEndPt);
}
