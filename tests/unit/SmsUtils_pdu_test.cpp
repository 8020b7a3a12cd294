// PDU-mode texts (TS 27.005, 3.1): the service-centre address and the TPDU in hexadecimal.
#include "atlib/SmsUtils.h"

#include <algorithm>
#include <cstring>

#include "support/library_test.h"

using namespace support;

namespace {

const std::string TPDU = "040791942143F500003150709030008005E8329BFD06";
const std::string GOOD_PDU = "0491214365" + TPDU;

class ServiceCentrePart : public LibraryVectorTest {};
class HexToOctets : public LibraryTest {};
class TpduType : public LibraryTest {};
class PduText : public LibraryVectorTest {};
class PduRefusal : public LibraryVectorTest {};
class PduDecoder : public LibraryTest {};
class PduEncoder : public LibraryTest {};

SmsAddress numberAddress(u32 type, u32 plan, const std::vector<u8> &digits) {
    SmsAddress address = {};
    address.number_type = type;
    address.number_plan = plan;
    address.number_of_digits = static_cast<u8>(digits.size());
    std::copy(digits.begin(), digits.end(), address.digits);
    return address;
}

std::string digitsOf(const SmsAddress &address) {
    return hex({address.digits, address.digits + address.number_of_digits});
}

// ---- the service-centre part

TEST_P(ServiceCentrePart, IsWrittenAndItsEndReturned) {
    const std::string expected = v().text("text");
    const SmsAddress address =
        numberAddress(v().number("type"), v().number("plan"), v().octets("digits"));
    Guarded<char> out(expected.size() + 1);
    EXPECT_EQ(wms_scaddr_to_string(address, out.get()), out.get() + expected.size());
    EXPECT_STREQ(out.get(), expected.c_str());
}
SMSPB_VECTORS(ServiceCentrePart, "service_centre.txt");

// ---- hexadecimal to octets

TEST_F(HexToOctets, KnownTexts) {
    static const struct {
        const char *text;
        u32 count, result;
        const char *octets;
    } CASES[] = {
        {"00FF1aB2", 4, 0, "00 FF 1A B2"},
        {"00FF1aB2", 2, 0,       "00 FF"},
        {        "", 0, 0,            ""},
        {       "A", 1, 0,          "0A"}, // a lone last character
        {     "12A", 2, 0,       "12 0A"},
        {      "zz", 1, 0,          "53"}, // 35 * 16 + 35 = 0x253, its low octet
        {      "G0", 1, 0,          "00"},
        {    "1G2H", 2, 0,       "20 31"},
        {      "-1", 1, 1,          "00"}, // a bad first pair stores 0
        {      "1-", 1, 1,          "00"},
        {  "12-434", 3, 1,    "12 12 34"}, // a bad pair stores the pair before it, and on it goes
        {  "12 4 5", 3, 1,    "12 12 12"},
        {  "AB..CD", 3, 1,    "AB AB CD"},
        {  "--12--", 3, 1,    "00 12 12"},
    };
    for (const auto &c : CASES) {
        const std::vector<u8> expected = octets(c.octets);
        Guarded<u8> out(c.count);
        EXPECT_EQ(dsatetsismsi_encode_pdu(guardedText(c.text).get(), out.get(), c.count), c.result)
            << c.text;
        EXPECT_EQ(hex({out.get(), out.get() + c.count}), hex(expected)) << c.text;
    }
}

TEST_F(HexToOctets, OfEveryPairOfDigits) {
    for (unsigned octet = 0; octet < 256; octet++) {
        const std::string text = hex({static_cast<u8>(octet)});
        u8 out = 0xEE;
        EXPECT_EQ(dsatetsismsi_encode_pdu(text.c_str(), &out, 1), 0U);
        EXPECT_EQ(out, octet);
    }
}

TEST_F(HexToOctets, NeverReadsBehindTheEndOfTheText) {
    for (std::size_t length = 0; length <= 6; length++) {
        const auto text = guardedText(std::string("12345678").substr(0, length));
        Guarded<u8> out(8);
        EXPECT_EQ(dsatetsismsi_encode_pdu(text.get(), out.get(), 8), 0U);
        EXPECT_EQ(hex({out.get(), out.get() + length / 2}),
                  std::string("12345678").substr(0, length / 2 * 2));
    }
}

// ---- the type of a TPDU

TEST_F(TpduType, OfEveryFirstOctet) {
    static const u32 TYPES[] = {TPDU_DELIVER, TPDU_SUBMIT, TPDU_STATUS_REPORT, TPDU_RESERVED};
    for (unsigned octet = 0; octet < 256; octet++) {
        EXPECT_EQ(dsatetsismsi_get_tpdu_type(static_cast<u8>(octet)), TYPES[octet % 4]) << octet;
    }
    EXPECT_EQ(TPDU_DELIVER, 0U);
    EXPECT_EQ(TPDU_SUBMIT, 3U);
    EXPECT_EQ(TPDU_STATUS_REPORT, 6U);
    EXPECT_EQ(TPDU_RESERVED, 8U);
}

// ---- good texts

const SmsAddress &peerOf(const SmsTpdu &tpdu) {
    if (tpdu.tpdu_type == TPDU_DELIVER) { return tpdu.u.deliver.address; }
    return tpdu.tpdu_type == TPDU_SUBMIT ? tpdu.u.submit.address : tpdu.u.status_report.address;
}

const SmsUserData &bodyOf(const SmsTpdu &tpdu) {
    if (tpdu.tpdu_type == TPDU_DELIVER) { return tpdu.u.deliver.user_data; }
    return tpdu.tpdu_type == TPDU_SUBMIT ? tpdu.u.submit.user_data : tpdu.u.status_report.user_data;
}

TEST_P(PduText, Decodes) {
    const auto pdu = guardedText(v().text("pdu"));
    Guarded<SmsAtMessage> message(1, Fill::Cleared);
    ASSERT_EQ(wms_decode_at_cmd_pdu(pdu.get(), message.get()), 0U);
    EXPECT_EQ(message->service_centre.number_type, v().number("sc_type", 0));
    EXPECT_EQ(message->service_centre.number_plan, v().number("sc_plan", 0));
    EXPECT_EQ(digitsOf(message->service_centre), hex(v().octets("sc_digits")));
    EXPECT_EQ(message->tpdu.tpdu_type, v().number("type"));
    EXPECT_EQ(digitsOf(peerOf(message->tpdu)), hex(v().octets("digits")));
    const SmsUserData &body = bodyOf(message->tpdu);
    EXPECT_EQ(hex({body.sm_data, body.sm_data + body.sm_len}), hex(v().octets("body")));
    EXPECT_EQ(logMessagesOf("wms_decode_at_cmd_pdu"),
              std::vector<std::string>{v().text("trace") + "\n"});
    for (const LogEntry &entry : logEntries()) { EXPECT_EQ(entry.source, "atlib/SmsEncoding.cpp"); }
    v().number("length", 0);
}

TEST_P(PduText, EncodesBack) {
    for (const char *key : {"sc_type", "sc_plan", "sc_digits", "type", "digits", "body", "trace"}) {
        v().has(key);
    }
    const std::string pdu = v().text("pdu");
    Guarded<SmsAtMessage> message(1, Fill::Cleared);
    ASSERT_EQ(wms_decode_at_cmd_pdu(pdu.c_str(), message.get()), 0U);
    if (!v().has("length")) { return; }
    Guarded<char> out(pdu.size() + 1);
    u32 length = 77;
    EXPECT_EQ(wms_encode_at_cmd_pdu(message.get(), out.get(), &length), 0U);
    EXPECT_STREQ(out.get(), pdu.c_str());
    EXPECT_EQ(length, v().number("length"));
}
SMSPB_VECTORS(PduText, "framing.txt");

// ---- refused texts

TEST_P(PduRefusal, IsItsResult) {
    const auto pdu = guardedText(v().text("pdu"));
    Guarded<SmsAtMessage> message(1, Fill::Cleared);
    message->tpdu.tpdu_type = 0x77;
    const u32 result = v().number("result");
    EXPECT_EQ(wms_decode_at_cmd_pdu(pdu.get(), message.get()), result);
    EXPECT_EQ(message->tpdu.tpdu_type, 0x77U); // stored by a success only
    const std::vector<std::string> invalidType = {"Invalid pdu type: 8\n"};
    EXPECT_EQ(logMessages(), result == 200 ? invalidType : std::vector<std::string>());
}
SMSPB_VECTORS(PduRefusal, "pdu_refusals.txt");

// ---- decoding, the rest

TEST_F(PduDecoder, ATextOf511CharactersIsTooLongAndOneOf510IsNot) {
    SmsAtMessage message = {};
    const std::string start = "00" + TPDU;
    for (const std::size_t length : {511, 512, 1000, 70000}) {
        const auto pdu = guardedText(start + std::string(length - start.size(), '0'));
        EXPECT_EQ(wms_decode_at_cmd_pdu(pdu.get(), &message), AT_PDU_TOO_LONG) << length;
        EXPECT_TRUE(logMessages().empty());
    }
    const auto pdu = guardedText(start + std::string(510 - start.size(), '0'));
    EXPECT_EQ(wms_decode_at_cmd_pdu(pdu.get(), &message), 0U);
    EXPECT_EQ(message.tpdu.u.deliver.user_data.sm_len, 5);
}

TEST_F(PduDecoder, LengthIsJudgedBeforeContent) {
    SmsAtMessage message = {};
    EXPECT_EQ(wms_decode_at_cmd_pdu(std::string(511, '!').c_str(), &message), 201U);
    EXPECT_EQ(wms_decode_at_cmd_pdu(std::string(510, '!').c_str(), &message), 202U);
}

TEST_F(PduDecoder, AnyCutOfAGoodTextIsRefusedOnlyInsideTheServiceCentre) {
    constexpr std::size_t SERVICE_CENTRE = 10;
    for (std::size_t length = 0; length <= GOOD_PDU.size(); length++) {
        const auto pdu = guardedText(GOOD_PDU.substr(0, length));
        Guarded<SmsAtMessage> message(1, Fill::Cleared);
        EXPECT_EQ(wms_decode_at_cmd_pdu(pdu.get(), message.get()),
                  length < SERVICE_CENTRE ? 202U : 0U)
            << length;
    }
}

TEST_F(PduDecoder, AnyTpduCharacterThatIsNotHexadecimalRefusesTheText) {
    for (std::size_t at = 10; at < GOOD_PDU.size(); at++) {
        for (const char bad : {'-', ' ', '/', ':', '@', '\r'}) {
            std::string pdu = GOOD_PDU;
            pdu[at] = bad;
            SmsAtMessage message = {};
            EXPECT_EQ(wms_decode_at_cmd_pdu(pdu.c_str(), &message), 202U) << pdu;
        }
    }
}

TEST_F(PduDecoder, ARefusalBehindTheServiceCentreLeavesItFilledIn) {
    SmsAtMessage message = {};
    EXPECT_EQ(wms_decode_at_cmd_pdu("049121436504-7", &message), 202U);
    EXPECT_EQ(digitsOf(message.service_centre), "010203040506");
    message = {};
    EXPECT_EQ(wms_decode_at_cmd_pdu("049121436503", &message), 200U);
    EXPECT_EQ(digitsOf(message.service_centre), "010203040506");
    EXPECT_EQ(message.service_centre.number_type, NUMBER_INTERNATIONAL);
}

TEST_F(PduDecoder, TheTpduDecodersOwnResultIsNotLookedAt) {
    static const struct {
        const char *pdu;
        u32 type;
    } CASES[] = {
        {    "000415912143658709214365870921F3",       TPDU_DELIVER}, // 21 digits
        {"00090007912143658700000005E8329BFD06",        TPDU_SUBMIT}, // enhanced validity
        {  "0006FF15912143658709214365870921F3", TPDU_STATUS_REPORT}, // 21 digits
    };
    for (const auto &c : CASES) {
        SmsAtMessage message = {};
        message.tpdu.tpdu_type = 0x77;
        EXPECT_EQ(wms_decode_at_cmd_pdu(c.pdu, &message), 0U) << c.pdu;
        EXPECT_EQ(message.tpdu.tpdu_type, c.type) << c.pdu;
    }
}

TEST_F(PduDecoder, WithoutAServiceCentreTheAddressIsEmptyWhateverTheRecordHeld) {
    SmsAtMessage message = {};
    ASSERT_EQ(wms_decode_at_cmd_pdu(GOOD_PDU.c_str(), &message), 0U);
    ASSERT_EQ(wms_decode_at_cmd_pdu(("00" + TPDU).c_str(), &message), 0U);
    EXPECT_EQ(message.service_centre.number_of_digits, 0);
}

TEST_F(PduDecoder, MissingOctetsReadAsZero) {
    SmsAtMessage message = {};
    ASSERT_EQ(wms_decode_at_cmd_pdu(std::string(510, 'F').c_str(), &message), 202U);
    ASSERT_EQ(wms_decode_at_cmd_pdu(("00" + std::string(508, '4')).c_str(), &message), 0U);
    message = {};
    ASSERT_EQ(wms_decode_at_cmd_pdu("0004", &message), 0U);
    const SmsDeliver &deliver = message.tpdu.u.deliver;
    EXPECT_EQ(deliver.more_msgs, 0);
    EXPECT_EQ(deliver.address.number_of_digits, 0);
    EXPECT_EQ(deliver.address.number_plan, 0U);
    EXPECT_EQ(deliver.pid, 0U);
    EXPECT_EQ(deliver.dcs.msg_class, MSG_CLASS_NONE);
    EXPECT_EQ(deliver.timestamp.month, 1); // repaired
    EXPECT_EQ(deliver.timestamp.year, 0);
    EXPECT_EQ(deliver.user_data.sm_len, 0);
}

TEST_F(PduDecoder, ATextOfTheServiceCentreAloneIsAnEmptyDeliver) {
    for (const char *pdu : {"00", "000", "0191", "0491214365"}) {
        SmsAtMessage message = {};
        message.tpdu.tpdu_type = 0x77;
        EXPECT_EQ(wms_decode_at_cmd_pdu(guardedText(pdu).get(), &message), 0U) << pdu;
        EXPECT_EQ(message.tpdu.tpdu_type, TPDU_DELIVER);
        EXPECT_EQ(message.tpdu.u.deliver.more_msgs, 1); // the flag is clear in an octet 00
    }
}

TEST_F(PduDecoder, TypeOfEveryFirstOctet) {
    static const char *const TRACES[] = {"delivery sms\n", "submit sms\n", "report status sms\n",
                                         "Invalid pdu type: 8\n"};
    static const u32 RESULTS[] = {0, 0, 0, AT_PDU_INVALID_TYPE};
    for (unsigned octet = 0; octet < 256; octet++) {
        clearLog();
        SmsAtMessage message = {};
        const std::string pdu = "00" + hex({static_cast<u8>(octet)}) + TPDU.substr(2);
        EXPECT_EQ(wms_decode_at_cmd_pdu(pdu.c_str(), &message), RESULTS[octet % 4]) << octet;
        EXPECT_EQ(logMessagesOf("wms_decode_at_cmd_pdu"),
                  std::vector<std::string>{TRACES[octet % 4]});
    }
}

// ---- encoding, the rest

SmsAtMessage deliverMessage() {
    SmsAtMessage message = {};
    EXPECT_EQ(wms_decode_at_cmd_pdu(GOOD_PDU.c_str(), &message), 0U);
    return message;
}

SmsAtMessage submitMessage() {
    SmsAtMessage message = {};
    EXPECT_EQ(wms_decode_at_cmd_pdu("049121436511170791942143F50000A705E8329BFD06", &message), 0U);
    return message;
}

TEST_F(PduEncoder, WritesUpperCaseDigitsWithALeadingZero) {
    SmsAtMessage message = deliverMessage();
    message.tpdu.u.deliver.pid = 0x0A;
    char out[600];
    u32 length = 0;
    EXPECT_EQ(wms_encode_at_cmd_pdu(&message, out, &length), 0U);
    EXPECT_STREQ(out, "0491214365040791942143F50A003150709030008005E8329BFD06");
    EXPECT_EQ(length, 22U);
}

TEST_F(PduEncoder, TheLengthDoesNotCountTheServiceCentre) {
    for (const std::size_t count : {0, 1, 7, 20, 36}) {
        SmsAtMessage message = deliverMessage();
        message.service_centre = numberAddress(1, 1, std::vector<u8>(count, 5));
        char out[600];
        u32 length = 0;
        EXPECT_EQ(wms_encode_at_cmd_pdu(&message, out, &length), 0U);
        EXPECT_EQ(length, 22U);
        const std::size_t part = count == 0 ? 2 : 4 + (count + 1) / 2 * 2;
        EXPECT_EQ(std::strlen(out), part + 44);
    }
}

TEST_F(PduEncoder, TheLongestTextFitsItsStatedRoom) {
    SmsAtMessage message = {};
    message.service_centre = numberAddress(1, 1, std::vector<u8>(36, 5));
    message.tpdu.tpdu_type = TPDU_SUBMIT;
    SmsSubmit &submit = message.tpdu.u.submit;
    submit.address = numberAddress(1, 1, std::vector<u8>(20, 7));
    submit.dcs.msg_class = MSG_CLASS_NONE;
    submit.dcs.alphabet = ALPHABET_UCS2;
    submit.validity = {
        VALIDITY_ABSOLUTE, {0x13, 0x05, 0x07, 0x09, 0x03, 0x00, 0}
    };
    submit.user_data.sm_len = 140;
    std::fill_n(submit.user_data.sm_data, 140, u8{0xAB});
    // 2 + 12 + 2 + 7 + 1 + 140 octets behind 40 characters of service centre.
    Guarded<char> out(40 + 2 * 164 + 1);
    u32 length = 0;
    EXPECT_EQ(wms_encode_at_cmd_pdu(&message, out.get(), &length), 0U);
    EXPECT_EQ(length, 164U);
    EXPECT_EQ(std::strlen(out.get()), 40 + 2 * 164U);
}

TEST_F(PduEncoder, ReturnsTheTpduEncodersRefusalBehindTheServiceCentrePart) {
    SmsAtMessage tooManyDigits = deliverMessage();
    tooManyDigits.tpdu.u.deliver.address.number_of_digits = 21;
    SmsAtMessage badTime = deliverMessage();
    badTime.tpdu.u.deliver.timestamp.month = 0x13;
    SmsAtMessage badFormat = submitMessage();
    badFormat.tpdu.u.submit.validity.format = 4;
    SmsAtMessage tooLong = submitMessage();
    tooLong.tpdu.u.submit.dcs.alphabet = ALPHABET_UCS2;
    tooLong.tpdu.u.submit.user_data.sm_len = 141;
    const struct {
        const SmsAtMessage &message;
        u32 result;
    } cases[] = {
        {tooManyDigits,           TS_GENERAL_ERROR},
        {      badTime,           TS_GENERAL_ERROR},
        {    badFormat, TS_INVALID_VALIDITY_FORMAT},
        {      tooLong,      TS_USER_DATA_TOO_LONG}
    };
    for (const auto &c : cases) {
        char out[600];
        u32 length = 77;
        EXPECT_EQ(wms_encode_at_cmd_pdu(&c.message, out, &length), c.result);
        EXPECT_STREQ(out, "0491214365") << c.result;
    }
}

TEST_F(PduEncoder, AnyOtherTypeGivesTheServiceCentrePartAloneAndLengthZero) {
    for (const u32 type : {1U, 2U, 4U, TPDU_STATUS_REPORT, TPDU_RESERVED, 0xFFFFFFFFU}) {
        SmsAtMessage message = deliverMessage();
        message.tpdu.tpdu_type = type;
        Guarded<char> out(11);
        u32 length = 77;
        EXPECT_EQ(wms_encode_at_cmd_pdu(&message, out.get(), &length), 200U) << type;
        EXPECT_STREQ(out.get(), "0491214365");
        EXPECT_EQ(length, 0U);
    }
}

} // namespace
