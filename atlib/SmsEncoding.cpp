// The SMS transfer layer (3GPP TS 23.040, 23.038): fields and messages, octets to records and back.
// Allocates nothing and keeps no state.
#include "SmsEncoding.h"

#include <stdio.h>
#include <string.h>

#include "../comm/log_line.h"
#include "SmsUtils.h"
#include "octets.h"

static const char LOG_SOURCE[] = "atlib/SmsEncoding.cpp";
#define TRACE_NEXT(text, in) LOG_LINE(text, peekOctet(in)) // the octet that the next step reads

// clang-format off
// TS 23.040, 9.2.3: first octet                  7 6 5 4 3 2 1 0
enum : u8 {
    TP_MTI         = 0x03, // message type        . . . . . . x x
    TP_MTI_DELIVER = 0x00,
    TP_MTI_SUBMIT  = 0x01,
    TP_MMS         = 0x04, // 0 = more to follow  . . . . . x . .
    TP_RD          = 0x04, // reject duplicates   . . . . . x . .
    TP_VPF         = 0x18, // validity format     . . . x x . . .
    TP_SRI         = 0x20, // report indication   . . x . . . . .
    TP_SRR         = 0x20, // report request      . . x . . . . .
    TP_SRQ         = 0x20, // report on command   . . x . . . . .
    TP_UDHI        = 0x40, // header present      . x . . . . . .
    TP_RP          = 0x80  // reply path          x . . . . . . .
};

// TS 23.038, 4: data coding scheme               7 6 5 4 3 2 1 0
enum : u8 {
    DCS_GROUP        = 0xC0, //                   x x . . . . . .
    DCS_GROUP_KIND   = 0x30, // within group 11   . . x x . . . .
    DCS_COMPRESSED   = 0x20, //                   . . x . . . . .
    DCS_HAS_CLASS    = 0x10, //                   . . . x . . . .
    DCS_ALPHABET     = 0x0C, //                   . . . . x x . .
    DCS_ACTIVE       = 0x08, // indication sense  . . . . x . . .
    DCS_8BIT_DATA    = 0x04, // group 1111        . . . . . x . .
    DCS_LOW_2        = 0x03  // class or kind     . . . . . . x x
};
enum : u8 { DCS_GENERAL = 0x00, DCS_WAITING_OR_CLASS = 0xC0 }; // of DCS_GROUP
enum : u8 {                                                    // whole octet
    DCS_DISCARD = 0xC0, DCS_STORE_7BIT = 0xD0, DCS_STORE_UCS2 = 0xE0, DCS_DATA_AND_CLASS = 0xF0
};

// TS 23.040, 9.1.2.5: type of address            7 6 5 4 3 2 1 0
enum : u8 {
    TOA_EXTENSION = 0x80, //                      x . . . . . . .
    TOA_TYPE      = 0x70, //                      . x x x . . . .
    TOA_PLAN      = 0x0F  //                      . . . . x x x x
};

// TS 23.040, 9.2.3.27: parameter indicator       7 6 5 4 3 2 1 0
enum : u8 {
    PI_PID = 0x01, //                             . . . . . . . x
    PI_DCS = 0x02, //                             . . . . . . x .
    PI_UDL = 0x04  //                             . . . . . x . .
};
// clang-format on

static const u32 USER_DATA_OCTETS_MAX = 140;  // TS 23.040, 9.2.3.24
static const u32 USER_DATA_SEPTETS_MAX = 160; // TS 23.040, 9.2.3.16
static const u32 TIMESTAMP_OCTETS = 7;        // TS 23.040, 9.2.3.11
static const u32 FILLER_DIGIT = 0x0F;         // TS 23.040, 9.1.2.3
enum { ADDRESS_HEAD = 2 };                    // length and type octets of an address
enum {
    ADDRESS_ENCODED_MAX = ADDRESS_HEAD + SMS_MAX_ADDRESS_DIGITS, // room that packing may claim
    ADDRESS_DECODED_MAX = ADDRESS_HEAD + 11,                     // octets that decoding touches
    ALPHANUMERIC_OCTETS_MAX = SMS_MAX_ADDRESS_DIGITS
};
static const u32 PID_RETURN_CALL = 0x5F; // TS 23.040, 9.2.3.9
static const u32 HEADER_ESTIMATE_LIMIT = USER_DATA_OCTETS_MAX + 1;

static u32 bitIf(bool set, u8 bit) { return set ? u32{bit} : 0u; }

// BCD octets.

u8 wms_ts_int_to_bcd(u8 value) { return low8(static_cast<u32>(value / 10 << 4) + value % 10); }

u8 wms_ts_bcd_to_int(u8 bcd, u8 *value) {
    const u32 tens = bcd >> 4;
    const u32 units = bcd & 0x0F;
    if (tens > 9 || units > 9) {
        *value = 0;
        LOG_LINE("Invalid BCD digit! bcd:0x%02x\n\n", bcd);
        return 0;
    }
    *value = low8(tens * 10 + units);
    return 1;
}

// Addresses: TS 23.040, 9.1.2.5.

static u8 putNumericDigits(const SmsAddress *address, u8 *out) {
    const u32 digitCount = address->number_of_digits;
    u32 octetCount = 0;
    for (u32 i = 0; i < digitCount; i += 2) {
        const u32 second = i + 1 < digitCount ? address->digits[i + 1] : FILLER_DIGIT;
        out[octetCount++] = low8((address->digits[i] & 0x0Fu) | second << 4);
    }
    return low8(octetCount);
}

u8 wms_ts_encode_address(const SmsAddress *address, u8 *out) {
    const u32 digitCount = address->number_of_digits;
    if (digitCount > SMS_MAX_ADDRESS_DIGITS) { return 0; }
    out[1] = low8(TOA_EXTENSION | address->number_type << 4 | address->number_plan);
    if (address->number_type == NUMBER_ALPHANUMERIC) {
        out[0] = low8((digitCount * 7 + 3) / 4); // semi-octets that the septets fill
        const u16 octetCount = wms_ts_pack_gw_7_bit_chars(
            address->digits, low8(digitCount), 0, ALPHANUMERIC_OCTETS_MAX, out + ADDRESS_HEAD);
        return low8(ADDRESS_HEAD + u32{octetCount});
    }
    out[0] = low8(digitCount);
    return low8(ADDRESS_HEAD + u32{putNumericDigits(address, out + ADDRESS_HEAD)});
}

