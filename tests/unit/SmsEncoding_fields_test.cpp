// Semi-octet fields: BCD, addresses, time stamps, validity periods.
#include "atlib/SmsEncoding.h"

#include <random>

#include "support/library_test.h"
#include "support/records.h"

using namespace support;

namespace {

using Texts = std::vector<std::string>;

const std::size_t DECODER_REACH = 13; // octets that an alphanumeric address may touch

class Bcd : public LibraryTest {};
class AddressVector : public LibraryVectorTest {};
class Address : public LibraryTest {};
class TimestampVector : public LibraryVectorTest {};
class TimestampRefused : public LibraryVectorTest {};
class TimestampRepaired : public LibraryVectorTest {};
class Timestamp : public LibraryTest {};
class RelativeValidityVector : public LibraryVectorTest {};
class RelativeValidity : public LibraryTest {};
class Validity : public LibraryTest {};

u8 bcd(u32 value) { return static_cast<u8>(value / 10 * 16 + value % 10); }

} // namespace

// BCD octets

TEST_F(Bcd, EveryTwoDigitNumberEncodes) {
    for (u32 tens = 0; tens <= 9; tens++) {
        for (u32 units = 0; units <= 9; units++) {
            EXPECT_EQ(wms_ts_int_to_bcd(static_cast<u8>(tens * 10 + units)), tens * 16 + units);
        }
    }
}

TEST_F(Bcd, NumberOf100OrMoreKeepsEightBits) {
    EXPECT_EQ(wms_ts_int_to_bcd(100), 0xA0);
    EXPECT_EQ(wms_ts_int_to_bcd(159), 0xF9);
    EXPECT_EQ(wms_ts_int_to_bcd(160), 0x00);
    EXPECT_EQ(wms_ts_int_to_bcd(255), 0x95);
}

TEST_F(Bcd, EveryOctetDecodesOrIsRefused) {
    for (u32 high = 0; high < 16; high++) {
        for (u32 low = 0; low < 16; low++) {
            u8 value = 0xEE;
            const bool valid = high < 10 && low < 10;
            EXPECT_EQ(wms_ts_bcd_to_int(static_cast<u8>(high << 4 | low), &value), valid ? 1 : 0);
            EXPECT_EQ(value, valid ? high * 10 + low : 0);
        }
    }
}

TEST_F(Bcd, DigitAboveNineIsLogged) {
    u8 value = 0xEE;
    EXPECT_EQ(wms_ts_bcd_to_int(0x9A, &value), 0);
    EXPECT_EQ(wms_ts_bcd_to_int(0x0F, &value), 0);
    EXPECT_EQ(wms_ts_bcd_to_int(0x99, &value), 1);
    EXPECT_EQ(value, 99);
    EXPECT_EQ(logMessages(),
              (Texts{"Invalid BCD digit! bcd:0x9a\n\n", "Invalid BCD digit! bcd:0x0f\n\n"}));
    EXPECT_EQ(logEntries()[0].source, "atlib/SmsEncoding.cpp");
    EXPECT_EQ(logEntries()[0].function, "wms_ts_bcd_to_int");
}

// Addresses

SMSPB_VECTORS(AddressVector, "address.txt");

TEST_P(AddressVector, EncodesAndDecodes) {
    const SmsAddress expected = addressFrom(v());
    const auto octets = v().octets("octets");

    const GuardedBytes out(octets.size());
    const Guarded<SmsAddress> record(std::vector<SmsAddress>{expected});
    EXPECT_EQ(wms_ts_encode_address(record.get(), out.data()), octets.size());
    EXPECT_EQ(hex(out.octets()), hex(octets));

    auto padded = octets;
    if (expected.digit_mode == 1) { padded.resize(DECODER_REACH); }
    const auto in = againstGuardPage(padded);
    const Guarded<SmsAddress> address;
    EXPECT_EQ(wms_ts_decode_address(in.data(), address.get()), octets.size());
    expectAddress(*address, expected);
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Address, TwentyDigitsAreAccepted) {
    const GuardedBytes out(12);
    const auto address = numericAddress("12345678901234567890", 1);
    EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 12);
}

