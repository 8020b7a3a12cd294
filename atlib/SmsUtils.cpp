// Messages as callers see them: character sets (TS 23.038), PDU-mode text (TS 27.005), composition
// and segmentation (TS 23.040, 9.2.3.24.1), numbers and times. Heap blocks are only those handed
// out.
#include "SmsUtils.h"

#include <stdlib.h>
#include <string.h>

#include "../comm/log_line.h"
#include "octets.h"

static const char LOG_SOURCE[] = "atlib/SmsUtils.cpp";

// TS 23.038, 6.2.1: the default alphabet, unit by septet.
enum { GSM_SEPTETS = 128 };
static const u8 GSM_ESCAPE = 0x1B;
// clang-format off
static constexpr u16 GSM_ALPHABET[GSM_SEPTETS] = {
    0x0040, 0x00A3, 0x0024, 0x00A5, 0x00E8, 0x00E9, 0x00F9, 0x00EC,
    // KEPT: 0x09 is the small c with cedilla, not the capital; callers rely on it.
    0x00F2, 0x00E7, 0x000A, 0x00D8, 0x00F8, 0x000D, 0x00C5, 0x00E5,
    0x0394, 0x005F, 0x03A6, 0x0393, 0x039B, 0x03A9, 0x03A0, 0x03A8,
    // KEPT: 0x1B, the escape, is a no-break space in both directions; callers rely on it.
    0x03A3, 0x0398, 0x039E, 0x00A0, 0x00C6, 0x00E6, 0x00DF, 0x00C9,
    0x0020, 0x0021, 0x0022, 0x0023, 0x00A4, 0x0025, 0x0026, 0x0027,
    0x0028, 0x0029, 0x002A, 0x002B, 0x002C, 0x002D, 0x002E, 0x002F,
    0x0030, 0x0031, 0x0032, 0x0033, 0x0034, 0x0035, 0x0036, 0x0037,
    0x0038, 0x0039, 0x003A, 0x003B, 0x003C, 0x003D, 0x003E, 0x003F,
    0x00A1, 0x0041, 0x0042, 0x0043, 0x0044, 0x0045, 0x0046, 0x0047,
    0x0048, 0x0049, 0x004A, 0x004B, 0x004C, 0x004D, 0x004E, 0x004F,
    0x0050, 0x0051, 0x0052, 0x0053, 0x0054, 0x0055, 0x0056, 0x0057,
    0x0058, 0x0059, 0x005A, 0x00C4, 0x00D6, 0x00D1, 0x00DC, 0x00A7,
    0x00BF, 0x0061, 0x0062, 0x0063, 0x0064, 0x0065, 0x0066, 0x0067,
    0x0068, 0x0069, 0x006A, 0x006B, 0x006C, 0x006D, 0x006E, 0x006F,
    0x0070, 0x0071, 0x0072, 0x0073, 0x0074, 0x0075, 0x0076, 0x0077,
    0x0078, 0x0079, 0x007A, 0x00E4, 0x00F6, 0x00F1, 0x00FC, 0x00E0,
};

// TS 23.038, 6.2.1.1: what may stand behind the escape.
struct GsmExtension {
    u8 code;
    u16 unit;
};
// KEPT: the euro sign (0x65) is absent, so it makes a text UCS-2; callers rely on it.
static const GsmExtension GSM_EXTENSIONS[] = {
    {0x0A, 0x000C}, {0x14, 0x005E}, {0x28, 0x007B}, {0x29, 0x007D}, {0x2F, 0x005C},
    {0x3C, 0x005B}, {0x3D, 0x007E}, {0x3E, 0x005D}, {0x40, 0x007C},
};
// clang-format on

// The alphabet read backwards. Its units lie in two rows: Latin and Greek capitals.
enum { LATIN_UNITS = 0x100, GREEK_FIRST = 0x390, GREEK_UNITS = 0x20 };
static const u8 NO_SEPTET = 0xFF;

struct SeptetTable {
    u8 latin[LATIN_UNITS];
    u8 greek[GREEK_UNITS];
};

static constexpr SeptetTable invertAlphabet() {
    SeptetTable table = {};
    for (u8 &septet : table.latin) { septet = NO_SEPTET; }
    for (u8 &septet : table.greek) { septet = NO_SEPTET; }
    for (u8 septet = 0; septet < GSM_SEPTETS; septet++) {
        const u16 unit = GSM_ALPHABET[septet];
        if (unit < LATIN_UNITS) {
            table.latin[unit] = septet;
        } else if (unit >= GREEK_FIRST) {
            table.greek[unit - GREEK_FIRST] = septet;
        }
    }
    return table;
}

static constexpr SeptetTable SEPTETS = invertAlphabet();

static u8 septetOf(size_t c) {
    if (c < LATIN_UNITS) { return SEPTETS.latin[c]; }
    const size_t greek = c - GREEK_FIRST;
    return greek < GREEK_UNITS ? SEPTETS.greek[greek] : NO_SEPTET;
}

