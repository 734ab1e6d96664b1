// jvctl, run as a person runs it: command lines, what they print and what they exit with. Simulated boards only.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

std::string temporary(const std::string& name) {
    return testing::TempDir() + "jvctl-" + std::to_string(getpid()) + "-" + name;
}

std::string contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

struct result {
    int exit;
    std::string out, err;
};

result shell(const std::string& command) {
    const std::string out = temporary("out"), err = temporary("err");
    const int status = std::system(("(" + command + ") >" + out + " 2>" + err).c_str());
    const result seen{WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(out), contents(err)};
    std::remove(out.c_str());
    std::remove(err.c_str());
    return seen;
}

result jvctl(const std::string& arguments) {
    return shell(JVCTL " " + arguments);
}

struct command_line {
    const char* arguments;
    int exit;
    const char* out; // in stdout
    const char* err; // in stderr
};

void expect(const command_line& line) {
    SCOPED_TRACE(line.arguments);
    const result seen = jvctl(line.arguments);
    EXPECT_EQ(seen.exit, line.exit);
    EXPECT_NE(seen.out.find(line.out), std::string::npos) << seen.out;
    EXPECT_NE(seen.err.find(line.err), std::string::npos) << seen.err;
}

TEST(Requests, EachCrossesTheLinkAsItsFrameAndReportsItsStatus) {
    const command_line lines[] = {
        {"read-memory 0x00 16 4", 0, "read-memory: 0x00000000 JV_OK: success\n",
         "> 90 10 00 10 04 00 00\n< 80 A0 00 00 04 00 00 00 00\n"},
        {"read-by-id 0 1", 0, "6 bytes\n0000  6A 6F 72 76 65 74", "> 90 11 00 01 00 00 00\n"},
        {"read-sn 1 --crc", 0, "read-sn: 0x00000000", "> 91 15 01 00 00 00 00 6F F9\n< 81 A0 00 00 07"},
        {"read-last-sw", 0, "JV_OK", "> 90 16 00 00 00 00 00\n< 80 A0 00 00 02 A0 00\n"},
        {"read-error 2", 0, "JV_OK", "> 90 17 02 00 00 00 00\n< 80 A0 00 00 00\n"},
        {"write-memory 0 0x10 --data 'DE:AD 0xBE ef'", 0, "JV_OK", "> 90 20 00 10 00 00 04 DE AD BE EF\n"},
        {"write-by-id 1 2 --data ABCD --crc", 0, "JV_OK", "> 91 21 01 02 00 00 02 AB CD 78 82\n"},
        {"exec-by-id 0 1 --data 010203", 0, "3 bytes\n0000  03 02 01", "> 90 40 00 01 00 00 03 01 02 03\n"},
        {"reset 1 2 --crc", 0, "JV_OK", "> 91 30 01 02 00 00 00 D9 98\n"},
        {"set-mode 1 2", 0, "JV_OK", "> 90 31 01 02 00 00 00\n"},
        {"get-mode", 0, "JV_OK: success\nmode 2\n", "> 90 32 00 00 00 00 00\n< 80 A0 00 00 01 02\n"},
        {"get-mode --script 'reply data 05'", 0, "mode 5\n", ""},
    };
    for (command_line line : lines)
        for (const char* link : {"ftdi ", "cypress "}) {
            const std::string traced = std::string("--simulate --trace --link ") + link + line.arguments;
            expect({traced.c_str(), line.exit, line.out, line.err});
        }
}

TEST(Usage, AWrongCommandLineSendsNothingAndSaysWhatIsWrongInOneLine) {
    const std::pair<const char*, const char*> lines[] = {
        {"", "a subcommand is required; call it as: jvctl [options] SUBCOMMAND"},
        {"raed-sn", "'raed-sn' is not a subcommand"},
        {"read-sn 256", "P1: '256' is not a number from 0 to 255; call it as: jvctl [options] read-sn [P1]"},
        {"read-sn 1 2", "not expected: 2"},
        {"set-mode", "P1 is required"},
        {"write-memory 0 0", "--data or --file is required"},
        {"write-memory 0 0 --data ABC", "'ABC' has an odd number of digits"},
        {"exec-by-id 0 1 --data 00 --file /dev/null", "--data excludes --file"},
        {"write-by-id 0 1 --file /nowhere/F", "'/nowhere/F' cannot be read"},
        {"read-sn --timeout", "--timeout needs a value"},
        {"--timeout 65536 read-sn", "--timeout: '65536' is not a number from 0 to 65535"},
        {"--link serial read-sn", "'serial' is none of ftdi, cypress"},
        {"--speed warp list", "'warp' is none of full, high, super"},
        {"--link ftdi describe", "describe: this is for Cypress devices only"},
        {"--simulate=x read-sn", "--simulate: 'x' is not a number"},
        {"--index 2 --script unplug read-sn", "--index 2 is none of the 1 simulated board"},
        {"--script 'reply loudly' read-sn", "'reply loudly' is not understood"},
        {"--simulate=0 --trace list", "add --simulate"},
    };
    for (const auto& [arguments, sentence] : lines) {
        SCOPED_TRACE(arguments);
        const result seen = jvctl(std::string("--simulate --trace ") + arguments);
        EXPECT_EQ(seen.exit, 2);
        EXPECT_EQ(seen.out, "");
        EXPECT_EQ(seen.err.rfind("jvctl: ", 0), 0u) << "nothing crossed the link before: " << seen.err;
        EXPECT_EQ(seen.err.find('\n'), seen.err.size() - 1) << seen.err;
        EXPECT_NE(seen.err.find(sentence), std::string::npos) << seen.err;
    }
}

