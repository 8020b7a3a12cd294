// Septets out of octets and back (TS 23.038, 6.1.2.1), and to units.
#include "atlib/SmsUtils.h"
#include "fuzz.h"

namespace {

void unpack(std::string_view input, u8 shift, u8 charLimit) {
    input = input.substr(0, 255);
    const fuzz::Block<u8> in = fuzz::copyOf(input);
    const fuzz::Block<u8> out(charLimit);
    const u8 used = wms_ts_unpack_gw_7_bit_chars(in.get(), static_cast<u8>(input.size()), charLimit,
                                                 shift, out.get());
    fuzz::require(used <= input.size() + 1, "no octet beyond the bound is consumed");
}

// What is packed unpacks to the same septets; 0 has no place in this.
void packAndUnpack(std::string_view input, u8 fillBits, u8 limit) {
    const fuzz::Block<u8> septets = fuzz::copyOf(input.substr(0, 160));
    for (std::size_t i = 0; i < septets.size(); i++) { septets[i] = septets[i] % 127 + 1; }
    const auto count = static_cast<u16>(septets.size());
    const fuzz::Block<u8> cut(limit);
    fuzz::require(wms_ts_pack_gw_7_bit_chars(septets.get(), count, fillBits, limit, cut.get()) <=
                      limit,
                  "packed octets stay within their limit");
    const u16 needed = static_cast<u16>((count * 7 + fillBits % 7 + 7) / 8 + 1);
    const fuzz::Block<u8> packed(needed);
    const u16 octets =
        wms_ts_pack_gw_7_bit_chars(septets.get(), count, fillBits, needed, packed.get());
    const fuzz::Block<u8> back(septets.size());
    const u16 shift = fillBits % 7 != 0 ? static_cast<u16>(8 - fillBits % 7) : u16{0};
    wms_ts_unpack_gw_7_bit_chars(packed.get(), static_cast<u8>(octets), static_cast<u8>(count),
                                 shift, back.get());
    fuzz::require(std::equal(septets.get(), septets.get() + count, back.get()),
                  "packed septets come back");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u8 shift = takeOctet(&input);
    const u8 limit = takeOctet(&input);
    unpack(input, shift % 10, limit);
    packAndUnpack(input, shift % 7, limit);
    const Block<u8> septets(input.size() + 1); // an escape at the end takes one more
    std::copy(input.begin(), input.end(), septets.get());
    const Block<u16> units(limit);
    const i32 converted =
        sms_GSMToWSTR(septets.get(), static_cast<u32>(input.size()), units.get(), limit);
    require(converted <= limit, "units stay within their capacity");
}
