#include "platform/modemd/settings_memory.h"

#include <algorithm>
#include <array>

#include "platform/modemd/at_lines.h"

namespace smspb::modemd {
namespace {

constexpr std::array<std::string_view, 10> NAMES = {"+CMEE", "+CREG", "+CGREG", "+CLIP", "+CPMS",
                                                    "+CSMS", "+CNMI", "+CSCB",  "+CUSD", "+CSCS"};

// In order, what stands between separators that are in no string; blanks outside strings left out.
std::vector<std::string> splitOutsideStrings(std::string_view text, char separator) {
    std::vector<std::string> parts(1);
    bool inString = false;
    for (const char c : text) {
        if (c == '"') { inString = !inString; }
        if (c == separator && !inString) {
            parts.emplace_back();
        } else if (c != ' ' || inString) {
            parts.back() += c;
        }
    }
    return parts;
}

std::string joined(const std::vector<std::string> &parts) {
    std::string text;
    for (const std::string &part : parts) { text += part + ","; }
    text.pop_back();
    return text;
}

} // namespace

void SettingsMemory::learn(std::string_view line) {
    const std::string_view command = line.substr(0, line.find('\r'));
    if (upperCase(command.substr(0, 2)) != "AT") { return; }
    for (const std::string &part : splitOutsideStrings(command.substr(2), ';')) {
        const std::size_t extended = std::min(part.find('+'), part.size());
        learnBasic(part.substr(0, extended));
        learnExtended(std::string_view(part).substr(extended));
    }
}

// V.250, 6.1.1 and 6.1.2: back to a profile, or to the factory's.
void SettingsMemory::learnBasic(std::string_view commands) {
    const std::string upper = upperCase(commands);
    if (upper.find('Z') != upper.npos || upper.find("&F") != upper.npos) { settings_.clear(); }
}

void SettingsMemory::learnExtended(std::string_view command) {
    const std::size_t equals = command.find('=');
    if (equals == command.npos || command.substr(equals + 1).starts_with('?')) { return; }
    const std::string name = upperCase(command.substr(0, equals));
    const Parameters given = splitOutsideStrings(command.substr(equals + 1), ',');
    if (name == "+CFUN" && given.size() > 1 && given[1] == "1") { settings_.clear(); }
    if (std::find(NAMES.begin(), NAMES.end(), name) == NAMES.end()) { return; }
    // 2 ends a dialogue and is no setting; what follows the first parameter is a request.
    if (name == "+CUSD" && given[0] == "2") { return; }
    const std::size_t count = name == "+CUSD" ? 1 : given.size();
    Parameters &kept = settings_[name];
    if (kept.size() < count) { kept.resize(count); }
    for (std::size_t i = 0; i < count; i++) {
        if (!given[i].empty()) { kept[i] = given[i]; }
    }
}

std::vector<std::string> SettingsMemory::commands() const {
    std::vector<std::string> lines;
    for (const std::string_view name : NAMES) {
        const auto found = settings_.find(name);
        if (found == settings_.end()) { continue; }
        lines.push_back("AT" + std::string(name) + "=" + joined(found->second) + "\r");
    }
    return lines;
}

} // namespace smspb::modemd