TEST(Commands, ExitStatusTellsRefusalTimeOutAndLinkFailureApart) {
    const command_line lines[] = {
        {"--simulate exec-by-id 0x7F 1", 1, "", "jvctl: exec-by-id: 0x70000008 JV_ERR_BOARD_3001: the board refused"},
        {"--simulate --script 'reply status 0x2001 data 0102' read-by-id", 1, "0000  01 02", "JV_ERR_BOARD_2001"},
        {"--simulate --timeout 50 --script 'reply delay 500' read-sn", 3, "",
         "jvctl: read-sn: 0x30100004 JV_ERR_TIMEOUT_READ_SN: no reply"},
        {"--simulate --script unplug read-sn", 4, "", "jvctl: read-sn: 0x3010"},
        {"--simulate --index 9 info", 4, "", "0x3010203E JV_ERR_FTDI_DEVICE_NOT_FOUND"},
        {"--simulate=2 --index 1 info", 0, "JV-0002", ""},
        {"--simulate=2 --serial-number JV-0002 info", 0, "JV-0002", ""},
        {"--simulate=2 --link cypress --serial-number JV-0002 info", 0, "Jorvet simulated USB board JV-0002", ""},
        {"--simulate=2 --place 0x11 read-sn", 4, "", "JV_ERR_SEVERAL_DEVICES"},
        {"--simulate --serial-number none --wait 40 read-sn", 4, "", "JV_ERR_NO_DEVICE"},
        {"--simulate --link cypress info", 0, "yes     Jorvet simulated USB board JV-0001", ""},
        {"--simulate=0 list", 0, "no device is attached\n", ""},
        {"--simulate list", 0,
         "0      ftdi     JV-0001        -              no      Jorvet simulated board\n0      cypress  -     ", ""},
        {"--simulate=200 list", 0, "199    cypress  ", ""},
        {"--simulate=2 --script unplug list", 0, "0      ftdi     JV-0002", ""},
        {"--simulate describe", 0, "wTotalLength: 0x0053", ""},
        {"--simulate --speed super describe", 0, "EndPoint Descriptor: 6", ""},
        {"--simulate --link cypress --script unplug read-sn", 4, "", "0x30103002 JV_ERR_CYP_WRITE"},
        {"--simulate --link cypress --index 1 read-sn", 4, "", "0x30103003 JV_ERR_CYP_OPEN"},
        {"--help", 0, "Exit status:\n  0  success\n", ""},
        {"read-by-id --help", 0, "jvctl --simulate read-by-id 0x00 0x01", ""},
        {"--simulate monitor --for 60", 0, "0 events, 0 lost, in 0.", ""},
        {"--simulate monitor --count 1 --for 60", 3, "0 events", "JV_ERR_EVENT_TIMEOUT"},
        {"--simulate --script 'event 1 AA; unplug 300' monitor", 4, "seq   0", "0x30101000 JV_ERR_COM_NOT_OPEN"},
        {"--index 1 demo", 0, "81 checks, all right", ""},
        {"demo --script 'reply status 0x3001'", 4, "WRONG  read-sn", "went wrong"},
    };
    for (const command_line& line : lines)
        expect(line);
}

TEST(Output, ThatCannotBeWrittenIsAFailure) {
    for (const char* arguments : {"--simulate list", "--json --simulate read-sn", "--help", "--version", "demo",
                                  "--simulate --script 'events 20 1 AA' monitor"})
        for (const char* nowhere : {" >/dev/full", " >&-"}) {
            const result seen = shell(std::string("timeout 20 " JVCTL " ") + arguments + nowhere);
            EXPECT_EQ(seen.exit, 4) << arguments << nowhere;
            EXPECT_NE(seen.err.find("jvctl: standard output cannot be written\n"), std::string::npos) << seen.err;
        }
}

TEST(Data, ComeFromAFileOfAtMost65535Bytes) {
    const std::string path = temporary("data");
    const auto write = [&](std::size_t size) { std::ofstream(path) << std::string(size, 'U'); };
    write(300);
    EXPECT_NE(jvctl("--simulate --trace write-memory 0 16 --file " + path).err.find("> 90 20 00 10 00 01 2C 55 55"),
              std::string::npos);
    write(65535);
    EXPECT_EQ(jvctl("--simulate write-by-id 0 2 --file " + path).exit, 0);
    write(65536);
    EXPECT_EQ(jvctl("--simulate write-by-id 0 2 --file " + path).exit, 2);
    std::remove(path.c_str());
}

