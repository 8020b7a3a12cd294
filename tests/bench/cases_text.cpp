// Hexadecimal, and UCS-2 beside UTF-8.
#include <glib.h>
#include <iconv.h>

extern "C" {
#include <osmocom/core/utils.h>
}

#include <strings.h>

#include <cstring>
#include <iterator>

#include "atlib/CPbSIM.h"
#include "atlib/SmsUtils.h"
#include "case.h"
#include "peers.h"
#include "texts.h"

namespace bench {
namespace {

constexpr std::size_t LINE_OCTETS = 176; // the longest PDU: 12 of service centre, 164 of TPDU

// No two octets in a row are 0: as units none is 0, which would end a text.
std::vector<u8> lineOctets() {
    std::vector<u8> octets;
    for (std::size_t i = 0; i < LINE_OCTETS; i++) { octets.push_back(static_cast<u8>(i * 37 + 1)); }
    return octets;
}

std::string hexSlowly(const std::vector<u8> &octets) {
    std::string text;
    for (const u8 octet : octets) {
        text += "0123456789ABCDEF"[octet >> 4];
        text += "0123456789ABCDEF"[octet & 15];
    }
    return text;
}

const std::vector<u8> LINE = lineOctets();
const std::string LINE_HEX = hexSlowly(LINE);

u8 octets[512];
char text[1024];
long result;

const u8 *octetsOf(const std::string &all) { return reinterpret_cast<const u8 *>(all.data()); }
u8 *textOctets() { return reinterpret_cast<u8 *>(text); }

const char *lineWrong() {
    return std::memcmp(octets, LINE.data(), LINE_OCTETS) == 0 ? nullptr : "other octets";
}
const char *hexWrong() {
    return strcasecmp(text, LINE_HEX.c_str()) == 0 ? nullptr : "other digits";
}

const Register HEXADECIMAL([] {
    add(
        "hex to 176 octets/ours",
        [] { result = dsatetsismsi_encode_pdu(LINE_HEX.c_str(), octets, LINE_OCTETS); }, lineWrong);
    add(
        "hex to 176 octets/osmocom",
        [] { result = osmo_hexparse(LINE_HEX.c_str(), octets, LINE_OCTETS); }, lineWrong);
    add(
        "hex to 176 octets/gammu",
        [] { result = DecodeHexBin(octets, octetsOf(LINE_HEX), LINE_HEX.size()); }, lineWrong);
    add(
        "176 octets to hex/ours",
        [] { result = Ucs2StringToHexString(LINE.data(), text, LINE_OCTETS, 0); }, hexWrong);
    add(
        "176 octets to hex/osmocom",
        [] { osmo_hexdump_buf(text, sizeof(text), LINE.data(), LINE_OCTETS, "", false); },
        hexWrong);
    add(
        "176 octets to hex/gammu", [] { EncodeHexBin(text, LINE.data(), LINE_OCTETS); }, hexWrong);
});

const std::vector<u16> UNITS = cyrillic(MESSAGE_UNITS);

std::string utf8Slowly(const std::vector<u16> &units) {
    std::string all;
    for (const u16 unit : units) {
        if (unit == 0) { break; }
        if (unit < 0x80) {
            all += static_cast<char>(unit);
        } else {
            all += static_cast<char>(0xC0 | unit >> 6);
            all += static_cast<char>(0x80 | (unit & 0x3F));
        }
    }
    return all;
}
const std::string UTF8 = utf8Slowly(UNITS);

u16 wide[256];
unsigned char gammuWide[1024];
// Opened once: what opening costs is not the conversion.
const iconv_t TO_UTF8 = iconv_open("UTF-8", "UCS-2LE");
const iconv_t FROM_UTF8 = iconv_open("UCS-2LE", "UTF-8");

// glib hands out a new block each time.
void toUtf8ByGlib() {
    gchar *utf8 = g_utf16_to_utf8(UNITS.data(), MESSAGE_UNITS, nullptr, nullptr, nullptr);
    std::strcpy(text, utf8);
    g_free(utf8);
}
void fromUtf8ByGlib() {
    gunichar2 *all =
        g_utf8_to_utf16(UTF8.data(), static_cast<glong>(UTF8.size()), nullptr, nullptr, nullptr);
    std::memcpy(wide, all, UNITS.size() * sizeof(u16));
    g_free(all);
}

void convert(iconv_t way, const void *from, std::size_t octetCount, void *to, std::size_t room) {
    // iconv() does not write through its input.
    char *in = static_cast<char *>(const_cast<void *>(from));
    char *out = static_cast<char *>(to);
    result = static_cast<long>(iconv(way, &in, &octetCount, &out, &room));
    if (room > 1) { out[0] = out[1] = '\0'; }
}

const char *utf8Wrong() { return text == UTF8 ? nullptr : "other UTF-8"; }
const char *unitsWrong() {
    return std::memcmp(wide, UNITS.data(), UNITS.size() * 2) == 0 ? nullptr : "other units";
}

const char *gammuUnitsWrong() {
    const std::vector<unsigned char> wanted = bigEndian(UNITS);
    return std::memcmp(gammuWide, wanted.data(), wanted.size()) == 0 ? nullptr : "other units";
}

const Register UTF([] {
    add(
        "UCS-2 to UTF-8, 70/ours",
        [] { result = UnicodeToUTF8(UNITS.data(), MESSAGE_UNITS, textOctets(), sizeof(text)); },
        utf8Wrong);
    add(
        "UCS-2 to UTF-8, 70/iconv",
        [] { convert(TO_UTF8, UNITS.data(), MESSAGE_UNITS * 2, text, sizeof(text)); }, utf8Wrong);
    add("UCS-2 to UTF-8, 70/glib", toUtf8ByGlib, utf8Wrong);
    add("UTF-8 to UCS-2, 70/glib", fromUtf8ByGlib, unitsWrong);
    add(
        "UTF-8 to UCS-2, 70/ours",
        [] {
            result =
                UTF8ToUnicode(octetsOf(UTF8), static_cast<u32>(UTF8.size()), wide, std::size(wide));
        },
        unitsWrong);
    add(
        "UTF-8 to UCS-2, 70/gammu", [] { DecodeUTF8(gammuWide, UTF8.c_str(), UTF8.size()); },
        gammuUnitsWrong);
    add(
        "UTF-8 to UCS-2, 70/iconv",
        [] { convert(FROM_UTF8, UTF8.data(), UTF8.size(), wide, sizeof(wide)); }, unitsWrong);
});
} // namespace
} // namespace bench
