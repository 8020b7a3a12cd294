// Carries requests out on the modem: a command as it stands, a message by the PDU-mode exchange of
// 3GPP TS 27.005 (AT+CMGF=0, AT+CMGS or AT+CMGW, the prompt, the PDU, the final result).
//
// Whatever final result the modem gives, "ERROR" in place of the prompt included, is a reply and
// judged by who asked. Only a reply without one is a failure, and its text is dropped.
#ifndef SMSPB_PLATFORM_MODEMD_MODEM_SERVICE_H
#define SMSPB_PLATFORM_MODEMD_MODEM_SERVICE_H

#include <chrono>
#include <functional>

#include "platform/modemd/at_engine.h"
#include "platform/modemd/records.h"

namespace smspb::modemd {

// How long the steps of a message exchange may take. Its callers give up after 35 s.
struct MessageWaits {
    std::chrono::milliseconds mode{3000};
    std::chrono::milliseconds prompt{5000};
    std::chrono::milliseconds delivery{30000}; // the network's part included
    std::chrono::milliseconds whole{34000};
};

class ModemService {
public:
    using OnAnswer = std::function<void(const Answer &)>;

    explicit ModemService(AtEngine &engine, const MessageWaits &waits = {})
        : engine_(engine), waits_(waits) {}

    // One request at a time; `onAnswer` is called from the event loop. A message exchange has its
    // time from the arrival of its request on.
    void carryOut(const Request &request, std::chrono::steady_clock::time_point arrival,
                  OnAnswer onAnswer);

private:
    using Clock = std::chrono::steady_clock;

    void runCommand(const CommandRequest &request);
    void selectPduMode();
    void announce();
    void handOver();
    void runStep(Command step, AtEngine::OnReply onReply);
    // Ends the request with what the engine gave in place of the step's success.
    void end(const Reply &reply, const char *why);
    void answer(const Answer &answer);

    AtEngine &engine_;
    MessageWaits waits_;
    OnAnswer onAnswer_;
    MessageRequest message_;
    Clock::time_point deadline_;
};

} // namespace smspb::modemd

#endif
