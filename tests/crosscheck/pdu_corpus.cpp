// Composes and decodes messages with the library for crosscheck.py: a JSON line in, a JSON line
// out.
//
//   {"compose": {"number": "+49", "text": [104, 105], "time": [2013, 5, 7, 9, 3, 0], "report": 1}}
//     -> {"segments": [{"pdu": "0021FF...", "length": 15}]}
//   {"decode": "000407..."}
//     -> {"kind": 1, "number": "+49", "text": [104, 105], "alphabet": 0, ...}
//
// Texts are lists of UCS-2 units, so that nothing between here and there converts them.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "atlib/SmsUtils.h"
#include "comm/log_line.h"

// Taken instead of the archive's: the trace of a thousand messages is of no use to anybody.
void logLine(const char *, const char *, int, const char *, ...) {}

namespace {

using nlohmann::json;

struct Free {
    void operator()(void *block) const { std::free(block); }
};
template <typename T> using Block = std::unique_ptr<T, Free>;

template <std::size_t N> void setNumber(u16 (&field)[N], const std::string &number) {
    if (number.size() >= N) { throw std::invalid_argument("number longer than its field"); }
    for (std::size_t i = 0; i < number.size(); i++) { field[i] = static_cast<u16>(number[i]); }
}

void setTime(SmsMessage *request, const std::vector<u16> &time) {
    request->year = time.at(0);
    request->month = time.at(1);
    request->day = time.at(2);
    request->hour = time.at(3);
    request->minute = time.at(4);
    request->second = time.at(5);
}

json compose(const json &message) {
    SmsMessage request = {};
    setNumber(request.peer_number, message.at("number").get<std::string>());
    std::vector<u16> text = message.at("text").get<std::vector<u16>>();
    text.push_back(0);
    request.text = text.data();
    request.status_report = message.at("report").get<u8>();
    if (message.contains("time")) { setTime(&request, message.at("time").get<std::vector<u16>>()); }
    SmsSegment *segments = nullptr;
    u8 count = 0;
    if (sms_encode_pdu(&request, &segments, &count) != 0) {
        throw std::runtime_error("the text was not composed");
    }
    const Block<SmsSegment> owned(segments);
    json result = json::array();
    for (u8 i = 0; i < count; i++) {
        result.push_back({
            {   "pdu",         segments[i].pdu},
            {"length", segments[i].tpdu_length}
        });
    }
    return {
        {"segments", result}
    };
}

std::string narrowed(const u16 *number) {
    std::string text;
    for (; *number != 0; number++) { text += static_cast<char>(*number); }
    return text;
}

std::vector<u16> unitsOf(const u16 *text) { return {text, text + sms_wstrlen(text)}; }

// What the record of a message does not carry.
void addFields(const SmsDcs &dcs, int timezone, const SmsUserData &body, json *out) {
    (*out)["alphabet"] = dcs.alphabet;
    (*out)["timezone"] = timezone;
    if (dcs.alphabet == ALPHABET_8BIT) {
        (*out)["data"] = std::vector<u8>(body.sm_data, body.sm_data + body.sm_len);
    }
}

json decode(const std::string &pdu) {
    SmsAtMessage fields = {};
    const u32 status = wms_decode_at_cmd_pdu(pdu.c_str(), &fields);
    if (status != 0) { throw std::runtime_error("not decoded: " + std::to_string(status)); }
    SmsMessage message = {};
    sms_decode_pdu(pdu.c_str(), &message);
    const Block<u16> text(message.text);
    json out = {
        {     "kind",                                           message.kind                     },
        {   "number",                                               narrowed(message.peer_number)},
        {     "text",                  text != nullptr ? unitsOf(text.get()) : std::vector<u16>()},
        {    "class",                                                           message.msg_class},
        {     "time",
         {message.year, message.month, message.day, message.hour, message.minute, message.second}},
        {   "report",                                                       message.status_report},
        {    "total",                                                      message.total_segments},
        {     "part",                                                      message.segment_number},
        {"reference",                                                           message.reference}
    };
    const SmsDeliver &deliver = fields.tpdu.u.deliver;
    const SmsSubmit &submit = fields.tpdu.u.submit;
    if (fields.tpdu.tpdu_type == TPDU_SUBMIT) {
        addFields(submit.dcs, submit.validity.time.timezone, submit.user_data, &out);
    } else {
        addFields(deliver.dcs, deliver.timestamp.timezone, deliver.user_data, &out);
    }
    return out;
}

json answer(const json &request) {
    return request.contains("compose") ? compose(request.at("compose"))
                                       : decode(request.at("decode").get<std::string>());
}

} // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        try {
            std::cout << answer(json::parse(line)).dump() << '\n';
        } catch (const std::exception &error) {
            std::fprintf(stderr, "pdu_corpus: %s: %s\n", error.what(), line.c_str());
            return 1;
        }
    }
    return 0;
}