static u16 low16(u32 value) { return static_cast<u16>(value & 0xFFFF); }

u32 sms_wstrlen(const u16 *text) {
    u32 length = 0;
    if (text == nullptr) { return 0; }
    while (text[length] != 0) { length++; }
    return length;
}

u32 mywcslen(const u16 *text) { return sms_wstrlen(text); }

u32 sms_IsUnicode(u16 c) { return c != 0 && septetOf(c) == NO_SEPTET ? 1 : 0; }

// The alphabet that holds a whole text, and its length.
static u32 alphabetOf(const u16 *text, u32 *length) {
    const u16 *c = text;
    while (*c != 0 && septetOf(*c) != NO_SEPTET) { c++; }
    const u32 mapped = static_cast<u32>(c - text);
    *length = mapped + sms_wstrlen(c);
    return *length == mapped ? ALPHABET_GSM_7BIT : ALPHABET_UCS2;
}

u32 sms_GetEncodeType(const u16 *text) {
    u32 length = 0;
    return text != nullptr ? alphabetOf(text, &length) : ALPHABET_GSM_7BIT;
}

// The code behind the escape; 0 for a unit that the extension table lacks.
static u8 extensionCode(u16 c) {
    for (const GsmExtension &entry : GSM_EXTENSIONS) {
        if (entry.unit == c) { return entry.code; }
    }
    return 0;
}

static bool isMapped(u16 c) { return septetOf(c) != NO_SEPTET || extensionCode(c) != 0; }

static u8 escapeOrSpace(u16 c) { return extensionCode(c) != 0 ? GSM_ESCAPE : u8{' '}; }

u32 sms_UnicodeToGSM(u16 c, u8 *code, u8 *extension) {
    const u8 septet = septetOf(c);
    const u8 behindEscape = septet == NO_SEPTET ? extensionCode(c) : u8{0};
    *extension = behindEscape != 0 ? 1 : 0;
    if (septet == NO_SEPTET && behindEscape == 0) { return 0; }
    *code = behindEscape != 0 ? behindEscape : septet;
    return 1;
}

u32 sms_WSTRToGSM(const u16 *text, u32 length, u8 *out, u32 capacity) {
    memset(out, 0, capacity);
    const u32 count = length < capacity ? length : capacity;
    for (u32 i = 0; i < count; i++) {
        const u8 septet = septetOf(text[i]);
        // KEPT: only the escape of an extension character is stored; callers rely on it.
        out[i] = septet != NO_SEPTET ? septet : escapeOrSpace(text[i]);
    }
    if (count == 0 || count < capacity || !isMapped(text[count - 1])) { return count; }
    out[count - 1] = 0; // a mapped character needs a spare octet behind it
    return count - 1;
}

// The unit of an escape and the septet behind it; the escape's own for an unknown one.
static u16 extensionUnit(u8 code) {
    for (const GsmExtension &entry : GSM_EXTENSIONS) {
        if (entry.code == code) { return entry.unit; }
    }
    return GSM_ALPHABET[GSM_ESCAPE];
}

// As sms_GSMToWSTR, reading within the first `held` septets: those behind are 0.
static u32 gsmToUnits(const u8 *septets, size_t held, u32 count, u16 *out, u32 capacity) {
    memset(out, 0, capacity * sizeof(*out));
    size_t o = 0;
    for (size_t i = 0; i < count && o < capacity; i++, o++) {
        const u32 septet = i < held ? septets[i] : 0u;
        if (septet == GSM_ESCAPE) {
            i++;
            out[o] = extensionUnit(i < held ? septets[i] : u8{0});
        } else {
            out[o] = septet < GSM_SEPTETS ? GSM_ALPHABET[septet] : u16{' '};
        }
    }
    return static_cast<u32>(o);
}

i32 sms_GSMToWSTR(const u8 *septets, u32 count, u16 *out, u32 capacity) {
    return static_cast<i32>(gsmToUnits(septets, SIZE_MAX, count, out, capacity));
}

void sms_FromUnicodeNetwork(const u16 *src, u32 n, u16 *dst) {
    if (n == 0) { return; }
    for (u32 i = 0; i <= n; i++) { dst[i] = src[i]; }
}

void sms_ToUnicodeNetwork(const u16 *src, u32 n, u8 *dst) {
    for (u32 i = 0; i < n; i++) {
        dst[2 * i] = low8(src[i] >> 8u);
        dst[2 * i + 1] = low8(src[i]);
    }
}

// UTF-8: the octets of a unit, and why they did not fit.
static const u32 UTF8_CONTINUATION = 0x80;
static const u32 UTF8_CONTINUATION_BITS = 0x3F;
static const i32 UTF8_NO_ROOM_1 = -1;
static const i32 UTF8_NO_ROOM_2 = -2;
static const i32 UTF8_NO_ROOM_SURROGATE = -3;
static const i32 UTF8_NO_ROOM_3 = -4;

