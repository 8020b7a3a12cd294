// "+CUSD:" (TS 27.007, 7.15).
#include "atlib/CSMS.h"
#include "fuzz.h"

void fuzz::examine(std::string_view input) {
    const Block<char> line = textOf(input);
    getCUSDindex(line.get());
    str_all_capital(line.get());
    u8 *data = nullptr;
    u32 length = 0;
    u32 scheme = 0;
    u32 isText = 0;
    const u32 status = decodeCUSD(line.get(), &data, &length, &scheme, &isText);
    require((data != nullptr) == (status == SMS_OK), "data for every answer that is read");
    if (data == nullptr) { return; }
    require(data[length] == 0, "a zero behind the data");
    require(isText == 0 || (scheme == 15 && length == std::strlen(reinterpret_cast<char *>(data))),
            "a readable answer has the default alphabet");
    std::free(data);
}
