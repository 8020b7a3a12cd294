// Many processes on one manager while the modem misbehaves at random, and a modem that is unplugged
// again and again while texts are sent. Two seeds and ten unpluggings, unless SMSPB_SEEDS and
// SMSPB_UNPLUGGINGS say otherwise.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "atlib/CSMS.h"
#include "atlib/USBModem.h"
#include "platform/ipc/ipc_server.h"
#include "support/process.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr u32 REPORT_NOTIFICATION = 0x10400090;
constexpr int PROCESSES = 32;

int numberFrom(const char *variable, int otherwise) {
    const char *const value = std::getenv(variable);
    return value != nullptr ? std::atoi(value) : otherwise;
}

// What a process holds.
struct Holding {
    std::size_t descriptors = 0;
    long residentKiB = 0;

    static Holding of(pid_t pid) {
        Holding now;
        const std::string process = "/proc/" + std::to_string(pid);
        for ([[maybe_unused]] const auto &fd :
             std::filesystem::directory_iterator(process + "/fd")) {
            now.descriptors++;
        }
        std::ifstream status(process + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmRSS:")) { now.residentKiB = std::atol(line.c_str() + 6); }
        }
        return now;
    }

    // An answer is there a moment before its connection is closed.
    static Holding settled(pid_t pid, const Holding &before) {
        Holding now = of(pid);
        for (int i = 0; i < 100 && now.descriptors > before.descriptors; i++) {
            std::this_thread::sleep_for(20ms);
            now = of(pid);
        }
        return now;
    }
};

std::ostream &operator<<(std::ostream &out, const Holding &holding) {
    return out << holding.descriptors << " descriptors, " << holding.residentKiB << " KiB";
}

// Memory that forked children share.
template <typename Type> class Shared {
public:
    Shared()
        : memory_(mmap(nullptr, sizeof(Type), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                       -1, 0)) {
        new (memory_) Type();
    }
    ~Shared() { munmap(memory_, sizeof(Type)); }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;
    Type *operator->() const { return static_cast<Type *>(memory_); }

private:
    void *memory_;
};

class Endurance : public testing::Test {
protected:
    Endurance() {
        ::setenv("SMSPB_RUNTIME_DIR", directory_.path().c_str(), 1);
        g_blInitCsca = 0;
        std::memset(g_wszCsca, 0, sizeof(g_wszCsca));
        const std::string tty = (directory_.path() / "modem").string();
        modem_ = std::make_unique<support::Program>(
            std::vector<std::string>{SIMMODEM_PROGRAM, "--link", tty, "--sm-size", "5000"});
        EXPECT_TRUE(modem_->prints("ready"));
        manager_ = std::make_unique<support::Program>(
            std::vector<std::string>{MODEMD_PROGRAM, "--device", tty});
        EXPECT_TRUE(manager_->prints("ready"));
    }

    static std::string ask(const std::string &command, u32 waitMs = 3000) {
        char *reply = writeComm((command + "\r").c_str(), waitMs, 4, "OK", "ERROR",
                                "+CMS ERROR:", "+CME ERROR:");
        const std::string text = reply != nullptr ? reply : "";
        std::free(reply);
        return text;
    }

    // The modem is there, however long it takes to come back.
    static bool isBack() {
        for (int i = 0; i < 100; i++) {
            if (ask("AT", 500).find("OK") != std::string::npos) { return true; }
            std::this_thread::sleep_for(50ms);
        }
        return false;
    }

    support::PrivateDirectory directory_;
    std::unique_ptr<support::Program> modem_;
    std::unique_ptr<support::Program> manager_;
};

// ---- each request gets its own answer, or a failure ----

struct Tally {
    std::atomic<int> answered{0}, failed{0}, foreign{0};
};

constexpr int CONTACTS_EACH = 7;
constexpr u32 CONTACT_WAIT_MS = 300;
constexpr long GROWTH_KIB = 2048; // pages and buffers that are used for the first time

std::string contactNumber(int location) { return std::to_string(5550000 + location); }

