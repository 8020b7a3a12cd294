#include "tools/modem.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "platform/ipc/ipc_server.h"
#include "tools/malloced.h"

namespace smspb::cli {

namespace {

constexpr u32 MODEM_MANAGER = 1; // its IPC destination
constexpr std::chrono::milliseconds LETTING_GO{50};
constexpr const char *START_MANAGER =
    "start smspb-modemd --device TTY, or use --simulate to try without a modem";

bool modemIsSilent = false;

std::optional<std::string> converse(const std::string &command, u32 waitMs) {
    const std::string line = command + "\r";
    const Malloced<char> reply(
        writeComm(line.c_str(), waitMs, 4, "OK", "ERROR", "+CMS ERROR:", "+CME ERROR:"));
    modemIsSilent = reply == nullptr;
    if (!reply) { return std::nullopt; }
    return std::string(reply.get());
}

bool isManagerThere() {
    try {
        return ipc::isServed(MODEM_MANAGER);
    } catch (const std::exception &error) {
        throw Failure(Exit::NO_MANAGER,
                      fmt::format("no modem manager can be reached: {}", error.what()),
                      START_MANAGER);
    }
}

// The texts between double quotes, in order.
std::vector<std::string> quotedTexts(std::string_view text) {
    std::vector<std::string> found;
    for (std::size_t open = text.find('"'); open != text.npos;) {
        const std::size_t close = text.find('"', open + 1);
        if (close == text.npos) { break; }
        found.emplace_back(text.substr(open + 1, close - open - 1));
        open = text.find('"', close + 1);
    }
    return found;
}

} // namespace

std::string_view storageName(u32 storage) { return storage == SMS_STORAGE_ME ? "ME" : "SM"; }

void requireManager() {
    if (isManagerThere()) { return; }
    throw Failure(Exit::NO_MANAGER, "no modem manager is running", START_MANAGER);
}

std::string run(const std::string &command, std::string_view what, u32 waitMs) {
    std::optional<std::string> reply = converse(command, waitMs);
    if (!reply) { throw noAnswer(what); }
    return *std::move(reply);
}

std::string ask(const std::string &command, std::string_view what) {
    std::string reply = run(command, what);
    if (const auto error = errorOf(reply)) { throw refusal(*error, what); }
    return reply;
}

std::vector<std::string> linesOf(std::string_view reply) {
    std::vector<std::string> lines;
    while (!reply.empty()) {
        const std::size_t end = std::min(reply.find_first_of("\r\n"), reply.size());
        if (end != 0) { lines.emplace_back(reply.substr(0, end)); }
        reply.remove_prefix(std::min(end + 1, reply.size()));
    }
    return lines;
}

bool meansEmpty(const ModemError &error) {
    static constexpr u32 CMS_INVALID_INDEX = 321, CME_INVALID_INDEX = 21, CME_NOT_FOUND = 22;
    if (error.isMessageService) { return error.number == CMS_INVALID_INDEX; }
    return error.number == CME_INVALID_INDEX || error.number == CME_NOT_FOUND;
}

Failure refusal(const ModemError &error, std::string_view what) {
    Failure failure(Exit::REFUSED,
                    fmt::format("the modem refused to {}: {}", what, describe(error)),
                    hintFor(error));
    failure.modem = error;
    return failure;
}

Failure noAnswer(std::string_view what, std::string_view remark) {
    modemIsSilent = true;
    // A manager that was killed drops our request a moment before it lets go of its socket.
    if (isManagerThere()) { std::this_thread::sleep_for(LETTING_GO); }
    if (!isManagerThere()) {
        return {Exit::NO_MANAGER,
                fmt::format("cannot {}: the modem manager is gone{}", what, remark), START_MANAGER};
    }
    Failure failure(
        Exit::NO_ANSWER, fmt::format("cannot {}: the modem does not answer{}", what, remark),
        "see that it is plugged in; smspb-modemd says on its standard error what ails it");
    failure.status = SMS_NO_REPLY;
    return failure;
}

bool isModemSilent() { return modemIsSilent; }

Failure explained(u32 status, std::string_view what, const std::string &command) {
    const std::optional<std::string> reply = converse(command, COMMAND_WAIT_MS);
    if (!reply) { return noAnswer(what); }
    if (const auto error = errorOf(*reply)) {
        Failure failure = refusal(*error, what);
        failure.status = status;
        return failure;
    }
    Failure failure(Exit::BAD_REPLY,
                    fmt::format("cannot {}: the modem's reply makes no sense", what),
                    "see what it says: smspb at '" + command + "'");
    failure.status = status;
    return failure;
}

std::optional<StorageUse> storageUse() {
    // +CPMS: "SM",3,50,"SM",3,50,"SM",3,50
    const std::optional<std::string> reply = converse("AT+CPMS?", COMMAND_WAIT_MS);
    if (!reply || errorOf(*reply)) { return std::nullopt; }
    const std::vector<std::string> names = quotedTexts(*reply);
    if (names.size() != 3) { return std::nullopt; }
    return StorageUse{names[0], names[1], names[2]};
}

SelectedStorage::SelectedStorage(u32 storage) : selected_(storageName(storage)) {
    const std::string what = fmt::format("select the storage {}", selected_);
    keepFormer();
    u16 counts[2] = {};
    const u32 status = setReadDeleteOpMemStore(storage, counts);
    if (status != SMS_OK) {
        throw explained(status, what, fmt::format("AT+CPMS=\"{}\"", selected_));
    }
    counts_ = {counts[0], counts[1]};
}

SelectedStorage::SelectedStorage(std::string_view name) : selected_(name) {
    keepFormer();
    ask(fmt::format("AT+CPMS=\"{}\"", selected_), fmt::format("select the storage {}", selected_));
}

void SelectedStorage::keepFormer() {
    // The library reads messages as PDUs; a modem may have been left in text mode.
    ask("AT+CMGF=0", fmt::format("select the storage {}", selected_));
    if (const auto use = storageUse()) { former_ = use->reading; }
}

SelectedStorage::~SelectedStorage() {
    if (former_.empty() || former_ == selected_ || modemIsSilent) { return; }
    converse(fmt::format("AT+CPMS=\"{}\"", former_), COMMAND_WAIT_MS);
}

KeptCharset::KeptCharset() {
    // +CSCS: "IRA"
    const std::optional<std::string> reply = converse("AT+CSCS?", COMMAND_WAIT_MS);
    if (!reply || errorOf(*reply)) { return; }
    const std::vector<std::string> names = quotedTexts(*reply);
    if (names.size() == 1) { former_ = names.front(); }
}

KeptCharset::~KeptCharset() {
    if (former_.empty() || modemIsSilent) { return; }
    const std::optional<std::string> reply = converse("AT+CSCS?", COMMAND_WAIT_MS);
    if (!reply || quotedTexts(*reply) == std::vector{former_}) { return; }
    converse(fmt::format("AT+CSCS=\"{}\"", former_), COMMAND_WAIT_MS);
}

bool hasManager() noexcept {
    try {
        return ipc::isServed(MODEM_MANAGER);
    } catch (const std::exception &) { return false; }
}

} // namespace smspb::cli
