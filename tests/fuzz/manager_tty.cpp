// The modem manager's side of the tty, with the requests that wait for it: parts between zero
// octets are what happens, by their first octet. 'c' and the rest is a command that someone runs,
// 'm' a message that someone sends, 't' and an octet lets that many times 64 ms pass, 'x' takes the
// tty away; anything else is what the modem says.
#include <chrono>
#include <memory>
#include <utility>

#include <asio/io_context.hpp>
#include <spdlog/spdlog.h>

#include "fuzz.h"
#include "platform/modemd/alarm.h"
#include "platform/modemd/at_engine.h"
#include "platform/modemd/modem_service.h"
#include "platform/modemd/request_queue.h"

using namespace smspb::modemd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

Tty::Events g_events; // of the engine at work
steady_clock::duration g_now{0};

[[maybe_unused]] const bool quiet = [] {
    spdlog::set_level(spdlog::level::off);
    return true;
}();

} // namespace

// steady_clock::now() (--wrap): the clock stands still but for what an input lets pass.
extern "C" steady_clock::rep __wrap__ZNSt6chrono3_V212steady_clock3nowEv();
extern "C" steady_clock::rep __wrap__ZNSt6chrono3_V212steady_clock3nowEv() { return g_now.count(); }

// A tty without a device: what is written is gone at once.
namespace smspb::modemd {
Tty::Tty(asio::io_context &loop, std::string path, unsigned baud, Events events)
    : port_(loop), path_(std::move(path)), baud_(baud) {
    g_events = std::move(events);
}
void Tty::open() { opening_ += baud_; }
void Tty::close() {}
void Tty::write(std::string_view) {}
void Tty::writeNow(std::string_view) {}
} // namespace smspb::modemd

namespace {

class Manager {
public:
    Manager()
        : engine_(
              loop_, "modem", 115200, [](std::string_view lines) { checkReport(lines); },
              [this](bool isSilent) { queue_.setModemSilent(isSilent); }),
          service_(engine_),
          queue_(
              [this](const RequestQueue::Job &job, RequestQueue::OnAnswer onAnswer) {
                  service_.carryOut(job.request, job.account.arrival, std::move(onAnswer));
              },
              [this](steady_clock::time_point at) {
                  expiry_.set(at, [this] { queue_.expire(steady_clock::now()); });
              }) {
        engine_.start();
        turn();
    }

    void happen(const std::string &part) {
        const std::string rest = part.substr(std::min<std::size_t>(1, part.size()));
        switch (part.empty() ? '\n' : part.front()) {
        case 'c':
            add(CommandRequest{
                rest + "\r", {"OK", "ERROR", "+CM"},
                   milliseconds(500)
            });
            break;
        case 'm': add(MessageRequest{"AT+CMGS=18\r", rest}); break;
        case 't':
            pass(milliseconds(64 * static_cast<unsigned char>(rest.empty() ? 1 : rest[0])));
            break;
        case 'x': g_events.lost("it is gone"); break;
        default: say(part); break;
        }
        turn();
    }

    void end() {
        queue_.stop();
        engine_.stop();
        expiry_.stop();
        turn();
        fuzz::require(asked_ == answered_, "every request is answered once");
    }

private:
    class Caller : public RequestQueue::Caller {
    public:
        explicit Caller(Manager &manager) : manager_(manager) {}
        bool isWaiting() const override { return true; }
        void answer(const Account &account, const Answer &answer) override {
            manager_.answered_++;
            fuzz::require(answer.text.size() <= REPLY_OCTETS_MAX, "a bounded reply");
            fuzz::require(answer.text.find('\0') == std::string::npos, "a reply holds no zero");
            checkTimes(account);
        }
        void drop(const Account &) override { fuzz::require(false, "nobody hung up"); }

    private:
        Manager &manager_;
    };

    // The clock stands still but for the steps of an input, the longest of which is the most that
    // an end can be late.
    static void checkTimes(const Account &account) {
        constexpr milliseconds LONGEST_STEP{64 * 255};
        const auto now = steady_clock::now();
        const auto begin = account.begin.value_or(now);
        fuzz::require(begin - account.arrival <= RequestQueue::TURN_WAIT_MAX + LONGEST_STEP,
                      "nobody waits for his turn for ever");
        fuzz::require(now - account.arrival <=
                          RequestQueue::TURN_WAIT_MAX + milliseconds(34000) + 2 * LONGEST_STEP,
                      "nobody waits for an answer for ever");
    }

    static void checkReport(std::string_view lines) {
        fuzz::require(lines.size() > 2 && lines.ends_with("\r\n"), "a report is whole lines");
        fuzz::require(lines.size() <= 2 * LINE_OCTETS_MAX + 8, "a report is bounded");
        fuzz::require(lines.find('\0') == std::string_view::npos, "a report holds no zero");
    }

    void add(Request request) {
        Account account;
        account.asker.process = asked_ % 3; // so that some have all their places
        asked_++;
        queue_.add({std::move(request), std::move(account), std::make_unique<Caller>(*this)});
    }
    // In a block of its own, as it would be read.
    static void say(const std::string &octets) {
        const fuzz::Block<char> block = fuzz::copyOf<char>(octets);
        g_events.received({block.get(), block.size()});
    }
    void pass(milliseconds time) {
        g_now += time;
        turn();
    }
    void turn() {
        loop_.restart();
        loop_.poll();
    }

    static inline asio::io_context loop_{1}; // its descriptors are the costly part of an input
    Alarm expiry_{loop_};
    AtEngine engine_;
    ModemService service_;
    RequestQueue queue_;
    unsigned asked_ = 0, answered_ = 0;
};

} // namespace

void fuzz::examine(std::string_view input) {
    constexpr std::size_t PARTS_MAX = 48; // more of them are slow, and no other story
    std::vector<std::string> parts = partsOf(input);
    parts.resize(std::min(parts.size(), PARTS_MAX));
    Manager manager;
    for (const std::string &part : parts) { manager.happen(part); }
    manager.end();
}
