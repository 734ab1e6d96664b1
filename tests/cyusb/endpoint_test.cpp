// Endpoints: what descriptors make of them, the bytes of each start, waiting, aborting and finishing.
#include "fake_platform.h"

#include <memory>
#include <tuple>

#include "jorvet/cyusb/endpoint.h"

using namespace fake;

namespace {

struct EndpointTest : fake::Test {
    HANDLE device = CreateEventA(nullptr, FALSE, FALSE, nullptr); // any open handle will do
    Bytes data = Bytes(2048);
    ~EndpointTest() override { CloseHandle(device); }

    template <class EndPoint>
    EndPoint make(UCHAR address, UCHAR attributes, USHORT max_packet) {
        const USB_ENDPOINT_DESCRIPTOR descriptor{7, 5, address, attributes, max_packet, 1};
        return EndPoint(device, &descriptor);
    }
    CCyBulkEndPoint bulk(UCHAR address, CCyXferMode mode = XferDirect) {
        auto endpoint = make<CCyBulkEndPoint>(address, 2, 512);
        endpoint.XferMode = mode;
        return endpoint;
    }
    // A whole transfer: how it went, and what became of its length.
    std::pair<bool, LONG> run(CCyUSBEndPoint& endpoint, LONG len, CCyIsoPktInfo* packets = nullptr) {
        const bool ok = endpoint.XferData(data.data(), len, packets);
        return {ok, len};
    }
};
using Ended = std::pair<bool, LONG>;

TEST_F(EndpointTest, descriptors_give_packets_per_frame_and_bytes_per_interval) {
    // address, attributes, wMaxPacketSize, bMaxBurst (-1: no companion), companion's attributes, packets, bytes
    const std::tuple<UCHAR, UCHAR, USHORT, int, UCHAR, int, int> rows[] = {
        {0x81, 2, 512, -1, 0, 1, 512},        {0x02, 3, 0x0840, -1, 0, 2, 128},   {0x81, 1, 0x1400, -1, 0, 3, 3072},
        {0x81, 2, 1024, 15, 3, 1, 16384},     {0x81, 5, 1024, 3, 2, 1, 12288},    {0x01, 1, 1024, 15, 0xFC, 1, 16384},
        {0x81, 1, 0x1FFF, 255, 3, 4, 0xFFFF}, {0x02, 2, 0x7FF, 63, 0, 1, 0xFFFF}, {0x01, 2, 0, 15, 0, 1, 0},
    };
    for (const auto& [address, attributes, max_packet, burst, ss_attributes, packets, bytes] : rows) {
        const USB_ENDPOINT_DESCRIPTOR descriptor{7, 5, address, attributes, max_packet, 9};
        const USB_SS_ENDPOINT_COMPANION_DESCRIPTOR companion{6, 0x30, UCHAR(burst), ss_attributes, 777};
        CCyUSBEndPoint* const made = jorvet::cyusb::new_endpoint(device, descriptor, burst < 0 ? nullptr : &companion);
        EXPECT_TRUE(made->PktsPerFrame == packets && made->MaxPktSize == bytes) << made->MaxPktSize;
        EXPECT_TRUE(made->IsIn == (address == 0x81) && made->SsBytesPerInterval == (burst < 0 ? 0 : 777));
        EXPECT_TRUE(made->XferMode == XferDirect && made->Interval == 9 && made->TimeOut == 10000);
        jorvet::cyusb::destroy_endpoint(made);
    }
}

// `size` bytes of `value`, little-endian, in hexadecimal.
std::string le(long value, int size) {
    return size == 0 ? "" : hex({BYTE(value)}) + le(value >> 8, size - 1);
}

// A request block: the first twelve bytes, then the fields from the endpoint address on, then what follows the header.
std::string block(const std::string& setup, int address, int table_at, int table, int data_at, int data) {
    return setup + "00" + le(address, 1) + le(0, 8) + le(table_at, 4) + le(table, 4) + le(data_at, 4) + le(data, 4);
}
const std::string no_setup = le(0, 12);

TEST_F(EndpointTest, each_kind_of_transfer_sends_its_block) {
    auto bulk_out = bulk(0x02);
    auto interrupt = make<CCyInterruptEndPoint>(0x83, 3, 64);
    auto isochronous = make<CCyIsocEndPoint>(0x84, 1, 4);
    const std::tuple<CCyUSBEndPoint&, CCyXferMode, LONG, std::string> rows[] = {
        {bulk_out, XferDirect, 5, "22004b " + block(no_setup, 2, 0, 0, 0, 0) + ">5"},
        {bulk_out, XferBuffered, 2, "220024 " + block(no_setup, 2, 0, 0, 38, 2) + "0102>40"},
        {interrupt, XferDirect, 0, "22004b " + block(no_setup, 0x83, 0, 0, 0, 0) + ">0"},
        {interrupt, XferBuffered, 0, "220024 " + block(no_setup, 0x83, 0, 0, 38, 0) + ">38"},
        {isochronous, XferDirect, 9, "22004b " + block(no_setup, 0x84, 38, 24, 0, 0) + le(0, 24) + ">9"},
        {isochronous, XferBuffered, 3, "220024 " + block(no_setup, 0x84, 38, 8, 46, 3) + le(0, 8) + "010203>49"},
    };
    data = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (const auto& [endpoint, mode, length, sent] : rows) {
        endpoint.XferMode = mode;
        os.script = {{}};
        SetLastError(1234); // of an earlier call: no business of this one
        EXPECT_EQ(Ended(true, 0), run(endpoint, length));
        EXPECT_EQ(sent, os.take_log());
    }
}

TEST_F(EndpointTest, control_requests_carry_their_fields_and_whole_seconds) {
    auto control = make<CCyControlEndPoint>(0, 0, 64);
    control.Target = TargetEndpoint;
    control.ReqCode = 0xA0;
    control.Value = 0x1122;
    control.Index = 0x3344;
    const std::tuple<ULONG, int, CCyReqType, bool, std::string> rows[] = {
        {0, 0, ReqStandard, true, "82"},   {1, 1, ReqClass, false, "22"},     {999, 1, ReqVendor, true, "c2"},
        {1000, 1, ReqVendor, false, "42"}, {2500, 2, ReqVendor, false, "42"}, {10000, 10, ReqVendor, true, "c2"},
    };
    for (const auto& [timeout, seconds, type, read, request_type] : rows) {
        control.TimeOut = timeout;
        control.ReqType = type;
        os.script = {{{0x5A}, 0, 38}};
        LONG len = 1;
        data[0] = 7;
        EXPECT_TRUE(read ? control.Read(data.data(), len) : control.Write(data.data(), len));
        const std::string setup = request_type + "a0221144330100" + le(seconds, 4);
        EXPECT_EQ("220020 " + block(setup, 0, 0, 0, 38, 1) + "07>39", os.take_log());
        EXPECT_TRUE(control.IsIn == read && data[0] == (read ? 0x5A : 7));
    }
}

TEST_F(EndpointTest, what_cannot_be_started_sends_nothing) {
    CCyBulkEndPoint closed;
    CCyControlEndPoint closed_control;
    auto bulk_in = bulk(0x81);
    auto isochronous = make<CCyIsocEndPoint>(0x81, 1, 64), no_packets = make<CCyIsocEndPoint>(0x81, 1, 0);
    const std::pair<CCyUSBEndPoint*, LONG> rows[] = {{&closed, 1},      {&closed_control, 0}, {&bulk_in, -1},
                                                     {&isochronous, 0}, {&isochronous, -5},   {&no_packets, 64}};
    for (const auto& [endpoint, len] : rows) {
        OVERLAPPED record{};
        EXPECT_EQ(nullptr, endpoint->BeginDirectXfer(data.data(), len, &record));
        EXPECT_EQ(nullptr, endpoint->BeginBufferedXfer(data.data(), len, &record));
        EXPECT_EQ(Ended(false, 0), run(*endpoint, len));
    }
    EXPECT_EQ(0u, closed.GetXferSize());
    closed.SetXferSize(512);
    no_packets.SetXferSize(512);
    EXPECT_EQ("", os.take_log());
}

TEST_F(EndpointTest, finishing_takes_bytes_and_verdict_from_the_driver) {
    const Reply nothing{{}, 0, 38}, below_header{{}, 0, 0, 0, 0, false, 20}, ten{Bytes(10, 7), 0, 38};
    const Reply too_much{Bytes(20, 7), 0, 38, 0, 0, false, 900}, stalled{Bytes(12, 7), 0, 0, 0xC0000004};
    const Reply refused{Bytes(12, 7), 0, 0, 0, 0xC0000120}, broken{Bytes(3, 7), ERROR_GEN_FAILURE}, good{Bytes(12, 7)};
    // ..., result, bytes moved, first byte of the caller's buffer
    const std::tuple<UCHAR, CCyXferMode, Reply, bool, LONG, int> rows[] = {
        {0x81, XferBuffered, nothing, true, 0, 0}, {0x81, XferBuffered, below_header, true, 0, 0},
        {0x81, XferBuffered, ten, true, 10, 7},    {0x81, XferBuffered, too_much, true, 20, 7},
        {0x01, XferBuffered, ten, true, 10, 0},    {0x81, XferDirect, good, true, 12, 7},
        {0x81, XferDirect, stalled, false, 12, 7}, {0x81, XferDirect, refused, false, 12, 7},
        {0x81, XferDirect, broken, false, 3, 7},
    };
    for (const auto& [address, mode, reply, ok, moved, first_byte] : rows) {
        data.assign(20, 0);
        auto endpoint = bulk(address, mode);
        os.script = {reply};
        EXPECT_EQ(Ended(ok, moved), run(endpoint, 20));
        EXPECT_EQ(first_byte, data[0]);
        EXPECT_TRUE(endpoint.BytesXferred == ULONG(moved) && endpoint.LastError == reply.error);
        EXPECT_TRUE(endpoint.UsbdStatus == reply.usbd_status && endpoint.NtStatus == reply.nt_status);
    }
    auto endpoint = bulk(0x81);
    OVERLAPPED record{};
    os.script = {stalled};
    LONG length = 12;
    BYTE* const begun = endpoint.BeginDataXfer(data.data(), length, &record);
    EXPECT_EQ(0xC0000004, endpoint.UsbdStatus) << "of one that has ended already";
    EXPECT_FALSE(endpoint.FinishDataXfer(data.data(), length, &record, begun, nullptr));
}

TEST_F(EndpointTest, packet_records_come_with_the_bytes) {
    auto endpoint = make<CCyIsocEndPoint>(0x81, 1, 512);
    endpoint.XferMode = XferBuffered;
    int count = -1;
    EXPECT_EQ(nullptr, endpoint.CreatePktInfos(0, count));
    EXPECT_EQ(0, count);
    const std::unique_ptr<CCyIsoPktInfo[]> packets(endpoint.CreatePktInfos(1000, count));
    ASSERT_EQ(2, count);
    packets[1].Length = 99;
    for (const auto& [data_bytes, length] : {std::pair(0u, 99u), std::pair(600u, 88u)}) {
        os.script = {{with(Bytes(16 + data_bytes), 12, 88), 0, 38}}; // the table's second Length, then data
        EXPECT_EQ(Ended(true, data_bytes), run(endpoint, 1000, packets.get()));
        EXPECT_EQ(length, packets[1].Length);
    }
    endpoint.MaxPktSize = 0;
    EXPECT_EQ(nullptr, endpoint.CreatePktInfos(1000, count));
    EXPECT_EQ(2, count);
}

const Reply pending{{}, 0, 0, 0, 0, true};

TEST_F(EndpointTest, waiting_ends_with_completion_or_a_ladder_of_aborts) {
    const std::string start = "22004b " + block(no_setup, 0x81, 0, 0, 0, 0) + ">8", abort = "; 220044 81>0";
    const std::string wait = "; wait 50";
    const Reply refused{{}, ERROR_GEN_FAILURE}, done{Bytes(8, 7)}, unplugged{{}, ERROR_DEVICE_NOT_CONNECTED};
    const Action ends = [done] { os.complete(done); }, nothing = [] {};
    Reply cancels{{}, ERROR_GEN_FAILURE}; // the abort request fails, and has worked
    cancels.before_return = [] { os.complete({{}, ERROR_OPERATION_ABORTED}); };
    const std::tuple<ULONG, std::deque<Reply>, std::deque<Action>, bool, std::string> rows[] = {
        {100, {done}, {}, true, ""},
        {100, {unplugged}, {}, false, ""},
        {100, {pending}, {ends}, true, "; wait 100"},
        {INFINITE, {pending}, {ends}, true, "; wait"},
        {100, {pending, cancels}, {nothing}, false, "; wait 100" + abort + wait},
        {100, {pending, {}}, {nothing, ends}, true, "; wait 100" + abort + wait},
        {100, {pending, {}, cancels}, {nothing, nothing}, false, "; wait 100" + abort + wait + abort + wait},
        {100,
         {pending, refused, refused, cancels},
         {nothing, nothing, nothing},
         false,
         "; wait 100" + abort + wait + abort + wait + abort + wait},
    };
    for (const auto& [timeout, script, waits, ok, log] : rows) {
        auto endpoint = bulk(0x81);
        endpoint.TimeOut = timeout;
        os.script = script;
        os.waits = waits;
        EXPECT_EQ(Ended(ok, ok ? 8 : 0), run(endpoint, 8));
        EXPECT_EQ(start + log, os.take_log());
    }
}

TEST_F(EndpointTest, a_finish_returns_once_the_driver_has_ended_the_transfer_whatever_else_fails) {
    auto endpoint = bulk(0x81);
    OVERLAPPED record{};
    record.hEvent = device;
    const Action ends = [] { os.complete({Bytes(3, 7), ERROR_OPERATION_ABORTED}); }, nothing = [] {};
    const std::tuple<bool, std::deque<Action>, std::string> rows[] = {
        {true, {nothing, nothing, ends}, "220044 81>0; wait 50; 220044 81>0; wait 50; 220044 81>0; wait 50"},
        {false, {nothing, ends}, "220044 81>0; wait 50; sleep; 220044 81>0; wait 50; sleep"}};
    for (const auto& [waits, actions, log] : rows) {
        os.script = {pending, {}, {{}, ERROR_GEN_FAILURE}, {}};
        os.script.resize(waits ? 4 : 3);
        BYTE* const request = endpoint.BeginDataXfer(data.data(), 8, &record);
        EXPECT_TRUE(endpoint.NtStatus == 0 && endpoint.UsbdStatus == 0);
        EXPECT_FALSE(endpoint.WaitForXfer(&record, 5)) << "leaves it pending";
        EXPECT_NE(std::string::npos, os.take_log().find("; wait 5"));
        os.waits = actions;
        if (!waits)
            os.failing["WaitForSingleObject"] = ERROR_INVALID_HANDLE;
        LONG len = 8;
        EXPECT_FALSE(endpoint.FinishDataXfer(data.data(), len, &record, request, nullptr));
        EXPECT_TRUE(len == 3 && os.take_log() == log);
        EXPECT_TRUE(!endpoint.FinishDataXfer(data.data(), len, &record, nullptr, nullptr) && len == 0);
    }
    for (const DWORD error : {ERROR_SUCCESS, ERROR_DEVICE_NOT_CONNECTED}) {
        endpoint.LastError = error;
        EXPECT_EQ(error == 0, endpoint.WaitForXfer(&record, 7)); // nothing to wait for
    }
    EXPECT_TRUE(os.log.empty());
}

TEST_F(EndpointTest, a_request_waits_for_its_own_end_with_an_event_or_without) {
    auto endpoint = bulk(0x81);
    const Action answers = [] { os.complete({{0x81, 0, 2, 0, 0}}); }, nothing = [] {};
    for (const bool event : {true, false}) {
        os.script = {pending};
        os.waits = {nothing, answers};
        if (event)
            os.waits.pop_front();
        else
            os.failing["CreateEventA"] = ERROR_NOT_ENOUGH_MEMORY;
        EXPECT_EQ(512u, endpoint.GetXferSize());
        EXPECT_EQ(std::string("220034 8100000000>5; ") + (event ? "wait" : "sleep; sleep"), os.take_log());
    }
    os.script = {pending};
    os.waits = {[] { os.complete({{}, ERROR_GEN_FAILURE}); }};
    EXPECT_TRUE(endpoint.Abort());
    EXPECT_EQ("220044 81>0; sleep", os.take_log());
}

TEST_F(EndpointTest, a_block_that_the_driver_holds_outlives_its_endpoint) {
    const std::size_t parked = jorvet::cyusb::parked_blocks();
    OVERLAPPED record{};
    record.hEvent = device;
    os.script = {pending};
    bulk(0x81).BeginDataXfer(data.data(), 8, &record);
    EXPECT_EQ(parked + 1, jorvet::cyusb::parked_blocks());
    os.complete({Bytes(3, 7)}); // writes to the block
}

TEST_F(EndpointTest, packet_mode_reads_until_a_short_packet) {
    const Reply whole{Bytes(512, 1)}, rest{Bytes(488, 1)}, brief{Bytes(100, 2)}, none, bad{{}, ERROR_GEN_FAILURE};
    using Script = std::deque<Reply>;
    const std::tuple<UCHAR, USHORT, LONG, Script, Ended> rows[] = {
        {0x81, 512, 1000, Script{whole, brief}, {true, 612}},
        {0x81, 512, 1000, Script{whole, rest}, {true, 1000}},
        {0x81, 512, 1000, Script{whole, bad}, {true, 512}},
        {0x81, 512, 1000, Script{bad}, {false, 0}},
        {0x81, 512, 1000, Script{none}, {true, 0}},
        {0x81, 512, 1024, Script{whole, whole}, {true, 1024}},
        {0x81, 512, 0, Script{}, {true, 0}},
        {0x81, 512, -3, Script{}, {true, 0}},
        {0x81, 0, 1000, Script{}, {false, 0}},
        {0x01, 512, 1000, Script{brief}, {true, 100}},
    };
    for (const auto& [address, packet, length, script, ended] : rows) {
        auto endpoint = bulk(address);
        endpoint.MaxPktSize = packet;
        os.script = script;
        LONG len = length;
        const bool ok = endpoint.XferData(data.data(), len, nullptr, true);
        EXPECT_EQ(ended, Ended(ok, len));
    }
}

TEST_F(EndpointTest, transfer_sizes_are_whole_packets) {
    auto endpoint = bulk(0x81);
    const std::pair<ULONG, ULONG> rows[] = {{1000, 1024}, {1024, 1024}, {0, 0}, {0xFFFFFFFF, 0xFFFFFE00}};
    for (const auto& [asked, sent] : rows) {
        os.script = {{}};
        endpoint.SetXferSize(asked);
        EXPECT_EQ("220038 81" + le(long(sent), 4) + ">5", os.take_log());
    }
    os.script = {{{0x81, 0, 2, 0, 0}}, {{0x81, 0, 2}}, {{}, 31}, {{}, 32}};
    EXPECT_EQ(512u, endpoint.GetXferSize());
    EXPECT_EQ("220034 8100000000>5", os.take_log());
    EXPECT_EQ(0u, endpoint.GetXferSize()); // three bytes came back
    EXPECT_EQ(0u, endpoint.GetXferSize());
    EXPECT_EQ(31u, endpoint.LastError);
    endpoint.SetXferSize(1);
    EXPECT_EQ(32u, endpoint.LastError);
}

TEST_F(EndpointTest, a_pipe_is_reset_and_aborted) {
    auto endpoint = bulk(0x81);
    os.script = {{}, {{}, ERROR_GEN_FAILURE}, {{}, ERROR_INVALID_PARAMETER}, {}};
    EXPECT_TRUE(endpoint.Reset());
    EXPECT_FALSE(endpoint.Reset());
    EXPECT_TRUE(endpoint.Abort());
    os.failing["CreateEventA"] = ERROR_NOT_ENOUGH_MEMORY;
    EXPECT_TRUE(endpoint.Abort()); // without an event
    EXPECT_EQ("22002c 81>0; 22002c 81>0; 220044 81>0; 220044 81>0", os.take_log());
    EXPECT_EQ(ERROR_GEN_FAILURE, endpoint.LastError);
    EXPECT_EQ(Ended(false, 0), run(endpoint, 8));
    EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, endpoint.LastError);
}

} // namespace
