// The diagnostics writer: one atomic pointer, so that asking costs a load.
#include "jorvet/base/diagnostics.h"

#include <atomic>

namespace jorvet::diagnostics {

namespace {
std::atomic<writer> current{nullptr};
}

writer set_writer(writer w) {
    return current.exchange(w);
}

bool listening() {
    return current.load() != nullptr;
}

void write(const std::string& text) {
    if (const writer w = current.load())
        w(text);
}

} // namespace jorvet::diagnostics
