// The request records that the modem manager accepts. The first octet says which message it is.
#include <span>

#include "fuzz.h"
#include "platform/modemd/at_lines.h"
#include "platform/modemd/records.h"

using namespace smspb::modemd;

namespace {

constexpr u32 IDS[] = {COMMAND_REQUEST, SEND_REQUEST, STORE_REQUEST, REPORT_NOTIFICATION};

void check(const CommandRequest &request) {
    fuzz::require(request.text.find('\r') == request.text.size() - 1, "one command line");
    fuzz::require(request.text.find('\n') == std::string::npos &&
                      request.text.find('\x1a') == std::string::npos,
                  "nothing but the line");
    fuzz::require(request.wait.count() > 0 && request.wait.count() <= 60000, "a bounded wait");
    fuzz::require(request.markers.size() <= 5, "five markers at most");
    commandName(request.text);
    promptsForText(request.text);
}

void check(const MessageRequest &request) {
    fuzz::require(request.pdu.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos,
                  "a PDU of hexadecimal digits");
    fuzz::require(tpduOctets(request.pdu) > 0, "a TPDU behind the service centre");
    fuzz::require(request.command.ends_with('\r'), "a whole command");
}

} // namespace

void fuzz::examine(std::string_view input) {
    const u32 id = IDS[takeOctet(&input) % 4];
    const Block<std::byte> record = copyOf<std::byte>(input);
    try {
        const Request request = parseRequest(id, std::span(record.get(), record.size()));
        std::visit([](const auto &each) { check(each); }, request);
    } catch (const MalformedRequest &refusal) {
        require(*refusal.what() != '\0', "a refusal says what is wrong");
    }
}
