// The wording of the context-loss report. Pure text.
#include "jorvet/core/context_report.h"

#include <iomanip>
#include <sstream>

namespace jorvet::core {

namespace {

void list_bytes(std::ostream& out, const context_loss& loss, const char* name) {
    std::size_t j = loss.forgotten;
    for (const context_loss::run& run : loss.runs) {
        for (std::ptrdiff_t at = run.first; at < run.last; ++at) {
            out << "index: " << j++ << " - " << name << "[j]   : 0x" << std::setw(2) << std::setfill('0')
                << static_cast<unsigned>(loss.bytes[at]) << '\n';
        }
    }
}

void describe_in_packet(std::ostream& out, const context_loss& loss) {
    const std::string rule(105, '-');
    out << "Jorvet - Error - Context Loss Block Management\n"
        << rule << '\n'
        << rule << '\n'
        << " - last frame start index known: 0x" << loss.last_frame_start << '\n'
        << " - packet size: 0x" << loss.packet_size << '\n'
        << " - context loss index (i): 0x" << loss.index << "\n\n";
    list_bytes(out, loss, "bytes_without_context");
}

void describe_spanning(std::ostream& out, const context_loss& loss) {
    out << " - spanning : true\n";
    list_bytes(out, loss, "inputBuffer_before");
    out << " - context loss index (with insertion of previous packet): 0x" << loss.index << '\n';
}

} // namespace

std::string describe(const context_loss& loss) {
    std::ostringstream out;
    out << std::hex;
    if (loss.spanning)
        describe_spanning(out, loss);
    else
        describe_in_packet(out, loss);
    return out.str();
}

} // namespace jorvet::core
