// What libFuzzer calls, for the targets of the library.
#include "fuzz.h"
#include "support/plain/plain_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    support::plain::answerThisThread(nullptr);
    fuzz::examine({reinterpret_cast<const char *>(data), size});
    fuzz::require(support::plain::liveIpcBlocks() == 0, "every IPC block is given back");
    return 0;
}
