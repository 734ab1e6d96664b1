// A tour over simulated boards behind one kind of link: each chapter shows something and checks what it shows.
#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "bench.h"
#include "connection.h"
#include "requests.h"

namespace jorvet::tool {

// Gathers the bytes that cross a link, in each direction. Any thread.
class wire {
  public:
    struct traffic {
        bytes to_board, to_host;
    };
    void note(bool to_host, const bytes& data);
    traffic take(); // and forgets them

  private:
    std::mutex mutex_;
    traffic seen_;
};

class tour {
  public:
    struct finding {
        std::string what;
        bool right;
    };

    // Plugs the boards in; `chosen` names one kind of link. Throws std::runtime_error when resources cannot be
    // allocated.
    tour(const settings& chosen, std::ostream& out);

    // Goes through the chapters, up to the first one in which something was wrong. Throws usage_error for a script line
    // that is not understood.
    void run();
    const std::vector<finding>& findings() const { return findings_; }
    unsigned int mistakes() const;

  private:
    struct answer {
        unsigned int status;
        bytes reply;
        wire::traffic crossed;
    };
    struct example;

    void show_devices();
    void connect();
    void ask_everything();
    void watch_events();
    void be_refused();
    void run_into_time_out();
    void pull_the_plug();
    void connect_again();
    void say_goodbye();

    void check(bool right, const std::string& what);
    void show(const wire::traffic& crossed);
    std::vector<COM_INFO> list_devices();
    answer ask(const std::string& name, const request_input& input);
    void ask_example(const example& e, bool with_crc);

    const settings chosen_;
    std::ostream& out_;
    const std::string name_; // of the board that the tour is about
    wire wire_;
    bench boards_;
    instance board_;
    std::vector<finding> findings_;
};

} // namespace jorvet::tool
