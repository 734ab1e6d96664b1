// The chapters of the tour. Expected frames stand here byte by byte; only the CRC of an answer is computed.
#include "tour.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "devices.h"
#include "jorvet/base/read_text.h"

namespace jorvet::tool {

namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned short short_timeout_ms = 200;
constexpr unsigned short usual_timeout_ms = 1000;
constexpr milliseconds patience{3000}; // for what takes a few milliseconds on a machine that is not busy

long long ms_since(clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(clock::now() - start).count();
}

// Whether `condition` came true before the patience ended.
template <typename Condition>
bool comes_true(Condition condition) {
    for (const auto start = clock::now(); !condition(); std::this_thread::sleep_for(milliseconds{1}))
        if (clock::now() - start > patience)
            return false;
    return true;
}

// CRC-16, polynomial 0x1021, first value 0xFFFF, most significant bit first.
unsigned int crc16(const bytes& data) {
    unsigned int crc = 0xFFFF;
    for (const std::uint8_t byte : data)
        for (int bit = 7; bit >= 0; --bit)
            crc = (crc << 1 ^ (((crc >> 15 ^ byte >> bit) & 1) != 0 ? 0x1021u : 0u)) & 0xFFFF;
    return crc;
}

// The board's answer of success that carries `data`.
bytes answer_frame(const bytes& data, bool with_crc) {
    const auto byte = [](std::size_t value) { return static_cast<std::uint8_t>(value & 0xFF); };
    bytes frame;
    for (const std::size_t field :
         {std::size_t{with_crc ? 0x81u : 0x80u}, std::size_t{0xA0}, std::size_t{0x00}, data.size() >> 8, data.size()})
        frame.push_back(byte(field));
    for (const std::uint8_t datum : data)
        frame.push_back(datum);
    if (with_crc) {
        const unsigned int crc = crc16(frame);
        frame.push_back(byte(crc >> 8));
        frame.push_back(byte(crc));
    }
    return frame;
}

std::string arguments(const request& r, const request_input& input) {
    std::string text;
    for (unsigned int n = 0; n < shape_of(r).parameters; ++n)
        text += ' ' + hex_number(input.parameters[n], 2);
    return text + (input.data.empty() ? "" : " --data " + hex(input.data, "")) + (input.with_crc ? " --crc" : "");
}

} // namespace

void wire::note(bool to_host, const bytes& data) {
    const std::lock_guard lock(mutex_);
    bytes& seen = to_host ? seen_.to_host : seen_.to_board;
    seen.insert(seen.end(), data.begin(), data.end());
}

wire::traffic wire::take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(seen_, {});
}

// One request of the tour: what goes out after the start byte, the trailer when a CRC is asked for, and what comes
// back.
struct tour::example {
    const char* name;
    std::array<unsigned char, 3> parameters;
    const char* data;
    const char* frame;
    const char* trailer;
    const char* reply;
};

tour::tour(const settings& chosen, std::ostream& out)
    : chosen_(chosen), out_(out), name_(simulated_name(chosen.link, chosen.index)),
      boards_(chosen_,
              [this](bool to_host, const bytes& data) {
                  wire_.note(to_host, data);
                  if (chosen_.trace)
                      print_crossing(to_host, data);
              }),
      board_(make_instance(chosen_)) {}

void tour::run() {
    static const struct {
        const char* title;
        void (tour::*show)();
    } chapters[] = {
        {"What is attached", &tour::show_devices},
        {"Connecting", &tour::connect},
        {"All requests, without CRC and with", &tour::ask_everything},
        {"Events, one of them lost", &tour::watch_events},
        {"A request that the board refuses", &tour::be_refused},
        {"A board that does not answer", &tour::run_into_time_out},
        {"Pulling the plug", &tour::pull_the_plug},
        {"Plugging it in again", &tour::connect_again},
        {"A last request", &tour::say_goodbye},
    };
    int number = 0;
    for (const auto& chapter : chapters) {
        ++number;
        out_ << (number == 1 ? "" : "\n") << number << ". " << chapter.title << std::endl;
        (this->*chapter.show)();
        if (mistakes() > 0)
            return;
    }
}

unsigned int tour::mistakes() const {
    return static_cast<unsigned int>(
        std::count_if(findings_.begin(), findings_.end(), [](const finding& found) { return !found.right; }));
}

