/*
 * The SMS transfer layer: records of SMS-DELIVER, SMS-SUBMIT and SMS-STATUS-REPORT and their octets
 * (3GPP TS 23.040, 23.038).
 *
 * Records are flat values that the caller owns. Nothing here allocates, blocks or keeps state.
 * Field coders return the octets read or written, 0 for a refusal; message coders return a TS_
 * status. Output is left partly filled by a failure, so callers clear a record before decoding into
 * it.
 *
 * A field coder's `in` is a bare pointer: each says how many octets it may touch. The message
 * decoders stay within the 255 octets of SmsRawTpdu whatever the octets say; what lies behind the
 * end reads as 0.
 */
#ifndef SMSPB_ATLIB_SMSENCODING_H
#define SMSPB_ATLIB_SMSENCODING_H

#include "../comm/smspb_types.h"

enum {
    SMS_MAX_TPDU_LEN = 255,       /* octets of SmsRawTpdu.data and of SmsUserData.sm_data */
    SMS_MAX_ADDRESS_DIGITS = 20,  /* digits or characters of an address */
    SMS_ADDRESS_DIGITS_ROOM = 36, /* entries of SmsAddress.digits */
    SMS_MAX_UDH_IES = 7           /* information elements kept of a user-data header */
};

/* Results of the message coders. */
static const u32 TS_OK = 0;
static const u32 TS_GENERAL_ERROR = 1; /* address or time stamp not coded, validity not decoded */
static const u32 TS_NULL_POINTER = 9;
static const u32 TS_INVALID_ADDRESS = 100;         /* status report: TP-RA */
static const u32 TS_USER_DATA_TOO_LONG = 101;      /* more than 140 octets */
static const u32 TS_INVALID_TIMESTAMP = 102;       /* status report: TP-SCTS or TP-DT */
static const u32 TS_INVALID_TPDU_TYPE = 200;       /* a DELIVER whose TP-MTI is not 00 */
static const u32 TS_INVALID_VALIDITY_FORMAT = 203; /* a SUBMIT's format is 4 or more */

/* Results of wms_decode_at_cmd_pdu. 200 is a TPDU of reserved type. */
static const u32 AT_PDU_INVALID_TYPE = 200;
static const u32 AT_PDU_TOO_LONG = 201; /* 511 characters or more */
static const u32 AT_PDU_MALFORMED = 202;

/* Type of number, TS 23.040, 9.1.2.5. */
static const u32 NUMBER_UNKNOWN = 0;
static const u32 NUMBER_INTERNATIONAL = 1;
static const u32 NUMBER_ALPHANUMERIC = 5;
static const u32 PLAN_TELEPHONE = 1;

/* SmsDcs.alphabet, TS 23.038, 4. */
static const u32 ALPHABET_GSM_7BIT = 0;
static const u32 ALPHABET_8BIT = 1;
static const u32 ALPHABET_UCS2 = 2;

static const u32 MSG_CLASS_NONE = 4;

/* SmsDcs.msg_waiting: the coding group of the data coding scheme. */
static const u32 WAITING_NONE = 0;
static const u32 WAITING_DISCARD = 1;
static const u32 WAITING_STORE = 2;
static const u32 WAITING_CLASS_ONLY = 3; /* group 1111: class and alphabet */

/* SmsValidity.format: TP-VPF. */
static const u32 VALIDITY_NONE = 0;
static const u32 VALIDITY_ENHANCED = 1;
static const u32 VALIDITY_RELATIVE = 2;
static const u32 VALIDITY_ABSOLUTE = 3;

/* SmsUdhIe.header_id: TS 23.040, 9.2.3.24. */
static const u32 UDH_CONCAT_8 = 0x00;
static const u32 UDH_SPECIAL_INDICATION = 0x01;
static const u32 UDH_CONCAT_16 = 0x08;
static const u32 UDH_TEXT_FORMATTING = 0x0A;
static const u32 UDH_PREDEFINED_SOUND = 0x0B;
static const u32 UDH_USER_SOUND = 0x0C;
static const u32 UDH_PREDEFINED_ANIMATION = 0x0D;
static const u32 UDH_LARGE_ANIMATION = 0x0E;
static const u32 UDH_SMALL_ANIMATION = 0x0F;
static const u32 UDH_LARGE_PICTURE = 0x10;
static const u32 UDH_SMALL_PICTURE = 0x11;
static const u32 UDH_VARIABLE_PICTURE = 0x12;
static const u32 UDH_RFC822_HEADER = 0x20;

