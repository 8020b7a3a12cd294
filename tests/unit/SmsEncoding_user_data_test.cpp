// Data coding schemes, septets, user-data headers and user data.
#include "atlib/SmsEncoding.h"

#include <algorithm>
#include <random>

#include "support/library_test.h"
#include "support/records.h"
#include "support/reference_septets.h"

using namespace support;

namespace {

using Texts = std::vector<std::string>;

const std::size_t HEADER_REACH = 256; // octets that the header decoder may touch
const std::size_t BODY_REACH = 255;   // octets that the user-data decoder may touch

class DcsVector : public LibraryVectorTest {};
class Dcs : public LibraryTest {};
class Packing : public LibraryTest {};
class Unpacking : public LibraryTest {};
class HeaderVector : public LibraryVectorTest {};
class HeaderRefused : public LibraryVectorTest {};
class Header : public LibraryTest {};
class HeaderLength : public LibraryTest {};
class UserDataVector : public LibraryVectorTest {};
class UserData : public LibraryTest {};
class UserDataLength : public LibraryTest {};

std::vector<u8> randomOctets(std::mt19937 *random, std::size_t count, u32 range = 256) {
    std::vector<u8> octets(count);
    for (u8 &octet : octets) { octet = static_cast<u8>((*random)() % range); }
    return octets;
}

GuardedBytes padded(std::vector<u8> octets, std::size_t size, u8 with = 0) {
    octets.resize(size, with);
    return againstGuardPage(octets);
}

} // namespace

// Data coding schemes

SMSPB_VECTORS(DcsVector, "dcs.txt");

TEST_P(DcsVector, DecodesAndEncodes) {
    const auto in = againstGuardPage({static_cast<u8>(v().number("octet"))});
    const Guarded<SmsDcs> dcs;
    EXPECT_EQ(wms_ts_decode_dcs(in.data(), dcs.get()), 1);
    EXPECT_EQ(dcs->msg_class, v().number("class"));
    EXPECT_EQ(dcs->is_compressed, v().number("compressed"));
    EXPECT_EQ(dcs->alphabet, v().number("alphabet"));
    EXPECT_EQ(dcs->msg_waiting, v().number("waiting"));
    EXPECT_EQ(dcs->msg_waiting_active, v().number("active", 0xA5));
    EXPECT_EQ(dcs->msg_waiting_kind, v().number("kind", 0xA5A5A5A5));
    EXPECT_EQ(dcs->raw_dcs, in[0]);

    const GuardedBytes out(1);
    EXPECT_EQ(wms_ts_encode_dcs(dcs.get(), out.data()), 1);
    EXPECT_EQ(out[0], v().number("encodes", in[0]));
}

TEST_F(Dcs, NullPointerGives0) {
    const u8 octet = 0;
    SmsDcs dcs;
    EXPECT_EQ(wms_ts_decode_dcs(nullptr, &dcs), 0);
    EXPECT_EQ(wms_ts_decode_dcs(&octet, nullptr), 0);
}

TEST_F(Dcs, OnlyGroupsFrom1100OnAreTraced) {
    for (u32 octet = 0; octet < 256; octet++) {
        clearLog();
        const u8 in = static_cast<u8>(octet);
        SmsDcs dcs;
        EXPECT_EQ(wms_ts_decode_dcs(&in, &dcs), 1);
        const char *group[] = {"00", "10", "20", "30"};
        const Texts expected = {std::string("data[pos] & 0x30:") + group[octet >> 4 & 3] + " \n\n"};
        EXPECT_EQ(logMessages(), octet >= 0xC0 ? expected : Texts{}) << "octet " << octet;
    }
    EXPECT_EQ(logEntries()[0].function, "wms_ts_decode_dcs");
    EXPECT_EQ(logEntries()[0].source, "atlib/SmsEncoding.cpp");
}

// What a decoded octet encodes back to: the groups in the order of TS 23.038, 4.
static u32 reencoded(u32 octet) {
    if (octet < 0x40) {
        const u32 alphabet = (octet & 0x0C) == 0x0C ? 0 : octet & 0x0C;
        const u32 messageClass = (octet & 0x10) != 0 ? octet & 0x13 : 0;
        return (octet & 0x20) | messageClass | alphabet;
    }
    if (octet < 0xC0) { return 0x00; }
    if (octet < 0xF0) { return octet & 0xFB; }
    return octet & 0xF7;
}

TEST_F(Dcs, EveryOctetEncodesBackButForBitsWithoutMeaning) {
    for (u32 octet = 0; octet < 256; octet++) {
        const u8 in = static_cast<u8>(octet);
        auto dcs = cleared<SmsDcs>();
        EXPECT_EQ(wms_ts_decode_dcs(&in, &dcs), 1);
        EXPECT_EQ(dcs.raw_dcs, in);
        u8 out = 0xA5;
        EXPECT_EQ(wms_ts_encode_dcs(&dcs, &out), 1);
        EXPECT_EQ(out, reencoded(octet)) << "octet " << octet;
    }
}

