// The subcommands that open a device at most, ask one thing and end.
#include "commands.h"

#include <iostream>
#include <sstream>

#include "connection.h"
#include "devices.h"
#include "jorvet/api/jv_session.h"
#include "jorvet/com/usb_cyp_com.h"

namespace jorvet::tool {

outcome run(const settings& chosen) {
    if (chosen.command == "demo")
        return run_demo(chosen);
    bench boards(chosen, chosen.trace ? print_crossing : crossing{});
    if (chosen.command == "list")
        return run_list(chosen, boards);
    if (chosen.command == "info")
        return run_info(chosen, boards);
    if (chosen.command == "describe")
        return run_describe(chosen, boards);
    if (chosen.command == "flash")
        return run_flash(chosen, boards);
    if (chosen.command == "monitor")
        return run_monitor(chosen, boards);
    return run_request(chosen, boards);
}

outcome run_list(const settings& chosen, bench& boards) {
    boards.run(chosen.script);
    const std::vector<COM_INFO> devices = attached_devices();
    outcome result = concluded(chosen.command, JV_OK);
    result.text = devices.empty() ? "no device is attached\n" : device_table(devices);
    result.json["devices"] = nlohmann::ordered_json::array();
    for (const COM_INFO& device : devices)
        result.json["devices"].push_back(device_json(device));
    return result;
}

namespace {

unsigned int opened_index(CJorvet* board) {
    jv_device device{};
    device.size = sizeof(device);
    jv_device_of(board, &device);
    return device.index;
}

} // namespace

outcome run_info(const settings& chosen, bench& boards) {
    const instance board = make_instance(chosen);
    outcome result = concluded(chosen.command, open_device(board.get(), chosen, boards));
    if (result.exit != exit_status::success)
        return result;
    COM_INFO device{};
    JVGetComInfo(board.get(), &device);
    if (chosen.link == JV_KIND_CYPRESS) { // an open one does not say more than that it is in use
        device = listed_device(chosen.link, opened_index(board.get())).value_or(device);
        device.in_use = 1;
    }
    const bool open = JVIsOpen(board.get());
    const bool handle = JVGetComHandle(board.get()) != nullptr;
    const unsigned int events = board->event_count(), lost = board->lost_events(), mode = board->mode();
    result.json.update({{"device", device_json(device)},
                        {"open", open},
                        {"driver_handle", handle},
                        {"mode", mode},
                        {"events", events},
                        {"lost_events", lost}});
    result.text = device_table({device}) + '\n' +
                  aligned({{"open", open ? "yes" : "no"},
                           {"driver handle", handle ? "yes" : "none"},
                           {"mode", std::to_string(mode) + " (2 until get-mode is asked)"},
                           {"events", std::to_string(events) + " received, " + std::to_string(lost) + " lost"}});
    return result;
}

namespace {

// Keeps what is written to std::cout while it lives.
class captured_output {
  public:
    captured_output() : usual_(std::cout.rdbuf(text_.rdbuf())) {}
    ~captured_output() { std::cout.rdbuf(usual_); }
    captured_output(const captured_output&) = delete;
    captured_output& operator=(const captured_output&) = delete;
    std::string text() const { return text_.str(); }

  private:
    std::ostringstream text_;
    std::streambuf* const usual_;
};

std::string described(CJorvet& board) {
    const captured_output report;
    static_cast<CUsbCypCom&>(*board.get_com()).print_info();
    return report.text();
}

} // namespace

outcome run_describe(const settings& chosen, bench& boards) {
    const instance board = make_instance(chosen);
    outcome result = concluded(chosen.command, open_device(board.get(), chosen, boards));
    if (result.exit != exit_status::success)
        return result;
    result.text = described(*board);
    result.json["report"] = nlohmann::ordered_json::array();
    std::istringstream lines(result.text);
    for (std::string line; std::getline(lines, line);)
        result.json["report"].push_back(line);
    return result;
}

outcome run_request(const settings& chosen, bench& boards) {
    const request& asked = request_named(chosen.command);
    const instance board = make_instance(chosen);
    bytes reply;
    unsigned int status = open_device(board.get(), chosen, boards);
    if (status == JV_OK)
        status = send(asked, board.get(), chosen.input, &reply);
    outcome result = concluded(chosen.command, status);
    if (result.exit == exit_status::success)
        result.text = chosen.command + ": " + status_line(status) + '\n';
    if (asked.teaches_mode && status == JV_OK) {
        result.text += "mode " + std::to_string(board->mode()) + '\n';
        result.json["mode"] = board->mode();
    }
    if (shape_of(asked).brings_data && is_reply(status)) {
        result.text += counted(reply.size(), "byte") + '\n' + hex_dump(reply);
        result.json["length"] = reply.size();
        result.json["data"] = hex(reply, "");
    }
    return result;
}

} // namespace jorvet::tool