/* TPDU types of SmsTpdu and SmsRawTpdu. */
static const u32 TPDU_DELIVER = 0;
static const u32 TPDU_SUBMIT = 3;
static const u32 TPDU_STATUS_REPORT = 6;
static const u32 TPDU_RESERVED = 8;

/* TP-OA, TP-DA, TP-RA. */
typedef struct {
    u32 digit_mode;  /* set by the decoder: 0 digit values, 1 characters of the GSM alphabet */
    u32 aux_mode;    /* left alone by the codec */
    u32 number_type; /* NUMBER_...; NUMBER_ALPHANUMERIC makes `digits` characters */
    u32 number_plan;
    u8 number_of_digits; /* 0 to 20 */
    /* One digit value (0 to 9, 10 "*", 11 "#", 12 to 14 "a" to "c", 15 filler) or one septet each.
     * An odd decoded number leaves its filler behind the last digit. */
    u8 digits[SMS_ADDRESS_DIGITS_ROOM];
} SmsAddress;

/* TP-SCTS, TP-DT, an absolute TP-VP: BCD octets, tens in the high nibble. As a duration: years of
 * 365 days, months of 30 days, days, hours, minutes, seconds. */
typedef struct {
    u8 year; /* of the century */
    u8 month;
    u8 day;
    u8 hour;
    u8 minute;
    u8 second;
    int8_t timezone; /* binary: quarter hours from GMT, -48 to 48 */
} SmsTimestamp;

/* TP-VP. The enhanced format has no representation. */
typedef struct {
    u32 format;        /* VALIDITY_... */
    SmsTimestamp time; /* a time for VALIDITY_ABSOLUTE, a duration for VALIDITY_RELATIVE */
} SmsValidity;

/* TP-DCS. */
typedef struct {
    u32 msg_class;         /* 0 to 3, MSG_CLASS_NONE */
    u8 is_compressed;      /* decoded: the bit's own value, 0x20 */
    u32 alphabet;          /* ALPHABET_... */
    u32 msg_waiting;       /* WAITING_... */
    u8 msg_waiting_active; /* 1 = set the indication */
    u32 msg_waiting_kind;  /* 0 voice mail, 1 fax, 2 e-mail, 3 other */
    u8 raw_dcs;            /* decoded: the octet as received */
} SmsDcs;

/* One information element of a user-data header. Only the two concatenation elements are coded;
 * the other members serve the length computation. */
typedef struct {
    u32 header_id; /* the element's identifier, UDH_... or another */
    union {
        struct {
            u8 msg_ref, total_sm, seq_num;
        } concat8; /* UDH_CONCAT_8 */
        struct {
            u16 msg_ref;
            u8 total_sm, seq_num;
        } concat16; /* UDH_CONCAT_16 */
        struct {
            u8 data_length;
        } sound; /* UDH_USER_SOUND */
        struct {
            u8 dimension1, dimension2;
        } picture; /* UDH_VARIABLE_PICTURE */
        struct {
            u8 colour_present;
        } text_formatting; /* UDH_TEXT_FORMATTING */
        struct {
            u8 data_length;
        } other; /* any identifier not named above */
    } payload;
} SmsUdhIe;

/* TP-UD. */
typedef struct {
    u8 num_headers; /* 0 to SMS_MAX_UDH_IES */
    SmsUdhIe headers[SMS_MAX_UDH_IES];
    u16 sm_len; /* of the body, without the header: septets (GSM 7-bit) or octets */
    u8 sm_data[SMS_MAX_TPDU_LEN]; /* the body; GSM 7-bit: one unpacked septet each */
} SmsUserData;

/* A TPDU from its first octet on, without the service-centre address. */
typedef struct {
    u32 tpdu_type; /* set by the encoders; the decoders do not look at it */
    u32 len;       /* octets of `data`, set by the encoders; the decoders do not look at it */
    u8 data[SMS_MAX_TPDU_LEN];
} SmsRawTpdu;

/* SMS-DELIVER, TS 23.040, 9.2.2.1. */
typedef struct {
    u8 more_msgs; /* 1 = more messages wait (TP-MMS clear) */
    u8 reply_path;
    u8 udh_present;
    u8 status_report_enabled; /* TP-SRI */
    SmsAddress address;       /* TP-OA */
    u32 pid;
    SmsDcs dcs;
    SmsTimestamp timestamp; /* TP-SCTS */
    SmsUserData user_data;
} SmsDeliver;

