// listen and ussd as their users run them: the tool, the modem manager and the simulated modem are
// real processes, and what happens meanwhile is done to them from outside.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>

#include "atlib/CSMS.h"
#include "support/tool.h"
#include "tools/received.h"
#include "tools/text.h"

namespace {

using namespace support;
using Texts = std::vector<std::string>;

// "Flash!" from +12345678901, TP-DCS 0x10: class 0.
constexpr const char *FLASH_PDU = "00040B912143658709F1001062300180000000064676788E0E01";

// A listener that hears everything the modem has to say.
class Listen : public ToolWithModem {
protected:
    void SetUp() override {
        ToolWithModem::SetUp();
        indicate("2,1,2,1,0");
    }

    void indicate(const std::string &mode) const {
        ASSERT_EQ(run({"at", "AT+CNMI=" + mode}).code, OK);
    }

    std::size_t subscriberCount() const {
        std::size_t count = 0;
        std::error_code ignored;
        for (const auto &entry : fs::directory_iterator(directory_ / "run", ignored)) {
            count += entry.path().filename().string().starts_with("notify-") ? 1U : 0U;
        }
        return count;
    }

    // Started, and subscribed.
    std::unique_ptr<Process> listen(const Arguments &options) const {
        Arguments all = {"listen"};
        all.insert(all.end(), options.begin(), options.end());
        if (std::find(options.begin(), options.end(), "--timeout") == options.end()) {
            all.insert(all.end(), {"--timeout", "30"});
        }
        const std::size_t before = subscriberCount();
        auto process = std::make_unique<Process>(command(all), environment());
        EXPECT_TRUE(becomes([&] { return subscriberCount() > before; }));
        return process;
    }

    static Json next(const Process &listener) {
        const std::string line = listener.readLine();
        const Json event = Json::parse(line, nullptr, false);
        EXPECT_TRUE(event.is_object()) << line;
        return event.is_object() ? event : Json::object();
    }

    // Ends the listener and gives the rest of what it prints.
    static Result end(Process &listener, int signal = SIGINT) {
        listener.signal(signal);
        return rest(listener);
    }
    static Result rest(Process &listener) {
        Result result;
        result.code = exitCode(listener.finish(result.out, result.err));
        return result;
    }

    // Lines that the modem says in the middle of a reply.
    void say(std::string lines) const {
        for (std::size_t at = 0; (at = lines.find('"', at)) != std::string::npos;) {
            lines.replace(at, 1, "\\22");
        }
        fault("+CSQ=unsolicited=" + lines + ":1");
        EXPECT_EQ(run({"at", "AT+CSQ"}).out, "+CSQ: 21,99\nOK\n");
    }

