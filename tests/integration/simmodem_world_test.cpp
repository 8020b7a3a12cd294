// What surrounds the commands of the simulated modem: its faults, its log, the state that it keeps,
// and its control socket.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/simmodem.h"

namespace {

namespace fs = std::filesystem;
using namespace simulated;

const std::string OK = "\r\nOK\r\n";
const std::string PROMPT = "\r\n> ";
const std::string TO_SELF = "0001000B915155001000F0000005E8329BFD06\x1A";
const std::string DELIVER = "0791214365870921040B915155001000F0000042105021430500"
                            "05E8329BFD06";

std::string contentOf(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeTo(const fs::path &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != text.npos;
}

// ---- faults ----

TEST(FaultFile, IsPlayedLineByLine) {
    Directory directory;
    writeTo(directory / "faults", "# as a provider's busy hour\n"
                                  "+CSQ=error:1   # once\n"
                                  "\n"
                                  "   AT+CREG=unsolicited=#1 is it \r\n"
                                  "+CGMM=cme=14");
    Quiet modem({"--faults", (directory / "faults").string()});
    EXPECT_EQ(modem.ask("AT+CSQ"), "\r\nERROR\r\n");
    EXPECT_EQ(modem.ask("AT+CSQ"), "\r\n+CSQ: 21,99\r\n" + OK);
    EXPECT_EQ(modem.ask("AT+CREG?"), "\r\n+CREG: 0,1\r\n\r\n#1 is it\r\n" + OK);
    modem.ask("AT+CMEE=1");
    EXPECT_EQ(modem.ask("AT+CGMM"), "\r\n+CME ERROR: 14\r\n");
}

TEST(FaultFile, IsAddedToARunningModem) {
    Directory directory;
    writeTo(directory / "faults", "+CSQ=error:1\n+CREG=error:1\n");
    Quiet modem;
    EXPECT_EQ(modem.control({"faults", (directory / "faults").string()}), "{\"faults\":2}\n");
    EXPECT_EQ(modem.ask("AT+CSQ"), "\r\nERROR\r\n");
    EXPECT_EQ(modem.ask("AT+CREG?"), "\r\nERROR\r\n");
    EXPECT_EQ(modem.ask("AT+CSQ"), "\r\n+CSQ: 21,99\r\n" + OK);
}

TEST(FaultFile, WithAWrongLineIsRefusedWhole) {
    Directory directory;
    const std::string file = (directory / "faults").string();
    writeTo(file, "+CSQ=error\n# comment\n+CSQ=explode\n");
    Quiet modem;
    const std::string refusal = modem.control({"faults", file});
    EXPECT_TRUE(refusal.starts_with("smspb-simmodem: " + file +
                                    ":3: the fault \"+CSQ=explode\" is not of the form PATTERN="))
        << refusal;
    EXPECT_EQ(modem.ask("AT+CSQ"), "\r\n+CSQ: 21,99\r\n" + OK);
    const Outcome outcome = Process({"--link", (directory / "m").string(), "--faults", file}).end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_TRUE(contains(outcome.output, file + ":3: ")) << outcome.output;
}

TEST(FaultFile, ThatCannotBeReadIsNamed) {
    Directory directory;
    const std::string link = (directory / "m").string();
    const std::string missing = (directory / "none").string();
    EXPECT_EQ(Process({"--link", link, "--faults", missing}).end().output,
              "smspb-simmodem: " + missing + ": No such file or directory\n");
    const std::string folder = (directory / ".").string();
    EXPECT_EQ(Process({"--link", link, "--faults", folder}).end().output,
              "smspb-simmodem: " + folder + ": Is a directory\n");
    writeTo(directory / "large", std::string(2 << 20, '#'));
    EXPECT_TRUE(
        contains(Process({"--link", link, "--faults", (directory / "large").string()}).end().output,
                 "too large, 1048576 octets at most"));
}

TEST(Fault, AResetWithoutAnnouncementIsSeenByWhatIsForgotten) {
    Quiet modem({"--fault", "+CSQ=reset:1"});
    modem.write("AT+CSQ\r");
    const auto until = steady_clock::now() + SOON;
    while (!contains(modem.control({"status"}), "\"acted\":1") && steady_clock::now() < until) {}
    EXPECT_EQ(modem.ask("AT"), "AT\r" + OK);
}

TEST(Fault, AHangUpInTheMiddleOfAReplyLetsItsHalfBeRead) {
    Quiet modem({"--fault", "+CSQ=hangup=20:1"});
    modem.send(TO_SELF);
    modem.write("AT+CSQ\r");
    const std::string whole = "\r\n+CSQ: 21,99\r\n" + OK;
    const std::string half = whole.substr(0, whole.size() / 2);
    EXPECT_EQ(modem.readTo(half), half);
    EXPECT_EQ(modem.readUntil([](const std::string &) { return false; }), "");
    modem.close();
    while (!fs::exists(modem.link())) { std::this_thread::sleep_for(1ms); }
    modem.open();
    EXPECT_EQ(modem.ask("AT"), "AT\r" + OK);
    EXPECT_TRUE(contains(modem.ask("AT+CPMS?"), "\"SM\",1,50"));
}

TEST(Fault, AHangUpBehindAPduHasSentTheMessage) {
    Quiet modem({"--fault", "+CMGS=hangup:1"});
    ASSERT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    modem.write(TO_SELF);
    const std::string half = "\r\n+CMGS: ";
    EXPECT_EQ(modem.readUntil([&](const std::string &text) { return text.size() >= half.size(); }),
              half);
    modem.close();
    const auto until = steady_clock::now() + SOON;
    while (!contains(modem.control({"status"}), "\"SM\":{\"size\":50,\"used\":1}") &&
           steady_clock::now() < until) {}
    EXPECT_LT(steady_clock::now(), until);
}

// What a run of commands gets back, garbage, refusals and all.
std::string runWithSeed(const std::string &seed) {
    Quiet modem({"--seed", seed, "--fault", "+CSQ=garbage:30%", "--fault", "+CSQ=error:20%",
                 "--fault", "+CSQ=unsolicited=Hm:50%", "--clock", "driven"});
    std::string replies;
    for (int i = 0; i < 40; i++) {
        modem.write("AT+CSQ\r");
        replies += modem.readUntil([](const std::string &text) {
            return isFinal(text) || (text.size() == 21 && text.front() != '\r') ||
                   (text.size() == 27 && text.front() != '\r');
        });
    }
    return replies;
}

TEST(Fault, OfChanceIsTheSameForTheSameSeed) {
    const std::string replies = runWithSeed("7");
    EXPECT_EQ(runWithSeed("7"), replies);
    EXPECT_NE(runWithSeed("8"), replies);
    EXPECT_TRUE(contains(replies, "ERROR"));
    EXPECT_TRUE(contains(replies, "Hm"));
    EXPECT_TRUE(contains(replies, "\r\n+CSQ: 21,99\r\n" + OK));
}

TEST(Fault, GarbageIsOtherEachTime) {
    Quiet modem({"--fault", "+CSQ=garbage"});
    const auto garbage = [&modem] {
        modem.write("AT+CSQ\r");
        return modem.readUntil([](const std::string &text) { return text.size() == 21; });
    };
    const std::string first = garbage();
    EXPECT_EQ(first.size(), 21U);
    EXPECT_NE(garbage(), first);
}

// ---- the line in pieces ----

TEST(Chunks, AreWrittenOneAfterTheOtherWithTheirPauses) {
    Modem modem({"--chunk", "4@1000", "--clock", "driven"});
    modem.write("AT\r");
    EXPECT_EQ(modem.readTo("AT\r"), "AT\r");
    modem.letHappen({"advance", "999ms"});
    modem.letHappen({"advance", "1ms"});
    EXPECT_EQ(modem.readTo("OK"), "\r\nOK");
    modem.letHappen({"advance", "1"});
    EXPECT_EQ(modem.readTo("\r\n"), "\r\n");
    modem.letHappen({"advance", "1h"}); // ends the last pause
    modem.write("AT\r");
    EXPECT_EQ(modem.readTo("AT\r"), "AT\r");
    modem.letHappen({"advance", "2"});
    EXPECT_EQ(modem.readTo("OK\r\n"), OK);
}

TEST(Clock, BringsATerminalBackAtItsMoment) {
    Modem modem({"--fault", "+CSQ=drop=60000:1", "--fault", "+CREG=drop:1", "--clock", "driven"});
    modem.write("AT+CSQ\r");
    modem.letHappen({"advance", "59999ms"});
    EXPECT_FALSE(fs::exists(modem.link()));
    modem.letHappen({"advance", "1ms"});
    EXPECT_TRUE(fs::exists(modem.link()));
    modem.close();
    modem.open();
    EXPECT_EQ(modem.ask("AT"), "AT\r" + OK);
    modem.write("AT+CREG?\r"); // comes back at once, without being driven
    modem.letHappen({"status"});
    const auto until = steady_clock::now() + SOON;
    while (!fs::exists(modem.link()) && steady_clock::now() < until) {}
    modem.close();
    modem.open();
    EXPECT_EQ(modem.ask("AT"), "AT\r" + OK);
}

// ---- the log ----

TEST(Log, TellsWhatPassedAndWhen) {
    Directory directory;
    const fs::path log = directory / "log";
    {
        Modem modem({"--log", log.string(), "--clock", "driven=2026-03-29 01:59:59", "--fault",
                     "+CSQ=unsolicited=+A: \\n:1", "--echo", "always"},
                    "CET-1CEST,M3.5.0,M10.5.0/3");
        modem.ask("AT+CSQ");
        modem.letHappen({"advance", "1001ms"});
        modem.write("\\\x01");
        modem.readTo("\\\x01");
        modem.ask("AT+CMGS=18");
        modem.ask(TO_SELF);
        modem.letHappen({"raw", "Привет"});
        modem.readTo("\r\n");
        modem.write("AT+HALF");
        modem.readTo("HALF");
        modem.letHappen({"reset"});
    }
    EXPECT_EQ(contentOf(log),
              "2026-03-29T01:59:59.000+01:00 * the terminal is there\n"
              "2026-03-29T01:59:59.000+01:00 < AT+CSQ\\r\n"
              "2026-03-29T01:59:59.000+01:00 > AT+CSQ\\r\n"
              "2026-03-29T01:59:59.000+01:00 ! +CSQ=unsolicited=+A: \\\\n:1\n"
              "2026-03-29T01:59:59.000+01:00 > "
              "\\r\\n+CSQ: 21,99\\r\\n\\r\\n+A: \\r\\n\\r\\n\\r\\nOK\\r\\n\n"
              "2026-03-29T01:59:59.000+01:00 * {\"by\":\"1001ms\",\"event\":\"advance\"}\n"
              "2026-03-29T03:00:00.001+02:00 > \\\\\\x01\n"
              "2026-03-29T03:00:00.001+02:00 < \\\\\\x01AT+CMGS=18\\r\n"
              "2026-03-29T03:00:00.001+02:00 > AT+CMGS=18\\r\n"
              "2026-03-29T03:00:00.001+02:00 > \\r\\n> \n"
              "2026-03-29T03:00:00.001+02:00 < 0001000B915155001000F0000005E8329BFD06\\x1A\n"
              "2026-03-29T03:00:00.001+02:00 > 0001000B915155001000F0000005E8329BFD06\\x1A\n"
              "2026-03-29T03:00:00.001+02:00 > \\r\\n+CMGS: 1\\r\\n\\r\\nOK\\r\\n\n"
              "2026-03-29T03:00:00.001+02:00 * {\"event\":\"raw\",\"line\":\"\\xD0\\x9F\\xD1\\x80"
              "\\xD0\\xB8\\xD0\\xB2\\xD0\\xB5\\xD1\\x82\"}\n"
              "2026-03-29T03:00:00.001+02:00 > \\r\\n\\xD0\\x9F\\xD1\\x80\\xD0\\xB8\\xD0\\xB2"
              "\\xD0\\xB5\\xD1\\x82\\r\\n\n"
              "2026-03-29T03:00:00.001+02:00 > AT+HALF\n"
              "2026-03-29T03:00:00.001+02:00 * {\"event\":\"reset\"}\n"
              "2026-03-29T03:00:00.001+02:00 < AT+HALF\n");
}

TEST(Log, GoesOnWhereTheLastRunEndedAndIsRefusedWhereItCannotBe) {
    Directory directory;
    const fs::path log = directory / "log";
    for (int run = 0; run < 2; run++) { Modem modem({"--log", log.string()}); }
    const std::string text = contentOf(log);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    const std::string link = (directory / "m").string();
    const Outcome outcome = Process({"--link", link, "--log", "/no/where"}).end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output,
              "smspb-simmodem: the log /no/where cannot be written: No such file or directory\n");
}

// ---- the state ----

std::string stateWith(const std::string &member) {
    return "{\"smspb_simmodem_state\": 1" + (member.empty() ? "" : ", " + member) + "}";
}

TEST(State, KeepsOverPowerOffWhatAModemKeeps) {
    Directory directory;
    const std::string file = (directory / "state").string();
    const std::vector<std::string> options{"--state", file, "--sm-size", "2"};
    {
        Quiet modem(options);
        modem.ask("AT+CMGF=1;+CREG=2;S7=33;&W");
        modem.ask("AT+CMGF=0");
        modem.ask("AT+CSCA=\"+4917\"");
        EXPECT_EQ(modem.ask("AT+CPBW=3,\"+4917\",145,\"Ann\""), OK);
        modem.ask("AT+CSCS=\"UCS2\"");
        EXPECT_EQ(modem.ask("AT+CPBW=7,\"00310032\",129,\"041F0440D800\""), OK);
        modem.ask("AT+CSCS=\"IRA\"");
        for (int i = 0; i < 3; i++) { ASSERT_NE(modem.send(TO_SELF), ""); } // one waits
        modem.ask("AT+CMGR=1");
        modem.ask("AT+CPMS=\"ME\",\"MT\"");
        modem.ask("AT+CGDCONT=1,\"IP\",\"internet\"");
    }
    const std::string kept = contentOf(file);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    {
        Modem modem(options);
        const std::string settings = modem.ask("ATE0+CMGF?;+CREG?;S7?");
        EXPECT_TRUE(contains(settings, "+CMGF: 1") && contains(settings, "+CREG: 2,1") &&
                    contains(settings, "033"))
            << settings;
    }
    EXPECT_EQ(contentOf(file), kept);
    Quiet modem(options);
    modem.ask("AT+CMGF=0");
    EXPECT_TRUE(contains(modem.ask("AT+CPMS?"), "\"ME\",0,100,\"MT\",2,102,\"SM\",2,2"));
    EXPECT_TRUE(contains(modem.ask("AT+CPBR=3"), "+CPBR: 3,\"+4917\",145,\"Ann\""));
    modem.ask("AT+CSCS=\"UCS2\"");
    EXPECT_TRUE(contains(modem.ask("AT+CPBR=7"), "\"041F0440D800\""));
    modem.ask("AT+CSCS=\"IRA\"");
    EXPECT_TRUE(contains(modem.ask("AT+CSCA?"), "\"+4917\""));
    EXPECT_TRUE(contains(modem.ask("AT+CGDCONT?"), "\"internet\""));
    modem.ask("AT+CPMS=\"SM\"");
    EXPECT_TRUE(contains(modem.ask("AT+CMGR=1"), "+CMGR: 1,,24"));
    EXPECT_TRUE(contains(modem.ask("AT+CMGR=2"), "+CMGR: 0,,24"));
    modem.ask("AT+CNMI=2,1");
    modem.write("AT+CMGD=1\r");
    EXPECT_TRUE(contains(modem.readTo("\"SM\",1\r\n"), "+CMTI: \"SM\",1")); // what waited
    EXPECT_EQ(modem.send(TO_SELF), "\r\n+CMGS: 4\r\n" + OK);
}

TEST(State, WrittenByHandNeedNotSayEverything) {
    Directory directory;
    writeTo(directory / "state",
            stateWith(R"("number": "+123", "storages": {"SM": [{"place": 7, "status": "read", )"
                      R"("pdu": ")" +
                      DELIVER +
                      R"("}]}, "phonebooks": {"SM": [{"place": 2, "number": "110", )"
                      R"("name": "Пол"}]})"));
    Quiet modem({"--state", (directory / "state").string()});
    EXPECT_TRUE(contains(modem.ask("AT+CMGR=7"), "+CMGR: 1,,24"));
    EXPECT_TRUE(contains(modem.ask("AT+CNUM"), "\"+123\""));
    modem.ask("AT+CSCS=\"UCS2\"");
    EXPECT_TRUE(contains(modem.ask("AT+CPBR=2"), "\"041F043E043B\""));
}

