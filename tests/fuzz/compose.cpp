// A text composed to segments, each of which reads back. The first 22 octets are the number and the
// validity.
#include "atlib/SmsUtils.h"
#include "fuzz.h"

namespace {

// A septet 0 reads back as another character, the escape is no character of its own, and a validity
// that is no time leaves its octets out.
bool readsBack(const SmsMessage &request, const fuzz::Block<u16> &text) {
    const bool isTime = request.year >= 2000 && request.year < 2100 && request.month >= 1 &&
                        request.month <= 12 && request.day >= 1 && request.day <= 31 &&
                        request.hour < 24 && request.minute < 60 && request.second < 60;
    const bool isUnset =
        (request.month | request.day | request.hour | request.minute | request.second) == 0;
    return (isTime || isUnset) && std::none_of(text.get(), text.get() + text.size(), [](u16 unit) {
               return unit == u'@' || unit == 0xA0;
           });
}

void readSegments(const SmsSegment *segments, u32 count, const SmsMessage &request,
                  const fuzz::Block<u16> &text) {
    const bool comesBack = readsBack(request, text);
    const u16 *expected = text.get();
    for (u32 i = 0; i < count; i++) {
        fuzz::require(std::memchr(segments[i].pdu, 0, SMS_PDU_TEXT_ROOM) != nullptr,
                      "a segment's text ends");
        const fuzz::Block<char> pdu = fuzz::textOf(segments[i].pdu);
        const fuzz::Block<SmsMessage> message;
        sms_decode_pdu(pdu.get(), message.get());
        const u32 length = sms_wstrlen(message->text);
        if (comesBack) {
            fuzz::require(std::equal(expected, expected + length, message->text),
                          "the text comes back");
            expected += length;
        }
        std::free(message->text);
    }
    if (comesBack) { fuzz::require(*expected == 0, "all of the text comes back"); }
}

} // namespace

void fuzz::examine(std::string_view input) {
    const Block<SmsMessage> request;
    for (u32 i = 0; i < 15; i++) { request->peer_number[i] = takeOctet(&input); }
    u16 *const fields[] = {&request->year, &request->month,  &request->day,
                           &request->hour, &request->minute, &request->second};
    for (u16 *field : fields) { *field = takeOctet(&input); }
    if (request->year < 200) { request->year = static_cast<u16>(request->year + 2000); }
    request->status_report = takeOctet(&input) & 1;
    const Block<u16> text = unitsOf(input);
    request->text = text.get();
    SmsSegment *segments = nullptr;
    u8 count = 0;
    if (sms_encode_pdu(request.get(), &segments, &count) == 0) {
        readSegments(segments, count, *request, text);
    } else {
        require(segments == nullptr && count == 0, "a refusal hands out nothing");
    }
    std::free(segments);
}
