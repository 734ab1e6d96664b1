// The life of an instance: construction, connecting, disconnecting, and the background thread. See the header for
// threads.
#include "jorvet/core/jorvet.h"

#include <memory>
#include <typeinfo>

#include <boost/chrono/duration.hpp>
#include <boost/make_shared.hpp>

#include "jorvet/base/kinds.h"
#include "jorvet/base/status.h"
#include "jorvet/com/usb_cyp_com.h"
#include "jorvet/com/usb_ftd2xx_com.h"
#include "jorvet/core/board_status.h"
#include "jorvet/core/frame_stream.h"
#include "jorvet/core/receiver.h"
#include "jorvet/core/session.h"
#include "jorvet/protocol/crc.h"
#include "jorvet/system/win32.h"

namespace jorvet::core {
// Applications may ask for the type of a class without virtual operations: this emits it.
extern const std::type_info& instance_type;
const std::type_info& instance_type = typeid(CJorvet);
} // namespace jorvet::core

namespace {

boost::shared_ptr<CAbstractCom> make_com(unsigned int kind) {
    if (kind == JV_KIND_FTDI)
        return boost::shared_ptr<CAbstractCom>(boost::make_shared<CUsbFtd2xxCom>());
    if (kind == JV_KIND_CYPRESS)
        return boost::shared_ptr<CAbstractCom>(boost::make_shared<CUsbCypCom>());
    return {};
}

} // namespace

CJorvet::CJorvet(unsigned int kind)
    : m_com_type(kind), m_com(make_com(m_com_type)), m_session(std::make_unique<jorvet::core::session>(*this)) {}

CJorvet::~CJorvet() {
    try {
        disconnect();
    } catch (...) { // a destructor must not throw, and nothing remains to be done
    }
}

unsigned int CJorvet::connect(unsigned char index) {
    const boost::this_thread::disable_interruption uninterrupted; // it ends soon, and leaves all or nothing running
    if (const unsigned int status = prepare_connect())
        return status;
    m_session->resume();
    return open_and_receive([&] { return m_com->open_by_index(index); });
}

// The same for the device that `ok` accepts.
unsigned int CJorvet::connect_checked(unsigned char index, const jorvet::com::device_check& ok) {
    const boost::this_thread::disable_interruption uninterrupted;
    if (const unsigned int status = prepare_connect())
        return status;
    return open_and_receive([&] {
        return m_com_type == JV_KIND_FTDI ? static_cast<CUsbFtd2xxCom&>(*m_com).open_checked(index, ok)
                                          : static_cast<CUsbCypCom&>(*m_com).open_checked(index, ok);
    });
}

unsigned int CJorvet::connect(std::string& address, int port) {
    if (const unsigned int status = prepare_connect())
        return status;
    return open_and_receive([&] { return m_com->open_by_tcpip(address, port); });
}

unsigned int CJorvet::prepare_connect() {
    if (!m_com)
        return JV_ERR_NO_COM;
    if (m_session->in_callback())
        return JV_ERR_IN_CALLBACK;
    if (m_com->is_open())
        disconnect();
    stop_receiving(); // of a link that was lost: what came before stays queued
    if (const unsigned int status = m_com->load())
        return status;
    init_mapping_error();
    return JV_OK;
}

unsigned int CJorvet::open_and_receive(const std::function<unsigned int()>& open) try {
    m_session->opening();
    if (const unsigned int status = open()) {
        m_session->closed();
        return status;
    }
    start_receiving();
    return JV_OK;
} catch (...) {
    m_session->closed();
    throw;
}

void CJorvet::start_receiving() {
    m_com->set_unread(false);
    m_session->remember(m_com_type == JV_KIND_FTDI ? static_cast<CUsbFtd2xxCom&>(*m_com).opened_device()
                                                   : static_cast<CUsbCypCom&>(*m_com).opened_device());
    m_session->opened();
    if (!m_com->is_open()) // lost again
        return;
    m_lost_events = 0;
    m_event_count = 0;
    m_stop_thread = false; // before the thread begins, so that a disconnect right away finds it
    m_bkgd_thread = boost::make_shared<boost::thread>([this] { m_bkgd_thread_loop(); });
}

