// The records of the transfer layer, and its decoders on malformed octets.
#include "atlib/SmsEncoding.h"

#include <cstddef>
#include <random>

#include "support/library_test.h"
#include "support/records.h"

using namespace support;

namespace {

class Record : public LibraryTest {};
class Malformed : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        setLogFaults({true, true}); // thousands of traces say nothing new
    }
};

} // namespace

// Records

TEST_F(Record, LimitsAreThoseOfTheInterface) {
    EXPECT_EQ(SMS_MAX_TPDU_LEN, 255);
    EXPECT_EQ(SMS_MAX_ADDRESS_DIGITS, 20);
    EXPECT_EQ(SMS_MAX_UDH_IES, 7);
    EXPECT_EQ(sizeof(SmsRawTpdu::data), 255U);
    EXPECT_EQ(sizeof(SmsUserData::sm_data), 255U);
    EXPECT_EQ(sizeof(SmsUserData::headers) / sizeof(SmsUdhIe), 7U);
    EXPECT_EQ(sizeof(SmsAddress::digits), 36U);
    EXPECT_EQ(sizeof(SmsTimestamp), 7U);
}

// Fields in the order of the interface, each behind the one before it.
template <typename... Offsets> static void expectOrder(Offsets... offsets) {
    const std::vector<std::size_t> list = {static_cast<std::size_t>(offsets)...};
    for (std::size_t i = 1; i < list.size(); i++) {
        EXPECT_LT(list[i - 1], list[i]) << "field " << i;
    }
}

TEST_F(Record, FieldsStandInTheirOrder) {
    expectOrder(offsetof(SmsAddress, digit_mode), offsetof(SmsAddress, aux_mode),
                offsetof(SmsAddress, number_type), offsetof(SmsAddress, number_plan),
                offsetof(SmsAddress, number_of_digits), offsetof(SmsAddress, digits));
    expectOrder(offsetof(SmsTimestamp, year), offsetof(SmsTimestamp, month),
                offsetof(SmsTimestamp, day), offsetof(SmsTimestamp, hour),
                offsetof(SmsTimestamp, minute), offsetof(SmsTimestamp, second),
                offsetof(SmsTimestamp, timezone));
    expectOrder(offsetof(SmsValidity, format), offsetof(SmsValidity, time));
    expectOrder(offsetof(SmsDcs, msg_class), offsetof(SmsDcs, is_compressed),
                offsetof(SmsDcs, alphabet), offsetof(SmsDcs, msg_waiting),
                offsetof(SmsDcs, msg_waiting_active), offsetof(SmsDcs, msg_waiting_kind),
                offsetof(SmsDcs, raw_dcs));
    expectOrder(offsetof(SmsUdhIe, header_id), offsetof(SmsUdhIe, payload));
    expectOrder(offsetof(SmsUserData, num_headers), offsetof(SmsUserData, headers),
                offsetof(SmsUserData, sm_len), offsetof(SmsUserData, sm_data));
    expectOrder(offsetof(SmsRawTpdu, tpdu_type), offsetof(SmsRawTpdu, len),
                offsetof(SmsRawTpdu, data));
    expectOrder(offsetof(SmsAtMessage, service_centre), offsetof(SmsAtMessage, tpdu));
    expectOrder(offsetof(SmsTpdu, tpdu_type), offsetof(SmsTpdu, u));
}

TEST_F(Record, MessageFieldsStandInTheirOrder) {
    expectOrder(offsetof(SmsDeliver, more_msgs), offsetof(SmsDeliver, reply_path),
                offsetof(SmsDeliver, udh_present), offsetof(SmsDeliver, status_report_enabled),
                offsetof(SmsDeliver, address), offsetof(SmsDeliver, pid), offsetof(SmsDeliver, dcs),
                offsetof(SmsDeliver, timestamp), offsetof(SmsDeliver, user_data));
    expectOrder(offsetof(SmsSubmit, reject_duplicates), offsetof(SmsSubmit, reply_path),
                offsetof(SmsSubmit, udh_present), offsetof(SmsSubmit, status_report_enabled),
                offsetof(SmsSubmit, message_reference), offsetof(SmsSubmit, address),
                offsetof(SmsSubmit, pid), offsetof(SmsSubmit, dcs), offsetof(SmsSubmit, validity),
                offsetof(SmsSubmit, user_data));
    expectOrder(offsetof(SmsStatusReport, udh_present), offsetof(SmsStatusReport, more_msgs),
                offsetof(SmsStatusReport, status_report_qualifier),
                offsetof(SmsStatusReport, message_reference), offsetof(SmsStatusReport, address),
                offsetof(SmsStatusReport, sc_timestamp), offsetof(SmsStatusReport, discharge_time),
                offsetof(SmsStatusReport, tp_status), offsetof(SmsStatusReport, mask),
                offsetof(SmsStatusReport, pid), offsetof(SmsStatusReport, dcs),
                offsetof(SmsStatusReport, user_data));
}

