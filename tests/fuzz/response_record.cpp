// The response record of the modem manager: any octets, any length, and a transfer file. The first
// octet says which request is answered and how.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "atlib/USBModem.h"
#include "comm/zeldcard_common.h"
#include "fuzz.h"
#include "support/plain/plain_platform.h"

namespace {

std::string_view g_transferred; // what the transfer file holds

// The path is only looked at; every other one leads to the file.
int openTransfer(const char *path) {
    if (std::strlen(path) % 2 == 0) { return -1; }
    static const int file = memfd_create("transfer", MFD_CLOEXEC);
    const bool written = ftruncate(file, 0) == 0 &&
                         pwrite(file, g_transferred.data(), g_transferred.size(), 0) >= 0 &&
                         lseek(file, 0, SEEK_SET) == 0;
    return written ? dup(file) : -1;
}

void useReply(char *reply) {
    if (reply != nullptr) { fuzz::require(std::strlen(reply) <= 1024, "1,024 characters at most"); }
    std::free(reply);
}

void ask(u8 operation) {
    static const char MARKERS[2][31] = {"OK", "ERROR"};
    char *reply = nullptr;
    switch (operation % 4) {
    case 0: reply = writeComm("AT\r", 3000, 2, "OK", "ERROR"); break;
    case 1: ExecAT2("00", MARKERS, 2, &reply, 35000); break;
    case 2: ExecAT3("00", 2, MARKERS, 2, &reply, 35000); break;
    default: {
        const fuzz::Block<u8> room(operation);
        u32 length = operation;
        zeldcard_send_request_sync(1, 1, nullptr, 0, room.get(), &length, 0);
    }
    }
    useReply(reply);
}

} // namespace

extern "C" int __wrap_open(const char *path, int flags, ...);
extern "C" int __wrap_open64(const char *path, int flags, ...);
extern "C" int __wrap_open(const char *path, int, ...) { return openTransfer(path); }
extern "C" int __wrap_open64(const char *path, int, ...) { return openTransfer(path); }

void fuzz::examine(std::string_view input) {
    const u8 operation = takeOctet(&input);
    const u8 length = takeOctet(&input);
    g_transferred = input;
    support::plain::Response response;
    response.result = operation % 32 == 31 ? 1 : 0;
    response.asQueueMessage = operation % 16 == 15;
    response.payload.assign(input.begin(), input.end());
    // Mostly what came; sometimes far more or less than that.
    response.length = length < 0xC0 ? static_cast<u32>(input.size())
                                    : (length < 0xF0 ? length - 0xC0U : 0xFFFFFF00U + length);
    support::plain::answerThisThread([response](const void *, u32) { return response; });
    ask(operation);
}
