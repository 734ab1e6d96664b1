// The kernel's side of usbfs. The kernel cancels one transfer, a port all that is pending on an endpoint: the others
// are started again.
#include "jorvet/sim/usbfs/node.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace jorvet::sim {

using ports::port_status;
using ports::usb_end;

struct usbfs_node::urb {
    unsigned long address = 0; // in the client
    reference<UMockdevIoctlData> record, buffer;
    std::uint8_t type = 0, endpoint = 0;
    std::size_t length = 0, packets = 0;
    byte_vector sent;     // to the device
    byte_vector received; // so far
    int status = 0;
    std::size_t moved = 0;
    std::vector<ports::usb_packet> packet_ends;
    bool discarded = false;

    bool inbound() const {
        const std::uint8_t direction = type == USBDEVFS_URB_TYPE_CONTROL ? sent.at(0) : endpoint;
        return (direction & 0x80) != 0;
    }
    std::size_t head() const { return type == USBDEVFS_URB_TYPE_CONTROL ? 8 : 0; } // the setup
};

namespace {

constexpr int most_aborts = 10;
constexpr std::uint32_t capabilities =
    USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;

int error_of(usb_end end) {
    switch (end) {
    case usb_end::ok:
        return 0;
    case usb_end::stalled:
        return -EPIPE;
    case usb_end::babble:
        return -EOVERFLOW;
    case usb_end::cancelled:
        return -ENOENT;
    case usb_end::gone:
        return -ESHUTDOWN;
    default:
        return -EPROTO;
    }
}

int error_of(port_status status) {
    switch (status) {
    case port_status::ok:
        return 0;
    case port_status::gone:
        return ENODEV;
    case port_status::bad_value:
        return EINVAL;
    case port_status::denied:
        return EACCES;
    default:
        return EIO;
    }
}

reference<UMockdevIoctlData> resolved(UMockdevIoctlData* data, std::size_t offset, std::size_t length) {
    GError* error = nullptr;
    auto* const found = umockdev_ioctl_data_resolve(data, offset, length, &error);
    g_clear_error(&error);
    return reference<UMockdevIoctlData>(found);
}

template <class Value>
Value value_in(const UMockdevIoctlData& data) {
    Value value{};
    std::memcpy(&value, data.data, std::min(sizeof(value), static_cast<std::size_t>(data.data_len)));
    return value;
}

// What the argument of a request points to.
template <class Value>
Value pointed_to(UMockdevIoctlData* argument) {
    const auto data = resolved(argument, 0, sizeof(Value));
    return data ? value_in<Value>(*data) : Value{};
}

} // namespace

usbfs_node::usbfs_node(std::shared_ptr<ports::usb_port> device, claim_hook on_claim)
    : device_(std::move(device)), on_claim_(std::move(on_claim)), readiness_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    device_->open();
}

usbfs_node::~usbfs_node() {
    device_->close();
    close(readiness_);
}

unsigned usbfs_node::claims() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<unsigned>(claimed_.size());
}

short usbfs_node::events() const {
    return gone_ ? POLLOUT | POLLERR | POLLHUP : POLLOUT;
}

void usbfs_node::signal() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(readiness_, &one, sizeof(one));
}

void usbfs_node::answer(UMockdevIoctlClient* client) {
    const int error = run(umockdev_ioctl_client_get_request(client), client);
    umockdev_ioctl_client_complete(client, error == 0 ? 0 : -1, error);
}

// 0 or the error number.
int usbfs_node::run(unsigned long request, UMockdevIoctlClient* client) {
    UMockdevIoctlData* const argument = umockdev_ioctl_client_get_arg(client);
    if (request == USBDEVFS_REAPURBNDELAY || request == USBDEVFS_REAPURB)
        return reap(argument);
    if (gone_)
        return ENODEV;
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES: {
        const auto answer = resolved(argument, 0, sizeof(capabilities));
        std::memcpy(answer->data, &capabilities, sizeof(capabilities));
        return 0;
    }
    case USBDEVFS_SUBMITURB:
        return submit(argument);
    case USBDEVFS_DISCARDURB:
        return discard(value_in<unsigned long>(*argument));
    case USBDEVFS_CLAIMINTERFACE:
        return claim(pointed_to<unsigned>(argument));
    case USBDEVFS_DISCONNECT_CLAIM:
        return claim(pointed_to<usbdevfs_disconnect_claim>(argument).interface);
    case USBDEVFS_RELEASEINTERFACE:
        return release(pointed_to<unsigned>(argument));
    case USBDEVFS_SETINTERFACE: {
        const auto wanted = pointed_to<usbdevfs_setinterface>(argument);
        return select(wanted.interface, wanted.altsetting);
    }
    case USBDEVFS_CLEAR_HALT:
        return error_of(device_->reset_endpoint(static_cast<std::uint8_t>(pointed_to<unsigned>(argument))));
    case USBDEVFS_RESET:
        return reset();
    case USBDEVFS_GETDRIVER:
        return ENODATA; // nobody has it
    case USBDEVFS_IOCTL:
        return 0; // a driver of the kernel comes or goes
    default:
        return ENOTTY;
    }
}

int usbfs_node::claim(unsigned interface) {
    if (claim_error_ != 0)
        return claim_error_;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (claimed_.insert(interface).second && on_claim_)
        on_claim_(true);
    return 0;
}

