// The parts of listen and ussd that need no process: the modem's lines told apart, what comes in
// pieces joined, the texts of pages and USSD answers, the record of what was sent.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include "atlib/SmsEncoding.h"
#include "atlib/SmsUtils.h"
#include "tools/cbs_coding.h"
#include "tools/cell_broadcast.h"
#include "tools/events.h"
#include "tools/joining.h"
#include "tools/sent_record.h"
#include "tools/text.h"
#include "tools/ussd_answer.h"

namespace {

using namespace smspb::cli;
using namespace std::chrono_literals;
using What = Indication::What;
using Texts = std::vector<std::string>;
using Octets = std::vector<u8>;
using Time = std::chrono::steady_clock::time_point;

// "hello" from +12345678901, without a service centre.
const std::string DELIVER = "00040B912143658709F100006230018000000005E8329BFD06";

TEST(Reports, ANotificationIsCutIntoItsReports) {
    const struct {
        std::string payload;
        Texts reports;
    } cases[] = {
        {                                                  "",{}                                                              },
        {                                          "\r\n\r\n",                                     {}},
        {                                          "RING\r\n",                               {"RING"}},
        {              "\r\nRING\r\n\r\n+CLIP: \"1\",129\r\n",           {"RING", "+CLIP: \"1\",129"}},
        {                             "+CMT: ,24\r\n0011\r\n",                  {"+CMT: ,24\r\n0011"}},
        {                 "+CMT: ,24\r\n\r\n0011\r\nRING\r\n",          {"+CMT: ,24\r\n0011", "RING"}},
        {                    "+CDS: 24\n0011\n+CBM: 88\n22\n", {"+CDS: 24\r\n0011", "+CBM: 88\r\n22"}},
        {                  "+CMT: ,24\r\n+CMTI: \"SM\",1\r\n",       {"+CMT: ,24", "+CMTI: \"SM\",1"}},
        {                "+CMTI: \"SM\",1\r\n+CMTI: \"SM\",2", {"+CMTI: \"SM\",1", "+CMTI: \"SM\",2"}},
        {"+CUSD: 1,\"a\r\n+CMTI: b\r\n\r\nc\",15\r\nRING\r\n",
         {"+CUSD: 1,\"a\r\n+CMTI: b\r\n\r\nc\",15", "RING"}                                          },
        {               "+CUSD: 0,\"never closed\r\nRING\r\n",    {"+CUSD: 0,\"never closed\r\nRING"}},
        {                              "+CUSD: 2\r\nRING\r\n",                   {"+CUSD: 2", "RING"}},
    };
    for (const auto &row : cases) { EXPECT_EQ(splitReports(row.payload), row.reports); }
}

TEST(Reports, LinesAreToldApart) {
    const struct {
        std::string line;
        What what;
        std::string storage;
        u32 index;
        std::string pdu, text;
    } cases[] = {
        {                  "+CMTI: \"SM\",3",        What::STORED, "SM",   3,     "",              ""},
        {                "+CMTI:\"ME\", 255",        What::STORED, "ME", 255,     "",              ""},
        {                  "+CDSI: \"SR\",0", What::STORED_REPORT, "SR",   0,     "",              ""},
        {                "+CMT: ,24\r\n0011",        What::DIRECT,   "",   0, "0011",              ""},
        {                 "+CDS: 24\r\n0011", What::DIRECT_REPORT,   "",   0, "0011",              ""},
        {                 "+CBM: 88\r\n00AA",          What::PAGE,   "",   0, "00AA",              ""},
        {             "+CUSD: 0,\"text\",15",          What::USSD,   "",   0,     "",              ""},
        {                             "RING",          What::RING,   "",   0,     "",              ""},
        {                    "+CRING: VOICE",          What::RING,   "",   0,     "",         "VOICE"},
        {"+CLIP: \"+491701234567\",145,,,,0",        What::CALLER,   "",   0,     "", "+491701234567"},
        {             "+CLIP: \"\",128,,,,1",        What::CALLER,   "",   0,     "",              ""},
        {                 "Sim card removed",         What::OTHER,   "",   0,     "",              ""},
        {                            "RINGS",         What::OTHER,   "",   0,     "",              ""},
 // What lacks a part of its form.
        {                    "+CMTI: \"SM\"",         What::OTHER,   "",   0,     "",              ""},
        {                   "+CMTI: \"SM\",",         What::OTHER,   "",   0,     "",              ""},
        {                  "+CMTI: \"SM\",x",         What::OTHER,   "",   0,     "",              ""},
        {         "+CMTI: \"SM\",4294967296",         What::OTHER,   "",   0,     "",              ""},
        {                      "+CMTI: SM,1",         What::OTHER,   "",   0,     "",              ""},
        {                    "+CMTI: \"\",1",         What::OTHER,   "",   0,     "",              ""},
        {      "+CMTI: \"SM\"\";+CMGD=1\",1",         What::OTHER,   "",   0,     "",              ""},
        {                 "+CMTI: \"S;M\",1",         What::OTHER,   "",   0,     "",              ""},
        {         "+CMTI: \"MUCHTOOLONG\",1",         What::OTHER,   "",   0,     "",              ""},
        {                        "+CMT: ,24",         What::OTHER,   "",   0,     "",              ""},
        {                          "+CUSD: ",         What::OTHER,   "",   0,     "",              ""},
        {                       "+CLIP: 123",         What::OTHER,   "",   0,     "",              ""},
    };
    for (const auto &row : cases) {
        const Indication found = classify(row.line);
        EXPECT_EQ(found.what, row.what) << row.line;
        EXPECT_EQ(found.raw, row.line);
        if (row.what == What::OTHER) { continue; }
        EXPECT_EQ(found.storage, row.storage) << row.line;
        EXPECT_EQ(found.index, row.index) << row.line;
        EXPECT_EQ(found.pdu, row.pdu) << row.line;
        EXPECT_EQ(found.text, row.text) << row.line;
    }
}

// Whatever is cut off, each octet of the rest comes out in one report, and becomes an event.
TEST(Reports, ALineCutAnywhereIsStillAnEvent) {
    const Texts whole = {
        "+CMTI: \"SM\",3\r\n",
        "+CDSI: \"SM\",12\r\n",
        "+CMT: ,24\r\n" + DELIVER + "\r\n",
        "+CBM: 88\r\n0010003201110103\r\n",
        "+CUSD: 1,\"a \"b\" c\r\nd\",15\r\n",
        "+CLIP: \"+491701234567\",145\r\n",
        "RING\r\n",
    };
    for (const std::string &line : whole) {
        for (std::size_t size = 1; size <= line.size(); size++) {
            const Texts reports = splitReports(line.substr(0, size));
            if (line.substr(0, size).find_first_not_of("\r\n") == std::string::npos) { continue; }
            ASSERT_EQ(reports.size(), 1U) << line.substr(0, size);
            const Indication found = classify(reports[0]);
            const bool speaksForItself = found.what == What::OTHER || found.what == What::USSD ||
                                         found.what == What::RING || found.what == What::CALLER;
            const Event event = speaksForItself ? plainEvent(found, "2026-01-03T12:00:01+00:00")
                                                : brokenEvent(found, "cut", "2026-01-03T12:00:01");
            EXPECT_EQ(event.json["raw"][0], reports[0]);
            EXPECT_FALSE(lineOf(event).empty());
        }
    }
}

TEST(Reports, AnyOctetsAreEventsWithoutHarm) {
    std::mt19937 random(20260103);
    const std::string alphabet = "+CMTIDSBUGRN:\",0123456789ABCDEF \r\n;\x1b\x80\xFF";
    for (int round = 0; round < 20000; round++) {
        std::string payload = round % 2 == 0 ? "+CUSD:" : "+C";
        for (std::size_t i = random() % 40; i > 0; i--) {
            payload += alphabet[random() % alphabet.size()];
        }
        for (std::string &report : splitReports(payload)) {
            const Indication found = classify(std::move(report));
            const bool speaksForItself = found.what == What::OTHER || found.what == What::USSD ||
                                         found.what == What::RING || found.what == What::CALLER;
            const Event event = speaksForItself ? plainEvent(found, "2026-01-03T12:00:01+00:00")
                                                : brokenEvent(found, "no", "2026-01-03T12:00:01");
            const std::string line = lineOf(event);
            EXPECT_FALSE(findInvalidUtf8(line));
            EXPECT_EQ(line.find_first_of("\r\n\x1b"), std::string::npos);
            EXPECT_FALSE(Json::parse(serialized(event.json, true), nullptr, false).is_discarded());
        }
    }
}

Stored part(unsigned number, unsigned total, std::u16string text, u16 reference = 7,
            std::int64_t seconds = 0, const std::string &from = "+1") {
    Message message;
    message.number = from;
    message.seconds = seconds;
    message.part = Part{reference, total, number};
    message.text = std::move(text);
    Stored stored;
    stored.message = message;
    stored.pdu = "00";
    stored.announced = "+CMT: ,1";
    return stored;
}

constexpr Time START{};

TEST(Joiner, APartIsHeldUntilTheLastOneComes) {
    Joiner<PartGroup> joiner(300s);
    EXPECT_FALSE(joiner.add(part(2, 3, u"b"), START));
    EXPECT_FALSE(joiner.add(part(3, 3, u"c"), START));
    auto group = joiner.add(part(1, 3, u"a"), START);
    ASSERT_TRUE(group);
    EXPECT_EQ(textOf(group->take()), "abc");
    EXPECT_EQ(joiner.size(), 0U);
    EXPECT_FALSE(joiner.deadline());
}

TEST(Joiner, AMessageOfOnePartComesAtOnce) {
    Joiner<PartGroup> joiner(300s);
    Stored whole = part(1, 1, u"a");
    whole.message->part.reset();
    EXPECT_TRUE(joiner.add(whole, START));
    EXPECT_TRUE(joiner.add(part(1, 1, u"a"), START));
}

TEST(Joiner, WhatIsIncompleteIsGivenUpAfterTheWaitForItsNextPart) {
    Joiner<PartGroup> joiner(300s);
    joiner.add(part(1, 3, u"a"), START);
    joiner.add(part(3, 3, u"c"), START + 200s);
    EXPECT_EQ(joiner.deadline(), START + 500s);
    EXPECT_FALSE(joiner.takeOverdue(START + 499s));
    auto group = joiner.takeOverdue(START + 500s);
    ASSERT_TRUE(group);
    const Event event = messageEvent(group->take(), "2026-01-03T12:00:01+00:00");
    EXPECT_EQ(event.json["complete"], false);
    EXPECT_EQ(event.json["parts"], Json({
                                       {  "total",      3},
                                       {"present", {1, 3}}
    }));
    EXPECT_EQ(lineOf(event),
              "2026-01-03 12:00:01  message  +1               [incomplete, 2 of 3 parts] a[…]c");
    EXPECT_FALSE(joiner.takeOverdue(START + 9999s));
}

TEST(Joiner, PartsOfOtherMessagesAreKeptApart) {
    const std::pair<Stored, Stored> pairs[] = {
        {part(1, 2, u"a"), part(2, 2,  u"b", 8)}, // reference
        {part(1, 2, u"a"), part(2, 3, u"b")   }, // total
        {part(1, 2, u"a"), part(2, 2,  u"b",  7, 0, "+2")}, // sender
        {part(1, 2, u"a"), part(2, 2,  u"b",  7, 3601)}, // an hour later
        {part(1, 2, u"a"), part(1, 2, u"b")   }, // the same part again
    };
    for (const auto &[first, second] : pairs) {
        Joiner<PartGroup> joiner(300s);
        EXPECT_FALSE(joiner.add(first, START));
        EXPECT_FALSE(joiner.add(second, START));
        EXPECT_EQ(joiner.size(), 2U);
    }
}

TEST(Joiner, AFloodOfFirstPartsStaysBoundedAndLosesNothing) {
    Joiner<PartGroup> joiner(300s);
    unsigned given = 0;
    for (u16 reference = 0; reference < 1000; reference++) {
        joiner.add(part(1, 2, u"a", reference), START + std::chrono::milliseconds(reference));
        while (joiner.takeOverdue(START + 1s)) { given++; }
        EXPECT_LE(joiner.size(), 256U);
    }
    while (joiner.takeAny()) { given++; }
    EXPECT_EQ(given, 1000U);
}

// Any number of messages, their parts in any order: each comes out whole and once.
TEST(Joiner, ShuffledPartsOfManyMessagesComeOutWholeAndOnce) {
    std::mt19937 random(7);
    for (int round = 0; round < 50; round++) {
        std::vector<Stored> parts;
        std::map<std::string, int> expected;
        for (u16 reference = 0; reference < 40; reference++) {
            const auto total = static_cast<unsigned>(1 + random() % 6);
            std::u16string whole;
            for (unsigned number = 1; number <= total; number++) {
                const std::u16string text(1 + random() % 5,
                                          static_cast<char16_t>(u'a' + random() % 26));
                parts.push_back(part(number, total, text, reference));
                whole += text;
            }
            expected[std::to_string(reference) + toUtf8(whole)]++;
        }
        std::shuffle(parts.begin(), parts.end(), random);
        Joiner<PartGroup> joiner(300s);
        std::map<std::string, int> given;
        for (Stored &one : parts) {
            const u16 reference = one.message->part->reference;
            if (auto group = joiner.add(std::move(one), START)) {
                given[std::to_string(reference) + textOf(group->take())]++;
            }
        }
        EXPECT_EQ(given, expected);
        EXPECT_EQ(joiner.size(), 0U);
    }
}

TEST(CbsCoding, TheGroupsOfTheStandardAreToldApart) {
    const struct {
        u8 dcs;
        Alphabet alphabet;
        std::string_view language;
        bool startsWithLanguage, hasHeader, isCompressed;
        std::optional<u32> messageClass;
    } cases[] = {
        {0x00, Alphabet::SEPTETS, "de", false, false, false, {}},
        {0x01, Alphabet::SEPTETS, "en", false, false, false, {}},
        {0x0E, Alphabet::SEPTETS, "pl", false, false, false, {}},
        {0x0F, Alphabet::SEPTETS,   "", false, false, false, {}},
        {0x10, Alphabet::SEPTETS,   "",  true, false, false, {}},
        {0x11,    Alphabet::UCS2,   "",  true, false, false, {}},
        {0x12, Alphabet::SEPTETS,   "", false, false, false, {}}, // reserved
        {0x20, Alphabet::SEPTETS, "cs", false, false, false, {}},
        {0x24, Alphabet::SEPTETS, "is", false, false, false, {}},
        {0x25, Alphabet::SEPTETS,   "", false, false, false, {}}, // reserved
        {0x30, Alphabet::SEPTETS,   "", false, false, false, {}}, // reserved
        {0x40, Alphabet::SEPTETS,   "", false, false, false, {}},
        {0x44,  Alphabet::OCTETS,   "", false, false, false, {}},
        {0x48,    Alphabet::UCS2,   "", false, false, false, {}},
        {0x4C, Alphabet::SEPTETS,   "", false, false, false, {}}, // reserved
        {0x59,    Alphabet::UCS2,   "", false, false, false,  1},
        {0x64,  Alphabet::OCTETS,   "", false, false,  true, {}},
        {0x72, Alphabet::SEPTETS,   "", false, false,  true,  2},
        {0x80, Alphabet::SEPTETS,   "", false, false, false, {}}, // reserved
        {0x90, Alphabet::SEPTETS,   "", false,  true, false,  0},
        {0x99,    Alphabet::UCS2,   "", false,  true, false,  1},
        {0xA8, Alphabet::SEPTETS,   "", false, false, false, {}}, // reserved
        {0xF1, Alphabet::SEPTETS,   "", false, false, false,  1},
        {0xF6,  Alphabet::OCTETS,   "", false, false, false,  2},
    };
    for (const auto &row : cases) {
        const CbsCoding coding = cbsCoding(row.dcs);
        EXPECT_EQ(coding.alphabet, row.alphabet) << int(row.dcs);
        EXPECT_EQ(coding.language, row.language) << int(row.dcs);
        EXPECT_EQ(coding.startsWithLanguage, row.startsWithLanguage) << int(row.dcs);
        EXPECT_EQ(coding.hasHeader, row.hasHeader) << int(row.dcs);
        EXPECT_EQ(coding.isCompressed, row.isCompressed) << int(row.dcs);
        EXPECT_EQ(coding.messageClass, row.messageClass) << int(row.dcs);
    }
}

Octets octets(std::string_view hexadecimal) {
    const auto found = octetsFrom(hexadecimal);
    EXPECT_TRUE(found) << hexadecimal;
    return found.value_or(Octets());
}

// Packs the septets of an ASCII text, with CR behind it up to a number of octets.
Octets packed(const std::string &text, std::size_t size = 0) {
    Octets septets(text.begin(), text.end());
    septets.resize(std::max(septets.size(), size * 8 / 7), '\r');
    Octets packedOctets(septets.size() * 7 / 8 + 1);
    const u16 count =
        wms_ts_pack_gw_7_bit_chars(septets.data(), static_cast<u16>(septets.size()), 0,
                                   static_cast<u16>(packedOctets.size()), packedOctets.data());
    packedOctets.resize(count);
    if (size != 0) { packedOctets.resize(size); }
    return packedOctets;
}

TEST(CbsText, TextsLoseTheirPaddingLanguageAndHeader) {
    const struct {
        u8 dcs;
        Octets content;
        std::string text, language;
    } cases[] = {
        {0x0F,                     packed("hello",    82),       "hello",   ""},
        {0x01,                     packed("hello",    82),       "hello", "en"},
        {0x10,               packed("fr\rbonjour",    82),     "bonjour", "fr"},
        {0x10,               packed("no language",    82), "no language",   ""},
        {0x48,         octets("004F004B000D000D"),   "OK",            ""     },
        {0x11, octets("E9320068006900210021000D"), "hi!!",          "ie"     }, // "ie" packed is E9 32
        {0x11,                 octets("00000068"),  "\0h",            ""     },
 // TS 23.040, 9.2.3.24: a header of 5 octets behind its length, then a fill bit.
        {0x90,         octets("05000302020190D0"),   "HP",            ""     },
        {0x99,               octets("0200000041"),    "A",            ""     },
        {0x99,                     octets("FF00"),     "",            ""     },
        {0x48,                                 {},     "",            ""     },
        {0x0F,                                 {},     "",            ""     },
    };
    for (const auto &row : cases) {
        const CbsText found = cbsText(cbsCoding(row.dcs), row.content);
        const std::string text = row.text.empty() && found.text.size() == 2 ? "\0h" : row.text;
        if (row.dcs == 0x11 && row.language.empty()) {
            EXPECT_EQ(found.text, (std::u16string{0, u'h'}));
            continue;
        }
        EXPECT_EQ(toUtf8(found.text), text) << int(row.dcs);
        EXPECT_EQ(found.language, row.language) << int(row.dcs);
        EXPECT_TRUE(found.data.empty());
    }
    EXPECT_EQ(cbsText(cbsCoding(0xF4), octets("0102FF")).data, octets("0102FF"));
    EXPECT_EQ(cbsText(cbsCoding(0x94), octets("02AABBCC")).data, octets("CC"));
}

TEST(CbsText, UnpackedSeptetsArePackedAgainToTheSameOctets) {
    std::mt19937 random(3);
    for (std::size_t count = 0; count <= 93; count++) {
        std::string text;
        for (std::size_t i = 0; i < count; i++) { text += static_cast<char>(1 + random() % 126); }
        const Octets septets = unpackSeptets(packed(text));
        ASSERT_GE(septets.size(), count);
        EXPECT_EQ(std::string(septets.begin(), septets.begin() + static_cast<long>(count)), text);
    }
}

TEST(Hexadecimal, OnlyPairsOfDigitsAreOctets) {
    EXPECT_EQ(octets("00ffA5"), (Octets{0x00, 0xFF, 0xA5}));
    for (const char *text : {"0", "0g", "g0", "-1", "+1", " 1", "1 ", "00 11", "0x11"}) {
        EXPECT_FALSE(octetsFrom(text)) << text;
    }
}

Octets pageOctets(unsigned number, unsigned total, const std::string &text, u16 serial = 0x1234) {
    Octets page = {static_cast<u8>(serial >> 8),
                   static_cast<u8>(serial & 0xFF),
                   0x00,
                   0x32,
                   0x01,
                   static_cast<u8>((number << 4 | total) & 0xFF)};
    const Octets content = packed(text, 82);
    page.insert(page.end(), content.begin(), content.end());
    return page;
}

TEST(Pages, AHeaderIsTakenApart) {
    const auto page = pageFrom(octets("C0100032481248656C"));
    ASSERT_TRUE(page);
    EXPECT_EQ(page->serial, 0xC010);
    EXPECT_EQ(page->channel, 50);
    EXPECT_EQ(page->dcs, 0x48);
    EXPECT_EQ(page->number, 1U);
    EXPECT_EQ(page->total, 2U);
    EXPECT_EQ(page->content, octets("48656C"));
    EXPECT_FALSE(pageFrom(octets("C010003248")));
    EXPECT_FALSE(pageFrom({}));
}

TEST(Pages, AnImpossiblePageNumberMeansOnePage) {
    for (const u8 parameter : Octets{0x00, 0x01, 0x10, 0x21, 0xF1}) {
        Octets all = pageOctets(1, 1, "x");
        all[5] = parameter;
        const auto page = pageFrom(all);
        ASSERT_TRUE(page);
        EXPECT_EQ(page->number, 1U) << int(parameter);
        EXPECT_EQ(page->total, 1U) << int(parameter);
    }
}

TEST(Pages, PagesAreJoinedInAnyOrderAndRepetitionsAreIgnored) {
    Joiner<PageGroup> joiner(300s);
    const std::string first(93, 'a');
    EXPECT_FALSE(joiner.add(*pageFrom(pageOctets(2, 2, "bcd")), START));
    EXPECT_FALSE(joiner.add(*pageFrom(pageOctets(2, 2, "bcd")), START));
    EXPECT_FALSE(joiner.add(*pageFrom(pageOctets(1, 2, "other", 0x9999)), START));
    const auto group = joiner.add(*pageFrom(pageOctets(1, 2, first)), START);
    ASSERT_TRUE(group);
    EXPECT_EQ(textOf(*group).text, first + "bcd");
    EXPECT_EQ(textOf(*group).language, "en");
    EXPECT_EQ(joiner.size(), 1U);
    const auto rest = joiner.takeAny();
    ASSERT_TRUE(rest);
    EXPECT_EQ(textOf(*rest).text, "other[…]");
    EXPECT_EQ(lineOf(pageEvent(*rest, "2026-01-03T12:00:01+00:00")),
              "2026-01-03 12:00:01  page     channel 50       [incomplete, 1 of 2 pages] other[…]");
}

TEST(UssdText, AnswersAreReadByTheirCodingFirstAndThenByWhatTheyCanBe) {
    const std::string balance = hexadecimal(packed("Your balance is 4.20 EUR"));
    const std::string sevenLong = hexadecimal(packed("Dial *1", 7)); // padded with CR
    const std::string eightLong = hexadecimal(packed("Dial *10"));
    const struct {
        std::string line;
        std::string text, coding;
    } cases[] = {
  // A text under the default alphabet, or none named.
        {            "+CUSD: 0,\"Your balance is 4.20\",15",           "Your balance is 4.20","text"                                                                                              },
        {                          "+CUSD: 0,\"Balance\",0",                        "Balance",             "text"},
        {                            "+CUSD: 0,\"Balance\"",                        "Balance",             "text"},
        {                        "+CUSD:0,\"Balance\", 15 ",                        "Balance",             "text"},
        {"+CUSD: 1,\"1: \"data\", 2: calls\r\n3: back\",15", "1: \"data\", 2: calls\n3: back",
         "text"                                                                                                  },
        {                                "+CUSD: 0,\"\",15",                               "",             "text"},
 // Digits alone.
        {                            "+CUSD: 0,\"4820\",15",                           "4820",             "text"},
        {                             "+CUSD: 0,\"123\",15",                            "123",             "text"},
        {                        "+CUSD: 0,\"12345678\",15",                       "12345678",             "text"},
 // Hexadecimal under the default alphabet: packed, units, characters.
        {                 "+CUSD: 0,\"" + balance + "\",15",       "Your balance is 4.20 EUR",        "GSM 7-bit"},
        {               "+CUSD: 0,\"" + sevenLong + "\",15",                        "Dial *1",        "GSM 7-bit"},
        {               "+CUSD: 0,\"" + eightLong + "\",15",                       "Dial *10",        "GSM 7-bit"},
        {                  "+CUSD: 0,\"" + balance + "\",1",       "Your balance is 4.20 EUR",        "GSM 7-bit"},
        {            "+CUSD: 0,\"00420061006C003A20AC\",15",                        "Bal:€",            "UCS-2"},
        {            "+CUSD: 0,\"42616C616E63653A2034\",15",                     "Balance: 4", "8-bit characters"},
        {                            "+CUSD: 0,\"FACE\",15",                           "FACE",             "text"},
 // UCS-2.
        {                        "+CUSD: 0,\"004F004B\",72",                             "OK",            "UCS-2"},
        {                    "+CUSD: 0,\"041F04400438\",72",                         "При",            "UCS-2"},
        {                    "+CUSD: 0,\"041f04400438\",72",                         "При",            "UCS-2"},
        {                        "+CUSD: 0,\"D83DDE00\",72",                           "😀",            "UCS-2"},
        {                         "+CUSD: 0,\"004F004\",72",                        "004F004",             "text"},
        {                          "+CUSD: 0,\"004F00\",72",                         "004F00",             "text"},
        {                    "+CUSD: 0,\"text already\",72",                   "text already",             "text"},
        {                        "+CUSD: 0,\"E9320068\",17",                              "h",            "UCS-2"},
 // 8-bit.
        {                            "+CUSD: 0,\"4F4B\",68",                             "OK",       "8-bit data"},
 // A coding beyond an octet.
        {                           "+CUSD: 0,\"text\",999",                           "text",             "text"},
    };
    for (const auto &row : cases) {
        const auto answer = ussdAnswerFrom(row.line);
        ASSERT_TRUE(answer) << row.line;
        EXPECT_EQ(answer->text, row.text) << row.line;
        EXPECT_EQ(answer->coding, row.coding) << row.line;
        EXPECT_TRUE(answer->data.empty()) << row.line;
    }
    EXPECT_EQ(contentOf(*ussdAnswerFrom("+CUSD: 0,\"00FF01\",68")), "00FF01");
}

TEST(UssdText, TheStatusStandsFirst) {
    const struct {
        std::string line, words;
        UssdStatus status;
    } cases[] = {
        {"+CUSD: 0,\"x\",15",                                        "",          UssdStatus::DONE},
        {"+CUSD: 1,\"x\",15",                       "waits for a reply",         UssdStatus::WAITS},
        {         "+CUSD: 2",                    "ended by the network",         UssdStatus::ENDED},
        {         "+CUSD: 3", "answered by another client of the modem",         UssdStatus::TAKEN},
        {         "+CUSD: 4",            "not supported by the network", UssdStatus::NOT_SUPPORTED},
        {         "+CUSD: 5",               "the network took too long",      UssdStatus::TIME_OUT},
    };
    for (const auto &row : cases) {
        const auto answer = ussdAnswerFrom(row.line);
        ASSERT_TRUE(answer) << row.line;
        EXPECT_EQ(answer->status, row.status);
        EXPECT_EQ(statusWords(answer->status), row.words);
        EXPECT_EQ(answer->string.has_value(), row.line.find('"') != std::string::npos);
    }
    for (const char *line : {"", "+CUSD", "+CUSD:", "+CUSD: ", "+CUSD: x", "+CUSD: -1",
                             "+CUSD: 99999999999", "+CUSE: 1"}) {
        EXPECT_FALSE(ussdAnswerFrom(line)) << line;
    }
}

TEST(UssdText, APackedTextOfAnyLengthIsReadAgain) {
    std::mt19937 random(11);
    const std::string letters = "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJ.,:";
    int misread = 0;
    for (int round = 0; round < 2000; round++) {
        std::string text;
        for (std::size_t i = 5 + random() % 155; i > 0; i--) {
            text += letters[random() % letters.size()];
        }
        const std::size_t octetCount = (text.size() * 7 + 7) / 8;
        const bool leavesSeven = octetCount % 7 == 0 && text.size() % 8 == 7;
        const Octets all = leavesSeven ? packed(text, octetCount) : packed(text);
        const auto answer = ussdAnswerFrom("+CUSD: 0,\"" + hexadecimal(all) + "\",15");
        ASSERT_TRUE(answer);
        misread += answer->text != text ? 1 : 0;
    }
    // Only a text whose octets are decimal digits, or characters, in hexadecimal could be.
    EXPECT_EQ(misread, 0);
}

TEST(UssdText, AnAnswerCutAnywhereIsReadWithoutHarm) {
    const std::string line = "+CUSD: 1,\"00480065006C006C006F\",72\r\n";
    for (std::size_t size = 0; size <= line.size(); size++) {
        const auto answer = ussdAnswerFrom(line.substr(0, size));
        EXPECT_EQ(answer.has_value(), size >= 8) << size;
    }
}

TEST(Events, TheEnvironmentTellsTheFieldsOfTheObject) {
    Stored message = part(1, 1, u"a'\"$(x)\n`y`");
    message.message->part.reset();
    message.message->time = "2026-01-03T12:00:00+01:00";
    message.message->text += u'\0';
    message.storage = "SM";
    message.index = 3;
    Joiner<PartGroup> joiner(1s);
    const Event event =
        messageEvent(joiner.add(message, START)->take(), "2026-01-03T12:00:01+01:00");
    const Texts variables = environmentOf(event);
    const std::set<std::string> all(variables.begin(), variables.end());
    for (const char *expected :
         {"SMSPB_KIND=message", "SMSPB_FROM=+1", "SMSPB_TEXT=a'\"$(x)\n`y` ",
          "SMSPB_TIME=2026-01-03T12:00:01+01:00", "SMSPB_SENT=2026-01-03T12:00:00+01:00",
          "SMSPB_COMPLETE=1", "SMSPB_STORAGE=SM", "SMSPB_INDEXES=3", "SMSPB_PDUS=00",
          "SMSPB_RAW=+CMT: ,1"}) {
        EXPECT_EQ(all.count(expected), 1U) << expected;
    }
    ASSERT_EQ(event.places.size(), 1U);
    EXPECT_EQ(event.places[0].index, 3U);
}

TEST(SentRecord, DamagedLinesAreLeftOut) {
    const std::string lines = linesOf({
        {100, 7, 1, 3, "+491701234567"},
        {101, 8, 2, 3,           "123"}
    });
    EXPECT_EQ(lines, "100 7 1 3 +491701234567\n101 8 2 3 123\n");
    for (std::size_t size = 0; size <= lines.size(); size++) {
        const std::size_t whole = size < 24 ? 0 : size < lines.size() ? 1 : 2;
        EXPECT_EQ(sentFrom(lines.substr(0, size)).size(), whole) << size;
    }
    EXPECT_EQ(sentFrom("x 7 1 3 1\n100 7 1 3 \n100 7 1 3\n\n100 7 1 3 9\n").size(), 1U);
}

class SentRecordFile : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "smspb-sent-XXXXXX").string();
        directory_ = mkdtemp(name.data());
        setenv("SMSPB_RUNTIME_DIR", directory_.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("SMSPB_RUNTIME_DIR");
        std::filesystem::remove_all(directory_);
    }
    std::filesystem::path directory_;
};

