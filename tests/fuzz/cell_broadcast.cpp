// "+CBM:" with the page on the line behind (TS 27.005, 3.4.1).
#include "atlib/CSMS.h"
#include "fuzz.h"

void fuzz::examine(std::string_view input) {
    const Block<char> line = textOf(input);
    getCBMindex(line.get());
    u8 *octets = nullptr;
    u32 length = 0;
    const u32 status = decodeCBM(line.get(), &octets, &length);
    require((octets != nullptr) == (status == SMS_OK), "octets for every page that is read");
    if (octets != nullptr) {
        require(std::strlen(reinterpret_cast<const char *>(octets)) < 200, "a zero behind a page");
    }
    std::free(octets);
}
