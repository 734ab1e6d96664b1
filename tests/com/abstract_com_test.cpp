// The receive buffer between a link's listening thread and its consumer, with a link that does nothing by itself.
#include <future>

#include <boost/make_shared.hpp>

#include "jorvet/com/abstract_com.h"
#include "tests/support/simulated_board.h"

namespace jorvet::testing {
namespace {

class BareCom final : public CAbstractCom {
  public:
    unsigned int load() override { return 0; }
    unsigned int open_by_index(unsigned char) override { return 0; }
    unsigned int open_by_name(std::string&) override { return 0; }
    unsigned int open_by_sn(std::string&) override { return 0; }
    unsigned int open_by_location(unsigned int) override { return 0; }
    unsigned int open_by_tcpip(std::string&, int) override { return 0; }
    unsigned int close() override { return 0; }
    unsigned int read(void*, unsigned int) override { return 0; }
    unsigned int write(void*, unsigned int) override { return 0; }
    unsigned int purge_tx() override { return 0; }
    unsigned int purge_rx() override { return 0; }

    void deliver(const byte_vector& bytes) {
        {
            const boost::unique_lock<boost::mutex> lock(m_rx_mutex);
            m_rx_bytes = static_cast<unsigned int>(bytes.size());
            m_rx_buffer.insert(m_rx_buffer.end(), bytes.begin(), bytes.end());
            m_rx_ready = true;
        }
        m_rx_cond.notify_all();
    }
    void abort(bool on) { m_rx_abort = on; }
};

// What a wait says, and how long it takes in milliseconds.
std::pair<bool, long long> timed_wait(CAbstractCom& com) {
    const steady::time_point start = steady::now();
    const bool came = com.wait_for_rx_bytes();
    return {came, milliseconds_since(start)};
}

TEST(ReceiveBuffer, LetsAWaitWithoutBytesEndAfterThirtyMilliseconds) {
    BareCom com;
    for (int round = 0; round < 3; ++round) {
        const auto [came, time] = timed_wait(com);
        EXPECT_FALSE(came);
        EXPECT_TRUE(time >= 30 && time < 1000) << time;
    }
    EXPECT_TRUE(com.read_input_data().empty());
    EXPECT_FALSE(com.is_open());
    EXPECT_EQ(com.get_com_handle(), nullptr);
    EXPECT_EQ(com.get_com_info()->com_type, 0xFF);
}

TEST(ReceiveBuffer, TellsOfDeliveriesOnceAndHandsThemOutInOrder) {
    BareCom com;
    com.deliver({1, 2, 3});
    com.deliver({4, 5});
    EXPECT_EQ(com.get_rx_bytes(), 2u);
    EXPECT_TRUE(com.wait_for_rx_bytes());
    EXPECT_FALSE(com.wait_for_rx_bytes()) << "no bytes came since";
    EXPECT_EQ(com.read_input_data(), (byte_vector{1, 2, 3, 4, 5}));
    EXPECT_TRUE(com.read_input_data().empty());
    com.deliver({6});
    com.read_input_data();
    EXPECT_TRUE(com.wait_for_rx_bytes()) << "taking the bytes leaves the flag alone";
}

TEST(ReceiveBuffer, FailsAtOnceWhileItsThreadIsBeingStopped) {
    BareCom com;
    com.deliver({7});
    com.abort(true);
    EXPECT_FALSE(com.wait_for_rx_bytes());
    EXPECT_EQ(com.read_input_data(), byte_vector{7});
    com.abort(false);
    EXPECT_FALSE(com.wait_for_rx_bytes()) << "the flag was taken";
}

TEST(ReceiveBuffer, WakesAWaitByADelivery) {
    BareCom com;
    auto waiter = std::async(std::launch::async, [&] { return eventually([&] { return com.wait_for_rx_bytes(); }); });
    com.deliver({8});
    EXPECT_TRUE(waiter.get());
}

} // namespace
} // namespace jorvet::testing