struct BadState {
    const char *name;
    std::string content, error;
};

void PrintTo(const BadState &state, std::ostream *out) { *out << state.name; }

class BadStates : public ::testing::TestWithParam<BadState> {};

TEST_P(BadStates, AreRefusedAndLeftAsTheyAre) {
    Directory directory;
    const std::string file = (directory / "state").string();
    writeTo(file, GetParam().content);
    const Outcome outcome = Process({"--link", (directory / "m").string(), "--state", file}).end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "smspb-simmodem: the state in " + file +
                                  " cannot be used: " + GetParam().error + "\n");
    EXPECT_EQ(contentOf(file), GetParam().content);
    EXPECT_FALSE(fs::exists(directory / "m"));
}

std::string inStorage(const std::string &messages) {
    return stateWith("\"storages\": {\"SM\": [" + messages + "]}");
}

std::string message(const std::string &place, const std::string &status, const std::string &pdu) {
    return "{\"place\": " + place + ", \"status\": \"" + status + "\", \"pdu\": \"" + pdu + "\"}";
}

INSTANTIATE_TEST_SUITE_P(
    State, BadStates,
    ::testing::Values(
        BadState{"Empty", "",
                 "no JSON: parse error at line 1, column 1: syntax error while parsing value - "
                 "unexpected end of input; expected '[', '{', or a literal"},
        BadState{"NoObject", "[]", "the document is an object"},
        BadState{"NoVersion", "{}", "the document lacks \"smspb_simmodem_state\""},
        BadState{"OtherVersion", "{\"smspb_simmodem_state\": 2}",
                 "smspb_simmodem_state is a number from 1 to 1"},
        BadState{"UnknownName", stateWith("\"colour\": 1"),
                 "colour is not known; there are smspb_simmodem_state, number, service_centre, "
                 "profile, message_profiles, storages, selected, phonebooks, pending, contexts, "
                 "last_reference, next_concatenation, next_serial_number, clock_ahead"},
        BadState{"NameTwice", stateWith("\"storages\": {}, \"storages\": {}"),
                 "\"storages\" stands twice in one object"},
        BadState{"Number", stateWith("\"number\": \"12a\""),
                 "number is a number: \"+\" and digits, 20 at most"},
        BadState{"NumberType", stateWith("\"number\": 12"), "number is a text"},
        BadState{"Storage", stateWith("\"storages\": {\"MT\": []}"), "storages.MT is not known"},
        BadState{"StorageType", stateWith("\"storages\": {\"SM\": {}}"), "storages.SM is a list"},
        BadState{"NoPlace", inStorage("{}"), "storages.SM[0] lacks \"place\""},
        BadState{"PlaceZero", inStorage(message("0", "read", DELIVER)),
                 "storages.SM[0].place is a number from 1 to 50"},
        BadState{"PlaceBehindTheEnd", inStorage(message("51", "read", DELIVER)),
                 "storages.SM[0].place is a number from 1 to 50"},
        BadState{"HugePlace", inStorage(message("18446744073709551616", "read", DELIVER)),
                 "storages.SM[0].place is a number from 1 to 50"},
        BadState{"PlaceTwice",
                 inStorage(message("3", "read", DELIVER) + "," + message("3", "read", DELIVER)),
                 "storages.SM[1].place is the place of another one too"},
        BadState{"Status", inStorage(message("1", "lost", DELIVER)),
                 "storages.SM[0].status is unread, read, unsent or sent"},
        BadState{"StatusOfSubmit", inStorage(message("1", "unsent", DELIVER)),
                 "storages.SM[0].pdu is of a type that \"status\" does not go with"},
        BadState{"Pdu", inStorage(message("1", "read", "0791")),
                 "storages.SM[0].pdu is no PDU in hexadecimal: a service centre and a whole TPDU"},
        BadState{"PduTooLong", inStorage(message("1", "read", std::string(401, '0'))),
                 "storages.SM[0].pdu is longer than 400 octets"},
        BadState{"Selected", stateWith("\"selected\": [\"SM\", \"SM\", \"BM\"]"),
                 "selected[2] is ME, SM or MT"},
        BadState{"SelectedCount", stateWith("\"selected\": [\"SM\"]"), "selected has 3 elements"},
        BadState{"Setting", stateWith("\"profile\": {\"colour\": 1}"),
                 "profile.colour is no setting"},
        BadState{"SettingType", stateWith("\"profile\": {\"echo\": 1}"),
                 "profile.echo is true or false"},
        BadState{"SettingRange", stateWith("\"profile\": {\"operator_format\": 3}"),
                 "profile.operator_format is a number from 0 to 2"},
        BadState{"Register", stateWith("\"profile\": {\"registers\": {\"9\": 1}}"),
                 "profile.registers.9 is no register of this modem"},
        BadState{"RegisterValue", stateWith("\"profile\": {\"registers\": {\"3\": 128}}"),
                 "profile.registers.3 is a number from 0 to 127"},
        BadState{"Charset", stateWith("\"profile\": {\"charset\": \"EBCDIC\"}"),
                 "profile.charset is no character set"},
        BadState{"Kept", stateWith("\"profile\": {\"kept\": {\"+IPR\": [1]}}"),
                 "profile.kept.+IPR has two numbers"},
        BadState{"Validity", stateWith("\"profile\": {\"text_parameters\": {\"first\": 25}}"),
                 "profile.text_parameters has a validity that is not as \"first\" says"},
        BadState{"Contact", stateWith("\"phonebooks\": {\"SM\": [{\"place\": 1}]}"),
                 "phonebooks.SM[0] lacks \"number\""},
        BadState{"ContactNumber",
                 stateWith("\"phonebooks\": {\"SM\": [{\"place\": 1, \"number\": \"\\\"\"}]}"),
                 "phonebooks.SM[0].number has characters that nobody dials"},
        BadState{"Pending",
                 stateWith("\"pending\": [{\"kind\": \"report\", \"pdu\": \"" + DELIVER + "\"}]"),
                 "pending[0].pdu is no STATUS-REPORT"},
        BadState{"Reference", stateWith("\"last_reference\": 256"),
                 "last_reference is a number from 0 to 255"},
        BadState{"Clock", stateWith("\"clock_ahead\": -9223372036854775808"),
                 "clock_ahead is a number from -3162240000 to 3162240000"}),
    [](const auto &state) { return std::string(state.param.name); });