    std::string script(const std::string &name, const std::string &body) const {
        const fs::path path = directory_ / name;
        std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
        fs::permissions(path, fs::perms::owner_all);
        return path.string();
    }
    std::string contentOf(const std::string &name) const {
        std::ifstream file(directory_ / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(Listen, ALongTextIsOneEvent) {
    const auto listener = listen({"--json"});
    const std::string text = std::string(300, 'x') + " the end";
    sendToSelf(text);
    sendToSelf("short");
    const Json event = next(*listener);
    EXPECT_EQ(event["kind"], "message");
    EXPECT_EQ(event["from"], OWN_NUMBER);
    EXPECT_EQ(event["text"], text);
    EXPECT_EQ(event["complete"], true);
    EXPECT_EQ(event["parts"], Json({
                                  {  "total",         3},
                                  {"present", {1, 2, 3}}
    }));
    EXPECT_EQ(event["storage"], "SM");
    EXPECT_EQ(event["indexes"], Json({1, 2, 3}));
    EXPECT_EQ(event["raw"], Json({"+CMTI: \"SM\",1", "+CMTI: \"SM\",2", "+CMTI: \"SM\",3"}));
    EXPECT_EQ(event["pdus"].size(), 3U);
    EXPECT_EQ(next(*listener)["text"], "short");
    EXPECT_EQ(end(*listener).out, "");
}

TEST_F(Listen, PeopleGetOneLineForEachEvent) {
    const auto listener = listen({});
    sendToSelf("two\nlines \x1b[31m");
    const std::string line = listener->readLine();
    EXPECT_EQ(line.substr(19), "  message  +15550001000     two⏎lines ␛[31m");
    EXPECT_EQ(end(*listener).code, OK);
}

TEST_F(Listen, AFlashMessageIsToldApart) {
    const auto listener = listen({"--json"});
    say(std::string("+CMT: ,23\\n") + FLASH_PDU);
    const Json event = next(*listener);
    EXPECT_EQ(event["kind"], "flash");
    EXPECT_EQ(event["from"], "+12345678901");
    EXPECT_EQ(event["text"], "Flash!") << event;
    EXPECT_EQ(event["class"], 0);
    EXPECT_EQ(event["raw"], Json({std::string("+CMT: ,23\r\n") + FLASH_PDU}));
    EXPECT_FALSE(event.contains("storage"));
}

TEST_F(Listen, AStatusReportFindsTheMessageThatItTellsOf) {
    const auto listener = listen({"--json"});
    const Json sent = json({"send", "--report", OWN_NUMBER, std::string(200, 'y')});
    std::map<std::string, std::vector<Json>> events;
    for (int i = 0; i < 3; i++) {
        const Json event = next(*listener);
        events[event["kind"].get<std::string>()].push_back(event);
    }
    ASSERT_EQ(events["message"].size(), 1U);
    ASSERT_EQ(events["report"].size(), 2U);
    for (std::size_t i = 0; i < 2; i++) {
        const Json &report = events["report"][i];
        EXPECT_EQ(report["reference"], sent["references"][i]);
        EXPECT_EQ(report["words"], "delivered");
        EXPECT_EQ(report["from"], OWN_NUMBER);
        EXPECT_EQ(report["matched"], true) << report;
        EXPECT_EQ(report["message"]["number"], OWN_NUMBER);
        EXPECT_EQ(report["message"]["segment"], i + 1);
        EXPECT_EQ(report["message"]["segments"], 2);
    }
}

TEST_F(Listen, AReportOfAnUnknownMessageIsShownUnmatched) {
    const auto listener = listen({"--json", "--once"});
    // For message 42 to +12345678901.
    say("+CDS: 25\\n00062A0B912143658709F1623001800000006230018000000000");
    const Json event = next(*listener);
    EXPECT_EQ(event["kind"], "report");
    EXPECT_EQ(event["reference"], 42);
    EXPECT_EQ(event["matched"], false);
    EXPECT_EQ(rest(*listener).code, OK);
}

TEST_F(Listen, AStoredReportIsReadFromItsStorage) {
    indicate("2,1,2,2,0");
    const auto listener = listen({"--json", "--delete"});
    ASSERT_EQ(run({"send", "--report", OWN_NUMBER, "hello"}).code, OK);
    std::set<std::string> kinds;
    for (int i = 0; i < 2; i++) { kinds.insert(next(*listener)["kind"].get<std::string>()); }
    EXPECT_EQ(kinds, (std::set<std::string>{"message", "report"}));
    EXPECT_EQ(end(*listener).code, OK);
    EXPECT_EQ(json({"inbox"})["used"], 0);
}

// Each of them from outside, as the network does it.

TEST_F(Listen, WhatComesFromTheNetworkArrivesWholeAndOnce) {
    const auto listener = listen({"--json"});
    const std::string text = "Привет из сети. " + std::string(200, 'x');
    happen({"text", "+491701234567", text, "--time", "2026-11-21 10:00:00", "--zone", "+05:45"});
    const Json message = next(*listener);
    EXPECT_EQ(message["kind"], "message");
    EXPECT_EQ(message["from"], "+491701234567");
    EXPECT_EQ(message["text"], text);
    EXPECT_EQ(message["complete"], true);
    EXPECT_TRUE(contains(message.dump(), "2026-11-21T10:00:00+05:45")) << message;

    happen({"text", "SMSPB Info", "Look {here} for 5 €", "--class", "0"});
    const Json flash = next(*listener);
    EXPECT_EQ(flash["kind"], "flash");
    EXPECT_EQ(flash["from"], "SMSPB Info");
    EXPECT_EQ(flash["text"], "Look {here} for 5 €");

    happen({"page", std::string(93, 'p') + " second page", "--id", "911"});
    const Json page = next(*listener);
    EXPECT_EQ(page["kind"], "page");
    EXPECT_EQ(page["from"], "911");
    EXPECT_EQ(page["text"], std::string(93, 'p') + " second page");
    EXPECT_EQ(page["pages"]["total"], 2);

    EXPECT_EQ(run({"send", "--report", "+491701234567", "Are you there?"}).code, OK);
    const Json report = next(*listener);
    EXPECT_EQ(report["kind"], "report");
    EXPECT_EQ(report["from"], "+491701234567");
    EXPECT_TRUE(report.contains("sent")) << "it is known what this answers: " << report;

    happen({"ring", "+491701234567"});
    EXPECT_EQ(next(*listener)["kind"], "call");
    happen({"sim", "remove"});
    EXPECT_EQ(next(*listener)["raw"], Json({"Sim card removed"}));
    EXPECT_EQ(end(*listener).out, "");
}

TEST_F(Listen, ALongTextFromTheNetworkIsHeardOnceThoughItsPartsInterruptCommands) {
    start({"--interject", "--latency", "1"});
    indicate("2,1,2,1,0");
    const auto listener = listen({"--json"});
    std::thread others([this] {
        for (int i = 0; i < 20; i++) { EXPECT_EQ(run({"at", "AT+CSQ"}).out, "+CSQ: 21,99\nOK\n"); }
    });
    const std::string text = std::string(1500, 'n');
    happen({"text", "+491701234567", text});
    const Json event = next(*listener);
    others.join();
    EXPECT_EQ(event["text"], text);
    EXPECT_EQ(end(*listener).out, "");
}

TEST_F(Listen, TheTwoPagesOfACellBroadcastAreOneEvent) {
    const auto listener = listen({"--json"});
    // Serial 0x0010, channel 50, English: "a" 93 times, and "bcd" with its padding.
    const std::string first =
        "001000320112E170381C0E87C3E170381C0E87C3E170381C0E87C3E170381C0E87C3E170381C0E87"
        "C3E170381C0E87C3E170381C0E87C3E170381C0E87C3E170381C0E87C3E170381C0E87C3E170381C"
        "0E87C3E170381C06";
    const std::string second =
        "001000320122E231B9D168341A8D46A3D168341A8D46A3D168341A8D46A3D168341A8D46A3D16834"
        "1A8D46A3D168341A8D46A3D168341A8D46A3D168341A8D46A3D168341A8D46A3D168341A8D46A3D1"
        "68341A8D46A3D100";
    say("+CBM: 88\\n" + second);
    say("+CBM: 88\\n" + first);
    const Json event = next(*listener);
    EXPECT_EQ(event["kind"], "page");
    EXPECT_EQ(event["from"], "50");
    EXPECT_EQ(event["language"], "en");
    EXPECT_EQ(event["complete"], true);
    EXPECT_EQ(event["pages"], Json({
                                  {  "total",      2},
                                  {"present", {1, 2}}
    }));
    EXPECT_EQ(event["text"], std::string(93, 'a') + "bcd");
    EXPECT_EQ(event["raw"].size(), 2U);
}

TEST_F(Listen, CallsAnswersAndOtherLinesAreEventsToo) {
    const auto listener = listen({"--json"});
    say("RING\\n+CLIP: \"+491701234567\",145\\nSim card removed");
    say("+CUSD: 1,\"1 yes 2 no\",15");
    Json event = next(*listener);
    EXPECT_EQ(event["kind"], "call");
    EXPECT_EQ(event["from"], "");
    event = next(*listener);
    EXPECT_EQ(event["kind"], "call");
    EXPECT_EQ(event["from"], "+491701234567");
    event = next(*listener);
    EXPECT_EQ(event["kind"], "other");
    EXPECT_EQ(event["text"], "Sim card removed");
    event = next(*listener);
    EXPECT_EQ(event["kind"], "ussd");
    EXPECT_EQ(event["text"], "1 yes 2 no");
    EXPECT_EQ(event["status"], 1);
}

TEST_F(Listen, OnceEndsAfterTheFirstEvent) {
    const auto listener = listen({"--once"});
    say("RING\\nRING");
    const Result result = rest(*listener);
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1) << result;
}

TEST_F(Listen, TheTimeoutTellsSilenceFromEvents) {
    const auto silent = listen({"--timeout", "0.2"});
    const Result nothing = rest(*silent);
    EXPECT_EQ(nothing.code, NOTHING_CAME) << nothing;
    EXPECT_EQ(nothing.out, "");
    EXPECT_TRUE(contains(nothing.err, "nothing came in time"));
    const auto other = listen({"--timeout", "1"});
    say("RING");
    EXPECT_EQ(rest(*other).code, OK);
}

// The first part of a message of two, from +12345678901, reference 5: "first ".
constexpr const char *FIRST_OF_TWO =
    "00440B912143658709F10000623001800000000D050003050201CC69F99C0E02";

TEST_F(Listen, SignalsEndItAndWhatIsIncompleteIsShown) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const auto listener = listen({"--json"});
        say(std::string("+CMT: ,31\\n") + FIRST_OF_TWO);
        say("RING");
        EXPECT_EQ(next(*listener)["kind"], "call");
        const Result result = end(*listener, signal);
        EXPECT_EQ(result.code, OK) << result;
        const Json event = result.json();
        EXPECT_EQ(event["kind"], "message");
        EXPECT_EQ(event["complete"], false);
        EXPECT_EQ(event["parts"], Json({
                                      {  "total",   2},
                                      {"present", {1}}
        }));
        EXPECT_EQ(event["text"], "first […]");
    }
}

TEST_F(Listen, WhatStaysIncompleteIsShownAfterTheWait) {
    const auto listener = listen({"--json", "--parts-wait", "0.3"});
    say(std::string("+CMT: ,31\\n") + FIRST_OF_TWO);
    EXPECT_EQ(next(*listener)["complete"], false);
    EXPECT_EQ(end(*listener).out, "");
}

TEST_F(Listen, AReportWithinAReplyIsHeardAndTheReplyIsWhole) {
    const auto listener = listen({"--json"});
    fault("+CNMI?=unsolicited=+CMT: ,23\\n" + std::string(FLASH_PDU) + ":1");
    EXPECT_EQ(run({"at", "AT+CNMI?"}).out, "+CNMI: 2,1,2,1,0\nOK\n");
    EXPECT_EQ(next(*listener)["kind"], "flash");
    EXPECT_EQ(end(*listener).out, "");
}

TEST_F(Listen, TheStorageForReadingStaysAsItWas) {
    ASSERT_EQ(run({"at", "AT+CPMS=\"ME\",\"SM\",\"SM\""}).code, OK);
    const auto listener = listen({"--json"});
    sendToSelf("kept");
    EXPECT_EQ(next(*listener)["storage"], "SM");
    EXPECT_EQ(end(*listener).code, OK);
    EXPECT_EQ(run({"at", "AT+CPMS?"}).out, "+CPMS: \"ME\",0,100,\"SM\",1,50,\"SM\",1,50\nOK\n");
}

TEST_F(Listen, AMessageThatIsGoneBeforeItIsReadIsAnEventWithItsError) {
    const auto listener = listen({"--json"});
    say("+CMTI: \"SM\",9");
    const Json event = next(*listener);
    EXPECT_EQ(event["kind"], "message");
    EXPECT_TRUE(contains(event["error"].get<std::string>(), "read message 9")) << event;
    EXPECT_EQ(event["raw"], Json({"+CMTI: \"SM\",9"}));
}

TEST_F(Listen, APduThatDoesNotDecodeIsAnEventWithItsError) {
    const auto listener = listen({"--json"});
    say("+CMT: ,4\\n0004ZZ");
    say("+CBM: 2\\n0011");
    Json event = next(*listener);
    EXPECT_EQ(event["kind"], "message");
    EXPECT_TRUE(contains(event["error"].get<std::string>(), "not a PDU")) << event;
    EXPECT_EQ(event["pdus"], Json({"0004ZZ"}));
    event = next(*listener);
    EXPECT_EQ(event["kind"], "page");
    EXPECT_TRUE(event.contains("error"));
}

TEST_F(Listen, AMessageThatTheModemDoesNotGiveAtOnceIsReadLater) {
    const auto listener = listen({"--json"});
    fault("+CMGF=silence:1");
    say("RING"); // the message below comes while nothing else runs
    EXPECT_EQ(next(*listener)["kind"], "call");
    say("+CMTI: \"SM\",1");
    ASSERT_EQ(run({"save", "123", "stored meanwhile"}).code, OK);
    EXPECT_EQ(next(*listener)["text"], "stored meanwhile");
}

TEST_F(Listen, AModemThatDoesNotAnnounceIsComplainedAboutAndInitHelps) {
    indicate("2,0,0,0,0");
    const Result result = run({"listen", "--timeout", "0.1"});
    EXPECT_TRUE(contains(result.err, "the modem announces no messages and no delivery reports and "
                                     "no cell broadcast pages (AT+CNMI: 2,0,0,0,0)"))
        << result;
    EXPECT_TRUE(contains(result.err, "smspb listen --init")) << result;
    indicate("2,1,0,0,0");
    EXPECT_TRUE(contains(run({"listen", "--timeout", "0.1"}).err,
                         "announces no delivery reports and no cell broadcast pages"));
    const Result init = run({"listen", "--init", "--timeout", "0.1"});
    EXPECT_FALSE(contains(init.err, "announces no")) << init;
    EXPECT_EQ(run({"at", "AT+CNMI?"}).out, "+CNMI: 2,1,2,1,0\nOK\n");
}

TEST_F(Listen, TheManagerMayGoAndComeBack) {
    const auto listener = listen({"--json"});
    sendToSelf("before");
    EXPECT_EQ(next(*listener)["text"], "before");
    manager_->stop();
    std::this_thread::sleep_for(1100ms); // it looks every second
    startManager();
    sendToSelf("after");
    EXPECT_EQ(next(*listener)["text"], "after");
    const Result result = end(*listener);
    EXPECT_TRUE(contains(result.err, "the modem manager is gone")) << result;
}

TEST_F(Listen, DeleteMakesRoomBehindWhatWasShown) {
    const auto listener = listen({"--json", "--delete"});
    sendToSelf(std::string(200, 'z'));
    EXPECT_EQ(next(*listener)["indexes"], Json({1, 2}));
    EXPECT_EQ(end(*listener).code, OK);
    EXPECT_EQ(json({"inbox"})["used"], 0);
}

TEST_F(Listen, TheProgramGetsHostileTextUnharmed) {
    const std::string trap = (directory_ / "trap").string();
    const std::string hostile = "'\"; touch " + trap + "; $(touch " + trap + ") `touch " + trap +
                                "` %s \\ $HOME &|<>*\nSMSPB_FROM=forged\n";
    const std::string program =
        script("on event",
               "printf '%s|%s|%s|%s' \"$#\" \"$SMSPB_KIND\" \"$SMSPB_FROM\" \"$SMSPB_TEXT\" > '" +
                   (directory_ / "seen").string() + "'");
    const auto listener = listen({"--exec", program, "--once"});
    sendToSelf(hostile);
    const Result result = rest(*listener);
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(contentOf("seen"), "0|message|" + std::string(OWN_NUMBER) + "|" + hostile);
    EXPECT_FALSE(fs::exists(trap));
}

TEST_F(Listen, ProgramsRunOneByOneInOrderAndTheirFailureEndsNothing) {
    const std::string program = script(
        "hook", "echo \"begin $SMSPB_TEXT\" >> '" + (directory_ / "seen").string() +
                    "'; echo noise; sleep 0.05; echo \"end $SMSPB_TEXT\" >> '" +
                    (directory_ / "seen").string() + "'; [ \"$SMSPB_TEXT\" != two ] || exit 3");
    const auto listener = listen({"--exec", program, "--delete"});
    for (const char *text : {"one", "two", "three"}) { sendToSelf(text); }
    for (int i = 0; i < 3; i++) { EXPECT_FALSE(contains(listener->readLine(), "noise")); }
    const Result result = end(*listener);
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(contentOf("seen"),
              "begin one\nend one\nbegin two\nend two\nbegin three\nend three\n");
    EXPECT_TRUE(contains(result.err, "ended with exit code 3")) << result;
    EXPECT_TRUE(contains(result.err, "noise")) << result;
    // What the program could not deal with stays.
    EXPECT_EQ(inboxTexts(), Texts{"two"});
}

TEST_F(Listen, AProgramThatHangsIsEnded) {
    const std::string program = script("hook", "exec sleep 60");
    const auto listener = listen({"--exec", program, "--exec-limit", "0.2", "--once"});
    say("RING");
    const Result result = rest(*listener);
    EXPECT_EQ(result.code, OK);
    EXPECT_TRUE(contains(result.err, "took too long and was ended")) << result;
}

TEST_F(Listen, ThereAreNoZombies) {
    const auto listener = listen({"--exec", "/bin/true", "--json"});
    for (int i = 0; i < 3; i++) { say("RING"); }
    for (int i = 0; i < 3; i++) { next(*listener); }
    const std::string children = "/proc/" + std::to_string(listener->pid()) + "/task/" +
                                 std::to_string(listener->pid()) + "/children";
    EXPECT_TRUE(becomes([&] {
        std::ifstream file(children);
        return std::string(std::istreambuf_iterator<char>(file), {}).empty();
    }));
}

TEST_F(Listen, AProgramThatCannotRunIsRefusedAtOnce) {
    expectFailure({"listen", "--exec", "/nonexistent"}, USAGE, "there is no such program",
                  "without arguments");
    expectFailure({"listen", "--exec", "true --flag"}, USAGE, "there is no such program");
    expectFailure({"listen", "--exec", directory_.path().string()}, USAGE,
                  "there is no such program");
}

TEST_F(Tool, ListenAndUssdNeedAManager) {
    expectFailure({"listen"}, NO_MANAGER, "no modem manager is running", "smspb-modemd");
    expectFailure({"ussd", "*100#"}, NO_MANAGER, "no modem manager is running", "smspb-modemd");
}

// Texts of one process while another one sends; the listener makes room as it goes.
class Crowd : public Listen {
protected:
    static constexpr int COUNT = 100;

