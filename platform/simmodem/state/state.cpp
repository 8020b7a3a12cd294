#include "platform/simmodem/state/state.h"

#include "platform/simmodem/state/json_reader.h"
#include "platform/simmodem/state/settings_state.h"
#include "platform/simmodem/text.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <set>
#include <stdexcept>

namespace smspb::simmodem {
namespace {

constexpr std::size_t STATE_OCTETS_MAX = 64UL * 1024 * 1024;
constexpr unsigned STATE_VERSION = 1;
constexpr const char *VERSION_NAME = "smspb_simmodem_state";
constexpr std::size_t SHORT_TEXT_MAX = 2048;
constexpr std::array<std::string_view, 4> STATUS_NAMES = {"unread", "read", "unsent", "sent"};

// ---- out ----

// Nothing for units that are no text, such as half a surrogate pair.
std::optional<std::string> utf8Of(std::u16string_view units) {
    const std::string hex = toHex(toUcs2Octets(units));
    std::string quoted = "\"";
    for (std::size_t i = 0; i < hex.size(); i += 4) { quoted += "\\u" + hex.substr(i, 4); }
    const OrderedJson text = OrderedJson::parse(quoted + "\"", nullptr, false);
    return text.is_discarded() ? std::nullopt : std::optional(text.get<std::string>());
}

OrderedJson toJson(const StoredMessage &message, std::size_t place) {
    return {
        { "place",                                                     place},
        {"status", STATUS_NAMES.at(static_cast<std::size_t>(message.status))},
        {   "pdu",                                        message.pdu.text()}
    };
}

OrderedJson toJson(const Storage &storage) {
    OrderedJson messages = OrderedJson::array();
    for (std::size_t place = 1; place <= storage.size(); place++) {
        const StoredMessage *const message = storage.find(place);
        if (message != nullptr) { messages.push_back(toJson(*message, place)); }
    }
    return messages;
}

OrderedJson toJson(const Contact &contact, std::size_t place) {
    OrderedJson json{
        { "place",          place},
        {"number", contact.number},
        {  "type",   contact.type}
    };
    const auto name = utf8Of(contact.name);
    json[name ? "name" : "name_ucs2"] = name ? *name : toHex(toUcs2Octets(contact.name));
    return json;
}

OrderedJson toJson(const Phonebook &book) {
    OrderedJson contacts = OrderedJson::array();
    for (std::size_t place = 1; place <= book.size(); place++) {
        const Contact *const contact = book.find(place);
        if (contact != nullptr) { contacts.push_back(toJson(*contact, place)); }
    }
    return contacts;
}

OrderedJson toJson(const Incoming &incoming) {
    OrderedJson json{
        {"kind", incoming.kind == Incoming::Kind::message ? "message" : "report"},
        { "pdu",                                             incoming.pdu.text()}
    };
    if (incoming.report) { json["report"] = incoming.report->text(); }
    return json;
}

// What was handed over and not acknowledged is with the network still.
OrderedJson pendingToJson(const Memory &memory) {
    OrderedJson pending = OrderedJson::array();
    if (memory.unacknowledged) { pending.push_back(toJson(*memory.unacknowledged)); }
    for (const Incoming &incoming : memory.pending) { pending.push_back(toJson(incoming)); }
    return pending;
}

OrderedJson toJson(const MessageProfile &profile) {
    return {
        { "service_centre",          profile.serviceCentre},
        {"text_parameters", toJson(profile.textParameters)},
        {     "broadcasts",     toJson(profile.broadcasts)}
    };
}

template <typename Values> OrderedJson listToJson(const Values &values) {
    OrderedJson list = OrderedJson::array();
    for (const auto &value : values) { list.push_back(toJson(value)); }
    return list;
}

template <typename Values> OrderedJson byNameToJson(const Values &values) {
    OrderedJson json = OrderedJson::object();
    for (const auto &value : values) { json[value.name()] = toJson(value); }
    return json;
}

OrderedJson contextsToJson(const Memory &memory) {
    OrderedJson list = OrderedJson::array();
    for (const PacketContext &context : memory.contexts) {
        list.push_back({
            {        "type",        context.type},
            {"access_point", context.accessPoint}
        });
    }
    return list;
}

OrderedJson selectedToJson(const Memory &memory) {
    OrderedJson names = OrderedJson::array();
    for (const std::size_t named : memory.selected) { names.push_back(STORAGE_NAMES.at(named)); }
    return names;
}

// ---- in ----

std::string numberText(const JsonReader &json, bool mayBeEmpty) {
    std::string text = json.text(SHORT_TEXT_MAX);
    if (!isNumber(text) && !(mayBeEmpty && text.empty())) {
        json.refuse("is a number: \"+\" and digits, 20 at most");
    }
    return text;
}

Pdu pduOf(const JsonReader &json) {
    static constexpr std::size_t PDU_DIGITS_MAX = 400;
    const std::string text = json.text(PDU_DIGITS_MAX);
    const auto octets = octetsFromHex(text);
    const std::size_t centre = octets && !octets->empty() ? 1U + octets->front() : 1;
    const auto pdu = octets && octets->size() > centre ? pduFromText(text, octets->size() - centre)
                                                       : std::nullopt;
    if (!pdu || !fieldsOf(pdu->tpdu)) {
        json.refuse("is no PDU in hexadecimal: a service centre and a whole TPDU");
    }
    return *pdu;
}

Pdu pduOf(const JsonReader &json, TpduType type) {
    Pdu pdu = pduOf(json);
    if (!isTpdu(type, pdu.tpdu)) {
        json.refuse(type == TpduType::deliver ? "is no DELIVER" : "is no STATUS-REPORT");
    }
    return pdu;
}

// The place of an element that none before it had.
std::size_t takePlace(const JsonReader &json, std::size_t size, std::set<std::size_t> &taken) {
    const JsonReader place = json.member("place");
    if (size == 0) { place.refuse("does not exist: there are none"); }
    const auto number = static_cast<std::size_t>(place.number(1, size));
    if (!taken.insert(number).second) { place.refuse("is the place of another one too"); }
    return number;
}

StoredMessage storedMessageOf(const JsonReader &json) {
    const JsonReader member = json.member("status");
    const auto found =
        std::find(STATUS_NAMES.begin(), STATUS_NAMES.end(), member.text(SHORT_TEXT_MAX));
    if (found == STATUS_NAMES.end()) { member.refuse("is unread, read, unsent or sent"); }
    const auto status = static_cast<MessageStatus>(found - STATUS_NAMES.begin());
    Pdu pdu = pduOf(json.member("pdu"));
    const bool isReceived = status == MessageStatus::unread || status == MessageStatus::read;
    if (isReceived == isTpdu(TpduType::submit, pdu.tpdu)) {
        json.member("pdu").refuse("is of a type that \"status\" does not go with");
    }
    return {status, std::move(pdu)};
}

void readStorage(const JsonReader &json, Storage &storage) {
    Storage fresh(storage.name(), storage.size());
    std::set<std::size_t> taken;
    json.eachElement([&](std::size_t, const JsonReader &message) {
        message.expectNames({"place", "status", "pdu"});
        const std::size_t place = takePlace(message, storage.size(), taken);
        fresh.put(place, storedMessageOf(message));
    });
    storage = std::move(fresh);
}

// What +CPBW takes: printable, and nothing that a string constant could not hold.
std::string dialledText(const JsonReader &json) {
    std::string text = json.text(SHORT_TEXT_MAX);
    const bool isDialled = std::all_of(text.begin(), text.end(),
                                       [](char c) { return c > ' ' && c <= '~' && c != '"'; });
    if (!isDialled) { json.refuse("has characters that nobody dials"); }
    return text;
}

std::u16string nameOf(const JsonReader &json) {
    std::u16string name;
    json.ifHas("name", [&](const JsonReader &value) {
        const auto units = fromUtf8(value.text(SHORT_TEXT_MAX));
        if (!units) { value.refuse("is no UTF-8"); }
        name = *units;
    });
    json.ifHas("name_ucs2", [&](const JsonReader &value) {
        const auto units = fromTerminal("UCS2", value.text(SHORT_TEXT_MAX));
        if (!units) { value.refuse("is no UCS-2 in hexadecimal"); }
        name = *units;
    });
    return name;
}

void readPhonebook(const JsonReader &json, Phonebook &book) {
    static constexpr unsigned TYPE_MIN = 128, TYPE_MAX = 255;
    for (std::size_t place = 1; place <= book.size(); place++) { book.put(place, std::nullopt); }
    std::set<std::size_t> taken;
    json.eachElement([&](std::size_t, const JsonReader &contact) {
        contact.expectNames({"place", "number", "type", "name", "name_ucs2"});
        const std::size_t place = takePlace(contact, book.size(), taken);
        const std::string number = dialledText(contact.member("number"));
        unsigned type = typeOfNumber(number);
        contact.ifHas("type", [&](const JsonReader &value) {
            type = static_cast<unsigned>(value.number(TYPE_MIN, TYPE_MAX));
        });
        book.put(place, Contact{number, type, nameOf(contact)});
    });
}

Incoming incomingOf(const JsonReader &json) {
    json.expectNames({"kind", "pdu", "report"});
    const std::string kind = json.member("kind").text(SHORT_TEXT_MAX);
    if (kind != "message" && kind != "report") {
        json.member("kind").refuse("is message or report");
    }
    const bool isMessage = kind == "message";
    Incoming incoming{
        isMessage ? Incoming::Kind::message : Incoming::Kind::report,
        pduOf(json.member("pdu"), isMessage ? TpduType::deliver : TpduType::statusReport),
        {}};
    json.ifHas("report", [&](const JsonReader &value) {
        if (!isMessage) { value.refuse("goes with a message alone"); }
        incoming.report = pduOf(value, TpduType::statusReport);
    });
    return incoming;
}

// By their names; another name is refused.
template <typename Values, typename Read>
void readByName(const JsonReader &json, Values &values, const Read &readOne) {
    json.eachMember([&](const std::string &name, const JsonReader &value) {
        const auto found = std::find_if(values.begin(), values.end(),
                                        [&](const auto &each) { return each.name() == name; });
        if (found == values.end()) { value.refuse("is not known"); }
        readOne(value, *found);
    });
}

// A list with as many elements as there are values.
template <typename Values, typename Read>
void readEach(const JsonReader &json, Values &values, const Read &readOne) {
    if (json.elements() != values.size()) {
        json.refuse("has " + std::to_string(values.size()) + " elements");
    }
    json.eachElement([&](std::size_t i, const JsonReader &value) { readOne(value, values.at(i)); });
}

void readSelected(const JsonReader &json, std::size_t &selected) {
    const auto found =
        std::find(STORAGE_NAMES.begin(), STORAGE_NAMES.end(), json.text(SHORT_TEXT_MAX));
    if (found == STORAGE_NAMES.end()) { json.refuse("is ME, SM or MT"); }
    selected = static_cast<std::size_t>(found - STORAGE_NAMES.begin());
}

void readMessageProfile(const JsonReader &json, MessageProfile &profile) {
    json.expectNames({"service_centre", "text_parameters", "broadcasts"});
    json.ifHas("service_centre",
               [&](const JsonReader &value) { profile.serviceCentre = numberText(value, true); });
    json.ifHas("text_parameters",
               [&](const JsonReader &value) { read(value, profile.textParameters); });
    json.ifHas("broadcasts", [&](const JsonReader &value) { read(value, profile.broadcasts); });
}

void readContext(const JsonReader &json, PacketContext &context) {
    json.expectNames({"type", "access_point"});
    json.ifHas("type", [&](const JsonReader &value) { context.type = value.text(SHORT_TEXT_MAX); });
    json.ifHas("access_point",
               [&](const JsonReader &value) { context.accessPoint = value.text(SHORT_TEXT_MAX); });
}

void readIdentity(const JsonReader &json, Memory &memory) {
    json.ifHas("number", [&](const JsonReader &value) {
        memory.number = numberText(value, false);
        memory.phonebooks = makePhonebooks(memory.phonebooks.at(0).size(),
                                           memory.phonebooks.at(1).size(), memory.number);
    });
    json.ifHas("service_centre",
               [&](const JsonReader &value) { memory.serviceCentre = numberText(value, true); });
}

void readCounters(const JsonReader &json, Memory &memory) {
    static constexpr std::int64_t CENTURY = 100LL * 366 * 24 * 3600;
    json.ifHas("last_reference", [&](const JsonReader &value) {
        memory.lastReference = static_cast<std::uint8_t>(value.number(0, UINT8_MAX));
    });
    json.ifHas("next_concatenation", [&](const JsonReader &value) {
        memory.nextConcatenation = static_cast<std::uint8_t>(value.number(0, UINT8_MAX));
    });
    json.ifHas("next_serial_number", [&](const JsonReader &value) {
        memory.nextSerialNumber = static_cast<std::uint16_t>(value.number(0, UINT16_MAX));
    });
    json.ifHas("clock_ahead", [&](const JsonReader &value) {
        memory.clockAhead = value.signedNumber(-CENTURY, CENTURY);
    });
}

void readContents(const JsonReader &json, Memory &memory) {
    json.ifHas("storages",
               [&](const JsonReader &value) { readByName(value, memory.storages, readStorage); });
    json.ifHas("selected",
               [&](const JsonReader &value) { readEach(value, memory.selected, readSelected); });
    json.ifHas("phonebooks", [&](const JsonReader &value) {
        readByName(value, memory.phonebooks, readPhonebook);
    });
    json.ifHas("pending", [&](const JsonReader &value) {
        memory.pending.clear();
        value.eachElement([&](std::size_t, const JsonReader &incoming) {
            memory.pending.push_back(incomingOf(incoming));
        });
    });
    json.ifHas("message_profiles", [&](const JsonReader &value) {
        readEach(value, memory.messageProfiles, readMessageProfile);
    });
    json.ifHas("contexts",
               [&](const JsonReader &value) { readEach(value, memory.contexts, readContext); });
}

} // namespace

std::string stateText(const Memory &memory) {
    const OrderedJson json{
        {        VERSION_NAME,                      STATE_VERSION},
        {            "number",                      memory.number},
        {    "service_centre",               memory.serviceCentre},
        {           "profile",             toJson(memory.profile)},
        {  "message_profiles", listToJson(memory.messageProfiles)},
        {          "storages",      byNameToJson(memory.storages)},
        {          "selected",             selectedToJson(memory)},
        {        "phonebooks",    byNameToJson(memory.phonebooks)},
        {           "pending",              pendingToJson(memory)},
        {          "contexts",             contextsToJson(memory)},
        {    "last_reference",               memory.lastReference},
        {"next_concatenation",           memory.nextConcatenation},
        {"next_serial_number",            memory.nextSerialNumber},
        {       "clock_ahead",                  memory.clockAhead}
    };
    return json.dump(1, ' ', false, OrderedJson::error_handler_t::replace) + "\n";
}

void takeState(Modem &modem, std::string_view text) {
    const OrderedJson document = parseDocument(text);
    const JsonReader json(document);
    json.expectNames({VERSION_NAME, "number", "service_centre", "profile", "message_profiles",
                      "storages", "selected", "phonebooks", "pending", "contexts", "last_reference",
                      "next_concatenation", "next_serial_number", "clock_ahead"});
    json.member(VERSION_NAME).number(STATE_VERSION, STATE_VERSION);
    Memory memory = modem;
    readIdentity(json, memory);
    json.ifHas("profile", [&](const JsonReader &value) {
        read(value, memory.profile);
        if (!modem.offers(memory.profile.charset)) {
            value.refuse("has the character set " + memory.profile.charset +
                         ", which --charsets leaves out");
        }
    });
    readContents(json, memory);
    readCounters(json, memory);
    static_cast<Memory &>(modem) = std::move(memory);
    modem.restart();
}

StateFile::StateFile(const std::string &path, Modem &modem)
    : modem_(modem), file_(path), kept_(modem) {
    std::signal(SIGXFSZ, SIG_IGN); // a limit on files is told like a full disk
    if (file_.exists()) {
        try {
            takeState(modem, readFile(file_.path(), STATE_OCTETS_MAX));
        } catch (const std::invalid_argument &error) {
            throw std::runtime_error("the state in " + file_.path().string() +
                                     " cannot be used: " + error.what());
        }
    }
    kept_ = modem;
    file_.replace(stateText(kept_));
}

void StateFile::keep() {
    if (kept_ == modem_) { return; }
    try {
        file_.replace(stateText(modem_));
        kept_ = modem_;
        failure_.clear();
    } catch (const std::runtime_error &error) {
        if (failure_ != error.what()) {
            spdlog::error("the state cannot be kept: {}", error.what());
        }
        failure_ = error.what();
    }
}

} // namespace smspb::simmodem