TEST_F(Address, TwentyOneDigitsAreRefused) {
    for (const u8 count : std::vector<u8>{21, 22, 36, 255}) {
        auto address = numericAddress("1", 1);
        address.number_of_digits = count;
        GuardedBytes out(22);
        EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 0);
        address.number_type = NUMBER_ALPHANUMERIC;
        EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 0);
        EXPECT_EQ(out.octets(), std::vector<u8>(22, 0xA5)) << "nothing written";
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Address, LengthAboveTwentyIsRefused) {
    for (u32 length = 21; length <= 255; length++) {
        for (const u8 type : std::vector<u8>{0x91, 0xD0}) {
            std::vector<u8> octets(DECODER_REACH, 0x21);
            octets[0] = static_cast<u8>(length);
            octets[1] = type;
            const auto in = againstGuardPage(octets);
            auto address = cleared<SmsAddress>();
            const auto before = octetsOf(address);
            EXPECT_EQ(wms_ts_decode_address(in.data(), &address), 0);
            EXPECT_EQ(octetsOf(address), before) << "nothing written";
        }
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Address, DigitModeIsNotConsultedByTheEncoder) {
    auto address = numericAddress("12345");
    address.digit_mode = 1;
    const GuardedBytes out(5);
    EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 5);
    EXPECT_EQ(hex(out.octets()), "05812143F5");
}

TEST_F(Address, TypeAndPlanAreNotMasked) {
    const GuardedBytes out(3);
    const auto wide = numericAddress("1", 9, 1); // 9 << 4 reaches bit 7, which is set anyway
    EXPECT_EQ(wms_ts_encode_address(&wide, out.data()), 3);
    EXPECT_EQ(out[1], 0x91);
    const auto plan = numericAddress("1", 0, 0x21);
    EXPECT_EQ(wms_ts_encode_address(&plan, out.data()), 3);
    EXPECT_EQ(out[1], 0xA1);
}

TEST_F(Address, DigitsAreCutToNibbles) {
    auto address = numericAddress("12");
    address.digits[0] = 0xF3;
    address.digits[1] = 0xE4;
    const GuardedBytes out(3);
    EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 3);
    EXPECT_EQ(out[2], 0x43);
}

TEST_F(Address, TopBitOfTheTypeIsIgnored) {
    for (const u8 type : std::vector<u8>{0x11, 0x91}) {
        const auto in = againstGuardPage({0x02, type, 0x21});
        auto address = cleared<SmsAddress>();
        EXPECT_EQ(wms_ts_decode_address(in.data(), &address), 3);
        expectAddress(address, numericAddress("12", 1));
    }
}

TEST_F(Address, EveryTypeOctetGivesTypeAndPlan) {
    for (u32 type = 0; type < 256; type++) {
        std::vector<u8> octets = {0x00, static_cast<u8>(type)};
        octets.resize(DECODER_REACH);
        const auto in = againstGuardPage(octets);
        auto address = cleared<SmsAddress>();
        EXPECT_EQ(wms_ts_decode_address(in.data(), &address), 2);
        EXPECT_EQ(address.number_type, type >> 4 & 7);
        EXPECT_EQ(address.number_plan, type & 15);
        EXPECT_EQ(address.digit_mode, (type >> 4 & 7) == 5 ? 1U : 0U);
    }
}

TEST_F(Address, AuxModeIsLeftAlone) {
    auto address = cleared<SmsAddress>();
    address.aux_mode = 0x12345678;
    const u8 in[] = {0x02, 0x91, 0x21};
    EXPECT_EQ(wms_ts_decode_address(in, &address), 3);
    EXPECT_EQ(address.aux_mode, 0x12345678U);
}

