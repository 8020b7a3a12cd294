// The parts of the contacts' commands that need no modem: numbers, names and limits, vCard and CSV.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/random.h"
#include "tools/contact.h"
#include "tools/contact_file.h"
#include "tools/failure.h"
#include "tools/text.h"

namespace {

using namespace smspb::cli;

bool contains(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

// What a call refuses with; empty when it does not.
template <typename Call> std::string refusalOf(Call call) {
    try {
        call();
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.exit, Exit::USAGE);
        EXPECT_FALSE(failure.hint.empty());
        return failure.what();
    }
    return "";
}

TEST(ContactNumbers, AreTakenAsPeopleWriteThem) {
    const struct {
        const char *written, *kept;
    } cases[] = {
        {               "+491701234567", "+491701234567"},
        {      "+49 (170) 123-45.67 / ", "+491701234567"},
        {                         "112",           "112"},
        {                       "*#06#",         "*#06#"},
        {               "030,22;33p4w5", "030p22w33p4w5"},
        {                     "1P2W3,4",       "1p2w3p4"},
        {"+49\u00A0170\u202F12\u201134",    "+491701234"},
        {                          " 7",             "7"},
        {                         "#1#",           "#1#"},
    };
    for (const auto &[written, kept] : cases) { EXPECT_EQ(toContactNumber(written), kept); }
}

TEST(ContactNumbers, WhatIsNoneIsRefusedWithTheCharacterThatIsWrong) {
    const struct {
        const char *written, *reason;
    } cases[] = {
        {        "",       "it has no digits"},
        {       "+",       "it has no digits"},
        {     "- -",       "it has no digits"},
        {      "pw",       "it has no digits"},
        {    "Anna",   "character 1 is \"A\""},
        {   "12+34",   "character 3 is \"+\""},
        {   "++123",   "character 2 is \"+\""},
        {  "123 x4",   "character 5 is \"x\""},
        {  "12\"34",  "character 3 is \"\"\""},
        {  "12\n34",  "character 3 is U+000A"},
        {"12\u202E",  "character 3 is U+202E"},
        {  "12\xFF",        "it is not UTF-8"},
        {  "１２", "character 1 is \"１\""},
    };
    for (const auto &one : cases) {
        const std::string refusal = refusalOf([&one] { toContactNumber(one.written); });
        EXPECT_TRUE(contains(refusal, one.reason)) << one.written << ": " << refusal;
    }
}

TEST(ContactNames, AreOneLineOfUtf8) {
    for (const char *name : {"", "Anna", "Анна", "安娜", "😀", " a ", "\"quoted\""}) {
        EXPECT_EQ(refusalOf([&] { checkName(name); }), "") << name;
    }
    EXPECT_TRUE(contains(refusalOf([] { checkName("An\xE9"); }), "octet 3 is 0xE9"));
    EXPECT_TRUE(contains(refusalOf([] { checkName("An\nna"); }), "U+000A at character 3"));
    EXPECT_TRUE(contains(refusalOf([] { checkName(std::string_view("a\0b", 3)); }), "U+0000"));
    EXPECT_TRUE(contains(refusalOf([] { checkName("\x7F"); }), "U+007F at character 1"));
}

TEST(ContactLimit, TheLastThatFitsIsTakenAndTheNextIsRefusedWithTheLimit) {
    const ContactLimits limits{"this SIM", 18, 20};
    const auto refusal = [&limits](const std::string &name, const std::string &number) {
        return refusalOf([&] { checkFits({1, name, number}, limits); });
    };
    EXPECT_EQ(refusal("123456789012345678", "12345678901234567890"), "");
    EXPECT_EQ(refusal("1234567890123456789", "1"),
              "\"1234567890123456789\" has 19 characters; this SIM takes 18");
    EXPECT_EQ(refusal("Bartholomäus van Houten", "1"),
              "\"Bartholomäus van Hou…\" has 23 characters; this SIM takes 18");
    EXPECT_EQ(refusal("Anna", "+12345678901234567890"),
              "\"Anna\": number +12345678901234567890 has 21 characters; this SIM takes 20");
    EXPECT_EQ(refusal("", "123456789012345678901"),
              "number 123456789012345678901 has 21 characters; this SIM takes 20");
}

TEST(ContactLimit, AnEmojiCountsAsTwo) {
    const ContactLimits limits{"this modem", 4, 20};
    EXPECT_EQ(refusalOf([&] { checkFits({1, "😀😀", "1"}, limits); }), "");
    EXPECT_EQ(refusalOf([&] {
                  checkFits({1, "😀😀a", "1"}, limits);
              }),
              "\"😀😀a\" has 5 characters (an emoji counts as two); this modem takes 4");
}

TEST(Contacts, AreTheSameWhereverTheyLieAndHoweverTheyPause) {
    EXPECT_TRUE(isSame({1, "Anna", "1p2"}, {7, "Anna", "1P2"}));
    EXPECT_FALSE(isSame({1, "Anna", "12"}, {1, "anna", "12"}));
    EXPECT_FALSE(isSame({1, "Anna", "12"}, {1, "Anna", "123"}));
}

// "line name number" of the entries, "line: text" of the problems.
std::vector<std::string> told(const ContactFile &file) {
    std::vector<std::string> lines;
    for (const FileEntry &entry : file.entries) {
        lines.push_back(std::to_string(entry.line) + " " + entry.name + " " + entry.number);
    }
    for (const FileProblem &problem : file.problems) {
        lines.push_back(std::to_string(problem.line) + ": " + problem.text);
    }
    return lines;
}

using Lines = std::vector<std::string>;

std::string card(const std::string &properties) {
    return "BEGIN:VCARD\r\nVERSION:3.0\r\n" + properties + "END:VCARD\r\n";
}

TEST(Vcard, ACardGivesItsNameAndNumber) {
    EXPECT_EQ(told(parseVcards(card("N:Müller;Anna;;;\r\nFN:Anna Müller\r\nTEL:+4917012\r\n"))),
              (Lines{"5 Anna Müller +4917012"}));
}

TEST(Vcard, ThePropertiesComeInManyForms) {
    const struct {
        const char *properties, *entry;
    } cases[] = {
        {                                    "FN:A\nTEL;TYPE=CELL,VOICE:1\n",              "4 A 1"},
        {                                 "FN:A\r\ntel;type=\"a:b;c\":1\r\n",              "4 A 1"},
        {                                      "FN:A\r\nTEL;CELL;PREF:1\r\n",              "4 A 1"},
        {                                    "item1.FN:A\r\nitem2.TEL:1\r\n",              "4 A 1"},
        {                                 "FN;CHARSET=UTF-8:Ä\r\nTEL:1\r\n",             "4 Ä 1"},
        {                                 "FN;CHARSET=utf-8:Ä\r\nTEL:1\r\n",             "4 Ä 1"},
        {                    "FN:A\r\nTEL;VALUE=uri:tel:+1-555-01;ext=7\r\n",      "4 A +1-555-01"},
        {                                        "FN:A\r\nTEL:TEL:+1555\r\n",          "4 A +1555"},
        {                         "FN:B\\, A\\; \\\\ C\r\nTEL:1\\,2\\;3\r\n", "4 B, A; \\ C 1,2;3"},
        {                          "FN:An\r\n na\r\nTEL:12\r\n\t3\r\n 4\r\n",        "5 Anna 1234"},
        {                                       "FN:An\r\n  na\r\nTEL:1\r\n",          "5 An na 1"},
        {                                        "FN:a\\nb\\Nc\r\nTEL:1\r\n",        "4 a\nb\nc 1"},
        {                                     "FN:100% \\: a\\\r\nTEL:1\r\n",     "4 100% : a\\ 1"},
        {                                  "N:Doe;John;Q.;Dr.;\r\nTEL:1\r\n",    "4 John Q. Doe 1"},
        {                                               "N:Doe\r\nTEL:1\r\n",            "4 Doe 1"},
        {                                      "N:D\\;oe;J\\,n\r\nTEL:1\r\n",       "4 J,n D;oe 1"},
        {             "FN:\r\nN:;;;;\r\nORG:Acme\\, Inc.;Sales\r\nTEL:1\r\n",     "6 Acme, Inc. 1"},
        {                                                        "TEL:1\r\n",               "3  1"},
        {                                             "TEL:1\r\nFN:Late\r\n",           "3 Late 1"},
        {"NOTE:x\r\nPHOTO;ENCODING=b:AAAA\r\n BBBB\r\nFN:A\r\n\r\nTEL:1\r\n",              "8 A 1"},
        {                          "X-ODD;P=\"x\":\xFF\r\nFN:A\r\nTEL:1\r\n",              "5 A 1"},
    };
    for (const auto &[properties, entry] : cases) {
        EXPECT_EQ(told(parseVcards(card(properties))), (Lines{entry})) << properties;
    }
}

TEST(Vcard, EachNumberOfACardIsAnEntry) {
    EXPECT_EQ(told(parseVcards(card("FN:Anna\r\nTEL:1\r\nTEL:\r\nTEL;TYPE=HOME:2\r\n"))),
              (Lines{"4 Anna 1", "6 Anna 2"}));
}

TEST(Vcard, AByteOrderMarkBlankLinesAndAnyCaseAreTaken) {
    EXPECT_EQ(told(parseVcards("\xEF\xBB\xBF\r\n\nbegin:vcard \nfn:A\nTel:1\nEnd:vCard\n\n")),
              (Lines{"5 A 1"}));
    EXPECT_EQ(told(parseVcards("BEGIN:VCARD\nFN:A\nTEL:1\nEND:VCARD")), (Lines{"3 A 1"}));
}

TEST(Vcard, WhatIsWrongIsToldWithItsLineAndTheOtherCardsAreRead) {
    const std::string good = card("FN:Good\r\nTEL:1\r\n");
    const struct {
        std::string text, problem;
    } cases[] = {
        {                                                         card("FN:A\r\n"),"1: \"A\" has no number (TEL)"                                                                                   },
        {                                                  card("FN:A\r\nTEL\r\n"),                            "4: it has no \":\""},
        {card("FN:A\r\nTEL:1\r\nADR;ENCODING=QUOTED-PRINTABLE:=C3=A4=\r\n=C3\r\n"),
         "5: QUOTED-PRINTABLE (of vCard 2.1) is not read; export the contacts as vCard 3.0"                                        },
        {                          card("FN;QUOTED-PRINTABLE:=C3=A4\r\nTEL:1\r\n"),
         "3: QUOTED-PRINTABLE (of vCard 2.1) is not read; export the contacts as vCard 3.0"                                        },
        {                             card("FN;CHARSET=ISO-8859-1:A\r\nTEL:1\r\n"),
         "3: CHARSET=ISO-8859-1 is not read; UTF-8 is"                                                                             },
        {                                  card("FN;ENCODING=b:QQ==\r\nTEL:1\r\n"),                   "3: FN in BASE64 is not read"},
        {                                      card("FN;BASE64:QQ==\r\nTEL:1\r\n"),                   "3: FN in BASE64 is not read"},
        {                                         card("FN:Andr\xE9\r\nTEL:1\r\n"),                 "3: not UTF-8: octet 8 is 0xE9"},
        {                                       "BEGIN:VCARD\r\nFN:A\r\nTEL:1\r\n", "1: the card that begins here has no END:VCARD"},
        {                                         "FN:A\r\nTEL:1\r\nEND:VCARD\r\n",             "1: a card begins with BEGIN:VCARD"},
        {                                                              "hello\r\n",             "1: a card begins with BEGIN:VCARD"},
    };
    for (const auto &[text, problem] : cases) {
        const Lines alone = told(parseVcards(text));
        EXPECT_EQ(alone, (Lines{problem})) << text;
        // A good card behind it is read all the same.
        const Lines both = told(parseVcards(text + good));
        ASSERT_EQ(both.size(), 2U) << text;
        EXPECT_TRUE(both[0].ends_with(" Good 1")) << both[0];
        EXPECT_EQ(both[1], problem);
    }
}

TEST(Vcard, EveryCutOfAFileIsAProblemOrABeginning) {
    const std::string text = card("FN:Anna\r\nTEL:123\r\n") + card("FN:Bob\r\nTEL:456\r\n");
    for (std::size_t length = 0; length < text.size(); length++) {
        const ContactFile file = parseVcards(text.substr(0, length));
        EXPECT_LE(file.entries.size(), 2U);
        EXPECT_LE(file.problems.size(), 1U) << length;
        for (const FileEntry &entry : file.entries) {
            EXPECT_EQ(entry.number, entry.name == "Anna" ? "123" : "456") << length;
        }
    }
}

// RFC 2426, 2.6: at most 75 octets, the line end apart.
TEST(Vcard, IsWrittenInShortLinesOfWholeCharacters) {
    std::string name;
    for (int i = 0; i < 100; i++) { name += "安é,"; }
    const std::string text = formatVcards({
        {1, name, "+49"}
    });
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find("\r\n", start);
        ASSERT_NE(end, text.npos);
        EXPECT_LE(end - start, 75U);
        EXPECT_FALSE(findInvalidUtf8(text.substr(start, end - start)));
        start = end + 2;
    }
    EXPECT_EQ(parseVcards(text).entries.at(0).name, name);
}