/* SMS-SUBMIT, TS 23.040, 9.2.2.2. */
typedef struct {
    u8 reject_duplicates;
    u8 reply_path;
    u8 udh_present;
    u8 status_report_enabled; /* TP-SRR */
    u32 message_reference;
    SmsAddress address; /* TP-DA */
    u32 pid;
    SmsDcs dcs;
    SmsValidity validity;
    SmsUserData user_data;
} SmsSubmit;

/* SMS-STATUS-REPORT, TS 23.040, 9.2.2.3. */
typedef struct {
    u8 udh_present;
    u8 more_msgs;               /* 1 = more messages wait (TP-MMS clear) */
    u8 status_report_qualifier; /* 1 = the report answers a command */
    u32 message_reference;
    SmsAddress address;          /* TP-RA */
    SmsTimestamp sc_timestamp;   /* TP-SCTS */
    SmsTimestamp discharge_time; /* TP-DT */
    u32 tp_status;               /* TP-ST */
    u32 mask;   /* TP-PI: bit 0 TP-PID, bit 1 TP-DCS, bit 2 TP-UD; 0xFF received is 0 here */
    u32 pid;    /* 0 when absent */
    SmsDcs dcs; /* left as the caller had it when absent */
    SmsUserData user_data;
} SmsStatusReport;

/* A decoded TPDU and its type, TPDU_... */
typedef struct {
    u32 tpdu_type;
    union {
        SmsDeliver deliver;
        SmsSubmit submit;
        SmsStatusReport status_report;
    } u;
} SmsTpdu;

/* What a PDU-mode line holds: the service-centre address and the TPDU. */
typedef struct {
    SmsAddress service_centre;
    SmsTpdu tpdu;
} SmsAtMessage;

SMSPB_BEGIN_EXPORTS

/* The BCD octet of `value`, 0 to 99; a greater value gives a meaningless octet. */
u8 wms_ts_int_to_bcd(u8 value);

/* Stores the number of a BCD octet and returns 1; stores 0, logs and returns 0 for a bad digit. */
u8 wms_ts_bcd_to_int(u8 bcd, u8 *value);

/* Encodes an address (TS 23.040, 9.1.2.5) into at most 21 octets. Returns them; 0, nothing
 * written, above 20 digits. Type and plan are not masked. */
u8 wms_ts_encode_address(const SmsAddress *address, u8 *out);

/* Decodes an address, touching at most 13 octets (one more than an address holds). Returns its
 * octets; 0, nothing written, for a length above 20. `aux_mode` is left alone. */
u8 wms_ts_decode_address(const u8 *in, SmsAddress *address);

/* Encodes a time stamp (TS 23.040, 9.2.3.11) into 7 octets. Returns 7; 0 for a bad digit or a field
 * out of range, logged, with the octets before it written. */
u8 wms_ts_encode_timestamp(const SmsTimestamp *timestamp, u8 *out);

/* The same without range messages in the log. */
u8 gw_ts_encode_timestamp(const SmsTimestamp *timestamp, u8 *out);

/* Decodes the 7 octets of a time stamp. A bad field is logged and replaced: month and day by 1, the
 * others by 0. Returns 7; 0 for a null pointer. */
u8 wms_ts_decode_timestamp(const u8 *in, SmsTimestamp *timestamp);

/* The relative TP-VP (TS 23.040, 9.2.3.12.1) of a duration; 0 for null. Up to 12 hours
 * it rounds up to 5 minutes, below a day down to half hours, then up to weeks; 721 to 748 minutes
 * wrap to 22 and 23, and weeks above 255. */
u8 wms_ts_encode_relative_time(const SmsTimestamp *duration);

/* The duration of a relative TP-VP. Not the exact inverse of the encoder. */
void wms_ts_decode_relative_time(u8 vp, SmsTimestamp *duration);

/* Encodes TP-VP by its format. Returns the octets: 1 relative, 7 absolute, else 0; 0 also for an
 * absolute time that is refused. */
u8 wms_ts_encode_gw_validity(const SmsValidity *validity, u8 *out);

/* Decodes TP-VP; `format` is set by the caller. Reads 0, 1 or 7 octets and returns them. */
u8 wms_ts_decode_gw_validity(const u8 *in, SmsValidity *validity);

