// Parsing script lines: a table of first words, and those of the changes that a reply or a transfer may undergo.
#include "jorvet/sim/script.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <utility>

#include "jorvet/sim/usb/boot_loader.h"
#include "jorvet/sim/usb/controller.h"

namespace jorvet::sim {

namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t memory_size = 0x10000;
constexpr std::string_view blanks = " \t\r";

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

// The words of a line, taken one by one. What is wrong with them is said in the name of the first.
class Words {
  public:
    explicit Words(std::string_view line) : rest_(line), name_(take()) {}

    std::string_view name() const { return name_; }
    bool more() const { return rest_.find_first_not_of(blanks) != std::string_view::npos; }

    std::string_view word(const char* what) {
        if (!more())
            fail(std::string("the ") + what + " is missing");
        return take();
    }

    bool next_is_number() const {
        const std::size_t next = rest_.find_first_not_of(blanks);
        return next != std::string_view::npos && rest_[next] >= '0' && rest_[next] <= '9';
    }

    std::uint64_t number(const char* what, std::uint64_t maximum) { return to_number(word(what), maximum); }

    std::uint64_t to_number(std::string_view text, std::uint64_t maximum) const {
        const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
        const char* const first = text.data() + (hexadecimal ? 2 : 0);
        const char* const last = text.data() + text.size();
        std::uint64_t value = 0;
        const auto [end, error] = std::from_chars(first, last, value, hexadecimal ? 16 : 10);
        if (error == std::errc::invalid_argument || end != last)
            fail(quoted(text) + " is not a number");
        if (error != std::errc() || value > maximum)
            fail(std::string(text) + " is above " + std::to_string(maximum));
        return value;
    }

    milliseconds time(const char* what) { return milliseconds(number(what, most)); }
    std::size_t count(const char* what) { return static_cast<std::size_t>(number(what, most)); }
    std::uint8_t byte(const char* what) { return static_cast<std::uint8_t>(number(what, 0xFF)); }
    std::uint16_t two_bytes(const char* what) { return static_cast<std::uint16_t>(number(what, 0xFFFF)); }

    Bytes bytes(const char* what) {
        const std::string_view text = word(what);
        Bytes result;
        result.reserve(text.size() / 2);
        for (std::size_t i = 0; i < text.size(); i += 2) {
            std::uint8_t value = 0;
            const char* const last = text.data() + std::min(i + 2, text.size());
            const bool whole = i + 2 <= text.size() && std::from_chars(text.data() + i, last, value, 16).ptr == last;
            if (!whole)
                fail(quoted(text) + " is not pairs of hexadecimal digits");
            result.push_back(value);
        }
        return result;
    }

    void end() {
        if (more())
            fail(quoted(take()) + " is one word too many");
    }

    [[noreturn]] void fail(const std::string& why) const { throw ScriptError(std::string(name_) + ": " + why); }

  private:
    std::string_view take() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()));
        const std::string_view word = rest_.substr(0, rest_.find_first_of(blanks));
        rest_.remove_prefix(word.size());
        return word;
    }

    std::string_view rest_;
    std::string_view name_;
};

template <class Plan>
struct Change {
    std::string_view name;
    void (*apply)(Words& words, Plan& plan);
};

constexpr Change<ReplyPlan> reply_changes[] = {
    {"silent", [](Words&, ReplyPlan& plan) { plan.silent = true; }},
    {"status", [](Words& words, ReplyPlan& plan) { plan.status = words.two_bytes("status word"); }},
    {"data", [](Words& words, ReplyPlan& plan) { plan.data = words.bytes("data"); }},
    {"crc", [](Words&, ReplyPlan& plan) { plan.with_crc = true; }},
    {"no-crc", [](Words&, ReplyPlan& plan) { plan.with_crc = false; }},
    {"wrong-crc", [](Words&, ReplyPlan& plan) { plan.wrong_crc = true; }},
    {"delay", [](Words& words, ReplyPlan& plan) { plan.pacing.delay = words.time("delay"); }},
    {"fragment", [](Words& words, ReplyPlan& plan) { plan.pacing.fragment = words.count("fragment size"); }},
    {"gap", [](Words& words, ReplyPlan& plan) { plan.pacing.gap = words.time("gap"); }},
    {"before", [](Words& words, ReplyPlan& plan) { plan.stray_before = words.bytes("bytes before"); }},
    {"after", [](Words& words, ReplyPlan& plan) { plan.stray_after = words.bytes("bytes after"); }},
    {"unplug-after", [](Words& words, ReplyPlan& plan) { plan.unplug_after = words.count("number of bytes"); }},
};

