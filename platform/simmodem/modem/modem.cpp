#include "platform/simmodem/modem/modem.h"

#include <algorithm>
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

bool Modem::offers(std::string_view charset) const {
    return std::find(charsets.begin(), charsets.end(), charset) != charsets.end();
}

// +CSCS begins with what the standard has it begin with, where that is offered.
Settings Modem::factorySettings() const {
    Settings factory;
    if (!offers(factory.charset)) { factory.charset = charsets.front(); }
    return factory;
}

void Modem::restart() {
    settings = profile;
    functionality = 1;
    selectedPhonebook = 0;
    if (unacknowledged) { pending.push_front(*std::exchange(unacknowledged, std::nullopt)); }
    acknowledgementTimer.cancel();
    held.clear();
    unsolicited.clear();
    ussd.end();
    operatorMode = 0;
    isAttached = true;
}

void Modem::forgetSettings(const std::string &announcement) {
    restart();
    selected = {1, 1, 1};
    if (!announcement.empty()) { unsolicited.push_back(announcement); }
    hasLostLine = true;
}

} // namespace smspb::simmodem