TEST_F(Dcs, RecordsEncodeByTheirGroup) {
    const struct {
        u32 msgClass;
        u8 compressed;
        u32 alphabet, waiting;
        u8 active;
        u32 kind;
        u8 octet;
    } cases[] = {
        {4,    0,    2,          0,    0, 0, 0x08},
        {0,    0,    0,          0,    0, 0, 0x10},
        {4,    1,    0,          0,    0, 0, 0x20},
        {4, 0x20,    1,          0,    0, 0, 0x24},
        {3, 0xFF,    2,          0,    0, 0, 0x3B},
        {5,    0,    0,          0,    0, 0, 0x11}, // only 4 means no class
        {4,    0,    3,          0,    0, 0, 0x0C}, // the alphabet is not masked,
        {4,    0, 0x10,          0,    0, 0, 0x40}, // though the octet keeps eight bits
        {4,    0, 0x41,          0,    0, 0, 0x04},
        {4,    0,    0,          0,    1, 3, 0x00},
        {2,    0,    1,          3,    0, 0, 0xF6},
        {2,    0,    2,          3,    0, 0, 0xF2},
        {4,    1,    0,          3,    1, 3, 0xF0},
        {0,    1,    2,          1,    0, 0, 0xC0},
        {4,    0,    0,          1,    1, 2, 0xCA},
        {4,    0,    0,          1,    2, 2, 0xC2}, // active is exactly 1
        {4,    0,    0,          1, 0xFF, 0, 0xC0},
        {4,    0,    0,          1,    1, 7, 0xCB}, // the kind keeps two bits
        {4,    0,    0,          2,    1, 0, 0xD8},
        {4,    0,    0,          2,    0, 1, 0xD1},
        {4,    0,    1,          2,    1, 1, 0xE9},
        {4,    0,    2,          2,    1, 1, 0xE9},
        {4,    0,    7,          2,    0, 3, 0xE3},
        {4,    0,    0,          4,    0, 0, 0xE0},
        {1,    1,    0, 0xFFFFFFFF,    1, 3, 0xEB},
    };
    for (const auto &c : cases) {
        auto dcs = cleared<SmsDcs>();
        dcs.msg_class = c.msgClass;
        dcs.is_compressed = c.compressed;
        dcs.alphabet = c.alphabet;
        dcs.msg_waiting = c.waiting;
        dcs.msg_waiting_active = c.active;
        dcs.msg_waiting_kind = c.kind;
        dcs.raw_dcs = 0x77; // not looked at
        const GuardedBytes out(1);
        EXPECT_EQ(wms_ts_encode_dcs(&dcs, out.data()), 1);
        EXPECT_EQ(out[0], c.octet) << "case " << &c - cases;
    }
}

// Packing

TEST_F(Packing, HelloIsFiveOctets) {
    const auto in = againstGuardPage(octets("68 65 6C 6C 6F"));
    const GuardedBytes out(5);
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in.data(), 5, 0, 255, out.data()), 5);
    EXPECT_EQ(hex(out.octets()), "E8329BFD06");
}

TEST_F(Packing, NullPointerGives0AndLogsNothing) {
    u8 octets[8] = {};
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(nullptr, 5, 0, 8, octets), 0);
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(octets, 5, 0, 8, nullptr), 0);
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Packing, NothingIsNoOctets) {
    const u8 in[] = {0x7F};
    const GuardedBytes out(1);
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in, 0, 0, 255, out.data()), 0);
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in, 1, 0, 0, out.data()), 0);
    EXPECT_EQ(out[0], 0xA5);
}

TEST_F(Packing, FillBitsKeepWhatStandsInTheFirstOctet) {
    const u8 in[] = {0x41};
    const GuardedBytes out(2);
    out[0] = 0x05;
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in, 1, 3, 2, out.data()), 2);
    EXPECT_EQ(out[0], 0x0D) << "0x41 << 3, kept to 8 bits, ORed";
    EXPECT_EQ(out[1], 0x02);
}

TEST_F(Packing, NoRoomIsNotWrittenToBehindFillBitsEither) {
    const u8 in[] = {0x41, 0x42};
    const GuardedBytes out(0, 0);
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in, 2, 1, 0, out.data()), 0);
}

TEST_F(Packing, FillBitsAloneAreOneOctet) {
    const u8 in[] = {0x00};
    const GuardedBytes out(1);
    out[0] = 0x15;
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in, 0, 3, 255, out.data()), 1);
    EXPECT_EQ(out[0], 0x15);
}

TEST_F(Packing, EveryCountAndShiftEqualsTheReference) {
    std::mt19937 random(38);
    for (u16 shift = 0; shift <= 8; shift++) {
        for (u16 count = 1; count <= 255; count++) {
            const auto characters = randomOctets(&random, count, 128);
            const auto expected = reference::packSeptets(characters, shift % 7);
            const auto in = againstGuardPage(characters);
            const GuardedBytes out(expected.size(), 0);
            ASSERT_EQ(wms_ts_pack_gw_7_bit_chars(in.data(), count, shift, 255, out.data()),
                      std::min<std::size_t>(expected.size(), 255));
            ASSERT_EQ(hex(out.octets()), hex(expected)) << count << " behind " << shift;
        }
    }
}

TEST_F(Packing, CharactersAreNotMasked) {
    std::mt19937 random(39);
    for (u16 shift = 0; shift <= 6; shift++) {
        for (u16 count = 1; count <= 40; count++) {
            const auto characters = randomOctets(&random, count);
            const auto expected = reference::packSeptets(characters, shift);
            const auto in = againstGuardPage(characters);
            const GuardedBytes out(expected.size(), 0);
            ASSERT_EQ(wms_ts_pack_gw_7_bit_chars(in.data(), count, shift, 255, out.data()),
                      expected.size());
            ASSERT_EQ(hex(out.octets()), hex(expected)) << count << " behind " << shift;
        }
    }
}

TEST_F(Packing, EveryLimitCutsTheOctets) {
    std::mt19937 random(40);
    const auto characters = randomOctets(&random, 40, 128);
    for (u16 shift = 0; shift <= 6; shift++) {
        const auto whole = reference::packSeptets(characters, shift);
        for (u16 limit = 0; limit <= 40; limit++) {
            const std::size_t count = std::min<std::size_t>(limit, whole.size());
            const auto in = againstGuardPage(characters);
            const GuardedBytes out(count, 0);
            ASSERT_EQ(wms_ts_pack_gw_7_bit_chars(in.data(), 40, shift, limit, out.data()), count);
            ASSERT_EQ(hex(out.octets()), hex({whole.begin(), whole.begin() + count}));
        }
    }
}

TEST_F(Packing, MoreThan255CharactersStopAtTheLimit) {
    const auto in = againstGuardPage(std::vector<u8>(1000, 0x7F));
    const GuardedBytes out(300);
    EXPECT_EQ(wms_ts_pack_gw_7_bit_chars(in.data(), 1000, 0, 300, out.data()), 300);
    EXPECT_EQ(out.octets(), std::vector<u8>(300, 0xFF));
}

