// The commands of TS 27.005 that take a message behind a prompt, send a stored one, or acknowledge
// one that came.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/commands/message_show.h"
#include "platform/simmodem/commands/terminal_number.h"
#include "platform/simmodem/commands/text_entry.h"
#include "platform/simmodem/network/acknowledgement.h"
#include "platform/simmodem/network/network.h"

#include <array>
#include <limits>

namespace smspb::simmodem {
namespace {

// What becomes of the message that was entered.
using PduHandler = std::function<Reply(Modem &, const Pdu &)>;

Reply wrongEntry(const Modem &modem) { return cmsError(cmsParameterCode(modem.settings)); }

// `centre` as a stored or given PDU holds it; without digits the modem's own serves.
Reply sendSubmit(Modem &modem, const Command &command, const Submit &submit, const Octets &centre) {
    if (!modem.isRegistered()) { return cmsError(CMS_NO_NETWORK); }
    const bool named = centre.size() > 1;
    if (!named && modem.serviceCentre.empty()) { return cmsError(CMS_SERVICE_CENTRE_UNKNOWN); }
    const Octets through = named ? centre : serviceCentreField(modem.serviceCentre);
    return shown(command, std::to_string(sendMessage(modem, submit, through)));
}

Reply sendPdu(Modem &modem, const Command &command, const Pdu &pdu) {
    const auto submit = submitFromTpdu(pdu.tpdu);
    if (!submit) { return wrongEntry(modem); }
    return sendSubmit(modem, command, *submit, pdu.serviceCentre);
}

// The PDU behind the prompt, of which the command gave the length.
Reply askForPdu(const Command &command, PduHandler handler) {
    const auto length = numberAt(command, 0, 1, TPDU_OCTETS_MAX);
    if (!length) { return badParameter(); }
    Reply reply;
    reply.onData = [length = *length, handler = std::move(handler)](Modem &m,
                                                                    std::string_view text) {
        if (!m.simPresent) { return cmsError(CMS_NO_SIM); } // taken out at the prompt
        const auto pdu = pduFromText(text, length);
        return pdu ? handler(m, *pdu) : wrongEntry(m);
    };
    return reply;
}

// The text behind the prompts. A received message is a DELIVER, every other a SUBMIT.
Reply askForText(const Octets &address, bool received, PduHandler handler) {
    Reply reply;
    reply.onData = [address, received, handler = std::move(handler)](Modem &m,
                                                                     std::string_view text) {
        if (!m.simPresent) { return cmsError(CMS_NO_SIM); }
        const auto tpdu = received ? deliverFromText(m.settings, address, text,
                                                     NetworkTime::local(m.clock.wallSeconds()))
                                   : submitFromText(m.settings, address, text);
        return tpdu ? handler(m, Pdu{serviceCentreField(m.serviceCentre), *tpdu}) : wrongEntry(m);
    };
    return reply;
}

// 3.5.1 and 4.3: +CMGS=<da>[,<toda>], or <length>.
Reply send(Modem &modem, const Command &command) {
    PduHandler handler = [command](Modem &m, const Pdu &pdu) { return sendPdu(m, command, pdu); };
    if (!modem.settings.textMode) {
        return command.arguments.size() > 1 ? badParameter()
                                            : askForPdu(command, std::move(handler));
    }
    const auto address = dialledAddress(modem, command, 0);
    return address ? askForText(*address, false, std::move(handler)) : badParameter();
}

bool isReceived(MessageStatus status) {
    return status == MessageStatus::unread || status == MessageStatus::read;
}

bool fitsStatus(MessageStatus status, OctetView tpdu) {
    return isReceived(status) != isTpdu(TpduType::submit, tpdu) && fieldsOf(tpdu);
}

Reply storePdu(Modem &modem, const Command &command, MessageStatus status, const Pdu &pdu) {
    if (!fitsStatus(status, pdu.tpdu)) { return wrongEntry(modem); }
    const auto index = modem.storage(USE_WRITE).add({status, pdu});
    return index ? shown(command, std::to_string(*index)) : cmsError(CMS_MEMORY_FULL);
}

PduHandler storing(const Command &command, MessageStatus status) {
    return
        [command, status](Modem &m, const Pdu &pdu) { return storePdu(m, command, status, pdu); };
}

// 4.4: +CMGW=<length>[,<stat>]
Reply writePdu(const Command &command) {
    static constexpr auto UNSENT = static_cast<unsigned>(MessageStatus::unsent);
    const auto status = numberAt(command, 1, 0, 3, UNSENT);
    if (!status || command.arguments.size() > 2) { return badParameter(); }
    return askForPdu(command, storing(command, static_cast<MessageStatus>(*status)));
}

// 3.5.3: +CMGW[=<oa/da>[,<tooa/toda>[,<stat>]]]
Reply writeText(const Modem &modem, const Command &command) {
    MessageStatus status = MessageStatus::unsent;
    if (!isOmitted(command, 2)) {
        const auto wanted = statusFromName(stringAt(command, 2).value_or(""));
        if (!wanted) { return badParameter(); }
        status = *wanted;
    }
    const bool named = !isOmitted(command, 0);
    if (!named && !isOmitted(command, 1)) { return badParameter(); }
    const auto address = named ? dialledAddress(modem, command, 0) : addressField("");
    if (!address) { return badParameter(); }
    return askForText(*address, isReceived(status), storing(command, status));
}

Reply write(Modem &modem, const Command &command) {
    return modem.settings.textMode ? writeText(modem, command) : writePdu(command);
}

// Only a SUBMIT can be sent; it counts as sent from then on. A number given here replaces its own.
Reply sendStored(Modem &modem, const Command &command) {
    const auto index = numberAt(command, 0, 0, std::numeric_limits<unsigned>::max());
    StoredMessage *const message = index ? modem.storage(USE_WRITE).find(*index) : nullptr;
    if (message == nullptr) { return cmsError(CMS_INVALID_INDEX); }
    auto submit = submitFromTpdu(message->pdu.tpdu);
    if (!submit) { return cmsError(CMS_NOT_ALLOWED); }
    if (!isOmitted(command, 1)) {
        const auto address = dialledAddress(modem, command, 1);
        if (!address) { return badParameter(); }
        submit->destination = *address;
    }
    if (submit->destination.front() == 0) { return badParameter(); } // stored without a number
    Reply reply = sendSubmit(modem, command, *submit, message->pdu.serviceCentre);
    if (reply.result.kind == Result::Kind::ok) { message->status = MessageStatus::sent; }
    return reply;
}

// +CNMA <n>.
enum : unsigned { ACKNOWLEDGE = 0, ACKNOWLEDGE_PHASE_2 = 1, REFUSE = 2 };

Reply acknowledgeBy(Modem &modem, unsigned n) {
    const bool expected = n == REFUSE ? refuse(modem) : acknowledge(modem);
    return expected ? done() : cmsError(CMS_NOTHING_TO_ACKNOWLEDGE);
}

Reply acknowledgeMessage(Modem &modem, const Command & /*command*/) {
    return acknowledgeBy(modem, ACKNOWLEDGE);
}

// 4.7: +CNMA[=<n>[,<length>]], with a length the PDU of the DELIVER-REPORT behind a prompt. In text
// mode the command has no values.
Reply acknowledgeWith(Modem &modem, const Command &command) {
    const auto n = numberAt(command, 0, ACKNOWLEDGE, REFUSE, ACKNOWLEDGE);
    const bool bare = isOmitted(command, 1);
    if (modem.settings.textMode || !n || (*n == ACKNOWLEDGE && !bare)) { return badParameter(); }
    if (bare) { return acknowledgeBy(modem, *n); }
    const auto length = numberAt(command, 1, 1, TPDU_OCTETS_MAX);
    if (!length) { return badParameter(); }
    if (!isAcknowledgementExpected(modem)) { return cmsError(CMS_NOTHING_TO_ACKNOWLEDGE); }
    Reply reply;
    reply.onData = [n = *n, length = *length](Modem &m, std::string_view text) {
        const auto tpdu = octetsFromHex(text);
        const bool good = tpdu && tpdu->size() == length && isDeliverReport(*tpdu, n == REFUSE);
        return good ? acknowledgeBy(m, n) : wrongEntry(m);
    };
    return reply;
}

Reply showAcknowledgements(Modem &modem, const Command &command) {
    return modem.settings.textMode ? done() : shown(command, "(0-2)");
}

// clang-format off
constexpr std::array SEND_ROWS{
    CommandRow{.name = "+CMGS", .family = Family::message, .arguments = 2, .takesData = true, .needsSim = true,
               .set = send},
    CommandRow{.name = "+CMGW", .family = Family::message, .arguments = 3, .takesData = true, .needsSim = true,
               .execute = write, .set = write},
    CommandRow{.name = "+CMSS", .family = Family::message, .arguments = 3, .needsSim = true, .set = sendStored},
    CommandRow{.name = "+CNMA", .family = Family::message, .arguments = 2,
               .execute = acknowledgeMessage, .set = acknowledgeWith, .test = showAcknowledgements},
};
// clang-format on

} // namespace

std::span<const CommandRow> sendCommands() { return SEND_ROWS; }

} // namespace smspb::simmodem
