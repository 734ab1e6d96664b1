// The session functions: each checks its arguments, and copies between the records of C and those of the session. No
// exception leaves them.
#include "jorvet/api/jv_session.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "jorvet/api/unless_thrown.h"
#include "jorvet/core/jorvet.h"
#include "jorvet/core/session.h"

using jorvet::core::deadline;
using jorvet::core::session;
namespace com = jorvet::com;

namespace {

// `call(session)`, with the codes that all functions share.
template <typename Call>
unsigned int with_session(CJorvet* instance, Call call) {
    if (instance == nullptr || !instance->get_com())
        return JV_ERR_NO_COM;
    return jorvet::api::unless_thrown<unsigned int>(JV_ERR_NO_RESOURCES, [&]() -> unsigned int {
        session& found = session::of(*instance);
        found.use();
        return call(found);
    });
}

// The same for a function that must not be called from a callback.
template <typename Call>
unsigned int outside_callbacks(CJorvet* instance, Call call) {
    return with_session(instance, [&](session& found) -> unsigned int {
        if (found.in_callback())
            return JV_ERR_IN_CALLBACK;
        return call(found);
    });
}

// The same for a function that waits.
template <typename Call>
unsigned int visiting(CJorvet* instance, Call call) {
    return outside_callbacks(instance, [&](session& found) -> unsigned int {
        const session::visit inside(found);
        if (const unsigned int status = inside.refused())
            return status;
        return call(found);
    });
}

// A record that the caller has filled in, of the only size that there has been.
template <typename Record>
bool known(const Record* record) {
    return record != nullptr && record->size == sizeof(Record);
}

template <std::size_t N>
void copy_text(const std::string& text, char (&field)[N]) {
    const std::size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

// Copies what fits whole. False when it does not.
bool copy_data(const std::vector<unsigned char>& data, void* to, std::size_t capacity) {
    if (data.size() > capacity)
        return false;
    if (!data.empty())
        std::memcpy(to, data.data(), data.size());
    return true;
}

// A buffer may be missing where it has no room.
bool usable(const void* buffer, std::size_t capacity) {
    return buffer != nullptr || capacity == 0;
}

void export_device(const com::attached_device& device, jv_device& out) {
    out = {};
    out.size = sizeof(out);
    out.kind = device.kind;
    out.index = device.index;
    out.in_use = device.in_use;
    out.not_permitted = device.not_permitted;
    out.speed = device.speed;
    out.vendor_id = device.vendor_id;
    out.product_id = device.product_id;
    copy_text(device.serial_number, out.serial_number);
    copy_text(device.description, out.description);
    copy_text(device.place, out.place);
}

bool fits(const com::attached_device& device, const jv_device_choice& choice) {
    return (choice.vendor_id == 0 || choice.vendor_id == device.vendor_id) &&
           (choice.product_id == 0 || choice.product_id == device.product_id) &&
           (choice.serial_number == nullptr || choice.serial_number == device.serial_number) &&
           (choice.place == nullptr || com::same_place(choice.place, device.place));
}

const jorvet::protocol::request_kind* kind_of(std::uint32_t command) {
    const auto& all = jorvet::protocol::requests::all;
    const auto found =
        std::find_if(std::begin(all), std::end(all), [&](const auto* kind) { return kind->command == command; });
    return found != std::end(all) ? *found : nullptr;
}

// Hands an answer out, or keeps it.
unsigned int export_answer(session& kept_by, const jorvet::core::answer& answer, std::uint64_t ticket, jv_answer& out) {
    const std::vector<unsigned char>& data = answer.reply->data;
    const bool complete = copy_data(data, out.data, out.capacity);
    out.status_word = answer.reply->status;
    out.length = data.size();
    out.ticket = complete ? 0 : ticket != 0 ? ticket : kept_by.keep(answer);
    out.crc_verdict = answer.crc;
    out.crc = answer.reply->crc;
    out.stale = answer.stale;
    return complete ? answer.status : static_cast<unsigned int>(JV_ERR_BUFFER_TOO_SMALL);
}

std::size_t packed_size(std::size_t length) {
    return (sizeof(jv_packed_event) + length + 7) / 8 * 8;
}

using taken_event = std::pair<jorvet::core::event_record, jorvet::core::event_facts>;

// Takes as many events as fit, under the lock. `needed` becomes the size of the first.
std::vector<taken_event> take_fitting(session& from, std::size_t capacity, std::size_t& needed) {
    std::vector<taken_event> taken;
    taken.reserve(std::min(from.events.size(), capacity / sizeof(jv_packed_event))); // for nothing to fail below
    needed = packed_size(from.events.oldest().data.size());
    for (std::size_t size = needed; size <= capacity;) {
        taken.emplace_back();
        taken.back().first = from.events.take_oldest(taken.back().second);
        capacity -= size;
        if (from.events.size() == 0)
            break;
        size = packed_size(from.events.oldest().data.size());
    }
    return taken;
}

// Writes it to `place`; returns the place behind it.
unsigned char* pack(const taken_event& taken, unsigned char* place) {
    const auto& [event, facts] = taken;
    jv_packed_event head{};
    head.record_size = static_cast<std::uint32_t>(packed_size(event->data.size()));
    head.length = static_cast<std::uint32_t>(event->data.size());
    head.monotonic_ns = facts.arrival.monotonic_ns;
    head.utc_ns = facts.arrival.utc_ns;
    head.lost = facts.lost;
    head.dropped = facts.dropped;
    head.status_word = event->status;
    head.crc = event->crc;
    head.type = event->type;
    head.id = event->id;
    head.seq = event->seq;
    std::memcpy(place, &head, sizeof(head));
    copy_data(event->data, place + sizeof(head), event->data.size());
    return place + head.record_size;
}

} // namespace

// ---- Devices ----

unsigned int JV_CALL jv_list(unsigned int kind, jv_device* list, size_t capacity, size_t* count) {
    if (count == nullptr || (kind != JV_KIND_FTDI && kind != JV_KIND_CYPRESS && kind != JV_KIND_NONE) ||
        (capacity > 0 && !known(list)))
        return JV_ERR_BAD_ARGUMENT;
    return jorvet::api::unless_thrown<unsigned int>(JV_ERR_NO_RESOURCES, [&] {
        std::vector<com::attached_device> devices;
        for (const unsigned int one : {JV_KIND_FTDI, JV_KIND_CYPRESS})
            if (kind == one || kind == JV_KIND_NONE)
                for (com::attached_device& device : com::attached_devices(one))
                    devices.push_back(std::move(device));
        for (std::size_t i = 0; i < std::min(devices.size(), capacity); ++i)
            export_device(devices[i], list[i]);
        *count = devices.size();
        return JV_OK;
    });
}

unsigned int JV_CALL jv_connect_to(CJorvet* instance, const jv_device_choice* choice, uint32_t timeout_ms) {
    if (!known(choice))
        return JV_ERR_BAD_ARGUMENT;
    return outside_callbacks(instance, [&](session& found) {
        found.resume();
        const session::visit inside(found);
        return found.connect_to([&](const com::attached_device& device) { return fits(device, *choice); },
                                deadline(timeout_ms));
    });
}

unsigned int JV_CALL jv_reconnect(CJorvet* instance, uint32_t timeout_ms) {
    return outside_callbacks(instance, [&](session& found) {
        found.resume();
        const session::visit inside(found);
        return found.reconnect(deadline(timeout_ms));
    });
}

unsigned int JV_CALL jv_device_of(CJorvet* instance, jv_device* device) {
    if (!known(device))
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) {
        export_device(found.device(), *device);
        return JV_OK;
    });
}