// Unpacking

TEST_F(Unpacking, FiveOctetsAreHello) {
    const auto in = againstGuardPage(octets("E8 32 9B FD 06"));
    const GuardedBytes out(5);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in.data(), 5, 5, 0, out.data()), 5);
    EXPECT_EQ(hex(out.octets()), "68656C6C6F");
}

TEST_F(Unpacking, NullPointerIsLoggedAndGives0) {
    u8 octets[8] = {};
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(nullptr, 5, 5, 0, octets), 0);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(octets, 5, 5, 0, nullptr), 0);
    EXPECT_EQ(logMessages(), (Texts{"null pointer in wms_ts_unpack_gw_7_bit_chars\n",
                                    "null pointer in wms_ts_unpack_gw_7_bit_chars\n"}));
    EXPECT_EQ(logEntries()[0].function, "wms_ts_unpack_gw_7_bit_chars");
}

TEST_F(Unpacking, ZeroOctetAsFirstCharacterIs40) {
    const u8 in[] = {0};
    u8 out = 0xA5;
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 1, 1, 0, &out), 1);
    EXPECT_EQ(out, 0x40);
}

TEST_F(Unpacking, ZeroIn8thPlaceStays0) {
    const std::vector<u8> in(7, 0);
    const GuardedBytes out(8);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in.data(), 7, 8, 0, out.data()), 7);
    EXPECT_EQ(hex(out.octets()), "4040404040404000");
}

TEST_F(Unpacking, ZeroBehindOneFillBitStays0) {
    const u8 in[] = {0x01, 0x00};
    const GuardedBytes out(2);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 2, 2, 7, out.data()), 2);
    EXPECT_EQ(hex(out.octets()), "0040");
}

TEST_F(Unpacking, RoomThatEndsBetweenTwoCharactersOfAnOctetIsLogged) {
    const auto in = againstGuardPage(octets("31 D9 8C 56 B3 DD 70"));
    const GuardedBytes out(7);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in.data(), 7, 7, 0, out.data()), 6)
        << "the seventh octet still holds a character";
    EXPECT_EQ(hex(out.octets()), "31323334353637");
    EXPECT_EQ(logMessages(), (Texts{"Not enough output buffer for unpacking!\n"}));
    EXPECT_EQ(logEntries()[0].function, "wms_ts_unpack_gw_7_bit_chars");
}

TEST_F(Unpacking, NoRoomReadsNothing) {
    const u8 in[] = {0x55};
    const GuardedBytes out(0);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 1, 0, 0, out.data()), 0);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 1, 0, 3, out.data()), 1);
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Unpacking, BoundAtOrBehindTheFirstOctetStopsAtOnce) {
    const u8 in[] = {0x55};
    const GuardedBytes out(0);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 0, 9, 0, out.data()), 0);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 0, 9, 3, out.data()), 1);
    EXPECT_EQ(wms_ts_unpack_gw_7_bit_chars(in, 1, 9, 3, out.data()), 1);
}

// All bounds and limits for one shift against the reference.
static void sweepUnpacker(u16 shift, u32 lastBound, u32 lastLimit, std::mt19937 *random) {
    const unsigned fill = shift != 0 ? 8U - shift : 0U;
    for (u32 bound = 1; bound <= lastBound; bound++) {
        auto octets = randomOctets(random, bound);
        if (bound % 3 == 0) { octets[bound / 2] = 0; } // so that some characters are 0
        const auto in = againstGuardPage(octets);
        for (u32 limit = 1; limit <= lastLimit; limit++) {
            const auto expected = reference::unpackSeptets(octets, bound, limit, fill);
            const GuardedBytes out(expected.characters.size());
            ASSERT_EQ(wms_ts_unpack_gw_7_bit_chars(in.data(), static_cast<u8>(bound),
                                                   static_cast<u8>(limit), shift, out.data()),
                      expected.octetsConsumed)
                << bound << " octets, " << limit << " characters, shift " << shift;
            ASSERT_EQ(hex(out.octets()), hex(expected.characters));
        }
    }
}

TEST_F(Unpacking, EveryShiftBoundAndLimitEqualsTheReference) {
    setLogFaults({true, true});
    std::mt19937 random(41);
    for (u16 shift = 0; shift <= 7; shift++) { sweepUnpacker(shift, 24, 30, &random); }
}

TEST_F(Unpacking, EveryBoundUpTo255EqualsTheReference) {
    setLogFaults({true, true});
    std::mt19937 random(42);
    for (u16 shift = 0; shift <= 7; shift++) {
        const unsigned fill = shift != 0 ? 8U - shift : 0U;
        for (u32 bound = 1; bound <= 255; bound++) {
            const auto octets = randomOctets(&random, bound);
            const auto in = againstGuardPage(octets);
            const auto expected = reference::unpackSeptets(octets, bound, 255, fill);
            const GuardedBytes out(expected.characters.size());
            ASSERT_EQ(wms_ts_unpack_gw_7_bit_chars(in.data(), static_cast<u8>(bound), 255, shift,
                                                   out.data()),
                      expected.octetsConsumed)
                << bound << " octets, shift " << shift;
            ASSERT_EQ(hex(out.octets()), hex(expected.characters));
        }
    }
}

TEST_F(Unpacking, RunningOutOfRoomIsLoggedExactlyThen) {
    const std::vector<u8> octets(24, 0x55);
    for (u16 shift = 0; shift <= 7; shift++) {
        for (u8 limit = 1; limit <= 26; limit++) {
            clearLog();
            const auto expected =
                reference::unpackSeptets(octets, 24, limit, shift != 0 ? 8U - shift : 0U);
            u8 out[32];
            wms_ts_unpack_gw_7_bit_chars(octets.data(), 24, limit, shift, out);
            EXPECT_EQ(logMessages().size(), expected.ranOutOfRoom ? 1U : 0U)
                << int{limit} << " characters, shift " << shift;
        }
    }
}

