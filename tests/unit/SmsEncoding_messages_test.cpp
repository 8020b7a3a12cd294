// SMS-DELIVER, SMS-SUBMIT and SMS-STATUS-REPORT: whole messages.
#include "atlib/SmsEncoding.h"

#include <algorithm>
#include <random>

#include "support/library_test.h"
#include "support/records.h"

using namespace support;

namespace {

using Texts = std::vector<std::string>;

class DeliverVector : public LibraryVectorTest {};
class SubmitVector : public LibraryVectorTest {};
class StatusReportVector : public LibraryVectorTest {};
class Deliver : public LibraryTest {};
class Submit : public LibraryTest {};
class StatusReport : public LibraryTest {};
class CodecStatus : public LibraryTest {};

const u32 UNTOUCHED = 0xA5A5A5A5;

SmsDcs decodedScheme(u32 octet) {
    const u8 in = static_cast<u8>(octet);
    auto dcs = cleared<SmsDcs>();
    wms_ts_decode_dcs(&in, &dcs);
    return dcs;
}

void expectScheme(const SmsDcs &actual, u32 octet) {
    const SmsDcs expected = decodedScheme(octet);
    EXPECT_EQ(actual.raw_dcs, octet);
    EXPECT_EQ(actual.msg_class, expected.msg_class);
    EXPECT_EQ(actual.alphabet, expected.alphabet);
    EXPECT_EQ(actual.is_compressed, expected.is_compressed);
    EXPECT_EQ(actual.msg_waiting, expected.msg_waiting);
    EXPECT_EQ(actual.msg_waiting_active, expected.msg_waiting_active);
    EXPECT_EQ(actual.msg_waiting_kind, expected.msg_waiting_kind);
}

// The octets, and zeros to the end of the buffer.
std::string wholeBuffer(std::vector<u8> octets) {
    octets.resize(SMS_MAX_TPDU_LEN);
    return hex(octets);
}
std::string wholeBuffer(const SmsRawTpdu &raw) {
    return hex({raw.data, raw.data + SMS_MAX_TPDU_LEN});
}

SmsDeliver deliverFrom(const Vector &v) {
    auto deliver = cleared<SmsDeliver>();
    deliver.more_msgs = static_cast<u8>(v.number("more", 0));
    deliver.reply_path = static_cast<u8>(v.number("reply_path", 0));
    deliver.udh_present = static_cast<u8>(v.number("udhi", 0));
    deliver.status_report_enabled = static_cast<u8>(v.number("report", 0));
    deliver.address = addressFrom(v);
    deliver.pid = v.number("pid");
    deliver.dcs = decodedScheme(v.number("dcs"));
    deliver.timestamp = timestampFrom(v.octets("time"), v.integer("timezone"));
    deliver.user_data = userDataFrom(v);
    EXPECT_EQ(deliver.dcs.alphabet, v.number("alphabet", 0));
    return deliver;
}

SmsSubmit submitFrom(const Vector &v) {
    auto submit = cleared<SmsSubmit>();
    submit.reject_duplicates = static_cast<u8>(v.number("reject_duplicates", 0));
    submit.reply_path = static_cast<u8>(v.number("reply_path", 0));
    submit.udh_present = static_cast<u8>(v.number("udhi", 0));
    submit.status_report_enabled = static_cast<u8>(v.number("report", 0));
    submit.message_reference = v.number("reference");
    submit.address = addressFrom(v);
    submit.pid = v.number("pid");
    submit.dcs = decodedScheme(v.number("dcs"));
    submit.validity.format = v.number("validity");
    if (v.has("time")) {
        submit.validity.time =
            timestampFrom(v.octets("time"), v.has("timezone") ? v.integer("timezone") : 0);
    }
    submit.user_data = userDataFrom(v);
    EXPECT_EQ(submit.dcs.alphabet, v.number("alphabet", 0));
    return submit;
}

// A DELIVER of one septet that encodes well.
SmsDeliver goodDeliver() {
    auto deliver = cleared<SmsDeliver>();
    deliver.more_msgs = 1;
    deliver.address = numericAddress("1234");
    deliver.dcs = codingScheme(ALPHABET_GSM_7BIT);
    deliver.timestamp = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45});
    deliver.user_data = userData({0x41});
    return deliver;
}
const char GOOD_DELIVER_HEAD[] = "00 04 81 21 43 00 00 42 70 51 21 03 54 00";
const char GOOD_DELIVER[] = "00 04 81 21 43 00 00 42 70 51 21 03 54 00 01 41";

SmsSubmit goodSubmit() {
    auto submit = cleared<SmsSubmit>();
    submit.message_reference = 7;
    submit.address = numericAddress("1234");
    submit.dcs = codingScheme(ALPHABET_GSM_7BIT);
    submit.validity.format = VALIDITY_RELATIVE;
    submit.validity.time = timestampFrom({0, 0, 1, 0, 0, 0});
    submit.user_data = userData({0x41});
    return submit;
}
const char GOOD_SUBMIT_HEAD[] = "11 07 04 81 21 43 00 00 A7";
const char GOOD_SUBMIT[] = "11 07 04 81 21 43 00 00 A7 01 41";

const char GOOD_REPORT[] = "06 01 04 81 21 43 42 70 51 21 03 54 00 42 70 51 21 13 00 00 00";

// The good vector with the octet at `position` changed.
SmsRawTpdu changed(const char *good, std::size_t position, u8 octet) {
    auto text = octets(good);
    text.at(position) = octet;
    return rawTpdu(text);
}

