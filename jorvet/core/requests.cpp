// The requests: one path, on the application's threads, one request at a time. What differs is in the calls
// below and in the table of jorvet/protocol/request_frame.h.
#include <algorithm>

#include "jorvet/base/status.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"
#include "jorvet/protocol/request_frame.h"

namespace requests = jorvet::protocol::requests;

unsigned int CJorvet::run_request(const jorvet::protocol::request& rq, bool with_crc, unsigned short* out_length,
                                  unsigned char* out_data) {
    if (!m_com)
        return JV_ERR_NO_COM;
    boost::unique_lock<boost::mutex> running(m_rq_mutex);
    const jorvet::core::session::turn_end ending{*m_session, running};
    {
        const boost::unique_lock<boost::mutex> lock(m_reply_mutex);
        arm_reply(rq.kind.command);
    }
    std::vector<unsigned char> frame = jorvet::protocol::build_frame(rq, with_crc);
    if (const unsigned int status = m_session->send(frame))
        return status;
    if (wait_for_reply() == JV_ERR_REPLY_TIMEOUT) {
        ++m_session->counters.request_timeouts;
        return rq.kind.timeout_status;
    }

    const boost::shared_ptr<IProtocol::REPLY_FRAME> reply = get_last_reply_frame();
    if (out_length != nullptr) {
        *out_length = reply->length;
        std::copy(reply->data.begin(), reply->data.end(), out_data);
    }
    return code_of(m_reply_status);
}

// From here on a reply is the one to this command. The caller holds m_reply_mutex.
void CJorvet::arm_reply(unsigned char command) {
    m_rq_cmd = command;
    m_reply_ready = false;
    m_last_status = JV_OK;
}

unsigned int CJorvet::code_of(unsigned short board_status) const {
    const auto found = m_mapping_error.find(board_status);
    return found != m_mapping_error.end() ? found->second : static_cast<unsigned int>(JV_OK);
}

unsigned int CJorvet::rq_read_memory(unsigned char p1, unsigned char p2, unsigned char p3, bool with_crc) {
    return run_request({requests::read_memory, {p1, p2, p3}}, with_crc);
}

unsigned int CJorvet::rq_read_by_id(unsigned char p1, unsigned char p2, unsigned char p3, unsigned short* out_length,
                                    unsigned char* out_data, bool with_crc) {
    return run_request({requests::read_by_id, {p1, p2, p3}}, with_crc, out_length, out_data);
}

unsigned int CJorvet::rq_read_sn(unsigned char p1, bool with_crc) {
    return run_request({requests::read_sn, {p1, 0, 0}}, with_crc);
}

unsigned int CJorvet::rq_read_last_sw(unsigned char p1, bool with_crc) {
    return run_request({requests::read_last_sw, {p1, 0, 0}}, with_crc);
}

unsigned int CJorvet::rq_read_error(unsigned char p1, bool with_crc) {
    return run_request({requests::read_error, {p1, 0, 0}}, with_crc);
}

unsigned int CJorvet::rq_write_memory(unsigned char p1, unsigned char p2, unsigned short length, unsigned char* data,
                                      bool with_crc) {
    return run_request({requests::write_memory, {p1, p2, 0}, data, length}, with_crc);
}

unsigned int CJorvet::rq_write_by_id(unsigned char p1, unsigned char p2, unsigned short length, unsigned char* data,
                                     bool with_crc) {
    return run_request({requests::write_by_id, {p1, p2, 0}, data, length}, with_crc);
}

unsigned int CJorvet::rq_exec_by_id(unsigned char p1, unsigned char p2, unsigned short length, unsigned char* data,
                                    unsigned short* out_length, unsigned char* out_data, bool with_crc) {
    return run_request({requests::exec_by_id, {p1, p2, 0}, data, length}, with_crc, out_length, out_data);
}

unsigned int CJorvet::rq_reset(unsigned char p1, unsigned char p2, bool with_crc) {
    return run_request({requests::reset, {p1, p2, 0}}, with_crc);
}

unsigned int CJorvet::rq_set_mode(unsigned char p1, unsigned char p2, bool with_crc) {
    return run_request({requests::set_mode, {p1, p2, 0}}, with_crc);
}

unsigned int CJorvet::rq_get_mode(unsigned char p1, bool with_crc) {
    return run_request({requests::get_mode, {p1, 0, 0}}, with_crc);
}