TEST_F(SentRecordFile, TheNewestMessageOfReferenceAndNumberIsFound) {
    EXPECT_FALSE(findSent(7, "+491701234567"));
    recordSent({100, 7, 1, 1, "+491701234567"});
    recordSent({200, 7, 2, 3, "01701234567"});
    recordSent({300, 7, 1, 1, "+491709999999"});
    recordSent({400, 8, 1, 1, "123"});
    ASSERT_TRUE(findSent(7, "+491701234567"));
    EXPECT_EQ(findSent(7, "+491701234567")->time, 200);
    EXPECT_EQ(findSent(7, "+491701234567")->segment, 2U);
    EXPECT_EQ(findSent(8, "123")->time, 400);
    EXPECT_FALSE(findSent(8, "9123"));
    EXPECT_FALSE(findSent(8, "+491701234567"));
    EXPECT_FALSE(findSent(9, "123"));
    const auto mode = std::filesystem::status(directory_ / "sent-messages").permissions();
    EXPECT_EQ(static_cast<int>(mode) & 0777, 0600);
}

TEST_F(SentRecordFile, ItIsBoundedAndKeepsTheNewest) {
    for (u32 i = 0; i < 300; i++) { recordSent({i, i, 1, 1, "+491701234567"}); }
    EXPECT_FALSE(findSent(43, "+491701234567"));
    EXPECT_TRUE(findSent(44, "+491701234567"));
    EXPECT_TRUE(findSent(299, "+491701234567"));
    EXPECT_LT(std::filesystem::file_size(directory_ / "sent-messages"), 64U * 1024);
}

} // namespace
