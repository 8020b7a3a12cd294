// The conversation on the line: feeds characters to the assembler, runs the commands of a line one
// after the other, asks for data, plays faults, and puts out replies and unsolicited lines. While a
// reply is on its way characters wait unread, so that nothing is ever mixed into it.
#pragma once

#include "command.h"
#include "line_assembler.h"
#include "modem.h"
#include "reply.h"

#include <chrono>
#include <functional>

namespace smspb::simmodem {

class Dialogue {
public:
    using Milliseconds = std::chrono::milliseconds;
    using Send = std::function<void(std::string)>;
    using Drop = std::function<void(Milliseconds away)>;

    // `latency` goes before every prompt and reply. `drop` is called when a fault takes the
    // terminal away; it must not destroy the dialogue.
    Dialogue(Modem &modem, Milliseconds latency, Send send, Drop drop);

    // Characters from the terminal.
    void receive(std::string_view characters);

    // Puts out the unsolicited lines that wait, unless a command runs; then they follow its reply.
    void flushUnsolicited();

    // Forgets the line, the command that runs and the characters that wait.
    void reset();

private:
    // A command line on its way.
    struct Run {
        std::vector<Command> commands;
        std::size_t next = 0;
        std::string information;
        std::optional<Fault> fault; // spoils the reply
        std::function<Reply(Modem &, std::string_view)> onData;
    };

    void pump();
    void take(const LineInput &input);
    void startLine(std::string_view body);
    void runCommands();
    bool runCommand(const Command &command);
    bool applyRefusal(const Fault &fault);
    void askForData();
    void askForMoreData();
    void takeData(const LineInput &input);
    bool absorb(Reply reply);
    void finish(Result result);
    void endSilently();
    std::string spoiled(std::string information, const std::string &result) const;
    void after(Milliseconds wait, std::function<void()> then);
    std::string interjected(std::string text);
    void putUnsolicited();
    void put(std::string text);

    Modem &modem_;
    Milliseconds latency_;
    Send send_;
    Drop drop_;
    Timer timer_;
    LineAssembler assembler_;
    std::string inbox_;
    bool busy_ = false;      // a reply or prompt is on its way
    bool inCommand_ = false; // from the line's end to the final result
    Run run_;
};

// The text with control characters written out, for the trace.
std::string visible(std::string_view text);

} // namespace smspb::simmodem
