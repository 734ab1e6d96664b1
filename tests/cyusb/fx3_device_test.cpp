// Downloads into a simulated boot loader: requests, results, what the memories hold then.
#include "fake_platform.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>

#include <unistd.h>

#include "jorvet/cyusb/fx3_device.h"
#include "jorvet/cyusb/fx3_download.h"
#include "jorvet/sim/usb/boot_loader.h"

using namespace fake;
using namespace jorvet::cyusb;

namespace {

// "a0> 0000 4000 4; ": code, direction, wValue, wIndex, length.
std::string line(const char* code, int value, int index, std::size_t length) {
    return code + (" " + hex({BYTE(value >> 8), BYTE(value)})) + " " + hex({BYTE(index >> 8), BYTE(index)}) + " " +
           std::to_string(length) + "; ";
}

Bytes noise(std::size_t size) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [i = 0]() mutable { return ++i, BYTE(i * 31 + i / 251); });
    return bytes;
}

struct Fx3DeviceTest : fake::Test {
    jorvet::sim::fx3_boot_loader loader;
    std::string sent; // vendor requests
    std::optional<CCyFX3Device> device;

    Fx3DeviceTest() {
        os.paths = {"device"};
        os.device = [this](const Request& request) { return answer(request); };
        device.emplace();
        device->ControlEndPt->MaxPktSize = 64;
    }

    Reply answer(const Request& request) {
        const Bytes& in = request.in;
        if (request.code != 0x00220020 || (in[0] & 0x7F) != 0x40)
            return {Bytes(request.room)};
        XferRequest block;
        std::memcpy(&block, in.data(), sizeof(block));
        const bool reads = in[0] >= 0x80;
        sent += line((hex({in[1]}) + (reads ? '<' : '>')).c_str(), block.wValue, block.wIndex, block.wLength);
        const Bytes data(in.begin() + 38, reads ? in.begin() + 38 : in.end());
        const auto read = loader.answer({in[0], in[1], block.wValue, block.wIndex, block.wLength}, data);
        return read ? Reply{reads ? *read : data, 0, 38} : Reply{{}, ERROR_GEN_FAILURE, 38, 0xC0000004};
    }

    std::string take_sent() { return std::exchange(sent, {}); }
    static auto count(const std::string& lines) { return std::count(lines.begin(), lines.end(), ';'); }
};

TEST_F(Fx3DeviceTest, requests_carry_their_arguments_and_go_on_behind_what_has_moved) {
    Bytes data = noise(70000), back(5);
    EXPECT_TRUE(device->Ep0VendorCommand({data.data(), 0xA0, 0x12345678, 70000, false}));
    EXPECT_TRUE(device->SetProgramEntry(0xA0, 0x40000123) && device->IsBootLoaderRunning());
    EXPECT_TRUE(device->WriteToSPIFlash(data.data(), 300, 0x1234, 0xC2));
    EXPECT_EQ(sent, "a0> 5678 1234 65535; a0> 5678 1234 4465; a0> 4000 0123 0; a0< 0000 0000 1; c2> 0000 0012 300; ");
    for (const Bytes& moved : {Bytes(2), Bytes(3), {9, 8, 7, 6}, {5}, {4}, {}, Bytes(2047)})
        os.script.push_back({moved, 0, 38});
    EXPECT_TRUE(device->Ep0VendorCommand({data.data(), 1, 0, 5, false}));
    EXPECT_NE(std::string::npos, os.take_log().find(hex({data[2], data[3], data[4]}) + ">41"));
    EXPECT_TRUE(device->Ep0VendorCommand({back.data(), 1, 0, 5, true}));
    EXPECT_EQ((Bytes{9, 8, 7, 6, 5}), back);
    EXPECT_FALSE(device->Ep0VendorCommand({back.data(), 1, 0, 5, true}));
    EXPECT_EQ(FX3_TRANSFER_FAILED, device->DownloadUserIMGtoI2CE2PROM(Bytes(2048, 4).data(), 2048, 0xBA));
    device->Close();
    EXPECT_FALSE(device->SetProgramEntry(0xA0, 0) || device->IsBootLoaderRunning());
}