u8 wms_ts_decode_address(const u8 *in, SmsAddress *address) {
    const u32 semiOctetCount = in[0];
    if (semiOctetCount > SMS_MAX_ADDRESS_DIGITS) { return 0; }
    const u32 octetCount = (semiOctetCount + 1) / 2;
    address->number_type = (in[1] & TOA_TYPE) >> 4;
    address->number_plan = in[1] & TOA_PLAN;
    const u8 *field = in + ADDRESS_HEAD;
    if (address->number_type == NUMBER_ALPHANUMERIC) {
        address->digit_mode = 1;
        address->number_of_digits = low8(semiOctetCount * 4 / 7);
        // KEPT: characters bound the octets read here; callers rely on the entry behind the last.
        wms_ts_unpack_gw_7_bit_chars(field, address->number_of_digits, SMS_MAX_ADDRESS_DIGITS, 0,
                                     address->digits);
        return low8(ADDRESS_HEAD + octetCount);
    }
    address->digit_mode = 0;
    address->number_of_digits = low8(semiOctetCount);
    // KEPT: the filler of an odd count stays behind the last digit; callers rely on it.
    for (u32 i = 0; i < octetCount; i++) {
        address->digits[2 * i] = field[i] & 0x0F;
        address->digits[2 * i + 1] = field[i] >> 4;
    }
    return low8(ADDRESS_HEAD + octetCount);
}

// Time stamps: TS 23.040, 9.2.3.11.

static const int TIMEZONE_MAX = 48; // quarter hours
enum { DATE_FIELDS = 6, TIMEZONE_OCTET = 6 };

struct EncodedField {
    u8 SmsTimestamp::*field;
    u8 low, high;
    const char *message; // the number and the field as it stands
};

static const EncodedField ENCODED_FIELDS[DATE_FIELDS] = {
    {  &SmsTimestamp::year, 0, 99,                                   nullptr},
    { &SmsTimestamp::month, 1, 12,   "Month is invalid: %d month:0x%02x\n\n"},
    {   &SmsTimestamp::day, 1, 31,       "Day is invalid: %d day:0x%02x\n\n"},
 // KEPT: the number is shown in hexadecimal, the field in decimal; the log is relied on.
    {  &SmsTimestamp::hour, 0, 23,      "Hour is invalid: hour:0x%02x%d\n\n"},
    {&SmsTimestamp::minute, 0, 59, "Minute is invalid: %d minute:0x%02x\n\n"},
    {&SmsTimestamp::second, 0, 59, "Second is invalid: %d second:0x%02x\n\n"},
};

// Why a time stamp was refused; no message for a bad digit, which has its own line.
struct TimestampRefusal {
    const char *message;
    int value;
    u32 field;
};

static u8 encodeTimezone(int quarterHours) {
    const u32 magnitude = static_cast<u32>(quarterHours < 0 ? -quarterHours : quarterHours);
    const u32 sign = quarterHours < 0 ? 0x08u : 0u;
    return low8(magnitude % 10 << 4 | magnitude / 10 | sign);
}

static bool putTimestamp(const SmsTimestamp *timestamp, u8 *out, TimestampRefusal *refusal) {
    for (u32 i = 0; i < DATE_FIELDS; i++) {
        const EncodedField *row = &ENCODED_FIELDS[i];
        const u8 field = timestamp->*row->field;
        u8 value = 0;
        if (wms_ts_bcd_to_int(field, &value) == 0) { return false; }
        if (value < row->low || value > row->high) {
            *refusal = {row->message, value, field};
            return false;
        }
        out[i] = swapNibbles(field);
    }
    const int timezone = timestamp->timezone; // NOLINT(bugprone-signed-char-misuse): a signed count
    if (timezone < -TIMEZONE_MAX || timezone > TIMEZONE_MAX) {
        *refusal = {"Timezone is out of bound: %d timezone:0x%02x\n\n", timezone,
                    static_cast<u32>(timezone)};
        return false;
    }
    out[TIMEZONE_OCTET] = encodeTimezone(timezone);
    return true;
}

u8 wms_ts_encode_timestamp(const SmsTimestamp *timestamp, u8 *out) {
    TimestampRefusal refusal = {nullptr, 0, 0};
    if (putTimestamp(timestamp, out, &refusal)) { return TIMESTAMP_OCTETS; }
    if (refusal.message != nullptr) { LOG_LINE(refusal.message, refusal.value, refusal.field); }
    return 0;
}

u8 gw_ts_encode_timestamp(const SmsTimestamp *timestamp, u8 *out) {
    TimestampRefusal unsaid;
    return putTimestamp(timestamp, out, &unsaid) ? TIMESTAMP_OCTETS : 0u;
}

struct DecodedField {
    u8 SmsTimestamp::*field;
    u8 low, high, fallback;
    const char *rangeMessage; // the number
    const char *digitMessage; // the octet as received
};

// clang-format off
static const DecodedField DECODED_FIELDS[DATE_FIELDS] = {
    {&SmsTimestamp::year,   0, 99, 0, nullptr,
     "Invalid BCD Digits in Encoded Timestamp Year : 0x%x\n\n"},
    {&SmsTimestamp::month,  1, 12, 1, "Month is invalid: %d\n\n",
     "Invalid BCD Digits in Encoded Timestamp Month : 0x%x\n\n"},
    {&SmsTimestamp::day,    1, 31, 1, "Day is invalid: %d\n\n",
     "Invalid BCD Digits in Encoded Timestamp Day : 0x%x\n\n"},
    {&SmsTimestamp::hour,   0, 23, 0, "Hour is too large: %d\n\n",
     "Invalid BCD Digits in Encoded Timestamp Hour : 0x%x\n\n"},
    {&SmsTimestamp::minute, 0, 59, 0, "Minute is too large: %d\n\n",
     "Invalid BCD Digits in Encoded Timestamp Minute : 0x%x\n\n"},
    {&SmsTimestamp::second, 0, 59, 0, "Second is too large: %d\n\n",
     "Invalid BCD Digits in Encoded Timestamp Second : 0x%x\n\n"},
};
// clang-format on

static int decodeTimezone(u8 octet) {
    if ((octet & 0x08) != 0) { return -((octet & 0x07) * 10 + (octet >> 4)); }
    return (octet & 0x0F) * 10 + (octet >> 4);
}

u8 wms_ts_decode_timestamp(const u8 *in, SmsTimestamp *timestamp) {
    if (in == nullptr || timestamp == nullptr) {
        LOG_LINE("null pointer in wms_ts_decode_timestamp\n\n");
        return 0;
    }
    for (u32 i = 0; i < DATE_FIELDS; i++) {
        const DecodedField *row = &DECODED_FIELDS[i];
        u8 *field = &(timestamp->*row->field);
        u8 value = 0;
        *field = swapNibbles(in[i]);
        if (wms_ts_bcd_to_int(*field, &value) == 0) {
            LOG_LINE(row->digitMessage, in[i]);
            *field = row->fallback;
        } else if (value < row->low || value > row->high) {
            LOG_LINE(row->rangeMessage, value);
            *field = row->fallback;
        }
    }
    int timezone = decodeTimezone(in[TIMEZONE_OCTET]);
    if (timezone < -TIMEZONE_MAX || timezone > TIMEZONE_MAX) {
        LOG_LINE("Timezone is out of bound: 0x%x\n\n",
                 static_cast<u32>(static_cast<int8_t>(timezone)));
        timezone = 0;
    }
    timestamp->timezone = static_cast<int8_t>(timezone);
    return TIMESTAMP_OCTETS;
}

