#include "tools/failure.h"

#include <algorithm>
#include <array>
#include <charconv>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/text.h"

namespace smspb::cli {

namespace {

struct Words {
    u32 number;
    std::string_view text;
};

// clang-format off
// TS 27.005, 3.2.5; below 128 the causes of TS 24.011, E.2, below 256 those of TS 23.040, 9.2.3.22.
constexpr Words MESSAGE_ERRORS[] = {
    {1, "unassigned number"},
    {8, "operator determined barring"},
    {10, "call barred"},
    {17, "network failure"},
    {21, "short message transfer rejected"},
    {22, "memory capacity exceeded"},
    {27, "destination out of service"},
    {28, "unidentified subscriber"},
    {29, "facility rejected"},
    {30, "unknown subscriber"},
    {38, "network out of order"},
    {41, "temporary failure"},
    {42, "congestion"},
    {47, "resources unavailable"},
    {50, "requested facility not subscribed"},
    {69, "requested facility not implemented"},
    {81, "invalid short message reference"},
    {95, "semantically incorrect message"},
    {96, "invalid mandatory information"},
    {97, "message type non-existent"},
    {98, "message not compatible with the protocol state"},
    {99, "information element non-existent"},
    {111, "protocol error"},
    {127, "interworking"},
    {128, "telematic interworking not supported"},
    {129, "short message type 0 not supported"},
    {130, "cannot replace the short message"},
    {143, "unspecified TP-PID error"},
    {144, "data coding scheme not supported"},
    {145, "message class not supported"},
    {159, "unspecified TP-DCS error"},
    {175, "unspecified TP-command error"},
    {176, "TPDU not supported"},
    {192, "service centre busy"},
    {193, "no service centre subscription"},
    {194, "service centre system failure"},
    {195, "invalid short message address"},
    {196, "destination barred"},
    {197, "duplicate short message rejected"},
    {198, "validity period format not supported"},
    {199, "validity period not supported"},
    {208, "SIM message storage full"},
    {209, "no message storage in the SIM"},
    {210, "error in the modem"},
    {211, "memory capacity exceeded"},
    {212, "SIM application toolkit busy"},
    {213, "SIM data download error"},
    {255, "unspecified error"},
    {300, "modem failure"},
    {301, "message service reserved by the modem"},
    {302, "operation not allowed"},
    {303, "operation not supported"},
    {304, "invalid PDU mode parameter"},
    {305, "invalid text mode parameter"},
    {310, "SIM not inserted"},
    {311, "SIM PIN required"},
    {312, "phone-to-SIM PIN required"},
    {313, "SIM failure"},
    {314, "SIM busy"},
    {315, "wrong SIM"},
    {316, "SIM PUK required"},
    {317, "SIM PIN2 required"},
    {318, "SIM PUK2 required"},
    {320, "memory failure"},
    {321, "invalid memory index"},
    {322, "memory full"},
    {330, "service centre address unknown"},
    {331, "no network service"},
    {332, "network time-out"},
    {340, "no acknowledgement expected"},
    {500, "unknown error"},
};

// TS 27.007, 9.2.
constexpr Words EQUIPMENT_ERRORS[] = {
    {0, "phone failure"},
    {1, "no connection to the phone"},
    {2, "phone adaptor link reserved"},
    {3, "operation not allowed"},
    {4, "operation not supported"},
    {5, "phone-to-SIM PIN required"},
    {10, "SIM not inserted"},
    {11, "SIM PIN required"},
    {12, "SIM PUK required"},
    {13, "SIM failure"},
    {14, "SIM busy"},
    {15, "wrong SIM"},
    {16, "incorrect password"},
    {17, "SIM PIN2 required"},
    {18, "SIM PUK2 required"},
    {20, "memory full"},
    {21, "invalid index"},
    {22, "not found"},
    {23, "memory failure"},
    {24, "text string too long"},
    {25, "invalid characters in the text string"},
    {26, "dial string too long"},
    {27, "invalid characters in the dial string"},
    {30, "no network service"},
    {31, "network time-out"},
    {32, "network not allowed, emergency calls only"},
    {50, "incorrect parameters"},
    {100, "unknown error"},
};

struct NextStep {
    u32 messageNumber, equipmentNumber; // NONE: there is no such number
    std::string_view text;
};
constexpr u32 NONE = 0xFFFFFFFF;
constexpr NextStep NEXT_STEPS[] = {
    {310, 10, "put a SIM card into the modem"},
    {311, 11, "unlock the SIM: smspb at 'AT+CPIN=\"1234\"' with its PIN"},
    {316, 12, "unlock the SIM with its PUK: smspb at 'AT+CPIN=\"PUK\",\"NEWPIN\"'"},
    {314, 14, "wait a moment and try again"},
    {317, 17, "unlock the SIM with its PIN2"},
    {208, NONE, "make room: smspb inbox, then smspb delete INDEX"},
    {322, 20, "make room: smspb inbox, then smspb delete INDEX"},
    {321, 21, "smspb inbox shows which indexes there are"},
    {330, NONE, "set the service centre: smspb smsc NUMBER"},
    {331, 30, "see whether the modem is registered: smspb at 'AT+CREG?'"},
    {332, 31, "try again; smspb at 'AT+CSQ' tells the signal's strength"},
    {28, NONE, "the SIM is not known to the network: ask its operator"},
    {50, NONE, "the SIM may not send messages: ask its operator"},
    {38, NONE, "try again later: the network is out of order"},
    {41, NONE, "try again in a moment"},
    {42, NONE, "try again in a moment"},
};
// clang-format on

std::string wordsFor(const ModemError &error) {
    const auto find = [&error](const auto &table) -> std::string {
        const auto *const row =
            std::find_if(std::begin(table), std::end(table),
                         [&error](const Words &words) { return words.number == error.number; });
        return row != std::end(table) ? std::string(row->text) : std::string();
    };
    return error.isMessageService ? find(MESSAGE_ERRORS) : find(EQUIPMENT_ERRORS);
}

std::string_view lastLine(std::string_view reply) {
    const std::string_view text = trimmed(reply);
    return text.substr(text.find_last_of("\r\n") + 1); // npos + 1 is 0
}

// "+CMS ERROR: 322", or in words when the modem is set to verbose errors.
ModemError numberedError(std::string_view line, std::string_view key, bool isMessageService) {
    ModemError error{std::string(line), std::nullopt, isMessageService, ""};
    const std::string_view rest = trimmed(line.substr(key.size()));
    u32 number = 0;
    const auto [end, problem] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (problem == std::errc() && end == rest.data() + rest.size()) {
        error.number = number;
        error.words = wordsFor(error);
    }
    return error;
}

} // namespace

std::optional<ModemError> errorOf(std::string_view reply) {
    static constexpr std::string_view MESSAGE_KEY = "+CMS ERROR:", EQUIPMENT_KEY = "+CME ERROR:";
    static constexpr std::array<std::string_view, 7> OTHERS = {
        "ERROR",        "NO CARRIER",         "BUSY", "NO ANSWER", "NO DIALTONE",
        "NO DIAL TONE", "COMMAND NOT SUPPORT"};
    const std::string_view line = lastLine(reply);
    if (line.starts_with(MESSAGE_KEY)) { return numberedError(line, MESSAGE_KEY, true); }
    if (line.starts_with(EQUIPMENT_KEY)) { return numberedError(line, EQUIPMENT_KEY, false); }
    const bool isError = std::any_of(OTHERS.begin(), OTHERS.end(),
                                     [line](std::string_view key) { return line == key; });
    if (!isError) { return std::nullopt; }
    return ModemError{std::string(line), std::nullopt, false, ""};
}

std::string hintFor(const ModemError &error) {
    for (const NextStep &step : NEXT_STEPS) {
        const u32 number = error.isMessageService ? step.messageNumber : step.equipmentNumber;
        if (error.number == number) { return std::string(step.text); }
    }
    return "";
}

std::string describe(const ModemError &error) {
    const std::string line = printable(error.line, LineEnds::MARKED);
    return error.words.empty() ? line : fmt::format("{} ({})", error.words, line);
}

nlohmann::ordered_json toJson(const Failure &failure) {
    nlohmann::ordered_json error = {
        {  "message",                 failure.what()},
        {"exit_code", static_cast<int>(failure.exit)}
    };
    if (failure.status) { error["status"] = *failure.status; }
    if (failure.modem) { error["modem_error"] = failure.modem->line; }
    if (failure.modem && failure.modem->number) {
        error["modem_error_number"] = *failure.modem->number;
    }
    for (const auto &number : failure.completed) {
        error["completed"].push_back(number ? nlohmann::ordered_json(*number) : nullptr);
    }
    if (!failure.hint.empty()) { error["hint"] = failure.hint; }
    return error;
}

} // namespace smspb::cli
