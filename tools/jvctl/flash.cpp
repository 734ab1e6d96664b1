// jvctl flash: writing a firmware image to a memory of a controller, with progress, a question before anything that
// stays is overwritten, and a look at what was written.
#include <algorithm>
#include <iostream>
#include <optional>
#include <utility>

#include <unistd.h>

#include "commands.h"
#include "jorvet/cyusb/fx3_download.h"

namespace jorvet::tool {

namespace {

using cyusb::fx3_download_options;
using image_file = std::vector<UCHAR>;

constexpr std::size_t spi_addresses = std::size_t{0x10000} * SPI_FLASH_PAGE_SIZE_IN_BYTE;
constexpr std::size_t read_back_size = 4096;

const char* name_of(FX3_FWDWNLOAD_MEDIA_TYPE medium) {
    return medium == FX3_MEDIUM_RAM ? "RAM" : medium == FX3_MEDIUM_I2C ? "I2C EEPROM" : "SPI flash";
}

std::string of_bytes(std::size_t done, std::size_t total) {
    return std::to_string(done) + " of " + std::to_string(total) + " bytes";
}

// Shows how far a download is, on stderr: a bar on a terminal, elsewhere a line for each tenth.
class progress_report {
  public:
    using phase = fx3_download_options::phase;

    explicit progress_report(bool shown) : shown_(shown), on_terminal_(isatty(STDERR_FILENO) != 0) {}
    ~progress_report() {
        if (bar_)
            std::cerr << std::endl;
    }
    progress_report(const progress_report&) = delete;
    progress_report& operator=(const progress_report&) = delete;

    void note(phase now, std::size_t done, std::size_t total) {
        if (now == phase::writing)
            written_ = done;
        const std::size_t step = done * (on_terminal_ ? 100 : 10) / total;
        if (!shown_ || (now == phase_ && step == step_))
            return;
        phase_ = now;
        step_ = step;
        const std::string text = (now == phase::erasing ? "erased " : "written ") + of_bytes(done, total);
        if (on_terminal_)
            draw(text, done, total);
        else
            std::cerr << text << std::endl;
    }

    std::size_t written() const { return written_; }

  private:
    void draw(const std::string& text, std::size_t done, std::size_t total) {
        constexpr std::size_t width = 40;
        const std::size_t full = done * width / total;
        std::cerr << "\r[" << std::string(full, '#') << std::string(width - full, '-') << "] " << text << "\x1b[K"
                  << std::flush;
        bar_ = true;
    }