// Validity periods: TS 23.040, 9.2.3.12.

static const u32 HOUR = 60; // minutes
static const u32 DAY = 24 * HOUR;
static const u32 WEEK = 7 * DAY;
static const u32 DAYS_OF_MONTH = 30;
static const u32 DAYS_OF_YEAR = 365;

static u32 durationPart(u8 bcd) {
    u8 value = 0;
    wms_ts_bcd_to_int(bcd, &value);
    return value;
}

u8 wms_ts_encode_relative_time(const SmsTimestamp *duration) {
    if (duration == nullptr) { return 0; }
    u32 days = durationPart(duration->year) * DAYS_OF_YEAR;
    days += durationPart(duration->month) * DAYS_OF_MONTH;
    days += durationPart(duration->day);
    u32 minutes = durationPart(duration->hour) * HOUR;
    minutes += durationPart(duration->minute);
    (void)durationPart(duration->second); // does not count, but a bad digit of it is logged
    // KEPT: no upper clamp, from 442 days on the weeks wrap past 255; callers rely on it.
    if (days > 30) { return low8((days + 6) / 7 + 192); }
    if (days > 0) { return low8(days + 166); }
    // KEPT: a zero duration gives 255; callers rely on it.
    if (minutes <= 12 * HOUR) { return low8((minutes + 4) / 5 - 1); }
    // KEPT: 749 for the standard's 720, so 721..748 minutes wrap; callers rely on these values.
    return low8((minutes - 749) / 30 + 143);
}

struct ValidityStep {
    u32 last, less, base, step;
};

// clang-format off
// TS 23.040, 9.2.3.12.1: relative validity period in minutes; the first row that reaches VP.
static const ValidityStep VALIDITY_STEPS[] = {
  // last  less        base  step
    {143,   0,          5,    5}, // (VP + 1) * 5 minutes
    {166, 143,  12 * HOUR,   30}, // 12 hours + (VP - 143) * 30 minutes
    {196, 166,          0,  DAY}, // (VP - 166) days
    {255, 192,          0, WEEK}, // (VP - 192) weeks
};
// clang-format on

static u32 relativeMinutes(u8 vp) {
    const ValidityStep *row = VALIDITY_STEPS;
    while (vp > row->last) { row++; }
    return row->base + (vp - row->less) * row->step;
}

static u8 bcd(u32 value) { return wms_ts_int_to_bcd(low8(value)); }

void wms_ts_decode_relative_time(u8 vp, SmsTimestamp *duration) {
    if (duration == nullptr) { return; }
    memset(duration, 0, sizeof(*duration));
    const u32 minutes = relativeMinutes(vp);
    const u32 days = minutes / DAY;
    duration->year = bcd(days / DAYS_OF_YEAR);
    duration->month = bcd(days % DAYS_OF_YEAR / DAYS_OF_MONTH);
    duration->day = bcd(days % DAYS_OF_YEAR % DAYS_OF_MONTH);
    duration->hour = bcd(minutes % DAY / HOUR);
    duration->minute = bcd(minutes % HOUR);
}

u8 wms_ts_encode_gw_validity(const SmsValidity *validity, u8 *out) {
    if (validity->format == VALIDITY_RELATIVE) {
        out[0] = wms_ts_encode_relative_time(&validity->time);
        return 1;
    }
    if (validity->format != VALIDITY_ABSOLUTE) { return 0; }
    const u8 octetCount = wms_ts_encode_timestamp(&validity->time, out);
    // KEPT: "Decoding" in the encoder; the log is relied on.
    if (octetCount == 0) { LOG_LINE("Error while Decoding Absolute Validity Timestamp\n\n"); }
    return octetCount;
}

u8 wms_ts_decode_gw_validity(const u8 *in, SmsValidity *validity) {
    if (in == nullptr || validity == nullptr) {
        LOG_LINE("null pointer in wms_ts_decode_gw_validity\n");
        return 0;
    }
    if (validity->format == VALIDITY_NONE) { memset(validity, 0, sizeof(*validity)); }
    if (validity->format == VALIDITY_RELATIVE) {
        wms_ts_decode_relative_time(in[0], &validity->time);
        return 1;
    }
    if (validity->format != VALIDITY_ABSOLUTE) { return 0; }
    return wms_ts_decode_timestamp(in, &validity->time);
}

// Data coding scheme: TS 23.038, 4.

static void decodeWaitingOrClass(u8 octet, SmsDcs *dcs) {
    const u8 group = octet & (DCS_GROUP | DCS_GROUP_KIND);
    if (group == DCS_DATA_AND_CLASS) {
        dcs->alphabet = (octet & DCS_8BIT_DATA) != 0 ? ALPHABET_8BIT : ALPHABET_GSM_7BIT;
        dcs->msg_class = octet & DCS_LOW_2;
        dcs->msg_waiting = WAITING_CLASS_ONLY;
        return;
    }
    dcs->msg_waiting = group == DCS_DISCARD ? WAITING_DISCARD : WAITING_STORE;
    dcs->alphabet = group == DCS_STORE_UCS2 ? ALPHABET_UCS2 : ALPHABET_GSM_7BIT;
    dcs->msg_waiting_active = (octet & DCS_ACTIVE) != 0 ? 1 : 0;
    dcs->msg_waiting_kind = octet & DCS_LOW_2;
}

u8 wms_ts_decode_dcs(const u8 *in, SmsDcs *dcs) {
    if (in == nullptr || dcs == nullptr) { return 0; }
    const u8 octet = in[0];
    dcs->msg_class = MSG_CLASS_NONE;
    dcs->msg_waiting = WAITING_NONE;
    dcs->alphabet = ALPHABET_GSM_7BIT;
    dcs->is_compressed = 0;
    if ((octet & DCS_GROUP) == DCS_GENERAL) {
        // KEPT: a compressed text has 0x20 here, not 1; the interface promises it.
        dcs->is_compressed = octet & DCS_COMPRESSED;
        if ((octet & DCS_HAS_CLASS) != 0) { dcs->msg_class = octet & DCS_LOW_2; }
        dcs->alphabet = (octet & DCS_ALPHABET) >> 2;
    }
    if ((octet & DCS_GROUP) == DCS_WAITING_OR_CLASS) {
        LOG_LINE("data[pos] & 0x30:%02x \n\n", octet & DCS_GROUP_KIND);
        decodeWaitingOrClass(octet, dcs);
    }
    if (dcs->alphabet > ALPHABET_UCS2) { dcs->alphabet = ALPHABET_GSM_7BIT; }
    dcs->raw_dcs = octet;
    return 1;
}

