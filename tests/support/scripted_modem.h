// A modem manager by script: the requests that the library is expected to make, in order, each with
// its reply. A request that differs, comes too often or never comes fails the test. Nothing sleeps.
//
//     ScriptedModem modem({
//         {"AT+CSCS?\r", "\r\n+CSCS: \"IRA\"\r\n\r\nOK\r\n"},
//         {"AT+CSCS=\"GSM\"\r", NO_REPLY},
//         {Ask::Send, "0011000B91...", "\r\n+CMGS: 5\r\n\r\nOK\r\n"},
//     });
#ifndef SMSPB_TESTS_SCRIPTED_MODEM_H
#define SMSPB_TESTS_SCRIPTED_MODEM_H

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "comm/smspb_types.h"

namespace support {

// Which of the three request records: 0x1040008f, 0x104000af, 0x104000b1.
enum class Ask { At, Send, Store };

struct Reply {
    enum class How { Inline, File, SendFails, Refused } how = How::Inline;
    std::string text;
    u32 code = 0;                  // SendFails: the send's result; Refused: the result word
    Reply(const char *inlineText); // NOLINT(google-explicit-constructor)
    Reply(std::string inlineText); // NOLINT(google-explicit-constructor)
    Reply(How way, std::string content, u32 number);
};
// The send fails, as when nobody answers in time.
inline const Reply NO_REPLY(Reply::How::SendFails, "", 9);
// The manager answers with a result word other than 0.
Reply refused(u32 resultWord);
// The reply comes through a transfer file, removed at the end of the test.
Reply throughFile(std::string text);

struct Exchange {
    Exchange(std::string expected, Reply answer);
    Exchange(Ask record, std::string expected, Reply answer);
    Ask ask;
    std::string command;
    Reply reply;
};

struct Script {
    // NOLINTNEXTLINE(google-explicit-constructor)
    Script(std::initializer_list<Exchange> list) : steps(list) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Script(std::vector<Exchange> list) : steps(std::move(list)) {}
    std::vector<Exchange> steps;
};

// One request as the manager understands it.
struct Request {
    Ask ask = Ask::At;
    std::string command;
    u32 reserved = 0, waitMs = 0; // Ask::At
    std::vector<std::string> markers;
    u32 param = 0; // Ask::Store
    u32 ipcTimeout = 0, responseRoom = 0, destination = 0, payloadLength = 0;
};

// The markers that writeComm's callers list for message commands.
std::vector<std::string> fourMarkers(); // OK, ERROR, +CMS ERROR:, +CME ERROR:

class ScriptedModem {
public:
    explicit ScriptedModem(Script script);
    ~ScriptedModem(); // the rest of the script is reported as missing
    ScriptedModem(const ScriptedModem &) = delete;
    ScriptedModem &operator=(const ScriptedModem &) = delete;

    // Whatever is asked behind the script's end gets this reply instead of failing the test.
    void thenAlways(Reply reply);
    // The requests so far.
    const std::vector<Request> &requests() const { return requests_; }
    std::vector<std::string> commands() const;

private:
    std::vector<Exchange> script_;
    std::vector<Reply> rest_; // none or one
    std::vector<Request> requests_;
    std::vector<std::string> files_;
    Reply replyTo(const Request &request);
    std::vector<u8> responseRecord(const Reply &reply);
};

} // namespace support

#endif