using platform::UsbEnd;

void parse_failure(Words& words, TransferPlan& plan) {
    plan.end = UsbEnd::failed;
    if (words.next_is_number())
        plan.after = words.count("number of bytes");
}

constexpr Change<TransferPlan> transfer_changes[] = {
    {"stall", [](Words&, TransferPlan& plan) { plan.end = UsbEnd::stalled; }},
    {"babble", [](Words&, TransferPlan& plan) { plan.end = UsbEnd::babble; }},
    {"fail", parse_failure},
    {"silent", [](Words&, TransferPlan& plan) { plan.silent = true; }},
    {"short", [](Words& words, TransferPlan& plan) { plan.after = words.count("number of bytes"); }},
    {"data", [](Words& words, TransferPlan& plan) { plan.data = words.bytes("data"); }},
    {"delay", [](Words& words, TransferPlan& plan) { plan.delay = words.time("delay"); }},
};

// The entry of `table` with that name; its end when there is none.
template <class Entry, std::size_t size>
const Entry* find_entry(const Entry (&table)[size], std::string_view name) {
    return std::find_if(std::begin(table), std::end(table), [&](const Entry& entry) { return entry.name == name; });
}

template <class Plan, std::size_t size>
Plan parse_plan(Words& words, const Change<Plan> (&changes)[size], const char* changed) {
    Plan plan;
    while (words.more()) {
        const std::string_view name = words.word("change");
        const Change<Plan>* const change = find_entry(changes, name);
        if (change == std::end(changes))
            words.fail(quoted(name) + " is not a change of a " + changed);
        change->apply(words, plan);
    }
    return plan;
}

ReplyPlan parse_reply_plan(Words& words) {
    return parse_plan(words, reply_changes, "reply");
}

ScriptAction parse_reply(Words& words) {
    return [plan = parse_reply_plan(words)](Plug& plug) { plug.board().plan_next(plan); };
}

ScriptAction parse_replies(Words& words) {
    return [plan = parse_reply_plan(words)](Plug& plug) { plug.board().plan_all(plan); };
}

Event parse_event_fields(Words& words) {
    Event event;
    event.id = words.byte("identifier");
    if (words.more())
        event.data = words.bytes("data");
    return event;
}

ScriptAction parse_event(Words& words) {
    return [event = parse_event_fields(words)](Plug& plug) { plug.board().send_event(event); };
}

ScriptAction parse_events(Words& words) {
    const milliseconds period = words.time("period");
    if (period.count() == 0 && !words.more())
        return [](Plug& plug) { plug.board().stop_events(); };
    return [period, event = parse_event_fields(words)](Plug& plug) { plug.board().start_events(period, event); };
}

ScriptAction parse_lose(Words& words) {
    const auto count = static_cast<unsigned>(words.number("number of events", most));
    return [count](Plug& plug) { plug.board().lose_events(count); };
}

ScriptAction parse_raw(Words& words) {
    return [bytes = words.bytes("bytes")](Plug& plug) { plug.board().send_raw(bytes); };
}

ScriptAction parse_memory(Words& words) {
    const std::size_t address = words.two_bytes("address");
    Bytes bytes = words.bytes("bytes");
    if (address + bytes.size() > memory_size)
        words.fail(std::to_string(bytes.size()) + " bytes at " + std::to_string(address) +
                   " reach beyond the end of memory");
    return [address, bytes = std::move(bytes)](Plug& plug) { plug.board().set_memory(address, bytes); };
}

