// The tool's commands, one function each: they print through the console and throw a Failure when
// they cannot do their work. main.cpp fills the options from the command line.
#ifndef SMSPB_TOOLS_COMMANDS_H
#define SMSPB_TOOLS_COMMANDS_H

#include <string>
#include <vector>

#include "comm/smspb_types.h"
#include "tools/failure.h"
#include "tools/output.h"

namespace smspb::cli {

struct ComposeOptions {
    std::string number, text;
    bool report = false;    // ask for a status report
    bool dryRun = false;    // send: say the plan only
    bool markSent = false;  // save: as a message that was sent
    unsigned reference = 0; // encode: of a concatenated message
};

struct StorageOptions {
    std::string storage; // "sm", "me"; empty for the command's own choice
    std::vector<std::string> indexes;
};

struct ServiceCentreOptions {
    std::string number; // empty: show it
};

struct AtOptions {
    std::string command;
    unsigned waitSeconds = 10;
};

struct ListenOptions {
    bool init = false;         // make the modem announce everything
    bool once = false;         // end after the first event
    bool remove = false;       // delete stored messages that were shown
    std::string program;       // run for each event; empty for none
    double timeoutSeconds = 0; // 0: none
    double programLimitSeconds = 60;
    double partsWaitSeconds = 300; // for the missing parts of a message
};

struct UssdOptions {
    std::string code; // empty with `cancel`
    std::vector<std::string> replies;
    double waitSeconds = 30;
    bool cancel = false;
};

struct DecodeOptions {
    std::string pdu;
};

// messages.cpp
void send(const Console &console, const ComposeOptions &options);
void save(const Console &console, const ComposeOptions &options);
void read(const Console &console, const StorageOptions &options);
void inbox(const Console &console, const StorageOptions &options);
void remove(const Console &console, const StorageOptions &options);

// settings.cpp
void showStorage(const Console &console, const StorageOptions &options);
void serviceCentre(const Console &console, const ServiceCentreOptions &options);
void initialise(const Console &console);
Exit at(const Console &console, const AtOptions &options); // REFUSED for a reply that is an error

// pdu.cpp
void decode(const Console &console, const DecodeOptions &options);
void encode(const Console &console, const ComposeOptions &options);

// listen.cpp, ussd.cpp
Exit listen(const Console &console, const ListenOptions &options);
Exit ussd(const Console &console, const UssdOptions &options);

// status
Exit showStatus(const Console &console); // NO_ANSWER of a modem that is silent

// The storage that an option names; the SIM when it names none.
u32 storageCode(const std::string &option);

} // namespace smspb::cli

#endif
