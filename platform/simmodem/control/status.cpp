#include "platform/simmodem/control/status.h"

#include "platform/simmodem/state/settings_state.h"

namespace smspb::simmodem {
namespace {

using Json = nlohmann::json;

// Storages and phonebooks.
template <typename Places> Json usage(const Places &places) {
    Json json = Json::object();
    for (const auto &each : places) {
        json[each.name()] = {
            {"used", each.used()},
            {"size", each.size()}
        };
    }
    return json;
}

Json clockOf(const Modem &modem) {
    Json json{
        {           "now", isoTime(modem.clock.wallTime())},
        {        "driven",          modem.clock.isDriven()},
        {         "ahead",                modem.clockAhead},
        {"timers_running",     modem.clock.timersRunning()}
    };
    if (const auto next = modem.clock.nextEnd()) {
        json["next_timer_ms"] =
            std::chrono::ceil<std::chrono::milliseconds>(*next - modem.clock.now()).count();
    }
    return json;
}

Json faultsOf(const Modem &modem) {
    Json json = Json::array();
    for (const Faults::Count &each : modem.faults.counts()) {
        json.push_back({
            {"fault", each.source},
            {  "met",    each.met},
            {"acted",  each.acted}
        });
    }
    return json;
}

Json selectedOf(const Modem &modem) {
    Json names = Json::array();
    for (const std::size_t named : modem.selected) { names.push_back(STORAGE_NAMES.at(named)); }
    return names;
}

} // namespace

nlohmann::json statusOf(const Modem &modem) {
    return {
        {        "number",                     modem.number},
        {"service_centre",              modem.serviceCentre},
        {      "storages",            usage(modem.storages)},
        {      "selected",                selectedOf(modem)},
        {    "phonebooks",          usage(modem.phonebooks)},
        {      "settings",     Json(toJson(modem.settings))},
        {         "clock",                   clockOf(modem)},
        {        "faults",                  faultsOf(modem)},
        {    "registered",             modem.isRegistered()},
        { "functionality",              modem.functionality},
        {           "sim",                 modem.simPresent},
        {       "pending",             modem.pending.size()},
        {"unacknowledged", modem.unacknowledged.has_value()},
        {          "held",                modem.held.size()},
        {   "unsolicited",         modem.unsolicited.size()},
        {     "ussd_menu",                  modem.ussd.path},
        {"last_reference",              modem.lastReference}
    };
}

} // namespace smspb::simmodem
