// The octets of a TPDU, and of each field alone in a block of the octets that it may touch.
#include "atlib/SmsEncoding.h"
#include "fuzz.h"

namespace {

enum { ADDRESS_OCTETS = 13, TIMESTAMP_OCTETS = 7, USER_DATA_OCTETS = 255, HEADER_OCTETS = 256 };

// Exactly `count` octets, zero behind the input's end.
fuzz::Block<u8> field(std::string_view input, std::size_t count) {
    fuzz::Block<u8> octets(count);
    std::copy_n(input.begin(), std::min(count, input.size()), octets.get());
    return octets;
}

void decodeMessages(std::string_view input) {
    const fuzz::Block<SmsRawTpdu> raw;
    std::copy_n(input.begin(), std::min<std::size_t>(input.size(), SMS_MAX_TPDU_LEN), raw->data);
    const fuzz::Block<SmsDeliver> deliver;
    const fuzz::Block<SmsSubmit> submit;
    const fuzz::Block<SmsStatusReport> report;
    wms_ts_decode_deliver(raw.get(), deliver.get());
    wms_ts_decode_submit(raw.get(), submit.get());
    wms_ts_decode_status_report(raw.get(), report.get());
    fuzz::require(deliver->address.number_of_digits <= SMS_MAX_ADDRESS_DIGITS &&
                      submit->address.number_of_digits <= SMS_MAX_ADDRESS_DIGITS &&
                      report->address.number_of_digits <= SMS_MAX_ADDRESS_DIGITS,
                  "an address has 20 digits at most");
    fuzz::require(deliver->user_data.num_headers <= SMS_MAX_UDH_IES &&
                      submit->user_data.num_headers <= SMS_MAX_UDH_IES &&
                      report->user_data.num_headers <= SMS_MAX_UDH_IES,
                  "7 information elements at most");
    fuzz::require(deliver->user_data.sm_len <= SMS_MAX_TPDU_LEN &&
                      submit->user_data.sm_len <= SMS_MAX_TPDU_LEN &&
                      report->user_data.sm_len <= SMS_MAX_TPDU_LEN,
                  "a body fits its buffer");
    wms_ts_encode_deliver(deliver.get(), raw.get());
    wms_ts_encode_submit(submit.get(), raw.get());
}

void decodeFields(std::string_view input) {
    const fuzz::Block<SmsAddress> address;
    wms_ts_decode_address(field(input, ADDRESS_OCTETS).get(), address.get());
    const fuzz::Block<SmsTimestamp> timestamp;
    wms_ts_decode_timestamp(field(input, TIMESTAMP_OCTETS).get(), timestamp.get());
    const fuzz::Block<SmsDcs> dcs;
    wms_ts_decode_dcs(field(input, 1).get(), dcs.get());
    for (u32 format = VALIDITY_NONE; format <= VALIDITY_ABSOLUTE + 1; format++) {
        const fuzz::Block<SmsValidity> validity;
        validity->format = format;
        const std::size_t octetCount = format == VALIDITY_RELATIVE ? 1 : TIMESTAMP_OCTETS;
        wms_ts_decode_gw_validity(field(input, octetCount).get(), validity.get());
    }
}

void decodeUserData(std::string_view input) {
    const fuzz::Block<u8> count;
    const fuzz::Block<SmsUdhIe> elements(SMS_MAX_UDH_IES);
    wms_ts_decode_user_data_header(1, field(input, HEADER_OCTETS).get(), count.get(),
                                   elements.get());
    const fuzz::Block<SmsDcs> dcs;
    dcs->alphabet = fuzz::takeOctet(&input) % 4;
    const u8 udhi = fuzz::takeOctet(&input) & 1;
    const u8 udl = fuzz::takeOctet(&input);
    const fuzz::Block<SmsUserData> data;
    wms_ts_decode_gw_user_data(dcs.get(), udl, field(input, USER_DATA_OCTETS).get(), udhi,
                               data.get());
}

} // namespace

void fuzz::examine(std::string_view input) {
    decodeMessages(input);
    decodeFields(input);
    decodeUserData(input);
}
