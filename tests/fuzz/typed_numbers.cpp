// Numbers and texts that a user types.
#include "atlib/SmsUtils.h"
#include "fuzz.h"

void fuzz::examine(std::string_view input) {
    const std::vector<std::string> parts = partsOf(input);
    const Block<char> number = textOf(parts.front());
    const Block<char> type = textOf(parts.back());
    const Block<SmsAddress> typed;
    wms_str_to_addr(typed.get(), number.get(), parts.size() > 1 ? type.get() : nullptr);
    const Block<SmsAddress> dialled;
    wms_number_to_address(number.get(), dialled.get());
    require(dialled->number_of_digits <= SMS_ADDRESS_DIGITS_ROOM, "36 digits at most");
    for (const char *c = number.get(); *c != '\0'; c++) {
        require(dsatutil_validate_dial_char(c) <= 12, "a class for every character");
    }
    const Block<char> trimmed(number.size() + 1);
    sms_str_trim(number.get(), trimmed.get());
    require(std::strlen(trimmed.get()) < trimmed.size(), "a trimmed text ends");
    const Block<u8> characters = copyOf(input.substr(0, 255));
    const auto count = static_cast<u8>(characters.size());
    sms_ascii_to_bcd(characters.get(), count, characters.get());
    sms_bcd_to_ascii(characters.get(), count, characters.get());
}
