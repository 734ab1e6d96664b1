// How transfers end on an endpoint of the simulated controller.
#include "jorvet/sim/usb/endpoint.h"

#include <algorithm>
#include <utility>

namespace jorvet::sim {

using platform::UsbEnd;
using platform::UsbPacket;

std::size_t StartedTransfer::most() const {
    return std::min(length, plan.after.value_or(plan.end == UsbEnd::ok ? length : 0));
}

void StartedTransfer::end(UsbEnd end, Chunk data, std::vector<UsbPacket> records) const {
    platform::UsbResult result;
    result.end = end;
    result.count = moved + data.count;
    result.data = data.bytes;
    result.packets = std::move(records);
    done(result);
}

void UsbEndpoint::appear(UsbEndpointKind kind, std::size_t packet_size) {
    exists_ = true;
    kind_ = kind;
    packet_size_ = packet_size;
}

void UsbEndpoint::disappear() {
    exists_ = false;
    halted_ = false;
    end_all(UsbEnd::cancelled);
}

std::optional<TimePoint> UsbEndpoint::start(StartedTransfer transfer, TimePoint now) {
    if (halted_) {
        transfer.end(UsbEnd::stalled);
        return std::nullopt;
    }
    pending_.push_back(std::move(transfer));
    if (plans_.empty())
        return std::nullopt;
    const std::optional<TimePoint> due = give_plan(pending_.back(), plans_.front(), now);
    plans_.pop_front();
    return due;
}

std::optional<TimePoint> UsbEndpoint::add_plan(const TransferPlan& plan, TimePoint now) {
    for (StartedTransfer& transfer : pending_)
        if (!transfer.planned)
            return give_plan(transfer, plan, now);
    plans_.push_back(plan);
    return std::nullopt;
}

std::optional<TimePoint> UsbEndpoint::give_plan(StartedTransfer& transfer, const TransferPlan& plan, TimePoint now) {
    transfer.planned = true;
    if (plan.delay.count() > 0)
        transfer.due = now + plan.delay;
    transfer.plan = plan;
    return transfer.due;
}

std::deque<StartedTransfer>::iterator UsbEndpoint::find(std::uint64_t id) {
    return std::find_if(pending_.begin(), pending_.end(), [=](const auto& transfer) { return transfer.id == id; });
}

bool UsbEndpoint::keep_bytes(std::uint64_t id) {
    const auto transfer = find(id);
    if (transfer == pending_.end())
        return false;
    transfer->copy.assign(transfer->rest.bytes, transfer->rest.bytes + transfer->rest.count);
    transfer->rest.bytes = transfer->copy.data();
    return true;
}

// The oldest transfer, if it may go.
const StartedTransfer* UsbEndpoint::oldest(TimePoint now) const {
    if (pending_.empty() || taken_)
        return nullptr;
    const StartedTransfer& transfer = pending_.front();
    const bool waits = transfer.plan.silent || (transfer.due && now < *transfer.due);
    return waits ? nullptr : &transfer;
}

// What moves if the device has enough of it.
std::size_t UsbEndpoint::most_of(const StartedTransfer& transfer) const {
    const bool in_packets = kind_ == UsbEndpointKind::isochronous;
    return in_packets ? std::min(transfer.most(), transfer.packets * packet_size_) : transfer.most();
}

bool UsbEndpoint::waits_for_bytes(const StartedTransfer& transfer) const {
    return !transfer.plan.data && most_of(transfer) > 0 && kind_ != UsbEndpointKind::isochronous;
}

std::optional<std::size_t> UsbEndpoint::end_inbound(Chunk bytes, TimePoint now) {
    const StartedTransfer* const first = oldest(now);
    if (first == nullptr || (bytes.count == 0 && waits_for_bytes(*first)))
        return std::nullopt;
    const StartedTransfer transfer = std::move(pending_.front());
    pending_.pop_front();
    const TransferPlan& plan = transfer.plan;
    if (plan.data)
        bytes = {plan.data->data(), plan.data->size()};
    const bool babble = plan.data && bytes.count > transfer.length && plan.end == UsbEnd::ok;
    bytes.count = std::min(bytes.count, most_of(transfer));
    end(transfer, babble ? UsbEnd::babble : plan.end, bytes);
    return plan.data ? 0 : bytes.count;
}

std::optional<StartedTransfer> UsbEndpoint::take(TimePoint now) {
    if (oldest(now) == nullptr)
        return std::nullopt;
    std::optional<StartedTransfer> transfer = std::move(pending_.front());
    pending_.pop_front();
    taken_ = true;
    ended_meanwhile_.reset();
    return transfer;
}

void UsbEndpoint::put_back(StartedTransfer transfer) {
    if (ended_meanwhile_)
        return end(transfer, *ended_meanwhile_);
    taken_ = false;
    pending_.push_front(std::move(transfer));
}

void UsbEndpoint::end(const StartedTransfer& transfer, UsbEnd end, Chunk data) {
    taken_ = false;
    transfer.end(end, data, records_of(transfer, end, transfer.moved + data.count));
    if (end == UsbEnd::stalled && (kind_ == UsbEndpointKind::bulk || kind_ == UsbEndpointKind::interrupt))
        set_halted(true);
}

// Packets are full but for the last one with bytes.
std::vector<UsbPacket> UsbEndpoint::records_of(const StartedTransfer& transfer, UsbEnd end, std::size_t count) const {
    std::vector<UsbPacket> records(kind_ == UsbEndpointKind::isochronous ? transfer.packets : 0);
    for (UsbPacket& record : records) {
        record.length = static_cast<std::uint32_t>(std::min(count, packet_size_));
        record.end = record.length > 0 ? UsbEnd::ok : end;
        count -= record.length;
    }
    return records;
}

void UsbEndpoint::end_all(UsbEnd end) {
    ended_meanwhile_ = end;
    for (const StartedTransfer& transfer : std::exchange(pending_, {}))
        transfer.end(end);
}

void UsbEndpoint::end_one(std::uint64_t id, UsbEnd end) {
    const auto transfer = find(id);
    if (transfer == pending_.end())
        return;
    transfer->end(end);
    pending_.erase(transfer);
}

void UsbEndpoint::set_halted(bool halted) {
    halted_ = halted;
    if (halted)
        end_all(UsbEnd::stalled);
}

} // namespace jorvet::sim
