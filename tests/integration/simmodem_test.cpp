// The simulated modem as a process, spoken to over its terminal. PDUs and replies are written by
// hand from TS 23.040, 27.005, 27.007 and V.250.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <list>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "support/simmodem.h"

namespace {

namespace fs = std::filesystem;
using namespace simulated;

// ---- octets by hand ----

const std::string OWN = "0B915155001000F0";    // TP-DA or TP-OA +15550001000
const std::string OTHER = "0B915155002000F0";  // +15550002000
const std::string CENTRE = "07915155000090F9"; // the service centre +15550000099
const std::string HELLO = "0005E8329BFD06";    // TP-DCS 0, TP-UDL 5, "hello" in septets

// What stands for any TP-SCTS, and for the same as text.
struct AnyTime {
    std::string name;
    std::size_t length;
};
const std::array<AnyTime, 2> ANY_TIMES = {
    {{"<time>", 14}, {"<when>", 20}}
};

// SUBMIT without service centre and validity, TP-PID 0; 18 octets when the body is HELLO.
std::string submit(const std::string &destination, const std::string &body,
                   const std::string &first = "01") {
    return "00" + first + "00" + destination + "00" + body;
}

// Puts "<time>" in the place of each time stamp, so that replies can be compared.
std::string withoutTimes(const std::string &expected, std::string actual) {
    for (std::size_t at = expected.find('<'); at != std::string::npos;
         at = expected.find('<', at + 1)) {
        for (const AnyTime &any : ANY_TIMES) {
            const bool isHere = expected.compare(at, any.name.size(), any.name) == 0;
            if (isHere && at + any.length <= actual.size()) {
                actual.replace(at, any.length, any.name);
            }
        }
    }
    return actual;
}

const std::string OK = "\r\nOK\r\n";
const std::string ERROR = "\r\nERROR\r\n";
const std::string PROMPT = "\r\n> ";
const std::string HELLO_SELF = submit(OWN, HELLO) + "\x1A";
const std::string HELLO_OTHER = submit(OTHER, HELLO) + "\x1A";

std::string lines(std::initializer_list<std::string> texts) {
    std::string all;
    for (const std::string &text : texts) { all += "\r\n" + text + "\r\n"; }
    return all;
}
std::string okay(const std::string &information) { return lines({information, "OK"}); }
std::string cms(int code) { return lines({"+CMS ERROR: " + std::to_string(code)}); }
std::string sent(int reference) { return okay("+CMGS: " + std::to_string(reference)); }

template <typename Row> std::string nameOf(const ::testing::TestParamInfo<Row> &info) {
    return info.param.name;
}

// ---- conversations from tests/vectors/at_dialogues*.txt ----

struct Step {
    std::string send, reply;        // to the last character; the reply may hold any time
    std::vector<std::string> event; // instead of what is sent
};

struct Script {
    std::string sentence, place; // the file and its line
    std::vector<std::string> options;
    std::vector<Step> steps;
};

void PrintTo(const Script &script, std::ostream *out) {
    *out << script.place << " [" << script.sentence << "]";
}

class Dialogues {
public:
    explicit Dialogues(const std::vector<std::string> &files) {
        for (const std::string &file : files) { read(file); }
    }

    std::vector<Script> scripts;

private:
    void read(const std::string &file) {
        std::ifstream in(SMSPB_VECTORS_DIR "/" + file);
        int number = 0;
        for (std::string line; std::getline(in, line);) {
            const std::string place = file + ":" + std::to_string(++number);
            if (line.empty() || line.front() == '#') { continue; }
            if (!takeLine(line, place)) {
                std::fprintf(stderr, "%s: not understood: %s\n", place.c_str(), line.c_str());
                std::exit(2);
            }
        }
        if (number == 0) {
            std::fprintf(stderr, "%s: cannot be read\n", file.c_str());
            std::exit(2);
        }
    }

    bool takeLine(const std::string &line, const std::string &place) {
        const std::string text = line.size() > 2 ? expanded(line.substr(2)) : "";
        if (line.starts_with("let ")) { return takeDefinition(line.substr(4)); }
        if (line.front() == '[') {
            scripts.push_back({line.substr(1, line.rfind(']') - 1), place, {}, {}});
            return true;
        }
        if (scripts.empty()) { return false; }
        Script &script = scripts.back();
        if (line.starts_with("--")) {
            const std::size_t blank = line.find(' ');
            script.options.push_back(line.substr(0, blank));
            if (blank != std::string::npos) { script.options.push_back(line.substr(blank + 1)); }
            return true;
        }
        if (line.starts_with("! ")) {
            script.steps.push_back({"", "", wordsOf(text)});
            return true;
        }
        if (line.starts_with("> ")) {
            const bool ended =
                text.ends_with('\r') || text.ends_with('\x1A') || text.ends_with('\x1B');
            script.steps.push_back({ended ? text : text + "\r", "", {}});
            return true;
        }
        return !script.steps.empty() && takeReply(line, text, script.steps.back().reply);
    }