TEST_F(Record, EnumeratedValuesAre32BitsWideAndFlagsOneOctet) {
    EXPECT_EQ(sizeof(SmsAddress::number_type), 4U);
    EXPECT_EQ(sizeof(SmsAddress::number_of_digits), 1U);
    EXPECT_EQ(sizeof(SmsDcs::alphabet), 4U);
    EXPECT_EQ(sizeof(SmsDcs::is_compressed), 1U);
    EXPECT_EQ(sizeof(SmsUserData::sm_len), 2U);
    EXPECT_EQ(sizeof(SmsUserData::num_headers), 1U);
    EXPECT_EQ(sizeof(SmsUdhIe::header_id), 4U);
    EXPECT_EQ(sizeof(SmsDeliver::pid), 4U);
    EXPECT_EQ(sizeof(SmsDeliver::more_msgs), 1U);
    EXPECT_EQ(sizeof(SmsSubmit::message_reference), 4U);
    EXPECT_EQ(sizeof(SmsStatusReport::mask), 4U);
    EXPECT_EQ(sizeof(SmsRawTpdu::len), 4U);
    EXPECT_LT(static_cast<int8_t>(-1), 0);
    EXPECT_LT(SmsTimestamp{}.timezone - 1, 0);
}

TEST_F(Record, TpduTypesAreThoseOfTheInterface) {
    EXPECT_EQ(TPDU_DELIVER, 0U);
    EXPECT_EQ(TPDU_SUBMIT, 3U);
    EXPECT_EQ(TPDU_STATUS_REPORT, 6U);
    EXPECT_EQ(TPDU_RESERVED, 8U);
}

// Malformed octets

namespace {

void expectSane(const SmsAddress &address) {
    EXPECT_LE(address.number_of_digits, SMS_MAX_ADDRESS_DIGITS);
}

void expectSane(const SmsUserData &data) {
    EXPECT_LE(data.sm_len, SMS_MAX_TPDU_LEN);
    EXPECT_LE(data.num_headers, SMS_MAX_UDH_IES);
}

// Runs every decoder on the buffer, which lies against an unreadable page as its output does.
void decodeAll(const SmsRawTpdu &octets) {
    const Guarded<SmsRawTpdu> raw(std::vector<SmsRawTpdu>{octets});
    const Guarded<SmsDeliver> deliver(1, Fill::Cleared);
    const u32 delivered = wms_ts_decode_deliver(raw.get(), deliver.get());
    EXPECT_TRUE(delivered == TS_OK || delivered == TS_GENERAL_ERROR ||
                delivered == TS_USER_DATA_TOO_LONG || delivered == TS_INVALID_TPDU_TYPE);
    EXPECT_EQ(delivered == TS_INVALID_TPDU_TYPE, (octets.data[0] & 3) != 0);
    expectSane(deliver->address);
    expectSane(deliver->user_data);

    const Guarded<SmsSubmit> submit(1, Fill::Cleared);
    const u32 submitted = wms_ts_decode_submit(raw.get(), submit.get());
    EXPECT_TRUE(submitted == TS_OK || submitted == TS_GENERAL_ERROR ||
                submitted == TS_USER_DATA_TOO_LONG);
    expectSane(submit->address);
    expectSane(submit->user_data);

    const Guarded<SmsStatusReport> report(1, Fill::Cleared);
    const u32 reported = wms_ts_decode_status_report(raw.get(), report.get());
    EXPECT_TRUE(reported == TS_OK || reported == TS_INVALID_ADDRESS ||
                reported == TS_USER_DATA_TOO_LONG);
    expectSane(report->address);
    expectSane(report->user_data);
}

std::vector<std::vector<u8>> goodTpdus() {
    std::vector<std::vector<u8>> all;
    for (const char *file : {"deliver.txt", "submit.txt", "status_report.txt"}) {
        for (const Vector &vector : readVectors(file)) { all.push_back(vector.octets("octets")); }
    }
    return all;
}

} // namespace