    // In a process of its own: exits with the number of texts that were refused.
    static pid_t sendFrom(const std::string &runtime, const char *number, const char *word) {
        const pid_t child = fork();
        if (child != 0) { return child; }
        setenv("SMSPB_RUNTIME_DIR", runtime.c_str(), 1);
        u16 digits[SMS_NUMBER_UNITS] = {};
        std::copy_n(number, strlen(number), digits);
        int refused = 0;
        for (int i = 0; i < COUNT; i++) {
            const std::string text = std::string(word) + " " + std::to_string(i);
            std::vector<u16> units(text.begin(), text.end());
            units.push_back(0);
            u8 sent = 0;
            refused += SendSMS(digits, units.data(), 0, &sent) == SMS_OK && sent == 1 ? 0 : 1;
        }
        _exit(refused);
    }

    void expectAllOnce(const Arguments &options) const {
        const auto listener = listen(options);
        const std::string runtime = (directory_ / "run").string();
        const pid_t receiving = sendFrom(runtime, OWN_NUMBER, "in");
        const pid_t sending = sendFrom(runtime, "+491701234567", "out");
        std::map<std::string, int> heard;
        for (int i = 0; i < COUNT; i++) { heard[next(*listener)["text"].get<std::string>()]++; }
        for (const pid_t child : {receiving, sending}) {
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(exitCode(status), 0);
        }
        const Result result = end(*listener);
        EXPECT_EQ(result.out, "");
        for (int i = 0; i < COUNT; i++) { EXPECT_EQ(heard["in " + std::to_string(i)], 1) << i; }
    }
};

TEST_F(Crowd, AHundredStoredTextsAreHeardOnceWhileAHundredAreSent) {
    expectAllOnce({"--json", "--delete"});
    EXPECT_EQ(json({"inbox"})["used"], 0);
}

TEST_F(Crowd, AHundredRoutedTextsAreHeardOnceWhileAHundredAreSent) {
    indicate("2,2,2,1,0");
    expectAllOnce({"--json"});
}

} // namespace