TEST_F(Address, OddNumberLeavesItsFillerBehindTheLastDigit) {
    const struct {
        std::vector<u8> octets;
        u8 count, filler;
    } cases[] = {
        {                                          {0x05, 0x91, 0x21, 0x43, 0xF5},  5, 15},
        {                                                      {0x01, 0x91, 0xF7},  1, 15},
        {                                                      {0x01, 0x91, 0x37},  1,  3},
        {{0x13, 0x91, 0x21, 0x43, 0x65, 0x87, 0x09, 0x21, 0x43, 0x65, 0x87, 0xF9}, 19, 15}
    };
    for (const auto &c : cases) {
        const auto in = againstGuardPage(c.octets);
        auto address = cleared<SmsAddress>();
        EXPECT_EQ(wms_ts_decode_address(in.data(), &address), c.octets.size());
        EXPECT_EQ(address.number_of_digits, c.count);
        EXPECT_EQ(address.digits[c.count], c.filler);
    }
}

TEST_F(Address, EvenNumberTouchesNothingBehindTheLastDigit) {
    auto address = cleared<SmsAddress>();
    address.digits[2] = 0xEE;
    const u8 in[] = {0x02, 0x91, 0x21};
    EXPECT_EQ(wms_ts_decode_address(in, &address), 3);
    EXPECT_EQ(address.digits[2], 0xEE);
}

TEST_F(Address, TwentyAlphanumericCharactersEncodeThoughTheyDoNotDecode) {
    auto address = numericAddress("", NUMBER_ALPHANUMERIC, 0);
    address.number_of_digits = 20;
    std::fill_n(address.digits, 20, u8{0x7F});
    const GuardedBytes out(20);
    EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 20) << "140 bits are 18 octets";
    EXPECT_EQ(out[0], 35) << "(20 * 7 + 3) / 4 semi-octets";
    EXPECT_EQ(out[1], 0xD0);
    EXPECT_EQ(out[19], 0x0F) << "four bits of the last character";
    SmsAddress decoded;
    EXPECT_EQ(wms_ts_decode_address(out.data(), &decoded), 0);
}

TEST_F(Address, EveryAlphanumericLengthOctetHoldsItsWholeSeptets) {
    for (u32 length = 0; length <= 20; length++) {
        std::vector<u8> octets = {static_cast<u8>(length), 0xD0};
        octets.resize(DECODER_REACH, 0x55);
        const auto in = againstGuardPage(octets);
        auto address = cleared<SmsAddress>();
        EXPECT_EQ(wms_ts_decode_address(in.data(), &address), 2 + (length + 1) / 2);
        EXPECT_EQ(address.number_of_digits, length * 4 / 7) << length << " semi-octets";
    }
}

TEST_F(Address, AlphanumericLengthCountsTheSemiOctetsOfEveryCount) {
    const u8 lengths[] = {0,  2,  4,  6,  7,  9,  11, 13, 14, 16, 18,
                          20, 21, 23, 25, 27, 28, 30, 32, 34, 35};
    const u8 octetCounts[] = {0,  1,  2,  3,  4,  5,  6,  7,  7,  8, 9,
                              10, 11, 12, 13, 14, 14, 15, 16, 17, 18};
    for (u8 count = 0; count <= 20; count++) {
        auto address = numericAddress("", NUMBER_ALPHANUMERIC, 0);
        address.number_of_digits = count;
        std::fill_n(address.digits, count, u8{0x41});
        const GuardedBytes out(2U + octetCounts[count]);
        EXPECT_EQ(wms_ts_encode_address(&address, out.data()), 2 + octetCounts[count]);
        EXPECT_EQ(out[0], lengths[count]) << int{count} << " characters";
    }
}

TEST_F(Address, ZeroCharacterDecodesAs40) {
    std::vector<u8> octets = {0x04, 0xD0, 0x00, 0x34}; // "@i"
    octets.resize(DECODER_REACH);
    const auto in = againstGuardPage(octets);
    auto address = cleared<SmsAddress>();
    EXPECT_EQ(wms_ts_decode_address(in.data(), &address), 4);
    EXPECT_EQ(address.digits[0], 0x40);
    EXPECT_EQ(address.digits[1], 0x68);
}