    // Words between blanks; 'one of several words' between quotes.
    static std::vector<std::string> wordsOf(const std::string &text) {
        std::vector<std::string> words{""};
        bool quoted = false;
        for (const char c : text) {
            if (c == '\'') {
                quoted = !quoted;
            } else if (c == ' ' && !quoted) {
                words.emplace_back();
            } else {
                words.back() += c;
            }
        }
        return words;
    }

    static bool takeReply(const std::string &line, const std::string &text, std::string &reply) {
        if (line == "?") {
            reply += PROMPT;
        } else if (line.starts_with("< ")) {
            reply += "\r\n" + text + "\r\n";
        } else if (line.starts_with("| ")) {
            reply += text + "\r\n";
        } else if (line.starts_with("= ")) {
            reply += text;
        } else {
            return false;
        }
        return true;
    }

    bool takeDefinition(const std::string &text) {
        const std::size_t equals = text.find(" = ");
        if (equals == std::string::npos) { return false; }
        const std::string name = text.substr(0, text.find(' '));
        names_.emplace_back("<" + name + ">", expanded(text.substr(equals + 3)));
        return true;
    }

    std::string expanded(std::string text) const {
        for (const auto &[name, value] : names_) {
            for (std::size_t at = text.find(name); at != std::string::npos;
                 at = text.find(name, at)) {
                text.replace(at, name.size(), value);
            }
        }
        return withCodes(std::move(text));
    }

    // "<7F>" is the character of that hexadecimal code.
    static std::string withCodes(std::string text) {
        for (std::size_t at = text.find('<'); at != std::string::npos;
             at = text.find('<', at + 1)) {
            if (at + 3 >= text.size() || text[at + 3] != '>') { continue; }
            const std::string digits = text.substr(at + 1, 2);
            if (std::isxdigit(digits[0]) == 0 || std::isxdigit(digits[1]) == 0) { continue; }
            text.replace(at, 4, 1, static_cast<char>(std::stoi(digits, nullptr, 16)));
        }
        return text;
    }

