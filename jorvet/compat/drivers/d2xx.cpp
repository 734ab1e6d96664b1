// The D2XX functions over the bridges that are plugged in: handles, checks of arguments, the device list. Any thread.
// Part of libjorvet-platform and, on Windows, of libjorvet-sim.
#include "jorvet/system/d2xx.h"

#include <algorithm>
#include <new>
#include <optional>
#include <vector>

#include "jorvet/base/never_destroyed.h"
#include "jorvet/compat/drivers/open_bridge.h"
#include "jorvet/compat/faults.h"
#include "jorvet/compat/handle_table.h"

namespace jorvet::compat::d2xx {

namespace {

struct driver {
    handle_table<open_bridge> bridges{2};
    // Makes looking for a bridge's handle and adding one a single step; guards `stock`. Never held in a call to a port.
    std::mutex mutex;
    std::optional<std::vector<FT_DEVICE_LIST_INFO_NODE>> stock;
};

driver& the_driver() {
    return never_destroyed<driver>();
}

// `work()`, or FT_INSUFFICIENT_RESOURCES when memory runs out in it.
template <class Work>
FT_STATUS status_of(Work work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return FT_INSUFFICIENT_RESOURCES;
    }
}

// The body of each function: runs `work`, unless a fault is due for `function`.
template <class Work>
FT_STATUS guarded(const char* function, Work work) {
    const auto fault = faults::due(function);
    return fault ? *fault : status_of(work);
}

// The same for an open handle, as `work(bridge)`. A call that fails because another thread has closed the handle
// returns FT_INVALID_HANDLE.
template <class Work>
FT_STATUS on_bridge(const char* function, FT_HANDLE handle, Work work) {
    return guarded(function, [&]() -> FT_STATUS {
        const auto bridge = the_driver().bridges.find(handle);
        if (!bridge || !bridge->enter())
            return FT_INVALID_HANDLE;
        const FT_STATUS status = status_of([&] { return work(*bridge); });
        const bool closed = status != FT_OK && bridge->closed();
        bridge->leave();
        return closed ? FT_STATUS{FT_INVALID_HANDLE} : status;
    });
}

FT_HANDLE handle_of(const ports::bridge_port& port) {
    return the_driver().bridges.handle_where([&](const open_bridge& bridge) { return bridge.is_on(port); });
}

// Adds a bridge to the table, which marks its port as in use, unless that has a handle already: null then.
FT_HANDLE reserve(const std::shared_ptr<open_bridge>& bridge) {
    const std::lock_guard<std::mutex> lock(the_driver().mutex);
    return handle_of(bridge->port()) == nullptr ? the_driver().bridges.add(bridge) : nullptr;
}

FT_STATUS open_port(const std::shared_ptr<ports::bridge_port>& port, FT_HANDLE* handle) {
    const auto bridge = std::make_shared<open_bridge>(port);
    const FT_HANDLE candidate = reserve(bridge);
    if (candidate == nullptr)
        return FT_DEVICE_NOT_OPENED;
    ports::port_status status = ports::port_status::failed;
    try {
        status = bridge->open();
    } catch (...) {
        the_driver().bridges.remove(candidate);
        throw;
    }
    if (status != ports::port_status::ok) {
        the_driver().bridges.remove(candidate);
        if (status == ports::port_status::denied)
            SetLastError(ERROR_ACCESS_DENIED);
        else if (status == ports::port_status::refused)
            SetLastError(ERROR_SHARING_VIOLATION);
        return status == ports::port_status::gone ? FT_DEVICE_NOT_FOUND : FT_DEVICE_NOT_OPENED;
    }
    *handle = candidate;
    return FT_OK;
}

// Whether the device is still attached, for functions that need nothing else from it.
FT_STATUS check_presence(const open_bridge& bridge) {
    std::size_t count = 0;
    return translate(bridge.port().received(&count));
}

FT_STATUS queue_length(const open_bridge& bridge, DWORD* length) {
    std::size_t count = 0;
    const ports::port_status status = bridge.port().received(&count);
    if (status == ports::port_status::ok)
        *length = static_cast<DWORD>(count);
    return translate(status);
}

template <std::size_t Size>
void copy_text(const std::string& text, char (&to)[Size]) {
    to[text.copy(to, Size - 1)] = '\0';
}

FT_DEVICE_LIST_INFO_NODE node_for(const ports::bridge_port& port) {
    const ports::bridge_identity identity = port.identity();
    FT_DEVICE_LIST_INFO_NODE node{};
    node.ftHandle = handle_of(port);
    node.Flags = node.ftHandle != nullptr || port.in_use_elsewhere() ? FT_FLAGS_OPENED : 0;
    node.Type = identity.type;
    node.ID = identity.id;
    node.LocId = identity.location;
    copy_text(identity.serial_number, node.SerialNumber);
    copy_text(identity.description, node.Description);
    return node;
}

bool is_transfer_size(ULONG bytes) {
    return bytes >= 64 && bytes <= 65536 && bytes % 64 == 0;
}

} // namespace

} // namespace jorvet::compat::d2xx

