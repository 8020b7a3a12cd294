// The reply to the command that reads a message, as text and through the operation that asks.
#include "atlib/CSMS.h"
#include "fuzz.h"
#include "support/plain/plain_platform.h"

namespace {

void check(const SmsRecord &record) {
    fuzz::require(fuzz::ends(record.message.sc_number, SMS_NUMBER_UNITS) &&
                      fuzz::ends(record.message.peer_number, SMS_NUMBER_UNITS),
                  "numbers end");
    const fuzz::Block<char> date(36);
    const i32 length = get_date_t_of_sms(&record, date.get());
    fuzz::require(length >= 0 && date[static_cast<std::size_t>(length)] == '\0', "the date ends");
    sms_wstrlen(record.message.text);
    std::free(record.message.text);
}

} // namespace

void fuzz::examine(std::string_view input) {
    const Block<char> reply = textOf(input);
    const Block<SmsRecord> record;
    decodeCMGR(reply.get(), record.get());
    check(*record);

    support::plain::answerWithTexts({reply.get()});
    SmsRecord *read = nullptr;
    if (getSMSbyindex(&read, 1) != SMS_OK) {
        require(read == nullptr, "a failure hands out no record");
        return;
    }
    check(*read);
    std::free(read);
}
