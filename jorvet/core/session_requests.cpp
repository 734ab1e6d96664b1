// A request with its whole answer: its turn, silence, sending, the reply. On the application's threads.
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"
#include "jorvet/protocol/crc.h"

namespace jorvet::core {

namespace {

using lock = boost::unique_lock<boost::mutex>;

// Sets a flag for as long as it lives.
class raised {
  public:
    explicit raised(std::atomic<bool>& flag) : flag_(flag) { flag_.store(true); }
    ~raised() { flag_ = false; }
    raised(const raised&) = delete;
    raised& operator=(const raised&) = delete;

  private:
    std::atomic<bool>& flag_;
};

unsigned short crc_of(const IProtocol::REPLY_FRAME& reply) {
    const auto byte = [](unsigned value) { return static_cast<unsigned char>(value & 0xFF); };
    const unsigned char header[] = {reply.type, byte(reply.status >> 8u), byte(reply.status), byte(reply.length >> 8u),
                                    byte(reply.length)};
    return protocol::crc_ccitt(reply.data.data(), reply.data.size(), protocol::crc_ccitt(header, sizeof(header)));
}

jv_crc verdict_on(CJorvet& instance, IProtocol::REPLY_FRAME& reply) {
    if ((reply.type & protocol::with_crc_bit) == 0)
        return JV_CRC_NONE;
    if (reply.crc == crc_of(reply))
        return JV_CRC_RIGHT;
    return instance.crc_calc(&reply) ? JV_CRC_SHIFTED : JV_CRC_WRONG;
}

} // namespace

unsigned session::request(const protocol::request& rq, bool with_crc, std::uint32_t timeout_ms, answer& result) {
    lock turn(owner_.m_rq_mutex, boost::defer_lock);
    if (const unsigned status = take_turn(turn, deadline(timeout_ms)))
        return status;
    const turn_end ending{*this, turn};
    drop_kept();
    if (const unsigned status = why_not_receiving())
        return status;
    if (const unsigned status = arm_in_silence(rq.kind.command, result.stale))
        return status;
    std::vector<unsigned char> frame = protocol::build_frame(rq, with_crc);
    unsigned status = JV_OK;
    {
        const raised writing(writing_);
        status = send(frame);
    }
    if (status != JV_OK && cancelled_)
        return JV_ERR_CANCELLED;
    if (status == JV_ERR_FTDI_INVALID_HANDLE || status == JV_ERR_COM_NOT_OPEN) // the link has just closed itself
        return JV_ERR_DEVICE_LOST;
    if (status != JV_OK)
        return status;
    return await_reply(deadline(timeout_ms), rq.kind.timeout_status, result);
}

unsigned session::take_turn(lock& turn, deadline until) {
    lock held(mutex_);
    bool in_time = true;
    while (!cancelled_) {
        if (turn.try_lock())
            return JV_OK;
        if (!in_time)
            return JV_ERR_BUSY;
        in_time = until.wait(changed_, held);
    }
    return JV_ERR_CANCELLED;
}

session::turn_end::~turn_end() {
    held.unlock();
    { const lock none_between(of.mutex_); }
    of.changed_.notify_all();
}

// Drops what is queued, and after a time-out what comes until it has been quiet for long enough. What comes from then
// on counts as the reply.
unsigned session::arm_in_silence(unsigned char command, std::uint64_t& stale) {
    lock held(owner_.m_reply_mutex);
    for (;;) {
        stale += owner_.m_reply_frames.size();
        counters.stale_replies += owner_.m_reply_frames.size();
        owner_.m_reply_frames.clear();
        const deadline silence(silent_since_, quiet_ms_);
        if (!timed_out_ || silence.passed())
            break;
        if (cancelled_)
            return JV_ERR_CANCELLED;
        if (const unsigned status = why_not_receiving())
            return status;
        const counted waiting(reply_waiters_);
        silence.wait(reply_cond_, held);
    }
    timed_out_ = false;
    owner_.arm_reply(command);
    return JV_OK;
}

// The newest reply is the answer: those before it came late to earlier requests.
unsigned session::await_reply(deadline until, unsigned timeout_status, answer& result) {
    lock held(owner_.m_reply_mutex);
    bool in_time = true;
    while (owner_.m_reply_frames.empty()) {
        if (cancelled_)
            return JV_ERR_CANCELLED;
        if (const unsigned status = why_not_receiving())
            return status;
        if (!in_time) {
            ++counters.request_timeouts;
            timed_out_ = true;
            silent_since_ = boost::chrono::steady_clock::now();
            return timeout_status;
        }
        const counted waiting(reply_waiters_);
        in_time = until.wait(reply_cond_, held);
    }
    owner_.m_reply_ready = false;
    result.reply = std::move(owner_.m_reply_frames.back());
    owner_.m_reply_frames.pop_back();
    held.unlock();
    result.status = owner_.code_of(result.reply->status);
    result.crc = verdict_on(owner_, *result.reply);
    if (result.crc == JV_CRC_WRONG)
        ++counters.wrong_crcs;
    return JV_OK;
}

std::uint64_t session::keep(const answer& too_large) {
    const lock held(mutex_);
    kept_ = too_large;
    kept_ticket_ = ++last_ticket_;
    return kept_ticket_;
}

bool session::kept(std::uint64_t ticket, answer& result) const {
    const lock held(mutex_);
    if (ticket == 0 || ticket != kept_ticket_)
        return false;
    result = kept_;
    return true;
}

void session::drop_kept() {
    const lock held(mutex_);
    kept_ticket_ = 0;
    kept_.reply.reset();
}

} // namespace jorvet::core