TEST(State, CutOffAnywhereIsRefusedOrWhole) {
    Directory directory;
    const std::string file = (directory / "state").string();
    { Quiet(std::vector<std::string>{"--state", file}).send(TO_SELF); }
    const std::string whole = contentOf(file);
    for (std::size_t size = 1; size < whole.size() - 1; size += whole.size() / 30) {
        writeTo(file, whole.substr(0, size));
        EXPECT_EQ(Process({"--link", (directory / "m").string(), "--state", file}).end().status, 1)
            << size;
    }
}

TEST(State, OfTwoModemsInOneFileIsRefused) {
    Directory directory;
    const std::string file = (directory / "state").string();
    Quiet modem({"--state", file});
    modem.send(TO_SELF); // another file by now
    const Outcome outcome = Process({"--link", (directory / "m").string(), "--state", file}).end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "smspb-simmodem: " + fs::canonical(file).string() +
                                  ": another simulated modem keeps its state there\n");
}

TEST(State, WhereNoneCanBeKeptIsRefused) {
    Directory directory;
    const std::string link = (directory / "m").string();
    for (const auto &[file, error] : std::vector<std::pair<std::string, std::string>>{
             {(directory / "none" / "state").string(), "No such file or directory"},
             {             (directory / ".").string(),           "no regular file"},
             {                            "/dev/null",           "no regular file"},
             {                     "/proc/self/state", "No such file or directory"}
    }) {
        const Outcome outcome = Process({"--link", link, "--state", file}).end();
        EXPECT_EQ(outcome.status, 1) << file;
        EXPECT_TRUE(contains(outcome.output, error)) << outcome.output;
    }
}