void tour::check(bool right, const std::string& what) {
    findings_.push_back({what, right});
    out_ << (right ? "   ok     " : "   WRONG  ") << what << '\n';
}

void tour::show(const wire::traffic& crossed) {
    for (const auto& [arrow, data] : {std::pair{"> ", &crossed.to_board}, std::pair{"< ", &crossed.to_host}})
        if (!data->empty())
            out_ << "          " << arrow << hex(*data) << '\n';
}

std::vector<COM_INFO> tour::list_devices() {
    std::vector<COM_INFO> devices = attached_devices();
    devices.erase(std::remove_if(devices.begin(), devices.end(),
                                 [this](const COM_INFO& device) { return device.com_type != chosen_.link; }),
                  devices.end());
    out_ << device_table(devices, "          ");
    return devices;
}

tour::answer tour::ask(const std::string& name, const request_input& input) {
    answer got{};
    wire_.take();
    got.status = send(request_named(name), board_.get(), input, &got.reply);
    got.crossed = wire_.take();
    return got;
}

void tour::show_devices() {
    const std::vector<COM_INFO> devices = list_devices();
    check(devices.size() == chosen_.simulated, counted(chosen_.simulated, "simulated board") + " listed");
    check(std::none_of(devices.begin(), devices.end(), [](const COM_INFO& device) { return device.in_use; }),
          "none in use");
    check(devices.size() > chosen_.index && name_of(devices[chosen_.index]) == name_,
          name_ + " at place " + std::to_string(chosen_.index));
}

void tour::connect() {
    const unsigned int status = open_device(board_.get(), chosen_, boards_);
    check(status == JV_OK, "connect: " + status_line(status));
    check(JVIsOpen(board_.get()), "the link is open");
    COM_INFO device{};
    if (status == JV_OK)
        JVGetComInfo(board_.get(), &device);
    // An open Cypress device tells no more of itself than that.
    const bool named = chosen_.link == JV_KIND_CYPRESS || name_of(device) == name_;
    check(named && device.in_use, name_ + " is in use now");
}

void tour::ask_everything() {
    const std::string number = simulated_name(JV_KIND_FTDI, chosen_.index);
    const std::string serial = hex(bytes(number.begin(), number.end()));
    const example examples[] = {
        {"read-sn", {1}, "", "15 01 00 00 00 00", "6F F9", serial.c_str()},
        {"write-memory", {0x00, 0x10}, "DE AD BE EF", "20 00 10 00 00 04 DE AD BE EF", "93 39", ""},
        {"read-memory", {0x00, 0x10, 4}, "", "10 00 10 04 00 00", "8C CE", "DE AD BE EF"},
        {"write-by-id", {0x00, 0x02}, "CA FE", "21 00 02 00 00 02 CA FE", "1C C8", ""},
        {"read-by-id", {0x00, 0x02}, "", "11 00 02 00 00 00", "76 61", "CA FE"},
        {"exec-by-id", {0x00, 0x02}, "01 02 03", "40 00 02 00 00 03 01 02 03", "B0 09", "03 02 01"},
        {"set-mode", {1}, "", "31 01 00 00 00 00", "55 50", ""},
        {"get-mode", {}, "", "32 00 00 00 00 00", "1E E1", "01"},
        {"read-last-sw", {}, "", "16 00 00 00 00 00", "24 48", "A0 00"},
        {"read-error", {}, "", "17 00 00 00 00 00", "7E E8", ""},
        {"reset", {1, 2}, "", "30 01 02 00 00 00", "D9 98", ""},
    };
    for (const example& e : examples)
        for (const bool with_crc : {false, true})
            ask_example(e, with_crc);
    check(board_->mode() == 1, "get-mode taught the library mode 1");
}

void tour::ask_example(const example& e, bool with_crc) {
    const request& asked = request_named(e.name);
    const request_input input{e.parameters, read_bytes(e.data), with_crc};
    const bytes sent = read_bytes(with_crc ? std::string("91") + e.frame + e.trailer : std::string("90") + e.frame);
    const bytes reply = read_bytes(e.reply);

    const answer got = ask(e.name, input);
    const bool handed_back = !shape_of(asked).brings_data || got.reply == reply;
    const bool crossed = got.crossed.to_board == sent && got.crossed.to_host == answer_frame(reply, with_crc);
    check(got.status == JV_OK && handed_back && crossed, e.name + arguments(asked, input));
    show(got.crossed);
    if (!crossed) {
        out_ << "          expected\n";
        show({sent, answer_frame(reply, with_crc)});
    }
    if (got.status != JV_OK)
        out_ << "          " << status_line(got.status) << '\n';
}

