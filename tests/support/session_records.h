// The records of the session functions, ready for a call, and short forms of the calls.
#pragma once

#include <cstring>

#include "jorvet/api/jv_session.h"
#include "tests/support/connected_board.h"

namespace jorvet::testing {

template <class Record>
Record sized() {
    Record record{};
    record.size = sizeof(record);
    return record;
}

inline jv_state_record state_of(CJorvet& instance) {
    auto record = sized<jv_state_record>();
    std::memset(record.cause, '#', sizeof(record.cause));
    EXPECT_EQ(jv_state(&instance, &record), JV_OK);
    return record;
}

inline jv_counters counters_of(CJorvet& instance) {
    auto record = sized<jv_counters>();
    EXPECT_EQ(jv_count(&instance, &record), JV_OK);
    return record;
}

// Counts may be behind by the packet that is being taken.
template <class Condition>
bool counts(CJorvet& instance, Condition holds) {
    return eventually([&] { return holds(counters_of(instance)); });
}

// A request, and room for its answer.
struct asked {
    explicit asked(std::uint32_t kind, std::uint32_t timeout_ms = 10000, std::size_t room = 64) : bytes(room) {
        request.kind = kind;
        request.timeout_ms = timeout_ms;
        answer.data = bytes.data();
        answer.capacity = room;
    }
    unsigned int of(CJorvet& instance) { return jv_request(&instance, &request, &answer); }
    byte_vector data() const { return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(answer.length)}; }

    byte_vector bytes;
    jv_request_record request = sized<jv_request_record>();
    jv_answer answer = sized<jv_answer>();
};

struct taken {
    explicit taken(std::size_t room = 64) : bytes(room) {
        event.data = bytes.data();
        event.capacity = room;
    }
    unsigned int from(CJorvet& instance, std::uint32_t timeout_ms = 10000) {
        return jv_next_event(&instance, &event, timeout_ms);
    }

    byte_vector bytes;
    jv_event event = sized<jv_event>();
};

} // namespace jorvet::testing