    std::vector<std::pair<std::string, std::string>> names_ = {
        {    "<CR>",   "\r"},
        {    "<LF>",   "\n"},
        {    "<BS>",   "\b"},
        {"<CTRL-Z>", "\x1A"},
        {   "<ESC>", "\x1B"}
    };
};

// "a message to itself" -> "AMessageToItself".
std::string sentenceName(const ::testing::TestParamInfo<Script> &info) {
    std::string name;
    bool begins = true;
    for (const char c : info.param.sentence) {
        const bool letter = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (letter) {
            name += begins ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        }
        begins = !letter;
    }
    return name;
}

class AtDialogue : public ::testing::TestWithParam<Script> {};

TEST_P(AtDialogue, Runs) {
    Quiet modem(GetParam().options, "UTC0");
    for (const Step &step : GetParam().steps) {
        if (step.event.empty()) {
            modem.write(step.send);
        } else {
            modem.letHappen(step.event);
        }
        const std::string reply = modem.readUntil([&](const std::string &text) {
            return withoutTimes(step.reply, text).size() >= step.reply.size();
        });
        ASSERT_EQ(withoutTimes(step.reply, reply), step.reply) << "to " << step.send;
    }
    modem.write("AT\r"); // nothing more may stand between the last reply and this one
    const std::string last = modem.readReply();
    EXPECT_EQ(last, last.starts_with("AT") ? "AT\r" + OK : OK);
}

INSTANTIATE_TEST_SUITE_P(Vectors, AtDialogue,
                         ::testing::ValuesIn(Dialogues({"at_dialogues.txt", "at_dialogues_text.txt",
                                                        "at_dialogues_delivery.txt",
                                                        "at_dialogues_world.txt"})
                                                 .scripts),
                         sentenceName);

// ---- the line ----

TEST(Line, EchoesUntilToldNotTo) {
    Modem modem;
    EXPECT_EQ(modem.ask("at+csq"), "at+csq\r\r\n+CSQ: 21,99\r\n\r\nOK\r\n");
    EXPECT_EQ(modem.ask("ATE0"), "ATE0\r\r\nOK\r\n");
    EXPECT_EQ(modem.ask("AT"), "\r\nOK\r\n");
    EXPECT_EQ(modem.ask("ATE1"), "\r\nOK\r\n");
    EXPECT_EQ(modem.ask("AT+CMGS=18"), "AT+CMGS=18\r\r\n> ");
    EXPECT_EQ(modem.ask(HELLO_OTHER), HELLO_OTHER + sent(1));
}

TEST(Line, EchoesCharactersAsTheyCome) {
    Modem modem;
    for (const std::string c : {"A", "T", "+", "C"}) {
        modem.write(c);
        EXPECT_EQ(modem.readTo(c), c);
    }
}

TEST(Line, AnOverlongLineIsRefused) {
    Quiet modem;
    EXPECT_EQ(modem.ask("AT" + std::string(2049, 'E')), ERROR);
    EXPECT_EQ(modem.ask("AT"), OK);
    EXPECT_EQ(modem.ask("AT" + std::string(2046, ' ') + "E0"), OK);
}

TEST(Line, AnOverlongPduIsRefused) {
    Quiet modem;
    EXPECT_EQ(modem.ask("AT+CMGS=164"), PROMPT);
    EXPECT_EQ(modem.ask(std::string(10000, '0') + "\x1A"), cms(304));
    EXPECT_EQ(modem.ask("AT"), OK);
}

TEST(Line, CommandsInOneWriteAreAnsweredInOrder) {
    Quiet modem;
    std::string commands;
    std::string replies;
    for (int i = 0; i < 200; i++) {
        commands += i % 2 == 0 ? "AT+CSQ\r" : "AT+CMGR=1\r";
        replies += i % 2 == 0 ? okay("+CSQ: 21,99") : cms(321);
    }
    modem.write(commands);
    EXPECT_EQ(modem.readUntil([&](const auto &text) { return text.size() >= replies.size(); }),
              replies);
}

// A poll interval or a sleep would show in each of them; a busy machine only in some.
TEST(Line, ACommandCostsNoWaiting) {
    Quiet modem;
    std::vector<steady_clock::duration> spent(400);
    for (auto &time : spent) {
        const auto begin = steady_clock::now();
        ASSERT_EQ(modem.ask("AT"), OK);
        time = steady_clock::now() - begin;
    }
    std::sort(spent.begin(), spent.end());
    EXPECT_LT(spent[spent.size() / 4], 2ms);
}

TEST(Line, LatencyGoesBeforeReplyAndPrompt) {
    Quiet modem({"--latency", "50"});
    const auto begin = steady_clock::now();
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    EXPECT_GE(steady_clock::now() - begin, 50ms);
    EXPECT_EQ(modem.ask(HELLO_OTHER), sent(1));
    EXPECT_GE(steady_clock::now() - begin, 100ms);
}

TEST(Line, CharactersDuringAReplyWaitForItsEnd) {
    Quiet modem({"--latency", "20"});
    modem.write("AT+CSQ\rAT+CMGF?\r");
    const std::string expected = okay("+CSQ: 21,99") + okay("+CMGF: 0");
    EXPECT_EQ(modem.readTo(expected), expected);
}

// ---- messages ----

// TPDUs of the user data that a listing holds, in order of index.
std::vector<std::string> userDataOf(const std::string &listing, std::size_t behind) {
    std::vector<std::string> found;
    for (std::size_t at = listing.find("+CMGL: "); at != std::string::npos;
         at = listing.find("+CMGL: ", at + 1)) {
        const std::size_t pdu = listing.find("\r\n", at) + 2;
        found.push_back(listing.substr(pdu + behind, listing.find("\r\n", pdu) - pdu - behind));
    }
    return found;
}

std::string hex(unsigned value) {
    static constexpr std::string_view DIGITS = "0123456789ABCDEF";
    return {DIGITS[value >> 4 & 0xF], DIGITS[value & 0xF]};
}

// 140 octets of user data with a concatenation header, every octet value among them.
std::string segment(unsigned dcs, unsigned length, unsigned number, unsigned total) {
    std::string body = hex(dcs) + hex(length) + "050003A5" + hex(total) + hex(number);
    for (unsigned i = 6; i < 140; i++) { body += hex((number * 134 + i * 7) & 0xFF); }
    return body;
}

struct Coding {
    const char *name;
    unsigned dcs, length; // TP-DCS, TP-UDL
};

class LongMessages : public ::testing::TestWithParam<Coding> {};

TEST_P(LongMessages, ComeBackOctetByOctet) {
    const auto [name, dcs, length] = GetParam();
    constexpr unsigned TOTAL = 60;
    Quiet modem({"--sm-size", "60"});
    modem.ask("AT+CNMI=2,1,0,0,0");
    std::vector<std::string> sentBodies;
    for (unsigned number = 1; number <= TOTAL; number++) {
        sentBodies.push_back(segment(dcs, length, number, TOTAL));
        ASSERT_EQ(modem.ask("AT+CMGS=153"), PROMPT);
        modem.write(submit(OWN, sentBodies.back(), "41") + "\x1A");
        const std::string index = std::to_string(number);
        const std::string expected = lines({"+CMGS: " + index, "OK", "+CMTI: \"SM\"," + index});
        ASSERT_EQ(modem.readTo(expected), expected);
        sentBodies.back().erase(0, 2); // the coding stands before the time stamp then
    }
    const std::size_t behind = CENTRE.size() + 2 + OWN.size() + 4 + 14;
    EXPECT_EQ(userDataOf(modem.ask("AT+CMGL=4"), behind), sentBodies);
}

INSTANTIATE_TEST_SUITE_P(Messages, LongMessages,
                         ::testing::Values(Coding{"SevenBit", 0x00, 160},
                                           Coding{"EightBit", 0x04, 140},
                                           Coding{"Ucs2", 0x08, 140}),
                         nameOf<Coding>);

TEST(Messages, TheReferenceWrapsAfter255) {
    Quiet modem;
    for (int i = 1; i <= 255; i++) { ASSERT_EQ(modem.send(HELLO_OTHER), sent(i)); }
    EXPECT_EQ(modem.send(HELLO_OTHER), sent(0));
}

// TP-SCTS as seconds of local time since the epoch; its zone octet is checked by the caller.
std::time_t localSeconds(const std::string &stamp) {
    const auto pair = [&](std::size_t i) {
        return (stamp[i * 2 + 1] - '0') * 10 + (stamp[i * 2] - '0');
    };
    std::tm time{};
    time.tm_year = pair(0) + 100;
    time.tm_mon = pair(1) - 1;
    time.tm_mday = pair(2);
    time.tm_hour = pair(3);
    time.tm_min = pair(4);
    time.tm_sec = pair(5);
    return ::timegm(&time);
}

struct Zone {
    const char *name, *tz, *octet;
    long seconds;
};

class Timestamps : public ::testing::TestWithParam<Zone> {};

TEST_P(Timestamps, AreLocalTimeWithItsZone) {
    Quiet modem({}, GetParam().tz);
    const std::time_t before = std::time(nullptr);
    ASSERT_EQ(modem.send(HELLO_SELF), sent(1));
    // std::time() may be a tick behind the clock that the modem asks.
    const auto after = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    const std::string reply = modem.ask("AT+CMGR=1");
    const std::size_t at = reply.find(OWN + "0000");
    ASSERT_NE(at, std::string::npos) << reply;
    const std::string stamp = reply.substr(at + OWN.size() + 4, 14);
    EXPECT_GE(localSeconds(stamp) - GetParam().seconds, before) << stamp;
    EXPECT_LE(localSeconds(stamp) - GetParam().seconds, after) << stamp;
    EXPECT_EQ(stamp.substr(12), GetParam().octet);
}

INSTANTIATE_TEST_SUITE_P(Messages, Timestamps,
                         ::testing::Values(Zone{"AtGreenwich", "UTC0", "00", 0},
                                           Zone{"East", "XXX-5:45", "32", 20700},  // 23 quarters
                                           Zone{"West", "XXX3:30", "49", -12600}), // -14 quarters
                         nameOf<Zone>);

TEST(Messages, UnsolicitedLinesNeverStandInAPromptOrReply) {
    Quiet modem({"--sm-size", "1", "--latency", "5"});
    modem.ask("AT+CNMI=2,1,0,0,0");
    modem.ask("AT+CMGS=18");
    modem.write(HELLO_SELF);
    const std::string indicated = lines({"+CMGS: 1", "OK", "+CMTI: \"SM\",1"});
    ASSERT_EQ(modem.readTo(indicated), indicated);
    modem.ask("AT+CMGS=18");
    ASSERT_EQ(modem.ask(HELLO_SELF), sent(2)); // waits for room
    modem.write("AT+CMGD=1;+CSQ;+CMGS=18\r");
    EXPECT_EQ(modem.readReply(), PROMPT);
    modem.write(HELLO_OTHER);
    const std::string expected = lines({"+CSQ: 21,99", "+CMGS: 3", "OK", "+CMTI: \"SM\",1"});
    EXPECT_EQ(modem.readTo(expected), expected);
}

TEST(Messages, WhatMode0CannotKeepBackWaitsInTheNetwork) {
    constexpr std::size_t KEPT = 100;
    constexpr std::size_t SENT = KEPT + 5;
    Quiet modem;
    modem.ask("AT+CNMI=0,2");
    for (std::size_t i = 1; i <= SENT; i++) {
        ASSERT_EQ(modem.send(HELLO_SELF), sent(static_cast<int>(i)));
    }
    modem.write("AT+CNMI=2,2\r");
    const std::string line = lines({"+CMT: ,24"});
    std::size_t count = 0;
    modem.readUntil([&](const std::string &text) {
        count = 0;
        for (std::size_t at = text.find(line); at != std::string::npos;
             at = text.find(line, at + 1)) {
            count++;
        }
        return count == SENT && text.ends_with("\r\n");
    });
    EXPECT_EQ(count, SENT);
}

// ---- faults that leave no reply ----

TEST(Fault, NoneActsOnTheFaultCommand) {
    Modem modem({"--fault", "*=error"});
    EXPECT_EQ(modem.ask("ATE0"), "ATE0\r" + ERROR);
    EXPECT_EQ(modem.ask("AT^FAULT"), "AT^FAULT\r" + OK);
    EXPECT_EQ(modem.ask("ATE0"), "ATE0\r" + OK);
}

TEST(Fault, SilenceLosesTheCommandAlone) {
    Quiet modem({"--fault", "+CMGF=1=silence"});
    modem.write("AT+CSQ;+CMGF=1\rAT+CMGF?\r");
    EXPECT_EQ(modem.readReply(), okay("+CMGF: 0"));
}

TEST(Fault, SilenceBehindThePdu) {
    Quiet modem({"--fault", "+CMGS=silence"});
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    modem.write(HELLO_SELF + "AT+CMGL=4\r");
    EXPECT_EQ(modem.readReply(), OK);
}

TEST(Fault, NoPromptLeavesCommandsWorking) {
    Quiet modem({"--fault", "+CMGS=no-prompt:1"});
    modem.write("AT+CMGS=18\r\x1B"
                "AT+CSQ\r");
    EXPECT_EQ(modem.readReply(), okay("+CSQ: 21,99"));
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
}

TEST(Fault, GarbageHasNoResult) {
    Quiet modem({"--fault", "+CSQ=garbage"});
    modem.write("AT+CSQ\rAT\r");
    const std::string all = modem.readReply();
    const std::string noise = all.substr(0, all.size() - OK.size());
    EXPECT_EQ(noise.size(), okay("+CSQ: 21,99").size());
    EXPECT_EQ(noise.find("OK"), std::string::npos);
    EXPECT_EQ(noise.find('\r'), std::string::npos);
    EXPECT_TRUE(std::any_of(noise.begin(), noise.end(), [](char c) { return c < 0; }));
}

TEST(Fault, DelayMakesTheReplyLateAndHoldsTheNext) {
    Quiet modem({"--fault", "+CSQ=delay=80:1"});
    const auto begin = steady_clock::now();
    modem.write("AT+CSQ\rAT\r");
    EXPECT_EQ(modem.readTo(okay("+CSQ: 21,99") + OK), okay("+CSQ: 21,99") + OK);
    EXPECT_GE(steady_clock::now() - begin, 80ms);
}

TEST(Fault, ADelayedReplyOfASentMessageHasItsPromptAtOnce) {
    Quiet modem({"--fault", "+CMGS=delay=500"});
    const auto begin = steady_clock::now();
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    EXPECT_LT(steady_clock::now() - begin, 500ms);
    EXPECT_EQ(modem.ask(HELLO_OTHER), sent(1));
    EXPECT_GE(steady_clock::now() - begin, 500ms);
}

bool comesBack(const fs::path &path) {
    const auto until = steady_clock::now() + SOON;
    while (steady_clock::now() < until) {
        if (fs::exists(path)) { return true; }
        ::usleep(500);
    }
    return false;
}

bool isHungUp(int fd) {
    pollfd waiting{fd, 0, 0}; // what is unread does not count
    return ::poll(&waiting, 1, static_cast<int>(SOON.count())) == 1 &&
           (waiting.revents & POLLHUP) != 0;
}

TEST(Fault, DropHangsUpAndComesBackWithItsMessages) {
    Quiet modem({"--fault", "+CSQ=drop=60:1"});
    modem.send(HELLO_SELF);
    modem.ask("AT+CNMI=2,1,0,0,0");
    const auto begin = steady_clock::now();
    modem.write("AT+CSQ\r");
    EXPECT_TRUE(isHungUp(modem.fd()));
    const bool gone = !fs::exists(fs::symlink_status(modem.link()));
    EXPECT_TRUE(gone || steady_clock::now() - begin >= 60ms);
    ASSERT_TRUE(comesBack(modem.link()));
    EXPECT_GE(steady_clock::now() - begin, 60ms);
    modem.close();
    modem.open();
    EXPECT_EQ(modem.ask("AT"), "AT\r\r\nOK\r\n"); // settings are back to the profile
    modem.ask("ATE0");
    EXPECT_EQ(modem.ask("AT+CNMI?"), okay("+CNMI: 2,0,0,0,0"));
    EXPECT_EQ(modem.ask("AT+CPMS?"), okay("+CPMS: \"SM\",1,50,\"SM\",1,50,\"SM\",1,50"));
    EXPECT_EQ(modem.ask("AT+CSQ"), okay("+CSQ: 21,99"));
}

TEST(Fault, DropBehindThePduSendsNothing) {
    Quiet modem({"--fault", "+CMGS=drop"});
    EXPECT_EQ(modem.ask("AT+CMGS=18"), PROMPT);
    modem.write(HELLO_SELF + "AT\r");
    EXPECT_TRUE(isHungUp(modem.fd()));
    modem.close();
    ASSERT_TRUE(comesBack(modem.link()));
    modem.open();
    modem.ask("ATE0");
    EXPECT_EQ(modem.ask("AT+CMGL=4"), OK);
}

TEST(Fault, DropIsSurvivedManyTimes) {
    Modem modem({"--fault", "+CSQ=drop"});
    for (int i = 0; i < 20; i++) {
        modem.write("AT+CSQ\rAT\rAT\r");
        ASSERT_TRUE(isHungUp(modem.fd()));
        modem.close();
        ASSERT_TRUE(comesBack(modem.link()));
        modem.open();
    }
    EXPECT_EQ(modem.ask("AT"), "AT\r\r\nOK\r\n");
}

// ---- the process and its link ----

TEST(Program, TheTerminalCanBeClosedAndReopened) {
    Quiet modem;
    for (int i = 0; i < 10; i++) {
        modem.close();
        modem.open();
        ASSERT_EQ(modem.ask("AT"), OK);
    }
}

TEST(Program, TheLinkIsATerminal) {
    Modem modem;
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(modem.link())));
    EXPECT_TRUE(::isatty(modem.fd()));
}

