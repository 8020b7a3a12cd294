// "+CMTI:" (TS 27.005, 3.4.1).
#include "atlib/CSMS.h"
#include "fuzz.h"

void fuzz::examine(std::string_view input) {
    const Block<char> line = textOf(input);
    const Block<char> memory(line.size());
    const i32 index = getCMTIindex(line.get(), memory.get());
    require(memory[line.size() - 1] == '\0', "the storage's name is shorter than the line");
    if (HasSubStr(line.get(), "+CMTI: ") == nullptr) { require(index == -1, "no index"); }
}
