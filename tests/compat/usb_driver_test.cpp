// The USB driver and what the system adds around it: files, overlapped requests, device interfaces, notifications.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>
#include <tuple>
#include <utility>

#include "jorvet/compat/faults.h"
#include "jorvet/ports/ports.h"
#include "jorvet/system/cyusb_driver.h"
#include "jorvet/system/win32.h"

using namespace jorvet;
using namespace jorvet::compat;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Log = std::vector<unsigned>;
using Answer = std::pair<DWORD, DWORD>; // error, bytes
const GUID driver_class = {0xAE18AA60, 0x7F6A, 0x11D4, {0x97, 0xDD, 0, 1, 2, 0x29, 0xB9, 0x59}};

// Keeps transfers pending until the test ends them, or ends them inside the call when `at_once` is set.
class FakeUsb final : public ports::usb_port {
  public:
    bool at_once = false, deaf_to_abort = false, poor = false;
    ports::usb_result answer;
    ports::port_status state = ports::port_status::ok;
    Log log; // of what was done while all was well

    // Ends all pending transfers, for those too that the driver has given up.
    void end(const ports::usb_result& result) {
        std::unique_lock<std::mutex> lock(mutex_);
        const auto ended = std::exchange(pending_, {});
        lock.unlock();
        for (const auto& done : ended)
            done(result);
    }
    ports::usb_identity identity() const override { return {"FX3", "Test board", "A1", 0x04B4, 0x00F1}; }
    ports::port_status open() override { return state; }
    void close() override {}
    void control(const ports::usb_setup& s, const std::uint8_t* data, unsigned timeout_ms,
                 ports::usb_completion done) override {
        take({s.request_type, s.request, s.value, s.index, s.length, timeout_ms, data == nullptr}, std::move(done));
    }
    void submit(const ports::usb_transfer& t, ports::usb_completion done) override {
        take({t.endpoint, t.data != nullptr ? t.data[t.length - 1] : 0u}, std::move(done));
    }
    ports::port_status abort(std::uint8_t endpoint) override {
        if (!deaf_to_abort)
            end({ports::usb_end::cancelled, 0, nullptr, {}});
        return note({'a', endpoint});
    }
    ports::port_status reset_endpoint(std::uint8_t endpoint) override { return note({'r', endpoint}); }
    ports::port_status select_alternate(std::uint8_t setting) override { return note({'s', setting}); }
    ports::port_status alternate(std::uint8_t* setting) override { return *setting = 3, state; }
    ports::port_status speed(ports::usb_speed* speed) override { return *speed = ports::usb_speed::super, state; }
    ports::port_status bus_address(std::uint8_t* address) override { return *address = 7, state; }
    ports::port_status power(ports::usb_power* power) override { return *power = ports::usb_power::suspended, state; }
    ports::port_status set_power(ports::usb_power power) override {
        return note({'p', power == ports::usb_power::resumed});
    }
    ports::port_status reset_port() override { return note({'R'}); }
    ports::port_status cycle_port() override { return note({'C'}); }

  private:
    ports::port_status note(std::initializer_list<unsigned> numbers) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (state == ports::port_status::ok)
            log.insert(log.end(), numbers);
        return state;
    }
    void take(std::initializer_list<unsigned> numbers, ports::usb_completion done) {
        note(numbers);
        if (poor)
            throw std::bad_alloc();
        if (at_once)
            return done(answer);
        const std::lock_guard<std::mutex> lock(mutex_);
        pending_.push_back(std::move(done));
    }
    std::mutex mutex_;
    std::vector<ports::usb_completion> pending_;
};

