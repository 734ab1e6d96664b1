// The walk over RAM images.
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "jorvet/cyusb/ram_image.h"

using namespace jorvet::cyusb;
using Bytes = std::vector<std::uint8_t>;

namespace {

// "address+size@offset" for each piece, then the start of the program or the status.
std::string walk(const Bytes& bytes) {
    ram_image image(bytes.data(), bytes.size());
    std::string text;
    ram_step step = image.next();
    for (; !step.is_last(); step = image.next())
        text += std::to_string(step.address) + "+" + std::to_string(step.size) + "@" +
                std::to_string(step.data - bytes.data()) + " ";
    return text + (step.status == FX3_OK ? "go " + std::to_string(step.address) : fx3_status(step.status).name);
}

TEST(RamImageTest, pieces_end_at_2048_bytes_and_whatever_is_wrong_ends_the_walk) {
    const std::tuple<Bytes, std::size_t, const char*> rows[] = {
        {{'C'}, 1, "FX3_NOT_AN_IMAGE"}, // what it begins with, its length
        {{'C', 'Y'}, 2, "FX3_IMAGE_TRUNCATED"},
        {{'C', 'Y'}, 11, "FX3_IMAGE_TRUNCATED"},
        {{'C', 'Y', 1, 1, 1, 0, 0, 0, 7, 0, 2}, 24, "131079+4@12 go 0"},
        {{'C', 'Y', 1, 1, 1, 4, 0, 0, 255, 255, 255, 255}, 4120, "4294967295+2048@12 2047+2048@2060 4095+4@4108 go 0"},
        {{'C', 'Y', 1, 1, 4}, 16, "FX3_IMAGE_TRUNCATED"},
        {{'C', 'Y', 1, 1, 5}, 16, "FX3_SECTION_TOO_LONG"},
        {{'C', 'Y', 1, 1, 0, 0, 0, 0x40}, 2060, "0+2048@12 FX3_IMAGE_TRUNCATED"}}; // 4 GiB
    for (auto [bytes, length, steps] : rows) {
        bytes.resize(length);
        EXPECT_EQ(steps, walk(bytes));
    }
}

} // namespace