u8 wms_ts_encode_dcs(const SmsDcs *dcs, u8 *out) {
    const u32 classBits = dcs->msg_class & DCS_LOW_2;
    if (dcs->msg_waiting == WAITING_NONE) {
        const u32 compressed = bitIf(dcs->is_compressed != 0, DCS_COMPRESSED);
        const u32 hasClass = bitIf(dcs->msg_class != MSG_CLASS_NONE, DCS_HAS_CLASS);
        out[0] = low8(compressed | hasClass | dcs->alphabet << 2 | classBits);
        return 1;
    }
    if (dcs->msg_waiting == WAITING_CLASS_ONLY) {
        const u32 data = bitIf(dcs->alphabet == ALPHABET_8BIT, DCS_8BIT_DATA);
        out[0] = low8(DCS_DATA_AND_CLASS | data | classBits);
        return 1;
    }
    u32 group = DCS_STORE_UCS2;
    if (dcs->msg_waiting == WAITING_DISCARD) { group = DCS_DISCARD; }
    if (dcs->msg_waiting == WAITING_STORE && dcs->alphabet == ALPHABET_GSM_7BIT) {
        group = DCS_STORE_7BIT;
    }
    const u32 active = bitIf(dcs->msg_waiting_active == 1, DCS_ACTIVE);
    out[0] = low8(group | active | (dcs->msg_waiting_kind & DCS_LOW_2));
    return 1;
}

// 7-bit packing: TS 23.038, 6.1.2.1.

enum { GROUP_SEPTETS = 8, GROUP_OCTETS = 7 }; // where both begin together

static inline void packGroup(const u8 *chars, u8 *out) {
    UNROLLED(7)
    for (u32 k = 0; k < GROUP_OCTETS; k++) {
        out[k] = low8(static_cast<u32>(chars[k]) >> k | static_cast<u32>(chars[k + 1]) << (7 - k));
    }
}

// Where packing stands: character, octet, and the character's bits that are out already.
struct PackPlace {
    u32 i, p, bits;
};

// The first octet behind `fill` bits.
static PackPlace packBehindFill(const u8 *chars, u32 count, u32 fill, u8 *out) {
    if (fill == 0) { return {0, 0, 0}; }
    if (count > 0) { out[0] = low8(out[0] | static_cast<u32>(chars[0]) << fill); }
    if (fill == 1) { return {1, 1, 0}; }
    return {0, 1, 8 - fill};
}

u16 wms_ts_pack_gw_7_bit_chars(const u8 *chars, u16 count, u16 shift, u16 out_limit, u8 *out) {
    if (chars == nullptr || out == nullptr || out_limit == 0) { return 0; }
    const PackPlace at = packBehindFill(chars, count, shift % 7u, out);
    u32 i = at.i;
    u32 p = at.p;
    u32 bits = at.bits;
    while (bits == 0 && i + GROUP_SEPTETS <= count && p + GROUP_OCTETS <= out_limit) {
        packGroup(chars + i, out + p);
        i += GROUP_SEPTETS;
        p += GROUP_OCTETS;
    }
    for (; p < out_limit && i < count; p++, i++) {
        u32 octet = static_cast<u32>(chars[i]) >> bits;
        if (i + 1 < count) {
            octet |= static_cast<u32>(chars[i + 1]) << (7 - bits);
            bits++;
            if (bits == 7) {
                bits = 0;
                i++;
            }
        }
        out[p] = low8(octet);
    }
    return static_cast<u16>(p);
}

// KEPT: a septet 0 becomes 0x40 unless read from upper bits alone; callers rely on it.
static u8 shownSeptet(u32 septet) { return septet == 0 ? u8{0x40} : low8(septet); }

static inline void unpackGroup(const u8 *in, u8 *out) {
    u32 before = 0;
    UNROLLED(7)
    for (u32 k = 0; k < GROUP_OCTETS; k++) {
        const u32 octet = in[k];
        out[k] = shownSeptet((octet << k & 0x7F) | before >> (8 - k));
        before = octet;
    }
    out[GROUP_OCTETS] = low8(before >> 1);
}

// Unpacks `in`, of which the first `bound` octets count; what the reader does not hold is 0.
// `*full` tells that the characters filled the output. Returns the octets consumed.
static u8 unpackSeptets(const OctetReader *in, u32 bound, u32 limit, u32 shift, u8 *out,
                        bool *full) {
    u32 i = 0;
    u32 p = shift != 0 ? 1 : 0;
    u32 before = p != 0 ? octetAt(in, 0) : 0u; // the octet before p
    *full = false;
    if (shift == 7 && limit > 0) {
        out[i++] = low8(before >> 1);
        shift = 0;
    }
    const u32 held = bound < in->size ? bound : in->size;
    while (shift == 0 && i + GROUP_SEPTETS <= limit && p + GROUP_OCTETS <= held) {
        unpackGroup(in->octets + p, out + i);
        i += GROUP_SEPTETS;
        p += GROUP_OCTETS;
    }
    while (i < limit && p < bound) {
        const u32 octet = octetAt(in, p);
        out[i++] = shownSeptet((octet << shift & 0x7F) | before >> (8 - shift));
        shift++;
        if (shift == 7) {
            shift = 0;
            *full = i == limit;
            if (*full) { return low8(p); }
            out[i++] = low8(octet >> 1);
        }
        before = octet;
        p++;
    }
    return low8(p);
}

u8 wms_ts_unpack_gw_7_bit_chars(const u8 *in, u8 in_bound, u8 char_limit, u16 shift, u8 *out) {
    if (in == nullptr || out == nullptr) {
        LOG_LINE("null pointer in wms_ts_unpack_gw_7_bit_chars\n");
        return 0;
    }
    if (shift > 7) { return 0; }
    const OctetReader octets = {in, in_bound, 0};
    bool full = false;
    const u8 consumed = unpackSeptets(&octets, in_bound, char_limit, shift, out, &full);
    if (full) { LOG_LINE("Not enough output buffer for unpacking!\n"); }
    return consumed;
}

// User-data header: TS 23.040, 9.2.3.24.

enum {
    CONCAT_8_LENGTH = 3,  // octets behind the element's length octet, 9.2.3.24.1
    CONCAT_16_LENGTH = 4, // 9.2.3.24.8
    HEADER_ENCODED_MAX = 1 + SMS_MAX_UDH_IES * (2 + CONCAT_16_LENGTH),
    HEADER_POSITION_LIMIT = 256
};

static u32 elementsKept(u8 count) {
    return count < SMS_MAX_UDH_IES ? count : static_cast<u32>(SMS_MAX_UDH_IES);
}

static bool isPartOfTotal(u8 number, u8 total) { return number != 0 && number <= total; }

