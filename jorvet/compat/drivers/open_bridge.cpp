// The open bridge of the D2XX driver. The path of a notification, from the port to SetEvent, takes no lock here unless
// a reader waits.
#include "jorvet/compat/drivers/open_bridge.h"

namespace jorvet::compat::d2xx {

FT_STATUS translate(ports::port_status status) {
    switch (status) {
    case ports::port_status::ok:
        return FT_OK;
    case ports::port_status::gone:
    case ports::port_status::failed:
        return FT_IO_ERROR;
    case ports::port_status::bad_value:
        return FT_INVALID_PARAMETER;
    case ports::port_status::refused:
    case ports::port_status::denied:
        break;
    }
    return FT_OTHER_ERROR;
}

ports::port_status open_bridge::open() {
    return port_->open([this] { on_notify(); });
}

bool open_bridge::close() {
    if (closed_.exchange(true))
        return false;
    wake();
    port_->close(); // ends a write, and the notifications
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return inside_ == 0; });
    return true;
}

bool open_bridge::enter() {
    ++inside_;
    if (!closed_)
        return true;
    leave();
    return false;
}

void open_bridge::leave() {
    if (--inside_ == 0 && closed_)
        wake();
}

void open_bridge::set_timeouts(ULONG read_ms, ULONG write_ms) {
    read_timeout_ = read_ms;
    write_timeout_ = write_ms;
}

FT_STATUS open_bridge::read(std::uint8_t* buffer, std::size_t count, DWORD* taken) {
    time_limit limit;
    if (const ULONG timeout = read_timeout_)
        limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
    ++readers_;
    const FT_STATUS status = read_until(limit, buffer, count, taken);
    --readers_;
    return status;
}

FT_STATUS open_bridge::read_until(time_limit limit, std::uint8_t* buffer, std::size_t count, DWORD* taken) {
    std::size_t total = 0;
    for (;;) {
        const unsigned seen = notifications_; // before the port is asked: what comes after that ends the wait
        std::size_t more = 0;
        const ports::port_status status = port_->read(buffer + total, count - total, &more);
        if (status != ports::port_status::ok)
            return translate(status);
        total += more;
        if (total == count || !wait_for_news(seen, limit))
            break;
    }
    if (total < count && closed_)
        return FT_INVALID_HANDLE;
    *taken = static_cast<DWORD>(total);
    return FT_OK;
}

// False when the bridge was closed or the time passed.
bool open_bridge::wait_for_news(unsigned seen, time_limit limit) {
    const auto news = [&] { return closed_ || notifications_ != seen; };
    std::unique_lock<std::mutex> lock(mutex_);
    if (!limit)
        changed_.wait(lock, news);
    else if (!changed_.wait_until(lock, *limit, news))
        return false;
    return !closed_;
}

FT_STATUS open_bridge::write(const std::uint8_t* bytes, std::size_t count, DWORD* written) {
    std::size_t taken = 0;
    const ports::port_status status = port_->write(bytes, count, write_timeout_, &taken);
    if (status != ports::port_status::ok)
        return translate(status);
    if (taken < count && closed_)
        return FT_INVALID_HANDLE;
    *written = static_cast<DWORD>(taken);
    return FT_OK;
}

void open_bridge::on_notify() {
    ++notifications_;
    if (const HANDLE event = event_)
        SetEvent(event);
    if (readers_ != 0)
        wake();
}

void open_bridge::wake() {
    { const std::lock_guard<std::mutex> lock(mutex_); }
    changed_.notify_all();
}

} // namespace jorvet::compat::d2xx
