// status: what the modem says of itself, its SIM and the network, and the manager of itself. A
// modem that does not know a command leaves its part unknown; only one that does not answer at all
// is a failure, and the manager's part is shown all the same.
#include <algorithm>
#include <array>
#include <charconv>

#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/manager_status.h"
#include "tools/modem.h"

namespace smspb::cli {

namespace {

constexpr const char *UNKNOWN = "unknown";

// What a command tells, without its name where the modem repeats that; empty when it is refused.
std::string told(const std::string &name, const std::string &form = "") {
    const std::string reply = run("AT" + name + form, "ask for the modem's status");
    if (errorOf(reply)) { return ""; }
    for (const std::string &line : linesOf(reply)) {
        if (line == "OK") { continue; }
        const bool repeats = line.starts_with(name + ":");
        const std::string text = repeats ? line.substr(name.size() + 1) : line;
        return text.substr(std::min(text.find_first_not_of(' '), text.size()));
    }
    return "";
}

// The fields between commas that are in no string, without the quotes.
std::vector<std::string> fieldsOf(const std::string &values) {
    std::vector<std::string> fields(1);
    bool inString = false;
    for (const char c : values) {
        if (c == '"') {
            inString = !inString;
        } else if (c == ',' && !inString) {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

std::string fieldAt(const std::string &values, std::size_t index) {
    const std::vector<std::string> fields = fieldsOf(values);
    return index < fields.size() ? fields[index] : "";
}

std::optional<int> numberIn(const std::string &text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) { return std::nullopt; }
    return value;
}

// TS 27.007, 8.5: 0 is -113 dBm or less, 31 is -51 dBm or more, 99 is not known.
std::optional<int> signalDbm(const std::string &quality) {
    constexpr int LEAST_DBM = -113, STEP_DBM = 2, STRONGEST = 31;
    const auto rssi = numberIn(fieldAt(quality, 0));
    if (!rssi || *rssi < 0 || *rssi > STRONGEST) { return std::nullopt; }
    return LEAST_DBM + STEP_DBM * *rssi;
}

// TS 27.007, 7.2: <n>,<stat>[,...].
std::string registration(const std::string &values) {
    static constexpr std::array<const char *, 6> STATES = {"not registered", "registered, home",
                                                           "searching",      "denied",
                                                           UNKNOWN,          "registered, roaming"};
    const auto state = numberIn(fieldAt(values, 1));
    const bool isKnown = state && *state >= 0 && static_cast<std::size_t>(*state) < STATES.size();
    return isKnown ? STATES.at(static_cast<std::size_t>(*state)) : UNKNOWN;
}

std::string orUnknown(const std::string &text) { return text.empty() ? UNKNOWN : text; }

// +CPMS tells three storages, the same one more than once as a rule.
Json storagesOf(const std::string &values) {
    const std::vector<std::string> fields = fieldsOf(values);
    Json storages = Json::array();
    for (std::size_t i = 0; i + 2 < fields.size(); i += 3) {
        const Json storage = {
            {"storage",                           fields[i]},
            {   "used", numberIn(fields[i + 1]).value_or(0)},
            {  "total", numberIn(fields[i + 2]).value_or(0)}
        };
        if (std::find(storages.begin(), storages.end(), storage) == storages.end()) {
            storages.push_back(storage);
        }
    }
    return storages;
}

std::string inWords(const Json &storages) {
    std::vector<std::string> words;
    for (const Json &storage : storages) {
        words.push_back(fmt::format("{} {} of {}", storage["storage"].get<std::string>(),
                                    storage["used"].get<int>(), storage["total"].get<int>()));
    }
    return orUnknown(fmt::format("{}", fmt::join(words, ", ")));
}

struct ModemStatus {
    Fields fields;
    Json json;
};

ModemStatus modemStatus() {
    ask("AT", "reach the modem");
    const std::string maker = told("+CGMI"), model = told("+CGMM"), revision = told("+CGMR");
    const std::string imei = told("+CGSN"), sim = told("+CPIN", "?");
    const std::string state = registration(told("+CREG", "?"));
    const std::string network = fieldAt(told("+COPS", "?"), 2);
    const std::optional<int> signal = signalDbm(told("+CSQ"));
    const Json storages = storagesOf(told("+CPMS", "?"));

    Fields fields;
    fields.add("modem",
               maker.empty() || model.empty() ? orUnknown(maker + model) : maker + " " + model);
    fields.add("revision", orUnknown(revision));
    fields.add("IMEI", orUnknown(imei));
    fields.add("SIM", sim.empty() ? "not there or not readable" : sim);
    fields.add("network", network.empty() ? state : fmt::format("{}, {}", network, state));
    fields.add("signal", signal ? fmt::format("{} dBm", *signal) : UNKNOWN);
    fields.add("storages", inWords(storages));
    Json json = {
        {"manufacturer",                                  maker},
        {       "model",                                  model},
        {    "revision",                               revision},
        {        "imei",                                   imei},
        {         "sim",                                    sim},
        {"registration",                                  state},
        {    "operator",                                network},
        {  "signal_dbm", signal ? Json(*signal) : Json(nullptr)},
        {    "storages",                               storages}
    };
    return {std::move(fields), std::move(json)};
}

// A document of another shape than ours is shown as JSON alone.
std::optional<Fields> managerFields(const std::optional<Json> &manager) {
    if (!manager) { return std::nullopt; }
    try {
        return describeManager(*manager);
    } catch (const Json::exception &) { return std::nullopt; }
}

} // namespace

Exit showStatus(const Console &console) {
    requireManager();
    const std::optional<Json> manager = managerStatus();
    ModemStatus status;
    std::optional<Failure> failure;
    try {
        status = modemStatus();
    } catch (const Failure &silence) { failure = silence; }
    if (const auto fields = managerFields(manager)) {
        status.fields.append(*fields);
    } else {
        status.fields.add("manager", "tells nothing of itself");
    }
    status.json["manager"] = manager ? *manager : Json(nullptr);
    if (failure) { status.json["error"] = toJson(*failure); }
    console.show(status.fields);
    console.document(status.json);
    if (failure) { console.complain(*failure); }
    return failure ? failure->exit : Exit::OK;
}

} // namespace smspb::cli