static u8 continuation(u32 bits) {
    return low8(UTF8_CONTINUATION | (bits & UTF8_CONTINUATION_BITS));
}

// KEPT: U+D800 and U+DFFF are no surrogates here; callers rely on it.
static bool isSurrogate(u32 c) { return c > 0xD800 && c < 0xDFFF; }

// Writes one unit. Returns its octets, or the error when they and a zero do not fit in `room`.
static inline i32 putUtf8(u32 c, u8 *out, size_t room) {
    if (c < 0x80) {
        if (room <= 1) { return UTF8_NO_ROOM_1; }
        out[0] = low8(c);
        return 1;
    }
    if (c < 0x800) {
        if (room <= 2) { return UTF8_NO_ROOM_2; }
        out[0] = low8(0xC0u | c >> 6);
        out[1] = continuation(c);
        return 2;
    }
    if (isSurrogate(c)) {
        // KEPT: room for four octets is asked for and two are written; callers rely on it.
        if (room <= 4) { return UTF8_NO_ROOM_SURROGATE; }
        const u32 w = ((c & 0x3C0u) >> 6) + 1;
        out[0] = low8(0xF0u | w >> 2);
        out[1] = low8(UTF8_CONTINUATION | (w & 3) | (c & 0x3Eu) >> 2);
        return 2;
    }
    if (room <= 3) { return UTF8_NO_ROOM_3; }
    out[0] = low8(0xE0u | c >> 12);
    out[1] = continuation(c >> 6u);
    out[2] = continuation(c);
    return 3;
}

i32 UnicodeToUTF8(const u16 *src, u32 n, u8 *dst, u32 capacity) {
    u8 *out = dst;
    const u8 *const end = dst + capacity;
    for (const u16 *const last = src + n; src != last; src++) {
        const i32 octetCount = putUtf8(*src, out, static_cast<size_t>(end - out));
        if (octetCount < 0) { return octetCount; }
        out += octetCount;
    }
    if (out != end) { *out = 0; }
    return static_cast<i32>(out - dst);
}

// KEPT: a stray continuation octet is a unit, a lead of four counts as one of three; callers rely
// on it.
i32 UTF8ToUnicode(const u8 *src, u32 n, u16 *dst, u32 capacity) {
    size_t o = 0;
    for (size_t i = 0; i < n;) {
        const u32 lead = src[i];
        const size_t left = n - i;
        if (o + 1 >= capacity) { return 0; }
        if (lead < 0xC0) {
            dst[o++] = low16(lead);
            i += 1;
        } else if (lead < 0xE0 && left >= 2) {
            dst[o++] = low16((lead & 0x3F) << 6 | (src[i + 1] & 0x7Fu));
            i += 2;
        } else if (lead >= 0xE0 && left >= 3) {
            dst[o++] = low16(lead << 12 | (src[i + 1] & UTF8_CONTINUATION_BITS) << 6 |
                             (src[i + 2] & UTF8_CONTINUATION_BITS));
            i += 3;
        } else {
            return 0; // cut short
        }
    }
    if (o < capacity) { dst[o] = 0; }
    return static_cast<i32>(o);
}

int getCntBits(u8 byte) {
    int ones = 0;
    while (ones < 8 && (byte & (0x80 >> ones)) != 0) { ones++; }
    if (byte == 0 || ones == 1 || ones >= 7) { return -1; }
    return ones;
}

// One sequence of `length` octets, 2 to 6.
static u16 sequenceUnit(const u8 *sequence, u32 length) {
    u32 value = sequence[0] & ((1u << (7 - length)) - 1);
    for (u32 i = 1; i < length; i++) {
        value = value << 6 | (sequence[i] & UTF8_CONTINUATION_BITS);
    }
    return low16(value);
}

u16 *UTF2Uni(const u8 *src, u32 n) {
    enum { UNITS = 1024 };
    static u16 text[UNITS];
    memset(text, 0, sizeof(text));
    u32 count = 0;
    for (u32 i = 0; i < n && count < UNITS - 1;) {
        const int bits = getCntBits(src[i]);
        const u32 length = bits > 0 ? static_cast<u32>(bits) : 1;
        if (length > n - i) { break; }
        if (bits >= 0) { text[count++] = length == 1 ? src[i] : sequenceUnit(src + i, length); }
        i += length;
    }
    LOG_LINE("unic count=%d\n\n", static_cast<int>(count));
    return text;
}

// Numbers in text.

static const u32 NUMBER_TEXT_LIMIT = 9; // characters with their zero

static const u8 NO_DIGIT = 0xFF;

struct DigitTable {
    u8 values[256];
};

// KEPT: letters count beyond the base, to Z and further; callers rely on it.
static constexpr DigitTable valueDigits() {
    DigitTable table = {};
    for (u32 code = 0; code < 256; code++) {
        u32 value = NO_DIGIT;
        if (code >= '0' && code <= '9') {
            value = code - '0';
        } else if (code >= 'a' && code <= 'z') {
            value = code - 'a' + 10;
        } else if (code >= 'A') {
            value = code - 'A' + 10;
        }
        table.values[code] = static_cast<u8>(value);
    }
    return table;
}