u32 decode(const SmsRawTpdu &raw, SmsDeliver *deliver) {
    *deliver = cleared<SmsDeliver>();
    return wms_ts_decode_deliver(&raw, deliver);
}
u32 decode(const SmsRawTpdu &raw, SmsSubmit *submit) {
    *submit = cleared<SmsSubmit>();
    return wms_ts_decode_submit(&raw, submit);
}
u32 decode(const SmsRawTpdu &raw, SmsStatusReport *report) {
    *report = cleared<SmsStatusReport>();
    return wms_ts_decode_status_report(&raw, report);
}

SmsRawTpdu untouchedTpdu() {
    SmsRawTpdu raw;
    std::memset(&raw, 0xA5, sizeof(raw));
    return raw;
}

} // namespace

TEST_F(CodecStatus, NumbersOfTheCodecAreThoseOfTheInterface) {
    EXPECT_EQ(TS_OK, 0U);
    EXPECT_EQ(TS_GENERAL_ERROR, 1U);
    EXPECT_EQ(TS_NULL_POINTER, 9U);
    EXPECT_EQ(TS_INVALID_ADDRESS, 100U);
    EXPECT_EQ(TS_USER_DATA_TOO_LONG, 101U);
    EXPECT_EQ(TS_INVALID_TIMESTAMP, 102U);
    EXPECT_EQ(TS_INVALID_TPDU_TYPE, 200U);
    EXPECT_EQ(TS_INVALID_VALIDITY_FORMAT, 203U);
}

// DELIVER

SMSPB_VECTORS(DeliverVector, "deliver.txt");

TEST_P(DeliverVector, EncodesAndDecodes) {
    const Guarded<SmsDeliver> expected(std::vector<SmsDeliver>{deliverFrom(v())});
    const auto octets = v().octets("octets");

    const Guarded<SmsRawTpdu> encoded;
    EXPECT_EQ(wms_ts_encode_deliver(expected.get(), encoded.get()), TS_OK);
    EXPECT_EQ(wholeBuffer(*encoded), wholeBuffer(octets));
    EXPECT_EQ(encoded->len, octets.size());
    EXPECT_EQ(encoded->tpdu_type, 0U);

    const Guarded<SmsRawTpdu> raw(std::vector<SmsRawTpdu>{rawTpdu(octets)});
    raw->len = 0; // neither length nor type is looked at
    raw->tpdu_type = UNTOUCHED;
    const Guarded<SmsDeliver> decoded(1, Fill::Cleared);
    EXPECT_EQ(wms_ts_decode_deliver(raw.get(), decoded.get()), TS_OK);
    EXPECT_EQ(decoded->more_msgs, expected->more_msgs);
    EXPECT_EQ(decoded->reply_path, expected->reply_path);
    EXPECT_EQ(decoded->udh_present, expected->udh_present);
    EXPECT_EQ(decoded->status_report_enabled, expected->status_report_enabled);
    expectAddress(decoded->address, expected->address);
    EXPECT_EQ(decoded->pid, expected->pid);
    expectScheme(decoded->dcs, v().number("dcs"));
    expectTimestamp(decoded->timestamp, expected->timestamp);
    expectUserData(decoded->user_data, expected->user_data);
}

TEST_F(Deliver, NullPointerGives9) {
    const SmsDeliver deliver = goodDeliver();
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_deliver(nullptr, &raw), TS_NULL_POINTER);
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, nullptr), TS_NULL_POINTER);
    SmsDeliver decoded;
    EXPECT_EQ(wms_ts_decode_deliver(nullptr, &decoded), TS_NULL_POINTER);
    raw = rawTpdu(octets(GOOD_DELIVER));
    EXPECT_EQ(wms_ts_decode_deliver(&raw, nullptr), TS_NULL_POINTER);
}

TEST_F(Deliver, FirstOctetIsTracedBeforeThePointersAreLookedAt) {
    const auto raw = rawTpdu({0x44});
    EXPECT_EQ(wms_ts_decode_deliver(&raw, nullptr), TS_NULL_POINTER);
    EXPECT_EQ(logMessages(), (Texts{"data[pos] :44 \n\n"}));
}

TEST_F(Deliver, FieldsAreTracedInTheirOrder) {
    const auto raw = rawTpdu(octets("04 03 81 21 F3 7F 08 42 70 51 21 03 54 00 02 04 1F"));
    SmsDeliver deliver;
    EXPECT_EQ(decode(raw, &deliver), TS_OK);
    EXPECT_EQ(logMessages(), (Texts{"data[pos] :04 \n\n", "TP-OA data[pos] :03 \n\n",
                                    "TP-PID data[pos] :7f \n\n", "TP-DCS data[pos] :08 \n\n"}));
    for (const LogEntry &entry : logEntries()) {
        EXPECT_EQ(entry.source, "atlib/SmsEncoding.cpp");
        EXPECT_EQ(entry.function, "wms_ts_decode_deliver");
    }
}

TEST_F(Deliver, EveryFirstOctetGivesItsFlagsOrIsRefused) {
    for (u32 first = 0; first < 256; first++) {
        const auto raw = changed(GOOD_DELIVER, 0, static_cast<u8>(first));
        SmsDeliver deliver;
        const u32 status = decode(raw, &deliver);
        EXPECT_EQ(status, (first & 3) != 0 ? TS_INVALID_TPDU_TYPE : TS_OK) << first;
        if (status != TS_OK) { continue; }
        EXPECT_EQ(deliver.more_msgs, (first & 0x04) == 0 ? 1 : 0);
        EXPECT_EQ(deliver.status_report_enabled, (first & 0x20) != 0 ? 1 : 0);
        EXPECT_EQ(deliver.udh_present, (first & 0x40) != 0 ? 1 : 0);
        EXPECT_EQ(deliver.reply_path, (first & 0x80) != 0 ? 1 : 0);
    }
}

TEST_F(Deliver, AnyNonzeroFlagSetsItsBit) {
    auto deliver = goodDeliver();
    deliver.more_msgs = 0x80;
    deliver.reply_path = 0xFF;
    deliver.udh_present = 2;
    deliver.status_report_enabled = 0x10;
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_OK);
    EXPECT_EQ(raw.data[0], 0xE0);
}