static void putElement(const SmsUdhIe *element, OctetWriter *out) {
    if (element->header_id == UDH_CONCAT_8) {
        const auto *concat = &element->payload.concat8;
        if (!isPartOfTotal(concat->seq_num, concat->total_sm)) { return; }
        putOctet(out, UDH_CONCAT_8);
        putOctet(out, CONCAT_8_LENGTH);
        putOctet(out, concat->msg_ref);
        putOctet(out, concat->total_sm);
        putOctet(out, concat->seq_num);
    }
    if (element->header_id == UDH_CONCAT_16) {
        const auto *concat = &element->payload.concat16;
        if (!isPartOfTotal(concat->seq_num, concat->total_sm)) { return; }
        putOctet(out, UDH_CONCAT_16);
        putOctet(out, CONCAT_16_LENGTH);
        putOctet(out, concat->msg_ref >> 8);
        putOctet(out, concat->msg_ref);
        putOctet(out, concat->total_sm);
        putOctet(out, concat->seq_num);
    }
}

u8 wms_ts_encode_user_data_header(u8 count, const SmsUdhIe *elements, u8 *out) {
    if (count == 0) { return 0; }
    OctetWriter header = {out, HEADER_ENCODED_MAX, 1};
    for (u32 i = 0; i < elementsKept(count); i++) { putElement(&elements[i], &header); }
    out[0] = low8(header.pos - 1);
    return out[0];
}

// The two readers start at the element's length octet. They return the octets they took, 0 for an
// element that cannot be.
static u32 readConcat8(OctetReader in, SmsUdhIe *element) {
    const u32 length = takeOctet(&in);
    const u8 reference = takeOctet(&in);
    const u8 total = takeOctet(&in);
    const u8 number = takeOctet(&in);
    if (length < CONCAT_8_LENGTH || !isPartOfTotal(number, total)) { return 0; }
    element->header_id = UDH_CONCAT_8;
    element->payload.concat8 = {reference, total, number};
    return length + 1;
}

static u32 readConcat16(OctetReader in, SmsUdhIe *element) {
    const u32 length = takeOctet(&in);
    const u32 high = takeOctet(&in);
    const u32 low = takeOctet(&in);
    const u8 total = takeOctet(&in);
    const u8 number = takeOctet(&in);
    if (length < CONCAT_16_LENGTH || !isPartOfTotal(number, total)) { return 0; }
    element->header_id = UDH_CONCAT_16;
    element->payload.concat16 = {static_cast<u16>(high << 8 | low), total, number};
    return length + 1;
}

// Moves behind one element. `taken` is the size of the element before it, then its own: the octets
// behind the identifier. False: the header is refused.
static bool takeElement(OctetReader *in, u32 *taken, SmsUdhIe *element) {
    const u32 id = peekOctet(in);
    // KEPT: an unknown element takes the size of the one before it; callers rely on it.
    if (id == UDH_CONCAT_8 || id == UDH_CONCAT_16) {
        in->pos++;
        *taken = id == UDH_CONCAT_8 ? readConcat8(*in, element) : readConcat16(*in, element);
    }
    in->pos += *taken;
    return in->pos < HEADER_POSITION_LIMIT;
}

static u8 decodeHeader(const OctetReader *header, u8 *count, SmsUdhIe *elements) {
    const u32 headerLength = octetAt(header, 0);
    if (headerLength == 0) { return 0; }
    OctetReader in = *header;
    in.pos = 1;
    u32 taken = 0;
    u32 n = 0;
    for (; in.pos < headerLength && n < SMS_MAX_UDH_IES; n++) {
        if (!takeElement(&in, &taken, &elements[n])) { return 0; }
        if (taken == 0) {
            *count = 0;
            return 0;
        }
    }
    if (n < SMS_MAX_UDH_IES && in.pos != headerLength + 1) { return 0; }
    if (n != 0) { *count = low8(n); }
    return low8(headerLength);
}

u8 wms_ts_decode_user_data_header(u8 udhl, const u8 *in, u8 *count, SmsUdhIe *elements) {
    if (udhl == 0 || in == nullptr || count == nullptr || elements == nullptr) { return 0; }
    const OctetReader header = {in, SMS_MAX_TPDU_LEN, 0};
    return decodeHeader(&header, count, elements);
}

u8 wms_ts_get_udh_length(const SmsUdhIe *element) {
    if (element == nullptr) { return 0; }
    const auto *payload = &element->payload;
    switch (element->header_id) {
    case UDH_CONCAT_8: return 5;
    case UDH_CONCAT_16: return 6;
    case UDH_SPECIAL_INDICATION:
    case UDH_PREDEFINED_SOUND:
    case UDH_PREDEFINED_ANIMATION: return 4;
    case UDH_TEXT_FORMATTING: return payload->text_formatting.colour_present != 0 ? 6 : 5;
    case UDH_USER_SOUND: return low8(payload->sound.data_length + 3u);
    case UDH_LARGE_ANIMATION:
    case UDH_LARGE_PICTURE: return 131;
    case UDH_SMALL_ANIMATION:
    case UDH_SMALL_PICTURE: return 35;
    case UDH_VARIABLE_PICTURE:
        return low8(u32{payload->picture.dimension1} * payload->picture.dimension2 / 8 + 5);
    case UDH_RFC822_HEADER: return 3;
    default: return low8(payload->other.data_length + 2u);
    }
}

u32 wms_ts_compute_user_data_header_length(u8 count, const SmsUdhIe *elements) {
    if (elements == nullptr || count == 0) { return 0; }
    u32 octetCount = 1;
    for (u32 i = 0; i < elementsKept(count); i++) {
        octetCount += wms_ts_get_udh_length(&elements[i]);
    }
    return octetCount;
}

// User data: TS 23.040, 9.2.3.16 and 9.2.3.24.

u32 wms_ts_compute_gw_user_data_length(const SmsDcs *dcs, const SmsUserData *user_data) {
    if (dcs == nullptr || user_data == nullptr) { return 0; }
    const u32 header =
        wms_ts_compute_user_data_header_length(user_data->num_headers, user_data->headers);
    const u32 length = user_data->sm_len;
    if (dcs->alphabet == ALPHABET_GSM_7BIT) { return header + (length + 1) * 7 / 8; }
    return header + length;
}

// Bits from the end of the header to the next septet.
static u32 fillBits(u32 headerBits) { return (7 - headerBits % 7) % 7; }

static u32 bodyLength(const SmsUserData *user_data) {
    const u32 length = user_data->sm_len;
    return length < SMS_MAX_TPDU_LEN ? length : static_cast<u32>(SMS_MAX_TPDU_LEN);
}

