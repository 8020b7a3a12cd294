// What the callers have set on the modem, learnt from the commands that succeeded, so that a modem
// that was unplugged can be set up as it was. Pure: no tty, no clock.
//
// Kept: +CMEE, +CREG, +CGREG, +CLIP, +CPMS, +CSMS, +CNMI, +CSCB, the first parameter of +CUSD, and
// +CSCS (TS 27.005, 27.007). A parameter that is left out keeps its former value, as it does in the
// modem. Z, &F and a +CFUN that resets forget them all.
#ifndef SMSPB_PLATFORM_MODEMD_SETTINGS_MEMORY_H
#define SMSPB_PLATFORM_MODEMD_SETTINGS_MEMORY_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace smspb::modemd {

class SettingsMemory {
public:
    // Takes a command line that the modem has carried out, its terminator included.
    void learn(std::string_view line);

    // The lines that set everything again, +CSCS last: it changes how texts are read.
    std::vector<std::string> commands() const;

private:
    using Parameters = std::vector<std::string>;

    void learnBasic(std::string_view commands);
    void learnExtended(std::string_view command);

    std::map<std::string, Parameters, std::less<>> settings_;
};

} // namespace smspb::modemd

#endif