TEST_F(Address, EveryNumberOfRandomDigitsComesBack) {
    std::mt19937 random(340);
    for (int round = 0; round < 50; round++) {
        for (u8 count = 0; count <= 20; count++) {
            auto address = numericAddress("", round % 8 == 5 ? 1 : round % 8, round % 16);
            address.number_of_digits = count;
            for (u8 i = 0; i < count; i++) { address.digits[i] = random() % 16; }
            const std::size_t size = 2U + (count + 1U) / 2U;
            const GuardedBytes octets(size);
            ASSERT_EQ(wms_ts_encode_address(&address, octets.data()), size);
            auto decoded = cleared<SmsAddress>();
            ASSERT_EQ(wms_ts_decode_address(octets.data(), &decoded), size);
            expectAddress(decoded, address);
        }
    }
}

TEST_F(Address, RandomCharactersComeBack) {
    std::mt19937 random(341);
    for (int round = 0; round < 300; round++) {
        auto address = numericAddress("", NUMBER_ALPHANUMERIC, 1);
        address.digit_mode = 1;
        address.number_of_digits = static_cast<u8>(random() % 12);
        for (u8 i = 0; i < address.number_of_digits; i++) {
            address.digits[i] = static_cast<u8>(1 + random() % 127);
        }
        const GuardedBytes octets(DECODER_REACH, 0);
        const u8 size = wms_ts_encode_address(&address, octets.data());
        auto decoded = cleared<SmsAddress>();
        ASSERT_EQ(wms_ts_decode_address(octets.data(), &decoded), size);
        expectAddress(decoded, address);
    }
}

// Time stamps

SMSPB_VECTORS(TimestampVector, "timestamp.txt");

TEST_P(TimestampVector, EncodesAndDecodes) {
    const auto expected = timestampFrom(v().octets("time"), v().integer("timezone"));
    const auto octets = v().octets("octets");

    const GuardedBytes out(7), quiet(7);
    EXPECT_EQ(wms_ts_encode_timestamp(&expected, out.data()), 7);
    EXPECT_EQ(hex(out.octets()), hex(octets));
    EXPECT_EQ(gw_ts_encode_timestamp(&expected, quiet.data()), 7);
    EXPECT_EQ(hex(quiet.octets()), hex(octets));

    const auto in = againstGuardPage(octets);
    const Guarded<SmsTimestamp> decoded;
    EXPECT_EQ(wms_ts_decode_timestamp(in.data(), decoded.get()), 7);
    expectTimestamp(*decoded, expected);
    EXPECT_EQ(logMessages(), Texts{});
}

SMSPB_VECTORS(TimestampRefused, "timestamp_refused.txt");

// The log lines of a refusal: the BCD check's own, then the field's.
static Texts refusalLines(const Vector &v) {
    Texts lines;
    if (v.has("bcd")) { lines.push_back("Invalid BCD digit! bcd:0x" + v.text("bcd") + "\n\n"); }
    if (v.has("message")) { lines.push_back(v.text("message") + "\n\n"); }
    return lines;
}

TEST_P(TimestampRefused, IsLoggedAndKeepsTheOctetsBefore) {
    const auto timestamp =
        timestampFrom(v().octets("time"), v().has("timezone") ? v().integer("timezone") : 0);
    auto expected = v().octets("written");
    expected.resize(7, 0xA5);

    const GuardedBytes out(7);
    EXPECT_EQ(wms_ts_encode_timestamp(&timestamp, out.data()), 0);
    EXPECT_EQ(hex(out.octets()), hex(expected));
    EXPECT_EQ(logMessages(), refusalLines(v()));
    EXPECT_EQ(logEntries().back().function,
              v().has("bcd") ? "wms_ts_bcd_to_int" : "wms_ts_encode_timestamp");
}

