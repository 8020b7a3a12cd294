// A PDU-mode line (TS 27.005, 3.1): decoded to a record and to a message, and encoded again.
#include "atlib/SmsUtils.h"
#include "fuzz.h"

namespace {

enum { PDU_TEXT_ROOM = 76 + 510 + 1 };

void encodeAgain(const SmsAtMessage &record) {
    const fuzz::Block<char> text(PDU_TEXT_ROOM);
    u32 length = 0;
    const u32 status = wms_encode_at_cmd_pdu(&record, text.get(), &length);
    if (status != 0) { return; }
    const u32 centre = 2 * (1 + (record.service_centre.number_of_digits != 0
                                     ? (record.service_centre.number_of_digits + 1U) / 2 + 1
                                     : 0));
    fuzz::require(std::strlen(text.get()) == centre + 2 * length, "two digits for each octet");
    const fuzz::Block<SmsAtMessage> back;
    fuzz::require(wms_decode_at_cmd_pdu(text.get(), back.get()) == 0 ||
                      std::strlen(text.get()) > 510,
                  "what is encoded decodes");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const Block<char> pdu = textOf(input);
    const Block<SmsAtMessage> record;
    const u32 status = wms_decode_at_cmd_pdu(pdu.get(), record.get());
    require(status == 0 || (status >= AT_PDU_INVALID_TYPE && status <= AT_PDU_MALFORMED),
            "a status of the PDU line");
    if (status == 0) { encodeAgain(*record); }
    const Block<SmsMessage> message;
    require(sms_decode_pdu(pdu.get(), message.get()) == 0, "decoding always gives 0");
    require(ends(message->sc_number, SMS_NUMBER_UNITS), "the service centre ends");
    require(ends(message->peer_number, SMS_NUMBER_UNITS), "the number ends");
    require(sms_wstrlen(message->text) <= SMS_MAX_TPDU_LEN, "the text ends within its block");
    std::free(message->text);
}