TEST_F(Malformed, MessageCutAnywhereStaysWithinItsBuffers) {
    for (const auto &good : goodTpdus()) {
        for (std::size_t length = 0; length <= good.size(); length++) {
            const std::vector<u8> cut(good.begin(),
                                      good.begin() + static_cast<std::ptrdiff_t>(length));
            for (const u8 rest : std::vector<u8>{0x00, 0xFF, 0x41}) {
                decodeAll(rawTpdu(cut, rest));
            }
        }
    }
}

TEST_F(Malformed, AnyBitOfAMessageFlippedStaysWithinItsBuffers) {
    for (const auto &good : goodTpdus()) {
        for (std::size_t bit = 0; bit < 8 * std::min<std::size_t>(good.size(), 40); bit++) {
            auto flipped = good;
            flipped[bit / 8] = static_cast<u8>(flipped[bit / 8] ^ 1 << bit % 8);
            decodeAll(rawTpdu(flipped));
            decodeAll(rawTpdu(flipped, 0xFF));
        }
    }
}

TEST_F(Malformed, AnyOctetOfAMessageChangedStaysWithinItsBuffers) {
    std::mt19937 random(341);
    for (const auto &good : goodTpdus()) {
        for (int round = 0; round < 200; round++) {
            auto changed = good;
            for (int i = 0; i < 3; i++) {
                changed[random() % changed.size()] = static_cast<u8>(random());
            }
            decodeAll(rawTpdu(changed, static_cast<u8>(random())));
        }
    }
}

TEST_F(Malformed, RandomOctetsStayWithinTheirBuffers) {
    std::mt19937 random(342);
    for (int round = 0; round < 3000; round++) {
        std::vector<u8> octets(SMS_MAX_TPDU_LEN);
        for (u8 &octet : octets) { octet = static_cast<u8>(random()); }
        octets[1] = static_cast<u8>(octets[1] % 24); // mostly an address that is not refused
        octets[2] = static_cast<u8>(octets[2] % 24);
        decodeAll(rawTpdu(octets));
    }
}

TEST_F(Malformed, OneOctetRepeatedStaysWithinItsBuffers) {
    for (u32 octet = 0; octet < 256; octet++) { decodeAll(rawTpdu({}, static_cast<u8>(octet))); }
}

TEST_F(Malformed, HeaderLongerThanItsTextStaysWithinItsBuffers) {
    std::vector<u8> header = {0x2A};
    for (int i = 0; i < 7; i++) {
        const auto element = octets("08 04 12 34 02 01");
        header.insert(header.end(), element.begin(), element.end());
    }
    for (const u8 dcs : std::vector<u8>{0x00, 0x04, 0x08}) {
        for (u32 length = 0; length < 256; length++) {
            auto text = octets("40 04 81 21 43 00 00 42 70 51 21 03 54 00");
            text[6] = dcs;
            text.push_back(static_cast<u8>(length));
            text.insert(text.end(), header.begin(), header.end());
            decodeAll(rawTpdu(text));
            decodeAll(rawTpdu(text, 0xFF));
        }
    }
}

TEST_F(Malformed, UserDataThatBeginsNearTheBuffersEndReadsZeros) {
    // A header of 255 octets refused, so that one octet is skipped and 139 are copied.
    auto text = octets("40 14 91 21 43 65 87 09 21 43 65 87 09 00 04 42 70 51 21 03 54 00 8C FF");
    SmsDeliver deliver = cleared<SmsDeliver>();
    const Guarded<SmsRawTpdu> raw(std::vector<SmsRawTpdu>{rawTpdu(text, 0xEE)});
    EXPECT_EQ(wms_ts_decode_deliver(raw.get(), &deliver), TS_OK);
    EXPECT_EQ(deliver.user_data.sm_len, 139);
    EXPECT_EQ(deliver.user_data.sm_data[138], 0xEE);
}

TEST_F(Malformed, LengthBelowItsHeaderReadsZerosBehindTheBuffer) {
    // TP-UDL 2 behind a header of 6 octets: 252 octets from position 21 on, of which 234 are there.
    const auto text = octets("40 04 81 21 43 00 04 42 70 51 21 03 54 00 02 05 00 03 12 02 01");
    const Guarded<SmsRawTpdu> raw(std::vector<SmsRawTpdu>{rawTpdu(text, 0xEE)});
    SmsDeliver deliver = cleared<SmsDeliver>();
    EXPECT_EQ(wms_ts_decode_deliver(raw.get(), &deliver), TS_OK);
    EXPECT_EQ(deliver.user_data.sm_len, 252);
    EXPECT_EQ(hex({deliver.user_data.sm_data, deliver.user_data.sm_data + 252}),
              hex(octets("EEx234 00x18")));
}
