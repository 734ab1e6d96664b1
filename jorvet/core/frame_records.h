// Turns the engine's view of a frame into the record that the queues hold, with one allocation and one copy of the
// data.
#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "jorvet/core/receive_engine.h"
#include "jorvet/protocol/frames.h"

namespace jorvet::core {

template <typename Record, typename View>
boost::shared_ptr<Record> make_record(View frame) {
    auto record = boost::make_shared<Record>();
    record->type = frame.type();
    record->status = frame.status();
    record->length = frame.length();
    record->data.assign(frame.data(), frame.data() + record->length);
    record->crc = frame.crc();
    return record;
}

inline boost::shared_ptr<IProtocol::REPLY_FRAME> make_reply(reply_view frame) {
    return make_record<IProtocol::REPLY_FRAME>(frame);
}

inline boost::shared_ptr<IProtocol::EVENT_FRAME> make_event(event_view frame) {
    auto record = make_record<IProtocol::EVENT_FRAME>(frame);
    record->id = frame.id();
    record->seq = frame.seq();
    return record;
}

} // namespace jorvet::core