u8 wms_ts_encode_gw_user_data(const SmsDcs *dcs, const SmsUserData *user_data, u8 *out) {
    const u32 length = user_data->sm_len;
    const u32 estimate =
        wms_ts_compute_user_data_header_length(user_data->num_headers, user_data->headers);
    const bool hasHeader = user_data->num_headers != 0 && estimate < HEADER_ESTIMATE_LIMIT;
    u32 headerOctets = 0; // its length octet included
    if (hasHeader) {
        headerOctets = 1u + wms_ts_encode_user_data_header(user_data->num_headers,
                                                           user_data->headers, out + 1);
    }
    const u32 start = 1 + headerOctets;
    const u32 room = SMS_MAX_TPDU_LEN - start;
    if (dcs->alphabet != ALPHABET_GSM_7BIT) {
        const u32 copied = bodyLength(user_data);
        out[0] = low8(headerOctets + length);
        memcpy(out + start, user_data->sm_data, copied < room ? copied : room);
        return low8(start + length);
    }
    const u32 headerBits = headerOctets * 8;
    const u32 fill = fillBits(headerBits);
    out[0] = low8((headerBits + fill + length * 7) / 7);
    const u16 packed =
        wms_ts_pack_gw_7_bit_chars(user_data->sm_data, static_cast<u16>(bodyLength(user_data)),
                                   static_cast<u16>(fill), static_cast<u16>(room), out + start);
    return low8(start + packed);
}

// Octets from `start` on; those that the TPDU does not hold are 0.
static void copyBody(OctetReader in, u32 start, u32 octetCount, SmsUserData *user_data) {
    in.pos = start;
    takeOctets(&in, user_data->sm_data, octetCount);
    user_data->sm_len = static_cast<u16>(octetCount);
}

static u8 decodeOctetBody(u32 udl, const OctetReader *in, bool hasHeader, SmsUserData *user_data) {
    if (udl > USER_DATA_OCTETS_MAX) { return 0; }
    u32 start = 0;
    if (hasHeader) {
        // KEPT: behind a refused header one octet is skipped all the same; callers rely on it.
        start = 1u + decodeHeader(in, &user_data->num_headers, user_data->headers);
    }
    const u32 octetCount = low8(udl - start); // a header longer than TP-UDL wraps
    copyBody(*in, start, octetCount, user_data);
    return low8(start + octetCount);
}

static u8 decodeSeptetBody(u32 udl, const OctetReader *in, bool hasHeader, SmsUserData *user_data) {
    if (udl > USER_DATA_SEPTETS_MAX) { return 0; }
    u32 start = 0;
    u32 septetCount = udl;
    u32 shift = 0;
    const u32 headerLength =
        hasHeader ? decodeHeader(in, &user_data->num_headers, user_data->headers) : 0u;
    if (headerLength != 0) {
        start = headerLength + 1;
        const u32 bits = udl * 7 > start * 8 ? udl * 7 - start * 8 : 0; // none left: no text
        septetCount = bits / 7;
        shift = bits % 7 != 0 ? 8 - bits % 7 : 0;
    }
    OctetReader body = *in;
    body.pos = start;
    body = restOf(&body);
    bool full = false;
    // KEPT: septets bound the octets, so 141 of them count as too long; callers rely on it.
    const u32 consumed =
        unpackSeptets(&body, septetCount, SMS_MAX_TPDU_LEN, shift, user_data->sm_data, &full);
    user_data->sm_len = static_cast<u16>(septetCount);
    return low8(start + consumed);
}

static u8 decodeUserData(const SmsDcs *dcs, u8 udl, const OctetReader *in, bool hasHeader,
                         SmsUserData *user_data) {
    memset(user_data, 0, sizeof(*user_data));
    if (udl == 0) { return 0; }
    if (dcs->alphabet == ALPHABET_GSM_7BIT) {
        return decodeSeptetBody(udl, in, hasHeader, user_data);
    }
    return decodeOctetBody(udl, in, hasHeader, user_data);
}

u8 wms_ts_decode_gw_user_data(const SmsDcs *dcs, u8 udl, const u8 *in, u8 udhi,
                              SmsUserData *user_data) {
    if (dcs == nullptr || in == nullptr || user_data == nullptr) { return 0; }
    const OctetReader octets = {in, SMS_MAX_TPDU_LEN, 0};
    return decodeUserData(dcs, udl, &octets, udhi != 0, user_data);
}

// Fields of a message, moved from and to the octets.

static u8 flag(u8 octet, u8 bit) { return (octet & bit) != 0 ? 1 : 0; }

static bool takeAddress(OctetReader *in, SmsAddress *address) {
    const u8 *field = viewOctets(in, ADDRESS_DECODED_MAX);
    const u32 used = field != nullptr ? wms_ts_decode_address(field, address) : 0u;
    in->pos += used;
    return used != 0;
}

static void takeDcs(OctetReader *in, SmsDcs *dcs) {
    in->pos += wms_ts_decode_dcs(viewOctets(in, 1), dcs);
}

static bool takeTimestamp(OctetReader *in, SmsTimestamp *timestamp) {
    const u32 used = wms_ts_decode_timestamp(viewOctets(in, TIMESTAMP_OCTETS), timestamp);
    in->pos += used;
    return used != 0;
}

static bool takeValidity(OctetReader *in, SmsValidity *validity) {
    const u32 format = validity->format;
    const u32 used = wms_ts_decode_gw_validity(viewOctets(in, TIMESTAMP_OCTETS), validity);
    in->pos += used;
    return format == VALIDITY_NONE || used != 0;
}

// What follows TP-UDL; the result is the octets consumed.
static u8 takeUserData(OctetReader *in, u8 udl, const SmsDcs *dcs, u8 udhi,
                       SmsUserData *user_data) {
    const OctetReader rest = restOf(in);
    return decodeUserData(dcs, udl, &rest, udhi != 0, user_data);
}

static bool putAddress(OctetWriter *out, const SmsAddress *address) {
    u8 *field = roomFor(out, ADDRESS_ENCODED_MAX);
    const u32 used = field != nullptr ? wms_ts_encode_address(address, field) : 0u;
    out->pos += used;
    return used != 0;
}

static void putDcs(OctetWriter *out, const SmsDcs *dcs) {
    u8 octet = 0;
    wms_ts_encode_dcs(dcs, &octet);
    putOctet(out, octet);
}

// TP-UDL and TP-UD, when their estimate fits.
static u32 putUserData(OctetWriter *out, const SmsDcs *dcs, const SmsUserData *user_data) {
    if (wms_ts_compute_gw_user_data_length(dcs, user_data) > USER_DATA_OCTETS_MAX) {
        return TS_USER_DATA_TOO_LONG;
    }
    u8 coded[SMS_MAX_TPDU_LEN] = {0};
    putOctets(out, coded, wms_ts_encode_gw_user_data(dcs, user_data, coded));
    return TS_OK;
}

static OctetWriter clearedTpdu(SmsRawTpdu *raw) {
    memset(raw->data, 0, sizeof(raw->data));
    return {raw->data, SMS_MAX_TPDU_LEN, 0};
}

