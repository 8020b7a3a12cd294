// One command on its whole road: library, modem manager, simulated modem and back, all of them
// processes of their own; beside it the two bare round trips that are on this road.
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "atlib/USBModem.h"
#include "case.h"
#include "echo.h"
#include "support/process.h"

namespace bench {
namespace {

class Road {
public:
    Road()
        : socket_(directory_.path() / "echo"),
          modem_({SIMMODEM_PROGRAM, "--link", (directory_.path() / "modem").string()}) {
        setenv("SMSPB_RUNTIME_DIR", directory_.path().c_str(), 1);
        if (!modem_.prints("ready")) { throw std::runtime_error("the modem does not get ready"); }
        const std::string tty = (directory_.path() / "modem").string();
        manager_ = std::make_unique<support::Program>(
            std::vector<std::string>{MODEMD_PROGRAM, "--device", tty});
        if (!manager_->prints("ready")) {
            throw std::runtime_error("the manager does not get ready");
        }
    }
    const SocketEcho &socket() const { return socket_; }
    const TerminalEcho &terminal() const { return terminal_; }

private:
    support::PrivateDirectory directory_;
    SocketEcho socket_;
    TerminalEcho terminal_;
    support::Program modem_;
    std::unique_ptr<support::Program> manager_;
};

// The processes start with the first case that needs them.
const Road &road() {
    static const Road ROAD;
    return ROAD;
}

std::size_t octets;
char *reply;

const Register CASES([] {
    add(
        "command, whole road/ours",
        [] {
            road();
            std::free(reply);
            reply = writeComm("AT\r", 3000, 2, "OK", "ERROR");
        },
        [] {
            return reply != nullptr && std::strstr(reply, "OK\r\n") != nullptr ? nullptr
                                                                               : "another reply";
        },
        2);
    add(
        "command, whole road/socket", [] { octets = road().socket().roundTrip(); },
        [] { return octets == SocketEcho::ANSWER_OCTETS ? nullptr : "no answer"; });
    add(
        "command, whole road/pty", [] { octets = road().terminal().roundTrip(); },
        [] { return octets == TerminalEcho::ANSWER_OCTETS ? nullptr : "no answer"; });
});

} // namespace
} // namespace bench
