// The lines of the descriptor report. Runs on the caller's thread.
#include "jorvet/com/descriptor_report.h"

#include <cstdio>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <string>

namespace jorvet::com {

namespace {

constexpr const char* asterisks = "**********************************";
constexpr const char* hyphens = "--------------------------------";

class report_writer {
  public:
    // Leaves the stream in hexadecimal. Its other settings must not show, so numbers are written as text.
    explicit report_writer(std::ostream& out) : out_(out << std::setfill('0') << std::hex) {}

    void line(const char* text) {
        out_.width(0);
        out_ << text << std::endl;
    }
    // Values wider than `digits` are written whole.
    void number(const char* label, unsigned value, int digits = 2) {
        char text[9];
        std::snprintf(text, sizeof(text), "%0*x", digits, value);
        line((label + std::string(text)).c_str());
    }
    void heading(const char* label, unsigned place) { number(label, place, 1); }

    void header(const CCyUSBConfig& config) {
        number("bLength: 0x", config.bLength);
        number("bDescriptorType: ", config.bDescriptorType);
        number("wTotalLength: 0x", config.wTotalLength, 4);
        number("bNumInterfaces: ", config.bNumInterfaces);
        number("bConfigurationValue: ", config.bConfigurationValue);
        number("iConfiguration: ", config.iConfiguration);
        number("bmAttributes: 0x", config.bmAttributes);
        number("MaxPower: ", config.MaxPower);
        line(asterisks);
    }

    void entry(const CCyUSBInterface& entry, unsigned place) {
        heading("Interface Descriptor: ", place);
        line(hyphens);
        number("bLength: 0x", entry.bLength);
        number("bDescriptorType: ", entry.bDescriptorType);
        number("bInterfaceNumber: ", entry.bInterfaceNumber);
        number("bAlternateSetting: ", entry.bAlternateSetting);
        number("bNumEndpoints: ", entry.bNumEndpoints);
        number("bInterfaceClass: ", entry.bInterfaceClass);
    }

    void endpoint(const CCyUSBEndPoint* endpoint) {
        line(hyphens);
        if (endpoint == nullptr)
            return line("ept NULL");
        number("bLength: 0x", endpoint->DescLength);
        number("bDescriptorType: ", endpoint->DescType);
        number("bEndpointAddress: 0x", endpoint->Address);
        number("bmAttributes: 0x", endpoint->Attributes);
        number("wMaxPacketSize: ", endpoint->MaxPktSize);
        number("bInterval: ", endpoint->Interval);
    }

    // An entry may promise more endpoints than it has slots.
    void endpoints(const CCyUSBInterface& entry) {
        for (unsigned slot = 1; slot <= entry.bNumEndpoints; ++slot) {
            heading("EndPoint Descriptor: ", slot);
            endpoint(slot < std::size(entry.EndPoints) ? entry.EndPoints[slot] : nullptr);
            line(asterisks);
        }
    }

  private:
    std::ostream& out_;
};

} // namespace

void write_descriptor_report(std::ostream& out, const CCyUSBConfig& config, const CCyUSBEndPoint* bulk_in,
                             const CCyUSBEndPoint* bulk_out) {
    report_writer report(out);
    report.header(config);
    for (unsigned i = 0; i < config.AltInterfaceCount; ++i) {
        report.entry(*config.Interfaces[i], i + 1);
        report.line("BulkInEndPt Descriptor ");
        report.endpoint(bulk_in);
        report.line("BulkOutEndPt Descriptor ");
        report.endpoint(bulk_out);
        report.endpoints(*config.Interfaces[i]);
    }
}

} // namespace jorvet::com
