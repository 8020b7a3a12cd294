#include "tools/received.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <span>

#include <fmt/format.h>

#include "atlib/SmsEncoding.h"
#include "atlib/SmsUtils.h"
#include "tools/text.h"

namespace smspb::cli {

namespace {

constexpr u8 EURO_EXTENSION = 0x65; // 6.2.1.1
constexpr char16_t EURO_SIGN = 0x20AC;

} // namespace

// The library's tables know neither the euro sign nor, once unpacked, septet 0; both are common in
// texts, so they are told apart here.
std::u16string fromSeptets(std::span<const u8> septets) {
    std::u16string text;
    for (std::size_t i = 0; i < septets.size(); i++) {
        const bool escaped = septets[i] == GSM_ESCAPE && i + 1 < septets.size();
        const std::array<u8, 3> code = {septets[i], escaped ? septets[i + 1] : u8{0}, 0};
        u16 unit[2] = {};
        sms_GSMToWSTR(code.data(), escaped ? 2 : 1, unit, 1);
        const bool euro = escaped && code[1] == EURO_EXTENSION;
        text += euro ? EURO_SIGN : static_cast<char16_t>(unit[0]);
        if (escaped) { i++; }
    }
    return text;
}

std::string hexadecimal(std::span<const u8> octets) {
    std::string text;
    for (const u8 octet : octets) { text += fmt::format("{:02X}", octet); }
    return text;
}

namespace {

constexpr u8 AT_SIGN = 0x00;
constexpr u8 ZERO_SEPTET_AS = 0x40; // what the library's unpacker gives for septet 0

std::u16string septetText(const SmsUserData &userData, const PduLayout &pdu) {
    std::vector<u8> septets(userData.sm_data, userData.sm_data + userData.sm_len);
    const std::size_t header =
        pdu.userData.length - std::min<u16>(pdu.userData.length, userData.sm_len);
    for (std::size_t i = 0; i < septets.size(); i++) {
        const bool isZero = septets[i] == ZERO_SEPTET_AS && septetAt(pdu, header + i) == AT_SIGN;
        if (isZero) { septets[i] = AT_SIGN; }
    }
    return fromSeptets(septets);
}

std::u16string unitText(const SmsUserData &userData) {
    std::u16string text;
    for (std::size_t i = 0; i + 1 < userData.sm_len; i += 2) {
        text += static_cast<char16_t>(userData.sm_data[i] << 8 | userData.sm_data[i + 1]);
    }
    return text;
}

std::string addressText(const SmsAddress &address) {
    if (address.number_type == NUMBER_ALPHANUMERIC) {
        const std::size_t count =
            std::min<std::size_t>(address.number_of_digits, SMS_MAX_ADDRESS_DIGITS);
        return toUtf8(fromSeptets({address.digits, count}));
    }
    char text[SMS_ADDRESS_DIGITS_ROOM + 4] = {};
    sms_ConvertAddressToString(&address, text);
    return text;
}

std::string zoneText(int quarters) {
    const int minutes = std::abs(quarters) * 15;
    return fmt::format("{}{:02}:{:02}", quarters < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

std::string timeText(const SmsTimestamp &stamp) {
    SmsCalendarTime time = {};
    wms_Timestamp_to_JulianType(&stamp, &time);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}{}", time.year, time.month, time.day,
                       time.hour, time.minute, time.second, zoneText(stamp.timezone));
}

// Since 1970, GMT.
std::int64_t secondsOf(const SmsTimestamp &stamp) {
    using namespace std::chrono;
    SmsCalendarTime time = {};
    wms_Timestamp_to_JulianType(&stamp, &time);
    const sys_days date = year(time.year) / month(time.month) / day(time.day);
    const sys_seconds moment = date + hours(time.hour) + minutes(time.minute) +
                               seconds(time.second) - minutes(stamp.timezone * 15);
    return moment.time_since_epoch().count();
}

// "1 day 12 hours"
std::string durationText(const SmsTimestamp &duration) {
    struct Amount {
        u8 bcd;
        std::string_view unit;
    };
    const Amount amounts[] = {
        {  duration.year,   "year"},
        { duration.month,  "month"},
        {   duration.day,    "day"},
        {  duration.hour,   "hour"},
        {duration.minute, "minute"}
    };
    std::string text;
    for (const Amount &amount : amounts) {
        u8 count = 0;
        wms_bcd_to_int(amount.bcd, &count);
        if (count == 0) { continue; }
        text += fmt::format("{}{} {}{}", text.empty() ? "" : " ", count, amount.unit,
                            count == 1 ? "" : "s");
    }
    return text;
}

std::string validityText(const SmsValidity &validity) {
    if (validity.format == VALIDITY_RELATIVE) { return durationText(validity.time); }
    return validity.format == VALIDITY_ABSOLUTE ? timeText(validity.time) : "";
}

std::string_view codingName(u32 alphabet) {
    if (alphabet == ALPHABET_UCS2) { return "UCS-2"; }
    return alphabet == ALPHABET_8BIT ? "8-bit data" : "GSM 7-bit";
}

// TS 23.038, 4: the groups that tell of waiting messages.
std::string waitingText(const SmsDcs &dcs) {
    static constexpr std::array<std::string_view, 4> KINDS = {"voice mail", "fax", "e-mail",
                                                              "other messages"};
    if (dcs.msg_waiting != WAITING_DISCARD && dcs.msg_waiting != WAITING_STORE) { return ""; }
    return fmt::format("{} {}", KINDS[dcs.msg_waiting_kind & 3],
                       dcs.msg_waiting_active == 1 ? "waiting" : "no longer waiting");
}

void takeCoding(const SmsDcs &dcs, Message &message) {
    message.coding = codingName(dcs.alphabet);
    if (dcs.is_compressed != 0) { message.coding += ", compressed"; }
    if (dcs.msg_class != MSG_CLASS_NONE) { message.messageClass = dcs.msg_class; }
    message.waiting = waitingText(dcs);
}

void takePart(const SmsUserData &userData, Message &message) {
    const std::size_t count = std::min<std::size_t>(userData.num_headers, SMS_MAX_UDH_IES);
    for (const SmsUdhIe &element : std::span(userData.headers, count)) {
        const auto &narrow = element.payload.concat8;
        const auto &wide = element.payload.concat16;
        // An element that the decoder does not know is left all zero.
        if (element.header_id == UDH_CONCAT_8 && narrow.total_sm != 0) {
            message.part = Part{narrow.msg_ref, narrow.total_sm, narrow.seq_num};
        } else if (element.header_id == UDH_CONCAT_16) {
            message.part = Part{wide.msg_ref, wide.total_sm, wide.seq_num};
        }
    }
}

void takeBody(const SmsDcs &dcs, const SmsUserData &userData, const PduLayout &pdu,
              Message &message) {
    takeCoding(dcs, message);
    takePart(userData, message);
    message.header = headerElements(pdu);
    message.isHeaderRefused = !message.header.empty() && userData.num_headers == 0;
    // A compressed text (TS 23.042) is data to us.
    if (dcs.alphabet == ALPHABET_8BIT || dcs.is_compressed != 0) {
        message.data.assign(userData.sm_data, userData.sm_data + userData.sm_len);
    } else if (dcs.alphabet == ALPHABET_UCS2) {
        message.text = unitText(userData);
    } else {
        message.text = septetText(userData, pdu);
    }
}

Message fromDeliver(const SmsDeliver &deliver, const PduLayout &pdu) {
    Message message;
    message.kind = Kind::RECEIVED;
    message.number = addressText(deliver.address);
    message.time = timeText(deliver.timestamp);
    message.seconds = secondsOf(deliver.timestamp);
    message.protocol = deliver.pid;
    takeBody(deliver.dcs, deliver.user_data, pdu, message);
    return message;
}

Message fromSubmit(const SmsSubmit &submit, const PduLayout &pdu) {
    Message message;
    message.kind = Kind::SENT;
    message.number = addressText(submit.address);
    message.validity = validityText(submit.validity);
    message.protocol = submit.pid;
    message.reference = submit.message_reference;
    message.isReportRequested = submit.status_report_enabled != 0;
    takeBody(submit.dcs, submit.user_data, pdu, message);
    return message;
}

Message fromReport(const SmsStatusReport &report, const PduLayout &pdu) {
    Message message;
    message.kind = Kind::REPORT;
    message.number = addressText(report.address);
    message.time = timeText(report.sc_timestamp);
    message.protocol = report.pid;
    message.report =
        Report{report.tp_status, report.message_reference, timeText(report.discharge_time)};
    if (pdu.userData.isPresent) {
        SmsDcs dcs = report.dcs;
        if ((report.mask & PI_DCS) == 0) { dcs.msg_class = MSG_CLASS_NONE; }
        takeBody(dcs, report.user_data, pdu, message);
    }
    return message;
}

Message fromRecord(const SmsTpdu &tpdu, const PduLayout &pdu) {
    switch (tpdu.tpdu_type) {
    case TPDU_SUBMIT: return fromSubmit(tpdu.u.submit, pdu);
    case TPDU_STATUS_REPORT: return fromReport(tpdu.u.status_report, pdu);
    default: return fromDeliver(tpdu.u.deliver, pdu);
    }
}

// TS 23.040, 9.2.3.24.
std::string_view elementName(u8 id) {
    struct Name {
        u8 id;
        std::string_view text;
    };
    static constexpr Name NAMES[] = {
        {0x00,   "concatenation, 8-bit reference"},
        {0x01,       "special message indication"},
        {0x04,          "application port, 8-bit"},
        {0x05,         "application port, 16-bit"},
        {0x06,           "service centre control"},
        {0x08,  "concatenation, 16-bit reference"},
        {0x0A,                  "text formatting"},
        {0x0B,                 "predefined sound"},
        {0x0C,               "user-defined sound"},
        {0x0D,             "predefined animation"},
        {0x0E,                  "large animation"},
        {0x0F,                  "small animation"},
        {0x10,                    "large picture"},
        {0x11,                    "small picture"},
        {0x12,                 "variable picture"},
        {0x20,            "RFC 822 e-mail header"},
        {0x22,                    "reply address"},
        {0x24,  "national language, single shift"},
        {0x25, "national language, locking shift"},
    };
    const auto *const row = std::find_if(std::begin(NAMES), std::end(NAMES),
                                         [id](const Name &name) { return name.id == id; });
    return row != std::end(NAMES) ? row->text : "other";
}

// TS 23.040, 9.2.3.9: the protocol identifiers that mean something to a reader.
std::string protocolText(u32 protocol) {
    std::string_view words = "other";
    if (protocol >= 0x41 && protocol <= 0x47) { words = "replaces an earlier message"; }
    if (protocol >= 0x20 && protocol <= 0x3F) { words = "from or to another network service"; }
    switch (protocol) {
    case 0x00: words = "ordinary"; break;
    case 0x40: words = "silent"; break;
    case 0x5F: words = "return call"; break;
    case 0x7C: words = "ANSI-136 data"; break;
    case 0x7D: words = "data for the modem"; break;
    case 0x7E: words = "de-personalisation of the modem"; break;
    case 0x7F: words = "data for the SIM"; break;
    default: break;
    }
    return fmt::format("{} (0x{:02X})", words, protocol);
}

std::string partText(const Part &part) {
    return fmt::format("{} of {}, reference {}", part.number, part.total, part.reference);
}

void addReportFields(const Message &message, Fields &fields) {
    const Report &report = *message.report;
    fields.add("result", fmt::format("{} (0x{:02X})", statusWords(report.status), report.status));
    fields.add("for message", std::to_string(report.reference));
    fields.add("sent", forPeople(message.time));
    fields.add("result since", forPeople(report.discharge));
}

void addCodingFields(const Message &message, Fields &fields) {
    if (!message.coding.empty()) { fields.add("coding", message.coding); }
    if (message.messageClass) { fields.add("class", std::to_string(*message.messageClass)); }
    if (!message.waiting.empty()) { fields.add("indication", message.waiting); }
    if (message.protocol != 0) { fields.add("protocol", protocolText(message.protocol)); }
    if (message.part) { fields.add("part", partText(*message.part)); }
    for (const HeaderElement &element : message.header) {
        const bool isPart = element.id == UDH_CONCAT_8 || element.id == UDH_CONCAT_16;
        if (isPart && message.part) { continue; }
        fields.add("header", fmt::format("0x{:02X} ({}): {}", element.id, elementName(element.id),
                                         hexadecimal(element.data)));
    }
    if (message.isHeaderRefused) {
        fields.add("note",
                   "the library does not understand this header: the text may begin with it");
    }
    if (message.surplus != 0) {
        fields.add("note", counted(message.surplus, "octet") + " behind the message ignored");
    }
}

} // namespace

Message interpret(std::string_view pdu) {
    const PduLayout layout = layOutPdu(pdu);
    SmsAtMessage record = {};
    const u32 status = wms_decode_at_cmd_pdu(layout.text.c_str(), &record);
    if (status != 0) {
        Failure failure(Exit::BAD_PDU, "not a PDU: its service-centre address does not decode",
                        "a PDU begins with the service-centre address, 00 for none");
        failure.status = status;
        throw failure;
    }
    Message message = fromRecord(record.tpdu, layout);
    message.serviceCentre = addressText(record.service_centre);
    message.surplus = layout.surplus;
    return message;
}

std::string_view kindName(Kind kind) {
    switch (kind) {
    case Kind::SENT: return "sent";
    case Kind::REPORT: return "report";
    default: return "received";
    }
}

std::string statusWords(unsigned status) {
    struct Words {
        unsigned status;
        std::string_view text;
    };
    // clang-format off
    static constexpr Words WORDS[] = {
        {0x00, "delivered"},
        {0x01, "forwarded, delivery not confirmed"},
        {0x02, "replaced by the service centre"},
        {0x20, "still trying: congestion"},
        {0x21, "still trying: recipient busy"},
        {0x22, "still trying: no response from the recipient"},
        {0x23, "still trying: service rejected"},
        {0x24, "still trying: quality of service not available"},
        {0x25, "still trying: error in the recipient's equipment"},
        {0x40, "failed: remote procedure error"},
        {0x41, "failed: incompatible destination"},
        {0x42, "failed: connection rejected by the recipient"},
        {0x43, "failed: not obtainable"},
        {0x44, "failed: quality of service not available"},
        {0x45, "failed: no interworking available"},
        {0x46, "failed: validity period expired"},
        {0x47, "failed: deleted by its sender"},
        {0x48, "failed: deleted by the service centre"},
        {0x49, "failed: the message does not exist"},
        {0x60, "given up: congestion"},
        {0x61, "given up: recipient busy"},
        {0x62, "given up: no response from the recipient"},
        {0x63, "given up: service rejected"},
        {0x64, "given up: quality of service not available"},
        {0x65, "given up: error in the recipient's equipment"},
    };
    // clang-format on
    const auto *const row =
        std::find_if(std::begin(WORDS), std::end(WORDS),
                     [status](const Words &words) { return words.status == status; });
    if (row != std::end(WORDS)) { return std::string(row->text); }
    static constexpr std::array<std::string_view, 4> GROUPS = {
        "completed, reason of the service centre's own", "still trying, no known reason",
        "failed, no known reason", "given up, no known reason"};
    return std::string(status < 0x80 ? GROUPS.at(status >> 5) : "no known status");
}

std::string forPeople(std::string time) {
    static constexpr std::size_t T = 10, ZONE = 19; // 2026-01-03T12:00:01+01:00
    if (time.size() <= ZONE || time[T] != 'T') { return time; }
    time.insert(ZONE, " ");
    time[T] = ' ';
    return time;
}

std::string shortTime(const std::string &time) {
    static constexpr std::size_t MINUTES_END = 16;
    return forPeople(time).substr(0, MINUTES_END);
}

std::string contentOf(const Message &message) {
    return message.data.empty() ? toUtf8(message.text) : hexadecimal(message.data);
}

std::string summaryOf(const Message &message) {
    if (!message.report) { return contentOf(message); }
    return fmt::format("{} (report for message {})", statusWords(message.report->status),
                       message.report->reference);
}

Fields fieldsOf(const Message &message) {
    Fields fields;
    fields.add("kind", message.kind == Kind::RECEIVED ? "received (DELIVER)"
                       : message.kind == Kind::SENT   ? "sent (SUBMIT)"
                                                      : "status report (STATUS-REPORT)");
    fields.add(message.kind == Kind::RECEIVED ? "from" : "to", message.number);
    if (message.report) {
        addReportFields(message, fields);
    } else if (!message.time.empty()) {
        fields.add("time", forPeople(message.time));
    }
    if (!message.serviceCentre.empty()) { fields.add("service centre", message.serviceCentre); }
    if (!message.validity.empty()) { fields.add("validity", forPeople(message.validity)); }
    if (message.isReportRequested) { fields.add("report", "requested"); }
    addCodingFields(message, fields);
    return fields;
}

Json toJson(const Message &message) {
    Json json = {
        {  "kind", kindName(message.kind)},
        {"number",         message.number}
    };
    if (!message.serviceCentre.empty()) { json["service_centre"] = message.serviceCentre; }
    if (!message.time.empty()) { json["time"] = message.time; }
    if (!message.validity.empty()) { json["validity"] = message.validity; }
    if (message.report) {
        json["report"] = {
            {        "status",              message.report->status},
            {         "words", statusWords(message.report->status)},
            {     "reference",           message.report->reference},
            {"discharge_time",           message.report->discharge}
        };
    }
    if (message.kind == Kind::SENT) { json["report_requested"] = message.isReportRequested; }
    if (message.reference) { json["reference"] = *message.reference; }
    if (!message.coding.empty()) { json["coding"] = message.coding; }
    if (message.messageClass) { json["class"] = *message.messageClass; }
    if (!message.waiting.empty()) { json["indication"] = message.waiting; }
    json["protocol"] = message.protocol;
    if (message.part) {
        json["part"] = {
            {"reference", message.part->reference},
            {   "number",    message.part->number},
            {    "total",     message.part->total}
        };
    }
    for (const HeaderElement &element : message.header) {
        json["header"].push_back({
            {  "id",                element.id},
            {"data", hexadecimal(element.data)}
        });
    }
    if (message.isHeaderRefused) { json["header_understood"] = false; }
    if (!message.data.empty()) {
        json["data"] = hexadecimal(message.data);
    } else if (!message.report || !message.text.empty()) {
        json["text"] = toUtf8(message.text);
    }
    return json;
}

} // namespace smspb::cli
