// Entries go to and from the library as items: a contact record holds its name in 50 octets of
// UTF-8, which 18 Chinese characters exceed, and knows no character outside the basic plane.
#include "tools/phonebook.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fmt/format.h>

#include "atlib/CPbSIM.h"
#include "tools/modem.h"
#include "tools/progress.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr u32 CONTACT_INDEX_MAX = 500; // what SM_ReadItem reaches
constexpr std::size_t NAME_UNITS_MAX = PB_NAME_OCTETS / 2;

// SM_ReadItem tells each line on standard output; that belongs to our result.
class SilentOutput {
public:
    SilentOutput() {
        std::fflush(stdout);
        saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const bool isClosed = saved_ < 0 && errno == EBADF;
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if ((saved_ < 0 && !isClosed) || nothing < 0) { fail(nothing); }
        if (nothing != STDOUT_FILENO) {
            dup2(nothing, STDOUT_FILENO);
            close(nothing);
        }
    }
    ~SilentOutput() {
        std::fflush(stdout);
        if (saved_ < 0) {
            close(STDOUT_FILENO);
            return;
        }
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    SilentOutput(const SilentOutput &) = delete;
    SilentOutput &operator=(const SilentOutput &) = delete;

private:
    [[noreturn]] void fail(int nothing) {
        const std::string why = std::strerror(errno);
        if (saved_ >= 0) { close(saved_); }
        if (nothing >= 0) { close(nothing); }
        throw Failure(Exit::UNEXPECTED, "cannot silence the library: " + why);
    }

    int saved_ = -1;
};

// What stands between the first two quotes.
std::string firstQuoted(const std::string &reply) {
    const std::size_t open = reply.find('"');
    const std::size_t close = open == reply.npos ? open : reply.find('"', open + 1);
    return close == reply.npos ? "" : reply.substr(open + 1, close - open - 1);
}

// The next step where the one for messages does not fit.
void adaptHint(Failure &failure) {
    static constexpr u32 MEMORY_FULL = 20, TEXT_TOO_LONG = 24;
    if (!failure.modem || failure.modem->isMessageService) { return; }
    if (failure.modem->number == MEMORY_FULL) {
        failure.hint = "make room: smspb contacts list, then smspb contacts delete INDEX";
    } else if (meansEmpty(*failure.modem)) {
        failure.hint = "smspb contacts list shows which there are";
    } else if (failure.modem->number == TEXT_TOO_LONG) {
        failure.hint = "shorten the name; the SIM takes fewer characters beyond the GSM alphabet";
    }
}

Failure failureFor(u32 status, std::string_view what, const std::string &command) {
    Failure failure = status == PB_NO_REPLY ? noAnswer(what) : explained(status, what, command);
    // The second try may have met a silence that the first one did not.
    if (failure.status) { failure.status = failure.exit == Exit::NO_ANSWER ? PB_NO_REPLY : status; }
    adaptHint(failure);
    return failure;
}

std::string nameOf(const sm_item_t &item) {
    std::u16string units;
    for (std::size_t i = 0; i < NAME_UNITS_MAX; i++) {
        const auto unit = static_cast<char16_t>(item.name[2 * i] << 8 | item.name[2 * i + 1]);
        if (unit == 0) { break; }
        units += unit;
    }
    return toUtf8(units);
}

// The field of an overlong number goes on with the line behind it.
std::string numberOf(const sm_item_t &item) {
    const std::string_view field(item.number, strnlen(item.number, sizeof(item.number)));
    std::string number(field.substr(0, field.find('"')));
    if (item.international == 1 && !number.starts_with('+')) { number.insert(0, "+"); }
    return number;
}

sm_item_t itemOf(const Contact &contact) {
    sm_item_t item = {};
    item.index = static_cast<i32>(contact.index);
    const std::u16string units = toUnits(toCharacters(contact.name));
    for (std::size_t i = 0; i < std::min(units.size(), NAME_UNITS_MAX); i++) {
        item.name[2 * i] = static_cast<u8>(units[i] >> 8);
        item.name[2 * i + 1] = static_cast<u8>(units[i] & 0xFF);
    }
    contact.number.copy(item.number, sizeof(item.number) - 1);
    return item;
}

// As SM_WriteItem writes it.
std::string writeCommand(const sm_item_t &item) {
    char digits[PB_NAME_OCTETS * 2 + 1];
    Ucs2StringToHexString(item.name, digits, PB_NAME_OCTETS, 0);
    return fmt::format("AT+CPBW={},\"{}\",{},\"{}\"", item.index, item.number,
                       item.number[0] == '+' ? 145 : 129, digits);
}

Failure silence(std::string_view what) {
    Failure failure = noAnswer(what, "; it may be done all the same");
    if (failure.status) { failure.status = PB_NO_REPLY; }
    return failure;
}

// A command that was refused is run again to learn why, which does no harm here; a modem that was
// busy may take it now.
void insist(u32 status, const std::string &command, const std::string &what) {
    if (status == PB_OK) { return; }
    if (status == PB_NO_REPLY) { throw silence(what); }
    const auto error = errorOf(run(command, what));
    if (!error) { return; }
    Failure failure = refusal(*error, what);
    failure.status = status;
    adaptHint(failure);
    throw failure;
}

void eraseOne(u32 index) {
    const u32 status = SM_DeleteItem(static_cast<i32>(index));
    try {
        insist(status, fmt::format("AT+CPBW={}", index), fmt::format("delete contact {}", index));
    } catch (const Failure &failure) {
        // Nothing to delete is as good as deleted.
        if (!failure.modem || !meansEmpty(*failure.modem)) { throw; }
    }
}

// What was done stays done, whatever becomes of this.
void giveBack(const std::string &command) {
    if (isModemSilent()) { return; }
    try {
        run(command, "give the modem's settings back");
    } catch (const Failure &) {}
}

} // namespace

