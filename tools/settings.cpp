// storage, smsc, init, at.
#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

#include "atlib/CSMS.h"
#include "tools/commands.h"
#include "tools/compose.h"
#include "tools/modem.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr std::size_t AT_CHARACTERS_MAX = 927; // what fits a request record with its "\r"
constexpr std::size_t REPLY_CHARACTERS_MAX = 1024;

std::vector<std::string_view> usesOf(std::string_view name, const std::optional<StorageUse> &use) {
    std::vector<std::string_view> uses;
    if (!use) { return uses; }
    if (use->reading == name) { uses.emplace_back("read"); }
    if (use->writing == name) { uses.emplace_back("save"); }
    if (use->receiving == name) { uses.emplace_back("receive"); }
    return uses;
}

std::vector<u32> wantedStorages(const std::string &option) {
    if (option.empty()) { return {SMS_STORAGE_SM, SMS_STORAGE_ME}; }
    return {storageCode(option)};
}

// The library reads and sets the address as plain text; under "UCS2" the modem gives it in
// hexadecimal, which does not fit.
class PlainCharset {
public:
    PlainCharset() {
        u32 charset = CHARSET_UNKNOWN;
        getEcodingFormat(&charset);
        wasUcs2_ = charset == CHARSET_UCS2;
        if (wasUcs2_) { setEcodingFormat(CHARSET_IRA); }
    }
    ~PlainCharset() {
        if (wasUcs2_) { setEcodingFormat(CHARSET_UCS2); }
    }
    PlainCharset(const PlainCharset &) = delete;
    PlainCharset &operator=(const PlainCharset &) = delete;

private:
    bool wasUcs2_ = false;
};

std::string readServiceCentre() {
    const PlainCharset plain;
    u16 units[SMS_NUMBER_UNITS + 1] = {};
    const u32 status = readCSCA(units);
    if (status != SMS_OK) { throw explained(status, "read the service centre", "AT+CSCA?"); }
    return toUtf8(std::u16string(units, units + sms_wstrlen(units)));
}

void setServiceCentre(const std::string &text) {
    const Number number = parseNumber(text, "NUMBER");
    const u32 status = SetCSCA(number.units);
    if (status != SMS_OK) {
        throw explained(status, "set the service centre",
                        fmt::format("AT+CSCA=\"{}\"", number.text));
    }
}

// The command in upper case, without blanks and without what stands in quotes.
std::string essence(const std::string &command) {
    std::string kept;
    bool inString = false;
    for (const char c : command) {
        if (c == '"') { inString = !inString; }
        if (inString || c == '"' || c == ' ') { continue; }
        kept += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return kept;
}

void checkCommand(const std::string &command) {
    const auto refuse = [&command](const std::string &why, const std::string &hint) {
        throw Failure(Exit::USAGE, fmt::format("COMMAND {} {}", command, why), hint);
    };
    const std::string kept = essence(command);
    if (!kept.starts_with("AT")) { refuse("does not begin with AT", "for example AT+CSQ"); }
    const std::u32string characters = toCharacters(command);
    const auto odd = std::find_if(characters.begin(), characters.end(),
                                  [](char32_t c) { return c < 0x20 || c > 0x7E; });
    if (odd != characters.end()) {
        refuse(fmt::format("holds {} at character {}", codePointName(*odd),
                           odd - characters.begin() + 1),
               "an AT command is one line of ASCII; its end is added");
    }
    if (command.size() > AT_CHARACTERS_MAX) {
        refuse(fmt::format("has {} characters", command.size()),
               fmt::format("at most {} fit", AT_CHARACTERS_MAX));
    }
    if (kept.find("+CMGS=") != kept.npos || kept.find("+CMGW=") != kept.npos) {
        refuse("would wait for a message behind its prompt", "use smspb send or smspb save");
    }
}

// A reply is octets; what is not UTF-8 becomes visible.
Json toJson(const std::vector<std::string> &lines) {
    Json json = Json::array();
    for (const std::string &line : lines) {
        json.push_back(findInvalidUtf8(line) ? printable(line, LineEnds::MARKED) : line);
    }
    return json;
}

} // namespace

u32 storageCode(const std::string &option) {
    return option == "me" ? SMS_STORAGE_ME : SMS_STORAGE_SM;
}

void showStorage(const Console &console, const StorageOptions &options) {
    requireManager();
    ask("AT", "reach the modem");
    const auto use = storageUse();
    const std::vector<u32> wanted = wantedStorages(options.storage);
    Table table{
        {"STORAGE", "USED", "TOTAL", "FREE", "FOR"},
        {        }
    };
    Json json = {
        {"storages", Json::array()}
    };
    std::optional<Failure> refused;
    for (const u32 storage : wanted) {
        const std::string name(storageName(storage));
        try {
            const Counts counts = SelectedStorage(storage).counts();
            const unsigned free = counts.total - std::min(counts.used, counts.total);
            const auto uses = usesOf(name, use);
            table.rows.push_back({name, std::to_string(counts.used), std::to_string(counts.total),
                                  std::to_string(free), fmt::format("{}", fmt::join(uses, ", "))});
            json["storages"].push_back({
                {"storage",         name},
                {   "used",  counts.used},
                {  "total", counts.total},
                {   "free",         free},
                {    "for",         uses}
            });
        } catch (const Failure &failure) {
            // A modem may lack one of the two.
            if (failure.exit != Exit::REFUSED) { throw; }
            refused = failure;
        }
    }
    if (refused && table.rows.empty()) { throw *refused; }
    if (refused) { console.note(refused->what()); }
    console.show(table);
    console.document(json);
}

void serviceCentre(const Console &console, const ServiceCentreOptions &options) {
    if (!options.number.empty()) { parseNumber(options.number, "NUMBER"); }
    requireManager();
    ask("AT", "reach the modem");
    if (!options.number.empty()) { setServiceCentre(options.number); }
    const std::string number = readServiceCentre();
    console.say(number.empty() ? "no service centre is set" : number);
    console.document({
        {"service_centre", number}
    });
}

void initialise(const Console &console) {
    requireManager();
    ask("AT", "reach the modem");
    const u32 status = InitSMS();
    if (status != SMS_OK) {
        // One of its two commands failed seven times.
        static constexpr const char *WHAT = "set up messaging";
        const Failure indications = explained(status, WHAT, "AT+CNMI=2,1,0,0,0");
        if (indications.modem) { throw indications; }
        throw explained(status, WHAT, "AT+CPMS=\"SM\",\"SM\",\"SM\"");
    }
    console.say("the modem announces new messages and keeps them on the SIM");
    console.document({
        {"initialised", true},
        {    "storage", "SM"}
    });
}

Exit at(const Console &console, const AtOptions &options) {
    checkCommand(options.command);
    requireManager();
    const std::string reply =
        run(options.command, "run " + options.command, options.waitSeconds * 1000);
    const std::vector<std::string> lines = linesOf(reply);
    const auto error = errorOf(reply);
    for (const std::string &line : lines) { console.say(line); }
    Json json = {
        {"command", options.command},
        {  "reply",   toJson(lines)},
        {     "ok",          !error}
    };
    if (error && error->number) { json["modem_error_number"] = *error->number; }
    if (error && !error->words.empty()) { json["modem_error_words"] = error->words; }
    console.document(json);
    if (reply.size() >= REPLY_CHARACTERS_MAX) {
        console.note(fmt::format("the reply was cut at {} characters", REPLY_CHARACTERS_MAX));
    }
    if (!error) { return Exit::OK; }
    console.complain(refusal(*error, "run " + options.command));
    return Exit::REFUSED;
}

} // namespace smspb::cli