// ---- State ----

unsigned int JV_CALL jv_state(CJorvet* instance, jv_state_record* state) {
    if (!known(state))
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) {
        const jorvet::core::session_state now = found.see_state();
        state->state = now.link;
        state->changes = now.changes;
        state->monotonic_ns = now.since.monotonic_ns;
        state->utc_ns = now.since.utc_ns;
        copy_text(now.cause, state->cause);
        return JV_OK;
    });
}

unsigned int JV_CALL jv_last_detail(CJorvet* instance, char* text, size_t capacity) {
    if (text == nullptr || capacity == 0)
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) {
        const std::string detail = found.last_detail();
        text[detail.copy(text, capacity - 1)] = '\0';
        return JV_OK;
    });
}

// ---- Requests ----

unsigned int JV_CALL jv_request(CJorvet* instance, const jv_request_record* request, jv_answer* answer) {
    if (!known(request) || !known(answer) || !usable(answer->data, answer->capacity) ||
        !usable(request->data, request->length) || request->length > 0xFFFF || kind_of(request->kind) == nullptr)
        return JV_ERR_BAD_ARGUMENT;
    return visiting(instance, [&](session& found) -> unsigned int {
        const jorvet::protocol::request rq{*kind_of(request->kind),
                                           {request->p[0], request->p[1], request->p[2]},
                                           static_cast<const unsigned char*>(request->data),
                                           static_cast<unsigned short>(request->length)};
        jorvet::core::answer received;
        if (const unsigned int status = found.request(rq, request->with_crc != 0, request->timeout_ms, received))
            return status;
        return export_answer(found, received, 0, *answer);
    });
}

