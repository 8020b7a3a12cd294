// The steps of a request, each one a command to the engine and a judgement of its reply.
#include "platform/modemd/modem_service.h"

#include <algorithm>
#include <utility>

#include <spdlog/spdlog.h>

#include "platform/modemd/at_lines.h"

namespace smspb::modemd {
namespace {

using std::chrono::milliseconds;

constexpr char CTRL_Z = '\x1a';
const std::vector<std::string> OK_MARKER = {"OK"}; // errors end a reply anyhow

Answer failureOf(const Reply &reply) {
    switch (reply.ending) {
    case Ending::RESULT: return {Result::CARRIED_OUT, reply.text};
    case Ending::PROMPT: return {Result::NO_PROMPT, {}};
    case Ending::SILENCE: return {Result::NO_ANSWER, {}};
    case Ending::OVERFLOW: return {Result::TOO_LONG, {}};
    case Ending::NO_MODEM: break;
    }
    return {Result::NO_MODEM, {}};
}

} // namespace

void ModemService::carryOut(const Request &request, Clock::time_point arrival, OnAnswer onAnswer) {
    onAnswer_ = std::move(onAnswer);
    if (const auto *command = std::get_if<CommandRequest>(&request)) {
        runCommand(*command);
        return;
    }
    message_ = std::get<MessageRequest>(request);
    deadline_ = arrival + waits_.whole;
    selectPduMode();
}

// A request without markers asks for whatever comes within its wait.
void ModemService::runCommand(const CommandRequest &request) {
    const bool takesAnything = request.markers.empty();
    engine_.run({request.text, request.markers, request.wait, false},
                [this, takesAnything](const Reply &reply) {
                    const bool isWhole =
                        reply.ending == Ending::SILENCE && takesAnything && !reply.text.empty();
                    answer(isWhole ? Answer{Result::CARRIED_OUT, reply.text} : failureOf(reply));
                });
}

// Before every message: in text mode, which any command and any restart of the modem may have
// brought, the PDU would be sent as a text to the number that is its length.
void ModemService::selectPduMode() {
    runStep({"AT+CMGF=0\r", OK_MARKER, waits_.mode, false}, [this](const Reply &reply) {
        if (reply.ending == Ending::RESULT && endsInOk(reply.text)) {
            announce();
        } else {
            end(reply, "the modem does not take PDU mode");
        }
    });
}

void ModemService::announce() {
    runStep({message_.command, OK_MARKER, waits_.prompt, true}, [this](const Reply &reply) {
        if (reply.ending == Ending::PROMPT) {
            handOver();
        } else if (reply.ending == Ending::RESULT && endsInOk(reply.text)) {
            end({Ending::PROMPT, {}}, "OK came in place of the prompt");
        } else if (reply.ending == Ending::SILENCE) {
            end({Ending::PROMPT, {}}, "no prompt came");
        } else {
            end(reply, "the modem does not take the length");
        }
    });
}

void ModemService::handOver() {
    runStep({message_.pdu + CTRL_Z, OK_MARKER, waits_.delivery, false}, [this](const Reply &reply) {
        end(reply, "the PDU is handed over and may have gone out");
    });
}

void ModemService::runStep(Command step, AtEngine::OnReply onReply) {
    const auto left = std::chrono::duration_cast<milliseconds>(deadline_ - Clock::now());
    step.wait = std::clamp(left, milliseconds(1), step.wait);
    engine_.run(std::move(step), std::move(onReply));
}

void ModemService::end(const Reply &reply, const char *why) {
    if (reply.ending != Ending::RESULT) {
        spdlog::warn("{} given up: {}", commandName(message_.command), why);
    }
    answer(failureOf(reply));
}

void ModemService::answer(const Answer &answer) { std::exchange(onAnswer_, nullptr)(answer); }

} // namespace smspb::modemd