TEST_F(Deliver, ProtocolIdentifierKeepsEightBits) {
    auto deliver = goodDeliver();
    deliver.pid = 0x1237F;
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_OK);
    EXPECT_EQ(raw.data[5], 0x7F);
}

TEST_F(Deliver, RefusedAddressEncodesTo1AndKeepsTypeAndLength) {
    auto deliver = goodDeliver();
    deliver.address.number_of_digits = 21;
    SmsRawTpdu raw = untouchedTpdu();
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_GENERAL_ERROR);
    EXPECT_EQ(raw.tpdu_type, UNTOUCHED);
    EXPECT_EQ(raw.len, UNTOUCHED);
    EXPECT_EQ(raw.data[SMS_MAX_TPDU_LEN - 1], 0) << "cleared before anything is written";
}

TEST_F(Deliver, RefusedTimestampEncodesTo1AndKeepsTypeAndLength) {
    auto deliver = goodDeliver();
    deliver.timestamp.month = 0x13;
    SmsRawTpdu raw = untouchedTpdu();
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_GENERAL_ERROR);
    EXPECT_EQ(raw.tpdu_type, UNTOUCHED);
    EXPECT_EQ(raw.len, UNTOUCHED);
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(octets("00 04 81 21 43 00 00 42")));
    EXPECT_EQ(logMessages(), (Texts{"Month is invalid: 13 month:0x13\n\n"}));
}

TEST_F(Deliver, UserDataOf141OctetsEncodesTo101WithItsHeadAlone) {
    auto deliver = goodDeliver();
    deliver.dcs = codingScheme(ALPHABET_8BIT);
    deliver.user_data = userData(std::vector<u8>(141, 0x5A));
    SmsRawTpdu raw = untouchedTpdu();
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_USER_DATA_TOO_LONG);
    auto head = octets(GOOD_DELIVER_HEAD);
    head[6] = 0x04;
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(head));
    EXPECT_EQ(raw.len, head.size());
    EXPECT_EQ(raw.tpdu_type, 0U);
}

TEST_F(Deliver, RefusedLengthDecodesTo1) {
    const auto raw = changed(GOOD_DELIVER, 1, 21);
    SmsDeliver deliver;
    EXPECT_EQ(decode(raw, &deliver), TS_GENERAL_ERROR);
    EXPECT_EQ(logMessages(), (Texts{"data[pos] :00 \n\n", "TP-OA data[pos] :15 \n\n"}));
}

TEST_F(Deliver, BadTimestampIsRepaired) {
    const auto raw = changed(GOOD_DELIVER, 8, 0x31); // month 13
    SmsDeliver deliver;
    EXPECT_EQ(decode(raw, &deliver), TS_OK);
    expectTimestamp(deliver.timestamp, timestampFrom({0x24, 0x01, 0x15, 0x12, 0x30, 0x45}));
    EXPECT_EQ(logMessages().back(), "Month is invalid: 13\n\n");
}

TEST_F(Deliver, ReturnCallIsShownAsStoredActiveVoicemail) {
    for (const u8 octet : std::vector<u8>{0xC9, 0xC1, 0xC2, 0xC3, 0xD1, 0xDB, 0xE2, 0xEB}) {
        auto text = octets(GOOD_DELIVER);
        text[5] = 0x5F;
        text[6] = octet;
        SmsDeliver deliver;
        decode(rawTpdu(text), &deliver);
        EXPECT_EQ(deliver.dcs.msg_waiting, 2U);
        EXPECT_EQ(deliver.dcs.msg_waiting_active, 1);
        EXPECT_EQ(deliver.dcs.msg_waiting_kind, 0U);
        EXPECT_EQ(deliver.dcs.raw_dcs, octet);
    }
}

TEST_F(Deliver, ReturnCallForVoicemailIsLeftAsDecoded) {
    auto text = octets(GOOD_DELIVER);
    text[5] = 0x5F;
    text[6] = 0xC8;
    SmsDeliver deliver;
    EXPECT_EQ(decode(rawTpdu(text), &deliver), TS_OK);
    EXPECT_EQ(deliver.dcs.msg_waiting, 1U);
    EXPECT_EQ(deliver.dcs.msg_waiting_active, 1);
    EXPECT_EQ(deliver.dcs.msg_waiting_kind, 0U);
    text[6] = 0xC0;
    EXPECT_EQ(decode(rawTpdu(text), &deliver), TS_OK);
    EXPECT_EQ(deliver.dcs.msg_waiting_active, 0);
}

TEST_F(Deliver, FaxIndicationWithAnotherProtocolIsLeftAsDecoded) {
    for (const u8 pid : std::vector<u8>{0x00, 0x5E, 0xDF}) {
        auto text = octets(GOOD_DELIVER);
        text[5] = pid;
        text[6] = 0xC9;
        SmsDeliver deliver;
        EXPECT_EQ(decode(rawTpdu(text), &deliver), TS_OK);
        EXPECT_EQ(deliver.dcs.msg_waiting, 1U);
        EXPECT_EQ(deliver.dcs.msg_waiting_kind, 1U);
    }
}

// GOOD_DELIVER's head with another coding scheme, TP-UDL and body.
static SmsRawTpdu deliverOf(u8 dcs, u8 length, const std::vector<u8> &body) {
    auto text = octets(GOOD_DELIVER_HEAD);
    text[6] = dcs;
    text.push_back(length);
    text.insert(text.end(), body.begin(), body.end());
    return rawTpdu(text);
}

