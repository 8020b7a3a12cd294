#include "scripted_modem.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "fake_platform.h"

namespace support {
namespace {

constexpr u32 AT_REQUEST = 0x1040008f, SEND_REQUEST = 0x104000af, STORE_REQUEST = 0x104000b1;
constexpr std::size_t MARKER_SLOT = 16, MARKERS_AT = 16, AT_TEXT_AT = 96;

u32 wordAt(const std::vector<u8> &octets, std::size_t offset) {
    u32 value = 0;
    if (offset + sizeof(value) > octets.size()) {
        ADD_FAILURE() << "request record of " << octets.size() << " octets has no word at "
                      << offset;
        return 0;
    }
    std::memcpy(&value, octets.data() + offset, sizeof(value));
    return value;
}

// The text of a record: its stated length and its zero have to be right.
std::string textAt(const std::vector<u8> &octets, std::size_t offset) {
    const u32 length = wordAt(octets, 0);
    if (octets.size() != offset + length + 1 || octets.back() != 0) {
        ADD_FAILURE() << "request record of " << octets.size() << " octets announces a text of "
                      << length << " at " << offset;
        return "";
    }
    return {octets.begin() + static_cast<std::ptrdiff_t>(offset), octets.end() - 1};
}

std::string markerAt(const std::vector<u8> &octets, std::size_t slot) {
    const char *text =
        reinterpret_cast<const char *>(octets.data()) + MARKERS_AT + MARKER_SLOT * slot;
    return {text, strnlen(text, MARKER_SLOT)};
}

void readAtRecord(const std::vector<u8> &octets, Request *request) {
    request->ask = Ask::At;
    request->command = textAt(octets, AT_TEXT_AT);
    request->reserved = wordAt(octets, 4);
    request->waitMs = wordAt(octets, 8);
    const u32 count = wordAt(octets, 12);
    EXPECT_LE(count, 5U) << "more markers announced than fit";
    for (u32 i = 0; i < count && i < 5 && octets.size() > AT_TEXT_AT; i++) {
        request->markers.push_back(markerAt(octets, i));
    }
}

Request understand(const Sent &sent) {
    Request request;
    request.ipcTimeout = sent.timeout;
    request.responseRoom = sent.room;
    request.destination = sent.destination();
    request.payloadLength = sent.len;
    if (sent.messageId == AT_REQUEST) {
        readAtRecord(sent.payload, &request);
    } else if (sent.messageId == SEND_REQUEST) {
        request.ask = Ask::Send;
        request.command = textAt(sent.payload, 4);
    } else {
        EXPECT_EQ(sent.messageId, STORE_REQUEST) << "a request that no manager knows";
        request.ask = Ask::Store;
        request.param = wordAt(sent.payload, 4);
        request.command = textAt(sent.payload, 8);
    }
    return request;
}

void appendWord(std::vector<u8> *octets, u32 value) {
    u8 bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    octets->insert(octets->end(), bytes, bytes + sizeof(bytes));
}

std::string writeTransferFile(const std::string &text) {
    char path[] = "/tmp/smspb-transfer-XXXXXX";
    const int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
    return path;
}

} // namespace

Reply::Reply(const char *inlineText) : text(inlineText) {}
Reply::Reply(std::string inlineText) : text(std::move(inlineText)) {}
Reply::Reply(How way, std::string content, u32 number)
    : how(way), text(std::move(content)), code(number) {}

Reply refused(u32 resultWord) { return {Reply::How::Refused, "", resultWord}; }
Reply throughFile(std::string text) { return {Reply::How::File, std::move(text), 0}; }

Exchange::Exchange(std::string expected, Reply answer)
    : Exchange(Ask::At, std::move(expected), std::move(answer)) {}
Exchange::Exchange(Ask record, std::string expected, Reply answer)
    : ask(record), command(std::move(expected)), reply(std::move(answer)) {}

std::vector<std::string> fourMarkers() { return {"OK", "ERROR", "+CMS ERROR:", "+CME ERROR:"}; }

ScriptedModem::ScriptedModem(Script script) : script_(std::move(script.steps)) {
    answerRequests([this](const Sent &sent) {
        const Request request = understand(sent);
        const Reply reply = replyTo(request);
        requests_.push_back(request);
        Answer answer;
        if (reply.how == Reply::How::SendFails) {
            answer.result = reply.code;
        } else {
            answer.payload = responseRecord(reply);
        }
        return answer;
    });
}

ScriptedModem::~ScriptedModem() {
    answerRequests(nullptr);
    for (std::size_t i = requests_.size(); i < script_.size(); i++) {
        ADD_FAILURE() << "never asked: " << ::testing::PrintToString(script_[i].command);
    }
    for (const std::string &file : files_) { unlink(file.c_str()); }
}

void ScriptedModem::thenAlways(Reply reply) { rest_.assign(1, std::move(reply)); }

std::vector<std::string> ScriptedModem::commands() const {
    std::vector<std::string> texts;
    for (const Request &request : requests_) { texts.push_back(request.command); }
    return texts;
}

Reply ScriptedModem::replyTo(const Request &request) {
    const std::size_t step = requests_.size();
    if (step >= script_.size()) {
        if (!rest_.empty()) { return rest_.front(); }
        ADD_FAILURE() << "not in the script: " << ::testing::PrintToString(request.command);
        return NO_REPLY;
    }
    EXPECT_EQ(request.command, script_[step].command) << "step " << step;
    EXPECT_EQ(static_cast<int>(request.ask), static_cast<int>(script_[step].ask))
        << "step " << step << ": another request record";
    return script_[step].reply;
}

std::vector<u8> ScriptedModem::responseRecord(const Reply &reply) {
    const bool file = reply.how == Reply::How::File;
    std::vector<u8> record;
    appendWord(&record, reply.how == Reply::How::Refused ? reply.code : 0);
    appendWord(&record, file ? 1 : 0);
    appendWord(&record, file ? 0 : static_cast<u32>(reply.text.size()));
    if (file) { files_.push_back(writeTransferFile(reply.text)); }
    const std::string &content = file ? files_.back() : reply.text;
    record.insert(record.end(), content.begin(), content.end());
    if (file) { record.push_back(0); }
    return record;
}

} // namespace support