// Judges the reply by what only this location holds.
void readContact(int location, Tally *tally) {
    char *reply = writeComm(("AT+CPBR=" + std::to_string(location) + "\r").c_str(), CONTACT_WAIT_MS,
                            4, "OK", "ERROR", "+CMS ERROR:", "+CME ERROR:");
    const std::string text = reply != nullptr ? reply : "";
    std::free(reply);
    const std::string own =
        "+CPBR: " + std::to_string(location) + ",\"" + contactNumber(location) + "\"";
    const std::size_t first = text.find("+CPBR:");
    const bool isOwn = first != text.npos && text.compare(first, own.size(), own) == 0 &&
                       text.find("+CPBR:", first + 1) == text.npos;
    const bool isRefusal = text.empty() || text.find("ERROR") != text.npos;
    (isOwn ? tally->answered : isRefusal ? tally->failed : tally->foreign)++;
    // Without a modem a request fails at once: all would be used up before it is back.
    if (!isOwn) { std::this_thread::sleep_for(50ms); }
}

class Misbehaving : public Endurance, public testing::WithParamInterface<int> {
protected:
    // One fault after the other, until all children have ended.
    // The next one comes some requests after the last, however fast the machine is.
    static void misbehave(std::mt19937 &random, const Tally &tally, std::vector<pid_t> children) {
        static const std::vector<std::string> FAULTS = {
            "silence", "error",    "cme=21",    "half",
            "garbage", "delay=50", "delay=400", "unsolicited=+CREG: 1",
            "drop=60", "reset",    "reset=RDY", "hangup=60"};
        int next = 0;
        while (!children.empty()) {
            const int done = tally.answered + tally.failed + tally.foreign;
            if (done >= next) {
                ask("AT^FAULT=\"+CPBR=" + FAULTS[random() % FAULTS.size()] + ":1\"");
                next = done + 8 + static_cast<int>(random() % 24);
            }
            std::this_thread::sleep_for(5ms);
            std::erase_if(children,
                          [](pid_t child) { return waitpid(child, nullptr, WNOHANG) == child; });
        }
        while (ask("AT^FAULT").empty()) { std::this_thread::sleep_for(50ms); }
    }
};

TEST_P(Misbehaving, EachRequestGetsItsOwnAnswerOrAFailure) {
    constexpr int REQUESTS = 512; // of all processes together
    for (int location = 1; location <= PROCESSES * CONTACTS_EACH; location++) {
        ASSERT_NE(ask("AT+CPBW=" + std::to_string(location) + ",\"" + contactNumber(location) +
                      "\",129,\"n\"")
                      .find("OK"),
                  std::string::npos);
    }
    std::this_thread::sleep_for(100ms); // the last connection is closed by then
    const Holding managerBefore = Holding::of(manager_->pid());
    const Holding modemBefore = Holding::of(modem_->pid());
    Shared<Tally> tally;
    std::vector<pid_t> children;
    for (int process = 0; process < PROCESSES; process++) {
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < REQUESTS / PROCESSES; i++) {
                readContact(1 + process * CONTACTS_EACH + i % CONTACTS_EACH, tally.operator->());
            }
            _exit(0);
        }
        children.push_back(child);
    }
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    misbehave(random, *tally.operator->(), std::move(children));
    ASSERT_TRUE(isBack());
    EXPECT_EQ(tally->foreign, 0);
    EXPECT_EQ(tally->answered + tally->failed, REQUESTS);
    EXPECT_GT(tally->answered, REQUESTS / 2);
    const Holding manager = Holding::settled(manager_->pid(), managerBefore);
    const Holding modem = Holding::settled(modem_->pid(), modemBefore);
    EXPECT_LE(manager.descriptors, managerBefore.descriptors);
    EXPECT_LE(modem.descriptors, modemBefore.descriptors);
#ifndef __SANITIZE_ADDRESS__ // which keeps what was freed
    EXPECT_LT(manager.residentKiB, managerBefore.residentKiB + GROWTH_KIB);
    EXPECT_LT(modem.residentKiB, modemBefore.residentKiB + GROWTH_KIB);
