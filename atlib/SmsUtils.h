/*
 * Messages as callers see them: character sets, PDU-mode text, composition and segmentation,
 * numbers and times.
 *
 * A UCS-2 string is a zero-terminated array of units in host order. Unless a function says
 * otherwise it allocates nothing, keeps no state, does not block, and needs its pointers not null.
 * Lengths are units (UCS-2), septets one per octet (GSM) or octets (UTF-8).
 */
#ifndef SMSPB_ATLIB_SMSUTILS_H
#define SMSPB_ATLIB_SMSUTILS_H

#include "../comm/smspb_types.h"
#include "SmsEncoding.h"

enum {
    SMS_NUMBER_UNITS = 21,  /* units of a number field, its zero included */
    SMS_PDU_TEXT_ROOM = 400 /* characters of a segment's PDU text, its zero included */
};

/* SmsMessage.kind. */
static const u32 MESSAGE_DELIVER = 1;
static const u32 MESSAGE_SUBMIT = 2;
static const u32 MESSAGE_STATUS_REPORT = 3;

/* A message to compose, and a decoded message: one layout. */
typedef struct {
    u32 kind;                          /* decoded: MESSAGE_... */
    u16 sc_number[SMS_NUMBER_UNITS];   /* service centre; empty for none */
    u16 peer_number[SMS_NUMBER_UNITS]; /* destination, originator or recipient */
    u16 *text;     /* to compose: the caller's; decoded: a block that the caller frees */
    u32 msg_class; /* decoded: 0 to 3, MSG_CLASS_NONE */
    /* To compose: the absolute validity, used when a field other than the year is nonzero. Decoded:
     * the service-centre time, or a SUBMIT's validity. */
    u16 year, month, day, hour, minute, second;
    u8 status_report;   /* TP-SRR of a SUBMIT */
    u16 total_segments; /* decoded, from a concatenation header; 0 without one */
    u16 segment_number; /* from 1 */
    u16 reference;
} SmsMessage;
SMSPB_SIZE_32(SmsMessage, 116);

/* One SUBMIT ready for the modem. */
typedef struct {
    char pdu[SMS_PDU_TEXT_ROOM]; /* upper-case hexadecimal, zero-terminated */
    u32 tpdu_length;             /* octets, without the service-centre address */
} SmsSegment;
SMSPB_SIZE_32(SmsSegment, 404);

/* A calendar time in plain binary, the year in full. */
typedef struct {
    u16 year;
    u8 month, day, hour, minute, second;
} SmsCalendarTime;

SMSPB_BEGIN_EXPORTS

/* Units before the terminating zero; 0 for null. */
u32 sms_wstrlen(const u16 *text);
u32 mywcslen(const u16 *text);

/* 1 when `c` is not in the GSM default alphabet (TS 23.038, 6.2.1), extension table not counted. */
u32 sms_IsUnicode(u16 c);

/* The coding that a text needs: ALPHABET_GSM_7BIT or ALPHABET_UCS2. */
u32 sms_GetEncodeType(const u16 *text);

/* Maps a unit to its septet; `*extension` is 1 when the escape belongs before it. Returns 0 and
 * leaves `*code` for a unit that has none. The euro sign has none here. */
u32 sms_UnicodeToGSM(u16 c, u8 *code, u8 *extension);

/* Converts `length` units to septets, a space for what has none. Clears `capacity` octets of `out`
 * first; a mapped character needs one spare octet behind it. Returns the septets. */
u32 sms_WSTRToGSM(const u16 *text, u32 length, u8 *out, u32 capacity);

/* Converts `count` septets to at most `capacity` units, all cleared first. An escape takes the
 * octet behind it, so `septets` holds count + 1 octets. Returns the units. */
i32 sms_GSMToWSTR(const u8 *septets, u32 count, u16 *out, u32 capacity);

/* Copies n + 1 units; nothing when n is 0. */
void sms_FromUnicodeNetwork(const u16 *src, u32 n, u16 *dst);

/* Writes n units as 2n octets, high octet first. */
void sms_ToUnicodeNetwork(const u16 *src, u32 n, u8 *dst);

/* Converts n units to UTF-8 and a zero octet within `capacity`. Returns the octets without the
 * zero; -1, -2, -3 or -4 when a character of one, two, surrogate or three octets does not fit. */
i32 UnicodeToUTF8(const u16 *src, u32 n, u8 *dst, u32 capacity);

/* Converts n octets of UTF-8 to units and a zero unit within `capacity`. Returns the units without
 * the zero; 0 for a sequence cut short or no room. */
i32 UTF8ToUnicode(const u8 *src, u32 n, u16 *dst, u32 capacity);

/* Converts n octets of UTF-8 into a static buffer of 1,024 units, which the next call overwrites.
 * Stops before a sequence that is cut short, and after 1,023 units. Not re-entrant. */
u16 *UTF2Uni(const u8 *src, u32 n);

/* The octets of the UTF-8 sequence that `byte` leads (2 to 6), 0 for ASCII, -1 for what leads none.
 */
int getCntBits(u8 byte);

