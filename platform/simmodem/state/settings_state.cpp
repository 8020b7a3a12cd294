#include "platform/simmodem/state/settings_state.h"

#include "platform/simmodem/modem/charset.h"
#include "platform/simmodem/text.h"

#include <algorithm>

namespace smspb::simmodem {
namespace {

constexpr std::size_t TEXT_OCTETS_MAX = 2048; // as long as a command line
constexpr unsigned OCTET_MAX = 255, CHARACTER_MAX = 127;

// Calls `visit` with the name, the member and its highest value. A new member does not compile
// before it has a name here.
template <typename AnySettings, typename Visit>
void visitNumbers(AnySettings &settings, const Visit &visit) {
    auto &[echo, quiet, verbose, registers, errorReports, textMode, showsTextDetails,
           textParameters, acknowledges, charset, registrationReports, packetReports,
           operatorFormat, moreMessages, indications, broadcasts, ussdPresentation, kept,
           callerNumber, extendedRing, showsWaitingCalls] = settings;
    visit("echo", echo, 1);
    visit("quiet", quiet, 1);
    visit("verbose", verbose, 1);
    visit("error_reports", errorReports, 2);
    visit("text_mode", textMode, 1);
    visit("text_details", showsTextDetails, 1);
    visit("acknowledges", acknowledges, 1);
    visit("registration_reports", registrationReports, 2);
    visit("packet_reports", packetReports, 2);
    visit("operator_format", operatorFormat, 2);
    visit("more_messages", moreMessages, 2);
    visit("ussd_presentation", ussdPresentation, 1);
    visit("caller_number", callerNumber, 1);
    visit("extended_ring", extendedRing, 1);
    visit("waiting_calls", showsWaitingCalls, 1);
}

OrderedJson registersToJson(const Settings &settings) {
    OrderedJson json = OrderedJson::object();
    for (const auto &[number, value] : settings.registers) { json[std::to_string(number)] = value; }
    return json;
}

void readRegisters(const JsonReader &json, Settings &settings) {
    static constexpr unsigned LAST_CHARACTER = 5; // S3, S4 and S5 are characters
    json.eachMember([&](const std::string &name, const JsonReader &value) {
        const auto number = parseNumber(name);
        const auto found = number ? settings.registers.find(*number) : settings.registers.end();
        if (found == settings.registers.end()) { value.refuse("is no register of this modem"); }
        const unsigned max = *number != 0 && *number <= LAST_CHARACTER ? CHARACTER_MAX : OCTET_MAX;
        found->second = static_cast<unsigned char>(value.number(0, max));
    });
}

OrderedJson indicationsToJson(const IndicationSettings &settings) {
    return OrderedJson::array({settings.mode, settings.mt, settings.bm, settings.ds, settings.bfr});
}

void readIndications(const JsonReader &json, IndicationSettings &settings) {
    const std::array<unsigned *, 5> members = {&settings.mode, &settings.mt, &settings.bm,
                                               &settings.ds, &settings.bfr};
    static constexpr std::array<unsigned, 5> HIGHEST = {3, 3, 3, 2, 1};
    if (json.elements() != members.size()) { json.refuse("has five numbers"); }
    json.eachElement([&](std::size_t i, const JsonReader &value) {
        *members.at(i) = static_cast<unsigned>(value.number(0, HIGHEST.at(i)));
    });
}

// Of commands that keep two values at most.
void readKept(const JsonReader &json, Settings &settings) {
    static constexpr std::size_t VALUES = 2;
    json.eachMember([&](const std::string &name, const JsonReader &values) {
        if (!name.starts_with('+')) { values.refuse("is no command"); }
        if (values.elements() != VALUES) { values.refuse("has two numbers"); }
        std::vector<unsigned> kept;
        values.eachElement([&](std::size_t, const JsonReader &value) {
            kept.push_back(static_cast<unsigned>(value.number(0, UINT32_MAX)));
        });
        settings.kept[name] = std::move(kept);
    });
}

struct ReadNumber {
    const JsonReader &json;