unsigned int CJorvet::disconnect() {
    const boost::this_thread::disable_interruption uninterrupted; // the background thread uses this object
    if (m_session->in_callback())                                 // of that thread itself, perhaps
        return JV_ERR_IN_CALLBACK;
    unsigned int result = JV_OK;
    {
        const struct stopper { // also when the link's close throws
            CJorvet& instance;
            ~stopper() { instance.stop_receiving(); }
        } stopping{*this};
        if (is_open())
            result = m_com->close();
    }
    purge_event_frame();
    purge_reply_frame();
    m_session->closed();
    return result;
}

void CJorvet::stop_receiving() {
    m_stop_thread = true;
    if (m_bkgd_thread && m_bkgd_thread->joinable()) {
        m_com->wake_consumer();
        m_bkgd_thread->join();
    }
}

bool CJorvet::is_open() {
    return m_com && m_com->is_open();
}

unsigned int CJorvet::purge_rx() {
    return m_com ? m_com->purge_rx() : static_cast<unsigned int>(JV_ERR_NO_COM);
}

unsigned int CJorvet::purge_tx() {
    return m_com ? m_com->purge_tx() : static_cast<unsigned int>(JV_ERR_NO_COM);
}

boost::shared_ptr<CAbstractCom> CJorvet::get_com() {
    return m_com;
}

std::vector<unsigned char> CJorvet::get_garbage() {
    return m_garbage;
}

void CJorvet::purge_garbage() {
    m_garbage.clear();
}

void CJorvet::init_mapping_error() {
    if (m_mapping_error_done)
        return;
    m_mapping_error = jorvet::core::make_board_status_table();
    m_mapping_error_done = true;
}

bool CJorvet::crc_calc(IProtocol::REPLY_FRAME* frame) {
    const auto middle_bits = [](unsigned word) { return static_cast<unsigned char>((word >> 4) & 0xFF); };
    const auto low_bits = [](unsigned word) { return static_cast<unsigned char>(word & 0xFF); };
    std::vector<unsigned char> bytes{frame->type, middle_bits(frame->status), low_bits(frame->status),
                                     middle_bits(frame->length), low_bits(frame->length)};
    bytes.insert(bytes.end(), frame->data.begin(), frame->data.end());
    return frame->crc == IProtocol::getCRC_CCITT(bytes);
}

void CJorvet::m_bkgd_thread_loop() try {
    m_lost_events = 0;
    m_event_count = 0;
    {
        const boost::unique_lock<boost::mutex> lock(m_reply_mutex);
        m_reply_frames_reported = 0;
    }
    m_last_status = JV_OK;
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST);

    jorvet::core::receiver sink(*this);
    jorvet::core::frame_stream stream(sink, *m_session);
    std::vector<unsigned char> packet;
    while (!m_stop_thread && m_com->is_open()) {
        if (!m_com->wait_for_rx_bytes()) {
            boost::this_thread::sleep_for(boost::chrono::milliseconds(2));
            continue;
        }
        m_com->take_input_data(packet);
        if (m_mode == jorvet::core::deaf_mode)
            continue;
        m_session->packet_received(packet);
        const bool goes_on = stream.take(packet);
        m_session->packet_done();
        if (!goes_on) {
            m_com->set_unread(true);
            m_last_status = JV_ERR_CONTEXT_LOSS;
            m_stop_thread = true;
        }
    }
    m_stop_thread = true;
} catch (...) { // whatever it is, going on would lose frames
    m_last_status = JV_ERR_NO_RESOURCES;
    m_session->out_of_memory();
    m_com->receiving_failed();
    m_stop_thread = true;
}