using namespace jorvet;
using namespace jorvet::compat;
using namespace jorvet::compat::d2xx;

FT_STATUS WINAPI FT_Open(int device, FT_HANDLE* handle) {
    return guarded(__func__, [&]() -> FT_STATUS {
        if (handle == nullptr)
            return FT_INVALID_PARAMETER;
        const auto ports = ports::attached_bridges();
        if (device < 0 || static_cast<std::size_t>(device) >= ports.size())
            return FT_DEVICE_NOT_FOUND;
        return open_port(ports[static_cast<std::size_t>(device)], handle);
    });
}

FT_STATUS WINAPI FT_Close(FT_HANDLE handle) {
    return guarded(__func__, [&]() -> FT_STATUS {
        const auto bridge = the_driver().bridges.find(handle);
        if (!bridge || !bridge->close())
            return FT_INVALID_HANDLE;
        the_driver().bridges.remove(handle); // only now may the next opener have the port
        return FT_OK;
    });
}

FT_STATUS WINAPI FT_Read(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD read) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (buffer == nullptr || read == nullptr)
            return FT_INVALID_PARAMETER;
        return bridge.read(static_cast<std::uint8_t*>(buffer), count, read);
    });
}

FT_STATUS WINAPI FT_Write(FT_HANDLE handle, LPVOID buffer, DWORD count, LPDWORD written) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (buffer == nullptr || written == nullptr)
            return FT_INVALID_PARAMETER;
        return bridge.write(static_cast<const std::uint8_t*>(buffer), count, written);
    });
}

FT_STATUS WINAPI FT_ResetDevice(FT_HANDLE handle) {
    return on_bridge(__func__, handle, [](open_bridge& bridge) { return translate(bridge.port().reset()); });
}

FT_STATUS WINAPI FT_SetBaudRate(FT_HANDLE handle, ULONG baud_rate) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (baud_rate < 300 || baud_rate > 3000000)
            return FT_INVALID_BAUD_RATE;
        const ports::port_status status = bridge.port().set_baud_rate(baud_rate);
        return status == ports::port_status::bad_value ? FT_INVALID_BAUD_RATE : translate(status);
    });
}

FT_STATUS WINAPI FT_SetDataCharacteristics(FT_HANDLE handle, UCHAR word_length, UCHAR stop_bits, UCHAR parity) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if ((word_length != 7 && word_length != 8) || (stop_bits != 0 && stop_bits != 2) || parity > 4)
            return FT_INVALID_PARAMETER;
        return translate(bridge.port().set_data_format(word_length, stop_bits == 0 ? 1 : 2, parity));
    });
}

FT_STATUS WINAPI FT_SetFlowControl(FT_HANDLE handle, USHORT flow_control, UCHAR xon, UCHAR xoff) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (flow_control != 0 && flow_control != 0x100 && flow_control != 0x200 && flow_control != 0x400)
            return FT_INVALID_PARAMETER;
        return translate(bridge.port().set_flow_control(flow_control, xon, xoff));
    });
}

