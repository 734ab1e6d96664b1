// The event queue against a plain list that keeps every fact with its event.
#include <list>
#include <random>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include "jorvet/core/event_queue.h"

namespace jorvet::core {
namespace {

struct model_event {
    unsigned number;
    event_facts facts;
};

// What was dropped shows in the facts of the event that is taken next from the front.
class model {
  public:
    void push(unsigned number, unsigned before, const stamp& arrival) {
        while (events.size() >= limit)
            drop();
        events.push_back({number, {arrival, before, 0}});
    }
    model_event take_oldest() {
        model_event taken = events.front();
        events.pop_front();
        taken.facts.lost += lost;
        taken.facts.dropped += dropped;
        lost = dropped = 0;
        return taken;
    }
    void drop() {
        lost += events.front().facts.lost;
        ++dropped;
        ++ever_dropped;
        events.pop_front();
    }

    std::list<model_event> events;
    std::size_t limit = SIZE_MAX;
    std::uint64_t lost = 0, dropped = 0, ever_dropped = 0;
};

unsigned number_of(const event_record& event) {
    return event->length;
}

TEST(EventQueue, TellsOfEachEventWhatAPlainListWould) {
    std::mt19937 engine(12);
    const auto random = [&] { return static_cast<unsigned>(engine()); };
    for (int round = 0; round < 200; ++round) {
        std::vector<event_record> records;
        event_queue queue(records);
        model expected;
        stamp now;
        unsigned number = 0;
        for (int step = 0; step < 400; ++step) {
            const unsigned what = random() % 100;
            if (what < 60) {
                if (round % 2 == 0 && random() % 4 == 0)
                    queue.packet_arrived(now = {step + 1, 2 * step});
                for (unsigned left = random() % (round % 10 == 0 ? 60 : 4); left > 0;) {
                    const unsigned batch = 1 + random() % left;
                    const unsigned lost = random() % 5 == 0 ? random() % 256 : 0;
                    for (unsigned event = 0; event < batch; ++event) {
                        records.push_back(boost::make_shared<IProtocol::EVENT_FRAME>());
                        records.back()->length = static_cast<unsigned short>(++number);
                        expected.push(number, event == 0 ? lost : 0, now);
                    }
                    if (lost != 0 || !queue.plain())
                        queue.noted(batch, lost);
                    left -= batch;
                }
            } else if (what < 62) {
                expected.limit = random() % 3 == 0 ? SIZE_MAX : 1 + random() % 20;
                queue.set_limit(expected.limit);
                while (expected.events.size() > expected.limit)
                    expected.drop();
            } else if (what < 63) {
                EXPECT_EQ(queue.take_all().size(), expected.events.size());
                expected.events.clear();
            } else if (!expected.events.empty() && what < 70) {
                EXPECT_EQ(number_of(queue.take_newest()), expected.events.back().number);
                expected.events.pop_back();
            } else if (!expected.events.empty()) {
                EXPECT_EQ(queue.oldest().length, expected.events.front().number);
                event_facts facts;
                const unsigned taken = number_of(queue.take_oldest(facts));
                const model_event wanted = expected.take_oldest();
                ASSERT_EQ(taken, wanted.number);
                ASSERT_TRUE(facts.lost == wanted.facts.lost && facts.dropped == wanted.facts.dropped) << step;
                ASSERT_EQ(facts.arrival.monotonic_ns, wanted.facts.arrival.monotonic_ns) << step;
                ASSERT_EQ(facts.arrival.utc_ns, wanted.facts.arrival.utc_ns) << step;
            }
            ASSERT_EQ(queue.size(), expected.events.size());
            ASSERT_EQ(queue.dropped(), expected.ever_dropped);
        }
    }
}

// However many are queued, and while as many come: a queue that moved its records each time would take minutes.
TEST(EventQueue, TakesTheOldestOfMany) {
    std::vector<event_record> records;
    event_queue queue(records);
    const auto one = boost::make_shared<IProtocol::EVENT_FRAME>();
    for (int i = 0; i < 200000; ++i)
        records.push_back(one);
    event_facts facts;
    std::size_t longest = 0;
    for (int i = 0; i < 1000000; ++i) {
        records.push_back(one);
        queue.noted(1, 1);
        queue.take_oldest(facts);
        longest = std::max(longest, records.size());
    }
    EXPECT_TRUE(queue.size() == 200000 && longest <= 400002) << longest;
}

} // namespace
} // namespace jorvet::core