TEST_F(Fx3DeviceTest, ram_pieces_are_written_and_read_back_up_to_three_times_and_the_program_is_started) {
    const Bytes data = noise(2052), head{'C', 'Y', 0, 0}, start{0, 0, 0, 0, 0x10, 0, 0, 0x40};
    const Bytes small{1, 0, 0, 0, 64, 0, 0, 0, 1, 2, 3, 4}, big = Bytes{1, 2, 0, 0, 0, 0xF8, 0, 0x40} + data;
    const Bytes image = head + big + small + start;
    const std::string w = "a0> f800 4000 2048; ", r = "a0< f800 4000 2048; ", go = "a0> 0010 4000 0; ";
    const std::string rest = "a0> 0000 4001 4; a0< 0000 4001 4; a0> 0040 0000 4; a0< 0040 0000 4; " + go;
    // The request that fails, with all after it or alone; wrong reads. In the seventh the program is started.
    const std::tuple<unsigned, bool, unsigned, int, std::string> rows[] = {
        {0, false, 0, FX3_OK, w + r + rest},         {1, false, 0, FX3_OK, w + w + r + rest},
        {2, false, 0, FX3_OK, w + r + w + r + rest}, {0, false, 2, FX3_OK, w + r + w + r + w + r + rest},
        {7, true, 0, FX3_OK, w + r + rest},          {0, false, 3, FX3_TRANSFER_FAILED, w + r + w + r + w + r}};
    for (const auto& [fails, always, corrupt, status, expected] : rows) {
        loader.fail(fails, always);
        loader.corrupt_readback(corrupt);
        EXPECT_EQ(status, device->DownloadFwToRam(image.data(), ULONG(image.size()), 0xA0));
        EXPECT_EQ(expected, take_sent());
    }
    EXPECT_TRUE(loader.ram(0x4000F800, 2052) == data && loader.ram(64, 5) == (Bytes{1, 2, 3, 4, 0}));
    EXPECT_EQ(std::vector<std::uint32_t>(4, 0x40000010), loader.programs_started());
    EXPECT_TRUE(device->DownloadFwToRam((head + start).data(), 12, 0xA0) == FX3_OK && take_sent() == go);
}

TEST_F(Fx3DeviceTest, an_spi_image_erases_its_sectors_and_is_written_in_whole_pages) {
    const std::tuple<std::size_t, int, int, std::size_t> rows[] = {
        {1, 1, 0, 256}, {256, 1, 0, 256}, {65536, 1, 32, 0}, {65537, 2, 32, 256}, {70000, 2, 34, 512}};
    for (const auto& [size, sectors, whole_writes, last_write] : rows) {
        const Bytes image = noise(size);
        std::string expected;
        for (int i = 0; i < 5 * sectors; ++i)
            expected += i % 5 == 0 ? line("c4>", 1, i / 5, 0) : line("c4<", 0, i / 5, 1);
        for (int i = 0; i < whole_writes; ++i)
            expected += line("c2>", 0, i * 8, 2048);
        expected += last_write > 0 ? line("c2>", 0, whole_writes * 8, last_write) : "";
        EXPECT_EQ(FX3_OK, device->DownloadUserIMGtoSPIFLASH(image.data(), ULONG(size), 0xC4));
        EXPECT_EQ(expected, take_sent()) << size;
        EXPECT_EQ(image + Bytes(255, 0xFF), loader.spi(0, size + 255)) << size;
    }
}

TEST_F(Fx3DeviceTest, an_i2c_image_goes_from_device_to_device_as_its_size_code_says) {
    const std::pair<int, std::vector<std::pair<int, std::size_t>>> rows[] = {
        // size code; device select, bytes
        {2, {{0, 4096}, {1, 4096}, {2, 4096}, {3, 4096}, {4, 4096}, {5, 4096}, {6, 4096}, {7, 4096}, {0, 64}}},
        {3, {{0, 8192}, {1, 3}}},
        {4, {{0, 16384}, {1, 2048}}},
        {5, {{0, 32768}, {1, 65}}},
        {6, {{0, 65536}, {1, 65536}, {2, 1}}},
        {7, {{0, 65536}, {4, 65536}, {1, 65536}, {5, 65536}, {5, 65536}, {5, 2049}}}};
    for (const auto& [code, runs] : rows) {
        Bytes image;
        std::string expected;
        for (const auto& [select, size] : runs) {
            image = image + noise(size);
            for (std::size_t at = 0; at < size; at += 2048) {
                const std::size_t sends = std::min<std::size_t>(2048, (size - at + 63) / 64 * 64);
                expected += line("ba>", select, int(at), sends);
                expected += size - at < 2048 ? line("bb<", select, int(at), sends) : "";
            }
        }
        image[2] = BYTE(code << 1);
        EXPECT_EQ(FX3_OK, device->DownloadUserIMGtoI2CE2PROM(image.data(), ULONG(image.size()), 0xBA));
        EXPECT_EQ(expected, take_sent()) << code;
        for (const auto& [select, size] : {runs[1], runs.back()})
            EXPECT_EQ(noise(size), loader.eeprom(unsigned(select), 0, size)) << code;
    }
}