/* Writes the service-centre part of a PDU text (at most 76 characters and a zero for 36 digits).
 * Returns the zero's place. */
char *wms_scaddr_to_string(SmsAddress service_centre, char *out);

/* Writes the PDU text of a DELIVER or SUBMIT: at most 76 + 510 characters and a zero. Stores the
 * octets of the TPDU. Returns 0, the encoder's TS_ status, or 200 for another type. */
u32 wms_encode_at_cmd_pdu(const SmsAtMessage *message, char *out, u32 *tpdu_length);

/* Converts up to 2 * count hexadecimal characters to `count` octets; the text may end early.
 * Returns 0; 1 when a pair was not hexadecimal: it stores the pair before it again. */
u32 dsatetsismsi_encode_pdu(const char *hex, u8 *out, u32 count);

/* TPDU_... of a TPDU's first octet. */
u32 dsatetsismsi_get_tpdu_type(u8 first_octet);

/* Composes a text into one or more SUBMITs: GSM 7-bit (160 characters, or 153 a segment) when every
 * character has a septet, else UCS-2 (70, or 67). `*segments` is a heap block that the caller frees
 * with free(), null when the result is not 0. Returns 0; -1 out of memory, or above 255 segments
 * with `*count` 0. Not re-entrant: concatenated messages take their reference from one counter. */
i32 sms_encode_pdu(const SmsMessage *request, SmsSegment **segments, u8 *count);

/* Decodes a PDU text. `message->text` is a heap block that the caller frees with free(). Returns 0
 * always: a PDU that does not decode leaves the record as the caller cleared it. */
i32 sms_decode_pdu(const char *pdu, SmsMessage *message);

/* Converts the body of a DELIVER or SUBMIT to a heap block that the caller frees with free(), null
 * when memory is out. 8-bit data is copied, two octets to a unit. Returns 1; 0 without a text. */
u32 sms_decode_msg_body_text(const SmsTpdu *tpdu, u16 **text);

/* Reads a number of at most 8 digits, decimal or hexadecimal; letters count in both. Returns 1; 0,
 * nothing stored, for a longer text or another character. An empty text is 0. */
u8 sms_utils_atoi(const char *text, u32 *value, u8 hexadecimal);

/* Writes a number and a zero (at most 11 characters). Returns the zero's place. */
char *sms_utils_itoa(u32 value, char *out, u8 hexadecimal);

/* Copies a text without its leading and trailing blanks, its last character and a terminator.
 * Returns 1 when there was a blank at either end. */
u8 sms_str_trim(const char *text, char *out);

/* Dialled characters to digit values and back, `count` of them, in place too. */
void sms_ascii_to_bcd(const u8 *chars, u8 count, u8 *digits);
void sms_bcd_to_ascii(const u8 *digits, u8 count, u8 *chars);

/* Stores the number of a BCD octet and returns 1; stores 0 and returns 0 for a bad digit. */
u8 wms_bcd_to_int(u8 bcd, u8 *value);

/* The class of one dialled character: 0 end, 1 digit, 3 A to C, 4 D, 5 E, 7 ";", 8 "*", 9 "#",
 * 10 "+", 11 one of "W,$TP!@", 12 anything else. */
u8 dsatutil_validate_dial_char(const char *c);

/* Reads a number with the type of address in hexadecimal, or null for none. Returns 1; 0 for a bad
 * type, a character other than 0 to 9 and A to E, or more than 20 digits, partly filled. */
u8 wms_str_to_addr(SmsAddress *address, const char *number, const char *type_of_address);

/* Keeps 0 to 9, "*", "#" and "P" of a number, at most 36 of them; "+" first makes it international.
 * Returns 1. The caller clears the record. */
u8 wms_number_to_address(const char *number, SmsAddress *address);

/* The same from a UCS-2 number. */
u8 sms_WStrNumberToWmsAddress(const u16 *number, SmsAddress *address);

/* Writes an address as text, "+" first when international, without a terminator: `out` holds 37
 * zeroed characters and one more. Returns 1. */
u8 sms_ConvertAddressToString(const SmsAddress *address, char *out);

/* The same as UCS-2, cut to 20 units and terminated: `out` holds 21. Left alone without digits. */
u8 sms_ConvertAddressToWString(const SmsAddress *address, u16 *out);

/* Narrow to the low octets, or widen with sign extension, and terminate. Return the count; 0 for
 * null, `out` left alone. */
u32 sms_wstrtostr(const u16 *text, char *out);
u32 sms_strtowstr(const char *text, u16 *out);

/* Time stamp to calendar time: years 80 to 99 are 1980 to 1999, the time zone is ignored. Returns 1
 * when the seconds are BCD, else 0; a bad field is 0. */
u8 wms_Timestamp_to_JulianType(const SmsTimestamp *timestamp, SmsCalendarTime *time);

/* Calendar time to time stamp, the zone left alone. Returns the seconds octet. */
u8 wms_JulianType_to_Timestamp(const SmsCalendarTime *time, SmsTimestamp *timestamp);

SMSPB_END_EXPORTS

#endif
