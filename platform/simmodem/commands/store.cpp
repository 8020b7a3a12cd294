// The commands of TS 27.005 that choose a storage and read, list and delete what it holds.
#include "platform/simmodem/commands/command_table.h"

#include "platform/simmodem/commands/message_show.h"
#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/network/network.h"
#include "platform/simmodem/text.h"

#include <algorithm>
#include <array>
#include <limits>

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

// +CMGL <stat>, beyond the four of messages.
constexpr unsigned LIST_ALL = 4;
constexpr std::string_view LIST_ALL_NAME = "ALL";

std::string counts(const StorageView &storage) {
    return joined({std::to_string(storage.used()), std::to_string(storage.size())});
}

Reply readStorages(Modem &modem, const Command &command) {
    std::string values;
    for (const Use use : {USE_READ, USE_WRITE, USE_RECEIVE}) {
        const StorageView storage = modem.storage(use);
        values += (values.empty() ? "" : ",") + joined({inQuotes(storage.name()), counts(storage)});
    }
    return shown(command, values);
}

// A storage that is left out stays.
Reply setStorages(Modem &modem, const Command &command) {
    auto selected = modem.selected;
    for (std::size_t use = 0; use < command.arguments.size(); use++) {
        if (isOmitted(command, use)) { continue; }
        const auto name = std::find(STORAGE_NAMES.begin(), STORAGE_NAMES.end(),
                                    stringAt(command, use).value_or(""));
        if (name == STORAGE_NAMES.end()) { return badParameter(); }
        selected.at(use) = static_cast<std::size_t>(name - STORAGE_NAMES.begin());
    }
    modem.selected = selected;
    receivePending(modem);
    return shown(command, joined({counts(modem.storage(USE_READ)), counts(modem.storage(USE_WRITE)),
                                  counts(modem.storage(USE_RECEIVE))}));
}

// What was unread has been read from now on.
void markRead(StoredMessage &message) {
    if (message.status == MessageStatus::unread) { message.status = MessageStatus::read; }
}

Reply read(Modem &modem, const Command &command) {
    const auto index = numberAt(command, 0, 0, std::numeric_limits<unsigned>::max());
    StoredMessage *const message = index ? modem.storage(USE_READ).find(*index) : nullptr;
    if (message == nullptr) { return cmsError(CMS_INVALID_INDEX); }
    Reply reply = shown(command, shownMessage(modem, *message));
    markRead(*message);
    return reply;
}

// <stat>: a number in PDU mode, a name in text mode; the unread ones when it is left out.
std::optional<unsigned> wantedStatus(const Modem &modem, const Command &command) {
    if (isOmitted(command, 0)) { return 0; }
    if (!modem.settings.textMode) { return numberAt(command, 0, 0, LIST_ALL); }
    const auto name = stringAt(command, 0);
    if (name == LIST_ALL_NAME) { return LIST_ALL; }
    const auto status = name ? statusFromName(*name) : std::nullopt;
    return status ? std::optional(static_cast<unsigned>(*status)) : std::nullopt;
}

Reply list(Modem &modem, const Command &command) {
    const auto wanted = wantedStatus(modem, command);
    if (!wanted) { return badParameter(); }
    const StorageView storage = modem.storage(USE_READ);
    std::string lines;
    for (const std::size_t index : storage.usedIndexes()) {
        StoredMessage &message = *storage.find(index);
        if (*wanted != LIST_ALL && *wanted != static_cast<unsigned>(message.status)) { continue; }
        lines += (lines.empty() ? "" : "\n") + command.name + ": " + std::to_string(index) + "," +
                 listedMessage(modem, message);
        markRead(message);
    }
    return done(std::move(lines));
}

Reply showListable(Modem &modem, const Command &command) {
    if (!modem.settings.textMode) { return shown(command, "(0-4)"); }
    std::string names;
    for (unsigned status = 0; status < LIST_ALL; status++) {
        names += inQuotes(statusName(static_cast<MessageStatus>(status))) + ",";
    }
    return shown(command, "(" + names + inQuotes(LIST_ALL_NAME) + ")");
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

// Deleting an empty place succeeds; one that does not exist is refused. A flag makes the index
// moot.
Reply remove(Modem &modem, const Command &command) {
    const auto flag = numberAt(command, 1, DELETE_INDEX, DELETE_ALL, DELETE_INDEX);
    if (!flag) { return badParameter(); }
    const StorageView storage = modem.storage(USE_READ);
    if (*flag == DELETE_INDEX) {
        const auto index = numberAt(command, 0, 0, std::numeric_limits<unsigned>::max());
        if (!index || !storage.hasPlace(*index)) { return cmsError(CMS_INVALID_INDEX); }
        storage.remove(*index);
    }
    for (const std::size_t index : storage.usedIndexes()) {
        if (isDeletedBy(*flag, storage.find(index)->status)) { storage.remove(index); }
    }
    receivePending(modem);
    return done();
}

Reply showDeletable(Modem &modem, const Command &command) {
    std::string indexes;
    for (const std::size_t index : modem.storage(USE_READ).usedIndexes()) {
        indexes += (indexes.empty() ? "" : ",") + std::to_string(index);
    }
    return shown(command, "(" + indexes + "),(0-4)");
}

// clang-format off
constexpr std::array STORE_ROWS{
    CommandRow{.name = "+CPMS", .family = Family::message, .arguments = USE_COUNT, .needsSim = true,
               .ranges = R"(("ME","SM","MT"),("ME","SM","MT"),("ME","SM","MT"))",
               .read = readStorages, .set = setStorages},
    CommandRow{.name = "+CMGR", .family = Family::message, .arguments = 1, .needsSim = true, .set = read},
    CommandRow{.name = "+CMGL", .family = Family::message, .arguments = 1, .needsSim = true,
               .execute = list, .set = list, .test = showListable},
    CommandRow{.name = "+CMGD", .family = Family::message, .arguments = 2, .needsSim = true, .set = remove,
               .test = showDeletable},
};
// clang-format on

} // namespace

std::span<const CommandRow> storeCommands() { return STORE_ROWS; }

} // namespace smspb::simmodem
