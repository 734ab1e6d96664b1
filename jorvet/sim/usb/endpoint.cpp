// How transfers end on an endpoint of the simulated controller.
#include "jorvet/sim/usb/endpoint.h"

#include <algorithm>
#include <utility>

namespace jorvet::sim {

using ports::usb_end;
using ports::usb_packet;

std::size_t started_transfer::limit() const {
    return std::min(length, plan.after.value_or(plan.end == usb_end::ok ? length : 0));
}

void started_transfer::end(usb_end end, byte_view data, std::vector<usb_packet> records) const {
    byte_vector all;
    if (!received.empty()) {
        all = received;
        all.insert(all.end(), data.bytes, data.bytes + data.count);
        data = {all.data(), all.size()};
    }
    ports::usb_result result;
    result.end = end;
    result.count = moved + data.count;
    result.data = data.bytes;
    result.packets = std::move(records);
    done(result);
}

void simulated_endpoint::appear(endpoint_kind kind, std::size_t packet_size) {
    exists_ = true;
    kind_ = kind;
    packet_size_ = packet_size;
}

void simulated_endpoint::disappear() {
    exists_ = false;
    halted_ = false;
    end_all(usb_end::cancelled);
}

std::optional<time_point> simulated_endpoint::start(started_transfer transfer, time_point now) {
    if (halted_) {
        transfer.end(usb_end::stalled);
        return std::nullopt;
    }
    pending_.push_back(std::move(transfer));
    if (plans_.empty())
        return std::nullopt;
    const std::optional<time_point> due = give_plan(pending_.back(), plans_.front(), now);
    plans_.pop_front();
    return due;
}

std::optional<time_point> simulated_endpoint::add_plan(const transfer_plan& plan, time_point now) {
    for (started_transfer& transfer : pending_)
        if (!transfer.planned)
            return give_plan(transfer, plan, now);
    plans_.push_back(plan);
    return std::nullopt;
}

std::optional<time_point> simulated_endpoint::give_plan(started_transfer& transfer, const transfer_plan& plan,
                                                        time_point now) {
    transfer.planned = true;
    if (plan.delay.count() > 0)
        transfer.due = now + plan.delay;
    transfer.plan = plan;
    return transfer.due;
}

std::deque<started_transfer>::iterator simulated_endpoint::find(std::uint64_t id) {
    return std::find_if(pending_.begin(), pending_.end(), [=](const auto& transfer) { return transfer.id == id; });
}

bool simulated_endpoint::keep_bytes(std::uint64_t id) {
    const auto transfer = find(id);
    if (transfer == pending_.end())
        return false;
    transfer->copy.assign(transfer->rest.bytes, transfer->rest.bytes + transfer->rest.count);
    transfer->rest.bytes = transfer->copy.data();
    return true;
}

// The oldest transfer, if it is due.
const started_transfer* simulated_endpoint::oldest(time_point now) const {
    if (pending_.empty() || taken_)
        return nullptr;
    const started_transfer& transfer = pending_.front();
    const bool waits = transfer.plan.silent || (transfer.due && now < *transfer.due);
    return waits ? nullptr : &transfer;
}

// How many bytes move if the device has enough of them.
std::size_t simulated_endpoint::limit_of(const started_transfer& transfer) const {
    const bool in_packets = kind_ == endpoint_kind::isochronous;
    return in_packets ? std::min(transfer.limit(), transfer.packets * packet_size_) : transfer.limit();
}

bool simulated_endpoint::waits_for_bytes(const started_transfer& transfer) const {
    return !transfer.plan.data && limit_of(transfer) > 0 && kind_ != endpoint_kind::isochronous;
}

// Whether a transfer stays pending with these bytes: they fill its packets and leave room for more.
bool simulated_endpoint::goes_on_after(const started_transfer& transfer, byte_view bytes) const {
    return kind_ == endpoint_kind::bulk && !transfer.planned && packet_size_ > 0 && bytes.count % packet_size_ == 0 &&
           transfer.received.size() + bytes.count < transfer.length;
}

std::optional<std::size_t> simulated_endpoint::end_inbound(byte_view bytes, time_point now, bool until_short_packet) {
    const started_transfer* const first = oldest(now);
    if (first == nullptr || (bytes.count == 0 && waits_for_bytes(*first)))
        return std::nullopt;
    if (until_short_packet && goes_on_after(*first, bytes)) {
        byte_vector& received = pending_.front().received;
        received.insert(received.end(), bytes.bytes, bytes.bytes + bytes.count);
        return bytes.count;
    }
    const started_transfer transfer = std::move(pending_.front());
    pending_.pop_front();
    const transfer_plan& plan = transfer.plan;
    if (plan.data)
        bytes = {plan.data->data(), plan.data->size()};
    const bool babble = plan.data && bytes.count > transfer.length && plan.end == usb_end::ok;
    bytes.count = std::min(bytes.count, limit_of(transfer) - transfer.received.size());
    end(transfer, babble ? usb_end::babble : plan.end, bytes);
    return plan.data ? 0 : bytes.count;
}

std::optional<started_transfer> simulated_endpoint::take(time_point now) {
    if (oldest(now) == nullptr)
        return std::nullopt;
    std::optional<started_transfer> transfer = std::move(pending_.front());
    pending_.pop_front();
    taken_ = true;
    taken_id_ = transfer->id;
    ended_meanwhile_.reset();
    return transfer;
}

void simulated_endpoint::put_back(started_transfer transfer) {
    if (ended_meanwhile_)
        return end(transfer, *ended_meanwhile_);
    taken_ = false;
    pending_.push_front(std::move(transfer));
}

void simulated_endpoint::end(const started_transfer& transfer, usb_end end, byte_view data) {
    taken_ = false;
    transfer.end(end, data, records_of(transfer, end, transfer.moved + data.count));
    if (end == usb_end::stalled && (kind_ == endpoint_kind::bulk || kind_ == endpoint_kind::interrupt))
        set_halted(true);
}

// All packets are full except the last one with bytes.
std::vector<usb_packet> simulated_endpoint::records_of(const started_transfer& transfer, usb_end end,
                                                       std::size_t count) const {
    std::vector<usb_packet> records(kind_ == endpoint_kind::isochronous ? transfer.packets : 0);
    for (usb_packet& record : records) {
        record.length = static_cast<std::uint32_t>(std::min(count, packet_size_));
        record.end = record.length > 0 ? usb_end::ok : end;
        count -= record.length;
    }
    return records;
}

void simulated_endpoint::end_all(usb_end end, std::uint64_t up_to) {
    if (taken_ && taken_id_ <= up_to)
        ended_meanwhile_ = end;
    while (!pending_.empty() && pending_.front().id <= up_to) {
        const started_transfer transfer = std::move(pending_.front());
        pending_.pop_front();
        transfer.end(end);
    }
}

void simulated_endpoint::end_one(std::uint64_t id, usb_end end) {
    const auto transfer = find(id);
    if (transfer == pending_.end())
        return;
    transfer->end(end);
    pending_.erase(transfer);
}

void simulated_endpoint::set_halted(bool halted) {
    halted_ = halted;
    if (halted)
        end_all(usb_end::stalled);
}

} // namespace jorvet::sim