FT_STATUS WINAPI FT_Purge(FT_HANDLE handle, ULONG mask) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (mask == 0 || (mask & ~(FT_PURGE_RX | FT_PURGE_TX)) != 0)
            return FT_INVALID_PARAMETER;
        return translate(bridge.port().purge((mask & FT_PURGE_RX) != 0, (mask & FT_PURGE_TX) != 0));
    });
}

FT_STATUS WINAPI FT_SetTimeouts(FT_HANDLE handle, ULONG read_timeout, ULONG write_timeout) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) {
        const FT_STATUS status = check_presence(bridge);
        if (status == FT_OK)
            bridge.set_timeouts(read_timeout, write_timeout);
        return status;
    });
}

FT_STATUS WINAPI FT_GetQueueStatus(FT_HANDLE handle, LPDWORD count) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        return count == nullptr ? FT_INVALID_PARAMETER : queue_length(bridge, count);
    });
}

FT_STATUS WINAPI FT_SetEventNotification(FT_HANDLE handle, DWORD mask, LPVOID event) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (mask != 0 && (mask != FT_EVENT_RXCHAR || event == nullptr))
            return FT_INVALID_PARAMETER;
        // Set before the check, so that the event also tells of a bridge that goes away right after it.
        bridge.set_event(mask == 0 ? nullptr : event);
        return check_presence(bridge);
    });
}

FT_STATUS WINAPI FT_GetStatus(FT_HANDLE handle, LPDWORD received, LPDWORD to_send, LPDWORD events) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (received == nullptr || to_send == nullptr || events == nullptr)
            return FT_INVALID_PARAMETER;
        const FT_STATUS status = queue_length(bridge, received);
        if (status == FT_OK) {
            *to_send = 0; // a write returns once the bridge has its bytes, so none wait here
            *events = *received != 0 ? FT_EVENT_RXCHAR : 0;
        }
        return status;
    });
}

FT_STATUS WINAPI FT_SetLatencyTimer(FT_HANDLE handle, UCHAR milliseconds) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (milliseconds < 2)
            return FT_INVALID_PARAMETER;
        return translate(bridge.port().set_latency_ms(milliseconds));
    });
}

FT_STATUS WINAPI FT_SetUSBParameters(FT_HANDLE handle, ULONG in_transfer_size, ULONG out_transfer_size) {
    return on_bridge(__func__, handle, [&](open_bridge& bridge) -> FT_STATUS {
        if (!is_transfer_size(in_transfer_size) || !is_transfer_size(out_transfer_size))
            return FT_INVALID_PARAMETER;
        return translate(bridge.port().set_transfer_sizes(in_transfer_size, out_transfer_size));
    });
}

// Ports decide themselves how often to retry, so the count is ignored.
FT_STATUS WINAPI FT_SetResetPipeRetryCount(FT_HANDLE handle, DWORD) {
    return on_bridge(__func__, handle, [](open_bridge& bridge) { return check_presence(bridge); });
}

FT_STATUS WINAPI FT_CreateDeviceInfoList(LPDWORD count) {
    return guarded(__func__, [&]() -> FT_STATUS {
        if (count == nullptr)
            return FT_INVALID_PARAMETER;
        std::vector<FT_DEVICE_LIST_INFO_NODE> nodes;
        for (const auto& port : ports::attached_bridges())
            nodes.push_back(node_for(*port));
        *count = static_cast<DWORD>(nodes.size());
        const std::lock_guard<std::mutex> lock(the_driver().mutex);
        the_driver().stock = std::move(nodes);
        return FT_OK;
    });
}

FT_STATUS WINAPI FT_GetDeviceInfoList(FT_DEVICE_LIST_INFO_NODE* nodes, LPDWORD count) {
    return guarded(__func__, [&]() -> FT_STATUS {
        if (nodes == nullptr || count == nullptr)
            return FT_INVALID_PARAMETER;
        const std::lock_guard<std::mutex> lock(the_driver().mutex);
        const auto& stock = the_driver().stock;
        if (!stock)
            return FT_DEVICE_LIST_NOT_READY;
        std::copy(stock->begin(), stock->end(), nodes);
        *count = static_cast<DWORD>(stock->size());
        return FT_OK;
    });
}
