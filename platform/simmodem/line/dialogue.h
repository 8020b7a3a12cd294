// The conversation on the line: feeds characters to the assembler, runs the commands of a line one
// after the other, asks for data, plays faults, and puts out replies and unsolicited lines. While a
// reply is on its way characters wait unread, so that nothing is ever mixed into it.
#pragma once

#include "platform/simmodem/line/command.h"
#include "platform/simmodem/line/line_assembler.h"
#include "platform/simmodem/line/reply.h"
#include "platform/simmodem/line/traffic_log.h"
#include "platform/simmodem/modem/modem.h"

#include <chrono>
#include <functional>

namespace smspb::simmodem {

class Dialogue {
public:
    using Milliseconds = std::chrono::milliseconds;
    enum class Hanging { atOnce, onceRead };

    struct Surroundings {
        std::function<void(std::string)> send; // to the terminal
        // A fault takes the terminal away, at once or when the other side has read what was sent.
        // Must not destroy the dialogue.
        std::function<void(Milliseconds away, Hanging)> drop;
        std::function<void()> keep; // a command line has been carried out and is not answered yet
    };

    // `latency` goes before every prompt and reply.
    Dialogue(Modem &modem, TrafficLog &log, Milliseconds latency, Surroundings surroundings);

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
    void hangUp(Milliseconds away);
    std::string spoiled(std::string information, const std::string &result);
    void after(Milliseconds wait, std::function<void()> then);
    std::string interjected(std::string text);
    void putUnsolicited();
    void put(std::string text);
    void logReceived();

    Modem &modem_;
    TrafficLog &log_;
    Milliseconds latency_;
    Surroundings surroundings_;
    Timer timer_;
    LineAssembler assembler_;
    std::string inbox_;      // not looked at yet
    std::string received_;   // for the log
    bool busy_ = false;      // a reply or prompt is on its way
    bool inCommand_ = false; // from the line's end to the final result
    Run run_;
};

} // namespace smspb::simmodem