static constexpr DigitTable DIGITS = valueDigits();

static u32 digitValue(char c) { return DIGITS.values[static_cast<u8>(c)]; }

u8 sms_utils_atoi(const char *text, u32 *value, u8 hexadecimal) {
    const u32 base = hexadecimal != 0 ? 16 : 10;
    u32 number = 0;
    for (u32 i = 0; text[i] != '\0'; i++) {
        const u32 digit = digitValue(text[i]);
        if (i + 1 >= NUMBER_TEXT_LIMIT || digit == NO_DIGIT) { return 0; }
        number = number * base + digit;
    }
    *value = number;
    return 1;
}

char *sms_utils_itoa(u32 value, char *out, u8 hexadecimal) {
    const u32 base = hexadecimal != 0 ? 16 : 10;
    char scratch[32];
    u32 first = sizeof(scratch);
    do {
        scratch[--first] = "0123456789ABCDEF"[value % base];
        value /= base;
    } while (value != 0);
    const u32 length = static_cast<u32>(sizeof(scratch)) - first;
    memcpy(out, scratch + first, length);
    out[length] = '\0';
    return out + length;
}

u8 sms_str_trim(const char *text, char *out) {
    const size_t length = strlen(text);
    size_t first = 0;
    size_t end = length;
    while (first < end && text[first] == ' ') { first++; }
    while (end > first && text[end - 1] == ' ') { end--; }
    // KEPT: the last character is not copied and no zero is written; callers rely on it.
    if (end > first) { memcpy(out, text + first, end - first - 1); }
    return first > 0 || end < length ? 1 : 0;
}

u8 wms_bcd_to_int(u8 bcd, u8 *value) {
    const u32 tens = bcd >> 4;
    const u32 units = bcd & 0x0F;
    const bool valid = tens < 10 && units < 10;
    *value = valid ? low8(tens * 10 + units) : u8{0};
    return valid ? 1 : 0;
}

// Dialled characters and digit values: TS 23.040, 9.1.2.3.

static u8 dialledDigit(char c) {
    if (c == '#') { return 11; }
    return c == '*' ? u8{10} : low8(static_cast<u8>(c) - u32{'0'});
}

void sms_ascii_to_bcd(const u8 *chars, u8 count, u8 *digits) {
    for (u32 i = 0; i < count; i++) { digits[i] = dialledDigit(static_cast<char>(chars[i])); }
}

void sms_bcd_to_ascii(const u8 *digits, u8 count, u8 *chars) {
    for (u32 i = 0; i < count; i++) {
        chars[i] = static_cast<u8>("0123456789*#abc "[digits[i] & 0x0F]);
    }
}

static const u8 DIAL_END = 0;
static const u8 DIAL_DIGIT = 1;
static const u8 DIAL_A_TO_C = 3;
static const u8 DIAL_E = 5;
static const u8 DIAL_PLUS = 10;
static const u8 DIAL_CONTROL = 11;
static const u8 DIAL_OTHER = 12;

u8 dsatutil_validate_dial_char(const char *c) {
    const char upper = *c >= 'a' && *c <= 'z' ? static_cast<char>(*c - 'a' + 'A') : *c;
    if (upper >= '0' && upper <= '9') { return DIAL_DIGIT; }
    switch (upper) {
    case '\0': return DIAL_END;
    case 'A':
    case 'B':
    case 'C': return DIAL_A_TO_C;
    case 'D': return 4;
    case 'E': return DIAL_E;
    case ';': return 7;
    case '*': return 8;
    case '#': return 9;
    case '+': return DIAL_PLUS;
    default: return strchr("W,$TP!@", upper) != nullptr ? DIAL_CONTROL : DIAL_OTHER;
    }
}

// Addresses: TS 23.040, 9.1.2.5.

static const u32 TYPE_OF_ADDRESS_LIMIT = 256;

// Sets type and plan. Returns the number behind its "+", null for a bad type of address.
static const char *readNumberType(SmsAddress *address, const char *number, const char *type) {
    const bool plus = *number == '+';
    u32 octet = 0;
    if (type != nullptr && *type != '\0') {
        if (sms_utils_atoi(type, &octet, 1) == 0 || octet >= TYPE_OF_ADDRESS_LIMIT) {
            return nullptr;
        }
        address->number_type = (octet & 0x70) >> 4;
        address->number_plan = octet & 0x0F;
    } else {
        address->number_type = plus ? NUMBER_INTERNATIONAL : NUMBER_UNKNOWN;
        address->number_plan = PLAN_TELEPHONE;
    }
    return plus ? number + 1 : number;
}

