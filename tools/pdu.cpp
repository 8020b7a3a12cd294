// decode and encode: PDUs without a modem.
#include <fmt/format.h>

#include "tools/commands.h"
#include "tools/compose.h"
#include "tools/received.h"
#include "tools/text.h"

namespace smspb::cli {

void decode(const Console &console, const DecodeOptions &options) {
    const std::string pdu = options.pdu == "-" ? toUtf8(readText(options.pdu)) : options.pdu;
    const Message message = interpret(pdu);
    console.show(fieldsOf(message));
    const std::string content = contentOf(message);
    if (!content.empty()) { console.say("\n" + content); }
    console.document(toJson(message));
}

void encode(const Console &console, const ComposeOptions &options) {
    const Number number = parseNumber(options.number, "NUMBER");
    const Plan plan =
        compose(number, readText(options.text), options.report, static_cast<u8>(options.reference));
    Fields fields;
    fields.add("to", number.text);
    if (options.report) { fields.add("report", "requested"); }
    fields.append(fieldsOf(plan));
    console.show(fields);
    Json json = {
        {"number", number.text}
    };
    json.update(toJson(plan));
    json["report_requested"] = options.report;
    for (const SmsSegment &segment : plan.segments) {
        console.say(fmt::format("\nAT+CMGS={}\n{}", segment.tpdu_length, segment.pdu));
        json["pdus"].push_back({
            {        "pdu",         segment.pdu},
            {"tpdu_octets", segment.tpdu_length}
        });
    }
    console.document(json);
}

} // namespace smspb::cli