TEST(Program, EverySignalToEndRemovesTheLink) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        Modem modem;
        const Outcome outcome = modem.process().end(signal);
        EXPECT_EQ(outcome.status, 0) << signal;
        EXPECT_EQ(outcome.output, "");
        EXPECT_FALSE(fs::exists(fs::symlink_status(modem.link()))) << signal;
    }
}

TEST(Program, ALinkToNothingIsReplaced) {
    Directory directory;
    const fs::path link = directory / "modem";
    fs::create_symlink(directory / "gone", link);
    Process process({"--link", link.string()});
    EXPECT_EQ(process.readLine(), "ready: " + link.string() + "\n");
    EXPECT_TRUE(fs::read_symlink(link).native().starts_with("/dev/pts/"));
}

TEST(Program, ALinkThatAKilledProcessLeftIsReplaced) {
    Directory directory;
    const fs::path link = directory / "modem";
    {
        Process killed({"--link", link.string()});
        killed.readLine();
        killed.end(SIGKILL);
    }
    ASSERT_TRUE(fs::is_symlink(fs::symlink_status(link)));
    Process process({"--link", link.string()});
    EXPECT_EQ(process.readLine(), "ready: " + link.string() + "\n");
}

TEST(Program, ALinkThatPointsElsewhereByNowIsLeft) {
    Directory directory;
    const fs::path link = directory / "modem";
    Process first({"--link", link.string()});
    first.readLine();
    Process second({"--link", link.string(), "--ctl", (directory / "second.ctl").string()});
    second.readLine();
    EXPECT_EQ(first.end(SIGTERM).status, 0);
    EXPECT_TRUE(fs::exists(link));
    EXPECT_EQ(second.end(SIGTERM).status, 0);
    EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
}