u8 wms_str_to_addr(SmsAddress *address, const char *number, const char *type_of_address) {
    address->digit_mode = 0;
    const char *c = readNumberType(address, number, type_of_address);
    if (c == nullptr) { return 0; }
    u8 valid = 1;
    u32 count = 0;
    for (; *c != '\0'; c++) {
        const u8 dialClass = dsatutil_validate_dial_char(c);
        u8 digit = static_cast<u8>(*c);
        if (dialClass == DIAL_PLUS) { return 0; }
        if (dialClass == DIAL_DIGIT) {
            digit = low8(digit - u32{'0'});
        } else if (dialClass >= DIAL_A_TO_C && dialClass <= DIAL_E) {
            digit = low8(digit - u32{'A'} + 10);
        } else {
            valid = 0; // KEPT: stored unchanged and refused at the end; callers rely on it.
        }
        address->digits[count++] = digit;
        if (count > SMS_MAX_ADDRESS_DIGITS) { return 0; }
    }
    address->number_of_digits = low8(count);
    return valid;
}

static bool isDialled(char c) { return (c >= '0' && c <= '9') || c == '*' || c == '#' || c == 'P'; }

u8 wms_number_to_address(const char *number, SmsAddress *address) {
    // KEPT: the length counts modulo 256; callers rely on it.
    const u32 length = low8(static_cast<u32>(strlen(number)));
    u32 count = 0;
    for (u32 i = 0; i < length && count < SMS_ADDRESS_DIGITS_ROOM; i++) {
        if (isDialled(number[i])) { address->digits[count++] = dialledDigit(number[i]); }
    }
    address->number_of_digits = low8(count);
    if (number[0] == '+') { address->number_type = NUMBER_INTERNATIONAL; }
    address->number_plan = PLAN_TELEPHONE;
    return 1;
}

// Keeps the low octet of at most `limit` units, and terminates.
static u32 narrow(const u16 *text, u32 limit, char *out) {
    u32 length = 0;
    for (; length < limit && text[length] != 0; length++) {
        out[length] = static_cast<char>(low8(text[length]));
    }
    out[length] = '\0';
    return length;
}

u8 sms_WStrNumberToWmsAddress(const u16 *number, SmsAddress *address) {
    char text[256] = {0};
    narrow(number, low8(sms_wstrlen(number)), text);
    return wms_number_to_address(text, address);
}

static u32 digitsHeld(const SmsAddress *address) {
    const u32 count = address->number_of_digits;
    return count < SMS_ADDRESS_DIGITS_ROOM ? count : static_cast<u32>(SMS_ADDRESS_DIGITS_ROOM);
}

u8 sms_ConvertAddressToString(const SmsAddress *address, char *out) {
    memset(out, 0, 4);
    const u32 count = digitsHeld(address);
    if (address->number_type == NUMBER_ALPHANUMERIC) {
        memcpy(out, address->digits, count);
        return 1;
    }
    if (address->number_type == NUMBER_INTERNATIONAL) { *out++ = '+'; }
    sms_bcd_to_ascii(address->digits, low8(count), reinterpret_cast<u8 *>(out));
    return 1;
}

u8 sms_ConvertAddressToWString(const SmsAddress *address, u16 *out) {
    if (address->number_of_digits == 0) { return 1; }
    char text[SMS_ADDRESS_DIGITS_ROOM + 2] = {0};
    sms_ConvertAddressToString(address, text);
    text[SMS_NUMBER_UNITS - 1] = '\0'; // what a number field holds
    sms_strtowstr(text, out);
    return 1;
}

u32 sms_wstrtostr(const u16 *text, char *out) {
    return text != nullptr ? narrow(text, UINT32_MAX, out) : 0;
}

u32 sms_strtowstr(const char *text, u16 *out) {
    if (text == nullptr) { return 0; }
    u32 length = 0;
    for (; text[length] != '\0'; length++) {
        const u16 octet = static_cast<u8>(text[length]);
        // KEPT: widened with its sign, 0x80 becomes 0xFF80; callers rely on it.
        out[length] = octet < 0x80 ? octet : static_cast<u16>(octet | 0xFF00);
    }
    out[length] = 0;
    return length;
}

// Times.

u8 wms_Timestamp_to_JulianType(const SmsTimestamp *timestamp, SmsCalendarTime *time) {
    memset(time, 0, sizeof(*time));
    const bool lastCentury = timestamp->year >= 0x80 && timestamp->year < 0x9A;
    u8 year = 0;
    wms_bcd_to_int(timestamp->year, &year);
    time->year = static_cast<u16>((lastCentury ? 1900 : 2000) + year);
    wms_bcd_to_int(timestamp->month, &time->month);
    wms_bcd_to_int(timestamp->day, &time->day);
    wms_bcd_to_int(timestamp->hour, &time->hour);
    wms_bcd_to_int(timestamp->minute, &time->minute);
    return wms_bcd_to_int(timestamp->second, &time->second);
}

static u8 wrappingBcd(u32 value) { return low8(value / 10 * 16 + value % 10); }

static u32 yearOfCentury(u32 year) {
    if (year < 1900) { return year; }
    return year < 2000 ? year - 1900 : year - 2000;
}

