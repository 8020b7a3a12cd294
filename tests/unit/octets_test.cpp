#include "atlib/octets.h"

#include "support/library_test.h"

using namespace support;

TEST(OctetReader, TakesOctetsInOrder) {
    const auto in = againstGuardPage({1, 2, 3});
    OctetReader reader = {in.data(), 3, 0};
    EXPECT_EQ(peekOctet(&reader), 1);
    EXPECT_EQ(takeOctet(&reader), 1);
    EXPECT_EQ(takeOctet(&reader), 2);
    EXPECT_EQ(takeOctet(&reader), 3);
    EXPECT_EQ(reader.pos, 3U);
}

TEST(OctetReader, ReadsZeroPastTheEndAndCountsOn) {
    const auto in = againstGuardPage({9});
    OctetReader reader = {in.data(), 1, 1};
    EXPECT_EQ(peekOctet(&reader), 0);
    EXPECT_EQ(takeOctet(&reader), 0);
    EXPECT_EQ(takeOctet(&reader), 0);
    EXPECT_EQ(reader.pos, 3U);
}

TEST(OctetReader, EmptyInputReadsZero) {
    OctetReader reader = {nullptr, 0, 0};
    EXPECT_EQ(takeOctet(&reader), 0);
    EXPECT_EQ(reader.pos, 1U);
}

TEST(OctetReader, OctetAtAPositionIsZeroPastTheEnd) {
    const auto in = againstGuardPage({5, 6});
    const OctetReader reader = {in.data(), 2, 1};
    EXPECT_EQ(octetAt(&reader, 0), 5);
    EXPECT_EQ(octetAt(&reader, 1), 6);
    EXPECT_EQ(octetAt(&reader, 2), 0);
    EXPECT_EQ(octetAt(&reader, 0xFFFFFFFF), 0);
}

TEST(OctetReader, ViewIsNullWhenFewerOctetsAreLeft) {
    const auto in = againstGuardPage({1, 2, 3, 4});
    OctetReader reader = {in.data(), 4, 1};
    EXPECT_EQ(viewOctets(&reader, 3), in.data() + 1);
    EXPECT_EQ(viewOctets(&reader, 4), nullptr);
    EXPECT_EQ(viewOctets(&reader, 0xFFFFFFFF), nullptr) << "no sum that wraps";
    reader.pos = 4;
    EXPECT_EQ(viewOctets(&reader, 0), in.data() + 4);
    EXPECT_EQ(viewOctets(&reader, 1), nullptr);
    reader.pos = 5;
    EXPECT_EQ(viewOctets(&reader, 0), nullptr);
    reader.pos = 0xFFFFFFFF;
    EXPECT_EQ(viewOctets(&reader, 1), nullptr);
}

TEST(OctetReader, RestBeginsWhereTheReaderStands) {
    const auto in = againstGuardPage({1, 2, 3});
    OctetReader reader = {in.data(), 3, 1};
    OctetReader rest = restOf(&reader);
    EXPECT_EQ(rest.size, 2U);
    EXPECT_EQ(takeOctet(&rest), 2);
    reader.pos = 9;
    EXPECT_EQ(restOf(&reader).size, 0U);
}

TEST(OctetWriter, PutsOctetsInOrder) {
    const GuardedBytes out(3);
    OctetWriter writer = {out.data(), 3, 0};
    putOctet(&writer, 1);
    putOctet(&writer, 0x1FF);
    EXPECT_EQ(hex(out.octets()), "01FFA5");
    EXPECT_EQ(writer.pos, 2U);
}

TEST(OctetWriter, DropsWhatDoesNotFitAndCountsOn) {
    const GuardedBytes out(1);
    OctetWriter writer = {out.data(), 1, 0};
    for (u32 i = 1; i <= 3; i++) { putOctet(&writer, i); }
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(writer.pos, 3U);
}

TEST(OctetWriter, RoomIsNullWhenFewerOctetsFit) {
    const GuardedBytes out(4);
    OctetWriter writer = {out.data(), 4, 1};
    EXPECT_EQ(roomFor(&writer, 3), out.data() + 1);
    EXPECT_EQ(roomFor(&writer, 4), nullptr);
    EXPECT_EQ(roomFor(&writer, 0xFFFFFFFF), nullptr);
    writer.pos = 5;
    EXPECT_EQ(roomFor(&writer, 0), nullptr);
}

TEST(Octet, LowEightBitsAreKept) {
    EXPECT_EQ(low8(0x1FF), 0xFF);
    EXPECT_EQ(low8(0x100), 0x00);
    EXPECT_EQ(low8(0xFFFFFFFE), 0xFE);
}

TEST(Octet, NibblesAreSwapped) {
    for (u32 octet = 0; octet < 256; octet++) {
        EXPECT_EQ(swapNibbles(static_cast<u8>(octet)), octet % 16 * 16 + octet / 16);
    }
}
