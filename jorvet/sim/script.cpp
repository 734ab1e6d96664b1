// Parses script lines and composes their help, both from tables: an entry says how a line or a change is written, what
// it does and how it is parsed.
#include "jorvet/sim/script.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "jorvet/sim/script_words.h"
#include "jorvet/sim/usb/boot_loader.h"
#include "jorvet/sim/usb/controller.h"

namespace jorvet::sim {

namespace {

using std::chrono::milliseconds;

constexpr std::size_t memory_size = 0x10000;

// A word of a line that changes how something is done, with its arguments.
template <class Subject>
struct script_change {
    std::string_view usage;
    void (*apply)(script_words& words, Subject& subject);
};

constexpr script_change<reply_plan> reply_changes[] = {
    {"silent", [](script_words&, reply_plan& plan) { plan.silent = true; }},
    {"status N", [](script_words& words, reply_plan& plan) { plan.status = words.two_bytes("status word"); }},
    {"data BYTES", [](script_words& words, reply_plan& plan) { plan.data = words.bytes("data"); }},
    {"crc", [](script_words&, reply_plan& plan) { plan.with_crc = true; }},
    {"no-crc", [](script_words&, reply_plan& plan) { plan.with_crc = false; }},
    {"wrong-crc", [](script_words&, reply_plan& plan) { plan.wrong_crc = true; }},
    {"shifted-crc", [](script_words&, reply_plan& plan) { plan.shifted_crc = true; }},
    {"delay T", [](script_words& words, reply_plan& plan) { plan.pacing.delay = words.time("delay"); }},
    {"fragment N", [](script_words& words, reply_plan& plan) { plan.pacing.fragment = words.count("fragment size"); }},
    {"gap T", [](script_words& words, reply_plan& plan) { plan.pacing.gap = words.time("gap"); }},
    {"before BYTES", [](script_words& words, reply_plan& plan) { plan.stray_before = words.bytes("bytes before"); }},
    {"after BYTES", [](script_words& words, reply_plan& plan) { plan.stray_after = words.bytes("bytes after"); }},
    {"unplug-after N",
     [](script_words& words, reply_plan& plan) { plan.unplug_after = words.count("number of bytes"); }},
};

using ports::usb_end;

void parse_failure(script_words& words, transfer_plan& plan) {
    plan.end = usb_end::failed;
    if (words.next_is_number())
        plan.after = words.count("number of bytes");
}

constexpr script_change<transfer_plan> transfer_changes[] = {
    {"stall", [](script_words&, transfer_plan& plan) { plan.end = usb_end::stalled; }},
    {"babble", [](script_words&, transfer_plan& plan) { plan.end = usb_end::babble; }},
    {"fail [N]", parse_failure},
    {"silent", [](script_words&, transfer_plan& plan) { plan.silent = true; }},
    {"short N", [](script_words& words, transfer_plan& plan) { plan.after = words.count("number of bytes"); }},
    {"data BYTES", [](script_words& words, transfer_plan& plan) { plan.data = words.bytes("data"); }},
    {"delay T", [](script_words& words, transfer_plan& plan) { plan.delay = words.time("delay"); }},
};

// The entry of `table` whose usage begins with that word; its end when there is none.
template <class Entry, std::size_t size>
const Entry* find_entry(const Entry (&table)[size], std::string_view name) {
    return std::find_if(std::begin(table), std::end(table),
                        [&](const Entry& entry) { return entry.usage.substr(0, entry.usage.find(' ')) == name; });
}

template <class Subject, std::size_t size>
const script_change<Subject>& parse_change(script_words& words, const script_change<Subject> (&changes)[size],
                                           const char* changed) {
    const std::string_view name = words.word("change");
    const script_change<Subject>* const change = find_entry(changes, name);
    if (change == std::end(changes))
        words.fail(quoted(name) + " is not a change of a " + changed);
    return *change;
}

template <class Plan, std::size_t size>
Plan parse_plan(script_words& words, const script_change<Plan> (&changes)[size], const char* changed) {
    Plan plan;
    while (words.more())
        parse_change(words, changes, changed).apply(words, plan);
    return plan;
}

// The rest of a line that is either empty or "off".
bool parse_unless_off(script_words& words) {
    const bool on = !words.more();
    if (!on && words.word("end") != "off")
        words.fail("what may follow is 'off'");
    return on;
}

reply_plan parse_reply_plan(script_words& words) {
    return parse_plan(words, reply_changes, "reply");
}

script_action parse_reply(script_words& words) {
    return [plan = parse_reply_plan(words)](simulated_device& plug) { plug.board().plan_next(plan); };
}

script_action parse_replies(script_words& words) {
    return [plan = parse_reply_plan(words)](simulated_device& plug) { plug.board().plan_all(plan); };
}

board_event parse_event_fields(script_words& words) {
    board_event event;
    event.id = words.byte("identifier");
    if (words.more())
        event.data = words.bytes("data");
    return event;
}

script_action parse_event(script_words& words) {
    return [event = parse_event_fields(words)](simulated_device& plug) { plug.board().send_event(event); };
}

script_action parse_events(script_words& words) {
    const milliseconds period = words.time("period");
    if (period.count() == 0 && !words.more())
        return [](simulated_device& plug) { plug.board().stop_events(); };
    return [period, event = parse_event_fields(words)](simulated_device& plug) {
        plug.board().start_events(period, event);
    };
}

script_action parse_lose(script_words& words) {
    const auto count = static_cast<unsigned>(words.number("number of events", max_number));
    return [count](simulated_device& plug) { plug.board().lose_events(count); };
}

script_action parse_raw(script_words& words) {
    return [bytes = words.bytes("bytes")](simulated_device& plug) { plug.board().send_raw(bytes); };
}

script_action parse_memory(script_words& words) {
    const std::size_t address = words.two_bytes("address");
    byte_vector bytes = words.bytes("bytes");
    if (address + bytes.size() > memory_size)
        words.fail(std::to_string(bytes.size()) + " bytes at " + std::to_string(address) +
                   " reach beyond the end of memory");
    return [address, bytes = std::move(bytes)](simulated_device& plug) { plug.board().set_memory(address, bytes); };
}

script_action parse_identifier(script_words& words) {
    const std::uint16_t identifier = words.two_bytes("identifier");
    return [identifier, bytes = words.bytes("bytes")](simulated_device& plug) {
        plug.board().set_identifier(identifier, bytes);
    };
}

script_action parse_error(script_words& words) {
    const std::uint16_t status = words.two_bytes("status word");
    return [status](simulated_device& plug) { plug.board().add_error(status); };
}

script_action parse_stall(script_words& words) {
    const std::string_view word = words.word("number of bytes");
    if (word == "off")
        return [](simulated_device& plug) { plug.accept_writes(); };
    const auto bytes = static_cast<std::size_t>(words.to_number(word, max_number));
    return [bytes](simulated_device& plug) { plug.stall_writes_after(bytes); };
}

script_action parse_unplug(script_words& words) {
    const milliseconds delay = words.more() ? words.time("time") : milliseconds(0);
    return [delay](simulated_device& plug) { plug.board().unplug(delay); };
}

// The device as a USB controller, for lines that only those understand.
simulated_controller& as_controller(simulated_device& plug, const char* name) {
    if (auto* const controller = dynamic_cast<simulated_controller*>(&plug))
        return *controller;
    throw script_error(std::string(name) + ": this is no USB controller");
}

script_action parse_transfer(script_words& words) {
    const std::uint8_t endpoint = words.byte("endpoint");
    return [endpoint, plan = parse_plan(words, transfer_changes, "transfer")](simulated_device& plug) {
        as_controller(plug, "transfer").plan_transfer(endpoint, plan);
    };
}

script_action parse_refuse(script_words& words) {
    return [refuse = parse_unless_off(words)](simulated_device& plug) {
        as_controller(plug, "refuse").refuse_open(refuse);
    };
}

script_action parse_zero_length(script_words& words) {
    return [send = parse_unless_off(words)](simulated_device& plug) {
        as_controller(plug, "zero-length").send_zero_length_packets(send);
    };
}

using loader_change = std::function<void(fx3_boot_loader& loader)>;

void parse_failing_request(script_words& words, loader_change& change) {
    const auto nth = static_cast<unsigned>(words.number("number of the request", max_number));
    const bool always = words.more();
    if (always && words.word("end") != "always")
        words.fail("what may follow is 'always'");
    change = [nth, always](fx3_boot_loader& loader) { loader.fail(nth, always); };
}

void parse_corrupt_readback(script_words& words, loader_change& change) {
    const auto reads =
        words.more() ? static_cast<unsigned>(words.number("number of reads", max_number)) : fx3_boot_loader::for_ever;
    change = [reads](fx3_boot_loader& loader) { loader.corrupt_readback(reads); };
}

void parse_endless_erasing(script_words&, loader_change& change) {
    change = [](fx3_boot_loader& loader) { loader.never_end_erasing(); };
}

constexpr script_change<loader_change> loader_changes[] = {
    {"fail N [always]", parse_failing_request},
    {"corrupt-readback [N]", parse_corrupt_readback},
    {"erase-never-ends", parse_endless_erasing},
};

loader_change parse_loader_change(script_words& words) {
    loader_change change;
    parse_change(words, loader_changes, "boot loader").apply(words, change);
    return change;
}

script_action parse_firmware(script_words& words) {
    return [change = parse_loader_change(words)](simulated_device& plug) {
        const auto loader = as_controller(plug, "firmware").boot_loader();
        if (!loader)
            throw script_error("firmware: this controller has no boot loader");
        change(*loader);
    };
}

template <class Subject, std::size_t size>
std::vector<std::string> usages_of(const script_change<Subject> (&changes)[size]) {
    std::vector<std::string> usages;
    for (const script_change<Subject>& change : changes)
        usages.emplace_back(change.usage);
    return usages;
}

struct script_line {
    std::string_view usage;
    std::string_view help;
    script_action (*parse)(script_words& words);
    std::vector<std::string> (*changes)() = nullptr; // the meaning of CHANGE in this line and in those before it
    bool for_controllers = false;
};

constexpr script_line lines[] = {
    {"reply [CHANGE ...]", "how the next answer goes; several such lines queue up", parse_reply},
    {"replies [CHANGE ...]", "how every answer without such a line goes; no change: as usual again", parse_replies,
     [] { return usages_of(reply_changes); }},
    {"event ID [BYTES]", "sends an event with status 0xA000", parse_event},
    {"events T ID [BYTES]", "sends one every T; 'events 0' ends that", parse_events},
    {"lose N", "skips N sequence numbers of events, as if they had been lost", parse_lose},
    {"raw BYTES", "sends bytes as they are", parse_raw},
    {"memory ADDRESS BYTES", "sets memory", parse_memory},
    {"identifier ID BYTES", "sets what an identifier holds", parse_identifier},
    {"error N", "adds a status word to the error list", parse_error},
    {"stall N", "accepts only N more bytes from the host; 'stall off' ends that", parse_stall},
    {"unplug [T]", "pulls the plug, now or after T", parse_unplug},
    {"transfer ENDPOINT [CHANGE ...]", "how one transfer on that endpoint address goes (0: a control request)",
     parse_transfer, [] { return usages_of(transfer_changes); }, true},
    {"refuse [off]", "refuses to be opened", parse_refuse, nullptr, true},
    {"zero-length [off]", "off: sends no zero-length packet after bytes that fill a packet", parse_zero_length, nullptr,
     true},
    {"firmware CHANGE", "how the boot loader treats firmware requests", parse_firmware,
     [] { return usages_of(loader_changes); }, true},
};

// "      CHANGE: silent | status N | ...", on as many rows as it takes.
std::string help_of_changes(const std::vector<std::string>& usages) {
    constexpr std::size_t max_width = 110;
    std::string text;
    std::string row = "      CHANGE:";
    for (const std::string& usage : usages) {
        const std::string item = ' ' + usage + (&usage == &usages.back() ? "" : " |");
        if (row.size() + item.size() > max_width) {
            text += row + '\n';
            row = std::string(13, ' ');
        }
        row += item;
    }
    return text + row + '\n';
}

std::string help_of(const script_line& line) {
    constexpr std::size_t help_column = 34;
    std::string text = "  " + std::string(line.usage);
    text += std::string(help_column - text.size(), ' ') + std::string(line.help) + '\n';
    return line.changes == nullptr ? text : text + help_of_changes(line.changes());
}

std::string compose_help() {
    std::string text = "Numbers are decimal, or hexadecimal after 0x. BYTES are pairs of hexadecimal digits, with or "
                       "without blanks.\nTimes T are in milliseconds.\n";
    bool for_controllers = false;
    for (const script_line& line : lines) {
        if (line.for_controllers != for_controllers)
            text += "Behind a USB controller only:\n";
        for_controllers = line.for_controllers;
        text += help_of(line);
    }
    return text;
}

} // namespace

script_action parse_script_line(std::string_view text) {
    script_words words(text);
    if (words.name().empty())
        return [](simulated_device&) {};
    const script_line* const line = find_entry(lines, words.name());
    if (line == std::end(lines))
        throw script_error("no line begins with " + quoted(words.name()));
    script_action action = line->parse(words);
    words.end();
    return action;
}

const std::string& script_help() {
    static const std::string& help = *new std::string(compose_help());
    return help;
}

} // namespace jorvet::sim