    const bool shown_;
    const bool on_terminal_;
    bool bar_ = false; // the cursor stands behind one
    phase phase_ = phase::writing;
    std::size_t step_ = 0;
    std::size_t written_ = 0;
};

outcome flashed(const settings& chosen, FX3_STATUS status, exit_status exit, const std::string& addition) {
    const auto [value, name, text] = cyusb::fx3_status(status);
    const std::string sentence = "flash: " + std::string(name) + ": " + text + addition;
    outcome result;
    result.exit = exit;
    result.json = {
        {"command", chosen.command},
        {"status", {{"code", hex_number(static_cast<unsigned int>(value), 8)}, {"name", name}, {"text", text}}},
        {"exit_status", exit},
        {"medium", name_of(chosen.flash.medium)}};
    (exit == exit_status::success ? result.text : result.error) = sentence;
    result.text += result.text.empty() ? "" : "\n";
    return result;
}

// Whether the person in front of the terminal agrees. Throws usage_error when there is none.
bool agreed(const settings& chosen, const CCyFX3Device& device) {
    const std::string medium = name_of(chosen.flash.medium);
    if (chosen.flash.medium == FX3_MEDIUM_RAM || chosen.flash.yes)
        return true;
    if (isatty(STDIN_FILENO) == 0)
        throw usage_error("flash: this overwrites the " + medium + "; add --yes, for there is no terminal to ask on");
    const std::string device_name(device.FriendlyName, strnlen(device.FriendlyName, sizeof device.FriendlyName));
    std::cerr << "Overwrite the " << medium << " of \"" << device_name << "\"? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

// Where the flash differs from the image, in a sentence; nothing when it does not.
std::optional<std::string> spi_difference(CCyFX3Device& device, const image_file& image) {
    std::vector<UCHAR> read(read_back_size);
    for (std::size_t offset = 0; offset < image.size(); offset += read_back_size) {
        const std::size_t size = std::min(image.size() - offset, read_back_size);
        if (!device.Ep0VendorCommand(
                {read.data(), cyusb::fx3_request::spi_read, cyusb::spi_address(offset), static_cast<LONG>(size), true}))
            return "it cannot be read back at byte " + std::to_string(offset);
        const auto end = read.begin() + static_cast<std::ptrdiff_t>(size);
        const auto wrong = std::mismatch(read.begin(), end, image.begin() + static_cast<std::ptrdiff_t>(offset)).first;
        if (wrong != end)
            return "byte " + std::to_string(offset + static_cast<std::size_t>(wrong - read.begin())) +
                   " differs from the image";
    }
    return std::nullopt;
}

outcome write_image(const settings& chosen, CCyFX3Device& device, const image_file& image) {
    const FX3_FWDWNLOAD_MEDIA_TYPE medium = chosen.flash.medium;
    FX3_STATUS status = FX3_OK;
    std::size_t written = 0;
    {
        progress_report progress(!chosen.json);
        fx3_download_options options;
        options.progress = [&](auto now, std::size_t done, std::size_t total) { progress.note(now, done, total); };
        status = cyusb::fx3_download(device.VendorChannel(), options).to_medium(medium, {image.data(), image.size()});
        written = progress.written();
    }
    std::string addition = "; " + of_bytes(written, image.size()) + " written to the " + name_of(medium);
    std::optional<std::string> difference;
    if (status == FX3_OK && chosen.flash.verify && medium == FX3_MEDIUM_SPI)
        difference = spi_difference(device, image);
    if (difference) {
        status = FX3_TRANSFER_FAILED;
        addition += ", but " + *difference;
    }
    if (status != FX3_OK && medium != FX3_MEDIUM_RAM)
        addition += "; what it holds now is no whole image";
    const bool verified = status == FX3_OK && (medium == FX3_MEDIUM_RAM || chosen.flash.verify);
    outcome result = flashed(chosen, status, status == FX3_OK ? exit_status::success : exit_status::link_failed,
                             addition + (verified ? ", read back and compared" : ""));
    result.json.update({{"size", image.size()}, {"written", written}, {"verified", verified}});
    return result;
}

// Opens the chosen device; throws std::runtime_error when there is none.
void open_controller(CCyFX3Device& device, const settings& chosen) {
    if (chosen.index != 0)
        device.Open(chosen.index);
    // A boot loader may have no interface to select: endpoint 0 is all it takes.
    if (device.ControlEndPt == nullptr)
        throw std::runtime_error("flash: no Cypress device opens at place " + std::to_string(chosen.index) +
                                 "; jvctl list shows what is attached");
    if (chosen.timeout_ms)
        device.ControlEndPt->TimeOut = *chosen.timeout_ms;
}

} // namespace

outcome run_flash(const settings& chosen, bench& boards) try {
    const image_file image = cyusb::read_image(chosen.flash.file.c_str());
    const FX3_STATUS fits =
        image.empty() ? FX3_NO_FILE : cyusb::check_image(chosen.flash.medium, {image.data(), image.size()});
    if (fits != FX3_OK)
        return flashed(chosen, fits, exit_status::wrong_usage, "; nothing was sent");
    if (chosen.flash.medium == FX3_MEDIUM_SPI && image.size() > spi_addresses)
        throw usage_error("flash: the image is longer than the 16 MiB of an SPI flash that can be addressed");
    CCyFX3Device device;
    open_controller(device, chosen);
    boards.run(chosen.script);
    if (!agreed(chosen, device))
        return failed(chosen.command, exit_status::wrong_usage, "flash: not agreed to; nothing was written");
    return write_image(chosen, device, image);
} catch (const char* failure) { // of the device class
    throw std::runtime_error(failure);
}

} // namespace jorvet::tool