TEST_F(Unpacking, WhatWasPackedComesBack) {
    std::mt19937 random(43);
    for (u16 fill = 0; fill <= 6; fill++) {
        for (u16 count = 1; count <= 160; count++) {
            auto characters = randomOctets(&random, count, 127);
            for (u8 &character : characters) { character++; } // 1 to 127
            u8 packed[160] = {};
            const u16 size =
                wms_ts_pack_gw_7_bit_chars(characters.data(), count, fill, 160, packed);
            const GuardedBytes out(count);
            wms_ts_unpack_gw_7_bit_chars(packed, static_cast<u8>(size), static_cast<u8>(count),
                                         fill != 0 ? static_cast<u16>(8 - fill) : u16{0},
                                         out.data());
            ASSERT_EQ(hex(out.octets()), hex(characters)) << count << " behind " << fill;
        }
    }
}

TEST_F(Unpacking, ShiftBeyondASeptetStaysWithinItsBuffers) {
    setLogFaults({true, true});
    std::mt19937 random(44);
    for (u16 shift = 8; shift <= 20; shift++) {
        for (u32 bound = 1; bound <= 255; bound++) {
            const auto in = againstGuardPage(randomOctets(&random, bound));
            const GuardedBytes out(255);
            EXPECT_LE(wms_ts_unpack_gw_7_bit_chars(in.data(), static_cast<u8>(bound), 255, shift,
                                                   out.data()),
                      bound);
        }
    }
}

// User-data headers

SMSPB_VECTORS(HeaderVector, "user_data_header.txt");

TEST_P(HeaderVector, EncodesAndDecodes) {
    const auto elements = elementsFrom(v());
    const auto octets = v().octets("octets");
    const u8 count = static_cast<u8>(elements.size());

    const GuardedBytes out(octets.size());
    const Guarded<SmsUdhIe> in(elements);
    EXPECT_EQ(wms_ts_encode_user_data_header(count, in.get(), out.data()), octets[0]);
    EXPECT_EQ(hex(out.octets()), hex(octets));
    EXPECT_EQ(wms_ts_compute_user_data_header_length(count, in.get()), octets.size());

    const auto header = padded(octets, HEADER_REACH, 0xEE);
    const Guarded<SmsUdhIe> decoded(SMS_MAX_UDH_IES);
    const Guarded<u8> decodedCount;
    EXPECT_EQ(
        wms_ts_decode_user_data_header(octets[0], header.data(), decodedCount.get(), decoded.get()),
        octets[0]);
    ASSERT_EQ(*decodedCount, count);
    for (u8 i = 0; i < count; i++) { expectElement(decoded[i], elements[i]); }
    EXPECT_EQ(logMessages(), Texts{});
}

SMSPB_VECTORS(HeaderRefused, "user_data_header_refused.txt");