TEST(State, ThatCannotBeWrittenAnyMoreIsToldOnceAndTheModemGoesOn) {
    Directory directory;
    const std::string file = (directory / "state").string();
    const std::string link = (directory / "m").string();
    Process modem({"--link", link, "--state", file});
    modem.readLine();
    const auto receive = [&link] {
        return Process({"ctl", "--link", link, "text", "+49123", "Hello"}).end().output;
    };
    receive();
    const std::string before = contentOf(file);
    rlimit limit{100, RLIM_INFINITY};
    ASSERT_EQ(::prlimit(modem.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    for (int i = 0; i < 3; i++) { EXPECT_EQ(receive(), "{\"parts\":1}\n"); }
    EXPECT_EQ(contentOf(file), before);
    EXPECT_FALSE(fs::exists(file + ".new"));
    limit.rlim_cur = RLIM_INFINITY;
    ASSERT_EQ(::prlimit(modem.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
    receive();
    EXPECT_TRUE(contains(contentOf(file), "\"place\": 5"));
    const Outcome outcome = modem.end(SIGTERM);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_TRUE(contains(outcome.output, "the state cannot be kept: " +
                                             fs::canonical(file).string() + ": File too large\n"))
        << outcome.output;
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1);
}

// What was answered is in the file, however the modem ended.
TEST(State, OutlivesAKillAtAnyMoment) {
    Directory directory;
    const std::string file = (directory / "state").string();
    const std::string TEXT = "{\"event\":\"text\",\"from\":\"1\",\"text\":\"x\"}\n";
    int kept = 0;
    for (int run = 0; run < 12; run++) {
        const std::string link = (directory / ("m" + std::to_string(run)).c_str()).string();
        Process modem({"--link", link, "--state", file, "--sm-size", "10000"});
        ASSERT_EQ(modem.readLine(), "ready: " + link + "\n") << "run " << run;
        const RawClient client(link + ".ctl");
        for (int i = 0; i < run; i++) {
            ASSERT_TRUE(client.send(TEXT));
            ASSERT_EQ(client.readLine(), "{\"parts\":1}\n");
            kept++;
        }
        for (int i = 0; i < 5; i++) { ASSERT_TRUE(client.send(TEXT)); }
        std::this_thread::sleep_for(std::chrono::microseconds(173 * run));
        ::kill(modem.pid(), SIGKILL);
        modem.end();
    }
    const std::string link = (directory / "last").string();
    Process modem({"--link", link, "--state", file, "--sm-size", "10000"});
    ASSERT_EQ(modem.readLine(), "ready: " + link + "\n");
    const std::string status = Process({"ctl", "--link", link, "status"}).end().output;
    const std::size_t at = status.find("\"SM\":{\"size\":10000,\"used\":");
    ASSERT_NE(at, status.npos) << status;
    const int used = std::atoi(status.c_str() + at + 26);
    EXPECT_GE(used, kept);
    EXPECT_LE(used, kept + 12 * 5); // those whose answer nobody waited for
}

// ---- the control socket ----

TEST(Control, TakesItsLinkOnEitherSideOfTheEvent) {
    Quiet modem;
    const std::string link = modem.link().string();
    for (const std::vector<std::string> &words : {
             std::vector<std::string>{"--link",          link,         "ctl",      "status"},
             {   "ctl",      "--link",          link,      "status"},
             {   "ctl",      "status",      "--link",          link},
             { "--ctl", link + ".ctl",         "ctl",      "status"},
             {   "ctl",       "--ctl", link + ".ctl",      "status"},
             {   "ctl",      "status",       "--ctl", link + ".ctl"}
    }) {
        const Outcome outcome = Process(words).end();
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        EXPECT_TRUE(outcome.output.starts_with("{")) << outcome.output;
    }
    const Outcome outcome = Process({"ctl", "status"}).end();
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(contains(outcome.output, "--link or --ctl is required")) << outcome.output;
}

TEST(Control, ShowsTheStatusWhole) {
    Quiet modem({"--clock", "driven=2026-11-21 10:00:00", "--fault", "+CSQ=delay=5000:2-",
                 "--fault", "+CREG=error:50%"},
                "UTC0");
    modem.ask("AT+CMGF=1;+CSQ");
    modem.write("AT+CSQ\r");
    const std::string status = modem.control({"status"});
    for (
        const char *part :
        {R"("clock":{"ahead":0,"driven":true,"next_timer_ms":5000,"now":"2026-11-21T10:00:00.000+00:00","timers_running":1})",
         R"("faults":[{"acted":1,"fault":"+CSQ=delay=5000:2-","met":2},{"acted":0,"fault":"+CREG=error:50%","met":0}])",
         R"("selected":["SM","SM","SM"])", R"("text_mode":true)", R"("registered":true)",
         R"("pending":0)", R"("storages":{"ME":{"size":100,"used":0},"SM":{"size":50,"used":0}})",
         R"("functionality":1)", R"("sim":true)", R"("held":0)", R"("unacknowledged":false)"}) {
        EXPECT_TRUE(contains(status, part)) << part << "\n" << status;
    }
    modem.letHappen({"advance", "5"});
    modem.readReply();
}

// Somebody else's socket, which hangs up in mid-answer.
TEST(Control, ThatDiesInMidAnswerIsToldSo) {
    Directory directory;
    const std::string path = (directory / "ctl").string();
    const Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener.get(), 2), 0);
    for (const auto &[begun, error] : std::vector<std::pair<std::string, std::string>>{
             {"{\"pending\":", "went away in the middle of its answer"},
             {             "",           "went away without an answer"}
    }) {
        Process control({"ctl", "--ctl", path, "status"});
        {
            const Descriptor client(::accept(listener.get(), nullptr, nullptr));
            std::array<char, 64> line{};
            EXPECT_GT(::read(client.get(), line.data(), line.size()), 0);
            EXPECT_EQ(::write(client.get(), begun.data(), begun.size()),
                      static_cast<ssize_t>(begun.size()));
        }
        const Outcome outcome = control.end();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.output,
                  "smspb-simmodem: the simulated modem " + error + ": End of file\n");
    }
}

