// What a modem keeps over power-off, as a document of JSON (docs/simulated-modem.md), and the file
// it is kept in.
#pragma once

#include "platform/simmodem/modem/modem.h"
#include "platform/simmodem/state/file.h"

#include <memory>
#include <string>
#include <string_view>

namespace smspb::simmodem {

std::string stateText(const Memory &memory);

// Takes over what the document says; what it does not say stays. Throws std::invalid_argument with
// what is wrong and where, nothing taken over.
void takeState(Modem &modem, std::string_view text);

class StateFile {
public:
    // Reads the file, where there is one, and writes it, so that what is wrong with it shows at
    // once. Throws std::runtime_error, the file as it was.
    StateFile(const std::string &path, Modem &modem);

    // Writes what has changed since. What hinders it is told on standard error; the next change
    // tries again.
    void keep();

private:
    const Modem &modem_;
    ReplacedFile file_;
    Memory kept_;
    std::string failure_; // the last time
};

} // namespace smspb::simmodem