TEST_P(TimestampRefused, IsRefusedByTheQuietEncoderWithoutItsOwnLine) {
    const auto timestamp =
        timestampFrom(v().octets("time"), v().has("timezone") ? v().integer("timezone") : 0);
    auto expected = v().octets("written");
    expected.resize(7, 0xA5);

    const GuardedBytes out(7);
    EXPECT_EQ(gw_ts_encode_timestamp(&timestamp, out.data()), 0);
    EXPECT_EQ(hex(out.octets()), hex(expected));
    Texts lines = refusalLines(v());
    if (v().has("message")) { lines.pop_back(); }
    EXPECT_EQ(logMessages(), lines);
}

SMSPB_VECTORS(TimestampRepaired, "timestamp_repaired.txt");

TEST_P(TimestampRepaired, IsLoggedAndDecodedWithADefault) {
    const auto in = againstGuardPage(v().octets("octets"));
    const Guarded<SmsTimestamp> decoded;
    EXPECT_EQ(wms_ts_decode_timestamp(in.data(), decoded.get()), 7);
    expectTimestamp(*decoded, timestampFrom(v().octets("time")));
    EXPECT_EQ(logMessages(), refusalLines(v()));
    EXPECT_EQ(logEntries().back().function, "wms_ts_decode_timestamp");
    EXPECT_EQ(logEntries().back().source, "atlib/SmsEncoding.cpp");
}

TEST_F(Timestamp, NullPointerIsLoggedAndGives0) {
    const u8 octets[7] = {};
    SmsTimestamp timestamp;
    EXPECT_EQ(wms_ts_decode_timestamp(nullptr, &timestamp), 0);
    EXPECT_EQ(wms_ts_decode_timestamp(octets, nullptr), 0);
    EXPECT_EQ(logMessages(), (Texts{"null pointer in wms_ts_decode_timestamp\n\n",
                                    "null pointer in wms_ts_decode_timestamp\n\n"}));
}

TEST_F(Timestamp, AllFieldsBadAreAllRepaired) {
    const auto in = againstGuardPage(std::vector<u8>(7, 0xFF));
    SmsTimestamp decoded;
    EXPECT_EQ(wms_ts_decode_timestamp(in.data(), &decoded), 7);
    expectTimestamp(decoded, timestampFrom({0, 1, 1, 0, 0, 0}));
    EXPECT_EQ(logMessages().size(), 13U) << "two lines a field, one for the time zone";
}

TEST_F(Timestamp, EveryFieldAcceptsExactlyItsRange) {
    const struct {
        u8 SmsTimestamp::*field;
        u32 first, last;
    } ranges[] = {
        {  &SmsTimestamp::year, 0, 99},
        { &SmsTimestamp::month, 1, 12},
        {   &SmsTimestamp::day, 1, 31},
        {  &SmsTimestamp::hour, 0, 23},
        {&SmsTimestamp::minute, 0, 59},
        {&SmsTimestamp::second, 0, 59}
    };
    for (const auto &range : ranges) {
        for (u32 value = 0; value <= 99; value++) {
            auto timestamp = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45});
            timestamp.*range.field = bcd(value);
            const GuardedBytes out(7), quiet(7);
            const u8 expected = value >= range.first && value <= range.last ? 7 : 0;
            EXPECT_EQ(wms_ts_encode_timestamp(&timestamp, out.data()), expected) << value;
            EXPECT_EQ(gw_ts_encode_timestamp(&timestamp, quiet.data()), expected) << value;
            EXPECT_EQ(out.octets(), quiet.octets());
        }
    }
}

TEST_F(Timestamp, EveryTimezoneFrom48WestTo48EastComesBack) {
    for (int zone = -128; zone <= 127; zone++) {
        const auto timestamp = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45}, zone);
        const bool good = zone >= -48 && zone <= 48;
        const GuardedBytes out(7), quiet(7);
        EXPECT_EQ(wms_ts_encode_timestamp(&timestamp, out.data()), good ? 7 : 0) << zone;
        EXPECT_EQ(gw_ts_encode_timestamp(&timestamp, quiet.data()), good ? 7 : 0) << zone;
        if (!good) { continue; }
        const u32 magnitude = static_cast<u32>(zone < 0 ? -zone : zone);
        EXPECT_EQ(out[6], magnitude % 10 << 4 | magnitude / 10 | (zone < 0 ? 0x08U : 0U));
        SmsTimestamp decoded;
        EXPECT_EQ(wms_ts_decode_timestamp(out.data(), &decoded), 7);
        EXPECT_EQ(decoded.timezone, zone);
    }
}