TEST(Program, ASecondModemOfTheSameControlSocketIsRefused) {
    Modem modem;
    Process second({"--link", modem.link().string()});
    const Outcome outcome = second.end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "smspb-simmodem: " + modem.link().string() +
                                  ".ctl is served by another simulated modem\n");
}

TEST(Program, AControlSocketThatAKilledRunLeftIsReplaced) {
    Directory directory;
    const std::string link = (directory / "modem").string();
    {
        Process killed({"--link", link});
        killed.readLine();
        killed.end(SIGKILL);
    }
    ASSERT_TRUE(fs::is_socket(fs::status(link + ".ctl")));
    Process process({"--link", link});
    EXPECT_EQ(process.readLine(), "ready: " + link + "\n");
    EXPECT_EQ(fs::status(link + ".ctl").permissions(), fs::perms(0600));
    EXPECT_EQ(process.end(SIGTERM).status, 0);
    EXPECT_FALSE(fs::exists(link + ".ctl"));
}

// ---- events that cannot be ----

struct BadEvent {
    const char *name;
    std::vector<std::string> words;
    std::string error;
};

void PrintTo(const BadEvent &event, std::ostream *out) { *out << event.name; }

class Events : public ::testing::TestWithParam<BadEvent> {};

TEST_P(Events, AreRefusedWithWhatWouldBeRight) {
    Quiet modem;
    std::vector<std::string> words{"ctl", "--link", modem.link().string()};
    words.insert(words.end(), GetParam().words.begin(), GetParam().words.end());
    Process control(words);
    const Outcome outcome = control.end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "smspb-simmodem ctl: " + GetParam().error + "\n");
    EXPECT_EQ(modem.ask("AT"), OK) << "the modem is not disturbed";
}

