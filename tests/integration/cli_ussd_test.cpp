// ussd as its users run it. The modem is a script on a pseudo-terminal, so that every answer comes
// when and how a case wants it; what the simulated modem answers is at the end.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>

#include <atomic>
#include <mutex>

#include "support/tool.h"

namespace {

using namespace support;

// What the modem says to a command, and how long after the line before.
struct Saying {
    std::chrono::milliseconds after;
    std::string text;
};
using Sayings = std::vector<Saying>;
using Script = std::function<Sayings(const std::string &command)>;

const std::string OKAY = "\r\nOK\r\n";

Sayings now(const std::string &text) {
    return {
        {0ms, text}
    };
}
Sayings answer(const std::string &line, std::chrono::milliseconds after = 1ms) {
    return {
        {  0ms,                   OKAY},
        {after, "\r\n" + line + "\r\n"}
    };
}

// Keeps the character set and hands everything else to its script.
class ScriptedTerminal {
public:
    explicit ScriptedTerminal(Script script) : script_(std::move(script)) {
        char name[64] = {};
        termios raw{};
        cfmakeraw(&raw);
        if (openpty(&master_, &slave_, name, &raw, nullptr) != 0) { std::abort(); }
        path_ = name;
        thread_ = std::thread([this] { serve(); });
    }
    ~ScriptedTerminal() {
        stopped_ = true;
        thread_.join();
        close(master_);
        close(slave_);
    }
    ScriptedTerminal(const ScriptedTerminal &) = delete;
    ScriptedTerminal &operator=(const ScriptedTerminal &) = delete;

    const std::string &path() const { return path_; }
    // The commands so far, those of the character set and of the manager aside.
    Arguments commands() const {
        const std::lock_guard lock(mutex_);
        return commands_;
    }
    std::string charset() const {
        const std::lock_guard lock(mutex_);
        return charset_;
    }

private:
    void serve() {
        std::string line;
        while (!stopped_) {
            pollfd wait{master_, POLLIN, 0};
            if (poll(&wait, 1, 20) != 1) { continue; }
            char c = 0;
            if (::read(master_, &c, 1) != 1) { continue; }
            if (c == '\r') {
                reply(line);
                line.clear();
            } else {
                line += c;
            }
        }
    }

    void reply(const std::string &command) {
        for (const Saying &saying : sayingsTo(command)) {
            std::this_thread::sleep_for(saying.after);
            if (::write(master_, saying.text.data(), saying.text.size()) < 0) { return; }
        }
    }

    Sayings sayingsTo(const std::string &command) {
        const std::lock_guard lock(mutex_);
        static const std::string CHARSET = "AT+CSCS=\"";
        if (command == "ATE0Q0V1") { return now(OKAY); }
        if (command == "AT+CSCS?") { return now("\r\n+CSCS: \"" + charset_ + "\"\r\n" + OKAY); }
        if (command.starts_with(CHARSET)) {
            charset_ = command.substr(CHARSET.size(), command.size() - CHARSET.size() - 1);
            return now(OKAY);
        }
        commands_.push_back(command);
        return script_(command);
    }

    Script script_;
    int master_ = -1, slave_ = -1;
    std::string path_;
    std::string charset_ = "GSM";
    Arguments commands_;
    mutable std::mutex mutex_;
    std::atomic<bool> stopped_ = false;
    std::thread thread_;
};

// AT+CUSD =1, "*100#",15 with the blanks that the library puts there.
std::string request(const std::string &text) { return "AT+CUSD =1, \"" + text + "\",15"; }

class Ussd : public Tool {
protected:
    void play(Script script) {
        stopManager();
        terminal_ = std::make_unique<ScriptedTerminal>(std::move(script));
        manager_ = std::make_unique<Process>(
            Arguments{MODEMD_PROGRAM, "--device", terminal_->path()}, environment());
        ASSERT_TRUE(manager_->readLine().starts_with("ready"));
    }
    void playLine(const std::string &line) {
        play([line](const std::string &) { return answer(line); });
    }
    void stopManager() {
        if (manager_) { manager_->stop(); }
        manager_.reset();
        terminal_.reset();
    }
    void TearDown() override { stopManager(); }