u8 wms_JulianType_to_Timestamp(const SmsCalendarTime *time, SmsTimestamp *timestamp) {
    timestamp->year = wrappingBcd(yearOfCentury(time->year));
    timestamp->month = wrappingBcd(time->month);
    timestamp->day = wrappingBcd(time->day);
    timestamp->hour = wrappingBcd(time->hour);
    timestamp->minute = wrappingBcd(time->minute);
    timestamp->second = wrappingBcd(time->second);
    return timestamp->second;
}

// PDU-mode text: TS 27.005, 3.1.

static const char HEX_DIGITS[] = "0123456789ABCDEF";

static char *putHexOctets(char *out, const u8 *octets, u32 count) {
    UNROLLED(4)
    for (const u8 *end = octets + count; octets != end; octets++, out += 2) {
        const u32 octet = *octets;
        out[0] = HEX_DIGITS[octet >> 4];
        out[1] = HEX_DIGITS[octet & 0x0F];
    }
    *out = '\0';
    return out;
}

static char *putHexOctet(char *out, u8 octet) { return putHexOctets(out, &octet, 1); }

char *wms_scaddr_to_string(SmsAddress service_centre, char *out) {
    const u32 digitCount = digitsHeld(&service_centre);
    if (digitCount == 0) { return putHexOctet(out, 0); }
    out = putHexOctet(out, low8((digitCount + 1) / 2 + 1));
    // KEPT: the plan keeps three bits of its four; callers rely on it.
    const u32 type =
        0x80u | (service_centre.number_type & 7) << 4 | (service_centre.number_plan & 7);
    out = putHexOctet(out, low8(type));
    for (u32 i = 0; i < digitCount; i += 2) {
        const u32 second = i + 1 < digitCount ? service_centre.digits[i + 1] : 0x0Fu;
        out = putHexOctet(out, low8(second << 4 | (service_centre.digits[i] & 0x0Fu)));
    }
    return out;
}

u32 wms_encode_at_cmd_pdu(const SmsAtMessage *message, char *out, u32 *tpdu_length) {
    out = wms_scaddr_to_string(message->service_centre, out);
    SmsRawTpdu raw;
    u32 status = AT_PDU_INVALID_TYPE;
    if (message->tpdu.tpdu_type == TPDU_DELIVER) {
        status = wms_ts_encode_deliver(&message->tpdu.u.deliver, &raw);
    } else if (message->tpdu.tpdu_type == TPDU_SUBMIT) {
        status = wms_ts_encode_submit(&message->tpdu.u.submit, &raw);
    } else {
        *tpdu_length = 0;
    }
    if (status != TS_OK) { return status; }
    putHexOctets(out, raw.data, raw.len);
    *tpdu_length = raw.len;
    return TS_OK;
}

static const u32 NO_PAIR = UINT32_MAX;

// The value of the next two characters, of one at the text's end, 0 behind it.
static inline u32 takeHexPair(const char **hex) {
    const char *c = *hex;
    if (c[0] == '\0') { return 0; }
    const u32 first = digitValue(c[0]);
    *hex = c + 1;
    if (c[1] == '\0') { return first != NO_DIGIT ? first : NO_PAIR; }
    const u32 second = digitValue(c[1]);
    *hex = c + 2;
    return first != NO_DIGIT && second != NO_DIGIT ? first * 16 + second : NO_PAIR;
}

u32 dsatetsismsi_encode_pdu(const char *hex, u8 *out, u32 count) {
    u32 malformed = 0;
    u32 octet = 0;
    for (const u8 *const end = out + count; out != end; out++) {
        const u32 value = takeHexPair(&hex);
        if (value != NO_PAIR) {
            octet = value;
        } else {
            malformed = 1;
        }
        *out = low8(octet); // KEPT: a bad pair stores the one before it again; callers rely on it.
    }
    return malformed;
}

u32 dsatetsismsi_get_tpdu_type(u8 first_octet) {
    static const u8 TYPES[] = {TPDU_DELIVER, TPDU_SUBMIT, TPDU_STATUS_REPORT, TPDU_RESERVED};
    return TYPES[first_octet & 0x03];
}

// Composition: a text becomes SUBMITs.

static const u32 SEGMENTS_MAX = 255; // TS 23.040, 9.2.3.24.1: the total is one octet
static const u32 MESSAGE_REFERENCE_OF_MODEM = UINT32_MAX;

// Characters of one message, and of a segment behind its six-octet header.
struct SegmentSize {
    u32 alone, segment;
};
static const SegmentSize GSM_SIZE = {160, 153};
static const SegmentSize UCS2_SIZE = {70, 67};

static u8 nextReference; // of concatenated messages, for the whole library

static u32 countSegments(u32 length, const SegmentSize *size) {
    return length <= size->alone ? 1 : length / size->segment + (length % size->segment != 0);
}

