// Hexadecimal text to octets and back, and the numbers that are read from text.
#include "atlib/CPbSIM.h"
#include "atlib/CSMS.h"
#include "atlib/SmsUtils.h"
#include "fuzz.h"

namespace {

// Letters beyond F count as well.
bool isHexadecimal(const char *text) {
    return text[std::strspn(text, "0123456789abcdefABCDEF")] == '\0';
}

void toOctets(const char *hex, std::size_t count) {
    const fuzz::Block<u8> octets(count);
    const u32 malformed = dsatetsismsi_encode_pdu(hex, octets.get(), static_cast<u32>(count));
    if (!isHexadecimal(hex)) { return; }
    fuzz::require(malformed == 0, "hexadecimal text is taken");
    for (std::size_t i = 0; i < count && 2 * i + 1 < std::strlen(hex); i++) {
        char digits[3];
        byteToHex(octets[i], digits);
        fuzz::require(hexToDec(hex[2 * i]) == hexToDec(digits[0]) &&
                          hexToDec(hex[2 * i + 1]) == hexToDec(digits[1]),
                      "octets are their digits");
    }
}

void names(std::string_view input, i32 swap) {
    const fuzz::Block<char> hex = fuzz::textOf(input);
    const fuzz::Block<u8> octets((std::strlen(hex.get()) + 3) / 4 * 2);
    const i32 octetCount = HexStrToDec(hex.get(), octets.get(), swap);
    fuzz::require(static_cast<std::size_t>(octetCount) == octets.size(), "two for four digits");

    const fuzz::Block<u8> name = fuzz::copyOf(input);
    const fuzz::Block<char> digits(name.size() / 2 * 4 + 1);
    const i32 units =
        Ucs2StringToHexString(name.get(), digits.get(), static_cast<i32>(name.size()), swap);
    fuzz::require(std::strlen(digits.get()) == static_cast<std::size_t>(units) * 4,
                  "four digits for each unit");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 count = takeOctet(&input);
    const Block<char> text = textOf(input);
    toOctets(text.get(), count);
    toOctets(text.get(), std::strlen(text.get()) / 2);
    names(input, count % 2);
    u32 value = 0;
    sms_utils_atoi(text.get(), &value, count % 2);
    str_all_capital(text.get());
}