unsigned int JV_CALL jv_take_answer(CJorvet* instance, uint64_t ticket, jv_answer* answer) {
    if (!known(answer) || !usable(answer->data, answer->capacity))
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) -> unsigned int {
        jorvet::core::answer kept;
        if (!found.kept(ticket, kept))
            return JV_ERR_NO_ANSWER;
        const unsigned int status = export_answer(found, kept, ticket, *answer);
        if (answer->ticket == 0)
            found.drop_kept();
        return status;
    });
}

unsigned int JV_CALL jv_set_quiet_time(CJorvet* instance, uint32_t milliseconds) {
    return with_session(instance, [&](session& found) {
        found.set_quiet_time(milliseconds);
        return JV_OK;
    });
}

// ---- Events ----

unsigned int JV_CALL jv_next_event(CJorvet* instance, jv_event* event, uint32_t timeout_ms) {
    if (!known(event) || !usable(event->data, event->capacity))
        return JV_ERR_BAD_ARGUMENT;
    return visiting(instance, [&](session& found) -> unsigned int {
        jorvet::core::event_record taken; // freed without the lock
        jorvet::core::event_facts facts;
        {
            boost::unique_lock<boost::mutex> lock;
            if (const unsigned int status = found.await_event(lock, deadline(timeout_ms)))
                return status;
            event->length = found.events.oldest().data.size();
            if (event->length > event->capacity)
                return JV_ERR_BUFFER_TOO_SMALL;
            taken = found.events.take_oldest(facts);
            found.events_changed();
        }
        copy_data(taken->data, event->data, event->capacity);
        event->status_word = taken->status;
        event->type = taken->type;
        event->id = taken->id;
        event->seq = taken->seq;
        event->reserved = 0;
        event->crc = taken->crc;
        event->monotonic_ns = facts.arrival.monotonic_ns;
        event->utc_ns = facts.arrival.utc_ns;
        event->lost = facts.lost;
        event->dropped = facts.dropped;
        return JV_OK;
    });
}