KeptPhonebook::KeptPhonebook() {
    requireManager();
    ask("AT", "reach the modem");
    // +CPBS: "SM",3,250
    const std::string reply = run("AT+CPBS?", "ask for the phonebook");
    if (!errorOf(reply)) { former_ = firstQuoted(reply); }
}

KeptPhonebook::~KeptPhonebook() {
    if (!former_.empty()) { giveBack(fmt::format("AT+CPBS=\"{}\"", former_)); }
}

NumberedErrors::NumberedErrors() {
    static constexpr std::string_view KEY = "+CMEE: ", NUMBERED = "1";
    static constexpr const char *WHAT = "have the modem number its errors";
    const std::string reply = run("AT+CMEE?", WHAT);
    const std::size_t start = reply.find(KEY);
    if (start == reply.npos || reply.substr(start + KEY.size(), 1) == NUMBERED) { return; }
    former_ = reply.substr(start + KEY.size(), 1);
    run("AT+CMEE=1", WHAT);
}

NumberedErrors::~NumberedErrors() {
    if (!former_.empty()) { giveBack("AT+CMEE=" + former_); }
}

Interruption::~Interruption() {
    watch_.setBack();
    if (signal_ != 0) { std::raise(signal_); }
}

void Interruption::check() {
    for (int came = watch_.take(); came != 0; came = watch_.take()) {
        struct sigaction action = {};
        sigaction(came, nullptr, &action);
        // As SIGHUP under nohup.
        const bool isIgnored = came == SIGCHLD || action.sa_handler == SIG_IGN;
        if (!isIgnored) { signal_ = came; }
    }
    if (signal_ != 0) { throw Failure(Exit::UNEXPECTED, "interrupted"); }
}

