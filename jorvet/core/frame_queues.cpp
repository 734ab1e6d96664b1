// The two queues of received frames, seen from the application's threads: waits, taking, dropping. The background
// thread fills them.
#include <boost/chrono/duration.hpp>
#include <boost/make_shared.hpp>

#include "jorvet/base/diagnostics.h"
#include "jorvet/base/status.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"

namespace {

using boost_lock = boost::unique_lock<boost::mutex>;

// A thread that waits, among `waiters`, while this lives. Created and destroyed under the lock that guards them.
class counted_waiter {
  public:
    explicit counted_waiter(unsigned& waiters) : waiters_(waiters) { ++waiters_; }
    ~counted_waiter() { --waiters_; }
    counted_waiter(const counted_waiter&) = delete;
    counted_waiter& operator=(const counted_waiter&) = delete;

  private:
    unsigned& waiters_;
};

// One wait for a frame of either kind: each wake-up that finds no frame starts the full time again. `last_status` is
// shared by both kinds, so a wait that its frame ended heeds the loss of the stream alone.
unsigned int wait_for_frame(boost::mutex& mutex, boost::condition_variable& arrived, unsigned& waiters, bool& ready,
                            const std::atomic<std::int64_t>& limit_us, unsigned int timeout_status,
                            std::atomic<unsigned int>& last_status) {
    boost_lock lock(mutex);
    const counted_waiter waiter(waiters);
    last_status = JV_OK;
    while (!ready) {
        const boost::chrono::milliseconds limit(limit_us / 1000);
        if (arrived.wait_for(lock, limit) == boost::cv_status::timeout) {
            last_status = timeout_status;
            return timeout_status;
        }
    }
    ready = false;
    return last_status == JV_ERR_CONTEXT_LOSS ? JV_ERR_CONTEXT_LOSS : JV_OK;
}

boost::shared_ptr<IProtocol::REPLY_FRAME> take_newest(std::vector<boost::shared_ptr<IProtocol::REPLY_FRAME>>& queue) {
    if (queue.empty())
        return boost::make_shared<IProtocol::REPLY_FRAME>();
    boost::shared_ptr<IProtocol::REPLY_FRAME> newest = std::move(queue.back());
    queue.pop_back();
    return newest;
}

} // namespace

void CJorvet::set_timeout_for_reply(unsigned short milliseconds) {
    m_timeout_for_reply = std::int64_t{1000} * milliseconds;
}

void CJorvet::set_timeout_for_event(unsigned short milliseconds) {
    m_timeout_for_event = std::int64_t{1000} * milliseconds;
}

unsigned int CJorvet::wait_for_reply() {
    return wait_for_frame(m_reply_mutex, m_reply_cond, m_session->class_waits.reply, m_reply_ready, m_timeout_for_reply,
                          JV_ERR_REPLY_TIMEOUT, m_last_status);
}

unsigned int CJorvet::wait_for_event() {
    return wait_for_frame(m_event_mutex, m_event_cond, m_session->class_waits.event, m_event_ready, m_timeout_for_event,
                          JV_ERR_EVENT_TIMEOUT, m_last_status);
}

boost::shared_ptr<IProtocol::REPLY_FRAME> CJorvet::get_last_reply_frame() {
    std::size_t reported = 0;
    boost::shared_ptr<IProtocol::REPLY_FRAME> newest;
    {
        const boost_lock lock(m_reply_mutex);
        const std::size_t queued = m_reply_frames.size();
        if (queued > 1 && queued != m_reply_frames_reported)
            m_reply_frames_reported = reported = queued;
        newest = take_newest(m_reply_frames);
    }
    if (reported > 0 && (jorvet::diagnostics::listening() || m_session->logs(JV_LOG_WARNINGS))) {
        const std::string text =
            "Jorvet - Warning - get_last_reply_frame m_reply_frames.size(): " + std::to_string(reported) + "\n";
        jorvet::diagnostics::write(text);
        m_session->log(JV_LOG_WARNINGS, text);
    }
    return newest;
}

boost::shared_ptr<IProtocol::EVENT_FRAME> CJorvet::get_last_event_frame() {
    const boost_lock lock(m_event_mutex);
    if (m_session->events.size() == 0)
        return boost::make_shared<IProtocol::EVENT_FRAME>();
    auto newest = m_session->events.take_newest();
    m_session->events_changed();
    return newest;
}

std::vector<boost::shared_ptr<IProtocol::REPLY_FRAME>> CJorvet::read_reply_frames() {
    std::vector<boost::shared_ptr<IProtocol::REPLY_FRAME>> taken;
    const boost_lock lock(m_reply_mutex);
    taken.swap(m_reply_frames);
    return taken;
}

std::vector<boost::shared_ptr<IProtocol::EVENT_FRAME>> CJorvet::read_event_frames() {
    const boost_lock lock(m_event_mutex);
    auto taken = m_session->events.take_all();
    m_session->events_changed();
    return taken;
}

// What is dropped is freed without the lock.
void CJorvet::purge_reply_frame() {
    read_reply_frames();
}

void CJorvet::purge_event_frame() {
    read_event_frames();
}