TEST(Vcard, IsWrittenAsVersionThree) {
    EXPECT_EQ(formatVcards({
                  {3, "Müller, Anna; \\", "+49p1"},
                  {4,                "No",      ""}
    }),
              "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Müller\\, Anna\\; \\\\;;;;\r\n"
              "FN:Müller\\, Anna\\; \\\\\r\nTEL:+49p1\r\nEND:VCARD\r\n"
              "BEGIN:VCARD\r\nVERSION:3.0\r\nN:No;;;;\r\nFN:No\r\nEND:VCARD\r\n");
}

TEST(Csv, TheColumnsAreFoundByTheirNames) {
    const struct {
        const char *text;
        Lines told;
    } cases[] = {
        {                        "name,number\r\nAnna,1\r\n",                {"2 Anna 1"}},
        {                              "name,number\nAnna,1",                {"2 Anna 1"}},
        {                      "Number,x, NAME \n1,y,Anna\n",                {"2 Anna 1"}},
        {                            "name;number\nAnna;1\n",                {"2 Anna 1"}},
        {                          "name\tnumber\nAnna\t1\n",                {"2 Anna 1"}},
        {"\xEF\xBB\xBF\"name\",\"number\"\n\"Anna\",\"1\"\n",                {"2 Anna 1"}},
        {     "name,number\n\n\"a \"\"b\"\", c\",1\n\nd,2\n", {"3 a \"b\", c 1", "5 d 2"}},
        {                 "name,number\n\"a\r\nb\",1\nc,2\n",     {"2 a\r\nb 1", "4 c 2"}},
        {                            "name,number\n,1\nb,\n",            {"2  1", "3 b "}},
        {                                    "name,number\n",                          {}},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(told(parseCsv(text)), expected) << text;
    }
}