TEST_P(HeaderRefused, Gives0) {
    const auto header = padded(v().octets("octets"), HEADER_REACH);
    const Guarded<SmsUdhIe> elements(SMS_MAX_UDH_IES);
    const Guarded<u8> count;
    EXPECT_EQ(wms_ts_decode_user_data_header(5, header.data(), count.get(), elements.get()), 0);
    if (!v().has("count")) {
        EXPECT_EQ(*count, 0xA5) << "left alone";
    } else if (v().text("count") != "any") {
        EXPECT_EQ(*count, v().number("count"));
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Header, NoElementsWriteNothing) {
    const auto element = concat8(1, 2, 1);
    const GuardedBytes out(0);
    EXPECT_EQ(wms_ts_encode_user_data_header(0, &element, out.data()), 0);
}

TEST_F(Header, ImpossibleElementIsSkipped) {
    const std::vector<SmsUdhIe> impossible = {
        concat8(0x12, 2, 3),  concat8(0x12, 0, 1),  concat8(0x12, 2, 0),  concat8(0x12, 0, 0),
        concat16(0x12, 2, 3), concat16(0x12, 0, 1), concat16(0x12, 2, 0), concat16(0x12, 0, 0)};
    for (const SmsUdhIe &element : impossible) {
        const GuardedBytes out(1);
        EXPECT_EQ(wms_ts_encode_user_data_header(1, &element, out.data()), 0);
        EXPECT_EQ(out[0], 0) << "a length octet all the same";
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Header, OtherElementIsSkipped) {
    for (const u32 id : {0x01U, 0x05U, 0x0AU, 0x0CU, 0x12U, 0x20U, 0xFFU, 0x100U, 0x108U}) {
        const std::vector<SmsUdhIe> elements = {otherElement(id, 3), concat8(0x12, 2, 1),
                                                otherElement(id, 3)};
        const GuardedBytes out(6);
        EXPECT_EQ(wms_ts_encode_user_data_header(3, elements.data(), out.data()), 5) << id;
        EXPECT_EQ(hex(out.octets()), "050003120201");
    }
}

TEST_F(Header, OnlySevenElementsAreWritten) {
    const Guarded<SmsUdhIe> elements(std::vector<SmsUdhIe>(7, concat16(0x1234, 2, 1)));
    for (const u8 count : std::vector<u8>{7, 8, 255}) {
        const GuardedBytes out(43);
        EXPECT_EQ(wms_ts_encode_user_data_header(count, elements.get(), out.data()), 42);
        EXPECT_EQ(out[0], 42);
        EXPECT_EQ(hex({out.data() + 37, out.data() + 43}), "080412340201");
    }
}

TEST_F(Header, NullPointerIsRefused) {
    const auto header = padded(octets("05 00 03 12 02 01"), HEADER_REACH);
    SmsUdhIe elements[SMS_MAX_UDH_IES];
    u8 count = 0xEE;
    EXPECT_EQ(wms_ts_decode_user_data_header(5, nullptr, &count, elements), 0);
    EXPECT_EQ(wms_ts_decode_user_data_header(5, header.data(), nullptr, elements), 0);
    EXPECT_EQ(wms_ts_decode_user_data_header(5, header.data(), &count, nullptr), 0);
}

TEST_F(Header, LengthArgumentNeedOnlyBeNonzero) {
    const auto header = padded(octets("05 00 03 12 02 01"), HEADER_REACH);
    SmsUdhIe elements[SMS_MAX_UDH_IES];
    u8 count = 0xEE;
    EXPECT_EQ(wms_ts_decode_user_data_header(0, header.data(), &count, elements), 0);
    EXPECT_EQ(count, 0xEE);
    EXPECT_EQ(wms_ts_decode_user_data_header(1, header.data(), &count, elements), 5);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(wms_ts_decode_user_data_header(255, header.data(), &count, elements), 5);
}

TEST_F(Header, LongerElementIsSkippedByItsLength) {
    const auto header = padded(octets("08 00 06 12 02 01 AA BB CC"), HEADER_REACH);
    SmsUdhIe elements[SMS_MAX_UDH_IES];
    u8 count = 0;
    EXPECT_EQ(wms_ts_decode_user_data_header(8, header.data(), &count, elements), 8);
    ASSERT_EQ(count, 1);
    expectElement(elements[0], concat8(0x12, 2, 1));
}

TEST_F(Header, UnknownElementIsSkippedByTheSizeOfTheOneBefore) {
    const struct {
        const char *octets;
        u8 unknown;
    } cases[] = {
        {      "09 00 03 12 02 01 01 02 80 01", 1}, // 4 octets behind an 8-bit reference
        {"0B 08 04 12 34 02 01 24 03 41 42 43", 1}, // 5 octets behind a 16-bit reference
    };
    for (const auto &c : cases) {
        const auto text = octets(c.octets);
        const auto header = padded(text, HEADER_REACH);
        const Guarded<SmsUdhIe> elements(SMS_MAX_UDH_IES);
        const auto before = octetsOf(elements[c.unknown]);
        u8 count = 0;
        EXPECT_EQ(wms_ts_decode_user_data_header(1, header.data(), &count, elements.get()),
                  text[0]);
        EXPECT_EQ(count, 2);
        EXPECT_EQ(octetsOf(elements[c.unknown]), before) << "its slot keeps what it held";
    }
}

TEST_F(Header, KnownElementBehindAnUnknownOneIsFound) {
    const auto header =
        padded(octets("0F 00 03 12 02 01 01 02 80 01 08 04 12 34 03 02"), HEADER_REACH);
    auto elements = std::vector<SmsUdhIe>(SMS_MAX_UDH_IES, cleared<SmsUdhIe>());
    u8 count = 0;
    EXPECT_EQ(wms_ts_decode_user_data_header(1, header.data(), &count, elements.data()), 15);
    ASSERT_EQ(count, 3);
    expectElement(elements[0], concat8(0x12, 2, 1));
    expectElement(elements[2], concat16(0x1234, 3, 2));
}

TEST_F(Header, RestBehindSevenElementsIsNotChecked) {
    std::vector<u8> text = {60};
    for (int i = 0; i < 7; i++) {
        const auto element = octets("00 03 12 02 01");
        text.insert(text.end(), element.begin(), element.end());
    }
    const auto header = padded(text, HEADER_REACH, 0xFF);
    const Guarded<SmsUdhIe> elements(SMS_MAX_UDH_IES);
    u8 count = 0;
    EXPECT_EQ(wms_ts_decode_user_data_header(60, header.data(), &count, elements.get()), 60);
    EXPECT_EQ(count, 7);
}

TEST_F(Header, RandomOctetsStayWithinTheirBuffers) {
    std::mt19937 random(45);
    for (int round = 0; round < 20000; round++) {
        auto octets = randomOctets(&random, HEADER_REACH, round % 2 != 0 ? 256 : 10);
        const auto header = againstGuardPage(octets);
        const Guarded<SmsUdhIe> elements(SMS_MAX_UDH_IES);
        u8 count = 0;
        const u8 result = wms_ts_decode_user_data_header(1, header.data(), &count, elements.get());
        ASSERT_TRUE(result == 0 || result == octets[0]);
        ASSERT_LE(count, SMS_MAX_UDH_IES);
    }
}

// Lengths

TEST_F(HeaderLength, EveryElementHasItsSize) {
    const struct {
        u32 id;
        u8 first, second, size;
    } cases[] = {
        { 0x00,    0,  0,   5},
        { 0x01,    0,  0,   4},
        { 0x08,    0,  0,   6},
        { 0x0A,    0,  0,   5},
        { 0x0A,    1,  0,   6},
        { 0x0A, 0xFF,  0,   6},
        { 0x0B,    0,  0,   4},
        { 0x0C,    0,  0,   3},
        { 0x0C,  100,  0, 103},
        { 0x0C,  252,  0, 255},
        { 0x0D,    0,  0,   4},
        { 0x0E,    0,  0, 131},
        { 0x0F,    0,  0,  35},
        { 0x10,    0,  0, 131},
        { 0x11,    0,  0,  35},
        { 0x12,    0,  0,   5},
        { 0x12,    8,  1,   6},
        { 0x12,   16, 16,  37},
        { 0x12,    7,  1,   5},
        { 0x12,    5,  3,   6},
        { 0x12,   40, 50, 255},
        { 0x20,   99,  0,   3},
        { 0x02,    0,  0,   2},
        { 0x05,    4,  0,   6},
        { 0x24,    1,  0,   3},
        { 0xFF,  253,  0, 255},
        {0x100,   10,  0,  12},
        { 0x13,    6,  0,   8},
    };
    for (const auto &c : cases) {
        const Guarded<SmsUdhIe> element(
            std::vector<SmsUdhIe>{otherElement(c.id, c.first, c.second)});
        EXPECT_EQ(wms_ts_get_udh_length(element.get()), c.size) << "element " << c.id;
    }
}

TEST_F(HeaderLength, NullElementIs0) { EXPECT_EQ(wms_ts_get_udh_length(nullptr), 0); }

TEST_F(HeaderLength, NoElementsAre0) {
    const auto element = concat8(1, 2, 1);
    EXPECT_EQ(wms_ts_compute_user_data_header_length(0, &element), 0U);
    EXPECT_EQ(wms_ts_compute_user_data_header_length(3, nullptr), 0U);
}

TEST_F(HeaderLength, LengthOctetAndAllElementsCount) {
    const std::vector<SmsUdhIe> elements = {concat8(1, 2, 1), concat16(1, 2, 1), otherElement(0x0F),
                                            otherElement(0x05, 10)};
    EXPECT_EQ(wms_ts_compute_user_data_header_length(1, elements.data()), 6U);
    EXPECT_EQ(wms_ts_compute_user_data_header_length(2, elements.data()), 12U);
    EXPECT_EQ(wms_ts_compute_user_data_header_length(3, elements.data()), 47U);
    EXPECT_EQ(wms_ts_compute_user_data_header_length(4, elements.data()), 59U);
}

TEST_F(HeaderLength, ElementThatTheEncoderSkipsCounts) {
    const auto impossible = concat8(1, 2, 3);
    EXPECT_EQ(wms_ts_compute_user_data_header_length(1, &impossible), 6U);
}

TEST_F(HeaderLength, OnlySevenElementsCount) {
    const Guarded<SmsUdhIe> elements(std::vector<SmsUdhIe>(7, otherElement(0x0E)));
    for (const u8 count : std::vector<u8>{7, 8, 255}) {
        EXPECT_EQ(wms_ts_compute_user_data_header_length(count, elements.get()), 1U + 7 * 131);
    }
}

TEST_F(UserDataLength, NullPointerIs0) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    const auto data = userData({1, 2, 3});
    EXPECT_EQ(wms_ts_compute_gw_user_data_length(nullptr, &data), 0U);
    EXPECT_EQ(wms_ts_compute_gw_user_data_length(&dcs, nullptr), 0U);
}

TEST_F(UserDataLength, SeptetsAreEstimated) {
    const struct {
        u16 septets;
        u32 octets;
    } cases[] = {
        {  0,   0},
        {  1,   1},
        {  2,   2},
        {  7,   7},
        {  8,   7},
        {153, 134},
        {159, 140},
        {160, 140},
        {161, 141},
        {162, 142}
    };
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    for (const auto &c : cases) {
        auto data = userData({});
        data.sm_len = c.septets;
        EXPECT_EQ(wms_ts_compute_gw_user_data_length(&dcs, &data), c.octets) << c.septets;
    }
}

TEST_F(UserDataLength, OctetsAreCounted) {
    for (const u32 alphabet : {1U, 2U, 3U}) {
        const auto dcs = codingScheme(alphabet);
        for (const u16 length : std::vector<u16>{0, 1, 140, 141, 255, 65535}) {
            auto data = userData({});
            data.sm_len = length;
            EXPECT_EQ(wms_ts_compute_gw_user_data_length(&dcs, &data), length);
        }
    }
}

TEST_F(UserDataLength, HeaderIsAdded) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    auto data = userData({}, {concat8(1, 2, 1)});
    data.sm_len = 153;
    EXPECT_EQ(wms_ts_compute_gw_user_data_length(&dcs, &data), 140U);
    data.sm_len = 154;
    EXPECT_EQ(wms_ts_compute_gw_user_data_length(&dcs, &data), 141U);
    const auto ucs2 = codingScheme(ALPHABET_UCS2);
    EXPECT_EQ(wms_ts_compute_gw_user_data_length(&ucs2, &data), 160U);
}