TEST_F(Timestamp, TimezoneTooFarWestIsRefused) {
    const auto timestamp = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45}, -49);
    const GuardedBytes out(7);
    EXPECT_EQ(wms_ts_encode_timestamp(&timestamp, out.data()), 0);
    EXPECT_EQ(logMessages(), (Texts{"Timezone is out of bound: -49 timezone:0xffffffcf\n\n"}));
}

TEST_F(Timestamp, EveryTimezoneOctetDecodesOrReadsAs0) {
    for (u32 octet = 0; octet < 256; octet++) {
        clearLog();
        const u8 in[7] = {0x42, 0x70, 0x51, 0x21, 0x03, 0x54, static_cast<u8>(octet)};
        const u32 units = octet >> 4, tens = octet & 7;
        int zone = static_cast<int>(tens * 10 + units);
        if ((octet & 8) != 0) { zone = -zone; }
        const bool good = zone >= -48 && zone <= 48;
        SmsTimestamp decoded;
        EXPECT_EQ(wms_ts_decode_timestamp(in, &decoded), 7);
        EXPECT_EQ(decoded.timezone, good ? zone : 0) << "octet " << octet;
        EXPECT_EQ(logMessages().size(), good ? 0U : 1U) << "octet " << octet;
        if (!good) {
            char message[64];
            snprintf(message, sizeof(message), "Timezone is out of bound: 0x%x\n\n",
                     static_cast<unsigned>(zone));
            EXPECT_EQ(logMessages()[0], message);
        }
    }
}

TEST_F(Timestamp, EveryValueOfEveryOctetIsRepairedOrKept) {
    const struct {
        u8 SmsTimestamp::*field;
        u32 first, last;
        u8 otherwise;
    } fields[] = {
        {  &SmsTimestamp::year, 0, 99, 0},
        { &SmsTimestamp::month, 1, 12, 1},
        {   &SmsTimestamp::day, 1, 31, 1},
        {  &SmsTimestamp::hour, 0, 23, 0},
        {&SmsTimestamp::minute, 0, 59, 0},
        {&SmsTimestamp::second, 0, 59, 0}
    };
    setLogFaults({true, true});
    for (std::size_t position = 0; position < 6; position++) {
        for (u32 octet = 0; octet < 256; octet++) {
            u8 in[7] = {0x42, 0x70, 0x51, 0x21, 0x03, 0x54, 0x00};
            in[position] = static_cast<u8>(octet);
            const u32 tens = octet & 15, units = octet >> 4, value = tens * 10 + units;
            const bool good = tens < 10 && units < 10 && value >= fields[position].first &&
                              value <= fields[position].last;
            auto expected = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45});
            expected.*fields[position].field = good ? bcd(value) : fields[position].otherwise;
            SmsTimestamp decoded;
            ASSERT_EQ(wms_ts_decode_timestamp(in, &decoded), 7);
            expectTimestamp(decoded, expected);
        }
    }
}

// Relative validity

SMSPB_VECTORS(RelativeValidityVector, "relative_validity.txt");

