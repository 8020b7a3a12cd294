#include "modem.h"

#include <utility>

namespace smspb::simmodem {

Storage *Modem::findStorage(std::string_view name) {
    for (Storage &candidate : storages) {
        if (candidate.name() == name) { return &candidate; }
    }
    return nullptr;
}

StorageView Modem::view(std::size_t named) {
    std::vector<Storage *> members;
    for (Storage &each : storages) {
        if (named >= storages.size() || &each == &storages.at(named)) { members.push_back(&each); }
    }
    return {std::string(STORAGE_NAMES.at(named)), std::move(members), indexes};
}

void Modem::restart() {
    settings = profile;
    if (unacknowledged) { pending.push_front(*std::exchange(unacknowledged, std::nullopt)); }
    acknowledgementTimer.cancel();
    held.clear();
    unsolicited.clear();
    ussd.end();
    operatorMode = 0;
    isAttached = true;
}

} // namespace smspb::simmodem