TEST_F(Deliver, SeptetsFrom141OnGive101ThoughTheyAreComplete) {
    for (u32 count = 1; count <= 160; count++) {
        const auto raw = deliverOf(0x00, static_cast<u8>(count), std::vector<u8>(140, 0xFF));
        SmsDeliver deliver;
        EXPECT_EQ(decode(raw, &deliver), count >= 141 ? TS_USER_DATA_TOO_LONG : TS_OK) << count;
        EXPECT_EQ(deliver.user_data.sm_len, count);
        EXPECT_EQ(std::vector<u8>(deliver.user_data.sm_data, deliver.user_data.sm_data + count),
                  std::vector<u8>(count, 0x7F));
    }
    EXPECT_EQ(logMessagesOf("wms_ts_decode_deliver").back(), "TP-DCS data[pos] :00 \n\n")
        << "no line of its own";
}

TEST_F(Deliver, OverlongLengthGives0WithAnEmptyBody) {
    const struct {
        u8 dcs, length;
    } cases[] = {
        {0x04, 141},
        {0x04, 255},
        {0x08, 141},
        {0x00, 161},
        {0x00, 255}
    };
    for (const auto &c : cases) {
        const auto raw = deliverOf(c.dcs, c.length, std::vector<u8>(140, 0x55));
        SmsDeliver deliver;
        EXPECT_EQ(decode(raw, &deliver), TS_OK);
        EXPECT_EQ(deliver.user_data.sm_len, 0);
    }
}

TEST_F(Deliver, OctetsUpTo140Give0) {
    const auto raw = deliverOf(0x04, 140, std::vector<u8>(140, 0x55));
    SmsDeliver deliver;
    EXPECT_EQ(decode(raw, &deliver), TS_OK);
    EXPECT_EQ(deliver.user_data.sm_len, 140);
}

TEST_F(Deliver, ConcatenatedPartOf153SeptetsGives101WithItsTextComplete) {
    auto deliver = goodDeliver();
    deliver.udh_present = 1;
    deliver.user_data = userData(std::vector<u8>(153, 0x61), {concat8(0x12, 2, 1)});
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_OK);
    EXPECT_EQ(raw.len, 14U + 1 + 140);
    SmsDeliver decoded;
    EXPECT_EQ(decode(raw, &decoded), TS_USER_DATA_TOO_LONG);
    expectUserData(decoded.user_data, deliver.user_data);
}

TEST_F(Deliver, HeaderFlagWithoutElementsIsWrittenAsItStands) {
    auto deliver = goodDeliver();
    deliver.udh_present = 1;
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_OK);
    auto text = octets(GOOD_DELIVER);
    text[0] = 0x40;
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(text));
}

TEST_F(Deliver, ElementsWithoutTheFlagAreWrittenButNotAnnounced) {
    auto deliver = goodDeliver();
    deliver.user_data = userData({0x41}, {concat16(0x1234, 2, 1)});
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_OK);
    auto text = octets(GOOD_DELIVER_HEAD);
    const auto data = octets("09 06 08 04 12 34 02 01 41");
    text.insert(text.end(), data.begin(), data.end());
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(text));
}

// SUBMIT

SMSPB_VECTORS(SubmitVector, "submit.txt");

TEST_P(SubmitVector, EncodesAndDecodes) {
    const Guarded<SmsSubmit> expected(std::vector<SmsSubmit>{submitFrom(v())});
    const auto octets = v().octets("octets");

    const Guarded<SmsRawTpdu> encoded;
    EXPECT_EQ(wms_ts_encode_submit(expected.get(), encoded.get()), TS_OK);
    EXPECT_EQ(wholeBuffer(*encoded), wholeBuffer(octets));
    EXPECT_EQ(encoded->len, octets.size());
    EXPECT_EQ(encoded->tpdu_type, 3U);

    const Guarded<SmsRawTpdu> raw(std::vector<SmsRawTpdu>{rawTpdu(octets)});
    raw->len = 0;
    raw->tpdu_type = UNTOUCHED;
    const Guarded<SmsSubmit> decoded(1, Fill::Cleared);
    EXPECT_EQ(wms_ts_decode_submit(raw.get(), decoded.get()), TS_OK);
    EXPECT_EQ(decoded->reject_duplicates, expected->reject_duplicates);
    EXPECT_EQ(decoded->reply_path, expected->reply_path);
    EXPECT_EQ(decoded->udh_present, expected->udh_present);
    EXPECT_EQ(decoded->status_report_enabled, expected->status_report_enabled);
    EXPECT_EQ(decoded->message_reference, expected->message_reference);
    expectAddress(decoded->address, expected->address);
    EXPECT_EQ(decoded->pid, expected->pid);
    expectScheme(decoded->dcs, v().number("dcs"));
    EXPECT_EQ(decoded->validity.format, expected->validity.format);
    expectTimestamp(decoded->validity.time, expected->validity.time);
    expectUserData(decoded->user_data, expected->user_data);
}

TEST_F(Submit, NullPointerGives9) {
    const SmsSubmit submit = goodSubmit();
    SmsRawTpdu raw = rawTpdu(octets(GOOD_SUBMIT));
    SmsSubmit decoded;
    EXPECT_EQ(wms_ts_encode_submit(nullptr, &raw), TS_NULL_POINTER);
    EXPECT_EQ(wms_ts_encode_submit(&submit, nullptr), TS_NULL_POINTER);
    EXPECT_EQ(wms_ts_decode_submit(nullptr, &decoded), TS_NULL_POINTER);
    EXPECT_EQ(wms_ts_decode_submit(&raw, nullptr), TS_NULL_POINTER);
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Submit, FieldsAreTracedInTheirOrder) {
    const auto raw = rawTpdu(octets("55 07 04 81 21 43 00 08 0B 08 05 00 03 12 02 01 04 1F"));
    SmsSubmit submit;
    EXPECT_EQ(decode(raw, &submit), TS_OK);
    EXPECT_EQ(logMessages(),
              (Texts{"pdu type :0x55 \n\n",
                     "reject_duplicates:1 format:2 report_enabled:0 user_data_header:1 reply:0\n\n",
                     "TP-DA :0x4 \n\n", "TP-DCS :0x8 \n\n", "TP-VP :0xb \n\n", "TP-UD :0x5 \n\n"}));
    for (const LogEntry &entry : logEntries()) {
        EXPECT_EQ(entry.source, "atlib/SmsEncoding.cpp");
        EXPECT_EQ(entry.function, "wms_ts_decode_submit");
    }
}

