// "+CMT:" and "+CDS:" with the PDU on the line behind (TS 27.005, 3.4.1).
#include "atlib/CSMS.h"
#include "fuzz.h"

namespace {

void release(SmsRecord *record) {
    sms_wstrlen(record->message.text);
    fuzz::require(fuzz::ends(record->message.sc_number, SMS_NUMBER_UNITS) &&
                      fuzz::ends(record->message.peer_number, SMS_NUMBER_UNITS),
                  "numbers end");
    std::free(record->message.text);
}

} // namespace

void fuzz::examine(std::string_view input) {
    const Block<char> line = textOf(input);
    const Block<SmsRecord> existing;
    decodePopupSms(line.get(), existing.get());
    release(existing.get());

    SmsRecord *record = nullptr;
    u32 kind = 0;
    const u32 status = PopupSms(&record, line.get(), &kind);
    require((record == nullptr) == (status == SMS_NO_REPLY), "a record for every report");
    if (record == nullptr) { return; }
    require(kind == 1 || kind == 3, "a kind for every report");
    release(record);
    std::free(record);
}
