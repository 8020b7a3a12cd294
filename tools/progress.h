// What goes on during work that takes longer than a second.
#ifndef SMSPB_TOOLS_PROGRESS_H
#define SMSPB_TOOLS_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

#include "tools/output.h"

namespace smspb::cli {

// "reading contacts, 57 of 250", on standard error when that is a terminal and the work has gone on
// for a second; the line goes with the object. Silent with --json.
class Progress {
public:
    Progress(const Console &console, std::string deed, std::size_t total);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void step(std::size_t done);

private:
    using Clock = std::chrono::steady_clock;

    const Console &console_;
    std::string deed_;
    std::size_t total_;
    Clock::time_point next_;
};

} // namespace smspb::cli

#endif