TEST_P(RelativeValidityVector, EncodesAndDecodes) {
    const auto duration = timestampFrom(v().octets("time"));
    const u32 vp = v().number("vp");
    EXPECT_EQ(wms_ts_encode_relative_time(&duration), vp);
    const Guarded<SmsTimestamp> decoded;
    wms_ts_decode_relative_time(static_cast<u8>(vp), decoded.get());
    expectTimestamp(*decoded, v().has("decodes") ? timestampFrom(v().octets("decodes")) : duration);
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(RelativeValidity, NullDurationEncodesAs0) {
    EXPECT_EQ(wms_ts_encode_relative_time(nullptr), 0);
}

TEST_F(RelativeValidity, NullOutputDecodesNothing) { wms_ts_decode_relative_time(167, nullptr); }

TEST_F(RelativeValidity, TimezoneDoesNotCount) {
    const auto duration = timestampFrom({0, 0, 1, 0, 0, 0}, 48);
    EXPECT_EQ(wms_ts_encode_relative_time(&duration), 167);
}

TEST_F(RelativeValidity, BadDigitCountsAs0) {
    const auto bad = timestampFrom({0xFF, 0xA0, 0x0B, 0x01, 0xC5, 0xF1});
    EXPECT_EQ(wms_ts_encode_relative_time(&bad), 11) << "one hour is left";
    EXPECT_EQ(logMessages(),
              (Texts{"Invalid BCD digit! bcd:0xff\n\n", "Invalid BCD digit! bcd:0xa0\n\n",
                     "Invalid BCD digit! bcd:0x0b\n\n", "Invalid BCD digit! bcd:0xc5\n\n",
                     "Invalid BCD digit! bcd:0xf1\n\n"}))
        << "the seconds do not count and are looked at all the same";
}

TEST_F(RelativeValidity, EveryMinuteOfADayEncodesByItsStep) {
    for (u32 minutes = 1; minutes < 1440; minutes++) {
        const auto duration = timestampFrom({0, 0, 0, bcd(minutes / 60), bcd(minutes % 60), 0});
        u32 expected = 0;
        if (minutes <= 720) {
            while ((expected + 1) * 5 < minutes) { expected++; } // the first period that is enough
        } else if (minutes < 733) {
            expected = 22;
        } else if (minutes < 749) {
            expected = 23;
        } else {
            expected = 143;
            while ((expected - 142) * 30 + 749 <= minutes) { expected++; }
        }
        EXPECT_EQ(wms_ts_encode_relative_time(&duration), expected) << minutes << " minutes";
    }
}

TEST_F(RelativeValidity, EveryDayEncodesByItsStep) {
    for (u32 days = 1; days <= 99 * 365; days++) {
        const u32 rest = days % 365;
        const auto duration =
            timestampFrom({bcd(days / 365), bcd(rest / 30), bcd(rest % 30), 0, 0, 0});
        u32 expected = 166 + days;
        if (days > 30) {
            const u32 weeks = days / 7 + (days % 7 != 0 ? 1 : 0);
            expected = (192 + weeks) % 256;
        }
        ASSERT_EQ(wms_ts_encode_relative_time(&duration), expected) << days << " days";
    }
}

TEST_F(RelativeValidity, EveryOctetDecodesToItsDuration) {
    for (u32 vp = 0; vp < 256; vp++) {
        u32 minutes = 0, days = 0;
        if (vp <= 143) { minutes = (vp + 1) * 5; }
        if (vp >= 144 && vp <= 166) { minutes = 720 + (vp - 143) * 30; }
        if (vp >= 167 && vp <= 196) { days = vp - 166; }
        if (vp >= 197) { days = (vp - 192) * 7; }
        SmsTimestamp decoded;
        std::memset(&decoded, 0xA5, sizeof(decoded));
        wms_ts_decode_relative_time(static_cast<u8>(vp), &decoded);
        expectTimestamp(decoded,
                        timestampFrom({bcd(days / 365), bcd(days % 365 / 30), bcd(days % 365 % 30),
                                       bcd(minutes / 60), bcd(minutes % 60), 0}));
    }
}

// Validity periods of every format

TEST_F(Validity, RelativeFormatIsOneOctet) {
    const Guarded<SmsValidity> validity(1, Fill::Cleared);
    validity->format = VALIDITY_RELATIVE;
    validity->time = timestampFrom({0, 0, 1, 0, 0, 0});
    const GuardedBytes out(1);
    EXPECT_EQ(wms_ts_encode_gw_validity(validity.get(), out.data()), 1);
    EXPECT_EQ(out[0], 167);

    const Guarded<SmsValidity> decoded;
    decoded->format = VALIDITY_RELATIVE;
    EXPECT_EQ(wms_ts_decode_gw_validity(out.data(), decoded.get()), 1);
    EXPECT_EQ(decoded->format, VALIDITY_RELATIVE);
    expectTimestamp(decoded->time, validity->time);
}

TEST_F(Validity, AbsoluteFormatIsSevenOctets) {
    auto validity = cleared<SmsValidity>();
    validity.format = VALIDITY_ABSOLUTE;
    validity.time = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45}, -8);
    const GuardedBytes out(7);
    EXPECT_EQ(wms_ts_encode_gw_validity(&validity, out.data()), 7);
    EXPECT_EQ(hex(out.octets()), "42705121035488");

    auto decoded = cleared<SmsValidity>();
    decoded.format = VALIDITY_ABSOLUTE;
    EXPECT_EQ(wms_ts_decode_gw_validity(out.data(), &decoded), 7);
    EXPECT_EQ(decoded.format, VALIDITY_ABSOLUTE);
    expectTimestamp(decoded.time, validity.time);
}

