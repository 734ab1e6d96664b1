// The one place where the library's warnings go: the receive engine's context-loss report and the reply-queue warning.
// Silent until somebody installs a writer. Internal; any thread.
#pragma once

#include <string>

namespace jorvet::diagnostics {

// Called with each whole text, on the thread that met the condition. The reply-queue warning comes in the middle of a
// request, so the instance's request mutex is held then: a writer must not issue a request.
using writer = void (*)(const std::string& text);

// Installs `w` and returns the writer before it; null silences. Takes effect for the next text.
writer set_writer(writer w);

// Whether a writer is installed: ask before composing a long text.
bool listening();

// Hands `text` to the writer; does nothing while silent.
void write(const std::string& text);

} // namespace jorvet::diagnostics
