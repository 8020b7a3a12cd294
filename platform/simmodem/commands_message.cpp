// The commands of TS 27.005 in PDU mode. Text mode can be chosen, but messages are not shown or
// taken in it.
#include "command_table.h"

#include "charset.h"
#include "network.h"
#include "text.h"

#include <array>

namespace smspb::simmodem {
namespace {

// TS 27.005, 3.5.4, <delflag>.
enum : unsigned {
    DELETE_INDEX = 0,
    DELETE_READ = 1,
    DELETE_SENT = 2,
    DELETE_UNSENT = 3,
    DELETE_ALL = 4
};
constexpr unsigned LIST_ALL = 4; // +CMGL <stat>

std::string joined(std::initializer_list<std::string> values) {
    std::string text;
    for (const std::string &value : values) { text += (text.empty() ? "" : ",") + value; }
    return text;
}

std::string counts(const Storage &storage) {
    return joined({std::to_string(storage.used()), std::to_string(storage.size())});
}

Reply readFormat(Modem &modem, const Command &command) {
    return shown(command, modem.settings.textMode ? "1" : "0");
}

Reply setFormat(Modem &modem, const Command &command) {
    const auto format = numberAt(command, 0, 0, 1, 0);
    if (!format) { return badParameter(); }
    modem.settings.textMode = *format == 1;
    return done();
}

Reply readService(Modem & /*modem*/, const Command &command) { return shown(command, "0,1,1,1"); }

Reply setService(Modem & /*modem*/, const Command &command) {
    return numberAt(command, 0, 0, 0) ? shown(command, "1,1,1") : badParameter();
}

Reply readStorages(Modem &modem, const Command &command) {
    std::string values;
    for (const Use use : {USE_READ, USE_WRITE, USE_RECEIVE}) {
        const Storage &storage = modem.storage(use);
        values += (values.empty() ? "" : ",") + joined({inQuotes(storage.name()), counts(storage)});
    }
    return shown(command, values);
}

// A storage that is left out stays.
Reply setStorages(Modem &modem, const Command &command) {
    auto selected = modem.selected;
    for (std::size_t use = 0; use < command.arguments.size(); use++) {
        if (isOmitted(command, use)) { continue; }
        const Storage *const storage = modem.findStorage(stringAt(command, use).value_or(""));
        if (storage == nullptr) { return badParameter(); }
        selected.at(use) = static_cast<std::size_t>(storage - modem.storages.data());
    }
    modem.selected = selected;
    receivePending(modem);
    return shown(command, joined({counts(modem.storage(USE_READ)), counts(modem.storage(USE_WRITE)),
                                  counts(modem.storage(USE_RECEIVE))}));
}

std::string numberToTerminal(const Settings &settings, std::string_view number) {
    return toTerminal(settings.charset, std::u16string(number.begin(), number.end()));
}

std::optional<std::string> numberFromTerminal(const Settings &settings, std::string_view text) {
    const auto units = fromTerminal(settings.charset, text);
    if (!units) { return std::nullopt; }
    std::string number;
    for (const char16_t unit : *units) { number += unit <= '~' ? static_cast<char>(unit) : '?'; }
    return number;
}

// A number in the arguments `index` and its type of address behind it; nothing for what is none.
std::optional<std::string> dialledNumber(const Modem &modem, const Command &command,
                                         std::size_t index) {
    static constexpr unsigned TYPE_INTERNATIONAL = 145, TYPE_MAX = 255, TYPE_MIN = 128;
    const auto text = stringAt(command, index);
    auto number = text ? numberFromTerminal(modem.settings, *text) : std::nullopt;
    if (!number || !isNumber(*number)) { return std::nullopt; }
    const auto type = numberAt(command, index + 1, TYPE_MIN, TYPE_MAX, TYPE_MIN);
    if (!type) { return std::nullopt; }
    if (*type == TYPE_INTERNATIONAL && !number->starts_with('+')) { number->insert(0, "+"); }
    return number;
}

Reply readServiceCentre(Modem &modem, const Command &command) {
    const bool international = modem.serviceCentre.starts_with('+');
    return shown(command, joined({inQuotes(numberToTerminal(modem.settings, modem.serviceCentre)),
                                  international ? "145" : "129"}));
}

// An empty string takes the address away.
Reply setServiceCentre(Modem &modem, const Command &command) {
    const bool empty = stringAt(command, 0) == "";
    const auto number = empty ? std::string() : dialledNumber(modem, command, 0);
    if (!number) { return badParameter(); }
    modem.serviceCentre = *number;
    return done();
}

Reply readIndications(Modem &modem, const Command &command) {
    const IndicationSettings &now = modem.settings.indications;
    return shown(command,
                 joined({std::to_string(now.mode), std::to_string(now.mt), std::to_string(now.bm),
                         std::to_string(now.ds), std::to_string(now.bfr)}));
}

// A value that is left out stays.
Reply setIndications(Modem &modem, const Command &command) {
    const IndicationSettings &now = modem.settings.indications;
    const auto mode = numberAt(command, 0, 0, 3, now.mode);
    const auto mt = numberAt(command, 1, 0, 3, now.mt);
    const auto bm = numberAt(command, 2, 0, 3, now.bm);
    const auto ds = numberAt(command, 3, 0, 2, now.ds);
    const auto bfr = numberAt(command, 4, 0, 1, now.bfr);
    const bool storesPages = bm && *bm % 2 == 1; // 1 and 3, and there is no storage for them
    if (!mode || !mt || !bm || storesPages || !ds || !bfr) { return badParameter(); }
    modem.settings.indications = {*mode, *mt, *bm, *ds, *bfr};
    releaseHeld(modem);
    receivePending(modem);
    return done();
}

Reply readBroadcasts(Modem &modem, const Command &command) {
    const BroadcastSettings &now = modem.settings.broadcasts;
    return shown(command, joined({std::to_string(now.mode), inQuotes(now.identifiers),
                                  inQuotes(now.codings)}));
}

Reply setBroadcasts(Modem &modem, const Command &command) {
    const auto mode = numberAt(command, 0, 0, 1, 0);
    const bool strings = (isOmitted(command, 1) || command.arguments[1].isString) &&
                         (isOmitted(command, 2) || command.arguments[2].isString);
    if (!mode || !strings) { return badParameter(); }
    modem.settings.broadcasts = {*mode, stringAt(command, 1).value_or(""),
                                 stringAt(command, 2).value_or("")};
    return done();
}

// 3.5.6: whether the link to the network is kept between messages, which makes no difference here.
Reply readMoreMessages(Modem &modem, const Command &command) {
    return shown(command, std::to_string(modem.settings.moreMessages));
}

Reply setMoreMessages(Modem &modem, const Command &command) {
    const auto keeps = numberAt(command, 0, 0, 2, 0);
    if (!keeps) { return badParameter(); }
    modem.settings.moreMessages = *keeps;
    return done();
}

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
    if (!submit) { return cmsError(CMS_INVALID_PDU_PARAMETER); }
    return sendSubmit(modem, command, *submit, pdu.serviceCentre);
}

// The text behind the prompt of +CMGS and +CMGW, of which the command gave the length.
using PduHandler = std::function<Reply(Modem &, const Pdu &)>;

Reply askForPdu(Modem &modem, const Command &command, PduHandler handler) {
    if (modem.settings.textMode) { return cmsError(CMS_NOT_SUPPORTED); }
    const auto length = numberAt(command, 0, 1, TPDU_OCTETS_MAX);
    if (!length) { return badParameter(); }
    Reply reply;
    reply.onData = [length = *length, handler = std::move(handler)](Modem &m,
                                                                    std::string_view text) {
        if (!m.simPresent) { return cmsError(CMS_NO_SIM); } // taken out at the prompt
        const auto pdu = pduFromText(text, length);
        return pdu ? handler(m, *pdu) : cmsError(CMS_INVALID_PDU_PARAMETER);
    };
    return reply;
}

Reply send(Modem &modem, const Command &command) {
    return askForPdu(modem, command,
                     [command](Modem &m, const Pdu &pdu) { return sendPdu(m, command, pdu); });
}

bool fitsStatus(MessageStatus status, OctetView tpdu) {
    if (status == MessageStatus::unsent || status == MessageStatus::sent) {
        return isTpdu(TpduType::submit, tpdu);
    }
    return isTpdu(TpduType::deliver, tpdu) || isTpdu(TpduType::statusReport, tpdu);
}

Reply storePdu(Modem &modem, const Command &command, MessageStatus status, const Pdu &pdu) {
    if (!fitsStatus(status, pdu.tpdu)) { return cmsError(CMS_INVALID_PDU_PARAMETER); }
    const auto index = modem.storage(USE_WRITE).add({status, pdu});
    return index ? shown(command, std::to_string(*index)) : cmsError(CMS_MEMORY_FULL);
}

Reply write(Modem &modem, const Command &command) {
    const auto status = numberAt(command, 1, 0, 3, static_cast<unsigned>(MessageStatus::unsent));
    if (!status) { return badParameter(); }
    return askForPdu(modem, command,
                     [command, as = static_cast<MessageStatus>(*status)](Modem &m, const Pdu &pdu) {
                         return storePdu(m, command, as, pdu);
                     });
}

// The part that +CMGR and +CMGL share: status, no name, length, PDU. An unread message is read now.
std::string showMessage(StoredMessage &message) {
    const auto status = static_cast<unsigned>(message.status);
    if (message.status == MessageStatus::unread) { message.status = MessageStatus::read; }
    return joined({std::to_string(status), "", std::to_string(message.pdu.tpdu.size())}) + "\n" +
           message.pdu.text();
}

StoredMessage *messageAt(Storage &storage, const Command &command) {
    const auto index = numberAt(command, 0, 0, std::numeric_limits<unsigned>::max());
    return index ? storage.find(*index) : nullptr;
}

Reply read(Modem &modem, const Command &command) {
    if (modem.settings.textMode) { return cmsError(CMS_NOT_SUPPORTED); }
    StoredMessage *const message = messageAt(modem.storage(USE_READ), command);
    if (message == nullptr) { return cmsError(CMS_INVALID_INDEX); }
    return shown(command, showMessage(*message));
}

Reply list(Modem &modem, const Command &command) {
    if (modem.settings.textMode) { return cmsError(CMS_NOT_SUPPORTED); }
    const auto wanted = numberAt(command, 0, 0, LIST_ALL, 0);
    if (!wanted) { return badParameter(); }
    Storage &storage = modem.storage(USE_READ);
    std::string lines;
    for (std::size_t index = 1; index <= storage.size(); index++) {
        StoredMessage *const message = storage.find(index);
        if (message == nullptr) { continue; }
        if (*wanted != LIST_ALL && *wanted != static_cast<unsigned>(message->status)) { continue; }
        lines += (lines.empty() ? "" : "\n") + command.name + ": " + std::to_string(index) + "," +
                 showMessage(*message);
    }
    return done(std::move(lines));
}

bool isDeletedBy(unsigned flag, MessageStatus status) {
    switch (status) {
    case MessageStatus::unread: return flag >= DELETE_ALL;
    case MessageStatus::read: return flag >= DELETE_READ;
    case MessageStatus::sent: return flag >= DELETE_SENT;
    case MessageStatus::unsent: return flag >= DELETE_UNSENT;
    }
    return false;
}

void removeBy(Storage &storage, unsigned flag) {
    for (std::size_t index = 1; index <= storage.size(); index++) {
        const StoredMessage *const message = storage.find(index);
        if (message != nullptr && isDeletedBy(flag, message->status)) { storage.remove(index); }
    }
}

// Deleting an empty place succeeds; one that does not exist is refused. A flag makes the index
// moot.
Reply remove(Modem &modem, const Command &command) {
    const auto flag = numberAt(command, 1, DELETE_INDEX, DELETE_ALL, DELETE_INDEX);
    if (!flag) { return badParameter(); }
    Storage &storage = modem.storage(USE_READ);
    if (*flag == DELETE_INDEX) {
        const auto index = numberAt(command, 0, 0, std::numeric_limits<unsigned>::max());
        if (!index || !storage.hasPlace(*index)) { return cmsError(CMS_INVALID_INDEX); }
        storage.remove(*index);
    } else {
        removeBy(storage, *flag);
    }
    receivePending(modem);
    return done();
}

Reply showDeletable(Modem &modem, const Command &command) {
    Storage &storage = modem.storage(USE_READ);
    std::string indexes;
    for (std::size_t index = 1; index <= storage.size(); index++) {
        if (storage.find(index) == nullptr) { continue; }
        indexes += (indexes.empty() ? "" : ",") + std::to_string(index);
    }
    return shown(command, "(" + indexes + "),(0-4)");
}

// Only a SUBMIT can be sent; it counts as sent from then on. A number given here replaces its own.
Reply sendStored(Modem &modem, const Command &command) {
    StoredMessage *const message = messageAt(modem.storage(USE_WRITE), command);
    if (message == nullptr) { return cmsError(CMS_INVALID_INDEX); }
    auto submit = submitFromTpdu(message->pdu.tpdu);
    if (!submit) { return cmsError(CMS_INVALID_PDU_PARAMETER); }
    if (!isOmitted(command, 1)) {
        const auto number = dialledNumber(modem, command, 1);
        if (!number) { return badParameter(); }
        submit->destination = addressField(*number);
    }
    Reply reply = sendSubmit(modem, command, *submit, message->pdu.serviceCentre);
    if (reply.result.kind == Result::Kind::ok) { message->status = MessageStatus::sent; }
    return reply;
}

// clang-format off
constexpr std::array MESSAGE_ROWS{
    CommandRow{.name = "+CSMS", .family = Family::message, .arguments = 1, .ranges = "(0)",
               .read = readService, .set = setService},
    CommandRow{.name = "+CMGF", .family = Family::message, .arguments = 1, .ranges = "(0,1)",
               .read = readFormat, .set = setFormat},
    CommandRow{.name = "+CPMS", .family = Family::message, .arguments = USE_COUNT, .needsSim = true,
               .ranges = R"(("ME","SM"),("ME","SM"),("ME","SM"))",
               .read = readStorages, .set = setStorages},
    CommandRow{.name = "+CSCA", .family = Family::message, .arguments = 2, .needsSim = true,
               .read = readServiceCentre, .set = setServiceCentre},
    CommandRow{.name = "+CNMI", .family = Family::message, .arguments = 5,
               .ranges = "(0-3),(0-3),(0,2),(0-2),(0,1)",
               .read = readIndications, .set = setIndications},
    CommandRow{.name = "+CSCB", .family = Family::message, .arguments = 3, .ranges = "(0,1)",
               .read = readBroadcasts, .set = setBroadcasts},
    CommandRow{.name = "+CMMS", .family = Family::message, .arguments = 1, .ranges = "(0-2)",
               .read = readMoreMessages, .set = setMoreMessages},
    CommandRow{.name = "+CMGS", .family = Family::message, .arguments = 1, .takesData = true, .needsSim = true,
               .set = send},
    CommandRow{.name = "+CMGW", .family = Family::message, .arguments = 2, .takesData = true, .needsSim = true,
               .set = write},
    CommandRow{.name = "+CMGR", .family = Family::message, .arguments = 1, .needsSim = true, .set = read},
    CommandRow{.name = "+CMGL", .family = Family::message, .arguments = 1, .needsSim = true, .ranges = "(0-4)",
               .execute = list, .set = list},
    CommandRow{.name = "+CMGD", .family = Family::message, .arguments = 2, .needsSim = true, .set = remove,
               .test = showDeletable},
    CommandRow{.name = "+CMSS", .family = Family::message, .arguments = 3, .needsSim = true, .set = sendStored},
};
// clang-format on

} // namespace

std::span<const CommandRow> messageCommands() { return MESSAGE_ROWS; }

} // namespace smspb::simmodem