TEST_F(Submit, ZeroIsTracedWithoutItsPrefix) {
    SmsSubmit submit;
    EXPECT_EQ(decode(rawTpdu(octets("00 07 00 81 00 00 00")), &submit), TS_OK);
    EXPECT_EQ(logMessages(),
              (Texts{"pdu type :0 \n\n",
                     "reject_duplicates:0 format:0 report_enabled:0 user_data_header:0 reply:0\n\n",
                     "TP-DA :0 \n\n", "TP-DCS :0 \n\n", "TP-VP :0 \n\n", "TP-UD :0 \n\n"}));
}

TEST_F(Submit, EveryFirstOctetGivesItsFlags) {
    for (u32 first = 0; first < 256; first++) {
        clearLog();
        const u32 format = first >> 3 & 3;
        SmsSubmit submit;
        const u32 status = decode(changed(GOOD_SUBMIT, 0, static_cast<u8>(first)), &submit);
        EXPECT_EQ(status, format == 1 ? TS_GENERAL_ERROR : TS_OK) << first;
        EXPECT_EQ(submit.reject_duplicates, first >> 2 & 1);
        EXPECT_EQ(submit.validity.format, format);
        EXPECT_EQ(submit.status_report_enabled, first >> 5 & 1);
        EXPECT_EQ(submit.udh_present, first >> 6 & 1);
        EXPECT_EQ(submit.reply_path, first >> 7 & 1);
    }
}

TEST_F(Submit, FirstOctetOfARecordWithoutFlagsIs11) {
    SmsRawTpdu raw;
    const auto submit = goodSubmit();
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
    EXPECT_EQ(raw.data[0], 0x11);
}

TEST_F(Submit, AnyNonzeroFlagSetsItsBit) {
    auto submit = goodSubmit();
    submit.reject_duplicates = 0x80;
    submit.reply_path = 0xFF;
    submit.udh_present = 2;
    submit.status_report_enabled = 0x10;
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
    EXPECT_EQ(raw.data[0], 0xF5);
}

TEST_F(Submit, ReferenceAndProtocolKeepEightBits) {
    auto submit = goodSubmit();
    submit.message_reference = 0x1FE;
    submit.pid = 0xFFFFFF41;
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
    EXPECT_EQ(raw.data[1], 0xFE);
    EXPECT_EQ(raw.data[6], 0x41);
}

TEST_F(Submit, ValidityFormatFrom4OnGives203AndKeepsTypeAndLength) {
    for (const u32 format : {4U, 5U, 6U, 0x102U, 0xFFFFFFFFU}) {
        auto submit = goodSubmit();
        submit.validity.format = format;
        SmsRawTpdu raw = untouchedTpdu();
        EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_INVALID_VALIDITY_FORMAT);
        EXPECT_EQ(raw.tpdu_type, UNTOUCHED);
        EXPECT_EQ(raw.len, UNTOUCHED);
        EXPECT_EQ(wholeBuffer(raw), wholeBuffer(octets("01"))) << "TP-MTI stands, the rest is 0";
    }
}

TEST_F(Submit, ValidityFormatIsLookedAtBehindTheDuplicateFlag) {
    auto submit = goodSubmit();
    submit.validity.format = 4;
    submit.reject_duplicates = 1;
    submit.reply_path = 1;
    SmsRawTpdu raw = untouchedTpdu();
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_INVALID_VALIDITY_FORMAT);
    EXPECT_EQ(raw.data[0], 0x05);
}

TEST_F(Submit, EnhancedValidityEncodesWithoutItsOctets) {
    auto submit = goodSubmit();
    submit.validity.format = VALIDITY_ENHANCED;
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(octets("09 07 04 81 21 43 00 00 01 41")));
    SmsSubmit decoded;
    EXPECT_EQ(decode(raw, &decoded), TS_GENERAL_ERROR);
    EXPECT_EQ(logMessages().back(), "TP-VP :0x1 \n\n");
}

TEST_F(Submit, AbsoluteValidityThatDoesNotEncodeLeavesItsFormatWithoutOctets) {
    auto submit = goodSubmit();
    submit.validity.format = VALIDITY_ABSOLUTE;
    submit.validity.time = timestampFrom({0x24, 0x13, 0x15, 0x12, 0x30, 0x45});
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
    EXPECT_EQ(raw.data[0], 0x19);
    EXPECT_EQ(raw.len, 10U);
    EXPECT_EQ(hex({raw.data + 6, raw.data + 10}), "00000141") << "TP-UDL follows TP-DCS";
    EXPECT_EQ(logMessages(), (Texts{"Month is invalid: 13 month:0x13\n\n",
                                    "Error while Decoding Absolute Validity Timestamp\n\n"}));
}

TEST_F(Submit, RefusedAddressEncodesTo1AndKeepsTypeAndLength) {
    auto submit = goodSubmit();
    submit.address.number_of_digits = 21;
    SmsRawTpdu raw = untouchedTpdu();
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_GENERAL_ERROR);
    EXPECT_EQ(raw.tpdu_type, UNTOUCHED);
    EXPECT_EQ(raw.len, UNTOUCHED);
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(octets("11 07")));
}

