// The USB driver and what the system adds around it: files, overlapped requests, device interfaces, notifications.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <tuple>

#include "jorvet/cyusb/driver_requests.h"
#include "jorvet/platform/faults.h"
#include "jorvet/platform/ports.h"
#include "jorvet/platform/win32.h"

using namespace jorvet::platform;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Words = std::pair<std::uint32_t, std::uint32_t>; // NtStatus, UsbdStatus
const GUID driver_class = {0xAE18AA60, 0x7F6A, 0x11D4, {0x97, 0xDD, 0, 1, 2, 0x29, 0xB9, 0x59}};

// Keeps transfers pending until the test answers them, or answers inside the call when `at_once` is set.
class FakeUsb final : public UsbPort {
  public:
    bool at_once = false, deaf_to_abort = false;
    UsbResult answer;
    PortStatus state = PortStatus::ok;
    std::string log;

    // Ends the oldest pending transfer; the result is harmless when it has been ended otherwise.
    void end(const UsbResult& result) {
        UsbCompletion done;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (pending_.empty())
                return;
            done = std::move(pending_.front().second);
            pending_.erase(pending_.begin());
        }
        done(result);
    }
    void end_all(UsbEnd how) {
        for (std::size_t left = pending(); left > 0; --left)
            end({how, 0, nullptr, {}});
    }
    std::size_t pending() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return pending_.size();
    }
    UsbIdentity identity() const override { return {"FX3", "Test board", "A1", 0x04B4, 0x00F1}; }
    PortStatus open() override { return note("open"); }
    void close() override { note("close"); }
    void control(const UsbSetup& s, const std::uint8_t* data, unsigned timeout_ms, UsbCompletion done) override {
        note("control " + std::to_string(s.request) + "/" + std::to_string(s.value) + "/" + std::to_string(s.length) +
             (data != nullptr ? " sends " + std::to_string(data[0]) : "") + " in " + std::to_string(timeout_ms));
        take(0, std::move(done));
    }
    void submit(const UsbTransfer& t, UsbCompletion done) override {
        if (t.data != nullptr)
            note("sent " + std::string(t.data, t.data + t.length));
        take(t.endpoint, std::move(done));
    }
    PortStatus abort(std::uint8_t endpoint) override {
        note("abort " + std::to_string(endpoint));
        if (!deaf_to_abort)
            end_all(UsbEnd::cancelled);
        return state;
    }
    PortStatus reset_endpoint(std::uint8_t endpoint) override { return note("reset " + std::to_string(endpoint)); }
    PortStatus select_alternate(std::uint8_t setting) override { return note("select " + std::to_string(setting)); }
    PortStatus alternate(std::uint8_t* setting) override { return *setting = 3, state; }
    PortStatus speed(UsbSpeed* speed) override { return *speed = UsbSpeed::super, state; }
    PortStatus bus_address(std::uint8_t* address) override { return *address = 7, state; }
    PortStatus power(UsbPower* power) override { return *power = UsbPower::suspended, state; }
    PortStatus set_power(UsbPower power) override { return note(power == UsbPower::resumed ? "up" : "down"); }
    PortStatus reset_port() override { return note("reset port"); }
    PortStatus cycle_port() override { return note("cycle port"); }

  private:
    PortStatus note(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex_);
        log += text + "; ";
        return state;
    }
    void take(std::uint8_t endpoint, UsbCompletion done) {
        if (at_once)
            return done(answer);
        const std::lock_guard<std::mutex> lock(mutex_);
        pending_.emplace_back(endpoint, std::move(done));
    }
    std::mutex mutex_;
    std::vector<std::pair<std::uint8_t, UsbCompletion>> pending_;
};