Phonebook::Phonebook(const std::string &storage)
    : storage_(storage == "me" ? PB_STORAGE_ME : PB_STORAGE_SM),
      name_(storage == "me" ? "ME" : "SM") {
    const u32 charsetStatus = SM_SetCodeDec("UCS2");
    if (charsetStatus != PB_OK) {
        throw failureFor(charsetStatus, "set the character set UCS2", "AT+CSCS=\"UCS2\"");
    }
    measure();
    sm_record_info_t record = {};
    const u32 status = SM_GetRecordInfo(&record, storage_);
    if (status != PB_OK) { throw failureFor(status, "read the phonebook's limits", "AT+CPBR=?"); }
    limits_.where = storage_ == PB_STORAGE_ME ? "this modem" : "this SIM";
    limits_.nameUnits =
        std::min(static_cast<std::size_t>(std::max(record.name_length, 0)), NAME_UNITS_MAX);
    limits_.numberCharacters = static_cast<std::size_t>(record.number_length);
}

void Phonebook::measure() {
    sm_storage_info_t info = {};
    const u32 status = SM_GetStorageInfo(&info, storage_);
    if (status == PB_STORAGE_REFUSED) {
        throw failureFor(status, fmt::format("select the phonebook {}", name_),
                         fmt::format("AT+CPBS=\"{}\"", name_));
    }
    if (status != PB_OK) { throw failureFor(status, "read the phonebook's fill", "AT+CPBS?"); }
    used_ = static_cast<u32>(std::max(info.used, 0));
    total_ = static_cast<u32>(std::max(info.total, 0));
}

u32 Phonebook::lastIndex() const { return std::min(total_, CONTACT_INDEX_MAX); }

void Phonebook::checkIndex(u32 index) const {
    if (index >= 1 && index <= lastIndex()) { return; }
    throw Failure(Exit::USAGE, fmt::format("there is no location {} in {}", index, name_),
                  fmt::format("give one from 1 to {}", lastIndex()));
}

std::optional<Contact> Phonebook::read(u32 index) {
    interruption_.check();
    sm_item_t item = {};
    const u32 status = [&] {
        const SilentOutput silent;
        return SM_ReadItem(static_cast<i32>(index), &item);
    }();
    if (status == PB_OK) { return Contact{index, nameOf(item), numberOf(item)}; }
    if (status == PB_NOT_FOUND) { return std::nullopt; }
    Failure failure =
        failureFor(status, fmt::format("read contact {}", index), fmt::format("AT+CPBR={}", index));
    if (failure.modem && meansEmpty(*failure.modem)) { return std::nullopt; }
    throw failure;
}

bool Phonebook::holds(u32 index) {
    try {
        return read(index).has_value();
    } catch (const Failure &failure) {
        if (failure.exit != Exit::BAD_REPLY) { throw; }
        return true;
    }
}

Phonebook::Entries Phonebook::readAll(const Console &console) {
    Entries entries;
    Progress progress(console, "reading contacts", used_);
    for (u32 index = 1; index <= lastIndex(); index++) {
        const std::size_t found = entries.contacts.size() + entries.unreadable.size();
        if (found >= used_) { break; }
        progress.step(found);
        try {
            if (auto contact = read(index)) { entries.contacts.push_back(*std::move(contact)); }
        } catch (const Failure &failure) {
            if (failure.exit != Exit::BAD_REPLY) { throw; }
            entries.unreadable.push_back(index);
        }
    }
    return entries;
}

void Phonebook::write(const Contact &contact) {
    interruption_.check();
    const sm_item_t item = itemOf(contact);
    i32 written = 0;
    const u32 status = SM_WriteItem(item.index, &item, &written);
    insist(status, writeCommand(item),
           fmt::format("write {} at {}", nameFor(contact), contact.index));
}

void Phonebook::erase(std::span<const u32> indexes) {
    interruption_.check();
    const std::vector<i32> locations(indexes.begin(), indexes.end());
    const u32 status = SM_DeleteMultiItems(locations.data(), static_cast<i32>(locations.size()));
    if (status == PB_OK) { return; }
    if (status == PB_NO_REPLY) { throw silence("delete contacts"); }
    // Some of them may be gone, and the modem does not say which one it refused.
    std::vector<std::optional<u32>> erased;
    for (const u32 index : indexes) {
        try {
            eraseOne(index);
        } catch (Failure &failure) {
            failure.completed = erased;
            throw;
        }
        erased.emplace_back(index);
    }
}

} // namespace smspb::cli