TEST(Csv, WhatIsWrongIsToldWithItsLineAndTheOtherRowsAreRead) {
    const struct {
        const char *text;
        Lines told;
    } cases[] = {
        {                                 "",{"1: the first line does not name the columns name and number"}                                             },
        {                         "Anna,1\n", {"1: the first line does not name the columns name and number"}},
        {             "name,phone\nAnna,1\n", {"1: the first line does not name the columns name and number"}},
        {"name,number\nSmith, John,1\nB,2\n",               {"3 B 2", "2: it has 3 fields, the first line 2"}},
        {            "name,number\nA\nB,2\n",                {"3 B 2", "2: it has 1 field, the first line 2"}},
        {     "name,number\nA\"x\",1\nB,2\n",
         {"3 B 2", "2: a quote stands within a field that does not begin with one"}                          },
        {     "name,number\n\"A\"x,1\nB,2\n",
         {"3 B 2", "2: something stands between a field's closing quote and its end"}                        },
        {   "name,number\nB,2\n\"A,1\nC,3\n",
         {"2 B 2", "3: a field begins with a quote that is not closed"}                                      },
        {      "name,number\nA\xE9,1\nB,2\n",                      {"3 B 2", "2: not UTF-8: octet 2 is 0xE9"}},
        {                   "name,num\xE9\n",                               {"1: not UTF-8: octet 9 is 0xE9"}},
    };
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(told(parseCsv(text)), expected) << text;
    }
}