ScriptAction parse_identifier(Words& words) {
    const std::uint16_t identifier = words.two_bytes("identifier");
    return [identifier, bytes = words.bytes("bytes")](Plug& plug) { plug.board().set_identifier(identifier, bytes); };
}

ScriptAction parse_error(Words& words) {
    const std::uint16_t status = words.two_bytes("status word");
    return [status](Plug& plug) { plug.board().add_error(status); };
}

ScriptAction parse_stall(Words& words) {
    const std::string_view word = words.word("number of bytes");
    if (word == "off")
        return [](Plug& plug) { plug.accept_writes(); };
    const auto bytes = static_cast<std::size_t>(words.to_number(word, most));
    return [bytes](Plug& plug) { plug.stall_writes_after(bytes); };
}

ScriptAction parse_unplug(Words& words) {
    const milliseconds delay = words.more() ? words.time("time") : milliseconds(0);
    return [delay](Plug& plug) { plug.board().unplug(delay); };
}

// The device as a USB controller, for lines that only those understand.
Controller& as_controller(Plug& plug, const char* name) {
    if (auto* const controller = dynamic_cast<Controller*>(&plug))
        return *controller;
    throw ScriptError(std::string(name) + ": this is no USB controller");
}

ScriptAction parse_transfer(Words& words) {
    const std::uint8_t endpoint = words.byte("endpoint");
    return [endpoint, plan = parse_plan(words, transfer_changes, "transfer")](Plug& plug) {
        as_controller(plug, "transfer").plan_transfer(endpoint, plan);
    };
}

ScriptAction parse_refuse(Words& words) {
    const bool refuse = !words.more();
    if (!refuse && words.word("end") != "off")
        words.fail("what may follow is \"off\"");
    return [refuse](Plug& plug) { as_controller(plug, "refuse").refuse_open(refuse); };
}

using LoaderChange = std::function<void(BootLoader& loader)>;

LoaderChange parse_failing_request(Words& words) {
    const auto nth = static_cast<unsigned>(words.number("number of the request", most));
    const bool always = words.more();
    if (always && words.word("end") != "always")
        words.fail("what may follow is \"always\"");
    return [nth, always](BootLoader& loader) { loader.fail(nth, always); };
}

LoaderChange parse_corrupt_readback(Words& words) {
    const auto reads =
        words.more() ? static_cast<unsigned>(words.number("number of reads", most)) : BootLoader::for_ever;
    return [reads](BootLoader& loader) { loader.corrupt_readback(reads); };
}

LoaderChange parse_loader_change(Words& words) {
    const std::string_view name = words.word("change");
    if (name == "fail")
        return parse_failing_request(words);
    if (name == "corrupt-readback")
        return parse_corrupt_readback(words);
    if (name != "erase-never-ends")
        words.fail(quoted(name) + " is not a change of a boot loader");
    return [](BootLoader& loader) { loader.never_end_erasing(); };
}

ScriptAction parse_firmware(Words& words) {
    return [change = parse_loader_change(words)](Plug& plug) {
        const auto loader = as_controller(plug, "firmware").boot_loader();
        if (!loader)
            throw ScriptError("firmware: this controller has no boot loader");
        change(*loader);
    };
}

struct Line {
    std::string_view name;
    ScriptAction (*parse)(Words& words);
};

constexpr Line lines[] = {
    {"reply", parse_reply},   {"replies", parse_replies},   {"event", parse_event},   {"events", parse_events},
    {"lose", parse_lose},     {"raw", parse_raw},           {"memory", parse_memory}, {"identifier", parse_identifier},
    {"error", parse_error},   {"stall", parse_stall},       {"unplug", parse_unplug}, {"transfer", parse_transfer},
    {"refuse", parse_refuse}, {"firmware", parse_firmware},
};

} // namespace

ScriptAction parse_script_line(std::string_view text) {
    Words words(text);
    if (words.name().empty())
        return [](Plug&) {};
    const Line* const line = find_entry(lines, words.name());
    if (line == std::end(lines))
        throw ScriptError("no line begins with " + quoted(words.name()));
    ScriptAction action = line->parse(words);
    words.end();
    return action;
}

} // namespace jorvet::sim