// As the kernel does, the first setting is selected again.
int usbfs_node::release(unsigned interface) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (claimed_.erase(interface) == 0)
            return EINVAL;
    }
    if (on_claim_)
        on_claim_(false);
    std::uint8_t setting = 0;
    if (interface == 0 && device_->alternate(&setting) == port_status::ok && setting != 0)
        device_->select_alternate(0);
    return 0;
}

int usbfs_node::select(unsigned interface, unsigned setting) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (claimed_.count(interface) == 0)
            return EINVAL;
    }
    return error_of(device_->select_alternate(static_cast<std::uint8_t>(setting)));
}

int usbfs_node::reset() {
    return error_of(device_->reset_port());
}

int usbfs_node::submit(UMockdevIoctlData* argument) {
    // The record's length depends on what stands in it; the client is this process.
    const auto* const there = reinterpret_cast<const usbdevfs_urb*>(value_in<unsigned long>(*argument));
    const bool in_packets = there->type == USBDEVFS_URB_TYPE_ISO;
    const auto packets = in_packets ? static_cast<std::size_t>(there->number_of_packets) : 0;
    const auto made = std::make_shared<urb>();
    made->address = value_in<unsigned long>(*argument);
    made->record = resolved(argument, 0, sizeof(usbdevfs_urb) + packets * sizeof(usbdevfs_iso_packet_desc));
    if (!made->record)
        return EFAULT;
    const auto& record = *reinterpret_cast<const usbdevfs_urb*>(made->record->data);
    made->type = record.type;
    made->endpoint = record.endpoint;
    made->length = static_cast<std::size_t>(record.buffer_length);
    made->packets = packets;
    if (made->length > 0) {
        made->buffer = resolved(made->record.get(), offsetof(usbdevfs_urb, buffer), made->length);
        if (!made->buffer)
            return EFAULT;
        made->sent.assign(made->buffer->data, made->buffer->data + made->length);
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (made->type != USBDEVFS_URB_TYPE_CONTROL && claimed_.empty())
            return ENOENT;
        pending_.push_back(made);
    }
    begin(made);
    return 0;
}

void usbfs_node::begin(const urb_pointer& started) {
    const auto done = [this, started](const ports::usb_result& result) { ended(started, result); };
    const std::uint8_t* const bytes = started->sent.data();
    const std::size_t before = started->moved; // when it was cancelled with another one
    if (started->type == USBDEVFS_URB_TYPE_CONTROL) {
        const auto word = [&](std::size_t at) { return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8); };
        device_->control({bytes[0], bytes[1], word(2), word(4), word(6)}, bytes + started->head(), 0, done);
    } else {
        device_->submit({started->endpoint, started->inbound() ? nullptr : bytes + before, started->length - before,
                         started->packets},
                        done);
    }
}

void usbfs_node::ended(const urb_pointer& which, const ports::usb_result& result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (result.data != nullptr)
        which->received.insert(which->received.end(), result.data, result.data + result.count);
    which->moved += result.count;
    which->packet_ends = result.packets;
    if (result.end == usb_end::cancelled && !which->discarded && !gone_ &&
        !(which->inbound() && which->moved > 0)) { // bytes that have come end it like a short packet
        again_.push_back(which);
        return;
    }
    const bool short_packet = result.end == usb_end::cancelled && !which->discarded && !gone_;
    which->status = short_packet ? 0 : error_of(gone_ && result.end != usb_end::ok ? usb_end::gone : result.end);
    pending_.remove(which);
    ended_.push_back(which);
    signal();
}

int usbfs_node::discard(unsigned long address) {
    std::uint8_t endpoint = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto is_it = [&](const urb_pointer& each) { return each->address == address; };
        const auto found = std::find_if(pending_.begin(), pending_.end(), is_it);
        if (found == pending_.end())
            return EINVAL;
        (*found)->discarded = true;
        endpoint = (*found)->type == USBDEVFS_URB_TYPE_CONTROL ? 0 : (*found)->endpoint;
    }
    for (int tries = 0; tries < most_aborts && device_->abort(endpoint) != port_status::ok; ++tries) {
    } // a kernel does not refuse
    std::vector<urb_pointer> again;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        again.swap(again_);
    }
    for (const urb_pointer& each : again)
        begin(each);
    return 0;
}

int usbfs_node::reap(UMockdevIoctlData* argument) {
    urb_pointer first;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ended_.empty())
            return gone_ ? ENODEV : EAGAIN;
        first = ended_.front();
        ended_.pop_front();
        std::uint64_t count = 0;
        if (ended_.empty() && !gone_) // of a device that has gone it stays so
            [[maybe_unused]]
            const auto taken = read(readiness_, &count, sizeof(count));
    }
    auto& record = *reinterpret_cast<usbdevfs_urb*>(first->record->data);
    record.status = first->status;
    record.actual_length = static_cast<int>(first->moved);
    for (std::size_t i = 0; i < first->packets && i < first->packet_ends.size(); ++i) {
        record.iso_frame_desc[i].actual_length = first->packet_ends[i].length;
        record.iso_frame_desc[i].status = static_cast<unsigned>(error_of(first->packet_ends[i].end));
    }
    if (first->buffer && first->inbound()) {
        const std::size_t room = first->length - first->head();
        std::copy_n(first->received.begin(), std::min(room, first->received.size()),
                    first->buffer->data + first->head());
    }
    const auto place = resolved(argument, 0, sizeof(void*));
    umockdev_ioctl_data_set_ptr(place.get(), 0, first->record.get());
    return 0;
}

void usbfs_node::unplugged() {
    gone_ = true;
    signal();
}

} // namespace jorvet::sim