TEST_F(Validity, AbsoluteTimeThatDoesNotEncodeIsLoggedAndGives0) {
    auto validity = cleared<SmsValidity>();
    validity.format = VALIDITY_ABSOLUTE;
    validity.time = timestampFrom({0x24, 0x13, 0x15, 0x12, 0x30, 0x45});
    const GuardedBytes out(7);
    EXPECT_EQ(wms_ts_encode_gw_validity(&validity, out.data()), 0);
    EXPECT_EQ(logMessages(), (Texts{"Month is invalid: 13 month:0x13\n\n",
                                    "Error while Decoding Absolute Validity Timestamp\n\n"}));
    EXPECT_EQ(logEntries().back().function, "wms_ts_encode_gw_validity");
}

TEST_F(Validity, OtherFormatsEncodeNothing) {
    for (const u32 format : {0U, 1U, 4U, 0xFFFFFFFFU}) {
        auto validity = cleared<SmsValidity>();
        validity.format = format;
        validity.time = timestampFrom({0x24, 0x07, 0x15, 0x12, 0x30, 0x45});
        const GuardedBytes out(7);
        EXPECT_EQ(wms_ts_encode_gw_validity(&validity, out.data()), 0);
        EXPECT_EQ(out.octets(), std::vector<u8>(7, 0xA5));
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Validity, AbsentFormatClearsTheRecord) {
    SmsValidity validity;
    std::memset(&validity, 0xA5, sizeof(validity));
    validity.format = VALIDITY_NONE;
    const GuardedBytes nothing(0);
    EXPECT_EQ(wms_ts_decode_gw_validity(nothing.data(), &validity), 0);
    EXPECT_EQ(validity.format, VALIDITY_NONE);
    expectTimestamp(validity.time, timestampFrom({0, 0, 0, 0, 0, 0}));
}

TEST_F(Validity, OtherFormatsReadNothing) {
    for (const u32 format : {1U, 4U, 0xFFFFFFFFU}) {
        SmsValidity validity;
        std::memset(&validity, 0xA5, sizeof(validity));
        validity.format = format;
        const auto time = octetsOf(validity.time);
        const GuardedBytes nothing(0);
        EXPECT_EQ(wms_ts_decode_gw_validity(nothing.data(), &validity), 0);
        EXPECT_EQ(validity.format, format);
        EXPECT_EQ(octetsOf(validity.time), time);
    }
    EXPECT_EQ(logMessages(), Texts{});
}

TEST_F(Validity, NullPointerIsLoggedAndGives0) {
    const u8 octets[7] = {};
    auto validity = cleared<SmsValidity>();
    validity.format = VALIDITY_RELATIVE;
    EXPECT_EQ(wms_ts_decode_gw_validity(nullptr, &validity), 0);
    EXPECT_EQ(wms_ts_decode_gw_validity(octets, nullptr), 0);
    EXPECT_EQ(logMessages(), (Texts{"null pointer in wms_ts_decode_gw_validity\n",
                                    "null pointer in wms_ts_decode_gw_validity\n"}));
}
