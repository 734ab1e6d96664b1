// The receive buffer's consumer side, run by the instance's background thread; the producer side is the links'.
#include "jorvet/com/abstract_com.h"

#include <typeinfo>

#include <boost/chrono/duration.hpp>
#include <boost/make_shared.hpp>

namespace jorvet::com {
// Applications may ask for the type of a class that has no code of its own: this emits it.
extern const std::type_info& tcp_ip_com_type;
const std::type_info& tcp_ip_com_type = typeid(CTcpIpCom);
} // namespace jorvet::com

CAbstractCom::CAbstractCom() : m_com_info(boost::make_shared<CComInfo>()) {}

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
    const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    std::vector<unsigned char> bytes(m_rx_buffer);
    m_rx_buffer.clear(); // keeps its capacity for the next delivery
    return bytes;
}

bool CAbstractCom::wait_for_rx_bytes() {
    const boost::chrono::milliseconds limit(m_rx_timeout / 1000);
    boost::unique_lock<boost::mutex> lock(m_rx_mutex);
    while (!m_rx_ready && !m_rx_abort) {
        if (m_rx_cond.wait_for(lock, limit) == boost::cv_status::timeout)
            return false;
    }
    m_rx_ready = false;
    return !m_rx_abort;
}
