// A receiver that looks at one byte at a time and copies everything: slow, plain, and written apart from the engine, so
// that the two can be held against each other. Its outcome is text, as in receive_vectors.h.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "jorvet/core/context_report.h"
#include "jorvet/core/receive_engine.h"

namespace jorvet::testing {

using byte_vector = std::vector<unsigned char>;

template <typename... Args>
std::string format(const char* pattern, Args... args) {
    char text[160];
    std::snprintf(text, sizeof text, pattern, args...);
    return text;
}

struct outcome {
    std::string frames;               // "R …; E …; L; stopped"
    std::vector<std::string> reports; // one for each context loss
    std::size_t frame_count = 0;

    void add(const std::string& item) { frames += (frames.empty() ? "" : "; ") + item; }
    static std::string hex(const unsigned char* bytes, std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i)
            text += format("%02x", bytes[i]);
        return count == 0 ? "-" : text;
    }
};

// The engine, its findings as text.
class recorded_engine final : core::receive_sink {
  public:
    outcome result;
    void take(byte_vector packet) {
        if (running_ && !(running_ = engine_.take(packet)))
            result.add("stopped");
    }

  private:
    void reply(core::reply_view f) override {
        ++result.frame_count;
        result.add(format("R %02x %04x ", f.type(), f.status()) + outcome::hex(f.data(), f.length()) +
                   format(" %04x", f.crc()));
    }
    void event(core::event_view f, unsigned lost) override {
        ++result.frame_count;
        result.add(format("E %02x %02x %02x %04x ", f.type(), f.id(), f.seq(), f.status()) +
                   outcome::hex(f.data(), f.length()) + format(" %04x +%u", f.crc(), lost));
    }
    void context_lost(const core::context_loss& loss) override {
        result.add("L");
        result.reports.push_back(core::describe(loss));
    }
    bool wants_reports() const override { return true; }

    core::receive_engine engine_{*this};
    bool running_ = true;
};

class reference_receiver {
  public:
    outcome result;

    void take(byte_vector p) {
        if (stopped)
            return;
        packet = std::move(p);
        if (!spanning)
            last_start = 0;
        for (std::size_t i = 0; i < packet.size() && !stopped;)
            examine(i);
        before = packet;
    }

  private:
    byte_vector packet, before, examined, data;
    bool with_crc = false, without_crc = false, event = false, spanning = false, stopped = false;
    std::size_t position = 0, last_start = 0;
    unsigned id = 0, seq = 0, status = 0, length = 0, crc = 0, last_seq = 0;

    static bool start_byte(unsigned b) { return b == 0x40 || b == 0x41 || b == 0x80 || b == 0x81; }

    void examine(std::size_t& i) {
        examined.push_back(packet[i]);
        if (with_crc || without_crc)
            advance(i, frame_byte(packet[i]));
        else if (start_byte(packet[i]))
            begin(i);
        else
            lose(i);
    }

    void begin(std::size_t& i) {
        last_start = i;
        spanning = false;
        crc = status = length = 0xEEEE;
        data.clear();
        event = packet[i] < 0x80;
        with_crc = packet[i] & 1;
        without_crc = !with_crc;
        position = 1;
        advance(i, false);
    }

    bool frame_byte(unsigned b) {
        const std::size_t status_at = event ? 3 : 1, length_at = status_at + 2, data_at = status_at + 4;
        bool complete = false;
        if (event && position == 1)
            id = b;
        if (event && position == 2)
            seq = b;
        if (position == status_at || position == status_at + 1)
            status = position == status_at ? b << 8 : status + b;
        if (position == length_at)
            length = b << 8;
        if (position == length_at + 1) {
            length += b;
            complete = without_crc && length == 0;
        }
        if (position >= data_at)
            complete = data_or_crc(b, data_at);
        ++position;
        return complete;
    }

    bool data_or_crc(unsigned b, std::size_t data_at) {
        if (data.size() < length) {
            data.push_back(static_cast<unsigned char>(b));
            return data.size() == length && without_crc;
        }
        crc = position == data_at + data.size() ? b << 8 : crc + b;
        return position == data_at + data.size() + 1;
    }

    void advance(std::size_t& i, bool complete) {
        if (i + 1 == packet.size()) {
            complete ? hand_over() : void(spanning = true);
            ++i;
        } else if (complete && (start_byte(packet[i + 1]) || packet[i + 1] == 0xFF)) {
            hand_over();
            i += packet[i + 1] == 0xFF ? 2 : 1;
        } else {
            if (complete)
                with_crc = without_crc = false;
            ++i;
        }
    }

    void hand_over() {
        ++result.frame_count;
        if (event) {
            const unsigned lost = seq == last_seq ? 0 : (seq - last_seq - 1) & 0xFF;
            last_seq = seq;
            result.add(format("E %02x %02x %02x %04x ", with_crc ? 0x41 : 0x40, id, seq, status) +
                       outcome::hex(data.data(), data.size()) + format(" %04x +%u", crc, lost));
        } else {
            result.add(format("R %02x %04x ", with_crc ? 0x81 : 0x80, status) + outcome::hex(data.data(), data.size()) +
                       format(" %04x", crc));
        }
        examined.clear();
        with_crc = without_crc = false;
    }

    void lose(std::size_t& i) {
        result.add("L");
        const std::string rule(105, '-');
        std::string report = "Jorvet - Error - Context Loss Block Management\n" + rule + "\n" + rule + "\n";
        report += format(" - last frame start index known: 0x%zx\n - packet size: 0x%zx\n", last_start, packet.size());
        report += format(" - context loss index (i): 0x%zx\n\n", i);
        report += lines(examined, "bytes_without_context");
        if (spanning) {
            report = " - spanning : true\n" + lines(before, "inputBuffer_before");
            packet.insert(packet.begin(), before.begin(), before.end());
            i += before.size();
            report += format(" - context loss index (with insertion of previous packet): 0x%zx\n", i);
        }
        result.reports.push_back(report);
        const byte_vector& p = packet;
        for (std::size_t u = last_start + 1; u + 7 < p.size(); ++u) {
            const unsigned word = (unsigned{p[u + 3]} << 8) + p[u + 4];
            if ((p[u] == 0x40 || p[u] == 0x41) && p[u + 1] == 1 && (word == 0x8001 || word == 0xA000))
                return begin(i = u);
        }
        stopped = true;
        result.add("stopped");
    }

    static std::string lines(const byte_vector& bytes, const char* name) {
        std::string text;
        for (std::size_t j = 0; j < bytes.size(); ++j)
            text += format("index: %zx - %s[j]   : 0x%02x\n", j, name, bytes[j]);
        return text;
    }
};

// Whether `engine` is the report `reference`, but for bytes at the front of the list that the engine no longer has.
inline bool same_report(std::string engine, const std::string& reference) {
    const std::size_t list = reference.find("index: 0 "), engine_list = engine.find("index: ");
    if (list == std::string::npos || engine_list == std::string::npos)
        return engine == reference || engine_list == std::string::npos;
    const std::string rest = engine.substr(engine_list);
    return engine.substr(0, engine_list) == reference.substr(0, list) && rest.size() <= reference.size() - list &&
           reference.compare(reference.size() - rest.size(), rest.size(), rest) == 0;
}

} // namespace jorvet::testing
