// What the simulated modem's network carries arrives once, however the terminal lets it in.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>

#include "support/simmodem.h"

namespace {

using simulated::Quiet;

// The terminal of a modem whose network is the only sender: counts what has come for good.
class Terminal {
public:
    explicit Terminal(unsigned seed) : random_(seed) {}

    void play(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); step++) { playStep(); }
    }

    // Lets in everything that still waits somewhere.
    void drain() {
        setService(false);
        converse("AT+CNMI=2,1");
        converse(R"(AT+CPMS="MT")");
        for (int i = 0; i < 2 * sent_; i++) { emptyStorages(); }
    }

    int sent() const { return sent_; }
    const std::map<std::string, int> &received() const { return received_; }

private:
    unsigned below(unsigned bound) { return static_cast<unsigned>(random_()) % bound; }

    void playStep() {
        static constexpr unsigned WHOLE = 16;
        const unsigned kind = below(WHOLE);
        if (kind < 6) { return sendToItself(); }
        if (kind < 8) { return chooseRoute(); }
        if (kind < 9) { return chooseStorage(); }
        if (kind < 10) { return setService(below(3) != 0); }
        if (kind < 11) { return letTimePass(); }
        if (kind < 13) { return emptyStorages(); }
        acknowledge(below(4) == 0);
    }

    // Two octets of data, numbered, of every class and of none.
    void sendToItself() {
        static constexpr std::array<const char *, 5> CODINGS = {"04", "F4", "F5", "F6", "F7"};
        std::array<char, 5> number{};
        std::snprintf(number.data(), number.size(), "%04X", ++sent_);
        EXPECT_EQ(modem_.ask("AT+CMGS=15"), "\r\n> ");
        converse("0001000B915155001000F000" + std::string(CODINGS[below(5)]) + "02" +
                     number.data() + "\x1A",
                 "");
    }

    void chooseRoute() {
        static constexpr std::array<const char *, 4> ROUTES = {"2,0", "2,1", "2,2", "3,3"};
        converse("AT+CNMI=" + std::string(ROUTES[below(4)]));
    }

    void chooseStorage() {
        static constexpr std::array<const char *, 3> NAMES = {"ME", "SM", "MT"};
        converse("AT+CPMS=\"MT\",,\"" + std::string(NAMES[below(3)]) + "\"");
    }

    // The end of the service counts as an acknowledgement.
    void setService(bool acknowledges) {
        if (!acknowledges) { finishAwaited(); }
        acknowledges_ = acknowledges;
        converse(acknowledges ? "AT+CSMS=1" : "AT+CSMS=0");
    }

    // What was not acknowledged in time comes by another way.
    void letTimePass() {
        awaited_.clear();
        modem_.letHappen({"advance", "61s"});
        converse("AT");
    }

    void emptyStorages() { converse(R"(AT+CPMS="MT";+CMGL=4;+CMGD=0,4)"); }

    void acknowledge(bool refuses) {
        const bool expected = !awaited_.empty();
        if (refuses) { awaited_.clear(); }
        finishAwaited();
        const std::string reply = converse(refuses ? "AT+CNMA=2" : "AT+CNMA");
        EXPECT_EQ(reply.find("+CMS ERROR: 340") == std::string::npos, expected) << reply;
    }

    void finishAwaited() {
        if (!awaited_.empty()) { received_[awaited_]++; }
        awaited_.clear();
    }

    // Another command behind it shows where what came unasked ends.
    std::string converse(const std::string &command, const std::string &end = "\r") {
        static constexpr std::string_view LAST = "490154203237518\r\n\r\nOK\r\n";
        modem_.write(command + end + "AT+CGSN\r");
        const std::string reply = modem_.readTo(std::string(LAST));
        EXPECT_TRUE(reply.ends_with(LAST)) << command << " gave " << reply;
        note(reply);
        return reply;
    }

    // A PDU behind +CMGL is deleted in the same line, one behind +CMT may have to be acknowledged.
    void note(const std::string &reply) {
        std::istringstream lines(reply);
        bool handedOver = false;
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("+CM")) { handedOver = line.starts_with("+CMT: "); }
            if (!line.starts_with("07915155")) { continue; }
            const std::string number = line.substr(line.size() - 5, 4); // before the CR
            if (handedOver && acknowledges_) {
                EXPECT_EQ(awaited_, "") << "two at a time";
                awaited_ = number;
            } else {
                received_[number]++;
            }
        }
    }

    Quiet modem_{
        {"--clock", "driven", "--me-size", "2", "--sm-size", "2"}
    };
    std::mt19937 random_; // the same on every machine
    int sent_ = 0;
    bool acknowledges_ = false;
    std::string awaited_;
    std::map<std::string, int> received_;
};

class Deliveries : public testing::TestWithParam<unsigned> {};

TEST_P(Deliveries, AreNeitherLostNorDoubledWhateverTheRouteAndTheRoom) {
    Terminal terminal(GetParam());
    terminal.play(300);
    terminal.drain();
    ASSERT_FALSE(testing::Test::HasFailure());
    EXPECT_GT(terminal.sent(), 50);
    EXPECT_EQ(terminal.received().size(), static_cast<std::size_t>(terminal.sent()));
    for (const auto &[number, times] : terminal.received()) { EXPECT_EQ(times, 1) << number; }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Deliveries, testing::Values(1U, 2U, 3U, 4U));

} // namespace
