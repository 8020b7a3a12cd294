// Replies to the commands of the SMS manager, one after the other between zero octets. The first
// octet names the operation that asks.
#include "atlib/CSMS.h"
#include "fuzz.h"
#include "support/plain/plain_platform.h"

namespace {

const u16 NUMBER[SMS_NUMBER_UNITS] = {'+', '4', '9', '1', '5', '1', '1'};
const u16 TEXT[] = {'h', 'e', 'l', 'l', 'o', 0x0416, 0};
const u16 WHEN[6] = {2013, 5, 7, 9, 3, 0};
const char PDU[] = "0001000B915155001000F0000005E8329BFD06";

void readSettings(u8 operation) {
    const fuzz::Block<u16> counts(2);
    const fuzz::Block<u16> number(SMS_NUMBER_UNITS);
    const fuzz::Block<u32> code;
    switch (operation) {
    case 'a': setInformmode(); break;
    case 'b': InitSMS(); break;
    case 'c': setReceiveMemStore(SMS_STORAGE_ME); break;
    case 'd': setReadDeleteOpMemStore(SMS_STORAGE_SM, counts.get()); break;
    case 'e': setWriteSendOpMemStore(SMS_STORAGE_ME, counts.get()); break;
    case 'f': SM_GetStorageInfo_Sms(counts.get(), SMS_STORAGE_SM); break;
    case 'g': readCSCA(number.get()); break;
    case 'h': GetCSCA(number.get()); break;
    case 'i': setCenterNumber(NUMBER); break;
    case 'j': getEcodingFormat(code.get()); break;
    default: setEcodingFormat(CHARSET_UCS2); break;
    }
    fuzz::require(fuzz::ends(number.get(), SMS_NUMBER_UNITS), "a service centre ends");
}

void transfer(u8 operation) {
    const fuzz::Block<u8> count;
    const fuzz::Block<u32> indexes(1);
    const fuzz::Block<i32> index;
    indexes[0] = 0xFFFFFFFF;
    switch (operation) {
    case 'l': handleSend(0, PDU); break;
    case 'm': handleSave(0, PDU, 2, index.get()); break;
    case 'n': SendSMS(NUMBER, TEXT, 1, count.get()); break;
    case 'o': SaveSMS(NUMBER, TEXT, 2, indexes.get(), WHEN); break;
    case 'p': deleteByStoreId(3, SMS_STORAGE_SM); break;
    case 'q': SetCSCA(NUMBER); break;
    default: sendUSSD("*100#"); break;
    }
}

void judge(const std::string &reply) {
    const fuzz::Block<char> text = fuzz::textOf(reply);
    checkATStatus(text.get());
    checkCMSError(text.get());
    getCMGWindex(text.get());
    HasSubStr(text.get(), "+CMGR:");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 operation = takeOctet(&input);
    const std::vector<std::string> replies = partsOf(input);
    support::plain::answerWithTexts(replies);
    g_blInitCsca = 0;
    if (operation <= 'k') {
        readSettings(operation);
    } else if (operation <= 'r') {
        transfer(operation);
    } else {
        judge(replies.front());
    }
}
