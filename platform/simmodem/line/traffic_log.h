// What passes on the line, and what happens beside it, for people and scripts to read. A line each:
//
//   2026-11-21T10:00:00.000+01:00 < AT+CSQ\r
//   time                          mark text
//
// The time is the modem's clock. "\r", "\n", "\\" and "\x1A" stand for what cannot be shown as it
// is.
#pragma once

#include "platform/simmodem/modem/clock.h"

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace smspb::simmodem {

class TrafficLog {
public:
    enum class Mark : char {
        received = '<', // from the terminal, as far as a line or the data behind a prompt goes
        sent = '>',     // to the terminal, echo included
        fault = '!',    // a fault acts, as it was given
        event = '*'     // from the control socket, and what the terminal itself does
    };

    explicit TrafficLog(const Clock &clock) : clock_(clock) {}

    // Appends to the file from here on; "-" is standard error. Throws std::runtime_error when it
    // cannot be written. Without a file nothing is logged.
    void open(const std::string &path);
    bool isOpen() const { return out_ != nullptr; }

    void write(Mark mark, std::string_view text);

private:
    struct Close {
        void operator()(std::FILE *stream) const;
    };
    const Clock &clock_;
    std::unique_ptr<std::FILE, Close> out_;
    bool failed_ = false;
};

} // namespace smspb::simmodem