const std::string NO_SENDER = " is no sender: a number, or 11 characters of the GSM alphabet";
const std::string NO_ZONE = " is no zone: +01:00, in quarter hours, 19:45 at most";
const std::string NO_UTF8 = "a text of the event is no UTF-8";
const std::string NO_FIT = "the text does not fit: 255 parts at most, and the GSM alphabet for gsm";

INSTANTIATE_TEST_SUITE_P(
    Refused, Events,
    ::testing::Values(
        BadEvent{
            "NumberTooLong",
            {"text", "123456789012345678901", "x"},
            "\"123456789012345678901\"" + NO_SENDER
},
        BadEvent{"NameTooLong", {"text", "twelve chars", "x"}, "\"twelve chars\"" + NO_SENDER},
        BadEvent{"NameWithoutSeptets", {"text", "Привет", "x"}, "\"Привет\"" + NO_SENDER},
        BadEvent{"Class", {"text", "1", "x", "--class", "4"}, "\"class\" is a number from 0 to 3"},
        BadEvent{"Coding",
                 {"text", "1", "x", "--coding", "8bit"},
                 "\"8bit\" is no coding: auto, gsm or ucs2"},
        BadEvent{"GsmForWhatItLacks", {"text", "1", "Привет", "--coding", "gsm"}, NO_FIT},
        BadEvent{"TooLong", {"text", "1", std::string(255 * 153 + 1, 'x')}, NO_FIT},
        BadEvent{"NoUtf8", {"text", "1", "\xC3("}, NO_UTF8},
        BadEvent{"Utf8Overlong", {"text", "1", "\xE0\x81\x81"}, NO_UTF8},
        BadEvent{"Utf8Surrogate", {"text", "1", "\xED\xB0\x80"}, NO_UTF8},
        BadEvent{"Utf8BehindUnicode", {"text", "1", "\xF4\x90\x80\x80"}, NO_UTF8},
        BadEvent{"Zone", {"text", "1", "x", "--zone", "+1:00"}, "\"+1:00\"" + NO_ZONE},
        BadEvent{"ZoneMinutes", {"text", "1", "x", "--zone", "+01:20"}, "\"+01:20\"" + NO_ZONE},
        BadEvent{"ZoneTooFar", {"text", "1", "x", "--zone", "+20:00"}, "\"+20:00\"" + NO_ZONE},
        BadEvent{"Time",
                 {"text", "1", "x", "--time", "noon"},
                 "\"noon\" is no time: 2026-11-21 10:00:00"},
        BadEvent{"Date",
                 {"text", "1", "x", "--time", "2026-02-30 10:00:00"},
                 "\"2026-02-30 10:00:00\" is no time: 2026-11-21 10:00:00"},
        BadEvent{
            "PduText", {"pdu", "0G"}, "\"0G\" is no TPDU in hexadecimal, without a service centre"},
        BadEvent{"PduType",
                 {"pdu", "01"},
                 "the TPDU is neither a whole DELIVER nor a whole STATUS-REPORT"},
        BadEvent{"Reference", {"report", "256"}, "\"reference\" is a number from 0 to 255"},
        BadEvent{"ReportTo", {"report", "1", "--to", "x"}, "\"x\" is no number"},
        BadEvent{"PageTooLong",
                 {"page", std::string(15 * 93 + 1, 'x')},
                 "the text does not fit: 15 pages at most, and the GSM alphabet for gsm"},
        BadEvent{"Caller", {"ring", "x"}, "\"x\" is no number"},
        BadEvent{
            "UssdStatus", {"ussd", "x", "--status", "6"}, "\"status\" is a number from 0 to 5"},
        BadEvent{"UssdCoding", {"ussd", "x", "--dcs", "16"}, "\"dcs\" is 15, or 72 for UCS-2"},
        BadEvent{"Sim", {"sim", "eject"}, "\"eject\" is neither remove nor insert"},
        BadEvent{"Storage", {"storage", "fill", "mt"}, "\"MT\" is no storage: SM or ME"},
        BadEvent{
            "StorageAction", {"storage", "shake", "sm"}, "\"shake\" is neither fill nor clear"}),
    [](const auto &event) { return std::string(event.param.name); });

