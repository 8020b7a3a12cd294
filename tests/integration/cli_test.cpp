// The command line tool as its users run it: the program, the modem manager and the simulated modem
// are real processes, and what they print is read back.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "comm/zeldcard_common.h"
#include "platform/ipc/ipc_server.h"
#include "support/tool.h"
#include "tools/text.h"

namespace {

using namespace support;

using Texts = std::vector<std::string>;

const Texts ROUND_TRIPS = {
    "Hello world",
    "",
    " leading and trailing blanks ",
    "mail me@example.com @@@@@@@@ @",
    "¡Hola! ¿Qué? £ $ ¥ è é ù ì ò Ø ø Å å Δ _ Φ Γ Λ Ω Π Ψ Σ Θ Ξ Æ æ ß É ¤ § Ä Ö Ñ Ü ä ö ñ ü à",
    "^{}[]~|\\ and €",
    "Γειά σου Κόσμε",
    "Привет, мир",
    "你好，世界",
    "emoji 😀👍🏽👨‍👩‍👧 and e\u0301",
    "two\nlines\r\nand three",
    "'quotes' \"double\" $HOME `x` %s %n \\n",
};

TEST_F(Tool, EncodedTextsDecodeToThemselves) {
    for (const std::string &text : ROUND_TRIPS) {
        const Json encoded = json({"encode", "+491701234567", "--", text});
        ASSERT_EQ(encoded["pdus"].size(), 1U) << text;
        const Json decoded = json({"decode", encoded["pdus"][0]["pdu"].get<std::string>()});
        EXPECT_EQ(decoded["text"], text);
        EXPECT_EQ(decoded["number"], "+491701234567");
        EXPECT_EQ(decoded["coding"], encoded["coding"]);
        EXPECT_EQ(decoded["kind"], "sent");
    }
}

TEST_F(Tool, EncodePrintsThePlanAndWhatTheModemTakes) {
    const Result result = run({"encode", "+491701234567", "hello"});
    EXPECT_EQ(result.code, OK);
    EXPECT_EQ(result.out, "to:          +491701234567\n"
                          "coding:      GSM 7-bit\n"
                          "characters:  5\n"
                          "segments:    1\n"
                          "\nAT+CMGS=18\n0001FF0C91947110325476000005E8329BFD06\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(Tool, EncodeCarriesReportAndReference) {
    const Json encoded =
        json({"encode", "--report", "--reference", "42", "123", std::string(161, 'x')});
    EXPECT_EQ(encoded["segments"], 2);
    EXPECT_EQ(encoded["segment_units"], Json({153, 8}));
    for (std::size_t i = 0; i < 2; i++) {
        const Json decoded = json({"decode", encoded["pdus"][i]["pdu"].get<std::string>()});
        EXPECT_EQ(decoded["part"], Json({
                                       {"reference",    42},
                                       {   "number", i + 1},
                                       {    "total",     2}
        }));
        EXPECT_EQ(decoded["report_requested"], true);
    }
}

TEST_F(Tool, TheDryRunSaysWhatForcesUcs2AndSendsNothing) {
    const Result result = run({"send", "--dry-run", "123", "Costs 5 € today 😀"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "to:          123\n"
                          "coding:      UCS-2\n"
                          "characters:  17 (18 16-bit units)\n"
                          "segments:    1\n"
                          "why UCS-2:   € U+20AC at character 9; write EUR instead\n"
                          "             😀 U+1F600 at character 17\n"
                          "nothing was sent\n");
    const Json plan = json({"send", "--dry-run", "123", "Costs 5 €"});
    EXPECT_EQ(plan["dry_run"], true);
    EXPECT_EQ(plan["forced_by"], Json::array({
                                     {{"character", "€"},
                                      {"code_point", "U+20AC"},
                                      {"position", 9},
                                      {"count", 1},
                                      {"instead", "EUR"}}
    }));
}

TEST_F(Tool, TheTextComesFromStandardInputWithoutItsLastLineEnd) {
    const auto text = [this](std::string_view input) {
        const Json encoded = json({"encode", "1", "-"}, input);
        return json({"decode", encoded["pdus"][0]["pdu"].get<std::string>()})["text"];
    };
    EXPECT_EQ(text("hello\n"), "hello");
    EXPECT_EQ(text("hello"), "hello");
    EXPECT_EQ(text("hello\r\n"), "hello");
    EXPECT_EQ(text("a\nb\n\n"), "a\nb\n");
    EXPECT_EQ(text("\xEF\xBB\xBFhello\n"), "hello");
}

TEST_F(Tool, AWordThatIsACommandIsAlsoAText) {
    EXPECT_EQ(json({"encode", "1", "inbox"})["characters"], 5);
    EXPECT_EQ(json({"encode", "1", "--", "--json"})["characters"], 6);
    EXPECT_EQ(json({"encode", "1", "--", "-5 degrees"})["characters"], 10);
}

TEST_F(Tool, ANumberThatIsNoneIsRefusedBeforeAnythingElse) {
    const struct {
        std::string number, what, hint;
    } cases[] = {
        {          "+49 170-123", "character 4 is a blank",            "write +49170123"},
        {             "(0170) 1",   "character 1 is \"(\"",                "write 01701"},
        {              "0170abc",   "character 5 is \"a\"", "optional + and then digits"},
        {               "49+170",   "character 3 is \"+\"", "optional + and then digits"},
        {                     "",              "no digits",                 "at most 20"},
        {                    "+",              "no digits",                 "at most 20"},
        {"123456789012345678901",          "21 characters",                 "at most 20"},
        {"+12345678901234567890",          "21 characters",                 "at most 20"},
        {               "１２", "character 1 is \"１\"",                     "digits"},
        {               "12\xFF",        "octet 3 is 0xFF",                     "digits"},
        {            "12\x1B[2J",         "character 3 is",                     "digits"},
    };
    for (const auto &[number, what, hint] : cases) {
        expectFailure({"send", "--", number, "hi"}, USAGE, what, hint);
    }
    EXPECT_EQ(json({"encode", "12345678901234567890", "hi"})["number"], "12345678901234567890");
    EXPECT_EQ(json({"encode", "+1234567890123456789", "hi"})["number"], "+1234567890123456789");
}

TEST_F(Tool, ATextThatIsNoneIsRefused) {
    expectFailure({"send", "1", "caf\xE9"}, USAGE, "TEXT is not UTF-8: octet 4 is 0xE9", "iconv");
    expectFailure({"send", "1", "-"}, USAGE, "standard input is empty", "write", "\n");
    expectFailure({"send", "1", "-"}, USAGE, "U+0000 at character 2", "take it out",
                  std::string_view("a\0b", 3));
    expectFailure({"send", "1", "-"}, USAGE, "256 segments", "39015",
                  std::string(255 * 153 + 1, 'x'));
    expectFailure({"send", "1", "-"}, USAGE, "too long", "39015", std::string(1000000, 'x'));
}

TEST_F(Tool, AWrongCommandLineSaysWhereHelpIs) {
    expectFailure({"frobnicate"}, USAGE, "there is no command \"frobnicate\"", "smspb --help");
    expectFailure({"send"}, USAGE, "NUMBER is required", "smspb send --help");
    expectFailure({"send", "1"}, USAGE, "TEXT is required", "smspb send --help");
    expectFailure({"send", "1", "a", "b"}, USAGE, "not expected: b", "between quotes");
    expectFailure({"send", "--bogus", "1", "a"}, USAGE, "--bogus", "smspb send --help");
    expectFailure({"inbox", "--storage", "xx"}, USAGE, "xx", "smspb inbox --help");
    expectFailure({"read", "x"}, USAGE, "INDEX \"x\"", "number from 0");
    expectFailure({"read", "1-3"}, USAGE, "names 3 messages", "smspb inbox");
    expectFailure({"delete", "5-3"}, USAGE, "5-3", "3,5-7");
    expectFailure({"at", "AT", "--wait", "20"}, USAGE, "--wait", "smspb at --help");
    expectFailure({"encode", "--reference", "256", "1", "a"}, USAGE, "--reference");
    const Result nothing = run({});
    EXPECT_EQ(nothing.code, USAGE);
    EXPECT_TRUE(contains(nothing.err, "Usage: smspb")) << nothing;
}

TEST_F(Tool, AnAtCommandThatCannotGoIsRefused) {
    expectFailure({"at", "CSQ"}, USAGE, "does not begin with AT", "AT+CSQ");
    expectFailure({"at", "AT\rAT"}, USAGE, "holds U+000D at character 3", "one line of ASCII");
    expectFailure({"at", "AT+X=\"é\""}, USAGE, "holds U+00E9 at character 7", "ASCII");
    expectFailure({"at", "AT+CMGS=23"}, USAGE, "wait for a message", "smspb send");
    expectFailure({"at", "at +cmgw = 23"}, USAGE, "wait for a message", "smspb save");
    expectFailure({"at", "AT" + std::string(926, 'X')}, USAGE, "928 characters", "927");
}

TEST_F(Tool, EveryCommandExplainsItselfWithExamples) {
    const Result all = run({"--help"});
    EXPECT_EQ(all.code, OK);
    EXPECT_TRUE(contains(all.out, "Exit codes")) << all;
    for (const char *command : {"send", "save", "inbox", "read", "delete", "storage", "smsc",
                                "init", "at", "decode", "encode"}) {
        EXPECT_TRUE(contains(all.out, "\n  " + std::string(command) + " ")) << command;
        const Result help = run({command, "--help"});
        EXPECT_EQ(help.code, OK) << command;
        EXPECT_TRUE(contains(help.out, "Examples:\n  smspb " + std::string(command))) << help;
        EXPECT_EQ(help.err, "");
    }
    EXPECT_TRUE(run({"--version"}).out.starts_with("smspb "));
}

TEST_F(Tool, WithoutAManagerEveryCommandThatNeedsOneSaysHowToGetIt) {
    const Arguments commands[] = {
        {   "send",        "1", "hi"},
        {   "save",        "1", "hi"},
        {   "read",        "1"     },
        {  "inbox"           },
        { "delete",        "1"     },
        {"storage"           },
        {   "smsc"           },
        {   "smsc", "+4917100"     },
        {   "init"           },
        {     "at",       "AT"     }
    };
    for (const Arguments &command : commands) {
        expectFailure(command, NO_MANAGER, "no modem manager is running",
                      "start smspb-modemd --device TTY, or use --simulate");
    }
}

TEST_F(Tool, ARuntimeDirectoryThatCannotBeUsedIsNamed) {
    Process process(command({
                        "inbox"
    }),
                    {{"SMSPB_RUNTIME_DIR", "relative/path"}});
    Result result;
    result.code = exitCode(process.finish(result.out, result.err));
    EXPECT_EQ(result.code, NO_MANAGER) << result;
    EXPECT_TRUE(contains(result.err, "relative/path")) << result;
}

TEST_F(Tool, AFullDiskIsAnErrorAndNotASuccess) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(full, STDOUT_FILENO);
        execl(SMSPB_PROGRAM, "smspb", "encode", "1", "hello", nullptr);
        _exit(127);
    }
    close(full);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(exitCode(status), 1);
}

// PDUs by hand and by TS 23.040; SCTS is 2026-01-03 12:34:56 +01:00 in all.
TEST_F(Tool, DecodeTellsEverythingThatAPduHolds) {
    // clang-format off
    const struct {
        const char *pdu;
        Json fields;
    } cases[] = {
        {"07919471016700000407D049B7F90D00106210302143654005E8329BFD06",
         {{"kind", "received"},
          {"number", "Info"},
          {"service_centre", "+491710760000"},
          {"time", "2026-01-03T12:34:56+01:00"},
          {"coding", "GSM 7-bit"},
          {"class", 0},
          {"text", "hello"}}},
        {"00040B915155001000F000006210302143654902E834",
         {{"time", "2026-01-03T12:34:56-03:30"}, {"text", "hi"}}},
        {"00040B915155001000F00000621030214365401135D0A60C0AD3410010BA2C2F830000",
         {{"text", "5 € at @ here @@"}}},
        {"00440B915155001000F00000621030214365400B0500032A0201009B3200",
         {{"part", {{"reference", 42}, {"number", 1}, {"total", 2}}}, {"text", "@€@"}}},
        {"00440B915155001000F00008621030214365400B0608041234030203A9044F",
         {{"part", {{"reference", 0x1234}, {"number", 2}, {"total", 3}}}, {"text", "Ωя"}}},
        {"00040B915155001000F00004621030214365400301ABFF",
         {{"coding", "8-bit data"}, {"data", "01ABFF"}}},
        {"00440B915155001000F00004621030214365400A0605040B8423F0010603",
         {{"header", Json::array({{{"id", 5}, {"data", "0B8423F0"}}})},
          {"header_understood", false}}},
        {"00040B915155001000F000C86210302143654000", {{"indication", "voice mail waiting"}}},
        {"00040B915155001000F000086210302143654004D83DDE00", {{"text", "😀"}}},
        {"00040B915155001000F000086210302143654002D83D", {{"text", "\uFFFD"}}},
        {"003107048110170000AA02E834",
         {{"kind", "sent"},
          {"number", "0171"},
          {"validity", "4 days"},
          {"report_requested", true},
          {"reference", 7}}},
        {"0039070481101700006210302143654002E834", {{"validity", "2026-01-03T12:34:56+01:00"}}},
        {"0006070B915155001000F062103021436540621030215301404600",
         {{"kind", "report"},
          {"time", "2026-01-03T12:34:56+01:00"},
          {"report",
           {{"status", 0x46},
            {"words", "failed: validity period expired"},
            {"reference", 7},
            {"discharge_time", "2026-01-03T12:35:10+01:00"}}}}},
        {"00 04 0b915155001000f0\n00 00 62103021436540 02 e834", {{"text", "hi"}}},
    };
    // clang-format on
    for (const auto &[pdu, fields] : cases) {
        const Json decoded = json({"decode", pdu});
        for (const auto &[name, value] : fields.items()) {
            EXPECT_EQ(decoded[name], value) << pdu << " " << name;
        }
        EXPECT_EQ(run({"decode", pdu}).code, OK);
    }
    EXPECT_EQ(json({"decode", "-"}, "00040B915155001000F000006210302143654902E834\n")["text"],
              "hi");
}

TEST_F(Tool, AWrongPduIsToldWhatIsWrongWithIt) {
    const struct {
        std::string pdu, what;
    } cases[] = {
        {                                                    "","it is empty"                                                                },
        {                                                   "0",                                "1 digit, an odd number"},
        {                                             "00040B9",                               "7 digits, an odd number"},
        {                                                "000G",                                  "character 4 is \"G\""},
        {                                               "00é0",                                 "character 3 is \"é\""},
        {                                                  "08",         "within the service-centre address of 8 octets"},
        {                                                  "FF",                 "service-centre address has 255 octets"},
        {                                                  "00", "it ends behind the service-centre address of 0 octets"},
        {                                                "0004",     "within the originating address, 1 octet too early"},
        {                                                "0003",               "first octet 03 names no type of message"},
        {                                          "0004159121",         "originating address has 21 digits; at most 20"},
        {      "00040B915155001000F000006210302143654005E8329B",                        "within the user data, 2 octets"},
        {            "00040B915155001000F0000062103021436540A1",
         "user data length is 161; at most 160 septets"                                                                 },
        {            "00040B915155001000F00008621030214365408D",           "user data length is 141; at most 140 octets"},
        {                                "00090704811017000000",                                       "enhanced format"},
        {"0491F10000040B915155001000F000006210302143654902E834",                       "service-centre address does not"},
    };
    for (const auto &[pdu, what] : cases) { expectFailure({"decode", pdu}, BAD_PDU, what); }
    expectFailure({"decode", std::string(512, '0')}, BAD_PDU, "512 digits; at most 510");
}

TEST_F(Tool, NoControlCharacterOfAMessageReachesTheTerminal) {
    // "a ESC[31m BEL U+009B U+202E b CR LF c U+2028 d"
    const std::string hostile = "00040B915155001000F00008621030214365401E0061001B005B00330031006D"
                                "0007009B202E0062000D000A006320280064";
    const Result plain = run({"decode", hostile});
    EXPECT_TRUE(contains(plain.out, "\na␛[31m␇<U+009B><U+202E>b\nc<U+2028>d\n")) << plain;
    const Result document = run({"decode", hostile, "--json"});
    for (const Result &result : {plain, document}) {
        for (const char32_t c : smspb::cli::toCharacters(result.out)) {
            EXPECT_TRUE(c == '\n' || !smspb::cli::isDangerous(c)) << smspb::cli::codePointName(c);
        }
    }
    EXPECT_EQ(document.json()["text"], "a\x1B[31m\a\u009B\u202Eb\r\nc\u2028d");
    // An alphanumeric sender of line ends and escapes.
    const Result sender = run({"decode", "000409D08AC646380400006210302143654000"});
    EXPECT_TRUE(contains(sender.out, "from:    ⏎⏎")) << sender;
}

TEST_F(ToolWithModem, TextsComeBackAsTheyWereSent) {
    for (const std::string &text : ROUND_TRIPS) {
        const Result sent = run({"send", OWN_NUMBER, "--", text});
        ASSERT_EQ(sent.code, OK) << sent;
    }
    EXPECT_EQ(inboxTexts(), ROUND_TRIPS);
}

TEST_F(ToolWithModem, SendSaysWhatItDid) {
    const Result result = run({"send", OWN_NUMBER, "Hello world"});
    EXPECT_EQ(result.code, OK);
    EXPECT_EQ(result.out, "sent to +15550001000: 1 segment in GSM 7-bit, reference 1\n");
    EXPECT_EQ(result.err, "");
    const Json sent = json({"send", "--report", OWN_NUMBER, std::string(307, 'x')});
    EXPECT_EQ(sent["sent"], 3);
    EXPECT_EQ(sent["references"], Json({2, 3, 4}));
    EXPECT_EQ(sent["segment_units"], Json({153, 153, 1}));
    EXPECT_EQ(sent["report_requested"], true);
    EXPECT_EQ(sent["forced_by"], Json::array());
    EXPECT_TRUE(contains(run({"send", OWN_NUMBER, std::string(161, 'x')}).out,
                         ": 2 segments (153 + 8) in GSM 7-bit, references 5, 6\n"));
}

TEST_F(ToolWithModem, ManyNumbersAreListedAsRanges) {
    start({"--sm-size", "260"});
    EXPECT_EQ(run({"send", OWN_NUMBER, std::string(200 * 153, 'x')}).out,
              "sent to +15550001000: 200 segments (of 153) in GSM 7-bit, references 1-200\n");
    const Result wrapped = run({"send", "123", std::string(60 * 153, 'x')});
    EXPECT_TRUE(contains(wrapped.out, "references 201-255, 0-4\n")) << wrapped;
    EXPECT_EQ(inboxTexts(), Texts{std::string(200 * 153, 'x')});
    EXPECT_TRUE(contains(run({"inbox"}).out, "\n1-200  read "));
}

TEST_F(ToolWithModem, LongMessagesAreJoinedAndKeptApart) {
    const std::string first = std::string(300, 'a') + "😀", second(400, 'b');
    sendToSelf(first);
    sendToSelf(second);
    EXPECT_EQ(inboxTexts(), (Texts{first, second}));
    const Json inbox = json({"inbox"});
    EXPECT_EQ(inbox["messages"][0]["indexes"], Json({1, 2, 3, 4, 5}));
    EXPECT_EQ(inbox["messages"][1]["indexes"], Json({6, 7, 8}));
    EXPECT_EQ(inbox["messages"][1]["complete"], true);
    EXPECT_EQ(inbox["messages"][1]["parts"]["present"], Json({1, 2, 3}));
}

TEST_F(ToolWithModem, AnIncompleteMessageIsMarked) {
    sendToSelf(std::string(153, 'a') + std::string(153, 'b') + "c");
    ASSERT_EQ(run({"delete", "2"}).code, OK);
    const Json message = json({"inbox"})["messages"][0];
    EXPECT_EQ(message["complete"], false);
    EXPECT_EQ(message["parts"]["present"], Json({1, 3}));
    EXPECT_EQ(message["text"], std::string(153, 'a') + "[…]c");
    const Result table = run({"inbox"});
    EXPECT_TRUE(contains(table.out, "[incomplete, 2 of 3 parts] aaa")) << table;
    EXPECT_TRUE(contains(table.out, "\n1,3    read ")) << table;
}

TEST_F(ToolWithModem, TheInboxIsATableWithOneLineForEachMessage) {
    sendToSelf("first\nline two");
    sendToSelf("zweite 你好");
    const Result result = run({"inbox"});
    EXPECT_EQ(result.code, OK);
    EXPECT_EQ(result.err, "");
    std::istringstream lines(result.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "INDEX  STATUS  NUMBER        TIME              TEXT");
    std::getline(lines, line);
    EXPECT_TRUE(line.starts_with("1      new     +15550001000  20")) << line;
    EXPECT_TRUE(line.ends_with("  first⏎line two")) << line;
    std::getline(lines, line);
    EXPECT_TRUE(line.ends_with("  zweite 你好")) << line;
    EXPECT_TRUE(result.out.ends_with("\n\n2 messages in SM, 2 of 50 places used\n")) << result;
    EXPECT_TRUE(contains(run({"inbox"}).out, "\n1      read    ")) << "read by the first inbox";
}

TEST_F(ToolWithModem, TheInboxFindsWhatStandsBehindTheNumberOfPlaces) {
    start({"--sm-size", "5", "--index-base", "0", "--index-step", "10"});
    for (const char *const text : {"one", "two", "three"}) { sendToSelf(text); }
    EXPECT_EQ(inboxTexts(), (Texts{"one", "two", "three"}));
    EXPECT_EQ(json({"inbox"})["messages"][2]["indexes"], Json({20}));
    EXPECT_EQ(run({"delete", "0", "20"}).code, OK);
    EXPECT_EQ(inboxTexts(), Texts{"two"});
    EXPECT_EQ(run({"inbox"}).err, "");
}

TEST_F(ToolWithModem, AnEmptyInboxSaysSo) {
    EXPECT_EQ(run({"inbox"}).out, "0 messages in SM, 0 of 50 places used\n");
    EXPECT_EQ(json({
                  "inbox"
    }),
              Json({{"storage", "SM"}, {"used", 0}, {"total", 50}, {"messages", Json::array()}}));
}

TEST_F(ToolWithModem, ReadShowsOneMessageWithItsDetails) {
    sendToSelf("zero");
    sendToSelf("Привет\nмир");
    const Result result = run({"read", "2"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_TRUE(contains(result.out, "index:           2 in SM, new\n")) << result;
    EXPECT_TRUE(contains(result.out, "from:            +15550001000\n")) << result;
    EXPECT_TRUE(contains(result.out, "coding:          UCS-2\n")) << result;
    EXPECT_TRUE(result.out.ends_with("\n\nПривет\nмир\n")) << result;
    const Json message = json({"read", "2"});
    EXPECT_EQ(message["status"], "read");
    EXPECT_EQ(message["index"], 2);
    EXPECT_EQ(message["service_centre"], "+15550000099");
}

TEST_F(ToolWithModem, AnEmptyPlaceIsToldFromATrouble) {
    expectFailure({"read", "7"}, NO_MESSAGE, "there is no message 7 in SM", "smspb inbox");
    fault("+CMGR=cms=320");
    expectFailure({"read", "7"}, REFUSED, "memory failure (+CMS ERROR: 320)");
}

TEST_F(ToolWithModem, AReportIsShownInWords) {
    ASSERT_EQ(run({"at", "AT+CNMI=2,1,0,2,0"}).code, OK); // reports go to the storage
    ASSERT_EQ(run({"send", "--report", OWN_NUMBER, "hi"}).code, OK);
    const Json report = json({"inbox"})["messages"][1];
    EXPECT_EQ(report["kind"], "report");
    EXPECT_EQ(report["report"]["words"], "delivered");
    EXPECT_EQ(report["report"]["reference"], 1);
    EXPECT_TRUE(contains(run({"inbox"}).out, "delivered (report for message 1)"));
    EXPECT_TRUE(contains(run({"read", "2"}).out, "result:          delivered (0x00)\n"));
}

TEST_F(ToolWithModem, SavedMessagesCarryTheirMark) {
    EXPECT_EQ(run({"save", "0171234", "draft"}).out, "saved in SM at index 1 (unsent)\n");
    const Json saved = json({"save", "--sent", "0171234", std::string(200, 'x')});
    EXPECT_EQ(saved["indexes"], Json({2, 3}));
    EXPECT_EQ(saved["storage"], "SM");
    EXPECT_EQ(saved["status"], "sent");
    const Json inbox = json({"inbox"});
    EXPECT_EQ(inbox["messages"][0]["status"], "unsent");
    EXPECT_EQ(inbox["messages"][0]["kind"], "sent");
    EXPECT_EQ(inbox["messages"][0]["number"], "0171234");
    EXPECT_EQ(inbox["messages"][1]["status"], "sent");
    EXPECT_EQ(inbox["messages"][1]["indexes"], Json({2, 3}));
}

TEST_F(ToolWithModem, DeleteTakesIndexesAndRanges) {
    for (const char *text : {"one", "two", "three", "four", "five"}) { sendToSelf(text); }
    EXPECT_EQ(run({"delete", "2-3,5"}).out, "deleted 2-3,5 from SM\n");
    EXPECT_EQ(inboxTexts(), (Texts{"one", "four"}));
    EXPECT_EQ(json({"delete", "1", "4"})["deleted"], Json({1, 4}));
    EXPECT_EQ(inboxTexts(), Texts{});
}

TEST_F(ToolWithModem, ADeleteThatStopsOnTheWayNamesWhatIsGone) {
    sendToSelf("one");
    expectFailure({"delete", "99"}, NO_MESSAGE, "invalid memory index (+CMS ERROR: 321)");
    const Result result = run({"delete", "1", "99", "--json"});
    EXPECT_EQ(result.code, IN_PART) << result;
    EXPECT_EQ(result.json()["error"]["completed"], Json({1}));
    EXPECT_EQ(result.json()["error"]["modem_error_number"], 321);
    EXPECT_EQ(inboxTexts(), Texts{});
}

TEST_F(ToolWithModem, AnotherStorageIsUsedAndTheModemsChoiceRestored) {
    sendToSelf("on the SIM");
    ASSERT_EQ(run({"at", "AT+CPMS=\"SM\",\"ME\",\"SM\""}).code, OK);
    EXPECT_EQ(run({"save", "123", "in the modem"}).out, "saved in ME at index 1 (unsent)\n");
    const Json inbox = json({"inbox", "--storage", "me"});
    EXPECT_EQ(inbox["storage"], "ME");
    EXPECT_EQ(inbox["messages"][0]["text"], "in the modem");
    EXPECT_EQ(json({"read", "1", "--storage", "ME"})["text"], "in the modem");
    const std::string selected = run({"at", "AT+CPMS?"}).out;
    EXPECT_TRUE(contains(selected, "+CPMS: \"SM\",1,50,\"ME\",1,100,\"SM\",1,50")) << selected;
    EXPECT_EQ(run({"delete", "1", "--storage", "me"}).out, "deleted 1 from ME\n");
    EXPECT_TRUE(contains(run({"at", "AT+CPMS?"}).out, "+CPMS: \"SM\",1,50,\"ME\",0,100"));
    EXPECT_EQ(inboxTexts(), Texts{"on the SIM"});
}

TEST_F(ToolWithModem, StatusShowsTheModemItsSimTheNetworkAndTheStorages) {
    sendToSelf("one");
    EXPECT_TRUE(contains(run({"status"}).out, "modem:     smspb simulated modem\n"
                                              "revision:  1.0.0\n"
                                              "IMEI:      490154203237518\n"
                                              "SIM:       READY\n"
                                              "network:   smspb network, registered, home\n"
                                              "signal:    -71 dBm\n"
                                              "storages:  SM 1 of 50\n"));
    const Json status = json({"status"});
    EXPECT_EQ(status["operator"], "smspb network");
    EXPECT_EQ(status["signal_dbm"], -71);
    EXPECT_EQ(status["storages"], Json::array({
                                      {{"storage", "SM"}, {"used", 1}, {"total", 50}}
    }));
}

TEST_F(ToolWithModem, StatusLeavesOutWhatTheModemDoesNotTell) {
    fault("+CPIN=cme=10");
    fault("+COPS=error");
    fault("+CSQ=error");
    fault("+CREG=error");
    fault("+CPMS=error");
    const Result result = run({"status"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_TRUE(contains(result.out, "SIM:       not there or not readable\n"
                                     "network:   unknown\n"
                                     "signal:    unknown\n"
                                     "storages:  unknown\n"))
        << result;
    EXPECT_EQ(json({"status"})["signal_dbm"], nullptr);
}

TEST_F(ToolWithModem, StatusShowsTheManagerBesideTheModem) {
    sendToSelf("one");
    const std::string terminal = (directory_ / "terminal").string();
    const Result result = run({"status"});
    EXPECT_TRUE(contains(result.out, "\nmanager:   1.0.0, process ")) << result;
    EXPECT_TRUE(contains(result.out, "\ntty:       " + terminal +
                                         " at 115200 baud, in step\n"
                                         "running:   nothing\n"
                                         "waiting:   nothing\n"))
        << result;
    EXPECT_TRUE(contains(result.out, "send 1")) << result;
    EXPECT_TRUE(contains(result.out, "\ncounted:   texts sent 1")) << result;
    const Json manager = json({"status"})["manager"];
    EXPECT_EQ(manager["tty"]["path"], terminal);
    EXPECT_EQ(manager["tty"]["open"], true);
    EXPECT_EQ(manager["counters"]["requests"]["send"], 1);
    EXPECT_EQ(manager["counters"]["requests"]["status"], 2);
    EXPECT_EQ(manager["counters"]["texts_sent"], 1);
    EXPECT_EQ(manager["counters"]["results"].size(), 9U);
}

TEST_F(ToolWithModem, StatusTellsTheManagersPartOfAModemThatIsGone) {
    modem_->stop();
    Result result;
    ASSERT_TRUE(becomes([&] {
        result = run({"status"});
        return contains(result.out, "closed: cannot open ");
    })) << result;
    EXPECT_EQ(result.code, NO_ANSWER) << result;
    EXPECT_TRUE(contains(result.out, "modem lost 1\n")) << result;
    EXPECT_TRUE(contains(result.err, "cannot reach the modem")) << result;
    const Json status = Json::parse(run({"status", "--json"}).out);
    EXPECT_EQ(status["error"]["exit_code"], NO_ANSWER);
    EXPECT_EQ(status["manager"]["counters"]["lost"], 1);
}

// A manager of somebody else's, which knows nothing but commands.
class OtherManager {
public:
    OtherManager() : thread_([this] { serve(); }) {}
    ~OtherManager() {
        ends_ = true;
        thread_.join();
    }

private:
    void serve() {
        while (!ends_) {
            const auto block = server_.receive(10ms);
            if (!block) { continue; }
            const bool isCommand = block->messageId() == 0x1040008f;
            const std::string reply = isCommand ? "\r\nOK\r\n" : "";
            const std::array<u32, 3> words = {isCommand ? 0U : 1U, 0U,
                                              static_cast<u32>(reply.size())};
            std::string response(reinterpret_cast<const char *>(words.data()), sizeof(words));
            response += reply;
            zeldcard_send_response(block->get(), block->messageId(), response.data(),
                                   static_cast<u32>(response.size()));
        }
    }

    std::atomic<bool> ends_{false};
    smspb::ipc::Server server_{1};
    std::thread thread_;
};

TEST_F(Tool, StatusOfAManagerThatTellsNothingOfItselfIsTheModemsAlone) {
    for (const auto &[name, value] : environment()) {
        if (name == "SMSPB_RUNTIME_DIR") { setenv(name.c_str(), value.c_str(), 1); }
    }
    const OtherManager manager;
    const Result result = run({"status"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_TRUE(contains(result.out, "storages:  unknown\nmanager:   tells nothing of itself\n"))
        << result;
    EXPECT_EQ(json({"status"})["manager"], nullptr);
}

TEST_F(ToolWithModem, StorageShowsBothAndWhatTheyAreFor) {
    sendToSelf("one");
    EXPECT_EQ(run({"storage"}).out, "STORAGE  USED  TOTAL  FREE  FOR\n"
                                    "SM       1     50     49    read, save, receive\n"
                                    "ME       0     100    100\n");
    const Json one = json({"storage", "--storage", "me"});
    EXPECT_EQ(one["storages"], Json::array({
                                   {{"storage", "ME"},
                                    {"used", 0},
                                    {"total", 100},
                                    {"free", 100},
                                    {"for", Json::array()}}
    }));
}

TEST_F(ToolWithModem, AStorageThatTheModemLacksDoesNotHideTheOther) {
    fault("+CPMS=*ME*=cms=302");
    const Result result = run({"storage"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_TRUE(contains(result.out, "SM       0     50 ")) << result;
    EXPECT_TRUE(contains(result.err, "select the storage ME: operation not allowed")) << result;
}

TEST_F(ToolWithModem, TheServiceCentreIsShownAndSet) {
    EXPECT_EQ(run({"smsc"}).out, "+15550000099\n");
    EXPECT_EQ(run({"smsc", "+491710760000"}).out, "+491710760000\n");
    EXPECT_EQ(json({"smsc"})["service_centre"], "+491710760000");
    ASSERT_EQ(run({"at", "AT+CSCA=\"\""}).code, OK);
    EXPECT_EQ(run({"smsc"}).out, "no service centre is set\n");
    expectFailure({"send", "1", "hi"}, REFUSED, "service centre address unknown", "smspb smsc");
    expectFailure({"smsc", "+49 171"}, USAGE, "character 4 is a blank", "write +49171");
}

TEST_F(ToolWithModem, TheServiceCentreIsPlainUnderTheUcs2CharacterSet) {
    ASSERT_EQ(run({"at", "AT+CSCS=\"UCS2\""}).code, OK);
    EXPECT_EQ(run({"smsc"}).out, "+15550000099\n");
    EXPECT_EQ(run({"smsc", "+4917100"}).out, "+4917100\n");
    EXPECT_TRUE(contains(run({"at", "AT+CSCS?"}).out, "\"UCS2\"")) << "the set is given back";
}

TEST_F(ToolWithModem, InitSetsIndicationsAndStorages) {
    ASSERT_EQ(run({"at", "AT+CPMS=\"ME\",\"ME\",\"ME\""}).code, OK);
    const Result result = run({"init"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_TRUE(contains(run({"at", "AT+CNMI?"}).out, "+CNMI: 2,1,0,0,0\n"));
    EXPECT_TRUE(contains(run({"at", "AT+CPMS?"}).out, "+CPMS: \"SM\",0,50,\"SM\",0,50,\"SM\""));
    EXPECT_EQ(json({"init"})["initialised"], true);
    fault("+CNMI=cms=310");
    expectFailure({"init"}, REFUSED, "SIM not inserted (+CMS ERROR: 310)", "SIM card");
}

TEST_F(ToolWithModem, AtShowsTheReplyAndFailsWithIt) {
    const Result good = run({"at", "at+csq"});
    EXPECT_EQ(good.code, OK) << good;
    EXPECT_TRUE(good.out.starts_with("+CSQ: ")) << good;
    EXPECT_TRUE(good.out.ends_with("\nOK\n")) << good;
    const Result bad = run({"at", "AT+CMGR=77"});
    EXPECT_EQ(bad.code, REFUSED);
    EXPECT_EQ(bad.out, "+CMS ERROR: 321\n");
    EXPECT_TRUE(contains(bad.err, "invalid memory index")) << bad;
    const Json ok = json({"at", "AT+CMGF?"});
    EXPECT_EQ(ok["reply"], Json({"+CMGF: 0", "OK"}));
    EXPECT_EQ(ok["ok"], true);
    const Result error = run({"at", "AT+CMGR=77", "--json"});
    EXPECT_EQ(error.code, REFUSED);
    EXPECT_EQ(error.json()["ok"], false);
    EXPECT_EQ(error.json()["modem_error_number"], 321);
}

TEST_F(ToolWithModem, AModemInTextModeIsReadAllTheSame) {
    sendToSelf("hello");
    ASSERT_EQ(run({"at", "AT+CMGF=1"}).code, OK);
    EXPECT_EQ(inboxTexts(), Texts{"hello"});
}

TEST_F(ToolWithModem, AFullStorageIsNamedWithTheWayOut) {
    start({"--sm-size", "2"});
    ASSERT_EQ(run({"save", "1", "one"}).code, OK);
    const Result part = run({"save", "1", std::string(307, 'x'), "--json"});
    EXPECT_EQ(part.code, IN_PART) << part;
    EXPECT_EQ(part.json()["error"]["completed"], Json({2}));
    EXPECT_TRUE(contains(part.err, "segment 2 of 3: memory full (+CMS ERROR: 322)")) << part;
    EXPECT_TRUE(contains(part.err, "(1 of 3 segments saved)")) << part;
    expectFailure({"save", "1", "two"}, REFUSED, "memory full (+CMS ERROR: 322)",
                  "smspb delete INDEX");
}

TEST_F(ToolWithModem, ASendThatStopsOnTheWayCountsWhatWentOut) {
    fault("+CMGS=cms=38:2-");
    const Result result = run({"send", OWN_NUMBER, std::string(400, 'x'), "--json"});
    EXPECT_EQ(result.code, IN_PART) << result;
    const Json error = result.json()["error"];
    EXPECT_EQ(error["completed"], Json({1}));
    EXPECT_EQ(error["modem_error_number"], 38);
    EXPECT_TRUE(contains(result.err, "segment 2 of 3: network out of order")) << result;
    EXPECT_TRUE(contains(result.err, "(1 of 3 segments sent)")) << result;
    expectFailure({"send", OWN_NUMBER, "x"}, REFUSED, "send the message: network out of order",
                  "try again later");
    EXPECT_EQ(json({"inbox"})["used"], 1) << "nothing was sent behind the failure";
}

TEST_F(ToolWithModem, ASilentModemIsToldFromAMissingManager) {
    fault("+CSQ=silence");
    expectFailure({"at", "AT+CSQ", "--wait", "1"}, NO_ANSWER,
                  "cannot run AT+CSQ: the modem does not answer", "plugged in");
    const Result result = run({"at", "AT+CSQ", "--wait", "1", "--json"});
    EXPECT_EQ(result.json()["error"]["status"], 20);
}

TEST_F(ToolWithModem, AVanishedModemIsReportedAndItsReturnNoticed) {
    modem_->stop();
    expectFailure({"inbox"}, NO_ANSWER, "the modem does not answer", "smspb-modemd says");
    const std::string terminal = (directory_ / "terminal").string();
    modem_ =
        std::make_unique<Process>(Arguments{SIMMODEM_PROGRAM, "--link", terminal}, environment());
    ASSERT_EQ(modem_->readLine(), "ready: " + terminal);
    EXPECT_TRUE(becomes([this] { return run({"inbox"}).code == OK; }, 10s));
}

TEST_F(ToolWithModem, AKilledManagerIsNoticedBeforeAndDuringACommand) {
    fault("+CSQ=delay=20000");
    Process waiting(command({"at", "AT+CSQ", "--wait", "19"}), environment());
    std::this_thread::sleep_for(200ms); // the request is with the manager
    manager_->signal(SIGKILL);
    manager_->wait();
    Result result;
    const Clock::time_point killed = Clock::now();
    result.code = exitCode(waiting.finish(result.out, result.err));
    EXPECT_EQ(result.code, NO_MANAGER) << result;
    EXPECT_TRUE(contains(result.err, "the modem manager is gone")) << result;
    EXPECT_LT(Clock::now() - killed, 5s);
    expectFailure({"inbox"}, NO_MANAGER, "no modem manager is running", "smspb-modemd --device");
    startManager();
}

TEST_F(ToolWithModem, TheTableIsWrappedToTheTerminalAndNothingRawGoesThere) {
    sendToSelf("The quick brown fox jumps over the lazy dog, 你好 and again: \x1B[31m fox and dog");
    constexpr unsigned short COLUMNS = 72;
    const winsize size{24, COLUMNS, 0, 0};
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        for (const auto &[name, value] : environment()) {
            if (name == "SMSPB_RUNTIME_DIR") { setenv(name.c_str(), value.c_str(), 1); }
        }
        // Progress goes to standard error, which is not the terminal here.
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execl(SMSPB_PROGRAM, "smspb", "inbox", nullptr);
        _exit(127);
    }
    std::string out;
    std::array<char, 4096> chunk{};
    for (ssize_t got = 0; (got = ::read(terminal, chunk.data(), chunk.size())) > 0;) {
        out.append(chunk.data(), static_cast<std::size_t>(got));
    }
    close(terminal);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(exitCode(status), OK) << out;
    EXPECT_FALSE(contains(out, "\x1B")) << out;
    std::istringstream lines(out);
    std::size_t lineCount = 0;
    for (std::string line; std::getline(lines, line); lineCount++) {
        if (line.ends_with('\r')) { line.pop_back(); }
        EXPECT_LE(smspb::cli::toCharacters(line).size(), COLUMNS) << line;
    }
    EXPECT_GE(lineCount, 6U) << out;
}

// Whether a process runs whose command line names the directory.
std::vector<std::string> processesOf(const fs::path &directory) {
    std::vector<std::string> found;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "cmdline");
        std::string line; // zeros between the arguments; empty when the process has just ended
        std::getline(file, line);
        const bool isSelf = entry.path().filename() == std::to_string(getpid());
        if (!isSelf && contains(line, directory.string())) { found.push_back(line); }
    }
    return found;
}

class Simulation : public Tool {
protected:
    bool isCleanedUp() const {
        return fs::is_empty(temporary()) && processesOf(directory_.path()).empty();
    }

    // A command that waits for its standard input with the simulation around it.
    std::unique_ptr<Process> startWaiting() const {
        auto process =
            std::make_unique<Process>(command({"--simulate", "send", "1", "-"}), environment());
        EXPECT_TRUE(becomes([this] { return processesOf(directory_.path()).size() == 2; }));
        // The manager is ready as soon as its socket is there.
        EXPECT_TRUE(becomes([this] {
            for (const auto &entry : fs::recursive_directory_iterator(temporary())) {
                if (entry.path().filename() == "dest-1") { return true; }
            }
            return false;
        }));
        return process;
    }
};

TEST_F(Simulation, EveryCommandRunsInOneAndLeavesNothingBehind) {
    // clang-format off
    const struct {
        Arguments command;
        int code;
        std::string out;
    } cases[] = {
        {{"send", OWN_NUMBER, "Hello 😀"}, OK, "sent to +15550001000: 1 segment in UCS-2"},
        {{"save", "123", "draft"}, OK, "saved in SM at index 1 (unsent)"},
        {{"inbox"}, OK, "0 messages in SM"},
        {{"read", "1"}, NO_MESSAGE, ""},
        {{"delete", "1"}, OK, "deleted 1 from SM"},
        {{"storage"}, OK, "SM       0     50"},
        {{"smsc"}, OK, "+15550000099"},
        {{"smsc", "+4917100"}, OK, "+4917100"},
        {{"init"}, OK, "the modem announces"},
        {{"at", "ATI"}, OK, "simulated modem"},
        {{"at", "AT+NONE"}, REFUSED, "ERROR"},
        {{"decode", "00040B915155001000F000006210302143654902E834"}, OK, "hi"},
        {{"encode", "1", "hi"}, OK, "AT+CMGS="},
    };
    // clang-format on
    for (const auto &[arguments, code, out] : cases) {
        Arguments simulated = arguments;
        simulated.push_back("--simulate");
        const Result result = run(simulated);
        EXPECT_EQ(result.code, code) << result;
        EXPECT_TRUE(contains(result.out, out)) << result;
        EXPECT_TRUE(isCleanedUp()) << arguments[0];
    }
    EXPECT_EQ(json({"--simulate", "send", OWN_NUMBER, "hi"})["sent"], 1);
}

TEST_F(Simulation, DoesNotTouchTheManagerThatRuns) {
    EXPECT_EQ(run({"--simulate", "storage"}).code, OK);
    EXPECT_FALSE(fs::exists(directory_ / "run")) << "the user's own runtime directory";
}

TEST_F(Simulation, TwoAtOnceDoNotDisturbEachOther) {
    Process first(command({"--simulate", "send", OWN_NUMBER, "-"}), environment());
    Process second(command({"--simulate", "send", OWN_NUMBER, "-"}), environment());
    for (Process *process : {&first, &second}) {
        process->write("hello\n");
        process->closeInput();
        Result result;
        result.code = exitCode(process->finish(result.out, result.err));
        EXPECT_EQ(result.code, OK) << result;
        EXPECT_TRUE(contains(result.out, "reference 1\n")) << result;
    }
    EXPECT_TRUE(isCleanedUp());
}

TEST_F(Simulation, AnInterruptionCleansUpAndShowsInTheExitStatus) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const auto process = startWaiting();
        process->signal(signal);
        std::string out, err;
        const int status = process->finish(out, err);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_TRUE(isCleanedUp()) << signal;
    }
}

TEST_F(Simulation, AnInterruptionWhileItStartsCleansUpToo) {
    for (int delay = 0; delay < 60; delay += 6) {
        Process process(command({"--simulate", "send", "1", "-"}), environment());
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        process.signal(SIGTERM);
        std::string out, err;
        process.finish(out, err);
        EXPECT_TRUE(isCleanedUp()) << delay;
    }
}

TEST_F(Simulation, ItsProgramsEndWhenTheToolIsKilled) {
    const auto process = startWaiting();
    process->signal(SIGKILL);
    EXPECT_TRUE(becomes([this] { return processesOf(directory_.path()).empty(); }));
}

// The tool alone in a folder: what it needs is neither beside it nor on PATH.
class LonelyTool : public Tool {
protected:
    void SetUp() override {
        fs::create_directory(directory_ / "bin");
        fs::copy_file(SMSPB_PROGRAM, directory_ / "bin/smspb");
    }
    Result runLonely(const Arguments &arguments, const std::string &path) const {
        Arguments all = {(directory_ / "bin/smspb").string()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        Environment changed = environment();
        changed.emplace_back("PATH", path);
        Process process(all, changed);
        process.closeInput();
        Result result;
        result.code = exitCode(process.finish(result.out, result.err));
        return result;
    }
    void writeScript(const std::string &name, const std::string &text) const {
        fs::create_directories((directory_ / name).parent_path());
        std::ofstream(directory_ / name) << "#!/bin/sh\n" << text;
        fs::permissions(directory_ / name, fs::perms::owner_all);
    }
};

TEST_F(LonelyTool, AMissingProgramIsNamed) {
    const Result result = runLonely({"--simulate", "inbox"}, "/nonexistent");
    EXPECT_EQ(result.code, NO_SIMULATION) << result;
    EXPECT_TRUE(contains(result.err, "there is no smspb-simmodem beside")) << result;
    EXPECT_TRUE(contains(result.err, "install")) << result;
}

TEST_F(LonelyTool, ItsProgramsAreFoundOnPathAndInLibexec) {
    const std::string modem = fs::path(SIMMODEM_PROGRAM).parent_path().string();
    const std::string manager = fs::path(MODEMD_PROGRAM).parent_path().string();
    EXPECT_EQ(runLonely({"--simulate", "inbox"}, "/bin:" + modem + ":" + manager).code, OK);
    fs::create_directories(directory_ / "libexec/smspb");
    fs::create_symlink(SIMMODEM_PROGRAM, directory_ / "libexec/smspb/smspb-simmodem");
    fs::create_symlink(MODEMD_PROGRAM, directory_ / "libexec/smspb-modemd");
    EXPECT_EQ(runLonely({"--simulate", "inbox"}, "/nonexistent").code, OK);
}

TEST_F(LonelyTool, AProgramThatDoesNotStartIsQuoted) {
    writeScript("bin/smspb-simmodem", "echo 'ready: nowhere'; echo >&2 unused; exec sleep 60");
    writeScript("bin/smspb-modemd", "echo 'some noise'; echo >&2 'cannot open it'; exit 3");
    const Result result = runLonely({"--simulate", "inbox", "--json"}, "/bin:/usr/bin");
    EXPECT_EQ(result.code, NO_SIMULATION) << result;
    EXPECT_TRUE(contains(result.err, "smspb-modemd: it ended, saying cannot open it")) << result;
    EXPECT_EQ(result.json()["error"]["exit_code"], NO_SIMULATION);
    EXPECT_TRUE(becomes(
        [this] { return fs::is_empty(temporary()) && processesOf(directory_.path()).empty(); }));
}

} // namespace
