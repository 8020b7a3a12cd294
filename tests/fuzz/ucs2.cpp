// Units to UTF-8, septets, characters and numbers. The first octet is the room.
#include "atlib/SmsUtils.h"
#include "fuzz.h"

namespace {

void convert(std::string_view input, u8 capacity) {
    const fuzz::Block<u16> units = fuzz::copyOf<u16>(input);
    const auto count = static_cast<u32>(units.size());
    const fuzz::Block<u8> utf8(capacity);
    const i32 octetCount = UnicodeToUTF8(units.get(), count, utf8.get(), capacity);
    fuzz::require(octetCount >= -4 && octetCount < static_cast<i32>(capacity) + 1,
                  "octets within the room");
    const fuzz::Block<u8> septets(capacity);
    fuzz::require(sms_WSTRToGSM(units.get(), count, septets.get(), capacity) <= capacity,
                  "septets within the room");
    const fuzz::Block<u8> network(2 * units.size());
    sms_ToUnicodeNetwork(units.get(), count, network.get());
}

void texts(std::string_view input) {
    const fuzz::Block<u16> text = fuzz::unitsOf(input);
    const auto length = static_cast<u32>(text.size() - 1);
    fuzz::require(sms_wstrlen(text.get()) == length, "the units before the zero");
    sms_GetEncodeType(text.get());
    const fuzz::Block<u16> copy(text.size());
    sms_FromUnicodeNetwork(text.get(), length, copy.get());
    const fuzz::Block<char> narrow(text.size());
    fuzz::require(sms_wstrtostr(text.get(), narrow.get()) == length, "one character a unit");
    const fuzz::Block<u16> wide(text.size());
    sms_strtowstr(narrow.get(), wide.get());
}

void numbers(std::string_view input) {
    const fuzz::Block<u16> number = fuzz::unitsOf(input);
    const fuzz::Block<SmsAddress> address;
    sms_WStrNumberToWmsAddress(number.get(), address.get());
    fuzz::require(address->number_of_digits <= SMS_ADDRESS_DIGITS_ROOM, "36 digits at most");
    const fuzz::Block<char> text(38);
    sms_ConvertAddressToString(address.get(), text.get());
    const fuzz::Block<u16> wide(SMS_NUMBER_UNITS);
    sms_ConvertAddressToWString(address.get(), wide.get());
    fuzz::require(fuzz::ends(wide.get(), SMS_NUMBER_UNITS), "a number ends");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 capacity = takeOctet(&input);
    convert(input, capacity);
    texts(input);
    numbers(input);
}