unsigned int JV_CALL jv_next_events(CJorvet* instance, void* buffer, size_t capacity, size_t* count,
                                    uint32_t timeout_ms) {
    if (buffer == nullptr || count == nullptr || reinterpret_cast<std::uintptr_t>(buffer) % 8 != 0)
        return JV_ERR_BAD_ARGUMENT;
    return visiting(instance, [&](session& found) -> unsigned int {
        std::vector<taken_event> taken; // packed, and freed, without the lock
        {
            boost::unique_lock<boost::mutex> lock;
            if (const unsigned int status = found.await_event(lock, deadline(timeout_ms)))
                return status;
            taken = take_fitting(found, capacity, *count);
            found.events_changed();
        }
        if (taken.empty())
            return JV_ERR_BUFFER_TOO_SMALL;
        *count = taken.size();
        auto* place = static_cast<unsigned char*>(buffer);
        for (const taken_event& event : taken)
            place = pack(event, place);
        return JV_OK;
    });
}

unsigned int JV_CALL jv_set_event_limit(CJorvet* instance, uint32_t events) {
    if (events == 0)
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) {
        found.set_event_limit(events == JV_NO_LIMIT ? SIZE_MAX : events);
        return JV_OK;
    });
}

unsigned int JV_CALL jv_event_fd(CJorvet* instance, int* descriptor) {
    if (descriptor == nullptr)
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) -> unsigned int {
        if (!jorvet::readiness::is_descriptor)
            return JV_ERR_NOT_SUPPORTED;
        *descriptor = static_cast<int>(found.readiness());
        return *descriptor == jorvet::readiness::none ? JV_ERR_NO_RESOURCES : JV_OK;
    });
}

unsigned int JV_CALL jv_event_handle(CJorvet* instance, void** handle) {
    if (handle == nullptr)
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) -> unsigned int {
        if (jorvet::readiness::is_descriptor)
            return JV_ERR_NOT_SUPPORTED;
        const std::intptr_t object = found.readiness();
        *handle = reinterpret_cast<void*>(object);
        return object == jorvet::readiness::none ? JV_ERR_NO_RESOURCES : JV_OK;
    });
}

// ---- Ending waits ----

unsigned int JV_CALL jv_cancel(CJorvet* instance) {
    return outside_callbacks(instance, [](session& found) {
        found.cancel();
        return JV_OK;
    });
}

unsigned int JV_CALL jv_resume(CJorvet* instance) {
    return with_session(instance, [](session& found) {
        found.resume();
        return JV_OK;
    });
}

// ---- Insight ----

unsigned int JV_CALL jv_count(CJorvet* instance, jv_counters* counters) {
    if (!known(counters))
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) {
        const jorvet::core::session_counters& now = found.counters;
        *counters = {sizeof(jv_counters),
                     0,
                     now.bytes_received,
                     now.bytes_sent,
                     now.replies,
                     now.events,
                     now.requests,
                     now.request_timeouts,
                     now.wrong_crcs,
                     now.stale_replies,
                     now.discarded_frames,
                     now.lost_events,
                     found.dropped_events(),
                     now.stream_losses,
                     now.resynchronisations,
                     now.unread_bytes + found.owner().get_com()->extras().dropped_unread};
        return JV_OK;
    });
}

unsigned int JV_CALL jv_set_log(CJorvet* instance, unsigned int level, jv_log_function log, void* context) {
    if (level > JV_LOG_NOTES)
        return JV_ERR_BAD_ARGUMENT;
    return outside_callbacks(instance, [&](session& found) {
        found.set_log(level, log, context);
        return JV_OK;
    });
}

unsigned int JV_CALL jv_set_tap(CJorvet* instance, jv_tap_function tap, void* context) {
    return outside_callbacks(instance, [&](session& found) {
        found.set_tap(tap, context);
        return JV_OK;
    });
}

unsigned int JV_CALL jv_set_recovery(CJorvet* instance, uint32_t longest) {
    if (longest > 0xFFFF)
        return JV_ERR_BAD_ARGUMENT;
    return with_session(instance, [&](session& found) {
        found.longest_recovered = longest;
        return JV_OK;
    });
}
