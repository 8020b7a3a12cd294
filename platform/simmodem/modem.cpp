#include "modem.h"

namespace smspb::simmodem {

Storage *Modem::findStorage(std::string_view name) {
    for (Storage &candidate : storages) {
        if (candidate.name() == name) { return &candidate; }
    }
    return nullptr;
}

void Modem::restart() {
    settings = profile;
    held.clear();
    unsolicited.clear();
    ussd.end();
}

} // namespace smspb::simmodem