Bytes block(std::uint8_t endpoint, std::size_t table, std::size_t data, bool direct = false) {
    XferRequest header{};
    header.EndpointAddress = endpoint;
    header.PacketTableOffset = table > 0 ? 38 : 0;
    header.PacketTableLength = static_cast<std::uint32_t>(table);
    header.DataOffset = direct ? 0 : static_cast<std::uint32_t>(38 + table);
    header.DataLength = direct ? 0 : static_cast<std::uint32_t>(data);
    Bytes bytes(38 + table + (direct ? 0 : data), 'x');
    std::memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

Words words_of(const Bytes& bytes) {
    XferRequest header;
    std::memcpy(&header, bytes.data(), sizeof(header));
    return {header.NtStatus, header.UsbdStatus};
}

class UsbDriverTest : public testing::Test {
  protected:
    UsbDriverTest() {
        attach(usb);
        device = open();
        record.hEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        usb->log.clear();
    }
    ~UsbDriverTest() override {
        CloseHandle(device);
        detach(usb);
        CloseHandle(record.hEvent);
    }
    static HANDLE open(const char* path = "\\\\?\\usb#vid_04b4&pid_00f1#A1#{ae18aa60-7f6a-11d4-97dd-00010229b959}") {
        return CreateFileA(path, 0xC0000000, 3, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    }
    // Error and bytes of a request that waits; of one with a record; of the record's outcome.
    std::pair<DWORD, DWORD> request(DWORD code, Bytes& in, Bytes& out, OVERLAPPED* with = nullptr) {
        DWORD bytes = 99;
        const BOOL ok =
            DeviceIoControl(device, code, in.data(), DWORD(in.size()), out.data(), DWORD(out.size()), &bytes, with);
        return {ok ? 0 : GetLastError(), bytes};
    }
    std::pair<DWORD, DWORD> result(BOOL wait = FALSE) {
        DWORD bytes = 99;
        const BOOL ok = GetOverlappedResult(device, &record, &bytes, wait);
        return {ok ? 0 : GetLastError(), bytes};
    }
    bool signalled() { return WaitForSingleObject(record.hEvent, 0) == WAIT_OBJECT_0; }

    const std::shared_ptr<FakeUsb> usb = std::make_shared<FakeUsb>();
    HANDLE device = nullptr;
    OVERLAPPED record{};
    const std::uint8_t hello[5] = {'h', 'e', 'l', 'l', 'o'};
};

using Answer = std::pair<DWORD, DWORD>;

TEST_F(UsbDriverTest, each_request_checks_its_buffers_and_brings_back_its_bytes) {
    Bytes name(256, 0), friendly(256, 0);
    std::copy_n("FX3", 3, name.begin());
    std::copy_n("Test board", 10, friendly.begin());
    const std::tuple<DWORD, Bytes, std::size_t, Bytes, std::string> rows[] = {
        {0x220000, {}, 4, {0, 3, 2, 1}, ""},
        {0x220004, {}, 4, {0, 6, 0, 0}, ""},
        {0x220008, {}, 1, {3}, ""},
        {0x22000C, {2}, 1, {2}, "select 2; "},
        {0x220010, {}, 1, {7}, ""},
        {0x220018, {}, 4, {4, 0, 0, 0}, ""},
        {0x22001C, {1, 0, 0, 0}, 4, {1, 0, 0, 0}, "up; "},
        {0x22001C, {4, 0, 0, 0}, 4, {4, 0, 0, 0}, "down; "},
        {0x220028, {}, 0, {}, "cycle port; "},
        {0x22002C, {0x81}, 0, {}, "reset 129; "},
        {0x220030, {}, 0, {}, "reset port; "},
        {0x220034, {0x81, 0, 0, 0, 0}, 5, {0x81, 0, 16, 0, 0}, ""},
        {0x220038, {0x81, 0, 4, 0, 0}, 5, {0x81, 0, 4, 0, 0}, ""},
        {0x220034, {0x81, 0, 0, 0, 0}, 5, {0x81, 0, 4, 0, 0}, ""},
        {0x22003C, {}, 256, name, ""},
        {0x220040, {}, 256, friendly, ""},
        {0x220044, {0x81}, 0, {}, "abort 129; "},
        {0x22004C, {}, 4, {4, 0, 0, 0}, ""}};
    for (auto [code, in, room, expected, log] : rows) {
        Bytes out(room, 0xEE), small(room - (room > 0), 0xEE), cut(in.begin(), in.end() - !in.empty());
        usb->log.clear();
        if (room > 0)
            EXPECT_EQ(Answer(122, 0), request(code, in, small)) << code;
        if (!in.empty())
            EXPECT_EQ(Answer(87, 0), request(code, cut, out)) << code;
        EXPECT_EQ(Answer(0, room), request(code, in, out)) << code;
        EXPECT_TRUE(out == expected && usb->log == log) << code << usb->log;
        for (const auto& [status, error] : {std::pair(PortStatus::gone, 1167u), std::pair(PortStatus::failed, 31u)}) {
            usb->state = status;
            EXPECT_EQ(Answer(error, 0), request(code, in, out)) << code;
        }
        usb->state = PortStatus::ok;
    }
    Bytes none, power{2, 0, 0, 0};
    EXPECT_EQ(Answer(1, 0), request(0x220014, none, none));
    EXPECT_EQ(Answer(87, 0), request(0x22001C, power, power));
}

TEST_F(UsbDriverTest, transfers_end_with_their_bytes_error_and_status_words_in_both_modes_and_both_ways) {
    const std::tuple<UsbEnd, std::size_t, DWORD, Words> rows[] = {
        {UsbEnd::ok, 5, 0, {0, 0}},
        {UsbEnd::ok, 0, 0, {0, 0}},
        {UsbEnd::stalled, 0, 31, {0xC0000001, 0xC0000004}},
        {UsbEnd::babble, 5, 31, {0xC0000001, 0xC0000008}},
        {UsbEnd::failed, 2, 31, {0xC0000001, 0xC0000005}},
        {UsbEnd::timed_out, 2, 31, {0xC00000B5, 0xC0006000}},
        {UsbEnd::cancelled, 2, 995, {0xC0000120, 0xC0010000}},
        {UsbEnd::no_endpoint, 0, 87, {0xC000000D, 0x80000600}},
        {UsbEnd::gone, 0, 1167, {0xC000009D, 0xC0007000}}};
    for (const bool late : {false, true}) {
        for (const auto& [end, count, error, words] : rows) {
            for (const DWORD code : {0x220024u, 0x22004Bu}) {
                const bool direct = code == 0x22004B;
                Bytes in = block(0x81, 0, 8, direct), data(8, 'x');
                usb->answer = {end, count, hello, {}};
                usb->at_once = !late;
                const DWORD head = direct ? 0 : 38, bytes = head + DWORD(count);
                const bool refused = !late && (end == UsbEnd::gone || end == UsbEnd::no_endpoint);
                const DWORD started = refused ? error : !late && error == 0 ? 0 : 997;
                EXPECT_EQ(Answer(started, started == 0 ? bytes : 0), request(code, in, direct ? data : in, &record));
                if (late)
                    EXPECT_EQ(Answer(996, 99), result());
                usb->end(usb->answer);
                EXPECT_EQ(Answer(error, bytes), result());
                EXPECT_EQ(!refused, signalled());
                EXPECT_EQ(words, words_of(in));
                const Bytes came(direct ? data.begin() : in.begin() + 38, direct ? data.end() : in.end());
                EXPECT_EQ(std::string("hello").substr(0, count) + std::string(8 - count, 'x'),
                          std::string(came.begin(), came.end()));
            }
        }
    }
}

TEST_F(UsbDriverTest, what_the_block_asks_for_reaches_the_port) {
    usb->at_once = true;
    usb->answer = {UsbEnd::ok, 8, hello, {}};
    Bytes control = block(0, 0, 8), out = block(0x02, 0, 5), packets = block(0x83, 24, 5, true), data(5);
    const std::uint8_t setup[] = {0x40, 0xB0, 0x34, 0x12, 0, 0, 8, 0, 3, 0, 0, 0};
    std::copy(std::begin(setup), std::end(setup), control.begin());
    EXPECT_EQ(Answer(0, 46), request(0x220020, control, control));
    EXPECT_EQ(Answer(31, 0), request(0x220024, out, out)); // more than there was room for
    EXPECT_EQ("control 176/4660/8 sends 120 in 3000; sent xxxxx; ", usb->log);
    EXPECT_EQ(Words(0xC0000001, 0xC0000008), words_of(out));
    usb->answer = {UsbEnd::ok, 5, hello, {{UsbEnd::ok, 3}, {UsbEnd::failed, 2}}};
    EXPECT_EQ(Answer(0, 5), request(0x22004B, packets, data));
    EXPECT_EQ(Bytes({3, 0, 0, 0, 5, 0, 0, 0xC0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
              Bytes(packets.begin() + 42, packets.end()));
}

TEST_F(UsbDriverTest, blocks_that_name_places_outside_themselves_are_refused) {
    const std::tuple<DWORD, std::size_t, std::uint8_t, DWORD> rows[] = {
        {0x220024, 30, 37, 87},   {0x220024, 30, 52, 87},   {0x220024, 33, 0xFF, 87}, {0x220024, 34, 10, 87},
        {0x220024, 37, 0xFF, 87}, {0x220024, 13, 0x80, 87}, {0x220024, 26, 9, 87},    {0x220024, 26, 64, 87},
        {0x220024, 22, 37, 87},   {0x220020, 6, 10, 87},    {0x220020, 13, 0x81, 87}, {0x22004B, 13, 0, 87}};
    for (const auto& [code, offset, value, error] : rows) {
        Bytes in = block(code == 0x220020 ? 0 : 0x81, code == 0x220020 ? 0 : 8, 5);
        in.resize(51, 'x');
        in[offset] = value;
        const Bytes before = in;
        EXPECT_EQ(Answer(error, 0), request(code, in, in, &record)) << code << " " << offset;
        EXPECT_TRUE(in == before && !signalled() && usb->pending() == 0);
    }
    Bytes in = block(0x81, 0, 5), small(42), none, cut(37);
    EXPECT_EQ(Answer(122, 0), request(0x220024, in, small));
    EXPECT_EQ(Answer(87, 0), request(0x22004B, cut, small));
}

TEST_F(UsbDriverTest, abort_close_and_unplug_end_what_is_pending_and_late_ends_do_no_harm) {
    const std::tuple<std::string, DWORD, Words> rows[] = {{"abort", 995, {0xC0000120, 0xC0010000}},
                                                          {"unplug", 1167, {0xC000009D, 0xC0007000}},
                                                          {"close", 6, {0xC0000120, 0xC0010000}}};
    for (const bool deaf : {false, true}) {
        for (const auto& [how, error, words] : rows) {
            usb->deaf_to_abort = deaf && how == "close";
            Bytes in = block(0x81, 0, 0, true), data(8, 'x'), address{0x81}, none;
            EXPECT_EQ(Answer(997, 0), request(0x22004B, in, data, &record));
            std::thread other([&, end = how] {
                if (end == "abort")
                    EXPECT_EQ(Answer(0, 0), request(0x220044, address, none));
                else if (end == "unplug")
                    usb->end_all(UsbEnd::gone);
                else
                    EXPECT_TRUE(CloseHandle(device));
            });
            EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(record.hEvent, INFINITE));
            EXPECT_EQ(words, words_of(in));
            Bytes().swap(in); // the caller's again
            Bytes().swap(data);
            other.join();
            EXPECT_EQ(error, result().first);
            usb->end({UsbEnd::ok, 5, hello, {}});
            if (how == "close")
                device = open();
        }
    }
}

TEST_F(UsbDriverTest, ends_and_closes_that_race_report_every_request_once) {
    for (int round = 0; round < 200; ++round) {
        Bytes in = block(0x81, 0, 0, true), data(8, 'x'), late = in, room(8);
        request(0x22004B, in, data, &record);
        std::thread port([&] { usb->end({UsbEnd::ok, 5, hello, {}}); });
        std::thread waiting([&] {
            const DWORD error = request(0x22004B, late, room).first;
            EXPECT_TRUE(error == 0 || error == 995 || error == 6) << error;
        });
        if (round % 2 == 0)
            std::this_thread::yield();
        EXPECT_TRUE(CloseHandle(device));
        EXPECT_TRUE(signalled()); // closing has waited for the report
        EXPECT_FALSE(signalled());
        EXPECT_EQ(words_of(in).first == 0 ? 'h' : 'x', data[0]);
        port.join();
        waiting.join();
        device = open();
    }
}

TEST_F(UsbDriverTest, opening_listing_and_registering_say_why_they_fail) {
    EXPECT_TRUE(open("\\\\?\\usb#none") == INVALID_HANDLE_VALUE && GetLastError() == 2);
    for (const auto& [status, error] : {std::pair(PortStatus::refused, 5u), std::pair(PortStatus::gone, 2u)}) {
        usb->state = status;
        EXPECT_TRUE(open() == INVALID_HANDLE_VALUE && GetLastError() == error);
    }
    const auto failed = [](bool failure, DWORD error) { return failure && GetLastError() == error; };
    const GUID other{};
    for (const GUID& guid : {driver_class, other}) {
        const HDEVINFO set = SetupDiGetClassDevsA(&guid, nullptr, nullptr, 0x12);
        SP_DEVICE_INTERFACE_DATA data{sizeof(data), {}, 0, 0};
        EXPECT_EQ(&guid != &other && guid.Data1 != 0, SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data) != 0);
        EXPECT_TRUE(failed(!SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 1, &data), 259));
        EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set) && failed(!SetupDiDestroyDeviceInfoList(set), 6));
        EXPECT_TRUE(failed(!SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data), 6));
    }
    const HDEVINFO set = SetupDiGetClassDevsA(&driver_class, nullptr, nullptr, 0x12);
    SP_DEVICE_INTERFACE_DATA data{sizeof(data), {}, 0, 0};
    DWORD required = 0;
    EXPECT_TRUE(failed(!SetupDiGetDeviceInterfaceDetailA(set, &data, nullptr, 0, &required, nullptr), 87));
    SetupDiEnumDeviceInterfaces(set, nullptr, &driver_class, 0, &data);
    EXPECT_TRUE(failed(!SetupDiGetDeviceInterfaceDetailA(set, &data, nullptr, 0, &required, nullptr), 122));
    DEV_BROADCAST_HANDLE filter{sizeof(filter), DBT_DEVTYP_HANDLE, 0, device, nullptr, {}, 0, {}};
    EXPECT_TRUE(failed(!RegisterDeviceNotificationA(nullptr, &filter, 0), 87));
    const HDEVNOTIFY registration = RegisterDeviceNotificationA(&filter, &filter, 0);
    EXPECT_TRUE(UnregisterDeviceNotification(registration));
    EXPECT_TRUE(failed(!UnregisterDeviceNotification(registration), 6));
    filter.dbch_handle = set;
    EXPECT_TRUE(failed(!RegisterDeviceNotificationA(&filter, &filter, 0), 6));
    Bytes none;
    const faults::Scope fault("DeviceIoControl", 2, 77);
    EXPECT_EQ(Answer(1167, 0), request(0x220030, none, none));
    EXPECT_EQ(Answer(77, 0), request(0x220030, none, none));
    usb->state = PortStatus::ok;
    SetupDiDestroyDeviceInfoList(set);
}

} // namespace