// SMS-DELIVER: TS 23.040, 9.2.2.1.

u32 wms_ts_encode_deliver(const SmsDeliver *deliver, SmsRawTpdu *raw) {
    if (deliver == nullptr || raw == nullptr) { return TS_NULL_POINTER; }
    OctetWriter out = clearedTpdu(raw);
    const u32 lastMessage = bitIf(deliver->more_msgs == 0, TP_MMS);
    // cppcheck-suppress badBitmaskCheck ; the type's bits are 0, and are named all the same
    putOctet(&out, TP_MTI_DELIVER | lastMessage |
                       bitIf(deliver->status_report_enabled != 0, TP_SRI) |
                       bitIf(deliver->udh_present != 0, TP_UDHI) |
                       bitIf(deliver->reply_path != 0, TP_RP));
    if (!putAddress(&out, &deliver->address)) { return TS_GENERAL_ERROR; }
    putOctet(&out, deliver->pid);
    putDcs(&out, &deliver->dcs);
    u8 *time = roomFor(&out, TIMESTAMP_OCTETS);
    const u32 timeOctets = wms_ts_encode_timestamp(&deliver->timestamp, time);
    if (timeOctets == 0) { return TS_GENERAL_ERROR; }
    out.pos += timeOctets;
    const u32 status = putUserData(&out, &deliver->dcs, &deliver->user_data);
    raw->tpdu_type = TPDU_DELIVER;
    raw->len = low8(out.pos);
    return status;
}

static bool isReturnCall(const SmsDeliver *deliver) {
    return deliver->dcs.msg_waiting_kind != 0 && deliver->pid == PID_RETURN_CALL;
}

u32 wms_ts_decode_deliver(const SmsRawTpdu *raw, SmsDeliver *deliver) {
    OctetReader in = {nullptr, 0, 0};
    if (raw != nullptr) {
        in = {raw->data, SMS_MAX_TPDU_LEN, 0};
    } // the whole buffer: `len` is not consulted
    TRACE_NEXT("data[pos] :%02x \n\n", &in);
    if (raw == nullptr || deliver == nullptr) { return TS_NULL_POINTER; }

    const u8 first = takeOctet(&in);
    if ((first & TP_MTI) != TP_MTI_DELIVER) { return TS_INVALID_TPDU_TYPE; }
    deliver->more_msgs = flag(first, TP_MMS) == 0 ? 1 : 0;
    deliver->status_report_enabled = flag(first, TP_SRI);
    deliver->udh_present = flag(first, TP_UDHI);
    deliver->reply_path = flag(first, TP_RP);

    TRACE_NEXT("TP-OA data[pos] :%02x \n\n", &in);
    if (!takeAddress(&in, &deliver->address)) { return TS_GENERAL_ERROR; }

    TRACE_NEXT("TP-PID data[pos] :%02x \n\n", &in);
    deliver->pid = takeOctet(&in);

    TRACE_NEXT("TP-DCS data[pos] :%02x \n\n", &in);
    takeDcs(&in, &deliver->dcs);
    if (isReturnCall(deliver)) {
        // KEPT: a return call is shown as stored, active voice mail; callers rely on it.
        deliver->dcs.msg_waiting = WAITING_STORE;
        deliver->dcs.msg_waiting_active = 1;
        deliver->dcs.msg_waiting_kind = 0;
    }

    if (!takeTimestamp(&in, &deliver->timestamp)) {
        LOG_LINE("invalid param value in wms_ts_decode_deliver\n");
        return TS_GENERAL_ERROR;
    }

    const u8 udl = takeOctet(&in);
    const u8 used =
        takeUserData(&in, udl, &deliver->dcs, deliver->udh_present, &deliver->user_data);
    return used > USER_DATA_OCTETS_MAX ? TS_USER_DATA_TOO_LONG : TS_OK;
}

// SMS-SUBMIT: TS 23.040, 9.2.2.2.

u32 wms_ts_encode_submit(const SmsSubmit *submit, SmsRawTpdu *raw) {
    if (submit == nullptr || raw == nullptr) { return TS_NULL_POINTER; }
    OctetWriter out = clearedTpdu(raw);
    const u32 first = TP_MTI_SUBMIT | bitIf(submit->reject_duplicates != 0, TP_RD);
    raw->data[0] = low8(first);
    if (submit->validity.format > VALIDITY_ABSOLUTE) { return TS_INVALID_VALIDITY_FORMAT; }
    putOctet(&out, first | submit->validity.format << 3 |
                       bitIf(submit->status_report_enabled != 0, TP_SRR) |
                       bitIf(submit->udh_present != 0, TP_UDHI) |
                       bitIf(submit->reply_path != 0, TP_RP));
    putOctet(&out, submit->message_reference);
    if (!putAddress(&out, &submit->address)) { return TS_GENERAL_ERROR; }
    putOctet(&out, submit->pid);
    putDcs(&out, &submit->dcs);
    // KEPT: a period that does not encode leaves TP-VPF without TP-VP octets; callers rely on it.
    out.pos += wms_ts_encode_gw_validity(&submit->validity, roomFor(&out, TIMESTAMP_OCTETS));
    const u32 status = putUserData(&out, &submit->dcs, &submit->user_data);
    raw->tpdu_type = TPDU_SUBMIT;
    raw->len = low8(out.pos);
    return status;
}

u32 wms_ts_decode_submit(const SmsRawTpdu *raw, SmsSubmit *submit) {
    if (raw == nullptr || submit == nullptr) { return TS_NULL_POINTER; }
    OctetReader in = {raw->data, SMS_MAX_TPDU_LEN, 0}; // the whole buffer: `len` is not consulted

    TRACE_NEXT("pdu type :%#x \n\n", &in);
    // KEPT: TP-MTI is not checked; callers rely on it.
    const u8 first = takeOctet(&in);
    submit->reject_duplicates = flag(first, TP_RD);
    submit->validity.format = (first & TP_VPF) >> 3;
    submit->status_report_enabled = flag(first, TP_SRR);
    submit->udh_present = flag(first, TP_UDHI);
    submit->reply_path = flag(first, TP_RP);
    LOG_LINE("reject_duplicates:%d format:%d report_enabled:%d user_data_header:%d reply:%d\n\n",
             submit->reject_duplicates, static_cast<int>(submit->validity.format),
             submit->status_report_enabled, submit->udh_present, submit->reply_path);

    submit->message_reference = takeOctet(&in);

    TRACE_NEXT("TP-DA :%#x \n\n", &in);
    if (!takeAddress(&in, &submit->address)) { return TS_GENERAL_ERROR; }

    submit->pid = takeOctet(&in);

    TRACE_NEXT("TP-DCS :%#x \n\n", &in);
    takeDcs(&in, &submit->dcs);

    TRACE_NEXT("TP-VP :%#x \n\n", &in);
    if (!takeValidity(&in, &submit->validity)) { return TS_GENERAL_ERROR; }

    const u8 udl = takeOctet(&in);
    TRACE_NEXT("TP-UD :%#x \n\n", &in);
    const u8 used = takeUserData(&in, udl, &submit->dcs, submit->udh_present, &submit->user_data);
    if (used > USER_DATA_OCTETS_MAX) {
        LOG_LINE("User Data Length has exceeded capacity: UDL = %d\n", used);
        return TS_USER_DATA_TOO_LONG;
    }
    return TS_OK;
}

