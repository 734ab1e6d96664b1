// The words of a script line: numbers, times and bytes, each checked as it is taken. No thread, no lock.
#pragma once

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "jorvet/base/read_text.h"
#include "jorvet/sim/script.h"
#include "jorvet/sim/support/bytes.h"

namespace jorvet::sim {

inline constexpr std::uint64_t max_number = std::numeric_limits<std::uint32_t>::max();

inline std::string quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

// The words of a line, taken one by one. Error messages start with the first word.
class script_words {
  public:
    explicit script_words(std::string_view line) : rest_(line), name_(take()) {}

    std::string_view name() const { return name_; }
    bool more() const { return rest_.find_first_not_of(blanks) != std::string_view::npos; }

    std::string_view word(const char* what) {
        if (!more())
            fail(std::string("the ") + what + " is missing");
        return take();
    }

    bool next_is_number() const { return more() && peek()[0] >= '0' && peek()[0] <= '9'; }

    std::uint64_t number(const char* what, std::uint64_t maximum) { return to_number(word(what), maximum); }

    std::uint64_t to_number(std::string_view text, std::uint64_t maximum) const {
        return checked([=] { return read_number(text, maximum); });
    }

    std::chrono::milliseconds time(const char* what) { return std::chrono::milliseconds(number(what, max_number)); }
    std::size_t count(const char* what) { return static_cast<std::size_t>(number(what, max_number)); }
    std::uint8_t byte(const char* what) { return static_cast<std::uint8_t>(number(what, 0xFF)); }
    std::uint16_t two_bytes(const char* what) { return static_cast<std::uint16_t>(number(what, 0xFFFF)); }

    // The next word, and the following ones as long as they look like bytes.
    byte_vector bytes(const char* what) {
        const std::string_view first = word(what);
        const char* end = first.data() + first.size();
        for (std::string_view next = peek(); looks_like_bytes(next); next = peek()) {
            take();
            end = next.data() + next.size();
        }
        const std::string_view text(first.data(), static_cast<std::size_t>(end - first.data()));
        return checked([=] { return read_bytes(text); });
    }

    void end() {
        if (more())
            fail(quoted(take()) + " is one word too many");
    }

    [[noreturn]] void fail(const std::string& why) const { throw script_error(std::string(name_) + ": " + why); }

  private:
    std::string_view peek() const {
        const std::size_t first = std::min(rest_.find_first_not_of(blanks), rest_.size());
        const std::string_view next = rest_.substr(first);
        return next.substr(0, next.find_first_of(blanks));
    }

    std::string_view take() {
        const std::string_view word = peek();
        rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()) + word.size());
        return word;
    }

    static bool looks_like_bytes(std::string_view text) {
        return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEFxX:") == std::string_view::npos;
    }

    template <class Read>
    std::invoke_result_t<Read> checked(Read read) const {
        try {
            return read();
        } catch (const std::invalid_argument& wrong) {
            fail(wrong.what());
        }
    }

    static constexpr std::string_view blanks = " \t\r";

    std::string_view rest_;
    std::string_view name_;
};

} // namespace jorvet::sim