// User data

SMSPB_VECTORS(UserDataVector, "user_data.txt");

TEST_P(UserDataVector, EncodesAndDecodes) {
    const auto dcs = codingScheme(v().number("alphabet"));
    const Guarded<SmsUserData> expected(std::vector<SmsUserData>{userDataFrom(v())});
    const auto octets = v().octets("octets");
    const bool septets = dcs.alphabet == ALPHABET_GSM_7BIT;

    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&dcs, expected.get(), out.data()), octets.size());
    EXPECT_EQ(hex(out.first(octets.size())), hex(octets));

    const bool header = expected->num_headers != 0;
    const auto in = padded({octets.begin() + 1, octets.end()}, BODY_REACH);
    const Guarded<SmsUserData> decoded;
    const u32 headerOctets = header ? octets[1] + 1U : 0U;
    // Septets are counted as octets by the unpacker's bound.
    const u32 consumed = septets ? headerOctets + expected->sm_len : octets[0];
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, octets[0], in.data(), header ? 1 : 0, decoded.get()),
              consumed);
    expectUserData(*decoded, *expected);
}

TEST_F(UserData, NullPointerDecodesTo0) {
    const auto dcs = codingScheme(ALPHABET_8BIT);
    const auto in = padded({1}, BODY_REACH);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(nullptr, 1, in.data(), 0, &data), 0);
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 1, nullptr, 0, &data), 0);
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 1, in.data(), 0, nullptr), 0);
}

TEST_F(UserData, EmptyOrOverlongBodyClearsTheRecordAndGives0) {
    const auto in = padded(std::vector<u8>(255, 0x55), BODY_REACH);
    const struct {
        u32 alphabet;
        u8 length, header;
    } cases[] = {
        {0,   0, 0},
        {1,   0, 0},
        {2,   0, 1},
        {0, 161, 0},
        {0, 255, 1},
        {1, 141, 0},
        {2, 141, 0},
        {2, 255, 1}
    };
    for (const auto &c : cases) {
        const auto dcs = codingScheme(c.alphabet);
        SmsUserData data;
        std::memset(&data, 0xA5, sizeof(data));
        EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, c.length, in.data(), c.header, &data), 0);
        EXPECT_EQ(octetsOf(data), octetsOf(cleared<SmsUserData>())) << "case " << &c - cases;
    }
}