// SMS-STATUS-REPORT: TS 23.040, 9.2.2.3.

// The fields that TP-PI announces: TS 23.040, 9.2.3.27.
static u8 takeOptionalFields(OctetReader *in, SmsStatusReport *report) {
    if ((report->mask & PI_PID) != 0) { report->pid = takeOctet(in); }
    if ((report->mask & PI_DCS) != 0) { takeDcs(in, &report->dcs); }
    if ((report->mask & PI_UDL) == 0) { return 0; }
    const u8 udl = takeOctet(in);
    return takeUserData(in, udl, &report->dcs, report->udh_present, &report->user_data);
}

u32 wms_ts_decode_status_report(const SmsRawTpdu *raw, SmsStatusReport *report) {
    if (raw == nullptr || report == nullptr) {
        fputs("Null pointer!", stdout);
        return TS_NULL_POINTER;
    }
    OctetReader in = {raw->data, SMS_MAX_TPDU_LEN, 0}; // the whole buffer: `len` is not consulted

    TRACE_NEXT("TP-MTI, TP_UDHI:0x%02x\n", &in);
    // KEPT: TP-MTI is not checked; callers rely on it.
    const u8 first = takeOctet(&in);
    report->more_msgs = flag(first, TP_MMS) == 0 ? 1 : 0;
    report->status_report_qualifier = flag(first, TP_SRQ);
    report->udh_present = flag(first, TP_UDHI);

    TRACE_NEXT("TP-MR:0x%02x\n", &in);
    report->message_reference = takeOctet(&in);

    TRACE_NEXT("TP-RA:0x%02x\n", &in);
    if (!takeAddress(&in, &report->address)) { return TS_INVALID_ADDRESS; }

    TRACE_NEXT("TP-SCTS:0x%02x\n", &in);
    if (!takeTimestamp(&in, &report->sc_timestamp)) { return TS_INVALID_TIMESTAMP; }

    TRACE_NEXT("TP-DT:0x%02x\n", &in);
    if (!takeTimestamp(&in, &report->discharge_time)) { return TS_INVALID_TIMESTAMP; }

    TRACE_NEXT("TP-ST:0x%02x\n", &in);
    report->tp_status = takeOctet(&in);

    TRACE_NEXT("TP-PI:0x%02x\n", &in);
    report->mask = takeOctet(&in);
    report->pid = 0;
    report->user_data.sm_len = 0;
    LOG_LINE("status_report->mask:0x%02x\n", report->mask);
    if (report->mask == 0 || report->mask == 0xFF) {
        report->mask = 0;
        return TS_OK;
    }

    TRACE_NEXT("mask is valid:0x%02x\n", &in);
    const u8 used = takeOptionalFields(&in, report);
    if (used > USER_DATA_OCTETS_MAX) {
        LOG_LINE("User Data Length has exceeded capacity: UDL = %d\n", used);
        return TS_USER_DATA_TOO_LONG;
    }
    return TS_OK;
}

// PDU-mode text: TS 27.005, 3.1.

enum {
    PDU_TEXT_LIMIT = 511, // characters: the first length that is refused
    PDU_HEAD = 4          // characters of the length octet and the type of address
};

// Two characters of hexadecimal text as a text of their own.
struct HexPair {
    char text[3];
};

static HexPair hexPairAt(const char *hex) {
    return {
        {hex[0], hex[1], '\0'}
    };
}

// The digits of a service-centre address: `count` characters, each pair swapped, a filler dropped.
static void copySwappedDigits(const char *digits, u32 count, char *number) {
    u32 n = 0;
    for (u32 i = 0; i < count; i += 2) {
        number[n++] = digits[i + 1];
        const bool filler = i + 2 == count && (digits[i] == 'F' || digits[i] == 'f');
        if (!filler) { number[n++] = digits[i]; }
    }
    number[n] = '\0';
}

// Reads the service-centre part. Returns its characters, 0 when it is malformed.
static u32 readServiceCentre(const char *hex, u32 length, SmsAddress *address) {
    u32 octetCount = 0;
    if (length < 2 || sms_utils_atoi(hexPairAt(hex).text, &octetCount, 1) == 0) { return 0; }
    if (octetCount == 0) {
        address->number_of_digits = 0;
        return 2;
    }
    const u32 digitCount = 2 * (octetCount - 1);
    if (length < PDU_HEAD + digitCount) { return 0; }
    char number[PDU_TEXT_LIMIT + 1];
    copySwappedDigits(hex + PDU_HEAD, digitCount, number);
    const bool valid = wms_str_to_addr(address, number, hexPairAt(hex + 2).text) != 0;
    return valid ? PDU_HEAD + digitCount : 0;
}

u32 wms_decode_at_cmd_pdu(const char *hex, SmsAtMessage *message) {
    const size_t length = strlen(hex);
    if (length >= PDU_TEXT_LIMIT) { return AT_PDU_TOO_LONG; }
    const u32 characterCount = static_cast<u32>(length);
    const u32 head = readServiceCentre(hex, characterCount, &message->service_centre);
    if (head == 0) { return AT_PDU_MALFORMED; }

    SmsRawTpdu raw = {};
    raw.len = (characterCount - head) / 2;
    if (dsatetsismsi_encode_pdu(hex + head, raw.data, raw.len) != 0) { return AT_PDU_MALFORMED; }

    // The decoders' own results are not looked at: what they filled is what there is.
    const u32 type = dsatetsismsi_get_tpdu_type(raw.data[0]);
    if (type == TPDU_DELIVER) {
        LOG_LINE("delivery sms\n");
        wms_ts_decode_deliver(&raw, &message->tpdu.u.deliver);
    } else if (type == TPDU_SUBMIT) {
        LOG_LINE("submit sms\n");
        wms_ts_decode_submit(&raw, &message->tpdu.u.submit);
    } else if (type == TPDU_STATUS_REPORT) {
        LOG_LINE("report status sms\n");
        wms_ts_decode_status_report(&raw, &message->tpdu.u.status_report);
    } else {
        LOG_LINE("Invalid pdu type: %d\n", static_cast<int>(type));
        return AT_PDU_INVALID_TYPE;
    }
    message->tpdu.tpdu_type = type;
    return 0;
}