TEST(Control, ALineThatIsNoEventIsRefusedAndTheNextOneTaken) {
    Quiet modem;
    const RawClient client(modem.link().string() + ".ctl");
    ASSERT_TRUE(client.connected());
    for (const std::string line :
         {"", "x", "{", "[]", "7", "null", "{}", R"({"event":7})", R"({"event":"dance"})", "\xFF",
          R"({"event":"ring","number":7})", R"({"event":"report","reference":-1})"}) {
        ASSERT_TRUE(client.send(line + "\n"));
        EXPECT_TRUE(client.readLine().starts_with("{\"error\":\"")) << line;
    }
    ASSERT_TRUE(client.send(std::string(R"({"event":"ring"})") +
                            "\n"
                            R"({"event":"ring"})" +
                            "\n"));
    EXPECT_EQ(client.readLine(), "{}\n");
    EXPECT_EQ(client.readLine(), "{}\n");
}

TEST(Control, ALineWithoutEndIsRefusedAtItsLimit) {
    Quiet modem;
    const RawClient client(modem.link().string() + ".ctl");
    ASSERT_TRUE(client.send(std::string(65536, 'x')));
    EXPECT_EQ(client.readLine(), "{\"error\":\"a line is 65536 octets at most\"}\n");
    EXPECT_EQ(client.readLine(), "") << "and hung up";
    EXPECT_EQ(modem.ask("AT"), OK);
}