TEST(Json, IsOneObjectWithTheStatusAlsoAfterAFailure) {
    const json ok = {{"code", "0x00000000"}, {"name", "JV_OK"}, {"text", "success"}};
    const std::pair<const char*, json> lines[] = {
        {"read-by-id 0 1",
         {{"command", "read-by-id"}, {"status", ok}, {"exit_status", 0}, {"length", 6}, {"data", "6A6F72766574"}}},
        {"reset --script 'reply status 0xB000'",
         {{"command", "reset"},
          {"status",
           {{"code", "0x70000001"}, {"name", "JV_ERR_BOARD_B000"}, {"text", "the board refused: status word 0xB000"}}},
          {"exit_status", 1}}},
    };
    for (const auto& [arguments, expected] : lines)
        EXPECT_EQ(json::parse(jvctl(std::string("--simulate --json ") + arguments).out), expected) << arguments;
    EXPECT_EQ(json::parse(jvctl("--format json read-sn x").out).at("exit_status"), 2);
    const json devices = json::parse(jvctl("--simulate=2 --json list").out).at("devices");
    ASSERT_EQ(devices.size(), 4u);
    EXPECT_EQ(devices[1].at("serial_number"), "JV-0002");
    EXPECT_EQ(devices[3].at("description"), "Jorvet simulated USB board JV-0002");
    EXPECT_EQ(devices[3].at("index"), 1);
}

TEST(Monitor, ShowsEventsInOrderAndCountsLostOnes) {
    const result seen = jvctl("--simulate --json monitor --count 3 --script 'event 7 AA; event 8; lose 2; event 7 CC'");
    EXPECT_EQ(seen.exit, 0);
    std::istringstream lines(seen.out);
    std::string events, line;
    while (std::getline(lines, line) && json::parse(line).contains("event")) {
        const json event = json::parse(line)["event"];
        events += event["id"].dump() + ":" + event["data"].dump() + " lost " + event["lost_before"].dump() + "; ";
    }
    EXPECT_EQ(events, "7:\"AA\" lost 0; 8:\"\" lost 0; 7:\"CC\" lost 2; ");
    EXPECT_EQ(json::parse(line).at("events"), 3);
    EXPECT_EQ(json::parse(line).at("lost_events"), 2);
}

TEST(Monitor, EndsWithItsSummaryWhenInterrupted) {
    const std::string log = temporary("monitor");
    const result seen =
        shell(JVCTL " --simulate monitor --script 'events 20 1 AA' >" + log + " & pid=$!; until grep -q event " + log +
              "; do sleep 0.02; done; kill -TERM $pid; wait $pid; code=$?; cat " + log + "; exit $code");
    EXPECT_EQ(seen.exit, 0);
    EXPECT_NE(seen.out.find(", 0 lost, in "), std::string::npos) << seen.out;
    std::remove(log.c_str());
}

TEST(Flash, SaysWhatItWroteAndWhatItLeavesAndOverwritesNothingUnasked) {
    const std::string path = temporary("image"), cut = temporary("cut");
    const std::string image("CY\4\0\1\0\0\0\0\0\0\0\1\2\3\4\0\0\0\0\0\0\0\0", 24); // fit for all three
    std::ofstream(path) << image;
    std::ofstream(cut) << image.substr(0, 23);
    const std::tuple<std::string, int, const char*, const char*> lines[] = {
        {"ram " + path, 0, "flash: FX3_OK: success; 24 of 24 bytes written to the RAM, read back", "written 16 of 24"},
        {"i2c --yes " + path, 0, "24 of 24 bytes written to the I2C EEPROM\n", ""},
        {"spi --yes --verify " + path, 0, "written to the SPI flash, read back and compared\n",
         "erased 24 of 24 bytes\n"},
        {"spi --yes --verify --script 'firmware corrupt-readback' " + path, 4, "",
         "but byte 23 differs from the image"},
        {"spi --yes --script 'firmware fail 6 always' " + path, 4, "",
         "0 of 24 bytes written to the SPI flash; what it"},
        {"ram " + cut, 2, "", "jvctl: flash: FX3_IMAGE_TRUNCATED"},
        {"i2c /nowhere/F", 2, "", "FX3_NO_FILE: the file cannot be opened"},
        {"spi </dev/null " + path, 2, "", "flash: this overwrites the SPI flash; add --yes"}};
    for (const auto& [arguments, exit, out, err] : lines)
        expect({("--simulate flash --to " + arguments).c_str(), exit, out, err});
    std::remove(path.c_str()), std::remove(cut.c_str());
}

} // namespace
