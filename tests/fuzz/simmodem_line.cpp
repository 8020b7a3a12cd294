// What a terminal may write to the simulated modem, character by character, from the line's
// assembly to the handlers. 0xFF and a character behind it let something else happen: 'm' a message
// comes in, 'r' a call, 's' the SIM goes or comes back, 'n' the terminal is opened anew, anything
// else lets that many seconds pass.
#include <spdlog/spdlog.h>

#include "fuzz.h"
#include "platform/simmodem/line/dialogue.h"
#include "platform/simmodem/network/network.h"

using namespace smspb::simmodem;

namespace {

constexpr char EVENT = '\xFF';

[[maybe_unused]] const bool quiet = [] {
    spdlog::set_level(spdlog::level::off);
    return true;
}();

ModemOptions smallOptions() {
    ModemOptions options;
    options.meSize = options.smSize = 3;
    options.mePhonebookSize = options.smPhonebookSize = 3;
    return options;
}

class Conversation {
public:
    Conversation()
        : modem_(smallOptions()), log_(modem_.clock),
          dialogue_(modem_, log_, std::chrono::milliseconds(0),
                    {[this](const std::string &text) { said_ += text; },
                     [](std::chrono::milliseconds, Dialogue::Hanging) {}, [] {}}) {
        modem_.clock.drive(1795255200); // 2026-11-21
        modem_.clock.observe([] {}, [this] { dialogue_.flushUnsolicited(); });
    }

    void write(std::string_view characters) {
        const fuzz::Block<char> block = fuzz::copyOf<char>(characters);
        dialogue_.receive({block.get(), block.size()});
        said_.clear();
    }

    void happen(char event) {
        switch (event) {
        case 'm': receiveMessage(); break;
        case 'r': modem_.unsolicited.push_back("RING"); break;
        case 's':
            modem_.simPresent = !modem_.simPresent;
            reportRegistration(modem_);
            receivePending(modem_);
            break;
        case 'n': dialogue_.reset(); break;
        default: pass(std::chrono::seconds(static_cast<unsigned char>(event))); break;
        }
        dialogue_.flushUnsolicited();
        said_.clear();
    }

    // Whatever was said, settings that are known and an empty line make it a modem again.
    void end() {
        for (const Storage &storage : modem_.storages) {
            fuzz::require(storage.used() <= storage.size(), "a storage holds what it has room for");
        }
        pass(std::chrono::hours(1));
        modem_.faults.clear();
        modem_.settings = Settings();
        dialogue_.reset();
        dialogue_.flushUnsolicited();
        fuzz::require(modem_.unsolicited.empty(), "what waits goes out");
        said_.clear();
        dialogue_.receive("AT\r");
        fuzz::require(said_ == "AT\r\r\nOK\r\n", "AT is OK at last");
    }

private:
    // TS 23.040, 9.2.2.1: a DELIVER with "hello".
    void receiveMessage() {
        const Octets tpdu = {0x04, 0x0B, 0x91, 0x51, 0x55, 0x00, 0x10, 0x00,
                             0xF0, 0x00, 0x00, 0x62, 0x11, 0x12, 0x01, 0x00,
                             0x00, 0x00, 0x05, 0xE8, 0x32, 0x9B, 0xFD, 0x06};
        modem_.pending.push_back({
            Incoming::Kind::message, {{}, tpdu},
             std::nullopt
        });
        receivePending(modem_);
    }
    void pass(Clock::Duration time) { modem_.clock.advance(time); }

    Modem modem_;
    TrafficLog log_; // without a file
    Dialogue dialogue_;
    std::string said_;
};

} // namespace

void fuzz::examine(std::string_view input) {
    constexpr std::size_t CHARACTERS_MAX = 1024; // "A/" makes much of little
    input = input.substr(0, CHARACTERS_MAX);
    Conversation conversation;
    while (!input.empty()) {
        const std::size_t event = input.find(EVENT);
        conversation.write(input.substr(0, event));
        if (event == std::string_view::npos) { break; }
        input.remove_prefix(event + 1);
        conversation.happen(static_cast<char>(takeOctet(&input)));
    }
    conversation.end();
}