TEST_F(Submit, UserDataEstimatedAt141EncodesTo101WithItsHeadAlone) {
    auto submit = goodSubmit();
    submit.user_data = userData(std::vector<u8>(161, 0x41));
    SmsRawTpdu raw = untouchedTpdu();
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_USER_DATA_TOO_LONG);
    EXPECT_EQ(wholeBuffer(raw), wholeBuffer(octets(GOOD_SUBMIT_HEAD)));
    EXPECT_EQ(raw.len, 9U);
    EXPECT_EQ(raw.tpdu_type, 3U);
}

TEST_F(Submit, UserDataEstimatedAt140Encodes) {
    const struct {
        u32 alphabet;
        std::size_t length, octets;
    } cases[] = {
        {0, 160, 140},
        {1, 140, 140},
        {2, 140, 140}
    };
    for (const auto &c : cases) {
        auto submit = goodSubmit();
        submit.dcs = codingScheme(c.alphabet);
        submit.user_data = userData(std::vector<u8>(c.length, 0x41));
        SmsRawTpdu raw;
        EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
        EXPECT_EQ(raw.len, 9 + 1 + c.octets);
        EXPECT_EQ(raw.data[9], c.length);
    }
}

TEST_F(Submit, HeaderCountsInTheEstimate) {
    auto submit = goodSubmit();
    submit.udh_present = 1;
    submit.user_data = userData(std::vector<u8>(153, 0x41), {concat8(0x12, 2, 1)});
    SmsRawTpdu raw;
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
    EXPECT_EQ(raw.data[9], 160);
    EXPECT_EQ(raw.len, 150U);
    submit.user_data = userData(std::vector<u8>(154, 0x41), {concat8(0x12, 2, 1)});
    EXPECT_EQ(wms_ts_encode_submit(&submit, &raw), TS_USER_DATA_TOO_LONG);
    EXPECT_EQ(raw.len, 9U);
}

TEST_F(Submit, RefusedLengthDecodesTo1) {
    SmsSubmit submit;
    EXPECT_EQ(decode(changed(GOOD_SUBMIT, 2, 21), &submit), TS_GENERAL_ERROR);
    EXPECT_EQ(logMessages().back(), "TP-DA :0x15 \n\n");
    EXPECT_EQ(submit.message_reference, 7U) << "what was decoded before stays";
}

TEST_F(Submit, AbsentValidityIsNotAFailure) {
    SmsSubmit submit;
    EXPECT_EQ(decode(rawTpdu(octets("01 07 04 81 21 43 00 00 01 41")), &submit), TS_OK);
    EXPECT_EQ(submit.user_data.sm_len, 1);
}

TEST_F(Submit, SeptetsFrom141OnGive101WithALine) {
    for (u32 count = 139; count <= 160; count++) {
        clearLog();
        auto text = octets(GOOD_SUBMIT_HEAD);
        text.push_back(static_cast<u8>(count));
        text.resize(text.size() + 140, 0xFF);
        SmsSubmit submit;
        EXPECT_EQ(decode(rawTpdu(text), &submit), count >= 141 ? TS_USER_DATA_TOO_LONG : TS_OK);
        EXPECT_EQ(submit.user_data.sm_len, count);
        EXPECT_EQ(std::vector<u8>(submit.user_data.sm_data, submit.user_data.sm_data + count),
                  std::vector<u8>(count, 0x7F));
        EXPECT_EQ(logMessages().back(), count >= 141
                                            ? "User Data Length has exceeded capacity: UDL = " +
                                                  std::to_string(count) + "\n"
                                            : "TP-UD :0xff \n\n");
    }
}

TEST_F(Submit, ReturnCallRuleIsForDeliversOnly) {
    auto text = octets(GOOD_SUBMIT);
    text[6] = 0x5F;
    text[7] = 0xC9;
    SmsSubmit submit;
    EXPECT_EQ(decode(rawTpdu(text), &submit), TS_OK);
    EXPECT_EQ(submit.dcs.msg_waiting, 1U);
    EXPECT_EQ(submit.dcs.msg_waiting_kind, 1U);
}

// STATUS-REPORT

SMSPB_VECTORS(StatusReportVector, "status_report.txt");

static i32 zone(const Vector &v, const char *key) { return v.has(key) ? v.integer(key) : 0; }

TEST_P(StatusReportVector, Decodes) {
    const Guarded<SmsRawTpdu> raw(std::vector<SmsRawTpdu>{rawTpdu(v().octets("octets"))});
    raw->len = 0;
    const Guarded<SmsStatusReport> report(1, Fill::Cleared);
    report->pid = UNTOUCHED;
    report->user_data.sm_len = 99;
    EXPECT_EQ(wms_ts_decode_status_report(raw.get(), report.get()), TS_OK);

    EXPECT_EQ(report->udh_present, v().number("udhi", 0));
    EXPECT_EQ(report->more_msgs, v().number("more", 0));
    EXPECT_EQ(report->status_report_qualifier, v().number("qualifier", 0));
    EXPECT_EQ(report->message_reference, v().number("reference"));
    expectAddress(report->address, addressFrom(v()));
    expectTimestamp(report->sc_timestamp,
                    timestampFrom(v().octets("sent"), zone(v(), "sent_zone")));
    expectTimestamp(report->discharge_time,
                    timestampFrom(v().octets("done"), zone(v(), "done_zone")));
    EXPECT_EQ(report->tp_status, v().number("status"));
    EXPECT_EQ(report->mask, v().number("mask"));
    EXPECT_EQ(report->pid, v().number("pid", 0));
    if (v().has("dcs")) { expectScheme(report->dcs, v().number("dcs")); }
    expectUserData(report->user_data, userDataFrom(v()));

    Texts trace;
    for (const std::string &line : v().texts("trace")) { trace.push_back(line + "\n"); }
    EXPECT_EQ(logMessagesOf("wms_ts_decode_status_report"), trace);
    EXPECT_EQ(logMessages().size(), trace.size());
}