TEST(Control, TheSeventeenthClientIsRefusedUntilAnotherLeaves) {
    Quiet modem;
    const fs::path path = modem.link().string() + ".ctl";
    const auto rings = [](const RawClient &client) {
        client.send("{\"event\":\"ring\"}\n");
        return client.readLine();
    };
    std::list<RawClient> clients;
    for (int i = 0; i < 16; i++) { EXPECT_EQ(rings(clients.emplace_back(path)), "{}\n"); }
    EXPECT_EQ(RawClient(path).readLine(), "{\"error\":\"there are 16 clients already\"}\n");
    clients.pop_back();
    std::string answer;
    for (int i = 0; i < 100 && answer != "{}\n"; i++) { answer = rings(RawClient(path)); }
    EXPECT_EQ(answer, "{}\n");
}

TEST(Control, NobodyThereIsSaid) {
    Directory directory;
    Process control({"ctl", "--link", (directory / "modem").string(), "status"});
    const Outcome outcome = control.end();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, "smspb-simmodem: no simulated modem listens at " +
                                  (directory / "modem.ctl").string() +
                                  ": No such file or directory\n");
}

struct Refusal {
    const char *name;
    std::vector<std::string> options;
    std::vector<std::string> words; // that the message must have
};

class Refusals : public ::testing::TestWithParam<Refusal> {};

TEST_P(Refusals, SayWhatIsWrong) {
    Directory directory;
    std::ofstream(directory / "file") << "text";
    fs::create_symlink("file", directory / "link-to-file");
    std::vector<std::string> options;
    for (std::string option : GetParam().options) {
        if (option.starts_with("DIR/")) {
            option = (directory / option.substr(4).c_str()).string();
        }
        options.push_back(option);
    }
    Process process(options);
    const Outcome outcome = process.end();
    EXPECT_TRUE(outcome.status == 1 || outcome.status == 2) << outcome.output;
    for (const std::string &word : GetParam().words) {
        EXPECT_NE(outcome.output.find(word), std::string::npos) << outcome.output;
    }
    EXPECT_EQ(outcome.output.find("ready:"), std::string::npos);
    std::string text;
    std::getline(std::ifstream(directory / "file"), text);
    EXPECT_EQ(text, "text");
}

INSTANTIATE_TEST_SUITE_P(
    Program, Refusals,
    ::testing::Values(
        Refusal{
            "NoLink", {                   },
             {"--link is required"}
},
        Refusal{"AFileOfThatName", {"--link", "DIR/file"}, {"/file", "no link", "--link"}},
        Refusal{"ALinkToAFile", {"--link", "DIR/link-to-file"}, {"link-to-file", "no terminal"}},
        Refusal{"AMissingDirectory", {"--link", "DIR/none/modem"}, {"none/modem", "No such file"}},
        Refusal{"ANumberWithLetters",
                {"--link", "DIR/modem", "--number", "12a"},
                {"--number", "\"12a\" is no number", "digits"}},
        Refusal{"ANumberTooLong",
                {"--link", "DIR/modem", "--number", "123456789012345678901"},
                {"--number", "20 at most"}},
        Refusal{"AServiceCentreWithLetters", {"--link", "DIR/modem", "--smsc", "x"}, {"--smsc"}},
        Refusal{"ANegativeSize", {"--link", "DIR/modem", "--me-size", "-1"}, {"--me-size"}},
        Refusal{"ASizeTooLarge", {"--link", "DIR/modem", "--sm-size", "10001"}, {"--sm-size"}},
        Refusal{"AnUnknownFault",
                {"--link", "DIR/modem", "--fault", "+CSQ=explode"},
                {"+CSQ=explode", "PATTERN=ACTION[:COUNT]", "no-prompt"}},
        Refusal{"AnUnknownOption", {"--link", "DIR/modem", "--colour"}, {"--colour"}}),
    nameOf<Refusal>);

TEST(Program, VerboseTracesEachLineOnStandardError) {
    Directory directory;
    const fs::path link = directory / "modem";
    Process process({"--verbose", "--link", link.string()});
    std::string trace;
    const auto readTraceTo = [&](const std::string &text) {
        for (std::string line = "-"; !line.empty() && trace.find(text) == std::string::npos;) {
            line = process.readLine();
            trace += line;
        }
    };
    readTraceTo("ready: " + link.string() + "\n");
    Descriptor terminal(::open(link.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_EQ(::write(terminal.get(), "AT+CSQ\r", 7), 7);
    readTraceTo("OK");
    EXPECT_NE(trace.find(" < AT+CSQ\\r\n"), std::string::npos) << trace;
    EXPECT_NE(trace.find("> \\r\\n+CSQ: 21,99\\r\\n\\r\\nOK\\r\\n\n"), std::string::npos);
}

TEST(Program, HelpShowsEveryOption) {
    Process process({"--help"});
    const Outcome outcome = process.end();
    EXPECT_EQ(outcome.status, 0);
    for (const char *const option : {"--link", "--number", "--smsc", "--me-size", "--sm-size",
                                     "--fault", "--latency", "--verbose", "--version"}) {
        EXPECT_NE(outcome.output.find(option), std::string::npos) << option;
    }
}

} // namespace