TEST(Csv, IsWrittenWithQuotesWhereTheyAreNeeded) {
    EXPECT_EQ(formatCsv({
                  {1,     "Anna", "+49"},
                  {2, "a, \"b\"",  "1p"},
                  {3,     "x\ny",    ""}
    }),
              "name,number\r\nAnna,+49\r\n\"a, \"\"b\"\"\",1p\r\n\"x\ny\",\r\n");
}

TEST(ContactFiles, AreToldByWhatStandsInThemOrByTheirNames) {
    EXPECT_EQ(formatOfContent("\xEF\xBB\xBF\n begin:vcard\n"), FileFormat::VCARD);
    EXPECT_EQ(formatOfContent("name,number\n"), FileFormat::CSV);
    EXPECT_EQ(formatOfContent(""), FileFormat::CSV);
    EXPECT_EQ(formatOfName("a.CSV"), FileFormat::CSV);
    EXPECT_EQ(formatOfName("a.csv.vcf"), FileFormat::VCARD);
    EXPECT_EQ(formatOfName("-"), FileFormat::VCARD);
}

// Names of what breaks the formats, letters of one to four octets and blanks.
std::string randomName(support::Random &random) {
    static constexpr std::u32string_view CHARACTERS = U"ab ,;:\\\"\n=\tnN.é€安😀 ";
    std::u32string name;
    for (u32 length = random.below(60); length > 0; length--) {
        name += CHARACTERS[random.below(static_cast<u32>(CHARACTERS.size()))];
    }
    return toUtf8(name);
}