TEST_F(Fx3DeviceTest, simulated_memories_come_round_clear_bits_and_are_busy_as_real_ones) {
    Bytes data = noise(128), bits{0xF0}, more{0x3C};
    EXPECT_TRUE(device->DownloadBufferToDevice(0x00200003, 128, data.data(), 0xBA)); // not on a page boundary
    EXPECT_EQ(Bytes(data.begin() + 96, data.end()) + Bytes(data.begin(), data.begin() + 96), loader.eeprom(3, 0, 128));
    EXPECT_FALSE(device->DownloadBufferToDevice(8, 1, bits.data(), 0xBA)); // no such EEPROM
    EXPECT_TRUE(device->WriteToSPIFlash(bits.data(), 1, 0, 0xC2) && device->WriteToSPIFlash(more.data(), 1, 0, 0xC2));
    EXPECT_EQ(Bytes{0x30}, loader.spi(0, 1));
    loader.fail(2);
    EXPECT_FALSE(device->EraseSectorOfSPIFlash(0, 0xC4) || device->WriteToSPIFlash(bits.data(), 1, 0, 0xC2));
}

TEST_F(Fx3DeviceTest, each_failure_has_its_status) {
    const std::tuple<std::string, int, unsigned, int, FX3_STATUS, int> rows[] = {
        {"", 1, 0, 64, FX3_NO_FILE, 0}, // file, medium, the request that fails, packet size; status, requests
        {"CX", 1, 0, 64, FX3_NOT_AN_IMAGE, 0},
        {"CY", 1, 0, 64, FX3_IMAGE_TRUNCATED, 0},
        {"CY\3", 2, 0, 64, FX3_NO_EEPROM_SIZE, 0},
        {"CY", 2, 0, 64, FX3_NO_EEPROM_SIZE, 0},
        {"CY\4", 2, 0, 0, FX3_TRANSFER_FAILED, 0},
        {"CY\4", 2, 0, 2049, FX3_TRANSFER_FAILED, 0},
        {"CY\4", 2, 2, 64, FX3_TRANSFER_FAILED, 2},
        {"CY", 3, 1, 64, FX3_ERASE_FAILED, 1},
        {"CY", 3, 6, 64, FX3_TRANSFER_FAILED, 6},
        {"CY", 3, 2, 64, FX3_ERASE_FAILED, 2},
        {"CY", 4, 0, 64, FX3_NO_SUCH_MEDIUM, 0}};
    const std::string path = testing::TempDir() + "fx3-image-" + std::to_string(getpid());
    for (const auto& [bytes, medium, fails, packet, status, expected] : rows) {
        std::ofstream(path) << bytes;
        loader.fail(fails);
        device->ControlEndPt->MaxPktSize = USHORT(packet);
        EXPECT_EQ(status, device->DownloadFw(path.c_str(), FX3_FWDWNLOAD_MEDIA_TYPE(medium)));
        EXPECT_EQ(expected, count(take_sent()));
    }
    std::remove(path.c_str());
    EXPECT_EQ(FX3_NO_FILE, device->DownloadFw(testing::TempDir().c_str(), FX3_MEDIUM_SPI));
    EXPECT_TRUE(device->UploadBufferFromDevice(0, 3, Bytes(3).data(), 0xC4)); // ends the erasing that is left
    loader.never_end_erasing();
    EXPECT_FALSE(fx3_download(device->VendorChannel(), {{}, std::chrono::milliseconds(40)}).erase_sector(0, 0xC4));
    EXPECT_TRUE(count(sent) > 8 && count(sent) < 15) << "polls not for the time allowed, or without a pause: " << sent;
}

} // namespace