    std::unique_ptr<ScriptedTerminal> terminal_;
    std::unique_ptr<Process> manager_;
};

TEST_F(Ussd, TheAnswerIsPrintedAndTheCharacterSetGivenBack) {
    playLine("+CUSD: 0,\"Your balance is 4.20\",15");
    const Result result = run({"ussd", "*100#"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "Your balance is 4.20\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(terminal_->commands(), Arguments{request("*100#")});
    EXPECT_EQ(terminal_->charset(), "GSM");
    const Json document = json({"ussd", "*100#"});
    EXPECT_EQ(document["code"], "*100#");
    ASSERT_EQ(document["answers"].size(), 1U);
    EXPECT_EQ(document["answers"][0]["text"], "Your balance is 4.20");
    EXPECT_EQ(document["answers"][0]["status"], 0);
    EXPECT_EQ(document["answers"][0]["dcs"], 15);
    EXPECT_EQ(document["answers"][0]["string"], "Your balance is 4.20");
    EXPECT_EQ(document["answers"][0]["raw"], "+CUSD: 0,\"Your balance is 4.20\",15");
    EXPECT_EQ(document["cancelled"], false);
}

TEST_F(Ussd, HexadecimalAnswersAreDecodedAndKept) {
    playLine("+CUSD: 0,\"041F04400438\",72");
    Json document = json({"ussd", "*101#"});
    EXPECT_EQ(document["answers"][0]["text"], "При");
    EXPECT_EQ(document["answers"][0]["string"], "041F04400438");
    playLine("+CUSD: 0,\"C8329BFD06\",15"); // "Hello" packed
    document = json({"ussd", "*102#"});
    EXPECT_EQ(document["answers"][0]["text"], "Hello");
    EXPECT_EQ(document["answers"][0]["coding"], "GSM 7-bit");
}

TEST_F(Ussd, AnAnswerBeforeOkOrLongAfterItIsHeard) {
    play([](const std::string &) {
        return Sayings{
            {0ms, "\r\n+CUSD: 0,\"early\",15\r\n"},
            {0ms,                            OKAY}
        };
    });
    EXPECT_EQ(run({"ussd", "*100#"}).out, "early\n");
    play([](const std::string &) { return answer("+CUSD: 0,\"late\",15", 1200ms); });
    EXPECT_EQ(run({"ussd", "*100#"}).out, "late\n");
}

// A menu of two steps.
Sayings menu(const std::string &command) {
    if (command == request("*103#")) { return answer("+CUSD: 1,\"1 data\r\n2 calls\",15"); }
    if (command == request("2")) { return answer("+CUSD: 1,\"1 abroad\",15"); }
    if (command == request("1")) { return answer("+CUSD: 0,\"booked\",15"); }
    return now(OKAY);
}

TEST_F(Ussd, AMenuIsAnsweredByReplies) {
    play(menu);
    const Result result = run({"ussd", "*103#", "--reply", "2", "--reply", "1"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "1 data\n2 calls\n1 abroad\nbooked\n");
    EXPECT_EQ(terminal_->commands(), (Arguments{request("*103#"), request("2"), request("1")}));
    const Json document = json({"ussd", "*103#", "--reply", "2", "--reply", "1"});
    ASSERT_EQ(document["answers"].size(), 3U);
    EXPECT_EQ(document["answers"][1]["sent"], "2");
    EXPECT_EQ(document["answers"][1]["words"], "waits for a reply");
}

TEST_F(Ussd, ADialogueThatWaitsIsEnded) {
    play(menu);
    const Result result = run({"ussd", "*103#"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "1 data\n2 calls\n");
    EXPECT_TRUE(contains(result.err, "--reply TEXT")) << result;
    EXPECT_TRUE(contains(result.err, "the dialogue was ended")) << result;
    EXPECT_EQ(terminal_->commands().back(), "AT+CUSD=2");
    EXPECT_EQ(terminal_->charset(), "GSM");
}

TEST_F(Ussd, ADialogueThatCannotBeEndedIsSaidSo) {
    play([](const std::string &command) {
        return command == "AT+CUSD=2" ? now("\r\nERROR\r\n") : menu(command);
    });
    const Result result = run({"ussd", "*103#"});
    EXPECT_EQ(result.code, OK);
    EXPECT_TRUE(contains(result.err, "may still be open: smspb ussd --cancel")) << result;
}

TEST_F(Ussd, RepliesThatTheNetworkDidNotWantAreTold) {
    playLine("+CUSD: 0,\"done\",15");
    const Result result = run({"ussd", "*100#", "--reply", "1", "--reply", "2"});
    EXPECT_EQ(result.code, IN_PART);
    EXPECT_EQ(result.out, "done\n");
    EXPECT_TRUE(contains(result.err, "ended before the reply \"1\"")) << result;
}

TEST_F(Ussd, EachWayToFailHasItsWordsAndItsCode) {
    const struct {
        std::string line;
        int code;
        std::string words;
    } cases[] = {
        {"+CUSD: 2",      REFUSED, "ended by the network without an answer"},
        {"+CUSD: 3",      REFUSED,             "answered by another client"},
        {"+CUSD: 4",      REFUSED,           "not supported by the network"},
        {"+CUSD: 5", NOTHING_CAME,              "the network took too long"},
    };
    for (const auto &row : cases) {
        playLine(row.line);
        const Result result = run({"ussd", "*100#"});
        EXPECT_EQ(result.code, row.code) << result;
        EXPECT_TRUE(contains(result.err, row.words)) << result;
        const Result document = run({"--json", "ussd", "*100#"});
        EXPECT_EQ(document.json()["error"]["exit_code"], row.code);
        EXPECT_EQ(document.json()["answers"].size(), 1U);
    }
    playLine("+CUSD: 2,\"Goodbye\",15");
    EXPECT_EQ(run({"ussd", "*100#"}).code, OK);
}

TEST_F(Ussd, ARefusalCarriesTheModemsError) {
    play([](const std::string &) { return now("\r\n+CME ERROR: 30\r\n"); });
    const Result result = run({"ussd", "*100#"});
    EXPECT_EQ(result.code, REFUSED);
    EXPECT_TRUE(contains(result.err, "no network service (+CME ERROR: 30)")) << result;
    EXPECT_EQ(terminal_->commands(), Arguments{request("*100#")});
    EXPECT_EQ(terminal_->charset(), "GSM");
}

TEST_F(Ussd, ANetworkThatStaysSilentIsLeft) {
    play([](const std::string &) { return now(OKAY); });
    const Result result = run({"ussd", "*100#", "--wait", "0.2"});
    EXPECT_EQ(result.code, NOTHING_CAME) << result;
    EXPECT_TRUE(contains(result.err, "no answer within 0.2 s")) << result;
    EXPECT_TRUE(contains(result.err, "--wait SECONDS")) << result;
    EXPECT_EQ(terminal_->commands().back(), "AT+CUSD=2");
}

TEST_F(Ussd, AnInterruptEndsTheDialogueFirst) {
    play([](const std::string &) { return now(OKAY); });
    Process process(command({"ussd", "*100#"}), environment());
    ASSERT_TRUE(becomes([&] { return !terminal_->commands().empty(); }));
    std::this_thread::sleep_for(50ms);
    process.signal(SIGINT);
    Result result;
    result.code = exitCode(process.finish(result.out, result.err));
    EXPECT_EQ(result.code, 128 + SIGINT);
    EXPECT_EQ(terminal_->commands().back(), "AT+CUSD=2");
    EXPECT_EQ(terminal_->charset(), "GSM");
}

TEST_F(Ussd, AManagerThatGoesIsNotWaitedFor) {
    play([](const std::string &) { return now(OKAY); });
    Process process(command({"ussd", "*100#"}), environment());
    ASSERT_TRUE(becomes([&] { return !terminal_->commands().empty(); }));
    std::this_thread::sleep_for(50ms);
    stopManager();
    Result result;
    result.code = exitCode(process.finish(result.out, result.err));
    EXPECT_EQ(result.code, NO_MANAGER) << result;
}

TEST_F(Ussd, CancelEndsADialogueThatWasLeftOpen) {
    play([](const std::string &) { return now(OKAY); });
    EXPECT_EQ(run({"ussd", "--cancel"}).out, "the dialogue is ended\n");
    EXPECT_EQ(terminal_->commands(), Arguments{"AT+CUSD=2"});
    EXPECT_EQ(json({"ussd", "--cancel"})["cancelled"], true);
    play([](const std::string &) { return now("\r\nERROR\r\n"); });
    expectFailure({"ussd", "--cancel"}, REFUSED, "refused to end the dialogue");
}

TEST_F(Ussd, WhatCannotBeSentIsRefusedBeforeAnythingElse) {
    const std::string longest(29, '1');
    expectFailure({"ussd", longest + "1"}, USAGE, "has 30 characters; at most 29 go");
    expectFailure({"ussd", "*1\"#"}, USAGE, "holds U+0022 at character 3");
    expectFailure({"ussd", "é"}, USAGE, "holds U+00E9 at character 1");
    expectFailure({"ussd"}, USAGE, "is empty", "*100#");
    expectFailure({"ussd", "*100#", "--reply", longest + "1"}, USAGE, "--reply", "");
    expectFailure({"ussd", "*100#", "--cancel"}, USAGE, "");
    playLine("+CUSD: 0,\"x\",15");
    EXPECT_EQ(run({"ussd", longest}).code, OK);
    EXPECT_EQ(terminal_->commands(), Arguments{request(longest)});
}

TEST_F(Ussd, TheReplyIsAskedForOnATerminal) {
    play(menu);
    const winsize size{24, 80, 0, 0};
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        for (const auto &[name, value] : environment()) { setenv(name.c_str(), value.c_str(), 1); }
        execl(SMSPB_PROGRAM, "smspb", "ussd", "*103#", nullptr);
        _exit(127);
    }
    std::string out;
    std::array<char, 4096> chunk{};
    Arguments typed = {std::string(30, '9') + "\n", "2\n", "1\n"};
    std::size_t asked = 0;
    for (ssize_t got = 0; (got = ::read(terminal, chunk.data(), chunk.size())) > 0;) {
        out.append(chunk.data(), static_cast<std::size_t>(got));
        std::size_t prompts = 0;
        for (std::size_t at = 0; (at = out.find("dialogue): ", at)) != out.npos; at++) {
            prompts++;
        }
        if (prompts > asked && asked < typed.size()) {
            EXPECT_GT(::write(terminal, typed[asked].data(), typed[asked].size()), 0);
            asked++;
        }
    }
    close(terminal);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(exitCode(status), OK) << out;
    EXPECT_TRUE(contains(out, "has 30 characters")) << out;
    EXPECT_TRUE(contains(out, "booked")) << out;
    EXPECT_EQ(terminal_->commands(), (Arguments{request("*103#"), request("2"), request("1")}));
}

// The codes that every simulated modem knows.
class SimulatedUssd : public ToolWithModem {};

TEST_F(SimulatedUssd, EveryFormOfAnAnswerIsRead) {
    const struct {
        const char *code;
        std::string text, coding;
    } cases[] = {
        {"*100#",    "Your balance is 12.34 EUR.",      "text"},
        {"*101#", "Ваш баланс 12,34 €",     "UCS-2"},
        {"*102#",    "Your balance is 12.34 EUR.", "GSM 7-bit"},
        {"*104#",        "Thank you for waiting.",      "text"},
    };
    for (const auto &row : cases) {
        const Json document = json({"ussd", row.code});
        ASSERT_EQ(document["answers"].size(), 1U);
        EXPECT_EQ(document["answers"][0]["text"], row.text);
        EXPECT_EQ(document["answers"][0]["coding"], row.coding);
    }
}

TEST_F(SimulatedUssd, AMenuOfTwoStepsIsAnsweredWhileAListenerHearsIt) {
    Process listener(command({"listen", "--json", "--timeout", "20"}), environment());
    ASSERT_TRUE(becomes([this] {
        for (const auto &entry : fs::directory_iterator(directory_ / "run")) {
            if (entry.path().filename().string().starts_with("notify-")) { return true; }
        }
        return false;
    }));
    const Result result = run({"ussd", "*103#", "--reply", "2", "--reply", "10"});
    EXPECT_EQ(result.code, OK) << result;
    EXPECT_EQ(result.out, "1 Balance\n2 Top up\nAmount?\nTopped up.\n");
    for (const char *text : {"1 Balance\n2 Top up", "Amount?", "Topped up."}) {
        EXPECT_EQ(Json::parse(listener.readLine(), nullptr, false)["text"], text);
    }
}

TEST_F(SimulatedUssd, RefusalsAndSilentEndsAreFailures) {
    expectFailure({"ussd", "*105#"}, REFUSED, "the modem refused to send *105#");
    expectFailure({"ussd", "*106#"}, REFUSED, "ended by the network without an answer");
    expectFailure({"ussd", "*999#"}, REFUSED, "not supported by the network");
}

TEST_F(SimulatedUssd, TheCharacterSetOfThePhonebookStays) {
    ASSERT_EQ(run({"at", "AT+CSCS=\"UCS2\""}).code, OK);
    EXPECT_EQ(run({"ussd", "*100#"}).out, "Your balance is 12.34 EUR.\n");
    EXPECT_TRUE(contains(run({"at", "AT+CSCS?"}).out, "UCS2"));
}

} // namespace
