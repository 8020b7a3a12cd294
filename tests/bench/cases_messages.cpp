// Whole messages as the SMS manager sends and receives them, with their log lines.
#include <cstdlib>
#include <cstring>

#include "atlib/SmsUtils.h"
#include "case.h"
#include "peers.h"
#include "submit.h"
#include "texts.h"

namespace bench {
namespace {

constexpr std::size_t ROOM = 512;
constexpr std::size_t SEGMENTS = 3;

const std::string TEXT = ascii(MESSAGE_SEPTETS);
const std::string LONG_TEXT = ascii(SEGMENTS * 153);
std::vector<u16> textUnits = units(TEXT);
std::vector<u16> longUnits = units(LONG_TEXT);
std::vector<u16> cyrillicUnits = cyrillic(MESSAGE_UNITS);
const SmsMessage REQUEST = requestFor(textUnits);
const SmsMessage LONG_REQUEST = requestFor(longUnits);
const SmsMessage UCS2_REQUEST = requestFor(cyrillicUnits);

char pdus[SEGMENTS * ROOM];

// The reference counts up from message to message; it is the ninth octet of a header.
const char *segmentsWrong() {
    std::vector<std::string> wanted = composed(LONG_REQUEST);
    for (std::string &pdu : wanted) {
        const std::size_t header = pdu.find("050003");
        if (header == std::string::npos) { return "no header"; }
        pdu.replace(header + 6, 2, "00");
    }
    return wanted.size() == SEGMENTS ? otherThan(wanted, pdus, ROOM) : "not three segments";
}

// gammu's SMS-SUBMIT, its fields laid together as its own AT driver does.
GSM_SMSMessage gammuRequest() {
    GSM_SMSMessage sms;
    GSM_SetDefaultSMSData(&sms);
    EncodeUnicode(sms.Number, NUMBER, std::strlen(NUMBER));
    sms.PDU = SMS_Submit;
    sms.Coding = SMS_Coding_Unicode_No_Compression;
    const std::vector<unsigned char> text = bigEndian(cyrillicUnits);
    std::memcpy(sms.Text, text.data(), text.size());
    sms.Length = MESSAGE_UNITS;
    sms.UDH.Type = UDH_NoUDH;
    return sms;
}
GSM_SMSMessage gammuSubmit = gammuRequest();

void composeByGammu() {
    unsigned char fields[1024] = {0};
    unsigned char octets[256];
    int length = 0;
    const GSM_SMSMessageLayout &at = PHONE_SMSSubmit;
    GSM_EncodeSMSFrame(GSM_GetGlobalDebug(), &gammuSubmit, fields, at, &length, TRUE);
    std::size_t count = 0;
    const auto put = [&](std::size_t from, std::size_t n) {
        std::memcpy(octets + count, fields + from, n);
        count += n;
    };
    put(at.SMSCNumber, fields[at.SMSCNumber] + 1U);
    put(at.firstbyte, 1);
    put(at.TPMR, 1);
    put(at.Number, (fields[at.Number] + 1U) / 2 + 2);
    put(at.TPPID, 1);
    put(at.TPDCS, 1);
    if ((fields[at.firstbyte] & 0x18) != 0) { put(at.TPVP, 1); }
    put(at.TPUDL, 1);
    put(at.Text, fields[at.TPUDL]);
    EncodeHexBin(pdus, octets, count);
}

// Address, coding scheme and text; the rest is the phone's choice.
const char *gammuSubmitWrong() {
    const std::string wanted = composed(UCS2_REQUEST).at(0);
    const std::string got = pdus;
    const std::string body = wanted.substr(wanted.size() - 2 - 4 * MESSAGE_UNITS);
    const std::string address = "0D91945111325476F8";
    if (got.find(address) == std::string::npos || wanted.find(address) == std::string::npos) {
        return "another address";
    }
    return got.size() > body.size() && got.substr(got.size() - body.size()) == body
               ? nullptr
               : "another text";
}

const Register SENT([] {
    add(
        "SUBMIT 160/ours", [] { compose(REQUEST); },
        [] { return composed(REQUEST).size() == 1 ? nullptr : "not one segment"; }, 2);
    add(
        "SUBMIT 160/osmocom", [] { composeByHand(TEXT, pdus, ROOM); },
        [] { return otherThan(composed(REQUEST), pdus, ROOM); });
    add(
        "SUBMIT, three segments/ours", [] { compose(LONG_REQUEST); },
        [] { return composed(LONG_REQUEST).size() == SEGMENTS ? nullptr : "not three segments"; },
        4);
    add(
        "SUBMIT, three segments/osmocom", [] { composeSegmentsByHand(LONG_TEXT, pdus, ROOM); },
        segmentsWrong);
    add(
        "SUBMIT, UCS-2/ours", [] { compose(UCS2_REQUEST); },
        [] { return composed(UCS2_REQUEST).size() == 1 ? nullptr : "not one segment"; }, 2);
    add("SUBMIT, UCS-2/gammu", composeByGammu, gammuSubmitWrong);
});

// Service centre +491710760000, SMS-DELIVER from +4915112345678, 15 July 2024, 12:30:45.
constexpr char CENTRE[] = "0791947101670000";
constexpr char ORIGIN[] = "0D91945111325476F8";
constexpr char TIME[] = "42705121035480";

std::string hexOf(const u8 *octets, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; i++) {
        text += "0123456789ABCDEF"[octets[i] >> 4];
        text += "0123456789ABCDEF"[octets[i] & 15];
    }
    return text;
}

std::string septetBody(const std::string &septets) {
    u8 octets[141] = {static_cast<u8>(septets.size())};
    GSM_PackSevenBitsToEight(0, reinterpret_cast<const unsigned char *>(septets.data()), octets + 1,
                             septets.size());
    return hexOf(octets, sizeof(octets));
}

std::vector<u16> segmentUnits = cyrillic(67);
std::string unitBody() {
    std::vector<unsigned char> octets = {140, 5, 0, 3, 0x2A, 2, 1}; // TP-UDL, header
    const std::vector<unsigned char> text = bigEndian(segmentUnits);
    octets.insert(octets.end(), text.begin(), text.end() - 2);
    return hexOf(octets.data(), octets.size());
}

const std::string DELIVER = std::string(CENTRE) + "04" + ORIGIN + "0000" + TIME + septetBody(TEXT);
const std::string DELIVER_UCS2 = std::string(CENTRE) + "44" + ORIGIN + "0008" + TIME + unitBody();
const std::string REPORT = std::string(CENTRE) + "062A" + ORIGIN + TIME + TIME + "00";

// What was received last; its text is kept for the check.
SmsMessage received;
void receive(const std::string &pdu) {
    std::free(received.text);
    std::memset(&received, 0, sizeof(received));
    sms_decode_pdu(pdu.c_str(), &received);
}

GSM_SMSMessage gammuReceived;
void receiveByGammu(const std::string &pdu) {
    unsigned char octets[256];
    DecodeHexBin(octets, reinterpret_cast<const unsigned char *>(pdu.data()), pdu.size());
    GSM_DecodePDUFrame(GSM_GetGlobalDebug(), &gammuReceived, octets, pdu.size() / 2, nullptr, TRUE);
}

const char *receivedWrong(u32 kind, const std::vector<u16> &text) {
    if (received.kind != kind || received.year != 2024 || received.second != 45) {
        return "another kind or time";
    }
    for (std::size_t i = 0; NUMBER[i] != '\0'; i++) {
        if (received.peer_number[i] != static_cast<u8>(NUMBER[i])) { return "another number"; }
    }
    if (text.empty()) { return received.text == nullptr ? nullptr : "a text"; }
    return std::memcmp(received.text, text.data(), text.size() * 2) == 0 ? nullptr : "another text";
}

const char *gammuReceivedWrong(GSM_SMSMessageType kind, const std::vector<u16> &text) {
    if (gammuReceived.PDU != kind) { return "another kind"; }
    const char *number = DecodeUnicodeString(gammuReceived.Number);
    if (std::strcmp(number, NUMBER) != 0) { return "another number"; }
    const std::vector<unsigned char> wanted = bigEndian(text);
    return std::memcmp(gammuReceived.Text, wanted.data(), wanted.size()) == 0 ? nullptr
                                                                              : "another text";
}

const Register RECEIVED([] {
    add(
        "DELIVER 160/ours", [] { receive(DELIVER); },
        [] { return receivedWrong(MESSAGE_DELIVER, textUnits); }, 5);
    add(
        "DELIVER 160/gammu", [] { receiveByGammu(DELIVER); },
        [] { return gammuReceivedWrong(SMS_Deliver, textUnits); });
    add(
        "DELIVER, UCS-2 with header/ours", [] { receive(DELIVER_UCS2); },
        [] { return receivedWrong(MESSAGE_DELIVER, segmentUnits); }, 5);
    add(
        "DELIVER, UCS-2 with header/gammu", [] { receiveByGammu(DELIVER_UCS2); },
        [] { return gammuReceivedWrong(SMS_Deliver, segmentUnits); });
    add(
        "STATUS-REPORT/ours", [] { receive(REPORT); },
        [] { return receivedWrong(MESSAGE_STATUS_REPORT, {}); }, 10);
    add(
        "STATUS-REPORT/gammu", [] { receiveByGammu(REPORT); },
        [] { return gammuReceivedWrong(SMS_Status_Report, {}); });
});

} // namespace
} // namespace bench
