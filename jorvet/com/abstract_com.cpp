// The receive buffer: its consumer side runs on the instance's background thread, its producer side on the listening
// thread. Starting and joining the listening thread runs on the application's threads.
#include "jorvet/com/abstract_com.h"

#include <typeinfo>
#include <utility>

#include <boost/chrono/duration.hpp>
#include <boost/make_shared.hpp>
#include <boost/throw_exception.hpp>

#include "jorvet/base/status.h"
#include "jorvet/com/link_extras.h"

namespace jorvet::com {
// Makes the compiler emit the type information of a class that has no code of its own; it is exported.
extern const std::type_info& tcp_ip_com_type;
const std::type_info& tcp_ip_com_type = typeid(CTcpIpCom);
} // namespace jorvet::com

namespace {
constexpr std::size_t max_unread = std::size_t{1} << 20;    // bytes
constexpr std::size_t max_excess = std::size_t{256} * 1024; // so that not every delivery moves the others
} // namespace

CAbstractCom::CAbstractCom()
    : m_com_info(boost::make_shared<CComInfo>()), m_extras(boost::make_shared<jorvet::com::link_extras>()) {}

bool CAbstractCom::is_open() {
    return m_com_handle != nullptr;
}

void* CAbstractCom::get_com_handle() {
    return m_com_handle;
}

boost::shared_ptr<CComInfo> CAbstractCom::get_com_info() {
    return m_com_info;
}

unsigned int CAbstractCom::get_rx_bytes() {
    const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    return m_rx_bytes;
}

std::vector<unsigned char> CAbstractCom::read_input_data() {
    std::vector<unsigned char> bytes;
    take_input_data(bytes);
    return bytes;
}

void CAbstractCom::take_input_data(std::vector<unsigned char>& bytes) {
    bytes.clear();
    if (bytes.capacity() > max_unread) // of a burst
        bytes.shrink_to_fit();
    const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    m_rx_buffer.swap(bytes);
}

bool CAbstractCom::wait_for_rx_bytes() {
    const boost::chrono::milliseconds limit(m_rx_timeout / 1000);
    boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    while (!m_rx_ready && !m_rx_abort && !m_rx_wake) {
        if (m_rx_cond.wait_for(lock, limit) == boost::cv_status::timeout)
            return false;
    }
    if (std::exchange(m_rx_wake, false) && !m_rx_ready)
        return false;
    m_rx_ready = false;
    return !m_rx_abort;
}

void CAbstractCom::wake_consumer() {
    {
        const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
        m_rx_wake = true;
    }
    m_rx_cond.notify_all();
}

void CAbstractCom::end_receiving() {
    {
        const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
        m_rx_ready = false;
        m_rx_bytes = 0;
    }
    m_rx_abort = false;
}

void CAbstractCom::forget_received() {
    const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    m_rx_buffer.clear();
}

void CAbstractCom::keep_newest() {
    if (m_rx_buffer.size() <= max_unread + max_excess)
        return;
    const std::size_t excess = m_rx_buffer.size() - max_unread;
    m_rx_buffer.erase(m_rx_buffer.begin(), m_rx_buffer.begin() + static_cast<std::ptrdiff_t>(excess));
    m_extras->dropped_unread += excess;
}

unsigned int CAbstractCom::run_listening_thread(const std::function<void()>& body, int poll_ms) {
    m_listening_ready = false;
    m_listening_failure = JV_OK;
    m_rx_failed = false;
    const boost::this_thread::disable_interruption uninterrupted; // or the thread would be left to itself
    m_listening_thread = boost::make_shared<boost::thread>(body);
    while (!m_listening_ready)
        boost::this_thread::sleep_for(boost::chrono::milliseconds(poll_ms));
    if (m_listening_failure == JV_ERR_NO_RESOURCES)
        boost::throw_exception(boost::thread_resource_error());
    return m_listening_failure;
}

void CAbstractCom::listening_began() {
    m_listening_stopped = false;
    m_listening_ready = true;
}

void CAbstractCom::listening_ended() {
    m_listening_stopped = true;
    m_listening_ready = true;
}

void CAbstractCom::join_listening_thread() {
    const boost::this_thread::disable_interruption uninterrupted; // the thread uses this object
    if (m_listening_thread && m_listening_thread->joinable())
        m_listening_thread->join();
}