TEST(ContactFiles, RandomContactsComeBackFromBothFormats) {
    support::Random random(1);
    for (int round = 0; round < 500; round++) {
        std::vector<Contact> contacts;
        for (u32 i = 0; i < 5; i++) {
            contacts.push_back({i, randomName(random), std::to_string(random.below(100000))});
        }
        for (const FileFormat format : {FileFormat::VCARD, FileFormat::CSV}) {
            const std::string text = formatContacts(contacts, format);
            const ContactFile file = parseContacts(text, format);
            ASSERT_TRUE(file.problems.empty()) << text << file.problems[0].text;
            ASSERT_EQ(file.entries.size(), contacts.size()) << text;
            for (std::size_t i = 0; i < contacts.size(); i++) {
                ASSERT_EQ(file.entries[i].name, contacts[i].name) << text;
                ASSERT_EQ(file.entries[i].number, contacts[i].number) << text;
            }
        }
    }
}

// Whatever stands in a file: no more entries than lines, and every line number within it.
TEST(ContactFiles, RandomTextIsReadToItsEndWithLineNumbersThatExist) {
    static constexpr const char *PIECES[] = {"BEGIN:VCARD",
                                             "END:VCARD",
                                             "FN:",
                                             "N:",
                                             "TEL:",
                                             "TEL;",
                                             "\r\n",
                                             "\n",
                                             "\r",
                                             " ",
                                             "\"",
                                             ",",
                                             ";",
                                             ":",
                                             "=",
                                             "\\",
                                             "name,number\n",
                                             "1",
                                             "é",
                                             "\xFF",
                                             "ENCODING="};
    support::Random random(2);
    for (int round = 0; round < 5000; round++) {
        std::string text = round % 2 == 0 ? "name,number\n" : "";
        for (u32 count = random.below(30); count > 0; count--) {
            text += PIECES[random.below(std::size(PIECES))];
        }
        const auto lineCount =
            static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
        for (const FileFormat format : {FileFormat::VCARD, FileFormat::CSV}) {
            const ContactFile file = parseContacts(text, format);
            ASSERT_LE(file.entries.size() + file.problems.size(), lineCount) << text;
            for (const FileEntry &entry : file.entries) {
                ASSERT_LE(entry.line, lineCount) << text;
            }
            for (const FileProblem &problem : file.problems) {
                ASSERT_LE(problem.line, lineCount) << text;
            }
        }
    }
}

} // namespace