TEST_F(UserData, LongestBodiesDecode) {
    const auto in = padded(std::vector<u8>(140, 0x55), BODY_REACH);
    const auto octetScheme = codingScheme(ALPHABET_8BIT);
    const auto septetScheme = codingScheme(ALPHABET_GSM_7BIT);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&octetScheme, 140, in.data(), 0, &data), 140);
    EXPECT_EQ(data.sm_len, 140);
    EXPECT_EQ(wms_ts_decode_gw_user_data(&septetScheme, 160, in.data(), 0, &data), 160)
        << "the septet count, because it bounds the octets";
    EXPECT_EQ(data.sm_len, 160);
    const auto expected = reference::unpackSeptets(std::vector<u8>(140, 0x55), 140, 160, 0);
    EXPECT_EQ(hex({data.sm_data, data.sm_data + 160}), hex(expected.characters));
}

TEST_F(UserData, EveryCountOfSeptetsConsumesAsManyOctets) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    std::mt19937 random(46);
    for (u32 count = 1; count <= 160; count++) {
        const auto octets = randomOctets(&random, 140);
        const auto in = padded(octets, BODY_REACH);
        SmsUserData data;
        EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, static_cast<u8>(count), in.data(), 0, &data),
                  count);
        EXPECT_EQ(data.sm_len, count);
        EXPECT_EQ(data.num_headers, 0);
        const auto expected = reference::unpackSeptets(octets, 140, count, 0);
        EXPECT_EQ(hex({data.sm_data, data.sm_data + count}), hex(expected.characters));
    }
}

TEST_F(UserData, BodyOf153SeptetsBehindAHeaderFillsTheMessage) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    const auto data = userData(std::vector<u8>(153, 0x61), {concat8(0x12, 2, 1)});
    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&dcs, &data, out.data()), 141) << "TP-UDL and 140 octets";
    EXPECT_EQ(out[0], 160);
    EXPECT_EQ(out[7], 0xC2) << "one fill bit before 0x61";

    const auto in = againstGuardPage({out.data() + 1, out.data() + 255});
    const auto body = padded(in.octets(), BODY_REACH);
    SmsUserData decoded;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 160, body.data(), 1, &decoded), 6 + 153);
    expectUserData(decoded, data);
}

TEST_F(UserData, EveryFillIsWrittenAndReadBack) {
    std::mt19937 random(47);
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    for (std::size_t eights = 0; eights <= 4; eights++) {
        for (std::size_t sixteens = 0; eights + sixteens <= 7; sixteens++) {
            if (eights + sixteens == 0) { continue; }
            std::vector<SmsUdhIe> elements(eights, concat8(1, 2, 1));
            elements.resize(eights + sixteens, concat16(0x1234, 3, 2));
            const std::size_t header = 1 + 5 * eights + 6 * sixteens;
            const auto fill = static_cast<unsigned>((7 - header * 8 % 7) % 7);
            auto body = randomOctets(&random, 40, 127);
            for (u8 &character : body) { character++; }
            const auto data = userData(body, elements);
            const auto packed = reference::packSeptets(body, fill);

            const GuardedBytes out(255, 0);
            ASSERT_EQ(wms_ts_encode_gw_user_data(&dcs, &data, out.data()),
                      1 + header + packed.size());
            ASSERT_EQ(out[0], (header * 8 + fill + 40 * 7) / 7);
            ASSERT_EQ(out[1], header - 1);
            ASSERT_EQ(hex({out.data() + 1 + header, out.data() + 1 + header + packed.size()}),
                      hex(packed));

            const auto in = padded({out.data() + 1, out.data() + 255}, BODY_REACH);
            SmsUserData decoded;
            ASSERT_EQ(wms_ts_decode_gw_user_data(&dcs, out[0], in.data(), 1, &decoded),
                      header + 40);
            expectUserData(decoded, data);
        }
    }
}

// KEPT: the septet count bounds the octets, so a body of fewer septets than fill bits loses its
// end.
TEST_F(UserData, BodyOfFewerSeptetsThanFillBitsLosesItsEnd) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    const auto in = padded(octets("0A 00 03 01 02 01 00 03 02 02 02 40 A7 01"), BODY_REACH);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 0x0F, in.data(), 1, &data), 11 + 2);
    EXPECT_EQ(data.sm_len, 2);
    EXPECT_EQ(data.sm_data[0], 0x68);
    EXPECT_EQ(data.sm_data[1], 0) << "0x69 needs a third octet";
}

TEST_F(UserData, HeaderWithoutSeptetsConsumesAnOctetForItsFillBits) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    const auto in = padded(octets("05 00 03 12 02 01"), BODY_REACH);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 7, in.data(), 1, &data), 6 + 1);
    EXPECT_EQ(data.sm_len, 0);
    EXPECT_EQ(data.num_headers, 1);
}

TEST_F(UserData, HeaderWithoutSeptetsEncodesItsFillBits) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    const auto data = userData({}, {concat8(0x12, 2, 1)});
    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&dcs, &data, out.data()), 8);
    EXPECT_EQ(hex(out.first(8)), "0705000312020100") << "48 bits and a fill bit are 7 septets";
}

TEST_F(UserData, HeaderOfComputedLength140IsWritten) {
    const auto octetScheme = codingScheme(ALPHABET_8BIT);
    const auto data = userData({0xDE, 0xAD}, {otherElement(0x05, 137)});
    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&octetScheme, &data, out.data()), 4);
    EXPECT_EQ(hex(out.first(4)), "0300DEAD") << "its element is skipped, its length octet is not";

    const auto septetScheme = codingScheme(ALPHABET_GSM_7BIT);
    const auto text = userData({0x41}, {otherElement(0x05, 137)});
    const GuardedBytes packed(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&septetScheme, &text, packed.data()), 4);
    EXPECT_EQ(hex(packed.first(4)), "03004010") << "eight bits, six fill bits, one septet";
}