#endif
    std::cout << "seed " << GetParam() << ": " << tally->answered << " answered, " << tally->failed
              << " failed; manager " << managerBefore << ", then " << manager << "; modem "
              << modemBefore << ", then " << modem << "\n";
}

INSTANTIATE_TEST_SUITE_P(Seeds, Misbehaving, testing::Range(1, 1 + numberFrom("SMSPB_SEEDS", 2)));

// ---- what was reported sent has arrived, once ----

constexpr int TEXTS_MAX = 10000; // more than go out between a hundred unpluggings

struct Sent {
    std::atomic<bool> enough{false};
    std::atomic<int> count{0};
    std::array<std::atomic<bool>, TEXTS_MAX> ok{};
};

std::vector<u16> unitsOf(const std::string &text, std::size_t room = 0) {
    std::vector<u16> units(text.begin(), text.end());
    units.resize(std::max(room, units.size() + 1));
    return units;
}

void sendUntilEnough(Sent *sent) {
    for (int i = 0; i < TEXTS_MAX && !sent->enough; i++) {
        u8 segments = 0;
        const bool isSent =
            SendSMS(unitsOf("+15550001000", 21).data(), unitsOf("text " + std::to_string(i)).data(),
                    0, &segments) == SMS_OK;
        sent->ok[static_cast<std::size_t>(i)] = isSent;
        if (!isSent) { std::this_thread::sleep_for(20ms); } // else it all fails while it is away
        sent->count = i + 1;
    }
}

// The texts that lie in the storage, and how often.
std::map<std::string, int> storedTexts() {
    std::map<std::string, int> texts;
    for (u32 index = 1; index <= TEXTS_MAX; index++) {
        SmsRecord *record = nullptr;
        if (getSMSbyindex(&record, index) != SMS_OK) { break; }
        const u16 *const text = record->message.text;
        texts[std::string(text, text + sms_wstrlen(text))]++;
        std::free(record->message.text);
        std::free(record);
    }
    return texts;
}

TEST_F(Endurance, ATextReportedSentHasArrivedOnceHoweverOftenTheModemIsUnplugged) {
    const int unpluggings = numberFrom("SMSPB_UNPLUGGINGS", 10);
    ASSERT_EQ(InitSMS(), SMS_OK);
    smspb::ipc::Subscription reports({REPORT_NOTIFICATION});
    Shared<Sent> sent;
    const pid_t sender = fork();
    if (sender == 0) {
        sendUntilEnough(sent.operator->());
        _exit(0);
    }
    std::mt19937 random(1);
    int lost = 0;
    while (lost < unpluggings && sent->count < TEXTS_MAX) {
        ask("AT^FAULT=\"" + std::string(random() % 2 == 0 ? "+CMGS" : "+CMGF") +
            "=drop=" + std::to_string(10 + random() % 60) + ":1\"");
        while (auto report = reports.receive(3s)) {
            const auto payload = report->payload();
            const std::string text(reinterpret_cast<const char *>(payload.data()), payload.size());
            if (text.find("modem lost") != text.npos) { lost++; }
            if (text.find("modem back") != text.npos) { break; }
        }
        std::this_thread::sleep_for(milliseconds(random() % 30));
    }
    sent->enough = true;
    EXPECT_EQ(lost, unpluggings);
    waitpid(sender, nullptr, 0);
    ASSERT_TRUE(isBack());
    const std::map<std::string, int> arrived = storedTexts();
    int ok = 0;
    for (int i = 0; i < sent->count; i++) {
        const auto found = arrived.find("text " + std::to_string(i));
        const int times = found == arrived.end() ? 0 : found->second;
        ok += sent->ok[static_cast<std::size_t>(i)] ? 1 : 0;
        EXPECT_EQ(times, sent->ok[static_cast<std::size_t>(i)] ? 1 : 0) << "text " << i;
    }
    EXPECT_GT(ok, 0);
    EXPECT_LT(ok, sent->count);
    std::cout << lost << " unpluggings: " << sent->count << " texts, " << ok << " sent, "
              << sent->count - ok << " failed, " << arrived.size() << " arrived\n";
}

} // namespace
