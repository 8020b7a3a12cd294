// What libFuzzer calls, for every target.
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, std::size_t size) {
    fuzz::examine({reinterpret_cast<const char *>(data), size});
    return 0;
}