/* Decodes the TP-DCS octet (TS 23.038, 4). Returns 1; 0 for a null pointer. The message-waiting
 * flags are written by the groups that have them only. */
u8 wms_ts_decode_dcs(const u8 *in, SmsDcs *dcs);

/* Encodes TP-DCS. Returns 1. */
u8 wms_ts_encode_dcs(const SmsDcs *dcs, u8 *out);

/* Packs `count` septets (TS 23.038, 6.1.2.1), one per octet of `chars`, not masked. `shift` fill
 * bits modulo 7 precede them: the first octet is then ORed, so it must hold what stands before it.
 * Writes at most `out_limit` octets and returns them; 0 for null. */
u16 wms_ts_pack_gw_7_bit_chars(const u8 *chars, u16 count, u16 shift, u16 out_limit, u8 *out);

/* Unpacks at most `char_limit` septets from at most `in_bound` octets. `shift` is 8 less the fill
 * bits before the first septet, 0 without any; above 7 nothing is unpacked. A septet 0 is stored as
 * 0x40, unless it is the upper seven bits of its octet. Returns the octets consumed; 0 for null,
 * logged. */
u8 wms_ts_unpack_gw_7_bit_chars(const u8 *in, u8 in_bound, u8 char_limit, u16 shift, u8 *out);

/* Encodes a user-data header (TS 23.040, 9.2.3.24): its length octet, then the concatenation
 * elements of the first 7; others and impossible ones are skipped. Writes at most 43 octets
 * and returns the length octet; 0, nothing written, for a count of 0. */
u8 wms_ts_encode_user_data_header(u8 count, const SmsUdhIe *elements, u8 *out);

/* Decodes a user-data header from its length octet on; the argument need only be nonzero. Reads
 * within 256 octets. Returns the length octet; 0 for a refused header. */
u8 wms_ts_decode_user_data_header(u8 udhl, const u8 *in, u8 *count, SmsUdhIe *elements);

/* The octets of an element with its identifier and length; 0 for null. */
u8 wms_ts_get_udh_length(const SmsUdhIe *element);

/* The octets of a header with its length octet, elements that the encoder skips included. */
u32 wms_ts_compute_user_data_header_length(u8 count, const SmsUdhIe *elements);

/* The estimated octets of TP-UD, fill bits ignored; 0 for null. */
u32 wms_ts_compute_gw_user_data_length(const SmsDcs *dcs, const SmsUserData *user_data);

/* Encodes TP-UDL and TP-UD. `out` holds 255 octets, zero where nothing is written. Returns the
 * octets. A header of 141 octets or more is dropped. */
u8 wms_ts_encode_gw_user_data(const SmsDcs *dcs, const SmsUserData *user_data, u8 *out);

/* Decodes TP-UD from the octet behind TP-UDL, reading within 255 octets from there. Clears the
 * record first. Returns the octets consumed, for septets more than there are; 0 for null, an empty
 * or an overlong TP-UDL. */
u8 wms_ts_decode_gw_user_data(const SmsDcs *dcs, u8 udl, const u8 *in, u8 udhi,
                              SmsUserData *user_data);

/* Encodes a DELIVER or a SUBMIT. Clears `data`, then sets type and length, also for
 * TS_USER_DATA_TOO_LONG. */
u32 wms_ts_encode_deliver(const SmsDeliver *deliver, SmsRawTpdu *raw);
u32 wms_ts_encode_submit(const SmsSubmit *submit, SmsRawTpdu *raw);

/* Decode a TPDU, tracing each field to the log. Only the DELIVER decoder checks TP-MTI. A long
 * 7-bit text gives TS_USER_DATA_TOO_LONG with the record complete. */
u32 wms_ts_decode_deliver(const SmsRawTpdu *raw, SmsDeliver *deliver);
u32 wms_ts_decode_submit(const SmsRawTpdu *raw, SmsSubmit *submit);
u32 wms_ts_decode_status_report(const SmsRawTpdu *raw, SmsStatusReport *report);

/* Decodes a PDU-mode line (TS 27.005, 3.1): hexadecimal service-centre address and TPDU. Returns 0
 * or AT_PDU_...; the TPDU decoder's own result is not looked at. */
u32 wms_decode_at_cmd_pdu(const char *hex, SmsAtMessage *message);

SMSPB_END_EXPORTS

#endif
