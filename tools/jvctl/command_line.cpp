// The command line, in CLI11's terms. The request subcommands come from the table of requests.
#include "command_line.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <functional>
#include <map>

#include <CLI/CLI.hpp>

#include "jorvet/base/read_text.h"

#include "bench.h"

namespace jorvet::tool {

namespace {

const char* const exit_table =
    "Exit status:\n"
    "  0  success\n"
    "  1  the board refused (0x700000nn)\n"
    "  2  wrong usage, nothing was sent\n"
    "  3  time-out\n"
    "  4  the link failed, standard output could not be written, or anything else went wrong\n";

std::string example(const std::string& arguments) {
    return "Example:\n  jvctl --simulate " + arguments + "\n\n";
}

std::string parameter_name(unsigned int number) {
    return "P" + std::to_string(number);
}

// "write-memory P1 P2 --data HEX|--file FILE"
std::string synopsis(const request& r) {
    const request_shape shape = shape_of(r);
    std::string text = r.name;
    for (unsigned int number = 1; number <= shape.parameters; ++number)
        text += number <= r.required ? " " + parameter_name(number) : " [" + parameter_name(number) + "]";
    if (shape.takes_data)
        text += shape.brings_data ? " [--data HEX|--file FILE]" : " --data HEX|--file FILE";
    return text;
}

bytes read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes data(max_data + 1);
    file.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!file.is_open() || file.bad() || (file.fail() && !file.eof()))
        throw std::invalid_argument("'" + path + "' cannot be read");
    data.resize(static_cast<std::size_t>(file.gcount()));
    return data;
}

bytes checked_size(bytes data) {
    if (data.size() > max_data)
        throw std::invalid_argument("a request carries at most " + std::to_string(max_data) + " bytes");
    return data;
}

// The values that an option takes, under their names.
template <class Value>
using choices = std::vector<std::pair<const char*, Value>>;

const choices<unsigned int> link_kinds{{"ftdi", JV_KIND_FTDI}, {"cypress", JV_KIND_CYPRESS}};
const choices<jv_sim_speed> speeds{
    {"full", JV_SIM_FULL_SPEED}, {"high", JV_SIM_HIGH_SPEED}, {"super", JV_SIM_SUPER_SPEED}};
const choices<FX3_FWDWNLOAD_MEDIA_TYPE> media{
    {"ram", FX3_MEDIUM_RAM}, {"i2c", FX3_MEDIUM_I2C}, {"spi", FX3_MEDIUM_SPI}};
const choices<bool> json_formats{{"text", false}, {"json", true}};

template <class Value>
std::string names_of(const choices<Value>& all, const char* separator) {
    std::string names;
    for (const auto& [name, value] : all)
        names += (names.empty() ? "" : separator) + std::string(name);
    return names;
}

template <class Value>
Value chosen_from(const choices<Value>& all, const std::string& given) {
    for (const auto& [name, value] : all)
        if (given == name)
            return value;
    throw std::invalid_argument("'" + given + "' is none of " + names_of(all, ", "));
}

constexpr unsigned int default_boards = 1; // behind each kind of link
constexpr unsigned int boards_of_a_tour = 2;
const char* const bare_flag = "true"; // what the parser makes of a flag without a value

using setter = std::function<void(const std::string& text)>;