void tour::watch_events() {
    board_->purge_event_frame();
    const unsigned int before = board_->event_count(), lost_before = board_->lost_events();
    boards_.run({"event 7 0A", "event 7 0B", "lose 1", "event 7 0C"});
    comes_true([&] { return board_->event_count() - before >= 3; });
    const auto frames = board_->read_event_frames();
    std::string sequence;
    for (const auto& frame : frames) {
        out_ << "          event " << hex_number(frame->id, 2) << "  seq " << int{frame->seq} << "  data "
             << hex(frame->data) << '\n';
        sequence += hex_number(frame->seq, 2).substr(2) + ':' + hex(frame->data) + ' ';
    }
    check(sequence == "00:0A 01:0B 03:0C ", "three events came, in order; sequence 2 is missing");
    const unsigned int lost = board_->lost_events() - lost_before;
    check(lost == 1, "the library counts " + counted(lost, "lost event"));
}

void tour::be_refused() {
    const answer got = ask("exec-by-id", {{0x7F, 0x01, 0}, {}, false});
    check(got.status == JV_ERR_BOARD_3001, "exec-by-id of an unknown identifier: " + status_line(got.status));
    show(got.crossed);
}

void tour::run_into_time_out() {
    board_->set_timeout_for_reply(short_timeout_ms);
    boards_.run({"reply silent"});
    const auto start = clock::now();
    const answer got = ask("read-sn", {{1, 0, 0}, {}, false});
    const auto took = ms_since(start);
    board_->set_timeout_for_reply(chosen_.timeout_ms.value_or(usual_timeout_ms));
    check(got.status == JV_ERR_TIMEOUT_READ_SN, "read-sn: " + status_line(got.status));
    show(got.crossed);
    // The library counts in milliseconds of its own clock, so a wait may look a little short from here.
    check(took >= short_timeout_ms - 10, "given up after " + std::to_string(took) + " ms, with a time-out of " +
                                             std::to_string(short_timeout_ms) + " ms");
}

void tour::pull_the_plug() {
    const bool closes_itself = chosen_.link == JV_KIND_FTDI;
    const auto start = clock::now();
    boards_.run({"unplug"});
    if (closes_itself) {
        const bool closed = comes_true([this] { return !JVIsOpen(board_.get()); });
        check(closed, "the link is seen closed after " + std::to_string(ms_since(start)) + " ms");
    }
    const answer got = ask("read-sn", {{1, 0, 0}, {}, false});
    const unsigned int expected = closes_itself ? JV_ERR_COM_NOT_OPEN : JV_ERR_CYP_WRITE;
    check(got.status == expected && got.crossed.to_board.empty(), "read-sn: " + status_line(got.status));
    check(list_devices().size() == chosen_.simulated - 1, name_ + " is no longer listed");
}

void tour::connect_again() {
    boards_.replace_board();
    const std::vector<COM_INFO> devices = list_devices();
    const auto found = std::find_if(devices.begin(), devices.end(),
                                    [this](const COM_INFO& device) { return name_of(device) == name_; });
    check(found != devices.end(), name_ + " is listed again");
    if (found == devices.end())
        return;
    const unsigned int status = JVConnect(board_.get(), static_cast<unsigned char>(found->index));
    check(status == JV_OK, "connect at place " + std::to_string(found->index) + ": " + status_line(status));
}

void tour::say_goodbye() {
    const bytes expected{'j', 'o', 'r', 'v', 'e', 't'};
    const answer got = ask("read-by-id", {{0x00, 0x01, 0}, {}, true});
    check(got.status == JV_OK && got.reply == expected, "read-by-id: " + status_line(got.status));
    show(got.crossed);
    out_ << hex_dump(got.reply, "          ");
    const unsigned int status = JVDisconnect(board_.get());
    check(status == JV_OK && !JVIsOpen(board_.get()), "disconnect: " + status_line(status));
}

} // namespace jorvet::tool