    void operator()(const char *name, bool &member, unsigned) const {
        json.ifHas(name, [&](const JsonReader &value) { member = value.flag(); });
    }
    void operator()(const char *name, unsigned &member, unsigned highest) const {
        json.ifHas(name, [&](const JsonReader &value) {
            member = static_cast<unsigned>(value.number(0, highest));
        });
    }
    void operator()(const char *name, ErrorReports &member, unsigned highest) const {
        json.ifHas(name, [&](const JsonReader &value) {
            member = static_cast<ErrorReports>(value.number(0, highest));
        });
    }
};

} // namespace

OrderedJson toJson(const TextParameters &parameters) {
    return {
        {   "first",           parameters.first},
        {"validity", toHex(parameters.validity)},
        {     "pid",             parameters.pid},
        {     "dcs",             parameters.dcs}
    };
}

OrderedJson toJson(const BroadcastSettings &broadcasts) {
    return {
        {       "mode",        broadcasts.mode},
        {"identifiers", broadcasts.identifiers},
        {    "codings",     broadcasts.codings}
    };
}

OrderedJson toJson(const Settings &settings) {
    OrderedJson json = OrderedJson::object();
    visitNumbers(settings,
                 [&json](const char *name, const auto &member, unsigned) { json[name] = member; });
    json["registers"] = registersToJson(settings);
    json["charset"] = settings.charset;
    json["indications"] = indicationsToJson(settings.indications);
    json["text_parameters"] = toJson(settings.textParameters);
    json["broadcasts"] = toJson(settings.broadcasts);
    json["kept"] = settings.kept.empty() ? OrderedJson::object() : OrderedJson(settings.kept);
    return json;
}

void read(const JsonReader &json, TextParameters &parameters) {
    static constexpr std::size_t LONG_VALIDITY = 7; // TS 23.040, 9.2.3.12
    json.expectNames({"first", "validity", "pid", "dcs"});
    const auto readOctet = [&json](const char *name, std::uint8_t &octet) {
        json.ifHas(name, [&](const JsonReader &value) {
            octet = static_cast<std::uint8_t>(value.number(0, OCTET_MAX));
        });
    };
    readOctet("first", parameters.first);
    readOctet("pid", parameters.pid);
    readOctet("dcs", parameters.dcs);
    json.ifHas("validity", [&](const JsonReader &value) {
        const auto octets = octetsFromHex(value.text(2 * LONG_VALIDITY));
        if (!octets || (octets->size() != 1 && octets->size() != LONG_VALIDITY)) {
            value.refuse("is one octet in hexadecimal, or seven");
        }
        parameters.validity = *octets;
    });
    static constexpr unsigned FORMAT = 0x18, RELATIVE = 0x10; // TP-VPF
    const bool isLong = (parameters.first & FORMAT) != 0 && (parameters.first & FORMAT) != RELATIVE;
    if (isLong != (parameters.validity.size() == LONG_VALIDITY)) {
        json.refuse("has a validity that is not as \"first\" says");
    }
}

void read(const JsonReader &json, BroadcastSettings &broadcasts) {
    json.expectNames({"mode", "identifiers", "codings"});
    json.ifHas("mode", [&](const JsonReader &value) {
        broadcasts.mode = static_cast<unsigned>(value.number(0, 1));
    });
    json.ifHas("identifiers", [&](const JsonReader &value) {
        broadcasts.identifiers = value.text(TEXT_OCTETS_MAX);
    });
    json.ifHas("codings",
               [&](const JsonReader &value) { broadcasts.codings = value.text(TEXT_OCTETS_MAX); });
}

void read(const JsonReader &json, Settings &settings) {
    const OrderedJson known = toJson(settings);
    json.eachMember([&](const std::string &name, const JsonReader &value) {
        if (!known.contains(name)) { value.refuse("is no setting"); }
    });
    visitNumbers(settings, ReadNumber{json});
    json.ifHas("registers", [&](const JsonReader &value) { readRegisters(value, settings); });
    json.ifHas("charset", [&](const JsonReader &value) {
        const std::string name = value.text(TEXT_OCTETS_MAX);
        if (std::find(CHARSETS.begin(), CHARSETS.end(), name) == CHARSETS.end()) {
            value.refuse("is no character set");
        }
        settings.charset = name;
    });
    json.ifHas("indications",
               [&](const JsonReader &value) { readIndications(value, settings.indications); });
    json.ifHas("text_parameters",
               [&](const JsonReader &value) { read(value, settings.textParameters); });
    json.ifHas("broadcasts", [&](const JsonReader &value) { read(value, settings.broadcasts); });
    json.ifHas("kept", [&](const JsonReader &value) { readKept(value, settings); });
}

} // namespace smspb::simmodem