// Makes what `set` throws an error of the option `name`.
setter guarded(const std::string& name, const setter& set) {
    return [name, set](const std::string& text) {
        try {
            set(text);
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
}

// Help with the usage lines of the error messages, and flags that show how they take a value.
class help_format : public CLI::Formatter {
  public:
    explicit help_format(const std::map<std::string, std::string>& usages) : usages_(usages) {}

    std::string make_usage(const CLI::App* app, std::string) const override {
        const auto found = usages_.find(app->get_name());
        return "\nUsage: jvctl [options] " + (found == usages_.end() ? "SUBCOMMAND ..." : found->second) + '\n';
    }
    std::string make_option_opts(const CLI::Option* opt) const override {
        const std::string text = CLI::Formatter::make_option_opts(opt);
        return text.rfind(" [=", 0) == 0 ? text.substr(1) : text;
    }

  private:
    const std::map<std::string, std::string>& usages_;
};

class parser {
  public:
    explicit parser(settings* chosen);
    std::string parse(int argc, char** argv);

  private:
    CLI::Option* option(CLI::App* app, const std::string& name, const std::string& what, const setter& set,
                        const std::string& help);
    CLI::Option* number(CLI::App* app, const std::string& name, const std::string& what, std::uint64_t largest,
                        const std::function<void(std::uint64_t)>& set, const std::string& help);
    CLI::App* command(const std::string& usage, const std::string& help, const std::string& example_arguments);
    void add_output_options();
    void add_link_options();
    void add_simulation_options();
    void add_monitor();
    void add_flash();
    void add_request(const request& r);
    void add_data_options(CLI::App* sub, bool required);
    void note_command();
    void check_simulation();
    std::string what_is_wrong(const CLI::ParseError& error) const;

    settings& chosen_;
    std::map<std::string, std::string> usages_; // of each subcommand
    CLI::App app_{"Talk to a board over USB: list what is attached, issue requests, watch events."};
};

parser::parser(settings* chosen) : chosen_(*chosen) {
    app_.name("jvctl");
    app_.formatter(std::make_shared<help_format>(usages_));
    app_.fallthrough();
    app_.require_subcommand(1);
    app_.set_version_flag("--version", "jvctl " JVCTL_VERSION, "Print the version");
    app_.footer("Script lines of a simulated board:\n" + std::string(jv_sim_script_help()) +
                ("\n" + example("read-by-id 0x00 0x01")) + exit_table);
    add_link_options();
    add_output_options();
    add_simulation_options();
    command("list", "List the attached devices", "list");
    command("info", "Open one device and show what is known about it", "info");
    command("describe", "Open a Cypress device and print what its descriptors say", "describe --speed super");
    for (const request& r : requests())
        add_request(r);
    add_monitor();
    add_flash();
    command("demo", "Take a tour over simulated boards; shows and checks every step", "demo");
}

// An option or positional whose setter may throw std::invalid_argument. It takes effect as it is read, so that a later
// mistake is already reported in the chosen format.
CLI::Option* parser::option(CLI::App* app, const std::string& name, const std::string& what, const setter& set,
                            const std::string& help) {
    return app->add_option_function<std::string>(name, guarded(name, set), help)->option_text(what)->trigger_on_parse();
}

CLI::Option* parser::number(CLI::App* app, const std::string& name, const std::string& what, std::uint64_t largest,
                            const std::function<void(std::uint64_t)>& set, const std::string& help) {
    return option(
        app, name, what, [=](const std::string& text) { set(read_number(text, largest)); }, help);
}

CLI::App* parser::command(const std::string& usage, const std::string& help, const std::string& example_arguments) {
    const std::string name = usage.substr(0, usage.find(' '));
    CLI::App* sub = app_.add_subcommand(name, help);
    sub->footer("The options of jvctl --help may stand before or after the subcommand.\n\n" +
                example(example_arguments) + exit_table);
    usages_[name] = usage;
    return sub;
}

void parser::add_link_options() {
    const auto set_link = [this](const std::string& name) {
        chosen_.link = chosen_from(link_kinds, name);
        chosen_.link_given = true;
    };
    option(&app_, "--link", names_of(link_kinds, "|"), set_link, "Kind of link (ftdi)")->group("Link");
    number(
        &app_, "--index", "N", JV_MAX_INDEX, [this](auto n) { chosen_.index = static_cast<unsigned char>(n); },
        "Place of the device in its link's own list (0)")
        ->group("Link");
    option(
        &app_, "--serial-number", "TEXT", [this](const std::string& text) { chosen_.serial_number = text; },
        "The device with that serial number, whatever its place in the list")
        ->group("Link");
    option(
        &app_, "--place", "TEXT", [this](const std::string& text) { chosen_.place = text; },
        "The device that is plugged in there: a bridge's location, a Cypress device's path")
        ->group("Link");
    number(
        &app_, "--wait", "MS", 86400000, [this](auto ms) { chosen_.wait_ms = static_cast<std::uint32_t>(ms); },
        "How long to wait for such a device to come (0)")
        ->group("Link");
    app_.add_flag("--crc", chosen_.input.with_crc, "Send requests with a CRC")->group("Link");
    number(
        &app_, "--timeout", "MS", 65535, [this](auto ms) { chosen_.timeout_ms = static_cast<unsigned short>(ms); },
        "How long to wait for a reply (1000)")
        ->group("Link");
}

void parser::add_output_options() {
    const auto set_format = [this](const std::string& name) { chosen_.json = chosen_from(json_formats, name); };
    option(&app_, "--format", names_of(json_formats, "|"), set_format, "How results are printed (text)")
        ->group("Output");
    app_.add_flag_callback(
            "--json", [this] { chosen_.json = true; }, "The same as --format json")
        ->trigger_on_parse()
        ->group("Output");
}

void parser::add_simulation_options() {
    const setter set_boards = guarded("--simulate", [this](const std::string& text) {
        chosen_.simulated =
            text == bare_flag ? default_boards : static_cast<unsigned int>(read_number(text, JV_MAX_DEVICES));
    });
    // A flag with a value takes it after "=" only, so that it never swallows the argument that follows.
    const auto set_flag = [set_boards](const CLI::results_t& given) { return set_boards(given.back()), true; };
    app_.add_option("--simulate", set_flag, "Plug in N simulated boards behind each kind of link (1)")
        ->expected(0)
        ->option_text("[=N]")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->group("Simulation");
    const auto set_speed = [this](const std::string& name) { chosen_.speed = chosen_from(speeds, name); };
    option(&app_, "--speed", names_of(speeds, "|"), set_speed, "USB speed of simulated Cypress devices (high)")
        ->group("Simulation");
    option(
        &app_, "--script", "LINE", [this](const std::string& line) { chosen_.script.push_back(line); },
        "Run a script line on the simulated board at --index, after it is opened; repeatable")
        ->group("Simulation");
    app_.add_flag("--trace", chosen_.trace, "Print the bytes that cross its link to stderr, > to the board, < back")
        ->group("Simulation");
}

void parser::add_monitor() {
    CLI::App* sub = command("monitor [--count N] [--for MS]",
                            "Print events as they come, and how many were lost, until interrupted",
                            "monitor --for 1000 --script 'events 100 7 CAFE'");
    number(
        sub, "--count", "N", 999999999, [this](auto n) { chosen_.event_count = n; }, "End after N events");
    number(
        sub, "--for", "MS", 999999999, [this](auto ms) { chosen_.duration_ms = ms; },
        "End after MS milliseconds; with --count, fewer events by then are a time-out");
}

void parser::add_flash() {
    CLI::App* sub =
        command("flash --to " + names_of(media, "|") + " FILE [--verify] [--yes]",
                "Write a firmware image to a memory of a Cypress FX3 controller", "flash --to ram firmware.img");
    const auto set_medium = [this](const std::string& name) { chosen_.flash.medium = chosen_from(media, name); };
    option(sub, "--to", names_of(media, "|"), set_medium,
           "Load into RAM and start it, or write to the EEPROM or SPI flash")
        ->required();
    const auto set_file = [this](const std::string& path) { chosen_.flash.file = path; };
    option(sub, "FILE", "PATH", set_file, "The image")->required();
    sub->add_flag("--verify", chosen_.flash.verify, "Read back and compare; RAM always is, an EEPROM cannot be");
    sub->add_flag("--yes", chosen_.flash.yes, "Overwrite the EEPROM or SPI flash without asking");
    sub->callback([this] {
        if (chosen_.flash.verify && chosen_.flash.medium == FX3_MEDIUM_I2C)
            throw CLI::ValidationError("--verify", "an EEPROM cannot be read back to compare");
    });
}

void parser::add_request(const request& r) {
    const request_shape shape = shape_of(r);
    CLI::App* sub = command(synopsis(r), r.summary, r.name + std::string(" ") + r.example);
    for (unsigned int n = 1; n <= shape.parameters; ++n) {
        const auto set = [this, n](auto value) { chosen_.input.parameters[n - 1] = static_cast<unsigned char>(value); };
        const bool required = n <= r.required;
        number(sub, parameter_name(n), "0..255", 255, set,
               "Parameter byte " + std::to_string(n) + ", decimal or 0x" + (required ? "" : " (0)"))
            ->required(required);
    }
    if (shape.takes_data)
        add_data_options(sub, !shape.brings_data);
}

void parser::add_data_options(CLI::App* sub, bool required) {
    const auto set_hex = [this](const std::string& text) { chosen_.input.data = checked_size(read_bytes(text)); };
    const auto set_file = [this](const std::string& path) { chosen_.input.data = checked_size(read_file(path)); };
    CLI::Option* hex =
        option(sub, "--data", "HEX", set_hex, "Data to send, two digits a byte; spaces, colons and 0x are allowed");
    CLI::Option* file = option(sub, "--file", "FILE", set_file, "File of the data to send, at most 65535 bytes");
    hex->excludes(file);
    sub->callback([required, hex, file] {
        if (required && hex->empty() && file->empty())
            throw CLI::RequiredError("--data or --file");
    });
}

// What the subcommand and the options ask of the simulation together.
void parser::check_simulation() {
    const bool demo = chosen_.command == "demo";
    const bool cypress_only = chosen_.command == "describe" || chosen_.command == "flash";
    if (cypress_only && chosen_.link_given && chosen_.link != JV_KIND_CYPRESS)
        throw usage_error(chosen_.command + ": this is for Cypress devices only; leave --link away");
    if (cypress_only)
        chosen_.link = JV_KIND_CYPRESS;
    const std::vector<unsigned int>& links = simulated_links();
    if ((demo || chosen_.simulated > 0) && std::find(links.begin(), links.end(), chosen_.link) == links.end())
        throw usage_error("on this system no board is simulated behind this kind of link; leave --simulate away");
    const std::string index = std::to_string(chosen_.index);
    if (demo && chosen_.simulated == 0)
        chosen_.simulated = boards_of_a_tour;
    if (chosen_.simulated == 0 && (chosen_.trace || !chosen_.script.empty()))
        throw usage_error("--script and --trace need simulated boards; add --simulate");
    if (chosen_.index >= chosen_.simulated && (demo || !chosen_.script.empty()))
        throw usage_error("--index " + index + " is none of the " + counted(chosen_.simulated, "simulated board") +
                          "; add --simulate=" + std::to_string(chosen_.index + 1));
}

std::string parser::what_is_wrong(const CLI::ParseError& error) const {
    std::string sentence = error.what();
    if (chosen_.command.empty() && !app_.remaining().empty())
        sentence = "'" + app_.remaining().front() + "' is not a subcommand";
    if (error.get_name() == "ArgumentMismatch")
        sentence = sentence.substr(0, sentence.find(':')) + " needs a value";
    for (const char* article : {"The ", "A "})
        if (sentence.rfind(article, 0) == 0)
            sentence[0] = static_cast<char>(std::tolower(sentence[0]));
    const auto usage = usages_.find(chosen_.command);
    const std::string called = usage == usages_.end() ? "SUBCOMMAND ..." : usage->second;
    return sentence + "; call it as: jvctl [options] " + called + " (see jvctl " +
           (chosen_.command.empty() ? "" : chosen_.command + " ") + "--help)";
}

std::string parser::parse(int argc, char** argv) {
    try {
        app_.parse(argc, argv);
        note_command();
        check_simulation();
        return "";
    } catch (const CLI::CallForHelp&) {
        return CLI::detail::find_and_replace(app_.help(), "\n\n\n", "\n\n");
    } catch (const CLI::CallForVersion& version) {
        return version.what() + std::string("\n");
    } catch (const CLI::ParseError& error) {
        note_command();
        throw usage_error(what_is_wrong(error));
    }
}

void parser::note_command() {
    for (const CLI::App* sub : app_.get_subcommands())
        chosen_.command = sub->get_name();
}

} // namespace

const char* link_name(unsigned int kind) {
    for (const auto& [name, value] : link_kinds)
        if (value == kind)
            return name;
    return "none";
}

std::string parse_command_line(int argc, char** argv, settings* chosen) {
    return parser(chosen).parse(argc, argv);
}

} // namespace jorvet::tool
