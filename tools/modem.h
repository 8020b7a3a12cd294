// Talking to the modem: a command and its judged reply, a failed status of the library put into
// words, the storages and which of them is selected.
#ifndef SMSPB_TOOLS_MODEM_H
#define SMSPB_TOOLS_MODEM_H

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "comm/smspb_types.h"
#include "tools/failure.h"

namespace smspb::cli {

// Where the messages of a command lie, as the library numbers them (SMS_STORAGE_...).
std::string_view storageName(u32 storage);

// Throws a Failure when nobody serves the modem. Every command that needs one begins with it.
void requireManager();

inline constexpr u32 COMMAND_WAIT_MS = 3000;

// Runs an AT command (without "\r") and gives its reply, whatever it says; `what` names the deed
// for the failure of the channel: "read message 3".
std::string run(const std::string &command, std::string_view what, u32 waitMs = COMMAND_WAIT_MS);

// The same, and an error of the modem is a Failure too.
std::string ask(const std::string &command, std::string_view what);

// The lines of a reply that are not empty.
std::vector<std::string> linesOf(std::string_view reply);

// Whether the error is what modems call an empty location: TS 27.005, 3.2.5: invalid memory index;
// TS 27.007, 9.2: invalid index, not found.
bool meansEmpty(const ModemError &error);

// The Failure for a modem's error.
Failure refusal(const ModemError &error, std::string_view what);

// The Failure for no reply at all: no manager, or a silent modem. `remark` follows the message.
Failure noAnswer(std::string_view what, std::string_view remark = "");

// Whether the last command got no reply: nothing is worth waiting for then.
bool isModemSilent();

// The Failure for a status of the library that says only that the deed failed. `command`, which
// must do no harm when it runs twice, is run again to learn the modem's own words.
Failure explained(u32 status, std::string_view what, const std::string &command);

// What AT+CPMS? tells: the storages for reading, writing and receiving. Nothing when the modem does
// not say.
struct StorageUse {
    std::string reading, writing, receiving;
};
std::optional<StorageUse> storageUse();

// Messages held, and the room for them.
struct Counts {
    unsigned used = 0, total = 0;
};

// Selects a storage for reading and deleting, and gives the modem its former choice back: other
// processes read from whatever is selected.
class SelectedStorage {
public:
    explicit SelectedStorage(u32 storage);
    // One by the name that the modem gives it, such as "SR" for status reports.
    explicit SelectedStorage(std::string_view name);
    ~SelectedStorage();
    SelectedStorage(const SelectedStorage &) = delete;
    SelectedStorage &operator=(const SelectedStorage &) = delete;

    Counts counts() const { return counts_; }

private:
    void keepFormer();

    std::string former_;
    std::string selected_;
    Counts counts_;
};

// Gives the modem's character set its former choice back, whatever is done to it meanwhile.
class KeptCharset {
public:
    KeptCharset();
    ~KeptCharset();
    KeptCharset(const KeptCharset &) = delete;
    KeptCharset &operator=(const KeptCharset &) = delete;

private:
    std::string former_;
};

// Whether a modem manager serves right now. Never throws.
bool hasManager() noexcept;

} // namespace smspb::cli

#endif