TEST_F(UserData, HeaderOfComputedLength141IsDropped) {
    const auto octetScheme = codingScheme(ALPHABET_8BIT);
    const auto data = userData({0xDE, 0xAD}, {concat8(1, 2, 1), otherElement(0x05, 133)});
    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&octetScheme, &data, out.data()), 3);
    EXPECT_EQ(hex(out.first(3)), "02DEAD");

    const auto septetScheme = codingScheme(ALPHABET_GSM_7BIT);
    const auto text = userData({0x41}, {concat8(1, 2, 1), otherElement(0x05, 133)});
    const GuardedBytes packed(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&septetScheme, &text, packed.data()), 2);
    EXPECT_EQ(hex(packed.first(2)), "0141");
}

TEST_F(UserData, SkippedElementLeavesAnEmptyHeader) {
    const auto dcs = codingScheme(ALPHABET_UCS2);
    const auto data = userData({0x04, 0x1F}, {concat8(0x12, 2, 3)});
    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&dcs, &data, out.data()), 4);
    EXPECT_EQ(hex(out.first(4)), "0300041F");
}

TEST_F(UserData, RefusedHeaderOfOctetsIsSkippedByOneOctet) {
    const auto dcs = codingScheme(ALPHABET_UCS2);
    const auto in = padded(octets("05 00 03 12 02 03 04 1F"), BODY_REACH);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 8, in.data(), 1, &data), 8);
    EXPECT_EQ(data.num_headers, 0);
    EXPECT_EQ(data.sm_len, 7);
    EXPECT_EQ(hex({data.sm_data, data.sm_data + 7}), "0003120203041F");
}

TEST_F(UserData, RefusedHeaderOfSeptetsIsUnpackedAsText) {
    const auto dcs = codingScheme(ALPHABET_GSM_7BIT);
    const auto text = octets("05 00 03 12 02 03 D0 65 36 FB 0D");
    const auto in = padded(text, BODY_REACH);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 12, in.data(), 1, &data), 12);
    EXPECT_EQ(data.num_headers, 0);
    EXPECT_EQ(data.sm_len, 12);
    const auto expected = reference::unpackSeptets(text, text.size(), 12, 0);
    EXPECT_EQ(hex({data.sm_data, data.sm_data + 12}), hex(expected.characters));
}

TEST_F(UserData, UnknownElementReadsAsAnEmptyOne) {
    const auto dcs = codingScheme(ALPHABET_8BIT);
    const auto in = padded(octets("09 00 03 12 02 01 01 02 80 01 AA"), BODY_REACH);
    SmsUserData data;
    std::memset(&data, 0xA5, sizeof(data));
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 11, in.data(), 1, &data), 11);
    EXPECT_EQ(data.num_headers, 2);
    expectElement(data.headers[1], concat8(0, 0, 0));
    EXPECT_EQ(data.sm_len, 1);
    EXPECT_EQ(data.sm_data[0], 0xAA);
}

TEST_F(UserData, BodyLengthBelow0KeepsEightBitsAndMissingOctetsRead0) {
    const auto dcs = codingScheme(ALPHABET_8BIT);
    std::vector<u8> text = octets("05 00 03 12 02 01");
    text.resize(BODY_REACH, 0x77);
    const auto in = againstGuardPage(text);
    SmsUserData data;
    EXPECT_EQ(wms_ts_decode_gw_user_data(&dcs, 2, in.data(), 1, &data), 2) << "6 + 252, 8 bits";
    EXPECT_EQ(data.num_headers, 1);
    EXPECT_EQ(data.sm_len, 252) << "2 - 5 - 1, 8 bits";
    EXPECT_EQ(hex({data.sm_data, data.sm_data + 252}), hex(octets("77x249 00x3")));
}

TEST_F(UserData, EncoderKeepsLengthsTo8Bits) {
    const auto dcs = codingScheme(ALPHABET_8BIT);
    auto data = userData(std::vector<u8>(254, 0x5A));
    const GuardedBytes out(255, 0);
    EXPECT_EQ(wms_ts_encode_gw_user_data(&dcs, &data, out.data()), 255);
    EXPECT_EQ(out[0], 254);
    EXPECT_EQ(out[254], 0x5A);
}

TEST_F(UserData, RandomLengthsStayWithinTheirBuffers) {
    setLogFaults({true, true});
    std::mt19937 random(48);
    for (int round = 0; round < 20000; round++) {
        auto octets = randomOctets(&random, BODY_REACH, round % 2 != 0 ? 256 : 12);
        if (round % 4 == 0) {
            const u8 header[] = {5, 0, 3, 0x12, 2, 1};
            std::copy(std::begin(header), std::end(header), octets.begin());
        }
        const auto in = againstGuardPage(octets);
        const auto dcs = codingScheme(random() % 4);
        const Guarded<SmsUserData> data;
        wms_ts_decode_gw_user_data(&dcs, static_cast<u8>(random()), in.data(),
                                   static_cast<u8>(random() % 2), data.get());
        ASSERT_LE(data->sm_len, SMS_MAX_TPDU_LEN);
        ASSERT_LE(data->num_headers, SMS_MAX_UDH_IES);
    }
}

TEST_F(UserData, EveryLengthBehindEveryHeaderStaysWithinItsBuffers) {
    setLogFaults({true, true});
    for (std::size_t count = 1; count <= 7; count++) {
        const std::vector<SmsUdhIe> elements(count, concat16(0x1234, 2, 1));
        std::vector<u8> text(BODY_REACH, 0x33);
        wms_ts_encode_user_data_header(static_cast<u8>(count), elements.data(), text.data());
        const auto in = againstGuardPage(text);
        for (u32 length = 0; length < 256; length++) {
            for (u32 alphabet = 0; alphabet <= 2; alphabet++) {
                const auto dcs = codingScheme(alphabet);
                const Guarded<SmsUserData> data;
                wms_ts_decode_gw_user_data(&dcs, static_cast<u8>(length), in.data(), 1, data.get());
                ASSERT_LE(data->sm_len, SMS_MAX_TPDU_LEN) << length;
            }
        }
    }
}