TEST_F(StatusReport, NullPointerIsPrintedAndGives9) {
    const auto raw = rawTpdu(octets(GOOD_REPORT));
    SmsStatusReport report;
    for (int missing = 0; missing < 2; missing++) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(missing == 0 ? wms_ts_decode_status_report(nullptr, &report)
                               : wms_ts_decode_status_report(&raw, nullptr),
                  TS_NULL_POINTER);
        std::fflush(stdout);
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(printed.substr(0, printed.find('\n')), "Null pointer!");
        EXPECT_LE(printed.size(), sizeof("Null pointer!"));
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(StatusReport, EveryFirstOctetGivesItsFlags) {
    for (u32 first = 0; first < 256; first++) {
        SmsStatusReport report;
        EXPECT_EQ(decode(changed(GOOD_REPORT, 0, static_cast<u8>(first)), &report), TS_OK);
        EXPECT_EQ(report.more_msgs, (first & 0x04) == 0 ? 1 : 0);
        EXPECT_EQ(report.status_report_qualifier, first >> 5 & 1);
        EXPECT_EQ(report.udh_present, first >> 6 & 1);
    }
}

TEST_F(StatusReport, EveryStatusIsKept) {
    for (u32 status = 0; status < 256; status++) {
        SmsStatusReport report;
        EXPECT_EQ(decode(changed(GOOD_REPORT, 20, static_cast<u8>(status)), &report), TS_OK);
        EXPECT_EQ(report.tp_status, status);
    }
}

TEST_F(StatusReport, RefusedAddressGives100) {
    SmsStatusReport report;
    EXPECT_EQ(decode(changed(GOOD_REPORT, 2, 21), &report), TS_INVALID_ADDRESS);
    EXPECT_EQ(report.message_reference, 1U);
    EXPECT_EQ(logMessages().back(), "TP-RA:0x15\n");
}

TEST_F(StatusReport, BadTimestampsAreRepaired) {
    auto text = octets(GOOD_REPORT);
    text[7] = 0x31;
    text[14] = 0xFF;
    SmsStatusReport report;
    EXPECT_EQ(decode(rawTpdu(text), &report), TS_OK);
    expectTimestamp(report.sc_timestamp, timestampFrom({0x24, 1, 0x15, 0x12, 0x30, 0x45}));
    expectTimestamp(report.discharge_time, timestampFrom({0x24, 1, 0x15, 0x12, 0x31, 0x00}));
}

TEST_F(StatusReport, AbsentSchemeIsLeftAsTheCallerHadIt) {
    auto report = cleared<SmsStatusReport>();
    std::memset(&report.dcs, 0xA5, sizeof(report.dcs));
    const auto before = octetsOf(report.dcs);
    const auto raw = rawTpdu(octets(std::string(GOOD_REPORT) + " 01 7F"));
    EXPECT_EQ(wms_ts_decode_status_report(&raw, &report), TS_OK);
    EXPECT_EQ(octetsOf(report.dcs), before);
}

TEST_F(StatusReport, UserDataUsesTheCallersSchemeWhenNoneIsGiven) {
    auto report = cleared<SmsStatusReport>();
    report.dcs = codingScheme(ALPHABET_UCS2);
    const auto raw = rawTpdu(octets(std::string(GOOD_REPORT) + " 04 02 04 1F"));
    EXPECT_EQ(wms_ts_decode_status_report(&raw, &report), TS_OK);
    expectUserData(report.user_data, userData({0x04, 0x1F}));
}

TEST_F(StatusReport, EveryParameterIndicatorReadsItsFields) {
    for (u32 mask = 1; mask < 255; mask++) {
        std::string text = std::string(GOOD_REPORT) + " " + hex({static_cast<u8>(mask)});
        if ((mask & 1) != 0) { text += " 41"; }
        if ((mask & 2) != 0) { text += " 08"; }
        if ((mask & 4) != 0) { text += " 02 04 1F"; }
        auto report = cleared<SmsStatusReport>();
        report.dcs = codingScheme(ALPHABET_8BIT);
        const auto raw = rawTpdu(octets(text));
        EXPECT_EQ(wms_ts_decode_status_report(&raw, &report), TS_OK);
        EXPECT_EQ(report.mask, mask);
        EXPECT_EQ(report.pid, (mask & 1) != 0 ? 0x41U : 0U);
        EXPECT_EQ(report.dcs.alphabet, (mask & 2) != 0 ? ALPHABET_UCS2 : ALPHABET_8BIT);
        expectUserData(report.user_data, (mask & 4) != 0 ? userData({0x04, 0x1F}) : userData({}));
    }
}

TEST_F(StatusReport, SeptetsFrom141OnGive101WithALine) {
    for (const u8 count : std::vector<u8>{140, 141, 160}) {
        clearLog();
        auto text = octets(std::string(GOOD_REPORT) + " 06 00");
        text.push_back(count);
        text.resize(text.size() + 140, 0xFF);
        SmsStatusReport report;
        EXPECT_EQ(decode(rawTpdu(text), &report), count >= 141 ? TS_USER_DATA_TOO_LONG : TS_OK);
        EXPECT_EQ(report.user_data.sm_len, count);
        const std::string line =
            "User Data Length has exceeded capacity: UDL = " + std::to_string(count) + "\n";
        EXPECT_EQ(logMessages().back() == line, count >= 141);
    }
}

TEST_F(StatusReport, OverlongLengthGives0WithAnEmptyBody) {
    SmsStatusReport report;
    EXPECT_EQ(decode(rawTpdu(octets(std::string(GOOD_REPORT) + " 06 04 8D 55x141")), &report),
              TS_OK);
    EXPECT_EQ(report.user_data.sm_len, 0);
}

// Random records

namespace {

std::mt19937 g_random(340);

u32 pick(u32 count) { return static_cast<u32>(g_random() % count); }
u8 bcd(u32 value) { return static_cast<u8>(value / 10 * 16 + value % 10); }

SmsAddress randomAddress() {
    auto address = numericAddress("", pick(5), pick(16));
    address.number_of_digits = static_cast<u8>(pick(21));
    for (u8 i = 0; i < address.number_of_digits; i++) {
        address.digits[i] = static_cast<u8>(pick(15));
    }
    return address;
}

SmsTimestamp randomTime() {
    return timestampFrom({bcd(pick(100)), bcd(1 + pick(12)), bcd(1 + pick(31)), bcd(pick(24)),
                          bcd(pick(60)), bcd(pick(60))},
                         static_cast<i32>(pick(97)) - 48);
}

// A body that fits, behind one concatenation element or none.
SmsUserData randomUserData(u32 alphabet, bool header) {
    const bool septets = alphabet == ALPHABET_GSM_7BIT;
    const u32 most = header ? (septets ? 152 : 133) : (septets ? 160 : 140);
    std::vector<u8> body(1 + pick(most));
    for (u8 &octet : body) { octet = static_cast<u8>(septets ? 1 + pick(127) : pick(256)); }
    std::vector<SmsUdhIe> elements;
    if (header) {
        const u32 total = 1 + pick(255);
        elements.push_back(pick(2) != 0 ? concat8(pick(256), total, 1 + pick(total))
                                        : concat16(pick(65536), total, 1 + pick(total)));
    }
    return userData(body, elements);
}

u32 expectedStatus(const SmsUserData &data, u32 alphabet) {
    const u32 header = data.num_headers == 0 ? 0 : data.headers[0].header_id == 8 ? 7 : 6;
    const bool septets = alphabet == ALPHABET_GSM_7BIT;
    return septets && header + data.sm_len >= 141 ? TS_USER_DATA_TOO_LONG : TS_OK;
}

} // namespace

TEST_F(Deliver, RandomRecordsComeBack) {
    setLogFaults({true, true});
    for (int round = 0; round < 1000; round++) {
        auto deliver = cleared<SmsDeliver>();
        deliver.more_msgs = static_cast<u8>(pick(2));
        deliver.reply_path = static_cast<u8>(pick(2));
        deliver.udh_present = static_cast<u8>(pick(2));
        deliver.status_report_enabled = static_cast<u8>(pick(2));
        deliver.address = randomAddress();
        deliver.pid = pick(256);
        deliver.dcs = codingScheme(pick(3), pick(5));
        deliver.timestamp = randomTime();
        deliver.user_data = randomUserData(deliver.dcs.alphabet, deliver.udh_present != 0);
        SmsRawTpdu raw;
        ASSERT_EQ(wms_ts_encode_deliver(&deliver, &raw), TS_OK);
        SmsDeliver decoded;
        ASSERT_EQ(decode(raw, &decoded), expectedStatus(deliver.user_data, deliver.dcs.alphabet));
        EXPECT_EQ(decoded.more_msgs, deliver.more_msgs);
        EXPECT_EQ(decoded.reply_path, deliver.reply_path);
        EXPECT_EQ(decoded.udh_present, deliver.udh_present);
        EXPECT_EQ(decoded.status_report_enabled, deliver.status_report_enabled);
        EXPECT_EQ(decoded.pid, deliver.pid);
        EXPECT_EQ(decoded.dcs.alphabet, deliver.dcs.alphabet);
        EXPECT_EQ(decoded.dcs.msg_class, deliver.dcs.msg_class);
        expectAddress(decoded.address, deliver.address);
        expectTimestamp(decoded.timestamp, deliver.timestamp);
        expectUserData(decoded.user_data, deliver.user_data);
    }
}

TEST_F(Submit, RandomRecordsComeBack) {
    setLogFaults({true, true});
    for (int round = 0; round < 1000; round++) {
        auto submit = cleared<SmsSubmit>();
        submit.reject_duplicates = static_cast<u8>(pick(2));
        submit.reply_path = static_cast<u8>(pick(2));
        submit.udh_present = static_cast<u8>(pick(2));
        submit.status_report_enabled = static_cast<u8>(pick(2));
        submit.message_reference = pick(256);
        submit.address = randomAddress();
        submit.pid = pick(256);
        submit.dcs = codingScheme(pick(3), pick(5));
        submit.validity.format = pick(2) * VALIDITY_ABSOLUTE;
        if (submit.validity.format != VALIDITY_NONE) { submit.validity.time = randomTime(); }
        submit.user_data = randomUserData(submit.dcs.alphabet, submit.udh_present != 0);
        SmsRawTpdu raw;
        ASSERT_EQ(wms_ts_encode_submit(&submit, &raw), TS_OK);
        SmsSubmit decoded;
        ASSERT_EQ(decode(raw, &decoded), expectedStatus(submit.user_data, submit.dcs.alphabet));
        EXPECT_EQ(decoded.reject_duplicates, submit.reject_duplicates);
        EXPECT_EQ(decoded.reply_path, submit.reply_path);
        EXPECT_EQ(decoded.udh_present, submit.udh_present);
        EXPECT_EQ(decoded.status_report_enabled, submit.status_report_enabled);
        EXPECT_EQ(decoded.message_reference, submit.message_reference);
        EXPECT_EQ(decoded.pid, submit.pid);
        EXPECT_EQ(decoded.validity.format, submit.validity.format);
        expectTimestamp(decoded.validity.time, submit.validity.time);
        expectAddress(decoded.address, submit.address);
        expectUserData(decoded.user_data, submit.user_data);
    }
}