TEST(Control, AFloodLeavesTheLineItsTurn) {
    Quiet modem;
    const RawClient client(modem.link().string() + ".ctl");
    std::string flood;
    for (int i = 0; i < 500; i++) { flood += "{\"event\":\"status\"}\n"; }
    std::thread flooder([&client, &flood] { client.send(flood); });
    for (int i = 0; i < 50; i++) { ASSERT_EQ(modem.ask("AT"), OK); }
    for (int i = 0; i < 500; i++) { ASSERT_TRUE(client.readLine().ends_with("}\n")) << i; }
    flooder.join();
}

TEST(Clock, ThatRunsByItselfCannotBeDriven) {
    Quiet modem;
    EXPECT_EQ(
        modem.control({"advance", "1h"}),
        "smspb-simmodem ctl: the clock runs by itself: start the modem with --clock driven\n");
    Quiet driven({"--clock", "driven"});
    EXPECT_TRUE(contains(driven.control({"advance", "soon"}), "\"soon\" is no time: 90 or 90s"));
    EXPECT_TRUE(contains(driven.control({"advance", "367d"}), "a year at most"));
    const RawClient client(driven.link().string() + ".ctl");
    for (int year = 2026; year < 2099; year++) {
        client.send("{\"event\":\"advance\",\"by\":\"366d\"}\n");
        EXPECT_TRUE(client.readLine().starts_with("{\"now\":")) << year;
    }
    EXPECT_TRUE(contains(driven.control({"advance", "365d"}), "ends with the year 2099"));
}

} // namespace