// A number field as an address; the field need not be terminated.
static void setNumber(const u16 *field, SmsAddress *address) {
    u16 number[SMS_NUMBER_UNITS + 1] = {0};
    memcpy(number, field, SMS_NUMBER_UNITS * sizeof(*field));
    sms_WStrNumberToWmsAddress(number, address);
}

static void setValidity(const SmsMessage *request, SmsValidity *validity) {
    const u32 parts = static_cast<u32>(request->month) | request->day | request->hour |
                      request->minute | request->second;
    if (parts == 0) { return; } // KEPT: the year alone does not count; callers rely on it.
    const SmsCalendarTime time = {request->year,         low8(request->month),
                                  low8(request->day),    low8(request->hour),
                                  low8(request->minute), low8(request->second)};
    validity->format = VALIDITY_ABSOLUTE;
    wms_JulianType_to_Timestamp(&time, &validity->time);
}

// What all segments share.
static void setSubmit(const SmsMessage *request, u32 alphabet, SmsAtMessage *record) {
    memset(record, 0, sizeof(*record));
    setNumber(request->sc_number, &record->service_centre);
    record->tpdu.tpdu_type = TPDU_SUBMIT;
    SmsSubmit *submit = &record->tpdu.u.submit;
    setNumber(request->peer_number, &submit->address);
    submit->status_report_enabled = request->status_report;
    submit->message_reference = MESSAGE_REFERENCE_OF_MODEM;
    submit->dcs.msg_class = MSG_CLASS_NONE;
    submit->dcs.alphabet = alphabet;
    setValidity(request, &submit->validity);
}

static void setHeader(u8 total, u8 number, SmsSubmit *submit) {
    submit->udh_present = 1;
    submit->user_data.num_headers = 1;
    submit->user_data.headers[0].header_id = UDH_CONCAT_8;
    submit->user_data.headers[0].payload.concat8 = {nextReference, total, number};
}

static void setBody(const u16 *text, u32 length, SmsSubmit *submit) {
    SmsUserData *body = &submit->user_data;
    if (submit->dcs.alphabet == ALPHABET_GSM_7BIT) {
        UNROLLED(4)
        for (u32 i = 0; i < length; i++) { body->sm_data[i] = septetOf(text[i]); } // each has one
        body->sm_len = low16(length);
        return;
    }
    sms_ToUnicodeNetwork(text, length, body->sm_data);
    body->sm_len = low8(length * 2);
}

i32 sms_encode_pdu(const SmsMessage *request, SmsSegment **segments, u8 *count) {
    static const u16 EMPTY[] = {0};
    const u16 *text = request->text != nullptr ? request->text : EMPTY;
    u32 length = 0;
    const u32 alphabet = alphabetOf(text, &length);
    const SegmentSize *size = alphabet == ALPHABET_GSM_7BIT ? &GSM_SIZE : &UCS2_SIZE;
    const u32 total = countSegments(length, size);
    *segments = nullptr;
    *count = 0;
    if (total > SEGMENTS_MAX) {
        LOG_LINE("too many segments:%u\n", total);
        return -1;
    }
    *count = low8(total);
    LOG_LINE("nSegment:%d\n", *count);

    SmsAtMessage record;
    setSubmit(request, alphabet, &record);
    SmsSegment *array = static_cast<SmsSegment *>(calloc(total, sizeof(SmsSegment)));
    if (array == nullptr) { return -1; }
    const u32 step = total == 1 ? length : size->segment;
    for (u32 i = 0; i < total; i++) {
        LOG_LINE("encode pdu %d of %d\n", static_cast<int>(i), *count);
        const u32 rest = length - i * step;
        if (total > 1) { setHeader(*count, low8(i + 1), &record.tpdu.u.submit); }
        setBody(text + i * step, rest < step ? rest : step, &record.tpdu.u.submit);
        wms_encode_at_cmd_pdu(&record, array[i].pdu, &array[i].tpdu_length);
    }
    nextReference++; // KEPT: a message of one segment takes a reference too; callers rely on it.
    *segments = array;
    return 0;
}

// Decoding: a PDU text becomes a message.

// What the three kinds of TPDU have in common for a message.
struct DecodedParts {
    const SmsAddress *address;
    const SmsTimestamp *time;   // null for a SUBMIT without a validity period
    const SmsUserData *headers; // null without TP-UDHI
    u32 msg_class;
};

static void copyTime(const SmsTimestamp *timestamp, SmsMessage *message) {
    if (timestamp == nullptr) { return; }
    SmsCalendarTime time;
    wms_Timestamp_to_JulianType(timestamp, &time);
    message->year = time.year;
    message->month = time.month;
    message->day = time.day;
    message->hour = time.hour;
    message->minute = time.minute;
    message->second = time.second;
}