Bytes block(std::uint8_t endpoint, unsigned table, unsigned data, bool direct = false) {
    const unsigned offset = 38 + table, at = direct ? 0 : offset;
    const XferRequest header{0, 0, 0, 0, 0, 0, 0, endpoint, 7, 7, table > 0 ? 38u : 0, table, at, direct ? 0 : data};
    Bytes bytes(offset + header.DataLength, 'x');
    std::memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

DWORD word(const Bytes& bytes, std::size_t at) {
    DWORD value = 0;
    std::copy_n(bytes.data() + at, std::min(sizeof(value), bytes.size() - at), reinterpret_cast<std::uint8_t*>(&value));
    return value;
}

HANDLE open(const char* path = "\\\\?\\usb#vid_04b4&pid_00f1#a1#{ae18aa60-7f6a-11d4-97dd-00010229b959}") {
    return CreateFileA(path, 0xC0000000, 3, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

class UsbDriverTest : public testing::Test {
  protected:
    ~UsbDriverTest() override {
        CloseHandle(device);
        detach(usb);
    }
    static Answer answer(BOOL ok, const DWORD& bytes) { return {ok ? 0 : GetLastError(), bytes}; }
    Answer request(DWORD code, Bytes& in, Bytes& out, OVERLAPPED* o = nullptr) {
        DWORD n = 99;
        const DWORD room = DWORD(out.size());
        return answer(DeviceIoControl(device, code, in.data(), DWORD(in.size()), out.data(), room, &n, o), n);
    }
    Answer result() {
        DWORD n = 99;
        return answer(GetOverlappedResult(device, &record, &n, FALSE), n);
    }
    bool signalled() { return WaitForSingleObject(record.hEvent, 0) == WAIT_OBJECT_0; }

    const std::shared_ptr<FakeUsb> usb = std::make_shared<FakeUsb>();
    HANDLE device = (attach(usb), open());
    OVERLAPPED record{0, 0, 0, 0, CreateEventA(nullptr, FALSE, FALSE, nullptr)};
    const std::uint8_t hello[5] = {'h', 'e', 'l', 'l', 'o'};
};

TEST_F(UsbDriverTest, each_request_checks_its_buffers_and_brings_back_its_bytes) {
    // code, sizes and beginnings of input and output
    const DWORD rows[][5] = {
        {0x220000, 0, 4, 0, 0x01020300}, {0x220004, 0, 4, 0, 0x0600},     {0x220008, 0, 1, 0, 3},
        {0x22000C, 1, 1, 2, 2},          {0x220010, 0, 1, 0, 7},          {0x220018, 0, 4, 0, 4},
        {0x22001C, 4, 4, 1, 1},          {0x22001C, 4, 4, 4, 4},          {0x220028, 0, 0, 0, 0},
        {0x22002C, 1, 0, 0x81, 0},       {0x220030, 0, 0, 0, 0},          {0x220034, 5, 5, 0x81, 0x100081},
        {0x220038, 5, 5, 0x981, 0x981},  {0x220034, 5, 5, 0x81, 0x981},   {0x220044, 1, 0, 0x81, 0},
        {0x22004C, 0, 4, 0, 4},          {0x22003C, 0, 256, 0, 0x335846}, {0x220040, 0, 256, 0, 0x74736554}};
    for (const auto& [code, in_size, out_size, first_in, first_out] : rows) {
        Bytes in(in_size), out(out_size), less_in(in_size - (in_size > 0)), less_out(out_size - (out_size > 0));
        std::copy_n(reinterpret_cast<const std::uint8_t*>(&first_in), std::min(in_size, 4u), in.begin());
        EXPECT_TRUE(out.empty() || request(code, in, less_out) == Answer(122, 99)) << code;
        EXPECT_TRUE(in.empty() || request(code, less_in, out) == Answer(87, 99)) << code;
        EXPECT_TRUE(request(code, in, out) == Answer(0, out_size) && word(out, 0) == first_out) << code;
        usb->state = ports::port_status::gone;
        EXPECT_EQ(Answer(1167, 99), request(code, in, out)) << code;
        usb->state = ports::port_status::ok;
    }
    EXPECT_EQ(Log({'s', 2, 'p', 1, 'p', 0, 'C', 'r', 0x81, 'R', 'a', 0x81}), usb->log);
    Bytes none, power{2, 0, 0, 0};
    EXPECT_EQ(Answer(1, 99), request(0x220014, none, none));
    EXPECT_EQ(Answer(87, 99), request(0x22001C, power, power));
}

TEST_F(UsbDriverTest, transfers_end_with_bytes_error_and_status_words_in_both_modes_at_once_and_later) {
    // of each usb_end in turn: bytes, error, status words, status of the request
    const DWORD rows[][5] = {{5, 0, 0, 0, 0},
                             {0, 0, 0xC0000001, 0xC0000004, 0},
                             {5, 0, 0xC0000001, 0xC0000008, 0},
                             {2, 995, 0, 0, 0xC0000120},
                             {2, 0, 0xC00000B5, 0xC0006000, 0},
                             {2, 0, 0xC0000001, 0xC0000005, 0},
                             {0, 87, 0xC000000D, 0x80000600, 0xC000000D},
                             {0, 1167, 0xC000009D, 0xC0007000, 0xC000009D}};
    for (int i = 0; i < 4 * 8; ++i) {
        const auto& [count, error, nt, usbd, status] = rows[i / 4];
        const bool direct = i % 2 == 1, later = i % 4 > 1, refused = !later && (error == 1167 || error == 87);
        Bytes in = block(0x81, 0, 8, direct), data(8, 'x'), &out = direct ? data : in;
        usb->answer = {ports::usb_end(i / 4), count, hello, {}};
        usb->at_once = !later;
        const DWORD bytes = (direct ? 0 : 38) + count;
        const Answer started = later || error == 995 ? Answer(997, 0) : refused ? Answer(error, 99) : Answer(0, bytes);
        EXPECT_EQ(started, request(direct ? 0x22004B : 0x220024, in, out, &record)) << i;
        EXPECT_TRUE(!later || (result() == Answer(996, 99) && !signalled())) << i;
        usb->end(usb->answer);
        EXPECT_EQ(refused ? Answer(996, 99) : Answer(error, bytes), result()) << i;
        EXPECT_EQ(refused ? 0x103 : status, record.Internal) << i;
        const bool returned =
            direct || error == 0; // a request that fails leaves a block of which the driver has a copy
        EXPECT_TRUE(signalled() != refused && word(in, 14) == (returned ? nt : 7)) << i;
        EXPECT_EQ(returned ? usbd : 7, word(in, 18)) << i;
        const std::string came(out.end() - 8, out.end()), moved(hello, hello + (returned ? count : 0));
        EXPECT_EQ(moved + std::string(8 - moved.size(), 'x'), came);
    }
}

TEST_F(UsbDriverTest, what_the_block_asks_for_reaches_the_port_and_the_packet_table_comes_back) {
    usb->at_once = true;
    usb->answer = {ports::usb_end::ok, 8, hello, {}};
    Bytes control = block(0, 0, 8), out = block(0x02, 0, 5), packets = block(0x83, 24, 5, true), data(5);
    const std::uint8_t setup[] = {0x40, 0xB0, 0x34, 0x12, 9, 0, 8, 0, 3};
    std::memcpy(control.data(), setup, sizeof(setup));
    EXPECT_EQ(Answer(0, 46), request(0x220020, control, control));
    EXPECT_EQ(Answer(0, 43), request(0x220024, out, out)); // more than there was room for
    EXPECT_EQ(Log({0x40, 0xB0, 0x1234, 9, 8, 3000, 0, 2, 'x'}), usb->log);
    EXPECT_EQ(0xC0000008, word(out, 18));
    usb->poor = true;
    EXPECT_EQ(Answer(0, 38), request(0x220024, out, out));
    EXPECT_EQ(0xC0000005, word(out, 18));
    usb->poor = false;
    usb->answer = {ports::usb_end::ok, 5, hello, {{ports::usb_end::ok, 3}, {ports::usb_end::failed, 2}}};
    EXPECT_EQ(Answer(0, 5), request(0x22004B, packets, data));
    EXPECT_EQ(Bytes({0, 0, 0, 0, 3, 0, 0, 0, 5, 0, 0, 0xC0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
              Bytes(packets.begin() + 38, packets.end()));
}

TEST_F(UsbDriverTest, blocks_that_name_places_outside_themselves_are_refused) {
    const DWORD rows[][3] = {{0x220024, 30, 37},  {0x220024, 30, 52},  {0x220024, 33, 255},  {0x220024, 34, 10},
                             {0x220024, 37, 255}, {0x220024, 13, 128}, {0x220024, 26, 9},    {0x220024, 26, 64},
                             {0x220024, 22, 37},  {0x220020, 6, 10},   {0x220020, 13, 0x81}, {0x22004B, 13, 0}};
    for (const auto& [code, offset, value] : rows) {
        Bytes in = code == 0x220020 ? block(0, 0, 5) : block(0x81, 8, 5);
        in[offset] = std::uint8_t(value);
        const Bytes before = in;
        EXPECT_EQ(Answer(87, 99), request(code, in, in, &record)) << code << " " << offset;
        EXPECT_TRUE(in == before && !signalled());
    }
    Bytes in = block(0x81, 0, 5), small(42), cut(37);
    EXPECT_EQ(Answer(122, 99), request(0x220024, in, small));
    EXPECT_EQ(Answer(87, 99), request(0x22004B, cut, small));
}

TEST_F(UsbDriverTest, abort_unplug_and_close_end_what_is_pending_and_a_late_end_touches_nothing) {
    Bytes address{0x81}, none;
    const auto abort = [&] { EXPECT_EQ(Answer(0, 0), request(0x220044, address, none)); };
    const auto unplug = [&] { usb->end({ports::usb_end::gone, 0, nullptr, {}}); };
    const auto close = [&] { EXPECT_TRUE(CloseHandle(std::exchange(device, open()))); };
    const std::tuple<std::function<void()>, DWORD, DWORD> rows[] = {
        {abort, 995, 0}, {unplug, 1167, 0xC000009D}, {close, 995, 0}};
    for (const auto& [event, error, nt] : rows) {
        usb->deaf_to_abort = &event == &std::get<0>(rows[2]);
        Bytes in = block(0x81, 0, 0, true), data(8);
        EXPECT_EQ(Answer(997, 0), request(0x22004B, in, data, &record));
        std::thread other(event);
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(record.hEvent, INFINITE));
        EXPECT_EQ(nt, word(in, 14));
        Bytes().swap(in); // the caller's again
        Bytes().swap(data);
        other.join();
        EXPECT_EQ(error, result().first);
        usb->end({ports::usb_end::ok, 5, hello, {}});
    }
}

TEST_F(UsbDriverTest, ends_and_closes_that_race_report_every_request_once) {
    for (int round = 0; round < 200; ++round) {
        Bytes in = block(0x81, 0, 0, true), data(8, 'x'), late = in, room(8);
        request(0x22004B, in, data, &record);
        std::thread port([&] { usb->end({ports::usb_end::ok, 5, hello, {}}); });
        std::thread waiting([&] {
            const DWORD error = request(0x22004B, late, room).first;
            EXPECT_TRUE(error == 0 || error == 995 || error == 6) << error;
        });
        EXPECT_TRUE(CloseHandle(device) && signalled() && !signalled()); // closing has waited for the report
        const bool moved = record.Internal == 0;
        EXPECT_EQ(moved ? 'h' : 'x', data[0]);
        port.join();
        waiting.join();
        device = open();
    }
}

TEST_F(UsbDriverTest, opening_listing_and_registering_say_why_they_fail) {
    const auto failed = [](bool failure, DWORD error) { return failure && GetLastError() == error; };
    EXPECT_TRUE(failed(open("\\\\?\\usb#none") == INVALID_HANDLE_VALUE, 2));
    usb->state = ports::port_status::refused;
    EXPECT_TRUE(failed(open() == INVALID_HANDLE_VALUE, 32));
    usb->state = ports::port_status::denied;
    EXPECT_TRUE(failed(open() == INVALID_HANDLE_VALUE, 5));
    usb->state = ports::port_status::gone;
    EXPECT_TRUE(failed(open() == INVALID_HANDLE_VALUE, 2));
    SP_DEVICE_INTERFACE_DATA data{sizeof(data), {}, 0, 0};
    const HDEVINFO set = SetupDiGetClassDevsA(&driver_class, nullptr, nullptr, 0x12);
    EXPECT_TRUE(failed(!SetupDiGetDeviceInterfaceDetailA(set, &data, nullptr, 0, nullptr, nullptr), 87));
    EXPECT_TRUE(failed(!SetupDiEnumDeviceInterfaces(set, nullptr, &data.InterfaceClassGuid, 0, &data), 259));
    EXPECT_TRUE(SetupDiEnumDeviceInterfaces(set, nullptr, &driver_class, 0, &data));
    EXPECT_TRUE(failed(!SetupDiEnumDeviceInterfaces(set, nullptr, &driver_class, 1, &data), 259));
    EXPECT_TRUE(failed(!SetupDiGetDeviceInterfaceDetailA(set, &data, nullptr, 0, nullptr, nullptr), 122));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set) && failed(!SetupDiDestroyDeviceInfoList(set), 6));
    DEV_BROADCAST_HANDLE filter{sizeof(filter), DBT_DEVTYP_HANDLE, 0, device, nullptr, {}, 0, {}};
    EXPECT_TRUE(failed(!RegisterDeviceNotificationA(nullptr, &filter, 0), 87));
    const HDEVNOTIFY registration = RegisterDeviceNotificationA(&filter, &filter, 0);
    EXPECT_TRUE(UnregisterDeviceNotification(registration) && !UnregisterDeviceNotification(registration));
    Bytes none;
    const faults::scope fault("DeviceIoControl", 2, 77);
    EXPECT_EQ(Answer(1167, 99), request(0x220030, none, none));
    EXPECT_EQ(Answer(77, 99), request(0x220030, none, none));
}

} // namespace