static void copySegmentNumbers(const SmsUserData *user_data, SmsMessage *message) {
    if (user_data == nullptr) { return; }
    for (u32 i = 0; i < user_data->num_headers; i++) {
        const SmsUdhIe *element = &user_data->headers[i];
        if (element->header_id == UDH_CONCAT_8) {
            message->reference = element->payload.concat8.msg_ref;
            message->total_segments = element->payload.concat8.total_sm;
            message->segment_number = element->payload.concat8.seq_num;
        }
        if (element->header_id == UDH_CONCAT_16) {
            message->reference = element->payload.concat16.msg_ref;
            message->total_segments = element->payload.concat16.total_sm;
            message->segment_number = element->payload.concat16.seq_num;
        }
    }
}

static const SmsUserData *headersIf(u8 udh_present, const SmsUserData *user_data) {
    return udh_present != 0 ? user_data : nullptr;
}

static DecodedParts partsOf(const SmsTpdu *tpdu, SmsMessage *message) {
    if (tpdu->tpdu_type == TPDU_SUBMIT) {
        const SmsSubmit *submit = &tpdu->u.submit;
        const bool hasTime = submit->validity.format != VALIDITY_NONE;
        message->kind = MESSAGE_SUBMIT;
        message->status_report = submit->status_report_enabled;
        return {&submit->address, hasTime ? &submit->validity.time : nullptr,
                headersIf(submit->udh_present, &submit->user_data), submit->dcs.msg_class};
    }
    if (tpdu->tpdu_type == TPDU_DELIVER) {
        const SmsDeliver *deliver = &tpdu->u.deliver;
        message->kind = MESSAGE_DELIVER;
        return {&deliver->address, &deliver->timestamp,
                headersIf(deliver->udh_present, &deliver->user_data), deliver->dcs.msg_class};
    }
    const SmsStatusReport *report = &tpdu->u.status_report;
    message->kind = MESSAGE_STATUS_REPORT;
    return {&report->address, &report->sc_timestamp,
            headersIf(report->udh_present, &report->user_data), report->dcs.msg_class};
}

i32 sms_decode_pdu(const char *pdu, SmsMessage *message) {
    SmsAtMessage record = {};
    // KEPT: a failed decode returns 0 as well and writes nothing; callers judge by the record.
    if (wms_decode_at_cmd_pdu(pdu, &record) != 0) { return 0; }
    sms_ConvertAddressToWString(&record.service_centre, message->sc_number);
    const DecodedParts parts = partsOf(&record.tpdu, message);
    message->msg_class = parts.msg_class;
    sms_ConvertAddressToWString(parts.address, message->peer_number);
    copyTime(parts.time, message);
    copySegmentNumbers(parts.headers, message);
    sms_decode_msg_body_text(&record.tpdu, &message->text);
    return 0;
}

static u16 *gsmText(const u8 *septets, u32 count) {
    u16 *text = static_cast<u16 *>(calloc(1, 4 * count + 2));
    if (text != nullptr) { gsmToUnits(septets, SMS_MAX_TPDU_LEN, count, text, count); }
    return text;
}

static u16 *ucs2Text(const u8 *octets, u32 octetCount) {
    enum { UNITS_ROOM = SMS_MAX_TPDU_LEN / 2 + 2 };
    u16 units[UNITS_ROOM];
    OctetReader body = {octets, SMS_MAX_TPDU_LEN, 0};
    for (u16 &unit : units) {
        const u32 high = takeOctet(&body);
        unit = low16(high << 8 | takeOctet(&body));
    }
    const u32 odd = octetCount % 2; // leaves half a unit, and needs room for a zero behind it
    u16 *text = static_cast<u16 *>(calloc(1, octetCount + 2 + odd));
    if (text != nullptr) { sms_FromUnicodeNetwork(units, octetCount / 2, text); }
    return text;
}

// KEPT: 8-bit data is not widened, two octets share a unit; callers rely on it.
static u16 *dataText(const u8 *octets, u32 octetCount) {
    u16 *text = static_cast<u16 *>(calloc(octetCount + 1, sizeof(u16)));
    if (text != nullptr) { memcpy(text, octets, octetCount); }
    return text;
}

static u16 *bodyText(const SmsDcs *dcs, const SmsUserData *body) {
    const u32 length =
        body->sm_len < SMS_MAX_TPDU_LEN ? body->sm_len : static_cast<u32>(SMS_MAX_TPDU_LEN);
    if (dcs->alphabet == ALPHABET_GSM_7BIT) { return gsmText(body->sm_data, length); }
    if (dcs->alphabet == ALPHABET_UCS2) { return ucs2Text(body->sm_data, length); }
    return dataText(body->sm_data, length);
}

u32 sms_decode_msg_body_text(const SmsTpdu *tpdu, u16 **text) {
    if (tpdu->tpdu_type == TPDU_DELIVER) {
        *text = bodyText(&tpdu->u.deliver.dcs, &tpdu->u.deliver.user_data);
    } else if (tpdu->tpdu_type == TPDU_SUBMIT) {
        *text = bodyText(&tpdu->u.submit.dcs, &tpdu->u.submit.user_data);
    } else {
        LOG_LINE("pdu type error:%d\n", static_cast<int>(tpdu->tpdu_type));
        return 0;
    }
    return *text != nullptr ? 1 : 0;
}
